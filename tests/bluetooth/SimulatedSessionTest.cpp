// A connector's whole day against the simulated platform, speaking only the library's values:
// every platform value it sends or receives goes through AndroidBLEBridge.

#include <gtest/gtest.h>

#include "support/SimBluetooth.h"
#include "tracker/bluetooth/AndroidBLEBridge.h"
#include "tracker/bluetooth/BleUtils.h"

namespace tracker {
namespace util {
namespace bluetooth {
namespace {

using android::bluetooth::BluetoothDevice;
using android::bluetooth::BluetoothGattCharacteristic;
using android::bluetooth::BluetoothGattDescriptor;
using android::bluetooth::BluetoothGattService;
using android::bluetooth::le::ScanFilter;
using android::bluetooth::le::ScanResult;
using com::orvane::frameworklink::interfaces::ParcelByteArray;
using testing::EventLog;
using testing::SimulatedBluetooth;
using Bytes = std::vector<uint8_t>;

const char* const kTag = "C0:FF:EE:00:00:01";
const TrackerUuid kBattery = {{0x18, 0x0F}};
const TrackerUuid kLevel = {{0x2A, 0x19}};

// The GATT answers, converted to library values as they arrive.
class Session : public com::orvane::frameworklink::managers::IAndroidBTGattCallback {
  public:
    void onConnectionStateChange(int status, int newState) override {
        log.add("state " + std::to_string(AndroidBLEBridge::toTrackerGattStatus(status)) + " " +
                std::to_string(newState));
    }
    void onServicesDiscovered(int status) override {
        log.add("discovered " + std::to_string(AndroidBLEBridge::toTrackerGattStatus(status)));
    }
    void onCharacteristicRead(const BluetoothGattCharacteristic& c, int status) override {
        log.add("read " + std::to_string(status) + " " +
                BleUtils::getDataString(AndroidBLEBridge::toTrackerCharValue(c)->value));
    }
    void onCharacteristicWrite(const BluetoothGattCharacteristic&, int status) override {
        log.add("write " + std::to_string(AndroidBLEBridge::toTrackerGattStatus(status)));
    }
    void onCharacteristicChanged(const BluetoothGattCharacteristic& c) override {
        log.add("changed " +
                BleUtils::getDataString(AndroidBLEBridge::toTrackerCharValue(c)->value));
    }
    void onDescriptorRead(const BluetoothGattDescriptor&, int) override {}
    void onDescriptorWrite(const BluetoothGattDescriptor& d, int status) override {
        log.add("notifications " + std::to_string(status) + " " +
                BleUtils::getDataString(d.getValue()->getBytes()));
    }
    EventLog log;
};

class SimulatedSession : public SimulatedBluetooth {
  protected:
    void SetUp() override {
        SimulatedBluetooth::SetUp();
        sim::TagSpec tag;
        tag.address = kTag;
        // Flags, service 0xFEAA with its data, manufacturer data of company 0x0171.
        tag.advertisement = {0x02, 0x01, 0x06, 0x03, 0x03, 0xAA, 0xFE, 0x05, 0x16, 0xAA,
                             0xFE, 0x10, 0x20, 0x05, 0xFF, 0x71, 0x01, 0xAA, 0xBB};
        BluetoothGattService battery(AndroidBLEBridge::toParcelUuid(kBattery));
        BluetoothGattCharacteristic level(AndroidBLEBridge::toParcelUuid(kLevel), 0x1A);
        level.setValue(std::make_shared<ParcelByteArray>(Bytes{0x64}));
        level.addDescriptor(BluetoothGattDescriptor(
            android::os::ParcelUuid::fromString("00002902-0000-1000-8000-00805f9b34fb")));
        battery.addCharacteristic(level);
        tag.gatt = {battery};
        world().addTag(tag);
    }

    // The characteristic as the discovered services describe it.
    BluetoothGattCharacteristic find(int connId, const TrackerUuid& service,
                                     const TrackerUuid& characteristic) {
        std::vector<BluetoothGattService> services;
        EXPECT_TRUE(proxy().getServices(connId, services));
        for (const BluetoothGattService& candidate : services) {
            if (candidate.getUuid() != AndroidBLEBridge::toParcelUuid(service)) {
                continue;
            }
            for (const BluetoothGattCharacteristic& c : candidate.getCharacteristics()) {
                if (c.getUuid() == AndroidBLEBridge::toParcelUuid(characteristic)) {
                    return c;
                }
            }
        }
        ADD_FAILURE() << "characteristic not found";
        return {};
    }
};

TEST_F(SimulatedSession, ScanFromLibraryFiltersToLibraryRecords) {
    // A tag the filters must keep out: it advertises battery service 0x180F only.
    sim::TagSpec stranger;
    stranger.address = "C0:FF:EE:00:00:02";
    stranger.advertisement = {0x03, 0x03, 0x0F, 0x18};
    world().addTag(stranger);
    TrackerScanFilter byService;
    byService.uuidFilter.uuid = {0xFE, 0xAA};
    TrackerScanFilter byAddress;
    byAddress.type = TYPE_ADDRESS;
    byAddress.addressFilter.bytesA = {0xC0, 0xFF, 0xEE, 0x00, 0x00, 0x01};
    std::vector<ScanFilter> platformFilters;
    AndroidBLEBridge::toAndroidBLEScanFilters({byService, byAddress}, &platformFilters);

    EventLog results;
    std::mutex mutex;
    std::shared_ptr<TrackerScanRecord> record;
    TrackerExtraBeaconData extra;
    ASSERT_TRUE(proxy().startBLEScan(
        &platformFilters, AndroidBLEBridge::getDefaultAndroidBLEScanSetting(), nullptr, nullptr,
        [&](int, const ScanResult& result) {
            std::lock_guard<std::mutex> lock(mutex);
            record = AndroidBLEBridge::toTrackerScanRecord(result);
            results.add(BleUtils::getBleAddress(record->address));
            const auto& scanRecord = result.getScanRecord();
            const auto uuids = AndroidBLEBridge::toTrackerUuids(scanRecord.getServiceUuids());
            extra.uuid = uuids.empty() ? TrackerUuid() : uuids[0];
            extra.manuData = {
                AndroidBLEBridge::toTrackerManuData(scanRecord.getManufacturerSpecificData())};
            extra.serviceData = AndroidBLEBridge::toTrackerServiceData(
                AndroidBLEBridge::toParcelUuid(extra.uuid), scanRecord.getServiceData());
            results.add("result");
        },
        0));
    settle();
    settle();
    ASSERT_TRUE(results.waitFor("result"));
    const std::vector<std::string> heard = results.events();
    EXPECT_EQ(std::count(heard.begin(), heard.end(), "C0:FF:EE:00:00:02"), 0);
    EXPECT_GE(std::count(heard.begin(), heard.end(), kTag), 2);
    EXPECT_TRUE(proxy().stopBLEScan(0));
    std::lock_guard<std::mutex> lock(mutex);
    EXPECT_EQ(BleUtils::getBleAddress(record->address), kTag);
    EXPECT_NEAR(record->rssi, -59, 2);
    EXPECT_TRUE(BleUtils::matchUuidFilter(byService.uuidFilter, extra.uuid));
    EXPECT_EQ(extra.manuData[0].data, (Bytes{0x01, 0x71, 0xAA, 0xBB}));
    EXPECT_TRUE(BleUtils::matchManuDataFilter({{0x01, 0x71}, {0xFF, 0xFF}}, extra.manuData[0]));
    EXPECT_EQ(extra.serviceData, (Bytes{0x10, 0x20}));
}

TEST_F(SimulatedSession, GattSessionFromConnectToDisconnect) {
    auto session = std::make_shared<Session>();
    const auto address = BleUtils::stringToTrackerDeviceAddr(kTag);
    int connId = -1;
    ASSERT_TRUE(
        proxy().connectGatt(std::make_shared<BluetoothDevice>(BleUtils::getBleAddress(address)),
                            false, session, 0, connId));
    settle();
    ASSERT_TRUE(proxy().discoverServices(connId));
    settle();
    std::vector<BluetoothGattService> services;
    ASSERT_TRUE(proxy().getServices(connId, services));
    const auto discovered = AndroidBLEBridge::toTrackerGattServices(services);
    ASSERT_EQ(discovered->services.size(), 1u);
    EXPECT_TRUE(BleUtils::uuidCompare(discovered->services[0].uuid, kBattery));
    EXPECT_TRUE(BleUtils::uuidCompare(discovered->services[0].characteristics[0].uuid, kLevel));

    ASSERT_TRUE(proxy().readCharacteristic(connId, find(connId, kBattery, kLevel)));
    settle();
    BluetoothGattCharacteristic toWrite = find(connId, kBattery, kLevel);
    toWrite.setValue(std::make_shared<ParcelByteArray>(Bytes{0x01, 0x02}));
    ASSERT_TRUE(proxy().writeCharacteristic(connId, toWrite));
    settle();
    ASSERT_TRUE(
        proxy().setCharacteristicNotification(connId, find(connId, kBattery, kLevel), true));
    settle();
    ASSERT_TRUE(world().notifyValue(kTag, AndroidBLEBridge::toParcelUuid(kBattery),
                                    AndroidBLEBridge::toParcelUuid(kLevel), {0x42}));
    settle();
    ASSERT_TRUE(proxy().disconnect(connId));
    settle();
    EXPECT_TRUE(proxy().close(connId));

    EXPECT_EQ(session->log.events(),
              (std::vector<std::string>{"state 0 2", "discovered 0", "read 0 64", "write 0",
                                        "notifications 0 01:00", "changed 42", "state 0 0"}));
}

}  // namespace
}  // namespace bluetooth
}  // namespace util
}  // namespace tracker
