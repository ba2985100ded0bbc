#pragma once

#include <gtest/gtest.h>

#include <frameworklink/interfaces/ParcelByteArray.h>

#include "bluetooth/ManagerFixture.h"
#include "support/Waits.h"
#include "tracker/bluetooth/AndroidBLEBridge.h"

namespace tracker {
namespace testing {
namespace gatt {

using namespace std::chrono_literals;
using namespace sim::testtags;
using android::bluetooth::BluetoothGattCharacteristic;
using android::bluetooth::BluetoothGattDescriptor;
using android::bluetooth::BluetoothGattService;
using android::os::ParcelUuid;
using com::orvane::frameworklink::interfaces::ParcelByteArray;
using sim::GattAnswer;
using sim::ProxyCall;
using sim::TagSpec;
using util::bluetooth::AndroidBLEBridge;
using util::bluetooth::BleUtils;
using util::bluetooth::TrackerUuid;
using Events = std::vector<std::string>;

// The GATT tests' world and helpers.

inline const TrackerUuid kBattery{{0x18, 0x0F}};
inline const TrackerUuid kLevel{{0x2A, 0x19}};
inline const TrackerUuid kAlert{{0x2A, 0x06}};
inline const TrackerUuid kName{{0x2A, 0x00}};

inline BluetoothGattCharacteristic characteristic(const TrackerUuid& uuid, int properties,
                                                  std::vector<uint8_t> value, bool configurable) {
    BluetoothGattCharacteristic result(AndroidBLEBridge::toParcelUuid(uuid), properties);
    result.setValue(std::make_shared<ParcelByteArray>(std::move(value)));
    if (configurable) {
        result.addDescriptor(BluetoothGattDescriptor(
            ParcelUuid::fromString("00002902-0000-1000-8000-00805f9b34fb")));
    }
    return result;
}

// Tags with a battery service: the level (read, write, notify; 0x64) and an alert that can only
// indicate (0x01). The company tag has the battery service twice, the name only in the second.
class GattConnection : public ManagerTest {
  protected:
    void SetUp() override {
        ManagerTest::SetUp();
        BluetoothGattService battery(AndroidBLEBridge::toParcelUuid(kBattery));
        battery.addCharacteristic(characteristic(kLevel, 0x1A, {0x64}, true));
        battery.addCharacteristic(characteristic(kAlert, 0x20, {0x01}, true));
        TagSpec eddystone = tagAt(kEddystone, kEddystoneAd);
        eddystone.gatt = {battery};
        world().addTag(eddystone);
        BluetoothGattService second(AndroidBLEBridge::toParcelUuid(kBattery));
        second.addCharacteristic(characteristic(kName, 0x02, {0x41}, false));
        TagSpec company = tagAt(kCompany, kCompanyAd);
        company.gatt = {battery, second};
        world().addTag(company);
        m_client = client({});
    }

    static std::shared_ptr<util::bluetooth::TrackerDeviceAddr> address(const char* text) {
        return BleUtils::stringToTrackerDeviceAddr(text);
    }
    // Connects and returns once the client heard of it.
    unsigned long long open(const char* tag) {
        EXPECT_TRUE(manager()->connect(address(tag), m_client));
        const std::string connected = next();
        EXPECT_EQ(connected.rfind("connected ", 0), 0u) << connected;
        return connected.rfind("connected ", 0) == 0 ? std::stoull(connected.substr(10)) : 0;
    }
    // Runs the world a little and returns the client's next event, waiting for it if need be.
    // Events are taken in order: what arrived early is still returned.
    std::string next(util::Clock::Duration time = 1s) {
        settle(time);
        if (!m_client->log.waitForCount(m_taken + 1)) {
            return "nothing";
        }
        return m_client->log.events().at(m_taken++);
    }
    // Runs the world a little; true if the platform had nothing more for the client meanwhile.
    bool quiet(util::Clock::Duration time) {
        settle(time);
        return m_client->log.events().size() == m_taken;
    }
    unsigned long long discovered(const char* tag) {
        const unsigned long long handle = open(tag);
        EXPECT_TRUE(manager()->discoverAllServices(handle));
        EXPECT_EQ(next().rfind("discovered", 0), 0u);
        return handle;
    }
    // The entry leaves the table on the manager's executor, after the client heard of the end.
    bool forgotten(unsigned long long handle) {
        const std::string unknown =
            "readCharacteristic: No client found for connHandle=" + std::to_string(handle);
        return eventually([&] {
            return !manager()->readCharacteristic(handle, kBattery, kLevel) && logged('E', unknown);
        });
    }
    static std::string handlerLine(char level, const std::string& message) {
        return std::string(1, level) + " TrackerD-AndroidBTGattHandler: " + message;
    }

    std::shared_ptr<RecordingClient> m_client;
    // How many of the client's events next() has returned.
    std::size_t m_taken = 0;
};

}  // namespace gatt
}  // namespace testing
}  // namespace tracker
