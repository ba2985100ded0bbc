#pragma once

// The platform's InLoc client interface: distance tracking of BLE tags by the InLoc service.
//
// Every call returns at once with a status (0: accepted) and answers later, on the service's
// own threads, through the callback tables the caller handed over; the tables must stay valid
// for as long as the service may call them. Records the service passes to a callback are valid
// only during that call. Records the caller passes in are read during the call only.
//
// The layouts are those of the 32-bit device (pointers of 4 bytes, little-endian), checked below
// whenever this header is compiled for a 32-bit target. A 64-bit host build uses the same names
// with its own layout. Fields named "option<offset>" are tuning values of the service: the
// library writes the values the service version it was built for expects.

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef int32_t ixa_status_t;
#define IXA_STATUS_SUCCESS 0
#define IXA_STATUS_FAILURE 1
#define IXA_STATUS_NOT_READY 2
#define IXA_STATUS_NOT_FOUND 3
#define IXA_STATUS_INVALID_ARGUMENT 4

typedef int32_t ixaInloc_adapterStatus_t;
#define IXA_INLOC_ADAPTER_DISABLED 0
#define IXA_INLOC_ADAPTER_ENABLED 1

// The version of this interface, the first argument of ixaInloc_adapterInit.
#define IXA_INLOC_INTERFACE_VERSION 2

// The kind of a membership whose data pointer is a heap copy owned by the caller.
#define IXA_INLOC_MEMBERSHIP_KIND_COPY 1

// A proximity report kind: the event carries a range bucket.
#define IXA_INLOC_REPORT_BUCKETED 2

// Event flags.
#define IXA_INLOC_EVENT_HAS_BUCKET 0x01
#define IXA_INLOC_EVENT_HAS_DISTANCE 0x02

// The bucket index of a device whose bucket is not known.
#define IXA_INLOC_BUCKET_UNKNOWN 0xFF

typedef struct {
    uint16_t len;
    const uint8_t* addr;
} ixaInloc_deviceAddr_t;

typedef struct {
    uint32_t kind;
    uint16_t len;
    uint8_t* data;
} ixaInloc_membership_t;

// One entry of the list that enables tracking by membership.
typedef struct {
    ixaInloc_membership_t membership;
    uint32_t reserved12;
    uint16_t option16;
    uint32_t option20;
    uint32_t option24;
    uint32_t option28;
    uint32_t option32;
    uint8_t option36;
    uint32_t option40;
    uint32_t option44;
    uint32_t option48;
    uint8_t option52;
    uint32_t option56;
    uint8_t option60;
} ixaInloc_distanceConfigMembership_t;

// One entry of the list that disables tracking by membership.
typedef struct {
    ixaInloc_membership_t membership;
    uint32_t reserved12;
    uint16_t option16;
    uint32_t option20;
    uint32_t option24;
    uint32_t option28;
    uint32_t option32;
    uint8_t option36;
    uint32_t option40;
    uint32_t option44;
} ixaInloc_distanceDeconfigMembership_t;

// Tracking of one device by its address (addr); the other byte strings and values identify it
// further to the service. keyData is read with keyLen bytes, as key is.
typedef struct {
    uint32_t addrLen;
    const uint8_t* addr;
    uint32_t option8;
    uint32_t identityLen;
    const uint8_t* identity;
    uint32_t option20;
    uint32_t keyLen;
    const uint8_t* key;
    const uint8_t* keyData;
    uint32_t option36;
    uint32_t option40;
    uint32_t wordCount;
    const uint16_t* words;
    uint32_t option52;
    uint32_t option56;
    uint32_t option60;
    uint32_t value;
    uint32_t option68;
} ixaInloc_distanceConfigDevice_t;

typedef struct {
    uint32_t addrLen;
    const uint8_t* addr;
    uint32_t option8;
    uint32_t identityLen;
    const uint8_t* identity;
    uint32_t option20;
    uint32_t keyLen;
    const uint8_t* key;
    const uint8_t* keyData;
    uint32_t option36;
    uint32_t option40;
    uint32_t wordCount;
    const uint16_t* words;
    uint32_t option52;
} ixaInloc_distanceDeconfigDevice_t;

// A distance report for one device.
typedef struct {
    uint32_t reserved0;
    uint32_t reserved4;
    uint32_t reportKind;  // IXA_INLOC_REPORT_BUCKETED: a range bucket
    uint8_t flags;        // IXA_INLOC_EVENT_HAS_...
    uint8_t reserved13[19];
    uint16_t advDataLen;
    const uint8_t* advData;  // length-prefixed AD structures
    uint8_t bucketCount;
    const uint16_t* buckets;  // upper bounds of the buckets, ascending
    uint8_t bucketIndex;      // IXA_INLOC_BUCKET_UNKNOWN if not known
    uint8_t reserved49[7];
    int16_t accumulatedDistance;
    uint8_t reserved58[4];
    uint16_t sampleCount;
} ixaInloc_distanceEvent_t;

// Per-membership result of enabling or disabling tracking.
typedef struct {
    ixa_status_t status;
    ixaInloc_membership_t membership;
} ixaInloc_distanceConfigMembershipResult_t;

// Per-device results: of enabling or disabling tracking, of a ring request, of a change of the
// device's notifications.
typedef struct {
    ixa_status_t status;
    uint32_t reserved4;
    ixaInloc_deviceAddr_t deviceAddr;
} ixaInloc_distanceConfigDeviceResult_t;
typedef ixaInloc_distanceConfigDeviceResult_t ixaInloc_distanceRingDeviceResult_t;
typedef ixaInloc_distanceConfigDeviceResult_t ixaInloc_distanceDeviceNotificationControlResult_t;

typedef struct {
    void (*initialized)(ixa_status_t status);
    void (*statusChanged)(ixaInloc_adapterStatus_t status);
} ixaInloc_adapterCallbacks_t;

typedef struct {
    void (*clientRegistered)(ixa_status_t status);
    void (*reserved)(void);  // null
    void (*trackingByMembershipEnabled)(uint8_t count,
                                        ixaInloc_distanceConfigMembershipResult_t* results);
    void (*trackingByMembershipDisabled)(uint8_t count,
                                         ixaInloc_distanceConfigMembershipResult_t* results);
    void (*notificationStopped)(ixaInloc_distanceDeviceNotificationControlResult_t* result);
    void (*notificationRestarted)(ixaInloc_distanceDeviceNotificationControlResult_t* result);
    void (*trackingByAddrEnabled)(uint8_t count, ixaInloc_distanceConfigDeviceResult_t* results);
    void (*trackingByAddrDisabled)(uint8_t count, ixaInloc_distanceConfigDeviceResult_t* results);
    void (*ringDevice)(uint8_t count, ixaInloc_distanceRingDeviceResult_t* results);
    void (*distanceTracking)(ixa_status_t status, ixaInloc_distanceEvent_t* event,
                             ixaInloc_membership_t* membership, ixaInloc_deviceAddr_t* deviceAddr);
} ixaInloc_distanceClientCallbacks_t;

// Initialises the adapter; the result arrives through callbacks->initialized, later changes of
// the adapter's state through callbacks->statusChanged.
ixa_status_t ixaInloc_adapterInit(uint32_t version, const ixaInloc_adapterCallbacks_t* callbacks);
// Registers the distance client; the result arrives through callbacks->clientRegistered.
ixa_status_t ixaInloc_distanceRegisterClient(const ixaInloc_distanceClientCallbacks_t* callbacks);
ixa_status_t ixaInloc_distanceEnableTrackingByMembership(
    uint32_t count, const ixaInloc_distanceConfigMembership_t* entries);
ixa_status_t ixaInloc_distanceDisableTrackingByMembership(
    uint32_t count, const ixaInloc_distanceDeconfigMembership_t* entries);
ixa_status_t ixaInloc_distanceEnableTrackingByDeviceAddr(
    uint32_t count, const ixaInloc_distanceConfigDevice_t* devices);
ixa_status_t ixaInloc_distanceDisableTrackingByDeviceAddr(
    uint32_t count, const ixaInloc_distanceDeconfigDevice_t* devices);
ixa_status_t ixaInloc_distanceRingDeviceByDeviceAddr(uint32_t count,
                                                     const ixaInloc_deviceAddr_t* devices);

// --- the device's layouts ---------------------------------------------------------------------

#ifdef __cplusplus
#define IXA_INLOC_LAYOUT(condition, what) static_assert(condition, what)
#else
#define IXA_INLOC_LAYOUT(condition, what) _Static_assert(condition, what)
#endif

#if UINTPTR_MAX == 0xFFFFFFFFu
#define IXA_INLOC_AT(type, field, offset) \
    IXA_INLOC_LAYOUT(offsetof(type, field) == (offset), #type "." #field " at " #offset)
#define IXA_INLOC_SIZE(type, size) IXA_INLOC_LAYOUT(sizeof(type) == (size), #type " size")

IXA_INLOC_SIZE(ixaInloc_deviceAddr_t, 8);
IXA_INLOC_AT(ixaInloc_deviceAddr_t, len, 0);
IXA_INLOC_AT(ixaInloc_deviceAddr_t, addr, 4);

IXA_INLOC_SIZE(ixaInloc_membership_t, 12);
IXA_INLOC_AT(ixaInloc_membership_t, kind, 0);
IXA_INLOC_AT(ixaInloc_membership_t, len, 4);
IXA_INLOC_AT(ixaInloc_membership_t, data, 8);

IXA_INLOC_SIZE(ixaInloc_distanceConfigMembership_t, 64);
IXA_INLOC_AT(ixaInloc_distanceConfigMembership_t, membership.kind, 0);
IXA_INLOC_AT(ixaInloc_distanceConfigMembership_t, membership.len, 4);
IXA_INLOC_AT(ixaInloc_distanceConfigMembership_t, membership.data, 8);
IXA_INLOC_AT(ixaInloc_distanceConfigMembership_t, option16, 16);
IXA_INLOC_AT(ixaInloc_distanceConfigMembership_t, option20, 20);
IXA_INLOC_AT(ixaInloc_distanceConfigMembership_t, option24, 24);
IXA_INLOC_AT(ixaInloc_distanceConfigMembership_t, option28, 28);
IXA_INLOC_AT(ixaInloc_distanceConfigMembership_t, option32, 32);
IXA_INLOC_AT(ixaInloc_distanceConfigMembership_t, option36, 36);
IXA_INLOC_AT(ixaInloc_distanceConfigMembership_t, option40, 40);
IXA_INLOC_AT(ixaInloc_distanceConfigMembership_t, option44, 44);
IXA_INLOC_AT(ixaInloc_distanceConfigMembership_t, option48, 48);
IXA_INLOC_AT(ixaInloc_distanceConfigMembership_t, option52, 52);
IXA_INLOC_AT(ixaInloc_distanceConfigMembership_t, option56, 56);
IXA_INLOC_AT(ixaInloc_distanceConfigMembership_t, option60, 60);

IXA_INLOC_SIZE(ixaInloc_distanceDeconfigMembership_t, 48);
IXA_INLOC_AT(ixaInloc_distanceDeconfigMembership_t, membership.kind, 0);
IXA_INLOC_AT(ixaInloc_distanceDeconfigMembership_t, membership.len, 4);
IXA_INLOC_AT(ixaInloc_distanceDeconfigMembership_t, membership.data, 8);
IXA_INLOC_AT(ixaInloc_distanceDeconfigMembership_t, option16, 16);
IXA_INLOC_AT(ixaInloc_distanceDeconfigMembership_t, option36, 36);
IXA_INLOC_AT(ixaInloc_distanceDeconfigMembership_t, option40, 40);
IXA_INLOC_AT(ixaInloc_distanceDeconfigMembership_t, option44, 44);

IXA_INLOC_SIZE(ixaInloc_distanceConfigDevice_t, 72);
IXA_INLOC_AT(ixaInloc_distanceConfigDevice_t, addrLen, 0);
IXA_INLOC_AT(ixaInloc_distanceConfigDevice_t, addr, 4);
IXA_INLOC_AT(ixaInloc_distanceConfigDevice_t, option8, 8);
IXA_INLOC_AT(ixaInloc_distanceConfigDevice_t, identityLen, 12);
IXA_INLOC_AT(ixaInloc_distanceConfigDevice_t, identity, 16);
IXA_INLOC_AT(ixaInloc_distanceConfigDevice_t, option20, 20);
IXA_INLOC_AT(ixaInloc_distanceConfigDevice_t, keyLen, 24);
IXA_INLOC_AT(ixaInloc_distanceConfigDevice_t, key, 28);
IXA_INLOC_AT(ixaInloc_distanceConfigDevice_t, keyData, 32);
IXA_INLOC_AT(ixaInloc_distanceConfigDevice_t, option36, 36);
IXA_INLOC_AT(ixaInloc_distanceConfigDevice_t, option40, 40);
IXA_INLOC_AT(ixaInloc_distanceConfigDevice_t, wordCount, 44);
IXA_INLOC_AT(ixaInloc_distanceConfigDevice_t, words, 48);
IXA_INLOC_AT(ixaInloc_distanceConfigDevice_t, option52, 52);
IXA_INLOC_AT(ixaInloc_distanceConfigDevice_t, option56, 56);
IXA_INLOC_AT(ixaInloc_distanceConfigDevice_t, option60, 60);
IXA_INLOC_AT(ixaInloc_distanceConfigDevice_t, value, 64);
IXA_INLOC_AT(ixaInloc_distanceConfigDevice_t, option68, 68);

IXA_INLOC_SIZE(ixaInloc_distanceDeconfigDevice_t, 56);
IXA_INLOC_AT(ixaInloc_distanceDeconfigDevice_t, keyData, 32);
IXA_INLOC_AT(ixaInloc_distanceDeconfigDevice_t, wordCount, 44);
IXA_INLOC_AT(ixaInloc_distanceDeconfigDevice_t, words, 48);
IXA_INLOC_AT(ixaInloc_distanceDeconfigDevice_t, option52, 52);

IXA_INLOC_SIZE(ixaInloc_distanceEvent_t, 64);
IXA_INLOC_AT(ixaInloc_distanceEvent_t, reportKind, 8);
IXA_INLOC_AT(ixaInloc_distanceEvent_t, flags, 12);
IXA_INLOC_AT(ixaInloc_distanceEvent_t, advDataLen, 32);
IXA_INLOC_AT(ixaInloc_distanceEvent_t, advData, 36);
IXA_INLOC_AT(ixaInloc_distanceEvent_t, bucketCount, 40);
IXA_INLOC_AT(ixaInloc_distanceEvent_t, buckets, 44);
IXA_INLOC_AT(ixaInloc_distanceEvent_t, bucketIndex, 48);
IXA_INLOC_AT(ixaInloc_distanceEvent_t, accumulatedDistance, 56);
IXA_INLOC_AT(ixaInloc_distanceEvent_t, sampleCount, 62);

IXA_INLOC_SIZE(ixaInloc_distanceConfigMembershipResult_t, 16);
IXA_INLOC_SIZE(ixaInloc_distanceConfigDeviceResult_t, 16);
IXA_INLOC_AT(ixaInloc_distanceConfigDeviceResult_t, status, 0);
IXA_INLOC_AT(ixaInloc_distanceConfigDeviceResult_t, deviceAddr, 8);

IXA_INLOC_SIZE(ixaInloc_adapterCallbacks_t, 8);
IXA_INLOC_SIZE(ixaInloc_distanceClientCallbacks_t, 40);
IXA_INLOC_AT(ixaInloc_distanceClientCallbacks_t, reserved, 4);
IXA_INLOC_AT(ixaInloc_distanceClientCallbacks_t, distanceTracking, 36);

#undef IXA_INLOC_AT
#undef IXA_INLOC_SIZE
#endif

#undef IXA_INLOC_LAYOUT

#ifdef __cplusplus
}
#endif
