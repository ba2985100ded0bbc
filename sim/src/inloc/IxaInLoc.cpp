// The InLoc client interface of the platform, served by the simulated InLoc service.

#include <inloc/ixa_inloc.h>

#include "inloc/InLocService.h"

using tracker::sim::InLocService;

extern "C" {

ixa_status_t ixaInloc_adapterInit(uint32_t version, const ixaInloc_adapterCallbacks_t* callbacks) {
    return InLocService::instance().adapterInit(version, callbacks);
}

ixa_status_t ixaInloc_distanceRegisterClient(const ixaInloc_distanceClientCallbacks_t* callbacks) {
    return InLocService::instance().registerClient(callbacks);
}

ixa_status_t ixaInloc_distanceEnableTrackingByMembership(
    uint32_t count, const ixaInloc_distanceConfigMembership_t* entries) {
    return InLocService::instance().enableMemberships(count, entries);
}

ixa_status_t ixaInloc_distanceDisableTrackingByMembership(
    uint32_t count, const ixaInloc_distanceDeconfigMembership_t* entries) {
    return InLocService::instance().disableMemberships(count, entries);
}

ixa_status_t ixaInloc_distanceEnableTrackingByDeviceAddr(
    uint32_t count, const ixaInloc_distanceConfigDevice_t* devices) {
    return InLocService::instance().enableAddresses(count, devices);
}

ixa_status_t ixaInloc_distanceDisableTrackingByDeviceAddr(
    uint32_t count, const ixaInloc_distanceDeconfigDevice_t* devices) {
    return InLocService::instance().disableAddresses(count, devices);
}

ixa_status_t ixaInloc_distanceRingDeviceByDeviceAddr(uint32_t count,
                                                     const ixaInloc_deviceAddr_t* devices) {
    return InLocService::instance().ring(count, devices);
}

}  // extern "C"
