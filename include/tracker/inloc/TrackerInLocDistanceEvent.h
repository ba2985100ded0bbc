#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "tracker/bluetooth/TrackerBleTypes.h"

namespace tracker {
namespace util {
namespace inloc {

// The InLoc values handed to clients. Plain values: the manager builds an event once and shares
// it read-only through shared_ptr, so any thread may read it.

// What an event says about the device's distance.
enum TrackerInLocDistanceType : uint32_t {
    DISTANCE_TYPE_NONE = 0,          // no distance: only the address and advertisement are known
    DISTANCE_TYPE_MEASURED = 1,      // distance holds the measured distance
    DISTANCE_TYPE_RANGE_BUCKET = 2,  // the device is between minDistance and maxDistance
};

// One distance report for one tracked device.
struct TrackerInLocDistanceEvent {
    // The upper bound of the last, open-ended bucket.
    static constexpr uint16_t kMaxDistance = 0xFFFF;

    // Never null; an empty address when the platform named none.
    std::shared_ptr<bluetooth::TrackerDeviceAddr> deviceAddr;
    // The membership identifier the event was reported for; empty when none.
    std::vector<uint8_t> membership;
    // The advertisement's length-prefixed structures, without the zero padding after them.
    std::vector<uint8_t> scanRecord;
    TrackerInLocDistanceType distanceType = DISTANCE_TYPE_NONE;
    int32_t distance = 0;      // valid for DISTANCE_TYPE_MEASURED
    uint16_t minDistance = 0;  // valid for DISTANCE_TYPE_RANGE_BUCKET; 0 when the bucket is unknown
    uint16_t maxDistance = 0;  // valid for DISTANCE_TYPE_RANGE_BUCKET; 0 when the bucket is unknown
};

// Whether the platform's InLoc adapter can take requests.
enum TrackerInLocAdapterStatus : int32_t {
    INLOC_ADAPTER_READY = 0,
    INLOC_ADAPTER_NOT_READY = -1,  // any state other than enabled
};

}  // namespace inloc
}  // namespace util
}  // namespace tracker
