#include <android/bluetooth/BluetoothUuid.h>
#include <android/bluetooth/le/ScanRecord.h>
#include <gtest/gtest.h>

namespace android {
namespace bluetooth {
namespace le {
namespace {

using Bytes = std::vector<uint8_t>;
using os::ParcelUuid;

ParcelUuid uuid(const char* text) {
    return ParcelUuid::fromString(text);
}

TEST(ScanRecord, FlagsServiceListAndServiceData) {
    // Flags, a complete 16-bit list (0xFEAA), service data for 0xFEAA, a short name.
    const Bytes raw = {0x02, 0x01, 0x06,                                // flags
                       0x03, 0x03, 0xAA, 0xFE,                          // UUID list
                       0x07, 0x16, 0xAA, 0xFE, 0x10, 0xF4, 0x00, 0x01,  // service data
                       0x04, 0x09, 'T',  'a',  'g'};
    const ScanRecord record = ScanRecord::parseFromBytes(raw);
    EXPECT_EQ(record.getBytes(), raw);
    EXPECT_EQ(record.getAdvertiseFlags(), 6);
    EXPECT_EQ(record.getDeviceName(), "Tag");
    const ParcelUuid feaa = uuid("0000feaa-0000-1000-8000-00805f9b34fb");
    EXPECT_EQ(record.getServiceUuids(), std::vector<ParcelUuid>{feaa});
    ASSERT_EQ(record.getServiceData().count(feaa), 1u);
    EXPECT_EQ(record.getServiceData().at(feaa), (Bytes{0x10, 0xF4, 0x00, 0x01}));
    EXPECT_TRUE(record.getManufacturerSpecificData().empty());
}

TEST(ScanRecord, WideUuidsAndManufacturerDataKeyedLittleEndian) {
    Bytes raw = {0x11, 0x07};  // a complete 128-bit list, least significant byte first
    const Bytes wide = {0xFB, 0x34, 0x9B, 0x5F, 0x80, 0x00, 0x00, 0x80,
                        0x00, 0x10, 0x00, 0x00, 0x0D, 0x18, 0x00, 0x00};
    raw.insert(raw.end(), wide.begin(), wide.end());
    const Bytes more = {0x05, 0x05, 0x78, 0x56, 0x34, 0x12,               // 32-bit list
                        0x07, 0x20, 0x78, 0x56, 0x34, 0x12, 0xAB, 0xCD,   // 32-bit data
                        0x07, 0xFF, 0x4C, 0x00, 0x02, 0x15, 0x01, 0x02};  // company 0x004C
    raw.insert(raw.end(), more.begin(), more.end());
    const ScanRecord record = ScanRecord::parseFromBytes(raw);
    EXPECT_EQ(record.getServiceUuids(),
              (std::vector<ParcelUuid>{uuid("0000180d-0000-1000-8000-00805f9b34fb"),
                                       uuid("12345678-0000-1000-8000-00805f9b34fb")}));
    EXPECT_EQ(record.getServiceData().at(uuid("12345678-0000-1000-8000-00805f9b34fb")),
              (Bytes{0xAB, 0xCD}));
    ASSERT_EQ(record.getManufacturerSpecificData().count(0x004C), 1u);
    EXPECT_EQ(record.getManufacturerSpecificData().at(0x004C), (Bytes{0x02, 0x15, 0x01, 0x02}));
    EXPECT_EQ(record.getAdvertiseFlags(), -1);
}

// What a record that the parser gave up on holds: its bytes and nothing else.
void expectOnlyRawBytes(const Bytes& raw) {
    const ScanRecord record = ScanRecord::parseFromBytes(raw);
    EXPECT_EQ(record.getBytes(), raw);
    EXPECT_TRUE(record.getServiceUuids().empty());
    EXPECT_TRUE(record.getManufacturerSpecificData().empty());
    EXPECT_TRUE(record.getServiceData().empty());
    EXPECT_EQ(record.getAdvertiseFlags(), -1);
    EXPECT_EQ(record.getDeviceName(), "");
}

TEST(ScanRecord, AReadPastTheEndGivesUpTheWholeRecord) {
    // A structure longer than what is left, after a good one.
    expectOnlyRawBytes({0x02, 0x01, 0x06, 0x09, 0xFF, 0x4C, 0x00, 0x02});
    // A UUID list whose last UUID is cut short at the end.
    expectOnlyRawBytes({0x02, 0x01, 0x06, 0x04, 0x03, 0xAA, 0xFE, 0x0F});
    // A company id cut short at the end, and a flags structure without its byte at the end.
    expectOnlyRawBytes({0x03, 0x03, 0xAA, 0xFE, 0x02, 0xFF, 0x4C});
    expectOnlyRawBytes({0x03, 0x03, 0xAA, 0xFE, 0x01, 0x01});
    // Service data shorter than its UUID, and manufacturer data shorter than its id, even with
    // bytes after them.
    expectOnlyRawBytes({0x02, 0x16, 0xAA, 0x02, 0x01, 0x06});
    expectOnlyRawBytes({0x02, 0xFF, 0x4C, 0x02, 0x01, 0x06});
    // A length byte with no type after it.
    expectOnlyRawBytes({0xFF});
}

TEST(ScanRecord, ReadsOnWhereTheDeviceParserDoes) {
    // A 16-bit list of three bytes takes its second UUID from the next structure's first byte,
    // which is still parsed in its place.
    const ScanRecord odd =
        ScanRecord::parseFromBytes({0x04, 0x03, 0xAA, 0xFE, 0x0F, 0x02, 0x01, 0x06});
    EXPECT_EQ(odd.getServiceUuids(),
              (std::vector<ParcelUuid>{uuid("0000feaa-0000-1000-8000-00805f9b34fb"),
                                       uuid("0000020f-0000-1000-8000-00805f9b34fb")}));
    EXPECT_EQ(odd.getAdvertiseFlags(), 6);
    // Flags without data read the next length byte.
    EXPECT_EQ(ScanRecord::parseFromBytes({0x01, 0x01, 0x03, 0x03, 0xAA, 0xFE}).getAdvertiseFlags(),
              3);

    // A zero length ends the significant part: padding is not parsed.
    Bytes padded = {0x02, 0x01, 0x06, 0x03, 0x03, 0xAA, 0xFE};
    padded.resize(31, 0x00);
    EXPECT_EQ(ScanRecord::parseFromBytes(padded).getServiceUuids().size(), 1u);
    // A type the parser does not read may claim more than is left.
    const ScanRecord unread =
        ScanRecord::parseFromBytes({0x03, 0x03, 0xAA, 0xFE, 0x09, 0x2A, 0x01});
    EXPECT_EQ(unread.getServiceUuids().size(), 1u);
    // Empty manufacturer and service data are data all the same; TX power is signed.
    const ScanRecord empty = ScanRecord::parseFromBytes(
        {0x03, 0xFF, 0x4C, 0x00, 0x03, 0x16, 0xAA, 0xFE, 0x02, 0x0A, 0xF4});
    EXPECT_EQ(empty.getManufacturerSpecificData().at(0x004C), Bytes{});
    EXPECT_EQ(empty.getServiceData().at(uuid("0000feaa-0000-1000-8000-00805f9b34fb")), Bytes{});
    EXPECT_EQ(empty.getTxPowerLevel(), -12);
    EXPECT_TRUE(ScanRecord::parseFromBytes({}).getBytes().empty());
}

TEST(ParcelUuid, TextRoundTripAndAdvertisementOrder) {
    const std::string text = "0000180f-0000-1000-8000-00805f9b34fb";
    EXPECT_EQ(ParcelUuid::fromString(text).toString(), text);
    EXPECT_EQ(ParcelUuid::fromString("0000180F-0000-1000-8000-00805F9B34FB").toString(), text);
    EXPECT_EQ(ParcelUuid::fromString("ffffffff-ffff-ffff-ffff-ffffffffffff").toString(),
              "ffffffff-ffff-ffff-ffff-ffffffffffff");
    for (const char* bad : {"", "0000180f", "0000180f-0000-1000-8000-00805f9b34fg",
                            "0000180f00000-1000-8000-00805f9b34fb"}) {
        EXPECT_EQ(ParcelUuid::fromString(bad), ParcelUuid()) << bad;
    }

    EXPECT_EQ(BluetoothUuid::parseUuidFrom({0x0F, 0x18}).toString(), text);
    EXPECT_EQ(BluetoothUuid::parseUuidFrom({0x0F, 0x18, 0x00, 0x00}).toString(), text);
    EXPECT_EQ(BluetoothUuid::parseUuidFrom({0x78, 0x56, 0x34, 0x12}).toString(),
              "12345678-0000-1000-8000-00805f9b34fb");
    EXPECT_EQ(BluetoothUuid::parseUuidFrom({0x01, 0x02, 0x03}), ParcelUuid());

    std::unordered_map<ParcelUuid, int, os::ParcelUuidHasher> map;
    map[ParcelUuid::fromString(text)] = 1;
    map[ParcelUuid(1, 2)] = 2;
    EXPECT_EQ(map.at(BluetoothUuid::parseUuidFrom({0x0F, 0x18})), 1);
    EXPECT_EQ(map.at(ParcelUuid(1, 2)), 2);
}

}  // namespace
}  // namespace le
}  // namespace bluetooth
}  // namespace android
