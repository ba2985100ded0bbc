#include "tracker/bluetooth/BleUtils.h"

#include <array>
#include <cstdio>
#include <cstring>

#include "tracker/util/StringUtils.h"

namespace tracker {
namespace util {
namespace bluetooth {

namespace {

constexpr std::size_t kFullUuidLength = 16;
constexpr std::size_t kAddressLength = 6;

// Bytes 4 to 15 of BASE_UUID, which follow every short form. A constant, not BASE_UUID itself:
// that vector is built during static initialisation, and a static initialiser elsewhere that
// widens a UUID could run before it.
constexpr std::array<uint8_t, 12> kBaseUuidTail = {0x00, 0x00, 0x10, 0x00, 0x80, 0x00,
                                                   0x00, 0x80, 0x5F, 0x9B, 0x34, 0xFB};

std::vector<uint8_t> widen(const std::vector<uint8_t>& head) {
    std::vector<uint8_t> full(head);
    full.insert(full.end(), kBaseUuidTail.begin(), kBaseUuidTail.end());
    return full;
}

}  // namespace

const std::vector<uint8_t> BleUtils::BASE_UUID = {0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x10, 0x00,
                                                  0x80, 0x00, 0x00, 0x80, 0x5F, 0x9B, 0x34, 0xFB};

std::vector<uint8_t> BleUtils::unifyUUID(std::vector<uint8_t> uuid) {
    switch (uuid.size()) {
        case 2:
            return widen({0x00, 0x00, uuid[0], uuid[1]});
        case 4:
            return widen(uuid);
        case kFullUuidLength:
            return uuid;
        default:
            return {};
    }
}

bool BleUtils::uuidCompare(const TrackerUuid& a, const TrackerUuid& b) {
    const std::vector<uint8_t> wideA = unifyUUID(a.uuid);
    return !wideA.empty() && wideA == unifyUUID(b.uuid);
}

std::string BleUtils::getBleAddress(const std::shared_ptr<TrackerDeviceAddr>& addr) {
    return addr ? getBleAddress(*addr) : std::string();
}

std::string BleUtils::getBleAddress(const TrackerDeviceAddr& addr) {
    return getDataString(addr.addr);
}

std::string BleUtils::getDataString(std::vector<uint8_t> bytes) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(bytes.size() * 3);
    for (uint8_t byte : bytes) {
        if (!text.empty()) {
            text += ':';
        }
        text += kDigits[byte >> 4];
        text += kDigits[byte & 0x0F];
    }
    return text;
}

std::shared_ptr<TrackerDeviceAddr> BleUtils::stringToTrackerDeviceAddr(const char* text) {
    if (text == nullptr) {
        return nullptr;
    }
    // Colons are looked for only within the text.
    const std::size_t length = std::strlen(text);
    bool separated = length > 14;
    for (std::size_t position = 2; separated && position <= 14; position += 3) {
        separated = text[position] == ':';
    }
    unsigned char b[kAddressLength] = {0, 0, 0, 0, 0, 0};
    if (separated) {
        std::sscanf(text, "%2hhx:%2hhx:%2hhx:%2hhx:%2hhx:%2hhx", &b[0], &b[1], &b[2], &b[3], &b[4],
                    &b[5]);
    } else {
        std::sscanf(text, "%2hhx%2hhx%2hhx%2hhx%2hhx%2hhx", &b[0], &b[1], &b[2], &b[3], &b[4],
                    &b[5]);
    }
    auto address = std::make_shared<TrackerDeviceAddr>();
    address->addr.assign(b, b + kAddressLength);
    return address;
}

std::string BleUtils::getObfuscatedAddress(const std::string& address) {
    const std::vector<std::string> fields = StringUtils::split(address, ':');
    if (fields.size() < 2) {
        return address;
    }
    const std::string tail = fields[fields.size() - 2] + ":" + fields.back();
    return (fields.size() == kAddressLength ? "MAC:" : "NonMAC:") + tail;
}

std::string BleUtils::getUuidString(TrackerUuid uuid) {
    const std::vector<uint8_t>& b = uuid.uuid;
    char text[40];
    switch (b.size()) {
        case 2:
            std::snprintf(text, sizeof text, "%02x%02x", b[0], b[1]);
            return text;
        case 4:
            std::snprintf(text, sizeof text, "%02x%02x%02x%02x", b[0], b[1], b[2], b[3]);
            return text;
        case kFullUuidLength:
            std::snprintf(text, sizeof text,
                          "%02x%02x%02x%02x-%02x%02x-%02x%02x-%02x%02x-%02x%02x%02x%02x%02x%02x",
                          b[0], b[1], b[2], b[3], b[4], b[5], b[6], b[7], b[8], b[9], b[10], b[11],
                          b[12], b[13], b[14], b[15]);
            return text;
        default:
            return {};
    }
}

bool BleUtils::matchMaskedData(const std::vector<uint8_t>& data,
                               const std::vector<uint8_t>& filterData,
                               const std::vector<uint8_t>& mask) {
    if (data.empty() || filterData.empty()) {
        return false;
    }
    if (mask.empty()) {
        return data == filterData;
    }
    if (data.size() < filterData.size() || mask.size() < filterData.size()) {
        return false;
    }
    for (std::size_t i = 0; i < filterData.size(); ++i) {
        if ((mask[i] & (data[i] ^ filterData[i])) != 0) {
            return false;
        }
    }
    return true;
}

bool BleUtils::matchUuidFilter(const TrackerScanFilterUuid& filter, const TrackerUuid& uuid) {
    return matchMaskedData(unifyUUID(uuid.uuid), unifyUUID(filter.uuid), unifyUUID(filter.mask));
}

bool BleUtils::matchManuDataFilter(const TrackerScanFilterManuData& filter,
                                   const TrackerManuData& manuData) {
    return matchMaskedData(manuData.data, filter.data, filter.mask);
}

}  // namespace bluetooth
}  // namespace util
}  // namespace tracker
