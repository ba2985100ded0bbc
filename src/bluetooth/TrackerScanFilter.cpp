#include "tracker/bluetooth/TrackerScanFilter.h"

#include <tuple>

namespace tracker {
namespace util {
namespace bluetooth {

bool operator<(const TrackerScanFilterUuid& a, const TrackerScanFilterUuid& b) {
    return std::tie(a.uuid, a.mask) < std::tie(b.uuid, b.mask);
}

bool operator<(const TrackerScanFilterManuData& a, const TrackerScanFilterManuData& b) {
    return std::tie(a.data, a.mask) < std::tie(b.data, b.mask);
}

bool operator<(const TrackerScanFilterAddress& a, const TrackerScanFilterAddress& b) {
    return std::tie(a.bytesA, a.bytesB, a.bytesC, a.bytesD, a.words16) <
           std::tie(b.bytesA, b.bytesB, b.bytesC, b.bytesD, b.words16);
}

bool operator<(const TrackerScanFilter& a, const TrackerScanFilter& b) {
    if (a.type != b.type) {
        return a.type < b.type;
    }
    switch (a.type) {
        case TYPE_MANU_DATA:
            return a.manuDataFilter < b.manuDataFilter;
        case TYPE_ADDRESS:
            return a.addressFilter < b.addressFilter;
        default:
            return a.uuidFilter < b.uuidFilter;
    }
}

}  // namespace bluetooth
}  // namespace util
}  // namespace tracker
