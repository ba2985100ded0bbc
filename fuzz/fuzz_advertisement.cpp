// Raw advertisement bytes, as any device in radio range may send them, through the platform's
// parser and the bridge's conversions into the library's values and matching.

#include <android/bluetooth/BluetoothUuid.h>
#include <android/bluetooth/le/ScanRecord.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "tracker/bluetooth/AndroidBLEBridge.h"
#include "tracker/bluetooth/BleUtils.h"

using namespace tracker::util::bluetooth;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    const std::vector<uint8_t> bytes(data, data + size);
    const auto record = android::bluetooth::le::ScanRecord::parseFromBytes(bytes);
    const std::vector<TrackerUuid> uuids =
        AndroidBLEBridge::toTrackerUuids(record.getServiceUuids());
    TrackerExtraBeaconData extra;
    extra.uuid = uuids.empty() ? TrackerUuid() : uuids[0];
    extra.manuData = {AndroidBLEBridge::toTrackerManuData(record.getManufacturerSpecificData())};
    extra.serviceData = AndroidBLEBridge::toTrackerServiceData(
        AndroidBLEBridge::toParcelUuid(extra.uuid), record.getServiceData());
    BleUtils::getUuidString(extra.uuid);

    // The same bytes as a filter: every split into data and mask must match without reading
    // past either.
    const std::size_t half = size / 2;
    const std::vector<uint8_t> filterData(data, data + half);
    const std::vector<uint8_t> mask(data + half, data + size);
    BleUtils::matchManuDataFilter({filterData, mask}, extra.manuData[0]);
    BleUtils::matchUuidFilter({filterData, mask}, extra.uuid);
    BleUtils::matchMaskedData(bytes, filterData, mask);
    android::bluetooth::BluetoothUuid::parseUuidFrom(filterData);
    return 0;
}
