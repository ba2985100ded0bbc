#pragma once

#include <chrono>
#include <cstdint>
#include <utility>
#include <vector>

#include "bluetooth/World.h"

namespace tracker {
namespace sim {
namespace testtags {

// Tags and advertisements the simulator's tests share.

using Bytes = std::vector<uint8_t>;

constexpr const char* kEddystone = "C0:FF:EE:00:00:01";
constexpr const char* kCompany = "C0:FF:EE:00:00:02";
constexpr const char* kOther = "C0:FF:EE:00:00:03";

// Flags, the 16-bit service 0xFEAA and service data for it.
inline const Bytes kEddystoneAd = {0x02, 0x01, 0x06, 0x03, 0x03, 0xAA, 0xFE,
                                   0x05, 0x16, 0xAA, 0xFE, 0x10, 0x20};
// Manufacturer data of company 0x0171.
inline const Bytes kCompanyAd = {0x02, 0x01, 0x06, 0x05, 0xFF, 0x71, 0x01, 0xAA, 0xBB};
inline const Bytes kOtherAd = {0x03, 0x03, 0x0F, 0x18};

inline TagSpec tagAt(const char* address, Bytes advertisement, double metres = 1.0) {
    TagSpec tag;
    tag.address = address;
    tag.advertisement = std::move(advertisement);
    tag.distance = {{std::chrono::milliseconds(0), metres}};
    return tag;
}

}  // namespace testtags
}  // namespace sim
}  // namespace tracker
