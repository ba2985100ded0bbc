#pragma once

#include <memory>

#include "tracker/bluetooth/BluetoothManagerScanFilter.h"
#include "tracker/bluetooth/TrackerBleTypes.h"
#include "tracker/inloc/TrackerInLocDistanceEvent.h"

namespace tracker {
namespace util {
namespace inloc {

// What a connector implements to track tags through the InLocManager. The manager keeps the
// client by shared pointer for the life of the process.
//
// Callbacks arrive on the manager's callback executor, one at a time, except
// onRingDeviceResult, which arrives on a platform thread. A callback may call the manager's
// ringDeviceByAddress and setScanPeriod; no callback may call start, stop or reload, whose
// operations may be waiting for the callback executor or for the platform's answers.
class InLocManagerClientInterface {
  public:
    virtual ~InLocManagerClientInterface() = default;
    // The InLoc session opened (or could not be opened) for all clients.
    virtual void onInitializationSuccess() = 0;
    virtual void onInitializationFailure() = 0;
    // A distance event for a device this client tracks, by address or by membership.
    virtual void onInLocTrackingResult(std::shared_ptr<TrackerInLocDistanceEvent> event) = 0;
    virtual void onRingDeviceResult(const std::shared_ptr<bluetooth::TrackerDeviceAddr>& addr,
                                    bluetooth::TrackerStatus status) = 0;
    // The client's filters (membership and device address kinds), asked for whenever the
    // manager rebuilds its merged filter; null for none. Called without the manager's locks.
    virtual std::shared_ptr<bluetooth::BluetoothManagerScanFilter> getScanFilter() = 0;
};

}  // namespace inloc
}  // namespace util
}  // namespace tracker
