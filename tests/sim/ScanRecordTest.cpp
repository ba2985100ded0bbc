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

TEST(ScanRecord, MalformedBytesNeverReadPastTheEnd) {
    // A zero-padded legacy advertisement: parsing ends at the first zero length.
    Bytes padded = {0x02, 0x01, 0x06, 0x03, 0x03, 0xAA, 0xFE};
    padded.resize(31, 0x00);
    EXPECT_EQ(ScanRecord::parseFromBytes(padded).getServiceUuids().size(), 1u);

    // A length claiming more than is there: what came before is kept, the rest is dropped.
    const ScanRecord truncated =
        ScanRecord::parseFromBytes({0x02, 0x01, 0x06, 0x09, 0xFF, 0x4C, 0x00, 0x02});
    EXPECT_EQ(truncated.getAdvertiseFlags(), 6);
    EXPECT_TRUE(truncated.getManufacturerSpecificData().empty());

    // A UUID list whose last UUID is cut short keeps the whole ones.
    const ScanRecord partial = ScanRecord::parseFromBytes({0x04, 0x03, 0xAA, 0xFE, 0x0F});
    EXPECT_EQ(partial.getServiceUuids().size(), 1u);

    // Structures too short for what their type needs are skipped.
    const ScanRecord tiny = ScanRecord::parseFromBytes(
        {0x01, 0x01, 0x02, 0xFF, 0x4C, 0x02, 0x16, 0xAA, 0x04, 0x21, 0x01, 0x02, 0x03});
    EXPECT_EQ(tiny.getAdvertiseFlags(), -1);
    EXPECT_TRUE(tiny.getManufacturerSpecificData().empty());
    EXPECT_TRUE(tiny.getServiceData().empty());

    EXPECT_TRUE(ScanRecord::parseFromBytes({}).getServiceUuids().empty());
    EXPECT_TRUE(ScanRecord::parseFromBytes({0xFF}).getServiceUuids().empty());
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
