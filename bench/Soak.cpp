// Long-uptime soak of both managers on the simulated platform, in real time: scan results at
// 5,000 per second for three Bluetooth clients, a reload every 100 ms, a GATT connection opened
// and closed every second, and 200 distance events per second for an InLoc client. Every 10 s
// it prints throughput, latency percentiles (platform callback to client callback) and resident
// memory. Runs for the seconds given as the first argument (default 600); `--no-reloads` as the
// second leaves the reloads out.
//
// What may grow: each Bluetooth reload appends the clients' filter pairs to the manager's
// routing lists, which only grow by design; the soak prints the reloads beside the resident
// memory, and a run without reloads shows the rest of the memory flat.

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <fstream>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "bluetooth/World.h"
#include "inloc/InLocService.h"
#include "scenario/Scenario.h"
#include "tracker/bluetooth/BleUtils.h"
#include "tracker/bluetooth/BluetoothManager.h"
#include "tracker/inloc/InLocManager.h"

namespace {

using namespace tracker::util::bluetooth;
using tracker::util::inloc::InLocManager;
using tracker::util::inloc::TrackerInLocDistanceEvent;
using Steady = std::chrono::steady_clock;

constexpr int kResultsPerSecond = 5000;
constexpr int kDistancesPerSecond = 200;
constexpr auto kReloadEvery = std::chrono::milliseconds(100);
constexpr auto kReportEvery = std::chrono::seconds(10);
constexpr std::size_t kRing = 1 << 16;
const char* const kTag = "C0:FF:EE:00:00:01";

// Send times by sequence number, and the latencies of one reporting window.
class Latencies {
  public:
    void sent(uint32_t seq) { m_sent[seq % kRing] = Steady::now(); }
    void arrived(uint32_t seq) {
        const double micros =
            std::chrono::duration<double, std::micro>(Steady::now() - m_sent[seq % kRing]).count();
        std::lock_guard<std::mutex> lock(m_mutex);
        m_window.push_back(micros);
    }
    // The window's count and its 50th, 99th and 100th percentiles; starts the next window.
    std::vector<double> take() {
        std::vector<double> window;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            window.swap(m_window);
        }
        if (window.empty()) {
            return {0, 0, 0, 0};
        }
        std::sort(window.begin(), window.end());
        const auto at = [&](double q) {
            return window[static_cast<std::size_t>(q * (window.size() - 1))];
        };
        return {static_cast<double>(window.size()), at(0.5), at(0.99), window.back()};
    }

  private:
    std::vector<Steady::time_point> m_sent = std::vector<Steady::time_point>(kRing);
    std::mutex m_mutex;
    std::vector<double> m_window;
};

Latencies& scanLatencies() {
    static auto* instance = new Latencies;
    return *instance;
}
std::atomic<uint64_t> g_distances{0};

// The sequence number a load advertisement carries; none in the quiet tag's own advertisements,
// which must not count as late.
std::optional<uint32_t> sequenceOf(const std::vector<uint8_t>& raw) {
    if (raw.size() < 12) {
        return std::nullopt;
    }
    return static_cast<uint32_t>(raw[8] | raw[9] << 8 | raw[10] << 16 |
                                 static_cast<uint32_t>(raw[11]) << 24);
}

// Flags, the 16-bit service UUID FEAA, and its service data carrying the sequence number.
std::vector<uint8_t> advertisementFor(uint32_t seq) {
    return {0x03,
            0x03,
            0xAA,
            0xFE,
            0x07,
            0x16,
            0xAA,
            0xFE,
            static_cast<uint8_t>(seq),
            static_cast<uint8_t>(seq >> 8),
            static_cast<uint8_t>(seq >> 16),
            static_cast<uint8_t>(seq >> 24)};
}

class SoakClient : public BluetoothManagerClientInterface {
  public:
    SoakClient() : m_filters(std::make_shared<BluetoothManagerScanFilter>()) {
        TrackerScanFilter filter;
        filter.uuidFilter.uuid = {0xFE, 0xAA};
        m_filters->addScanFilters({filter});
    }
    std::shared_ptr<BluetoothManagerScanFilter> getScanFilter() override { return m_filters; }
    void onBeaconScanResult(std::shared_ptr<TrackerScanRecord> record,
                            TrackerExtraBeaconData) override {
        if (const auto seq = sequenceOf(record->scanRecord)) {
            scanLatencies().arrived(*seq);
        }
    }
    void onConnected(std::shared_ptr<TrackerDeviceAddr>, unsigned long long handle) override {
        signal(handle);
    }
    void onDisconnected(std::shared_ptr<TrackerDeviceAddr>, unsigned long long,
                        TrackerStatus) override {
        signal(0);
    }
    // Waits (real time, at most 5 s) for the next connection or disconnection; its handle.
    std::optional<unsigned long long> await() {
        std::unique_lock<std::mutex> lock(m_mutex);
        if (!m_changed.wait_for(lock, std::chrono::seconds(5),
                                [&] { return m_event.has_value(); })) {
            return std::nullopt;
        }
        const auto event = m_event;
        m_event.reset();
        return event;
    }

  private:
    void signal(unsigned long long handle) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_event = handle;
        m_changed.notify_all();
    }
    std::shared_ptr<BluetoothManagerScanFilter> m_filters;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::optional<unsigned long long> m_event;
};

class SoakTracker : public tracker::util::inloc::InLocManagerClientInterface {
  public:
    void onInitializationSuccess() override {}
    void onInitializationFailure() override {}
    void onInLocTrackingResult(std::shared_ptr<TrackerInLocDistanceEvent>) override {
        ++g_distances;
    }
    void onRingDeviceResult(const std::shared_ptr<TrackerDeviceAddr>&, TrackerStatus) override {}
    std::shared_ptr<BluetoothManagerScanFilter> getScanFilter() override {
        auto filters = std::make_shared<BluetoothManagerScanFilter>();
        TrackerScanFilter filter;
        filter.type = TYPE_MEMBERSHIP;
        filter.uuidFilter.uuid = {0x0A, 0x0B, 0x0C, 0x0D};
        filters->addScanFilters({filter});
        return filters;
    }
};

long residentKilobytes() {
    std::ifstream statm("/proc/self/statm");
    long pages = 0, resident = 0;
    statm >> pages >> resident;
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

}  // namespace

int main(int argc, char** argv) {
    const int seconds = argc > 1 ? std::atoi(argv[1]) : 600;
    const bool reloading = !(argc > 2 && std::string(argv[2]) == "--no-reloads");
    if (seconds <= 0 || (argc > 2 && reloading) || argc > 3) {
        std::fprintf(stderr, "usage: soak [seconds] [--no-reloads]\n");
        return 2;
    }
    tracker::sim::World& world = tracker::sim::World::instance();
    world.reset();
    std::string error;
    // One quiet tag for the GATT sessions and the InLoc tracking (its own advertising is rare).
    if (!tracker::sim::loadScenario(
            R"({"tags": [{"address": "C0:FF:EE:00:00:01", "advertisement": "0303aafe",
                "intervalMs": 60000, "distance": 2, "membership": "0a0b0c0d",
                "gatt": [{"uuid": "180f", "characteristics": [{"uuid": "2a19", "value": "64"}]}]}]})",
            world, &error)) {
        std::fprintf(stderr, "soak: %s\n", error.c_str());
        return 2;
    }
    const auto bluetooth = BluetoothManagerInterface::getInstance();
    std::vector<std::shared_ptr<SoakClient>> clients = {std::make_shared<SoakClient>(),
                                                        std::make_shared<SoakClient>(),
                                                        std::make_shared<SoakClient>()};
    for (const auto& client : clients) {
        bluetooth->registerConnector(client);
    }
    for (const auto& client : clients) {
        bluetooth->start(client);
    }
    const auto inloc = InLocManager::getInstance();
    const auto tracker = std::make_shared<SoakTracker>();
    inloc->registerConnector(tracker);
    if (!inloc->start(tracker) || !world.scanning()) {
        std::fprintf(stderr, "soak: the managers did not start\n");
        return 2;
    }

    std::atomic<bool> running{true};
    std::atomic<uint64_t> sent{0}, delivered{0}, reloads{0}, sessions{0}, sessionFailures{0};
    std::vector<std::thread> load;
    load.emplace_back([&] {  // scan results, paced in slices of 10 ms
        auto next = Steady::now();
        for (uint32_t seq = 0; running;) {
            for (int i = 0; i < kResultsPerSecond / 100; ++i, ++seq) {
                scanLatencies().sent(seq);
                delivered +=
                    world.injectAdvertisement("C0:FF:EE:00:00:02", advertisementFor(seq), -60);
                ++sent;
            }
            next += std::chrono::milliseconds(10);
            std::this_thread::sleep_until(next);
        }
    });
    load.emplace_back([&] {  // reloads
        for (std::size_t i = 0; running && reloading; ++i) {
            bluetooth->reload(clients[i % clients.size()]);
            ++reloads;
            std::this_thread::sleep_for(kReloadEvery);
        }
    });
    load.emplace_back([&] {  // a GATT session a second
        while (running) {
            const auto client = clients[0];
            bool done = false;
            if (bluetooth->connect(BleUtils::stringToTrackerDeviceAddr(kTag), client)) {
                if (const auto handle = client->await(); handle && *handle != 0) {
                    done = bluetooth->discoverAllServices(*handle) &&
                           bluetooth->disconnect(*handle) && client->await().has_value();
                }
            }
            ++(done ? sessions : sessionFailures);
            std::this_thread::sleep_for(std::chrono::seconds(1));
        }
    });
    load.emplace_back([&] {  // distance events
        tracker::sim::InjectedDistanceEvent event;
        event.address = kTag;
        event.membership = std::vector<uint8_t>{0x0A, 0x0B, 0x0C, 0x0D};
        event.advertisement = {0x03, 0x03, 0xAA, 0xFE};
        event.flags = IXA_INLOC_EVENT_HAS_DISTANCE;
        event.accumulatedDistance = 800;
        event.sampleCount = 4;
        auto next = Steady::now();
        while (running) {
            for (int i = 0; i < kDistancesPerSecond / 100; ++i) {
                tracker::sim::InLocService::instance().injectDistanceEvent(event);
            }
            next += std::chrono::milliseconds(10);
            std::this_thread::sleep_until(next);
        }
    });

    std::printf("%6s %10s %10s %9s %9s %9s %9s %8s %9s %10s\n", "time", "results/s", "delivered",
                "p50 us", "p99 us", "max us", "dist/s", "gatt", "reloads", "rss KiB");
    const auto start = Steady::now();
    uint64_t lastDistances = 0, lastDelivered = 0;
    for (auto report = start + kReportEvery; report <= start + std::chrono::seconds(seconds);
         report += kReportEvery) {
        std::this_thread::sleep_until(report);
        const std::vector<double> window = scanLatencies().take();
        const double span = std::chrono::duration<double>(kReportEvery).count();
        const uint64_t distances = g_distances.load(), nowDelivered = delivered.load();
        std::printf("%5llds %10.0f %10.0f %9.1f %9.1f %9.0f %9.0f %8llu %9llu %10ld\n",
                    static_cast<long long>(
                        std::chrono::duration_cast<std::chrono::seconds>(report - start).count()),
                    window[0] / span, static_cast<double>(nowDelivered - lastDelivered) / span,
                    window[1], window[2], window[3],
                    static_cast<double>(distances - lastDistances) / span,
                    static_cast<unsigned long long>(sessions.load()),
                    static_cast<unsigned long long>(reloads.load()), residentKilobytes());
        std::fflush(stdout);
        lastDistances = distances;
        lastDelivered = nowDelivered;
    }
    running = false;
    for (std::thread& thread : load) {
        thread.join();
    }
    std::printf("sent %llu results, %llu GATT sessions (%llu failed), %llu reloads\n",
                static_cast<unsigned long long>(sent.load()),
                static_cast<unsigned long long>(sessions.load()),
                static_cast<unsigned long long>(sessionFailures.load()),
                static_cast<unsigned long long>(reloads.load()));
    return sessionFailures.load() == 0 ? 0 : 1;
}
