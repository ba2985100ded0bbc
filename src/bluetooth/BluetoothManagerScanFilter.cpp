#include "tracker/bluetooth/BluetoothManagerScanFilter.h"

#include <iterator>

namespace tracker {
namespace util {
namespace bluetooth {

BluetoothManagerScanFilter::~BluetoothManagerScanFilter() = default;

std::vector<TrackerScanFilter> BluetoothManagerScanFilter::getScanFilters() {
    return filters;
}

int32_t BluetoothManagerScanFilter::getFilterListCount() {
    return static_cast<int32_t>(filters.size());
}

bool BluetoothManagerScanFilter::addScanFilters(std::vector<TrackerScanFilter> added) {
    filters.insert(filters.end(), std::make_move_iterator(added.begin()),
                   std::make_move_iterator(added.end()));
    return true;
}

}  // namespace bluetooth
}  // namespace util
}  // namespace tracker
