#include "inloc/InLocPlatformCallbacks.h"

#include "tracker/bluetooth/BleUtils.h"
#include "tracker/inloc/InLocManager.h"
#include "tracker/inloc/IxaInLocBridge.h"
#include "tracker/util/Log.h"

namespace tracker {
namespace util {
namespace inloc {

namespace {

using bluetooth::BleUtils;

const Log& kLog = *new Log(InLocManager::kName);

std::string obfuscated(const std::shared_ptr<bluetooth::TrackerDeviceAddr>& address) {
    return BleUtils::getObfuscatedAddress(BleUtils::getBleAddress(address));
}

void logDeviceResults(const char* function, uint8_t count,
                      const ixaInloc_distanceConfigDeviceResult_t* results) {
    for (uint8_t i = 0; results != nullptr && i < count; ++i) {
        kLog.i("%s: status=%d, addr=%s", function, results[i].status,
               obfuscated(IxaInLocBridge::toTrackerDeviceAddr(&results[i].deviceAddr)).c_str());
    }
}

}  // namespace

void onInitializedCallback(ixa_status_t status) {
    kLog.d("%s: status=%d", "onInitializedCallback", status);
    if (InLocManager* manager = InLocManager::existingInstance()) {
        manager->handleInitializedCallback(IxaInLocBridge::toTrackerStatus(status));
    }
}

void onStatusChangedCallback(ixaInloc_adapterStatus_t status) {
    kLog.d("%s: status=%d", "onStatusChangedCallback", status);
    InLocManager* manager = InLocManager::existingInstance();
    if (manager != nullptr &&
        IxaInLocBridge::toTrackerInLocAdapterStatus(status) == INLOC_ADAPTER_READY) {
        manager->restart();
    }
}

void onClientRegisteredCallback(ixa_status_t status) {
    kLog.d("%s: status=%d", "onClientRegisteredCallback", status);
    if (InLocManager* manager = InLocManager::existingInstance()) {
        manager->handleClientRegisterCallback(IxaInLocBridge::toTrackerStatus(status));
    }
}

void onTrackingByMembershipEnabledCallback(uint8_t, ixaInloc_distanceConfigMembershipResult_t*) {
    kLog.d("%s", "onTrackingByMembershipEnabledCallback");
}

void onTrackingByMembershipDisabledCallback(uint8_t, ixaInloc_distanceConfigMembershipResult_t*) {
    kLog.d("%s", "onTrackingByMembershipDisabledCallback");
}

void onNotificationStoppedCallback(ixaInloc_distanceDeviceNotificationControlResult_t*) {
    kLog.d("%s", "onNotificationStoppedCallback");
}

void onNotifcationRestartedCallback(ixaInloc_distanceDeviceNotificationControlResult_t*) {
    kLog.d("%s", "onNotifcationRestartedCallback");
}

void onTrackingByAddrEnabledCallback(uint8_t count,
                                     ixaInloc_distanceConfigDeviceResult_t* results) {
    logDeviceResults("onTrackingByAddrEnabledCallback", count, results);
}

void onTrackingByAddrDisabledCallback(uint8_t count,
                                      ixaInloc_distanceConfigDeviceResult_t* results) {
    logDeviceResults("onTrackingByAddrDisabledCallback", count, results);
}

void onRingDeviceCallback(uint8_t count, ixaInloc_distanceRingDeviceResult_t* results) {
    InLocManager* manager = InLocManager::existingInstance();
    for (uint8_t i = 0; manager != nullptr && results != nullptr && i < count; ++i) {
        manager->handleRingDeviceCallback(
            IxaInLocBridge::toTrackerDeviceAddr(&results[i].deviceAddr),
            IxaInLocBridge::toTrackerStatus(results[i].status));
    }
}

void onDistanceTrackingCallback(ixa_status_t status, ixaInloc_distanceEvent_t* event,
                                ixaInloc_membership_t* membership,
                                ixaInloc_deviceAddr_t* deviceAddr) {
    kLog.d("%s: status=%d", "onDistanceTrackingCallback", status);
    if (InLocManager* manager = InLocManager::existingInstance()) {
        // Converted whatever the status: the records live only during this call.
        manager->handleInLocDistanceEventCallback(
            IxaInLocBridge::toTrackerInLocDistanceEvent(event, deviceAddr, membership));
    }
}

const ixaInloc_adapterCallbacks_t kAdapterCallbacks = {onInitializedCallback,
                                                       onStatusChangedCallback};

const ixaInloc_distanceClientCallbacks_t kDistanceClientCallbacks = {
    onClientRegisteredCallback,
    nullptr,
    onTrackingByMembershipEnabledCallback,
    onTrackingByMembershipDisabledCallback,
    onNotificationStoppedCallback,
    onNotifcationRestartedCallback,
    onTrackingByAddrEnabledCallback,
    onTrackingByAddrDisabledCallback,
    onRingDeviceCallback,
    onDistanceTrackingCallback,
};

}  // namespace inloc
}  // namespace util
}  // namespace tracker
