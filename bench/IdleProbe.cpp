// What the managers cost while nothing happens: three Bluetooth clients started and the scan
// running, two InLoc clients started and tracking by membership and by address, no tag anywhere. Counts the context switches of every thread of the process over a window
// (60 s by default, or the seconds given as the first argument), after the executor's idle
// time-out has handed its worker back. Only the 10-minute GATT clean-up timer may wake it, so a
// healthy run shows none but the probe's own sleep. Exits 1 if another thread woke.

#include <dirent.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <thread>

#include "bluetooth/World.h"
#include "inloc/InLocService.h"
#include "tracker/bluetooth/BluetoothManager.h"
#include "tracker/inloc/InLocManager.h"

namespace {

using namespace tracker::util::bluetooth;

class QuietClient : public BluetoothManagerClientInterface {
  public:
    QuietClient() : m_filters(std::make_shared<BluetoothManagerScanFilter>()) {
        TrackerScanFilter filter;
        filter.uuidFilter.uuid = {0xFE, 0xAA};
        m_filters->addScanFilters({filter});
    }
    std::shared_ptr<BluetoothManagerScanFilter> getScanFilter() override { return m_filters; }
    void onBeaconScanResult(std::shared_ptr<TrackerScanRecord>, TrackerExtraBeaconData) override {}

  private:
    std::shared_ptr<BluetoothManagerScanFilter> m_filters;
};

class QuietTracker : public tracker::util::inloc::InLocManagerClientInterface {
  public:
    explicit QuietTracker(TrackerScanFilter filter)
        : m_filters(std::make_shared<BluetoothManagerScanFilter>()) {
        m_filters->addScanFilters({std::move(filter)});
    }
    void onInitializationSuccess() override {}
    void onInitializationFailure() override {}
    void onInLocTrackingResult(
        std::shared_ptr<tracker::util::inloc::TrackerInLocDistanceEvent>) override {}
    void onRingDeviceResult(const std::shared_ptr<TrackerDeviceAddr>&, TrackerStatus) override {}
    std::shared_ptr<BluetoothManagerScanFilter> getScanFilter() override { return m_filters; }

  private:
    std::shared_ptr<BluetoothManagerScanFilter> m_filters;
};

TrackerScanFilter trackingFilter(TrackerScanFilterType type) {
    TrackerScanFilter filter;
    filter.type = type;
    if (type == TYPE_MEMBERSHIP) {
        filter.uuidFilter.uuid = {0x0A, 0x0B, 0x0C, 0x0D};
    } else {
        filter.addressFilter.bytesA = {0xC0, 0xFF, 0xEE, 0x00, 0x00, 0x01};
    }
    return filter;
}

// Thread id -> (name, voluntary + involuntary context switches so far).
std::map<std::string, std::pair<std::string, long>> threadSwitches() {
    std::map<std::string, std::pair<std::string, long>> result;
    DIR* tasks = opendir("/proc/self/task");
    if (tasks == nullptr) {
        return result;
    }
    while (const dirent* entry = readdir(tasks)) {
        const std::string id = entry->d_name;
        if (id == "." || id == "..") {
            continue;
        }
        std::ifstream status("/proc/self/task/" + id + "/status");
        std::string line;
        std::string name;
        long switches = 0;
        while (std::getline(status, line)) {
            if (line.rfind("Name:", 0) == 0) {
                name = line.substr(line.find_first_not_of(" \t", 5));
            } else if (line.find("ctxt_switches:") != std::string::npos) {
                switches += std::strtol(line.c_str() + line.find(':') + 1, nullptr, 10);
            }
        }
        result[id] = {name, switches};
    }
    closedir(tasks);
    return result;
}

}  // namespace

int main(int argc, char** argv) {
    const int seconds = argc > 1 ? std::atoi(argv[1]) : 60;
    tracker::sim::World::instance().reset();
    const std::shared_ptr<BluetoothManagerInterface> manager =
        BluetoothManagerInterface::getInstance();
    std::shared_ptr<QuietClient> clients[] = {std::make_shared<QuietClient>(),
                                              std::make_shared<QuietClient>(),
                                              std::make_shared<QuietClient>()};
    for (const auto& client : clients) {
        manager->registerConnector(client);
    }
    for (const auto& client : clients) {
        manager->start(client);
    }
    const std::shared_ptr<tracker::util::inloc::InLocManager> inloc =
        tracker::util::inloc::InLocManager::getInstance();
    std::shared_ptr<QuietTracker> trackers[] = {
        std::make_shared<QuietTracker>(trackingFilter(TYPE_MEMBERSHIP)),
        std::make_shared<QuietTracker>(trackingFilter(TYPE_ADDRESS))};
    for (const auto& tracker : trackers) {
        inloc->registerConnector(tracker);
    }
    for (const auto& tracker : trackers) {
        if (!inloc->start(tracker)) {
            std::fprintf(stderr, "idle probe: an InLoc client did not start\n");
            return 2;
        }
    }
    // Past the executors' 1000 ms idle time-out.
    std::this_thread::sleep_for(std::chrono::seconds(2));
    const tracker::sim::InLocService& service = tracker::sim::InLocService::instance();
    if (!tracker::sim::World::instance().scanning() || service.trackedMemberships().empty() ||
        service.trackedAddresses().empty()) {
        std::fprintf(stderr, "idle probe: the scan or the tracking did not start\n");
        return 2;
    }

    const std::string self = std::to_string(gettid());
    rusage before{};
    getrusage(RUSAGE_SELF, &before);
    const auto threadsBefore = threadSwitches();
    std::this_thread::sleep_for(std::chrono::seconds(seconds));
    const auto threadsAfter = threadSwitches();
    rusage after{};
    getrusage(RUSAGE_SELF, &after);

    const long voluntary = after.ru_nvcsw - before.ru_nvcsw;
    const long involuntary = after.ru_nivcsw - before.ru_nivcsw;
    std::printf(
        "idle for %d s with 3 Bluetooth clients scanning and 2 InLoc clients tracking: %ld "
        "voluntary and %ld involuntary context switches in the process, %zu threads\n",
        seconds, voluntary, involuntary, threadsAfter.size());
    int woke = 0;
    for (const auto& [id, entry] : threadsAfter) {
        std::printf("  thread %s (%s)\n", id.c_str(), entry.first.c_str());
    }
    for (const auto& [id, entry] : threadsAfter) {
        const auto earlier = threadsBefore.find(id);
        const long delta =
            entry.second - (earlier != threadsBefore.end() ? earlier->second.second : 0);
        if (delta > 0) {
            std::printf("  thread %s (%s): %ld%s\n", id.c_str(), entry.first.c_str(), delta,
                        id == self ? ", the probe's own sleep" : "");
            woke += id == self ? 0 : 1;
        }
    }
    return woke == 0 ? 0 : 1;
}
