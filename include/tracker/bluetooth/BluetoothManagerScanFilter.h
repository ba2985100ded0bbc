#pragma once

#include <cstdint>
#include <vector>

#include "tracker/bluetooth/TrackerScanFilter.h"

namespace tracker {
namespace util {
namespace bluetooth {

// The holder through which a client hands its filters to a manager. Clients may derive from it.
// Not thread-safe: the client fills it, then hands it over.
class BluetoothManagerScanFilter {
  public:
    virtual ~BluetoothManagerScanFilter();
    // A copy of the filters, in the order added.
    virtual std::vector<TrackerScanFilter> getScanFilters();
    virtual int32_t getFilterListCount();

    // Appends every filter in order, duplicates included; always true.
    bool addScanFilters(std::vector<TrackerScanFilter> filters);

  protected:
    std::vector<TrackerScanFilter> filters;
};

}  // namespace bluetooth
}  // namespace util
}  // namespace tracker
