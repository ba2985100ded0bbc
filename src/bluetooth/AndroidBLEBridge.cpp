#include "tracker/bluetooth/AndroidBLEBridge.h"

#include <android/bluetooth/BluetoothUuid.h>

#include <frameworklink/interfaces/ParcelByteArray.h>
#include <climits>

#include "tracker/bluetooth/BleUtils.h"
#include "tracker/util/Log.h"
#include "tracker/util/UUID.h"

namespace tracker {
namespace util {
namespace bluetooth {

namespace {

const Log& kLog = *new Log("AndroidBLEBridge");

using android::bluetooth::BluetoothUuid;
using android::bluetooth::le::ScanFilter;
using android::os::ParcelUuid;
using com::orvane::frameworklink::interfaces::ParcelByteArray;

constexpr int kScanModeLowLatency = 2;
constexpr int kCallbackTypeAllMatches = 1;
constexpr int kScanResultTypeFull = 0;
constexpr long long kReportDelayNone = 0;
constexpr int kMatchModeAggressive = 1;
constexpr int kMaxMatchesPerFilter = 3;

constexpr int32_t kGattSuccess = 0;
constexpr int32_t kGattConnFailEstablish = 62;
constexpr int32_t kGattConnTimeout = 147;

bool hasUuidLength(const std::vector<uint8_t>& bytes) {
    return bytes.size() == 2 || bytes.size() == 4 || bytes.size() == 16;
}

// Most significant byte first to the platform parser's advertisement order.
ParcelUuid parseReversed(std::vector<uint8_t> bytes) {
    UUID::reverseUUID(bytes);
    return BluetoothUuid::parseUuidFrom(bytes);
}

uint64_t readBigEndian(const std::vector<uint8_t>& bytes, std::size_t from) {
    uint64_t value = 0;
    for (std::size_t i = from; i < from + 8; ++i) {
        value = (value << 8) | bytes[i];
    }
    return value;
}

void writeBigEndian(uint64_t value, std::vector<uint8_t>& bytes, std::size_t from) {
    for (std::size_t i = from + 8; i > from; --i) {
        bytes[i - 1] = static_cast<uint8_t>(value & 0xFF);
        value >>= 8;
    }
}

}  // namespace

android::bluetooth::le::ScanSettings AndroidBLEBridge::getDefaultAndroidBLEScanSetting() {
    return android::bluetooth::le::ScanSettings(kScanModeLowLatency, kCallbackTypeAllMatches,
                                                kScanResultTypeFull, kReportDelayNone,
                                                kMatchModeAggressive, kMaxMatchesPerFilter);
}

void AndroidBLEBridge::toAndroidBLEScanFilters(std::vector<TrackerScanFilter> filters,
                                               std::vector<ScanFilter>* out) {
    static constexpr const char* kFunction = "toAndroidBLEScanFilters";
    if (out == nullptr) {
        kLog.e("%s, output is null", kFunction);
        return;
    }
    for (const TrackerScanFilter& filter : filters) {
        ScanFilter converted;
        if (filter.type == TYPE_UUID) {
            const TrackerScanFilterUuid& uuid = filter.uuidFilter;
            if (!hasUuidLength(uuid.uuid) || !(uuid.mask.empty() || hasUuidLength(uuid.mask))) {
                kLog.w("%s, Unsupported uuid filter, uuidLength=%zu, maskLength=%zu", kFunction,
                       uuid.uuid.size(), uuid.mask.size());
                continue;
            }
            converted.setServiceUuid(parseReversed(uuid.uuid));
            if (!uuid.mask.empty()) {
                converted.setServiceMask(parseReversed(uuid.mask));
            }
        } else if (filter.type == TYPE_MANU_DATA && filter.manuDataFilter.data.size() >= 2) {
            const std::vector<uint8_t>& data = filter.manuDataFilter.data;
            converted.setManufacturerId(data[0] << 8 | data[1]);
            converted.setManufacturerData(
                ParcelByteArray(std::vector<uint8_t>(data.begin() + 2, data.end())));
        } else {
            // Address and membership filters are not for the platform scan, and manufacturer
            // data without a whole company id cannot be expressed to it.
            kLog.w("%s, Unsupported filter type", kFunction);
            continue;
        }
        out->push_back(std::move(converted));
    }
}

ParcelUuid AndroidBLEBridge::toParcelUuid(const TrackerUuid& uuid) {
    const std::vector<uint8_t> wide = BleUtils::unifyUUID(uuid.uuid);
    if (wide.empty()) {
        return ParcelUuid();
    }
    return ParcelUuid(static_cast<int64_t>(readBigEndian(wide, 0)),
                      static_cast<int64_t>(readBigEndian(wide, 8)));
}

TrackerUuid AndroidBLEBridge::toTrackerUuid(const ParcelUuid& parcel) {
    TrackerUuid uuid{std::vector<uint8_t>(16)};
    writeBigEndian(static_cast<uint64_t>(parcel.getMostSignificantBits()), uuid.uuid, 0);
    writeBigEndian(static_cast<uint64_t>(parcel.getLeastSignificantBits()), uuid.uuid, 8);
    return uuid;
}

std::vector<TrackerUuid> AndroidBLEBridge::toTrackerUuids(std::vector<ParcelUuid> parcels) {
    std::vector<TrackerUuid> uuids;
    uuids.reserve(parcels.size());
    for (const ParcelUuid& parcel : parcels) {
        uuids.push_back(toTrackerUuid(parcel));
    }
    return uuids;
}

std::shared_ptr<TrackerScanRecord> AndroidBLEBridge::toTrackerScanRecord(
    const android::bluetooth::le::ScanResult& result) {
    auto record = std::make_shared<TrackerScanRecord>();
    record->address = BleUtils::stringToTrackerDeviceAddr(result.getDevice().getAddress().c_str());
    record->rssi = result.getRssi();
    record->scanRecord = result.getScanRecord().getBytes();
    return record;
}

TrackerExtraBeaconData AndroidBLEBridge::toTrackerExtraBeaconData(
    const android::bluetooth::le::ScanRecord& record) {
    TrackerExtraBeaconData extra;
    const std::vector<ParcelUuid>& serviceUuids = record.getServiceUuids();
    if (!serviceUuids.empty()) {
        extra.uuid = toTrackerUuid(serviceUuids.front());
        extra.serviceData = toTrackerServiceData(serviceUuids.front(), record.getServiceData());
    }
    extra.manuData = {toTrackerManuData(record.getManufacturerSpecificData())};
    extra.extraValue = INT32_MIN;
    return extra;
}

TrackerManuData AndroidBLEBridge::toTrackerManuData(
    std::unordered_map<int, std::vector<uint8_t>> data) {
    TrackerManuData manuData;
    if (data.empty()) {
        return manuData;
    }
    const auto& first = *data.begin();
    manuData.data.reserve(2 + first.second.size());
    manuData.data.push_back(static_cast<uint8_t>((first.first >> 8) & 0xFF));
    manuData.data.push_back(static_cast<uint8_t>(first.first & 0xFF));
    manuData.data.insert(manuData.data.end(), first.second.begin(), first.second.end());
    return manuData;
}

std::vector<uint8_t> AndroidBLEBridge::toTrackerServiceData(
    const ParcelUuid& uuid, android::bluetooth::le::ScanRecord::ServiceData data) {
    const auto found = data.find(uuid);
    return found != data.end() ? found->second : std::vector<uint8_t>();
}

int32_t AndroidBLEBridge::toTrackerGattStatus(int32_t status) {
    switch (status) {
        case kGattSuccess:
            return TRACKER_SUCCESS;
        case kGattConnFailEstablish:
        case kGattConnTimeout:
            return TRACKER_FAILURE;
        default:
            return TRACKER_ERROR;
    }
}

std::shared_ptr<TrackerGattServices> AndroidBLEBridge::toTrackerGattServices(
    std::vector<android::bluetooth::BluetoothGattService> services) {
    auto converted = std::make_shared<TrackerGattServices>();
    for (const auto& service : services) {
        TrackerGattService entry{toTrackerUuid(service.getUuid()), {}};
        for (const auto& characteristic : service.getCharacteristics()) {
            entry.characteristics.push_back({toTrackerUuid(characteristic.getUuid())});
        }
        converted->services.push_back(std::move(entry));
    }
    return converted;
}

std::shared_ptr<TrackerCharacteristicValue> AndroidBLEBridge::toTrackerCharValue(
    const android::bluetooth::BluetoothGattCharacteristic& characteristic) {
    auto value = std::make_shared<TrackerCharacteristicValue>();
    if (characteristic.getValue()) {
        value->value = characteristic.getValue()->getBytes();
    }
    return value;
}

}  // namespace bluetooth
}  // namespace util
}  // namespace tracker
