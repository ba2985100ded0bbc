#pragma once

#include <cstdint>
#include <vector>

#include "tracker/bluetooth/TrackerBleTypes.h"

namespace tracker {
namespace util {
namespace bluetooth {

// GATT values handed to clients; plain values like the rest of the Bluetooth model.

// One characteristic.
struct TrackerGattRecord {
    TrackerUuid uuid;
};

struct TrackerGattService {
    TrackerUuid uuid;
    std::vector<TrackerGattRecord> characteristics;  // in the platform's order
};

// What service discovery found, handed out as shared_ptr<TrackerGattServices>.
struct TrackerGattServices {
    std::vector<TrackerGattService> services;
};

struct TrackerCharacteristicValue {
    std::vector<uint8_t> value;
    bool m_fromDescriptor = false;  // the value answers a descriptor operation
    bool m_notificationOn = false;  // notifications are on for the characteristic
};

}  // namespace bluetooth
}  // namespace util
}  // namespace tracker
