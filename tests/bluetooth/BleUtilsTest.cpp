#include "tracker/bluetooth/BleUtils.h"

#include <gtest/gtest.h>

#include <cctype>

namespace tracker {
namespace util {
namespace bluetooth {
namespace {

using Bytes = std::vector<uint8_t>;

const Bytes kBattery16 = {0x00, 0x00, 0x18, 0x0F, 0x00, 0x00, 0x10, 0x00,
                          0x80, 0x00, 0x00, 0x80, 0x5F, 0x9B, 0x34, 0xFB};

TEST(BleUtils, ShortUuidsWidenWithTheBaseUuid) {
    EXPECT_EQ(BleUtils::unifyUUID({0x18, 0x0F}), kBattery16);
    EXPECT_EQ(BleUtils::unifyUUID({0x00, 0x00, 0x18, 0x0F}), kBattery16);
    // All four bytes of the 4-byte form are kept, the first two included.
    EXPECT_EQ(BleUtils::getUuidString({BleUtils::unifyUUID({0x12, 0x34, 0x56, 0x78})}),
              "12345678-0000-1000-8000-00805f9b34fb");
    EXPECT_EQ(BleUtils::unifyUUID({0x00, 0x00, 0x00, 0x00}), BleUtils::BASE_UUID);
    EXPECT_EQ(BleUtils::unifyUUID(kBattery16), kBattery16);
    Bytes custom(16);
    custom[0] = 0xAB;
    EXPECT_EQ(BleUtils::unifyUUID(custom), custom);
    for (std::size_t length : {0, 1, 3, 5, 15, 17}) {
        EXPECT_TRUE(BleUtils::unifyUUID(Bytes(length, 1)).empty()) << length;
    }

    EXPECT_TRUE(BleUtils::uuidCompare({{0x18, 0x0F}}, {kBattery16}));
    EXPECT_TRUE(BleUtils::uuidCompare({{0x00, 0x00, 0x18, 0x0F}}, {{0x18, 0x0F}}));
    EXPECT_FALSE(BleUtils::uuidCompare({{0x18, 0x0F}}, {{0x18, 0x0E}}));
    EXPECT_FALSE(BleUtils::uuidCompare({{1, 2, 3}}, {{1, 2, 3}})) << "malformed never equal";
    EXPECT_FALSE(BleUtils::uuidCompare({{}}, {{}}));
}

TEST(BleUtils, PrintsDataUpperCaseAndUuidsLowerCase) {
    EXPECT_EQ(BleUtils::getDataString({0xAA, 0x0B}), "AA:0B");
    EXPECT_EQ(BleUtils::getDataString({0x05}), "05");
    EXPECT_EQ(BleUtils::getDataString({}), "");

    EXPECT_EQ(BleUtils::getUuidString({{0xFE, 0xAA}}), "feaa");
    EXPECT_EQ(BleUtils::getUuidString({{0x00, 0x00, 0xFE, 0xAA}}), "0000feaa");
    const std::string full = BleUtils::getUuidString({kBattery16});
    EXPECT_EQ(full, "0000180f-0000-1000-8000-00805f9b34fb");
    for (std::size_t length : {0, 1, 3, 15, 17}) {
        EXPECT_EQ(BleUtils::getUuidString({Bytes(length, 0xAB)}), "") << length;
    }
}

TEST(BleUtils, AddressesParseFromBothTextFormsAndGarbageYieldsZeros) {
    const auto colons = BleUtils::stringToTrackerDeviceAddr("aa:bb:cc:dd:ee:ff");
    const auto plain = BleUtils::stringToTrackerDeviceAddr("AABBCCDDEEFF");
    ASSERT_TRUE(colons && plain);
    EXPECT_EQ(colons->addr, (Bytes{0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF}));
    EXPECT_EQ(plain->addr, colons->addr);
    EXPECT_EQ(BleUtils::getBleAddress(colons), "AA:BB:CC:DD:EE:FF");
    EXPECT_EQ(BleUtils::getBleAddress(*plain), "AA:BB:CC:DD:EE:FF");
    EXPECT_EQ(BleUtils::getBleAddress(std::shared_ptr<TrackerDeviceAddr>()), "");

    EXPECT_EQ(BleUtils::stringToTrackerDeviceAddr(nullptr), nullptr);
    // Whatever cannot be read stays 0; the result always has six bytes.
    EXPECT_EQ(BleUtils::stringToTrackerDeviceAddr("")->addr, Bytes(6, 0));
    EXPECT_EQ(BleUtils::stringToTrackerDeviceAddr("zz:zz")->addr, Bytes(6, 0));
    EXPECT_EQ(BleUtils::stringToTrackerDeviceAddr("12:34")->addr, (Bytes{0x12, 0, 0, 0, 0, 0}));
    EXPECT_EQ(BleUtils::stringToTrackerDeviceAddr("11:22:33:44:55:6")->addr,
              (Bytes{0x11, 0x22, 0x33, 0x44, 0x55, 0x06}));
    EXPECT_EQ(BleUtils::stringToTrackerDeviceAddr("1122")->addr, (Bytes{0x11, 0x22, 0, 0, 0, 0}));
}

TEST(BleUtils, ObfuscationKeepsOnlyTheLastTwoFields) {
    EXPECT_EQ(BleUtils::getObfuscatedAddress("AA:BB:CC:DD:EE:FF"), "MAC:EE:FF");
    EXPECT_EQ(BleUtils::getObfuscatedAddress("1:2:3"), "NonMAC:2:3");
    EXPECT_EQ(BleUtils::getObfuscatedAddress("1:2"), "NonMAC:1:2");
    EXPECT_EQ(BleUtils::getObfuscatedAddress("1:2:3:4:5:6:7"), "NonMAC:6:7");
    EXPECT_EQ(BleUtils::getObfuscatedAddress("ABC"), "ABC");
    EXPECT_EQ(BleUtils::getObfuscatedAddress(""), "");
    EXPECT_EQ(BleUtils::getObfuscatedAddress("AABBCCDDEEFF"), "AABBCCDDEEFF");
}

TEST(BleUtils, MaskedMatchingNeverReadsPastTheShorterVector) {
    const Bytes filter = {0x01, 0x71, 0xAA};
    // Empty mask: exact, so a longer payload does not match.
    EXPECT_TRUE(BleUtils::matchMaskedData({0x01, 0x71, 0xAA}, filter, {}));
    EXPECT_FALSE(BleUtils::matchMaskedData({0x01, 0x71, 0xAA, 0x00}, filter, {}));
    // A full mask compares the filter's bytes only, so a longer payload matches.
    EXPECT_TRUE(BleUtils::matchMaskedData({0x01, 0x71, 0xAA, 0x00}, filter, {0xFF, 0xFF, 0xFF}));
    EXPECT_FALSE(BleUtils::matchMaskedData({0x01, 0x71, 0xAB}, filter, {0xFF, 0xFF, 0xFF}));
    // Masked-out bits may differ.
    EXPECT_TRUE(BleUtils::matchMaskedData({0x01, 0x71, 0xAB}, filter, {0xFF, 0xFF, 0xF0}));
    EXPECT_TRUE(BleUtils::matchMaskedData({0x99, 0x99, 0x99}, filter, {0x00, 0x00, 0x00}));
    // Data or mask shorter than the filter: a mismatch, not a read beyond them.
    EXPECT_FALSE(BleUtils::matchMaskedData({0x01, 0x71}, filter, {0xFF, 0xFF, 0xFF}));
    EXPECT_FALSE(BleUtils::matchMaskedData({0x01, 0x71, 0xAA}, filter, {0xFF}));
    EXPECT_FALSE(BleUtils::matchMaskedData({}, filter, {0xFF, 0xFF, 0xFF}));
    EXPECT_FALSE(BleUtils::matchMaskedData(filter, {}, {}));
}

TEST(BleUtils, FiltersMatchWidenedUuidsAndCompanyIdsUnderTheirMasks) {
    // A short UUID filter matches the long form of the same UUID, and nothing else.
    EXPECT_TRUE(BleUtils::matchUuidFilter({{0x18, 0x0F}, {}}, {kBattery16}));
    EXPECT_FALSE(BleUtils::matchUuidFilter({{0x18, 0x0F}, {}}, {{0x18, 0x0E}}));
    // A short mask widens like a UUID: the base bits in its tail are compared too.
    EXPECT_TRUE(BleUtils::matchUuidFilter({{0x18, 0x00}, {0xFF, 0x00}}, {{0x18, 0x42}}));
    Bytes custom = kBattery16;
    custom[15] = 0x00;  // differs from the base UUID in its tail
    EXPECT_FALSE(BleUtils::matchUuidFilter({{0x18, 0x00}, {0xFF, 0x00}}, {custom}));
    // Malformed UUIDs never match.
    EXPECT_FALSE(BleUtils::matchUuidFilter({{1, 2, 3}, {}}, {{1, 2, 3}}));

    const TrackerScanFilterManuData company = {{0x01, 0x71, 0x02}, {0xFF, 0xFF, 0x00}};
    EXPECT_TRUE(BleUtils::matchManuDataFilter(company, {{0x01, 0x71, 0x09, 0x10}}));
    EXPECT_FALSE(BleUtils::matchManuDataFilter(company, {{0x01, 0x72, 0x02}}));
    EXPECT_FALSE(BleUtils::matchManuDataFilter(company, {{0x01}}));
}

}  // namespace
}  // namespace bluetooth
}  // namespace util
}  // namespace tracker
