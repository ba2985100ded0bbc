#include "tracker/bluetooth/AndroidBLEBridge.h"

#include <gtest/gtest.h>

#include "log/LogCapture.h"
#include "tracker/bluetooth/BleUtils.h"

namespace tracker {
namespace util {
namespace bluetooth {
namespace {

using android::bluetooth::BluetoothDevice;
using android::bluetooth::BluetoothGattCharacteristic;
using android::bluetooth::BluetoothGattService;
using android::bluetooth::le::ScanFilter;
using android::bluetooth::le::ScanRecord;
using android::bluetooth::le::ScanResult;
using android::os::ParcelUuid;
using com::orvane::frameworklink::interfaces::ParcelByteArray;
using Bytes = std::vector<uint8_t>;

TrackerScanFilter filterOf(TrackerScanFilterType type, Bytes first, Bytes mask = {}) {
    TrackerScanFilter filter;
    filter.type = type;
    if (type == TYPE_MANU_DATA) {
        filter.manuDataFilter = {std::move(first), std::move(mask)};
    } else if (type == TYPE_ADDRESS) {
        filter.addressFilter.bytesA = std::move(first);
    } else {
        filter.uuidFilter = {std::move(first), std::move(mask)};
    }
    return filter;
}

TEST(AndroidBLEBridge, EveryScanUsesTheSameSettings) {
    const auto settings = AndroidBLEBridge::getDefaultAndroidBLEScanSetting();
    EXPECT_EQ(settings.getScanMode(), 2);
    EXPECT_EQ(settings.getCallbackType(), 1);
    EXPECT_EQ(settings.getScanResultType(), 0);
    EXPECT_EQ(settings.getReportDelayMillis(), 0);
    EXPECT_EQ(settings.getMatchMode(), 1);
    EXPECT_EQ(settings.getNumOfMatches(), 3);
}

TEST(AndroidBLEBridge, PlatformFiltersOnlyForUuidAndManufacturerFilters) {
    sim::LogCapture capture;
    std::vector<ScanFilter> out;
    AndroidBLEBridge::toAndroidBLEScanFilters(
        {filterOf(TYPE_UUID, {0xFE, 0xAA}), filterOf(TYPE_ADDRESS, {1, 2, 3, 4, 5, 6}),
         filterOf(TYPE_MANU_DATA, {0x01, 0x71, 0xAA})},
        &out);
    ASSERT_EQ(out.size(), 2u);
    EXPECT_EQ(capture.texts(),
              std::vector<std::string>{"W TrackerD-AndroidBLEBridge: toAndroidBLEScanFilters, "
                                       "Unsupported filter type"});

    // The UUID reaches the platform as the same UUID, without a mask.
    ASSERT_TRUE(out[0].getServiceUuid());
    EXPECT_EQ(out[0].getServiceUuid()->toString(), "0000feaa-0000-1000-8000-00805f9b34fb");
    EXPECT_FALSE(out[0].getServiceMask());
    EXPECT_FALSE(out[0].getManufacturerId());

    EXPECT_EQ(out[1].getManufacturerId(), 0x0171);
    ASSERT_TRUE(out[1].getManufacturerData());
    EXPECT_EQ(out[1].getManufacturerData()->getBytes(), Bytes{0xAA});
    EXPECT_FALSE(out[1].getServiceUuid());
}

TEST(AndroidBLEBridge, FullUuidsAndMasksKeepTheirMeaning) {
    const Bytes full = {0x6E, 0x40, 0x00, 0x01, 0xB5, 0xA3, 0xF3, 0x93,
                        0xE0, 0xA9, 0xE5, 0x0E, 0x24, 0xDC, 0xCA, 0x9E};
    Bytes mask(16, 0xFF);
    mask[15] = 0x00;
    std::vector<ScanFilter> out;
    AndroidBLEBridge::toAndroidBLEScanFilters({filterOf(TYPE_UUID, full, mask)}, &out);
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0].getServiceUuid()->toString(), BleUtils::getUuidString({full}));
    EXPECT_EQ(out[0].getServiceMask()->toString(), "ffffffff-ffff-ffff-ffff-ffffffffff00");

    // What cannot be said to the platform is skipped with a warning, and appending keeps what
    // the output held.
    sim::LogCapture capture;
    AndroidBLEBridge::toAndroidBLEScanFilters(
        {filterOf(TYPE_MANU_DATA, {0x01}), filterOf(TYPE_MEMBERSHIP, {1, 2}),
         filterOf(TYPE_UUID, {1, 2, 3}), filterOf(TYPE_UUID, {0xFE, 0xAA}, {0xFF})},
        &out);
    EXPECT_EQ(out.size(), 1u);
    EXPECT_EQ(capture.texts(),
              (std::vector<std::string>{
                  "W TrackerD-AndroidBLEBridge: toAndroidBLEScanFilters, Unsupported filter type",
                  "W TrackerD-AndroidBLEBridge: toAndroidBLEScanFilters, Unsupported filter type",
                  "W TrackerD-AndroidBLEBridge: toAndroidBLEScanFilters, Unsupported uuid "
                  "filter, uuidLength=3, maskLength=0",
                  "W TrackerD-AndroidBLEBridge: toAndroidBLEScanFilters, Unsupported uuid "
                  "filter, uuidLength=2, maskLength=1",
              }));
    AndroidBLEBridge::toAndroidBLEScanFilters({filterOf(TYPE_UUID, {0xFE, 0xAA})}, nullptr);
}

TEST(AndroidBLEBridge, UuidsRoundTripThroughTheParcelForm) {
    for (const Bytes& bytes : {Bytes{0x18, 0x0F}, Bytes{0x12, 0x34, 0x56, 0x78},
                               Bytes{0x6E, 0x40, 0x00, 0x01, 0xB5, 0xA3, 0xF3, 0x93, 0xE0, 0xA9,
                                     0xE5, 0x0E, 0x24, 0xDC, 0xCA, 0x9E}}) {
        const ParcelUuid parcel = AndroidBLEBridge::toParcelUuid({bytes});
        EXPECT_EQ(AndroidBLEBridge::toTrackerUuid(parcel).uuid, BleUtils::unifyUUID(bytes));
        EXPECT_EQ(parcel.toString(), BleUtils::getUuidString({BleUtils::unifyUUID(bytes)}));
    }
    EXPECT_EQ(AndroidBLEBridge::toParcelUuid({{1, 2, 3}}), ParcelUuid());
    EXPECT_EQ(AndroidBLEBridge::toTrackerUuid(ParcelUuid()).uuid, Bytes(16, 0));

    const std::vector<TrackerUuid> uuids = AndroidBLEBridge::toTrackerUuids(
        {ParcelUuid::fromString("0000feaa-0000-1000-8000-00805f9b34fb"), ParcelUuid(0, 1)});
    ASSERT_EQ(uuids.size(), 2u);
    EXPECT_TRUE(BleUtils::uuidCompare(uuids[0], {{0xFE, 0xAA}}));
    EXPECT_EQ(uuids[1].uuid.back(), 1);
}

TEST(AndroidBLEBridge, ScanResultsBecomeLibraryRecords) {
    const Bytes raw = {0x02, 0x01, 0x06, 0x03, 0x03, 0xAA, 0xFE, 0x05, 0x16, 0xAA,
                       0xFE, 0x10, 0x20, 0x05, 0xFF, 0x71, 0x01, 0xAA, 0xBB};
    const ScanResult result(BluetoothDevice("C0:FF:EE:00:00:01"), ScanRecord::parseFromBytes(raw),
                            -67);
    const auto record = AndroidBLEBridge::toTrackerScanRecord(result);
    ASSERT_TRUE(record && record->address);
    EXPECT_EQ(record->address->addr, (Bytes{0xC0, 0xFF, 0xEE, 0x00, 0x00, 0x01}));
    EXPECT_EQ(record->rssi, -67);
    EXPECT_EQ(record->scanRecord, raw);

    const ScanRecord& parsed = result.getScanRecord();
    EXPECT_EQ(AndroidBLEBridge::toTrackerManuData(parsed.getManufacturerSpecificData()).data,
              (Bytes{0x01, 0x71, 0xAA, 0xBB}));
    EXPECT_TRUE(AndroidBLEBridge::toTrackerManuData({}).data.empty());
    EXPECT_EQ(AndroidBLEBridge::toTrackerServiceData(parsed.getServiceUuids()[0],
                                                     parsed.getServiceData()),
              (Bytes{0x10, 0x20}));
    EXPECT_TRUE(
        AndroidBLEBridge::toTrackerServiceData(ParcelUuid(), parsed.getServiceData()).empty());
}

TEST(AndroidBLEBridge, GattAnswersBecomeLibraryValues) {
    EXPECT_EQ(AndroidBLEBridge::toTrackerGattStatus(0), TRACKER_SUCCESS);
    EXPECT_EQ(AndroidBLEBridge::toTrackerGattStatus(62), TRACKER_FAILURE);
    EXPECT_EQ(AndroidBLEBridge::toTrackerGattStatus(147), TRACKER_FAILURE);
    EXPECT_EQ(AndroidBLEBridge::toTrackerGattStatus(133), TRACKER_ERROR);
    EXPECT_EQ(AndroidBLEBridge::toTrackerGattStatus(8), TRACKER_ERROR);
    EXPECT_EQ(AndroidBLEBridge::toTrackerGattStatus(-1), TRACKER_ERROR);

    const ParcelUuid battery = AndroidBLEBridge::toParcelUuid({{0x18, 0x0F}});
    const ParcelUuid level = AndroidBLEBridge::toParcelUuid({{0x2A, 0x19}});
    const ParcelUuid info = AndroidBLEBridge::toParcelUuid({{0x18, 0x0A}});
    BluetoothGattService first(battery);
    BluetoothGattCharacteristic withValue(level, BluetoothGattCharacteristic::PROPERTY_READ);
    withValue.setValue(std::make_shared<ParcelByteArray>(Bytes{0x64}));
    first.addCharacteristic(withValue);
    first.addCharacteristic(BluetoothGattCharacteristic(info, 0));
    const auto services =
        AndroidBLEBridge::toTrackerGattServices({first, BluetoothGattService(info)});
    ASSERT_EQ(services->services.size(), 2u);
    EXPECT_TRUE(BleUtils::uuidCompare(services->services[0].uuid, {{0x18, 0x0F}}));
    ASSERT_EQ(services->services[0].characteristics.size(), 2u);
    EXPECT_TRUE(
        BleUtils::uuidCompare(services->services[0].characteristics[0].uuid, {{0x2A, 0x19}}));
    EXPECT_TRUE(services->services[1].characteristics.empty());

    const auto value = AndroidBLEBridge::toTrackerCharValue(withValue);
    EXPECT_EQ(value->value, Bytes{0x64});
    EXPECT_FALSE(value->m_fromDescriptor);
    EXPECT_FALSE(value->m_notificationOn);
    EXPECT_TRUE(
        AndroidBLEBridge::toTrackerCharValue(BluetoothGattCharacteristic(level, 0))->value.empty());
}

}  // namespace
}  // namespace bluetooth
}  // namespace util
}  // namespace tracker
