#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "inloc/InLocService.h"
#include "support/LoggedWorld.h"
#include "support/SimBluetooth.h"
#include "tracker/bluetooth/BleUtils.h"
#include "tracker/inloc/InLocManager.h"

namespace tracker {
namespace testing {

using util::bluetooth::BluetoothManagerScanFilter;
using util::bluetooth::TrackerDeviceAddr;
using util::bluetooth::TrackerScanFilter;
using util::inloc::InLocManager;
using util::inloc::TrackerInLocDistanceEvent;

inline std::string hex(const std::vector<uint8_t>& bytes) {
    std::string text;
    for (uint8_t byte : bytes) {
        char part[3];
        std::snprintf(part, sizeof part, "%02x", byte);
        text += part;
    }
    return text;
}

inline TrackerScanFilter membershipFilter(std::vector<uint8_t> membership) {
    TrackerScanFilter filter;
    filter.type = util::bluetooth::TYPE_MEMBERSHIP;
    filter.uuidFilter.uuid = std::move(membership);
    return filter;
}

inline std::shared_ptr<TrackerDeviceAddr> deviceAddress(const std::string& text) {
    auto address = util::bluetooth::BleUtils::stringToTrackerDeviceAddr(text.c_str());
    EXPECT_TRUE(address && address->addr.size() == 6) << text;
    return address;
}

inline TrackerScanFilter addressFilter(const std::string& text) {
    TrackerScanFilter filter;
    filter.type = util::bluetooth::TYPE_ADDRESS;
    filter.addressFilter.bytesA = deviceAddress(text)->addr;
    return filter;
}

// A connector that records what the manager tells it, as text: "success", "failure",
// "event <address> <membership hex> <distance type> <distance> <min> <max>",
// "ring <address> <status>".
class InLocClient : public util::inloc::InLocManagerClientInterface {
  public:
    explicit InLocClient(std::vector<TrackerScanFilter> filters = {}) { setFilters(filters); }

    void setFilters(std::vector<TrackerScanFilter> filters) {
        auto holder = std::make_shared<BluetoothManagerScanFilter>();
        holder->addScanFilters(std::move(filters));
        std::lock_guard<std::mutex> lock(m_mutex);
        m_filter = std::move(holder);
    }

    void onInitializationSuccess() override { log.add("success"); }
    void onInitializationFailure() override { log.add("failure"); }
    void onInLocTrackingResult(std::shared_ptr<TrackerInLocDistanceEvent> event) override {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_events.push_back(event);
        }
        log.add("event " + util::bluetooth::BleUtils::getBleAddress(event->deviceAddr) + " " +
                hex(event->membership) + " " + std::to_string(event->distanceType) + " " +
                std::to_string(event->distance) + " " + std::to_string(event->minDistance) + " " +
                std::to_string(event->maxDistance));
    }
    void onRingDeviceResult(const std::shared_ptr<TrackerDeviceAddr>& addr,
                            util::bluetooth::TrackerStatus status) override {
        log.add("ring " + util::bluetooth::BleUtils::getBleAddress(addr) + " " +
                std::to_string(status));
    }
    std::shared_ptr<BluetoothManagerScanFilter> getScanFilter() override {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_filter;
    }

    std::vector<std::shared_ptr<TrackerInLocDistanceEvent>> events() {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_events;
    }

    EventLog log;

  private:
    std::mutex m_mutex;
    std::shared_ptr<BluetoothManagerScanFilter> m_filter;
    std::vector<std::shared_ptr<TrackerInLocDistanceEvent>> m_events;
};

// A fresh world and InLoc service on a manual clock, the manager's log lines captured.
class InLocTest : public LoggedWorld<kInLocManagerTag> {
  protected:
    static std::shared_ptr<InLocManager> manager() { return InLocManager::getInstance(); }
    static sim::InLocService& service() { return sim::InLocService::instance(); }

    std::shared_ptr<InLocClient> client(std::vector<TrackerScanFilter> filters) {
        auto created = std::make_shared<InLocClient>(std::move(filters));
        EXPECT_TRUE(manager()->registerConnector(created));
        return created;
    }

    // A tag within range that belongs to a membership.
    void addTag(const std::string& address, std::vector<uint8_t> membership, double metres,
                bool rangeBuckets = false) {
        sim::TagSpec tag;
        tag.address = address;
        tag.advertisement = {0x02, 0x01, 0x06, 0x03, 0x03, 0xaa, 0xfe};
        tag.distance = {{std::chrono::milliseconds(0), metres}};
        tag.membership = std::move(membership);
        tag.rangeBuckets = rangeBuckets;
        world().addTag(std::move(tag));
    }

    // What the library asked the service for, as "<call> <argument>..." (status if not 0).
    std::vector<std::string> asked() {
        static const char* const kNames[] = {"init",
                                             "register",
                                             "enable-membership",
                                             "disable-membership",
                                             "enable-address",
                                             "disable-address",
                                             "ring"};
        std::vector<std::string> requests;
        for (const sim::InLocRequest& request : service().requests()) {
            std::string text = kNames[static_cast<int>(request.call)];
            for (const auto& membership : request.memberships) {
                text += " " + hex(membership);
            }
            for (const auto& address : request.addresses) {
                text += " " + address;
            }
            if (request.status != 0) {
                text += " status=" + std::to_string(request.status);
            }
            requests.push_back(text);
        }
        return requests;
    }
};

}  // namespace testing
}  // namespace tracker
