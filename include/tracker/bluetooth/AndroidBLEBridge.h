#pragma once

#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

#include <android/bluetooth/BluetoothGattCharacteristic.h>
#include <android/bluetooth/BluetoothGattService.h>
#include <android/bluetooth/le/ScanFilter.h>
#include <android/bluetooth/le/ScanResult.h>
#include <android/bluetooth/le/ScanSettings.h>
#include <android/os/ParcelUuid.h>

#include "tracker/bluetooth/TrackerBleTypes.h"
#include "tracker/bluetooth/TrackerGattTypes.h"
#include "tracker/bluetooth/TrackerScanFilter.h"

namespace tracker {
namespace util {
namespace bluetooth {

// Converters between the library's Bluetooth values and the platform's. Stateless; callable
// from any thread. Problems are warned under "TrackerD-AndroidBLEBridge" and the item skipped.
//
// The library keeps UUID bytes most significant first; the platform's parser reads them in
// advertisement order (least significant first), so filter UUIDs are reversed on the way.
class AndroidBLEBridge {
  public:
    AndroidBLEBridge() = delete;

    // Every beacon scan's settings: low latency, all matches, full results, no report delay,
    // aggressive matching, the most matches per filter.
    static android::bluetooth::le::ScanSettings getDefaultAndroidBLEScanSetting();

    // Appends one platform filter per UUID filter (service UUID and, when set, its mask) and per
    // manufacturer filter (id from the first two bytes, the rest as data; the mask stays with the
    // library). Other types, manufacturer data shorter than two bytes and UUIDs or masks of no
    // UUID length are warned about and skipped.
    static void toAndroidBLEScanFilters(std::vector<TrackerScanFilter> filters,
                                        std::vector<android::bluetooth::le::ScanFilter>* out);

    // Widened to 16 bytes; a UUID of no valid length gives the zero UUID.
    static android::os::ParcelUuid toParcelUuid(const TrackerUuid& uuid);
    static TrackerUuid toTrackerUuid(const android::os::ParcelUuid& parcel);
    static std::vector<TrackerUuid> toTrackerUuids(std::vector<android::os::ParcelUuid> parcels);

    static std::shared_ptr<TrackerScanRecord> toTrackerScanRecord(
        const android::bluetooth::le::ScanResult& result);
    // What travels beside a scan result to its client: the first advertised service UUID (empty
    // when none is listed) and the service data under it, the manufacturer data as one element,
    // and extraValue INT32_MIN.
    static TrackerExtraBeaconData toTrackerExtraBeaconData(
        const android::bluetooth::le::ScanRecord& record);
    // The map's first entry in its own iteration order: id high byte, low byte, then the bytes.
    static TrackerManuData toTrackerManuData(std::unordered_map<int, std::vector<uint8_t>> data);
    // The bytes under uuid, or none.
    static std::vector<uint8_t> toTrackerServiceData(
        const android::os::ParcelUuid& uuid, android::bluetooth::le::ScanRecord::ServiceData data);

    // 0 -> 0; 62 and 147 -> 1; anything else -> -1.
    static int32_t toTrackerGattStatus(int32_t status);
    static std::shared_ptr<TrackerGattServices> toTrackerGattServices(
        std::vector<android::bluetooth::BluetoothGattService> services);
    static std::shared_ptr<TrackerCharacteristicValue> toTrackerCharValue(
        const android::bluetooth::BluetoothGattCharacteristic& characteristic);
};

}  // namespace bluetooth
}  // namespace util
}  // namespace tracker
