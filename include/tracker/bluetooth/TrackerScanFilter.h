#pragma once

#include <cstdint>
#include <vector>

namespace tracker {
namespace util {
namespace bluetooth {

enum TrackerScanFilterType : int32_t {
    TYPE_UUID = 0,        // uuidFilter
    TYPE_MANU_DATA = 1,   // manuDataFilter
    TYPE_MEMBERSHIP = 2,  // uuidFilter, whose uuid is the membership identifier (InLoc only)
    TYPE_ADDRESS = 3,     // addressFilter (InLoc only)
};

// A service UUID and its mask: empty, or as long as the UUID, a 1 bit meaning "must match".
struct TrackerScanFilterUuid {
    std::vector<uint8_t> uuid;
    std::vector<uint8_t> mask;
};

// data begins with the 16-bit company identifier, high byte first, then the payload to match;
// mask is aligned with data from its first byte and follows the UUID mask's rule.
struct TrackerScanFilterManuData {
    std::vector<uint8_t> data;
    std::vector<uint8_t> mask;
};

// Tracking by device: bytesA is the device address; the InLoc bridge gives the other fields
// their meaning and the Bluetooth manager never reads them.
struct TrackerScanFilterAddress {
    std::vector<uint8_t> bytesA;
    std::vector<uint8_t> bytesB;
    std::vector<uint8_t> bytesC;
    std::vector<uint8_t> bytesD;
    std::vector<uint16_t> words16;
    uint64_t value64 = 0;
};

// One filter of a client. Every filter carries all three sub-filters; only the one its type
// selects is meaningful.
struct TrackerScanFilter {
    TrackerScanFilterType type = TYPE_UUID;
    TrackerScanFilterUuid uuidFilter;
    TrackerScanFilterManuData manuDataFilter;
    TrackerScanFilterAddress addressFilter;
};

// Orderings for sorting filter lists and computing what changed between two of them.
// UUID and manufacturer filters: the first vector as unsigned bytes (a proper prefix is less),
// then the mask the same way. Address filters: bytesA to bytesD, then words16; value64 is
// deliberately ignored, so filters differing only there are equivalent.
// TrackerScanFilter: by type first; within a type only the selected sub-filter counts (types 0
// and 2 compare uuidFilter).
bool operator<(const TrackerScanFilterUuid& a, const TrackerScanFilterUuid& b);
bool operator<(const TrackerScanFilterManuData& a, const TrackerScanFilterManuData& b);
bool operator<(const TrackerScanFilterAddress& a, const TrackerScanFilterAddress& b);
bool operator<(const TrackerScanFilter& a, const TrackerScanFilter& b);

}  // namespace bluetooth
}  // namespace util
}  // namespace tracker
