#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include <android/os/ParcelUuid.h>

namespace android {
namespace bluetooth {
namespace le {

// An advertisement parsed into its AD structures (length, type, data): service UUID lists of
// every width, service data of every width, manufacturer data keyed by the little-endian
// company id, flags and local name. Parsing stops at a zero length or at a structure that would
// run past the end; what was parsed before it is kept, and truncated UUIDs are skipped.
class ScanRecord {
  public:
    using ServiceData =
        std::unordered_map<os::ParcelUuid, std::vector<uint8_t>, os::ParcelUuidHasher>;

    ScanRecord() = default;
    static ScanRecord parseFromBytes(const std::vector<uint8_t>& bytes);

    const std::vector<uint8_t>& getBytes() const { return m_bytes; }
    // In advertised order.
    const std::vector<os::ParcelUuid>& getServiceUuids() const { return m_serviceUuids; }
    const std::unordered_map<int, std::vector<uint8_t>>& getManufacturerSpecificData() const {
        return m_manufacturerData;
    }
    const ServiceData& getServiceData() const { return m_serviceData; }
    int getAdvertiseFlags() const { return m_flags; }  // -1 without a flags structure
    const std::string& getDeviceName() const { return m_deviceName; }

  private:
    std::vector<uint8_t> m_bytes;
    std::vector<os::ParcelUuid> m_serviceUuids;
    std::unordered_map<int, std::vector<uint8_t>> m_manufacturerData;
    ServiceData m_serviceData;
    int m_flags = -1;
    std::string m_deviceName;
};

}  // namespace le
}  // namespace bluetooth
}  // namespace android
