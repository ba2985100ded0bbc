// The distance-event path, end to end: events the simulated InLoc service reports on its
// delivery threads are converted by the bridge and routed through the real InLocManager (its
// callback executor, the wake lock, the address table, then the membership owners) to three
// clients. The baseline, in the same process and fed the same way, converts with the same
// bridge on the service's thread and routes on one thread of its own behind a plain mutex and
// condition-variable queue, with the same lookups. Two cases: events per second with the
// service flat out, and the latency from the service's report to the client's callback at a
// steady 2,000 events per second.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "PathBench.h"
#include "RatioReport.h"
#include "bluetooth/World.h"
#include "inloc/InLocService.h"
#include "tracker/bluetooth/BleUtils.h"
#include "tracker/inloc/InLocManager.h"
#include "tracker/inloc/IxaInLocBridge.h"

namespace {

using tracker::bench::Arrivals;
using tracker::sim::InjectedDistanceEvent;
using tracker::sim::InLocService;
using namespace tracker::util::bluetooth;
using namespace tracker::util::inloc;

// Twelve memberships per client; events name one of them and an address nobody tracks, so
// each is looked up in the address table and then among the membership owners.
constexpr int kClients = 3;
constexpr int kMembershipsPerClient = 12;
constexpr const char* kUntracked = "C0:FF:EE:00:00:99";

// A 16-byte membership identifier.
std::vector<uint8_t> membershipOf(int index) {
    std::vector<uint8_t> membership(16, 0x4d);
    membership.back() = static_cast<uint8_t>(index);
    return membership;
}

// Event `seq` carries seq in its advertisement and names membership seq % 36.
InjectedDistanceEvent eventFor(uint32_t seq) {
    InjectedDistanceEvent event;
    event.address = kUntracked;
    event.membership = membershipOf(static_cast<int>(seq % (kClients * kMembershipsPerClient)));
    event.advertisement = {0x05,
                           0xFF,
                           static_cast<uint8_t>(seq),
                           static_cast<uint8_t>(seq >> 8),
                           static_cast<uint8_t>(seq >> 16),
                           static_cast<uint8_t>(seq >> 24)};
    event.flags = IXA_INLOC_EVENT_HAS_DISTANCE;
    event.accumulatedDistance = 1200;
    event.sampleCount = 4;
    return event;
}

uint32_t sequenceOf(const std::vector<uint8_t>& scanRecord) {
    return scanRecord.size() < 6
               ? 0
               : static_cast<uint32_t>(scanRecord[2] | scanRecord[3] << 8 | scanRecord[4] << 16 |
                                       static_cast<uint32_t>(scanRecord[5]) << 24);
}

Arrivals& arrivals() {
    static Arrivals instance(1 << 16);
    return instance;
}

class BenchClient : public InLocManagerClientInterface {
  public:
    explicit BenchClient(int index) : m_filters(std::make_shared<BluetoothManagerScanFilter>()) {
        std::vector<TrackerScanFilter> filters;
        for (int i = 0; i < kMembershipsPerClient; ++i) {
            TrackerScanFilter filter;
            filter.type = TYPE_MEMBERSHIP;
            filter.uuidFilter.uuid = membershipOf(index * kMembershipsPerClient + i);
            filters.push_back(filter);
        }
        m_filters->addScanFilters(filters);
    }
    void onInitializationSuccess() override {}
    void onInitializationFailure() override {}
    void onInLocTrackingResult(std::shared_ptr<TrackerInLocDistanceEvent> event) override {
        arrivals().arrived(sequenceOf(event->scanRecord));
    }
    void onRingDeviceResult(const std::shared_ptr<TrackerDeviceAddr>&, TrackerStatus) override {}
    std::shared_ptr<BluetoothManagerScanFilter> getScanFilter() override { return m_filters; }

  private:
    std::shared_ptr<BluetoothManagerScanFilter> m_filters;
};

// The least a router needs: convert on the service's thread, queue under a mutex, look the
// event up and deliver it on a thread of its own.
class BaselineRouter {
  public:
    explicit BaselineRouter(const std::vector<std::shared_ptr<BenchClient>>& clients)
        : m_thread([this] { run(); }) {
        for (const auto& client : clients) {
            for (const TrackerScanFilter& filter : client->getScanFilter()->getScanFilters()) {
                m_owners.emplace_back(filter.uuidFilter, client);
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

    static void onDistanceTracking(ixa_status_t, ixaInloc_distanceEvent_t* event,
                                   ixaInloc_membership_t* membership,
                                   ixaInloc_deviceAddr_t* address) {
        s_router->push(IxaInLocBridge::toTrackerInLocDistanceEvent(event, address, membership));
    }
    // Takes the service's reports from now on.
    void attach() {
        s_router = this;
        static const ixaInloc_distanceClientCallbacks_t kTable = {[](ixa_status_t) {},
                                                                  nullptr,
                                                                  nullptr,
                                                                  nullptr,
                                                                  nullptr,
                                                                  nullptr,
                                                                  nullptr,
                                                                  nullptr,
                                                                  nullptr,
                                                                  onDistanceTracking};
        ixaInloc_distanceRegisterClient(&kTable);
    }

  private:
    void push(std::shared_ptr<TrackerInLocDistanceEvent> event) {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_queue.push_back(std::move(event));
        }
        m_wake.notify_one();
    }
    void run() {
        std::unique_lock<std::mutex> lock(m_mutex);
        for (;;) {
            m_wake.wait(lock, [this] { return m_stop || !m_queue.empty(); });
            if (m_queue.empty()) {
                return;
            }
            std::shared_ptr<TrackerInLocDistanceEvent> event = std::move(m_queue.front());
            m_queue.pop_front();
            lock.unlock();
            route(std::move(event));
            lock.lock();
        }
    }
    void route(std::shared_ptr<TrackerInLocDistanceEvent> event) {
        const auto tracked = m_tracked.find(event->deviceAddr->addr);
        if (tracked != m_tracked.end()) {
            tracked->second->onInLocTrackingResult(std::move(event));
            return;
        }
        const TrackerUuid membership{event->membership};
        for (const auto& [filter, client] : m_owners) {
            if (BleUtils::matchUuidFilter(filter, membership)) {
                client->onInLocTrackingResult(std::move(event));
                return;
            }
        }
    }

    static inline BaselineRouter* s_router = nullptr;
    std::map<std::vector<uint8_t>, std::shared_ptr<BenchClient>> m_tracked;
    std::vector<std::pair<TrackerScanFilterUuid, std::shared_ptr<BenchClient>>> m_owners;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::deque<std::shared_ptr<TrackerInLocDistanceEvent>> m_queue;
    bool m_stop = false;
    std::thread m_thread;
};

// The manager with its started clients, and whichever path takes the service's reports.
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
        if (path == Path::Baseline) {
            m_baseline.attach();
        } else {
            // The adapter starts again: the manager reopens its session and registers anew.
            InLocService::instance().reportAdapterStatus(IXA_INLOC_ADAPTER_ENABLED);
        }
        awaitRegistered();
        m_current = path;
    }

  private:
    Paths()
        : m_clients{std::make_shared<BenchClient>(0), std::make_shared<BenchClient>(1),
                    std::make_shared<BenchClient>(2)},
          m_baseline(m_clients) {
        tracker::sim::World::instance().reset();
        m_manager = InLocManager::getInstance();
        for (const auto& client : m_clients) {
            m_manager->registerConnector(client);
        }
        for (const auto& client : m_clients) {
            m_manager->start(client);
        }
        awaitRegistered();
    }
    static void awaitRegistered() {
        while (!InLocService::instance().clientRegistered() ||
               InLocService::instance().trackedMemberships().empty()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }

    std::vector<std::shared_ptr<BenchClient>> m_clients;
    BaselineRouter m_baseline;
    std::shared_ptr<InLocManager> m_manager;
    Path m_current = Path::Manager;
};

// Events with the service flat out.
void throughput(benchmark::State& state, Paths::Path path) {
    Paths::instance().use(path);
    tracker::bench::runThroughput(
        state, arrivals(),
        [](uint32_t seq) { InLocService::instance().injectDistanceEvent(eventFor(seq)); },
        "cpu_us_per_event");
}

// From the service's report (its post to the delivery thread) to the client's callback.
void latency(benchmark::State& state, Paths::Path path) {
    Paths::instance().use(path);
    tracker::bench::runLatency(state, arrivals(), [](uint32_t seq) {
        arrivals().delivered(seq);
        InLocService::instance().injectDistanceEvent(eventFor(seq));
    });
}

}  // namespace

int main(int argc, char** argv) {
    tracker::bench::registerPathBenchmarks(Paths::Path::Manager, Paths::Path::Baseline, throughput,
                                           latency, 2000, 2000);
    return tracker::bench::runWithRatios(argc, argv);
}
