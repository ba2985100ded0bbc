#pragma once

#include <climits>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include <android/os/ParcelUuid.h>

namespace android {
namespace bluetooth {
namespace le {

// An advertisement parsed into its AD structures (length, type, data), as a device's parser
// reads them: service and solicitation UUID lists of every width, service data of every width,
// manufacturer data keyed by the little-endian company id, flags, TX power and local name.
// Parsing stops at a zero length. A structure that makes the parser read past the last byte
// (one longer than what is left, a company id cut short at the end, a UUID list reaching beyond
// the end) fails the whole record: it then holds only its raw bytes. Where the parser reads on
// into the next structure (a UUID list of odd length), so does this one.
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
    const std::vector<os::ParcelUuid>& getServiceSolicitationUuids() const {
        return m_solicitationUuids;
    }
    int getAdvertiseFlags() const { return m_flags; }       // -1 without a flags structure
    int getTxPowerLevel() const { return m_txPowerLevel; }  // INT_MIN without one
    const std::string& getDeviceName() const { return m_deviceName; }

  private:
    std::vector<uint8_t> m_bytes;
    std::vector<os::ParcelUuid> m_serviceUuids;
    std::vector<os::ParcelUuid> m_solicitationUuids;
    std::unordered_map<int, std::vector<uint8_t>> m_manufacturerData;
    ServiceData m_serviceData;
    int m_flags = -1;
    int m_txPowerLevel = INT_MIN;
    std::string m_deviceName;
};

}  // namespace le
}  // namespace bluetooth
}  // namespace android
