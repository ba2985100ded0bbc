#pragma once

// The callbacks the InLoc service calls, and the two tables that hand them over. They run on
// the service's threads and reach the manager through InLocManager::existingInstance(); they
// convert the records (valid only during the call) and return without waiting.

#include <inloc/ixa_inloc.h>

namespace tracker {
namespace util {
namespace inloc {

void onInitializedCallback(ixa_status_t status);
void onStatusChangedCallback(ixaInloc_adapterStatus_t status);

void onClientRegisteredCallback(ixa_status_t status);
void onTrackingByMembershipEnabledCallback(uint8_t count,
                                           ixaInloc_distanceConfigMembershipResult_t* results);
void onTrackingByMembershipDisabledCallback(uint8_t count,
                                            ixaInloc_distanceConfigMembershipResult_t* results);
void onNotificationStoppedCallback(ixaInloc_distanceDeviceNotificationControlResult_t* result);
void onNotifcationRestartedCallback(ixaInloc_distanceDeviceNotificationControlResult_t* result);
void onTrackingByAddrEnabledCallback(uint8_t count, ixaInloc_distanceConfigDeviceResult_t* results);
void onTrackingByAddrDisabledCallback(uint8_t count,
                                      ixaInloc_distanceConfigDeviceResult_t* results);
void onRingDeviceCallback(uint8_t count, ixaInloc_distanceRingDeviceResult_t* results);
void onDistanceTrackingCallback(ixa_status_t status, ixaInloc_distanceEvent_t* event,
                                ixaInloc_membership_t* membership,
                                ixaInloc_deviceAddr_t* deviceAddr);

extern const ixaInloc_adapterCallbacks_t kAdapterCallbacks;
extern const ixaInloc_distanceClientCallbacks_t kDistanceClientCallbacks;

}  // namespace inloc
}  // namespace util
}  // namespace tracker
