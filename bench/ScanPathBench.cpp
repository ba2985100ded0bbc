// The scan path, end to end: advertisements injected into the simulated radio are delivered by
// the platform's threads, converted and routed through the real BluetoothManager to three
// clients holding fifty (filter, client) pairs. The baseline, in the same process and fed the
// same way, does the same conversion and first-match routing behind a plain mutex and
// condition-variable queue. Two cases: results per second with the radio flat out, and the
// latency from the platform's callback to the client's at 5,000 results per second.

#include <benchmark/benchmark.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include <frameworklink/managers/AndroidBTProxyManager.h>

#include "PathBench.h"
#include "RatioReport.h"
#include "bluetooth/World.h"
#include "tracker/bluetooth/AndroidBLEBridge.h"
#include "tracker/bluetooth/BleUtils.h"
#include "tracker/bluetooth/BluetoothManager.h"

namespace {

using android::bluetooth::le::ScanResult;
using com::orvane::frameworklink::managers::AndroidBTProxyManager;
using tracker::sim::World;
using namespace tracker::util::bluetooth;
using tracker::bench::Arrivals;

// Two clients with 17 service-UUID filters each, one with 16 manufacturer filters.
constexpr int kUuidFilters = 34;
constexpr int kPairs = 50;
constexpr const char* kAddress = "C0:FF:EE:00:00:01";

// The advertisement of result `seq`: it matches pair seq % 50 and carries seq in its
// manufacturer data. Results for a manufacturer pair list a service no filter asks for, so they
// are compared with every UUID pair first.
std::vector<uint8_t> advertisementFor(uint32_t seq) {
    const int pair = static_cast<int>(seq % kPairs);
    const uint16_t uuid = pair < kUuidFilters ? 0x1000 + pair : 0x2000;
    const uint16_t company = pair < kUuidFilters ? 0x0FFF : 0x0100 + (pair - kUuidFilters);
    return {0x03,
            0x03,
            static_cast<uint8_t>(uuid & 0xFF),
            static_cast<uint8_t>(uuid >> 8),
            0x07,
            0xFF,
            static_cast<uint8_t>(company & 0xFF),
            static_cast<uint8_t>(company >> 8),
            static_cast<uint8_t>(seq),
            static_cast<uint8_t>(seq >> 8),
            static_cast<uint8_t>(seq >> 16),
            static_cast<uint8_t>(seq >> 24)};
}

uint32_t sequenceOf(const std::vector<uint8_t>& raw) {
    return raw.size() < 12 ? 0
                           : static_cast<uint32_t>(raw[8] | raw[9] << 8 | raw[10] << 16 |
                                                   static_cast<uint32_t>(raw[11]) << 24);
}

std::vector<TrackerScanFilter> filtersOf(int client) {
    std::vector<TrackerScanFilter> filters;
    if (client < 2) {
        for (int pair = client * 17; pair < client * 17 + 17; ++pair) {
            TrackerScanFilter filter;
            filter.type = TYPE_UUID;
            filter.uuidFilter.uuid = {0x10, static_cast<uint8_t>(pair)};
            filters.push_back(filter);
        }
        return filters;
    }
    for (int company = 0; company < kPairs - kUuidFilters; ++company) {
        TrackerScanFilter filter;
        filter.type = TYPE_MANU_DATA;
        filter.manuDataFilter = {{0x01, static_cast<uint8_t>(company)}, {0xFF, 0xFF}};
        filters.push_back(filter);
    }
    return filters;
}

Arrivals& arrivals() {
    static Arrivals instance(1 << 16);
    return instance;
}

class BenchClient : public BluetoothManagerClientInterface {
  public:
    explicit BenchClient(int index) : m_filters(std::make_shared<BluetoothManagerScanFilter>()) {
        m_filters->addScanFilters(filtersOf(index));
    }
    std::shared_ptr<BluetoothManagerScanFilter> getScanFilter() override { return m_filters; }
    void onBeaconScanResult(std::shared_ptr<TrackerScanRecord> record,
                            TrackerExtraBeaconData) override {
        arrivals().arrived(sequenceOf(record->scanRecord));
    }

  private:
    std::shared_ptr<BluetoothManagerScanFilter> m_filters;
};

// The least a router needs: convert on the platform's thread, queue under a mutex, match and
// deliver on one thread of its own, first match wins, UUID pairs before manufacturer pairs.
class BaselineRouter {
  public:
    explicit BaselineRouter(const std::vector<std::shared_ptr<BenchClient>>& clients)
        : m_thread([this] { run(); }) {
        for (const auto& client : clients) {
            for (const TrackerScanFilter& filter : client->getScanFilter()->getScanFilters()) {
                if (filter.type == TYPE_UUID) {
                    m_uuidPairs.emplace_back(filter.uuidFilter, client);
                } else {
                    m_manuPairs.emplace_back(filter.manuDataFilter, client);
                }
            }
        }
    }
    ~BaselineRouter() {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_stop = true;
        }
        m_wake.notify_one();
        m_thread.join();
    }

    void onPlatformResult(const ScanResult& result) {
        Item item{AndroidBLEBridge::toTrackerScanRecord(result),
                  AndroidBLEBridge::toTrackerExtraBeaconData(result.getScanRecord())};
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_queue.push_back(std::move(item));
        }
        m_wake.notify_one();
    }

  private:
    struct Item {
        std::shared_ptr<TrackerScanRecord> record;
        TrackerExtraBeaconData extra;
    };

    void run() {
        std::unique_lock<std::mutex> lock(m_mutex);
        for (;;) {
            m_wake.wait(lock, [this] { return m_stop || !m_queue.empty(); });
            if (m_queue.empty()) {
                return;
            }
            Item item = std::move(m_queue.front());
            m_queue.pop_front();
            lock.unlock();
            route(std::move(item));
            lock.lock();
        }
    }
    void route(Item item) {
        for (const auto& [filter, client] : m_uuidPairs) {
            if (BleUtils::matchUuidFilter(filter, item.extra.uuid)) {
                client->onBeaconScanResult(std::move(item.record), std::move(item.extra));
                return;
            }
        }
        for (const auto& [filter, client] : m_manuPairs) {
            for (const TrackerManuData& manuData : item.extra.manuData) {
                if (BleUtils::matchManuDataFilter(filter, manuData)) {
                    client->onBeaconScanResult(std::move(item.record), std::move(item.extra));
                    return;
                }
            }
        }
    }

    std::vector<std::pair<TrackerScanFilterUuid, std::shared_ptr<BenchClient>>> m_uuidPairs;
    std::vector<std::pair<TrackerScanFilterManuData, std::shared_ptr<BenchClient>>> m_manuPairs;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::deque<Item> m_queue;
    bool m_stop = false;
    std::thread m_thread;
};

// The world, the manager with its three started clients, and whichever path has the radio's
// one scan: the manager's, or the baseline's own.
class Paths {
  public:
    enum class Path { Manager, Baseline };

    static Paths& instance() {
        static Paths* paths = new Paths;
        return *paths;
    }

    void use(Path path) {
        if (path == m_current) {
            return;
        }
        AndroidBTProxyManager::getManager()->stopBLEScan(0);
        if (path == Path::Manager) {
            m_manager->reload(m_clients[0]);
        } else {
            std::vector<android::bluetooth::le::ScanFilter> filters;
            AndroidBLEBridge::toAndroidBLEScanFilters(allFilters(), &filters);
            AndroidBTProxyManager::getManager()->startBLEScan(
                &filters, AndroidBLEBridge::getDefaultAndroidBLEScanSetting(), nullptr, nullptr,
                [this](int, const ScanResult& result) { m_baseline.onPlatformResult(result); }, 0);
        }
        awaitScan();
        m_current = path;
    }

  private:
    Paths()
        : m_clients{std::make_shared<BenchClient>(0), std::make_shared<BenchClient>(1),
                    std::make_shared<BenchClient>(2)},
          m_baseline(m_clients) {
        World::instance().reset();
        m_manager = BluetoothManagerInterface::getInstance();
        for (const auto& client : m_clients) {
            m_manager->registerConnector(client);
        }
        for (const auto& client : m_clients) {
            m_manager->start(client);
        }
        awaitScan();
    }
    std::vector<TrackerScanFilter> allFilters() const {
        std::vector<TrackerScanFilter> all;
        for (const auto& client : m_clients) {
            const std::vector<TrackerScanFilter> own = client->getScanFilter()->getScanFilters();
            all.insert(all.end(), own.begin(), own.end());
        }
        return all;
    }
    static void awaitScan() {
        while (!World::instance().scanning()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }

    std::vector<std::shared_ptr<BenchClient>> m_clients;
    BaselineRouter m_baseline;
    std::shared_ptr<BluetoothManagerInterface> m_manager;
    Path m_current = Path::Manager;
};

// Results with the radio flat out.
void throughput(benchmark::State& state, Paths::Path path) {
    Paths::instance().use(path);
    World& world = World::instance();
    world.setRadioTap(nullptr);
    tracker::bench::runThroughput(
        state, arrivals(),
        [&world](uint32_t seq) { world.injectAdvertisement(kAddress, advertisementFor(seq), -60); },
        "cpu_us_per_result");
}

// From the platform's callback (seen by the radio tap just before it) to the client's, at a
// steady rate.
void latency(benchmark::State& state, Paths::Path path) {
    Paths::instance().use(path);
    World& world = World::instance();
    world.setRadioTap([](const ScanResult& result) {
        arrivals().delivered(sequenceOf(result.getScanRecord().getBytes()));
    });
    tracker::bench::runLatency(state, arrivals(), [&world](uint32_t seq) {
        world.injectAdvertisement(kAddress, advertisementFor(seq), -60);
    });
    world.setRadioTap(nullptr);
}

}  // namespace

int main(int argc, char** argv) {
    tracker::bench::registerPathBenchmarks(Paths::Path::Manager, Paths::Path::Baseline, throughput,
                                           latency, 2000, 5000);
    return tracker::bench::runWithRatios(argc, argv);
}
