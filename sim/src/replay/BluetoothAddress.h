#pragma once

#include <cstdint>
#include <string>

namespace tracker {
namespace sim {

// Converts between a device address as it travels in HCI and link-layer packets (six bytes,
// least significant first) and as people write it ("AA:BB:CC:DD:EE:FF", most significant first).

// `wire` points at six bytes.
inline std::string formatAddress(const uint8_t* wire) {
    static const char kHex[] = "0123456789ABCDEF";
    std::string text(17, ':');
    for (int i = 0; i < 6; ++i) {
        const uint8_t byte = wire[5 - i];
        text[static_cast<std::size_t>(i) * 3] = kHex[byte >> 4];
        text[static_cast<std::size_t>(i) * 3 + 1] = kHex[byte & 0x0F];
    }
    return text;
}

// Fills `wire` (six bytes) from "AA:BB:CC:DD:EE:FF" in either case; false, with `wire` perhaps
// partly filled, for anything else.
inline bool parseAddress(const std::string& text, uint8_t* wire) {
    if (text.size() != 17) {
        return false;
    }
    auto nibble = [](char c) -> int {
        if (c >= '0' && c <= '9') {
            return c - '0';
        }
        if (c >= 'a' && c <= 'f') {
            return c - 'a' + 10;
        }
        if (c >= 'A' && c <= 'F') {
            return c - 'A' + 10;
        }
        return -1;
    };
    for (int i = 0; i < 6; ++i) {
        const std::size_t at = static_cast<std::size_t>(i) * 3;
        const int high = nibble(text[at]);
        const int low = nibble(text[at + 1]);
        if (high < 0 || low < 0 || (i < 5 && text[at + 2] != ':')) {
            return false;
        }
        wire[5 - i] = static_cast<uint8_t>(high << 4 | low);
    }
    return true;
}

}  // namespace sim
}  // namespace tracker
