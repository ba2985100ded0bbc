// The platform's parcelable Bluetooth values: UUID text, advertisement UUID parsing and the
// characteristic's log text.

#include <android/bluetooth/BluetoothGattCharacteristic.h>
#include <android/bluetooth/BluetoothUuid.h>
#include <android/os/ParcelUuid.h>

#include <cctype>
#include <cstdio>
#include <functional>

namespace android {
namespace os {

namespace {

// Positions of the hyphens in "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx".
bool isHyphenPosition(std::size_t index) {
    return index == 8 || index == 13 || index == 18 || index == 23;
}

int hexValue(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    const char lower = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

}  // namespace

ParcelUuid ParcelUuid::fromString(const std::string& text) {
    if (text.size() != 36) {
        return {};
    }
    uint64_t halves[2] = {0, 0};
    int digits = 0;
    for (std::size_t index = 0; index < text.size(); ++index) {
        if (isHyphenPosition(index)) {
            if (text[index] != '-') {
                return {};
            }
            continue;
        }
        const int value = hexValue(text[index]);
        if (value < 0) {
            return {};
        }
        uint64_t& half = halves[digits / 16];
        half = (half << 4) | static_cast<uint64_t>(value);
        ++digits;
    }
    return ParcelUuid(static_cast<int64_t>(halves[0]), static_cast<int64_t>(halves[1]));
}

std::string ParcelUuid::toString() const {
    const auto msb = static_cast<uint64_t>(m_msb);
    const auto lsb = static_cast<uint64_t>(m_lsb);
    char text[37];
    std::snprintf(text, sizeof text, "%08llx-%04llx-%04llx-%04llx-%012llx",
                  static_cast<unsigned long long>(msb >> 32),
                  static_cast<unsigned long long>((msb >> 16) & 0xFFFF),
                  static_cast<unsigned long long>(msb & 0xFFFF),
                  static_cast<unsigned long long>(lsb >> 48),
                  static_cast<unsigned long long>(lsb & 0xFFFFFFFFFFFFULL));
    return text;
}

std::size_t ParcelUuidHasher::operator()(const ParcelUuid& uuid) const {
    const std::size_t high = std::hash<int64_t>()(uuid.getMostSignificantBits());
    const std::size_t low = std::hash<int64_t>()(uuid.getLeastSignificantBits());
    return high ^ (low + 0x9e3779b97f4a7c15ULL + (high << 6) + (high >> 2));
}

}  // namespace os

namespace bluetooth {

namespace {
// The base UUID 00000000-0000-1000-8000-00805F9B34FB.
constexpr uint64_t kBaseMsb = 0x0000000000001000ULL;
constexpr uint64_t kBaseLsb = 0x800000805F9B34FBULL;
}  // namespace

os::ParcelUuid BluetoothUuid::parseUuidFrom(const std::vector<uint8_t>& bytes) {
    // Advertisements carry UUIDs least significant byte first.
    auto littleEndian = [&](std::size_t from, std::size_t count) {
        uint64_t value = 0;
        for (std::size_t i = count; i > 0; --i) {
            value = (value << 8) | bytes[from + i - 1];
        }
        return value;
    };
    switch (bytes.size()) {
        case 2:
        case 4:
            return os::ParcelUuid(
                static_cast<int64_t>(kBaseMsb | (littleEndian(0, bytes.size()) << 32)),
                static_cast<int64_t>(kBaseLsb));
        case 16:
            return os::ParcelUuid(static_cast<int64_t>(littleEndian(8, 8)),
                                  static_cast<int64_t>(littleEndian(0, 8)));
        default:
            return {};
    }
}

std::string BluetoothGattCharacteristic::toString() const {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string value;
    if (m_value) {
        for (uint8_t byte : m_value->getBytes()) {
            if (!value.empty()) {
                value += ':';
            }
            value += kDigits[byte >> 4];
            value += kDigits[byte & 0x0F];
        }
    }
    char properties[8];
    std::snprintf(properties, sizeof properties, "0x%02x", m_properties & 0xFF);
    return "BluetoothGattCharacteristic{uuid=" + m_uuid.toString() + ", properties=" + properties +
           ", value=" + (m_value ? value : "null") + "}";
}

}  // namespace bluetooth
}  // namespace android
