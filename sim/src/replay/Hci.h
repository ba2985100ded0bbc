#pragma once

#include <cstdint>
#include <string>

namespace tracker {
namespace sim {
namespace hci {

// What the capture readers and the btsnoop writer share: the values of the HCI packets and the
// btsnoop records they read and write.

constexpr uint8_t kH4Command = 0x01;  // H4 packet types
constexpr uint8_t kH4Event = 0x04;

constexpr uint8_t kLeMetaEvent = 0x3E;
constexpr uint8_t kLeAdvertisingReport = 0x02;  // LE Meta subevents
constexpr uint8_t kLeExtendedAdvertisingReport = 0x0D;

// Data status of an extended report, bits 5-6 of its event type.
constexpr unsigned kDataStatusShift = 5;
constexpr unsigned kComplete = 0;
constexpr unsigned kMoreToCome = 1;

constexpr uint32_t kBtsnoopHci = 1001;  // btsnoop datalinks: HCI without the type byte, H4
constexpr uint32_t kBtsnoopH4 = 1002;
constexpr uint32_t kBtsnoopCommandOrEvent = 0x2;  // btsnoop record flags
constexpr uint32_t kBtsnoopReceived = 0x1;

// Sets *error when the caller asked for it.
inline void setError(std::string* error, std::string message) {
    if (error != nullptr) {
        *error = std::move(message);
    }
}

}  // namespace hci
}  // namespace sim
}  // namespace tracker
