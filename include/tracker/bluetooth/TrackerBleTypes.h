#pragma once

#include <cstdint>
#include <memory>
#include <vector>

namespace tracker {
namespace util {
namespace bluetooth {

// The library's Bluetooth values. Plain values: copyable and movable, shared between threads
// only by copy or through shared_ptr.

// A UUID's bytes, most significant first. 16 bytes when well formed; 2- and 4-byte short forms
// are widened with the base UUID (BleUtils::unifyUUID).
struct TrackerUuid {
    std::vector<uint8_t> uuid;
};

// A device address's bytes in written order ("AA:BB:..." gives AA first); 6 for Bluetooth.
// Empty when no address is known.
struct TrackerDeviceAddr {
    std::vector<uint8_t> addr;
};

// One received advertisement.
struct TrackerScanRecord {
    std::shared_ptr<TrackerDeviceAddr> address;
    int32_t rssi = 0;                 // dBm
    std::vector<uint8_t> scanRecord;  // the raw advertisement bytes
};

// Manufacturer-specific data: the 16-bit company identifier high byte first, then the payload.
struct TrackerManuData {
    std::vector<uint8_t> data;
};

// What travels beside a TrackerScanRecord to the client whose filter it matched.
struct TrackerExtraBeaconData {
    TrackerUuid uuid;                       // the first service UUID the advertisement lists
    std::vector<TrackerManuData> manuData;  // the advertisement's manufacturer data
    std::vector<uint8_t> serviceData;       // stored under that first UUID; empty if none
    int32_t extraValue = INT32_MIN;         // never filled by the library: INT32_MIN is "not set"
};

// The library's status. Clients compare against TRACKER_SUCCESS only.
enum TrackerStatus : int32_t {
    TRACKER_SUCCESS = 0,
    // The platform reported a failure it names (a connection that could not be established or
    // timed out; any InLoc platform failure).
    TRACKER_FAILURE = 1,
    // Any other platform status.
    TRACKER_ERROR = -1,
};

// The scan instance handed to the platform when the beacon scan starts and stops and logged with
// every result; every beacon scan is instance 0.
extern const uint64_t g_scanId;

}  // namespace bluetooth
}  // namespace util
}  // namespace tracker
