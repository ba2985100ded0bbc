#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "metrics/MetricsCapture.h"
#include "sim/SimTags.h"
#include "support/LoggedWorld.h"
#include "support/ManagerClients.h"
#include "support/SimBluetooth.h"
#include "tracker/bluetooth/BluetoothManager.h"

namespace tracker {
namespace testing {

// A fresh world on a manual clock, the manager's log lines and metrics captured, and helpers to
// wait for what the manager does on its own threads. The manager is made on first use, so a
// test can prepare the proxy's faults first.
class ManagerTest : public LoggedWorld<kBluetoothManagerTag> {
  protected:
    using Manager = util::bluetooth::BluetoothManagerInterface;

    std::shared_ptr<Manager> manager() {
        if (!m_manager) {
            m_manager = Manager::getInstance();
        }
        return m_manager;
    }
    std::shared_ptr<util::bluetooth::BluetoothManager> concrete() {
        return std::dynamic_pointer_cast<util::bluetooth::BluetoothManager>(manager());
    }

    // A client with these filters, registered.
    std::shared_ptr<RecordingClient> client(std::vector<TrackerScanFilter> filters) {
        auto created = std::make_shared<RecordingClient>(std::move(filters));
        EXPECT_TRUE(manager()->registerConnector(created));
        return created;
    }

    // The scan starts and stops the manager asked for, as "start N" (N filters) and "stop".
    std::vector<std::string> scanRequests() {
        std::vector<std::string> requests;
        for (const sim::ScanRequest& request : world().scanRequests()) {
            requests.push_back(request.start ? "start " + std::to_string(request.filters.size())
                                             : "stop");
        }
        return requests;
    }
    // Waits until the start task has reported, and its flag task with it.
    ::testing::AssertionResult awaitScanStarted(int retries = 0) {
        ::testing::AssertionResult started =
            awaitLine('I', "beacon scan started after " + std::to_string(retries) + " retries");
        return started ? awaitLine('I', "operator(): Beacon scan started") : started;
    }

    sim::MetricsCapture m_metrics;
    std::shared_ptr<Manager> m_manager;
};

// An advertisement no tag sends and its filter: injected once, it tells when the routing of
// everything heard before it is over, since results are routed one at a time, in order.
inline const std::vector<uint8_t> kMarkerAd = {0x03, 0x03, 0x0D, 0x18};  // service 0x180D
inline TrackerScanFilter markerFilter() {
    return uuidFilter({0x18, 0x0D});
}
constexpr const char* kMarker = "C0:FF:EE:00:00:0D";

}  // namespace testing
}  // namespace tracker
