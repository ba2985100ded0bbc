#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tracker/bluetooth/TrackerBleTypes.h"
#include "tracker/bluetooth/TrackerScanFilter.h"

namespace tracker {
namespace util {
namespace bluetooth {

// Widening, comparing, printing, parsing and matching of the Bluetooth values. Stateless, no
// logging, callable from any thread. Data and addresses print in upper case ("AA:0B"), UUIDs in
// lower case; both forms are compared and logged elsewhere as they stand.
class BleUtils {
  public:
    BleUtils() = delete;

    // The Bluetooth base UUID 00000000-0000-1000-8000-00805F9B34FB, most significant byte first.
    static const std::vector<uint8_t> BASE_UUID;

    // The 16-byte form: 2 bytes go to positions 2-3 and 4 bytes to 0-3 of the base UUID, 16
    // bytes stay as they are, any other length gives an empty vector. Safe in static
    // initialisers: it widens from a constant copy of the base UUID, not from BASE_UUID.
    static std::vector<uint8_t> unifyUUID(std::vector<uint8_t> uuid);
    // Same UUID after widening; two malformed UUIDs never compare equal.
    static bool uuidCompare(const TrackerUuid& a, const TrackerUuid& b);

    // "AA:BB:CC:DD:EE:FF"; "" for a null pointer. Only for places that must show the clear
    // address: logs use getObfuscatedAddress().
    static std::string getBleAddress(const std::shared_ptr<TrackerDeviceAddr>& addr);
    static std::string getBleAddress(const TrackerDeviceAddr& addr);
    // Upper-case hex pairs joined by ":"; "" for no bytes.
    static std::string getDataString(std::vector<uint8_t> bytes);
    // Six bytes from "aa:bb:cc:dd:ee:ff" or "AABBCCDDEEFF" (either case); bytes that cannot be
    // read are 0. Null text gives a null pointer.
    static std::shared_ptr<TrackerDeviceAddr> stringToTrackerDeviceAddr(const char* text);
    // "MAC:EE:FF" for a six-field address, "NonMAC:<second-last>:<last>" for 2-5 or 7+ fields,
    // the text itself for fewer than 2 fields.
    static std::string getObfuscatedAddress(const std::string& address);
    // Lower-case hex of a 2-, 4- or 16-byte UUID (16 bytes in the 8-4-4-4-12 form); "" otherwise.
    static std::string getUuidString(TrackerUuid uuid);

    // Whether data matches filterData under mask. An empty mask asks for equal length and bytes;
    // otherwise every bit set in mask[i] must agree in data[i] and filterData[i] for each i of
    // filterData, and later bytes of data do not count. Empty data or filterData, and a data or
    // mask shorter than filterData, never match.
    static bool matchMaskedData(const std::vector<uint8_t>& data,
                                const std::vector<uint8_t>& filterData,
                                const std::vector<uint8_t>& mask);
    // The UUID, the filter's UUID and its mask are all widened first.
    static bool matchUuidFilter(const TrackerScanFilterUuid& filter, const TrackerUuid& uuid);
    // Company identifier and payload, both under the filter's mask.
    static bool matchManuDataFilter(const TrackerScanFilterManuData& filter,
                                    const TrackerManuData& manuData);
};

}  // namespace bluetooth
}  // namespace util
}  // namespace tracker
