#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include <inloc/ixa_inloc.h>

#include "tracker/bluetooth/TrackerBleTypes.h"
#include "tracker/bluetooth/TrackerScanFilter.h"
#include "tracker/inloc/TrackerInLocDistanceEvent.h"

namespace tracker {
namespace util {
namespace inloc {

// Converters between the library's Bluetooth values and the records of the platform's InLoc
// interface. Stateless and silent (its log tag is "TrackerD-IxaInLocBridge"); callable from any
// thread.
//
// Ownership:
// - Membership lists: the caller owns the output array, which must have at least as many
//   entries as there are filters. Every membership entry written holds a new[] copy of the
//   membership bytes (kind IXA_INLOC_MEMBERSHIP_KIND_COPY) that only the matching
//   clearIxa...MembershipList frees; call it once the platform call has returned.
// - Device and ring configurations own nothing: their pointers borrow from the filter or the
//   address given, which must outlive the platform call. keyData is bytesD's buffer read with
//   bytesC's length, so bytesD must be at least as long as bytesC.
// - Records read from the platform (addresses, memberships, events) are copied; nothing points
//   into them afterwards.
//
// Platform records are read within their stated lengths only: a null pointer reads as no bytes,
// and an advertisement whose last structure claims more bytes than the event states is cut at
// the stated length rather than copied beyond it.
class IxaInLocBridge {
  public:
    IxaInLocBridge() = delete;

    // Always allocated: a copy of the record's bytes, or an empty address for a null record.
    static std::shared_ptr<bluetooth::TrackerDeviceAddr> toTrackerDeviceAddr(
        const ixaInloc_deviceAddr_t* addr);
    // IXA_STATUS_SUCCESS -> TRACKER_SUCCESS; anything else -> TRACKER_FAILURE.
    static bluetooth::TrackerStatus toTrackerStatus(ixa_status_t status);
    // IXA_INLOC_ADAPTER_ENABLED -> INLOC_ADAPTER_READY; anything else -> INLOC_ADAPTER_NOT_READY.
    static TrackerInLocAdapterStatus toTrackerInLocAdapterStatus(ixaInloc_adapterStatus_t status);

    // Entry i belongs to filters[i]: it is zeroed and, for a membership filter, filled with a copy
    // of the filter's uuid (the mask is not passed on) and the service's tuning values. Entries
    // of other filters stay zeroed, so a mixed list leaves gaps; callers pass lists of one kind.
    // Returns the number of membership entries written; 0 without writing for an empty list or a
    // null array.
    static unsigned toIxaConfigMembershipList(std::vector<bluetooth::TrackerScanFilter> filters,
                                              ixaInloc_distanceConfigMembership_t* out);
    static unsigned toIxaDeconfigMembershipList(std::vector<bluetooth::TrackerScanFilter> filters,
                                                ixaInloc_distanceDeconfigMembership_t* out);
    // Frees the copies of the first count entries (kind IXA_INLOC_MEMBERSHIP_KIND_COPY with data)
    // and nulls their pointers; other entries are left alone. A null array does nothing.
    static void clearIxaConfigMembershipList(ixaInloc_distanceConfigMembership_t* list,
                                             unsigned count);
    static void clearIxaDeconfigMembershipList(ixaInloc_distanceDeconfigMembership_t* list,
                                               unsigned count);

    // Always allocated, with deviceAddr never null. A null event gives the address alone.
    // The distance: a measured distance (the accumulated distance over the sample count, 0 when
    // there are no samples) wins over a range bucket, which counts only in a bucketed report; an
    // unknown bucket leaves both bounds 0, the last bucket ends at kMaxDistance, and an index
    // past the boundary table counts as the last bucket.
    static std::shared_ptr<TrackerInLocDistanceEvent> toTrackerInLocDistanceEvent(
        const ixaInloc_distanceEvent_t* event, const ixaInloc_deviceAddr_t* addr,
        const ixaInloc_membership_t* membership);

    // From the addressFilter of a TYPE_ADDRESS filter: bytesA the address, bytesB the identity,
    // bytesC the key with bytesD its data, words16 the words, the low 32 bits of value64.
    static ixaInloc_distanceConfigDevice_t createIxaDeviceDistanceConfig(
        const bluetooth::TrackerScanFilter& filter);
    static ixaInloc_distanceDeconfigDevice_t createIxaDeviceDistanceDeconfig(
        const bluetooth::TrackerScanFilter& filter);
    static ixaInloc_deviceAddr_t createIxaRingDeviceConfig(
        const bluetooth::TrackerDeviceAddr& addr);
};

}  // namespace inloc
}  // namespace util
}  // namespace tracker
