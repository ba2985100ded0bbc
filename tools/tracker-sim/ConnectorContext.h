#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Timeline.h"
#include "tracker/bluetooth/BluetoothManagerScanFilter.h"
#include "tracker/bluetooth/TrackerBleTypes.h"
#include "tracker/bluetooth/TrackerScanFilter.h"

namespace tracker {
namespace trackersim {

// What every connector of a run is given: its name, the timeline it reports to, and a way to
// call its manager later from the run's script thread. Manager calls that wait for the platform
// (start, stop, reload) are never made from a manager's callback, where they could wait for the
// very thread making them.
struct ConnectorContext {
    std::string name;
    Timeline& timeline;
    std::function<void(std::function<void()>)> later;

    void report(std::string event, const util::bluetooth::TrackerDeviceAddr* address,
                std::string detail = {}, bool failure = false) const;
};

// Lower-case hex digits of the bytes.
std::string hex(std::vector<uint8_t> bytes);
// A connector's filters: replaced by the script thread before a reload, read by the manager
// whenever it builds its merged filter. m_mutex guards m_filters.
class ConnectorFilters {
  public:
    explicit ConnectorFilters(std::vector<util::bluetooth::TrackerScanFilter> filters);
    void set(std::vector<util::bluetooth::TrackerScanFilter> filters);
    // A fresh holder of a copy, as getScanFilter() hands them over.
    std::shared_ptr<util::bluetooth::BluetoothManagerScanFilter> holder() const;

  private:
    mutable std::mutex m_mutex;
    std::vector<util::bluetooth::TrackerScanFilter> m_filters;
};

// "MAC:EE:01": the last two bytes only, as the library's own logs show addresses.
std::string obfuscated(const util::bluetooth::TrackerDeviceAddr& address);
// "fef3" for a UUID on the Bluetooth base, the full form otherwise; "-" for none.
std::string shortUuid(const util::bluetooth::TrackerUuid& uuid);
// A readable line for a list of filters ("uuid fef3, manufacturer 4c00/ffff").
std::string describeFilters(const std::vector<util::bluetooth::TrackerScanFilter>& filters);

}  // namespace trackersim
}  // namespace tracker
