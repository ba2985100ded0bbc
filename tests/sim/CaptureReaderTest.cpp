#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <numeric>
#include <string>
#include <vector>

#include "replay/BtsnoopWriter.h"
#include "replay/CaptureReader.h"

namespace tracker {
namespace sim {

// Whole advertisements compare and print, so a failure shows what was read.
bool operator==(const CapturedAdvertisement& a, const CapturedAdvertisement& b) {
    return a.offset == b.offset && a.address == b.address && a.data == b.data && a.rssi == b.rssi;
}
void PrintTo(const CapturedAdvertisement& a, std::ostream* out) {
    *out << a.offset.count() << "us " << a.address << " rssi " << a.rssi << " data";
    for (uint8_t byte : a.data) {
        *out << ' ' << std::hex << int{byte} << std::dec;
    }
}

namespace {

using Bytes = std::vector<uint8_t>;
using Ads = std::vector<CapturedAdvertisement>;
using us = std::chrono::microseconds;

const std::string kDataDir = std::string(TRACKER_TEST_DATA_DIR) + "/captures/";
const Bytes kAddressWire = {0x66, 0x55, 0x44, 0x33, 0x22, 0x11};
const char* const kAddress = "11:22:33:44:55:66";
const Bytes kFlags = {0x02, 0x01, 0x06};

Bytes hex(const std::string& text) {
    Bytes bytes;
    for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
        bytes.push_back(static_cast<uint8_t>(std::stoi(text.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}
Bytes cat(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}
Bytes le(uint64_t value, int size) {
    Bytes bytes;
    for (int i = 0; i < size; ++i) {
        bytes.push_back(static_cast<uint8_t>(i < 8 ? value >> (8 * i) : 0));
    }
    return bytes;
}
Bytes be(uint64_t value, int size) {
    Bytes bytes = le(value, size);
    return Bytes(bytes.rbegin(), bytes.rend());
}
Bytes byte(int value) {
    return {static_cast<uint8_t>(value)};
}

// H4 LE Meta events with one report from kAddressWire unless told otherwise; `lie` is added to
// the data length byte.
Bytes event(const Bytes& params) {
    return cat({{0x04, 0x3E}, byte(params.size()), params});
}
Bytes legacyEvent(const Bytes& data, int rssi, int lie = 0) {
    return event(cat({hex("02010001"), kAddressWire, byte(data.size() + lie), data, byte(rssi)}));
}
Bytes extendedEvent(int eventType, const Bytes& data, int rssi,
                    const Bytes& address = kAddressWire) {
    return event(cat({hex("0d01"), le(eventType, 2), byte(1), address, hex("0101007f"), byte(rssi),
                      Bytes(9, 0), byte(data.size()), data}));
}

struct Record {
    int64_t micros;
    Bytes packet;
    uint32_t flags = 3;
};
Bytes btsnoop(const std::vector<Record>& records, uint32_t datalink = 1002) {
    Bytes file = cat({hex("6274736e6f6f7000"), be(1, 4), be(datalink, 4)});
    for (const Record& r : records) {
        file = cat({file, be(r.packet.size(), 4), be(r.packet.size(), 4), be(r.flags, 4), be(0, 4),
                    be(0x00E2000000000000 + r.micros, 8), r.packet});
    }
    return file;
}

// Classic pcap and pcapng (one interface, microsecond times) around packets.
struct Packet {
    int64_t micros;
    Bytes bytes;
};
Bytes pcap(int linkType, const std::vector<Packet>& packets) {
    Bytes file = cat({hex("d4c3b2a1020004000000000000000000ffff0000"), le(linkType, 4)});
    for (const Packet& p : packets) {
        const uint64_t stamp = 1700000000000000 + p.micros;
        file = cat({file, le(stamp / 1000000, 4), le(stamp % 1000000, 4), le(p.bytes.size(), 4),
                    le(p.bytes.size(), 4), p.bytes});
    }
    return file;
}
Bytes pcapng(int linkType, const std::vector<Packet>& packets) {
    Bytes file = cat({hex("0a0d0d0a1c0000004d3c2b1a01000000ffffffffffffffff1c000000"),
                      hex("0100000014000000"), le(linkType, 2), hex("00000000000014000000")});
    for (const Packet& p : packets) {
        const uint64_t stamp = 1700000000000000 + p.micros;
        Bytes padded = p.bytes;
        padded.resize((padded.size() + 3) / 4 * 4);
        const uint64_t length = 32 + padded.size();
        file = cat({file, le(6, 4), le(length, 4), le(0, 4), le(stamp >> 32, 4), le(stamp, 4),
                    le(p.bytes.size(), 4), le(p.bytes.size(), 4), padded, le(length, 4)});
    }
    return file;
}

// A link-type-256 packet: radio header, access address, PDU header, AdvA, data, CRC.
constexpr uint16_t kSignalValid = 0x0002, kCrcChecked = 0x0400, kCrcValid = 0x0800;
constexpr uint16_t kGood = kSignalValid | kCrcChecked | kCrcValid;
Bytes linkLayer(int pduType, const Bytes& data, uint16_t flags, int signal = -40,
                uint32_t accessAddress = 0x8E89BED6) {
    return cat({byte(37), byte(signal), hex("8000"), le(0x8E89BED6, 4), le(flags, 2),
                le(accessAddress, 4), byte(pduType), byte(6 + data.size()), kAddressWire, data,
                hex("555555")});
}

CaptureContents read(const Bytes& bytes) {
    CaptureContents contents;
    std::string error;
    EXPECT_TRUE(readCapture(bytes.data(), bytes.size(), &contents, &error)) << error;
    EXPECT_EQ(contents.advertisements.size(), contents.reports);
    return contents;
}

TEST(CaptureReader, RealCaptures) {
    const struct {
        const char* file;
        const char* format;  // the sniffer's file is named .pcap but is pcapng
        std::size_t reports;
        CapturedAdvertisement first;
        us last;
    } captures[] = {
        // clang-format off
        {"phone-extended-adv.btsnoop", "btsnoop", 12,
         {us(4572455), "4D:AB:43:2A:3F:10", hex("0201020303f3fe"), -68}, us(9690090)},
        {"sniffer-ll-discovery.pcap", "pcapng", 24,
         {us(0), "CC:5F:F0:E5:81:75",
          hex("02010611079f9a19cd78559db885460de90100cebd09ffffff7581e5f05fcc"), -50},
         us(22317930)},
        // clang-format on
    };
    for (const auto& capture : captures) {
        SCOPED_TRACE(capture.file);
        CaptureContents contents;
        std::string error;
        ASSERT_TRUE(readCaptureFile(kDataDir + capture.file, &contents, &error)) << error;
        EXPECT_EQ(contents.format, capture.format);
        EXPECT_EQ(contents.reports, capture.reports);
        EXPECT_EQ(contents.skipped, 0u);
        ASSERT_EQ(contents.advertisements.size(), capture.reports);
        EXPECT_EQ(contents.advertisements.front(), capture.first);
        EXPECT_EQ(contents.advertisements.back().offset, capture.last);
        for (std::size_t i = 1; i < contents.advertisements.size(); ++i) {
            EXPECT_EQ(contents.advertisements[i].address, capture.first.address);
            EXPECT_LT(contents.advertisements[i - 1].offset, contents.advertisements[i].offset);
        }
    }
}

TEST(CaptureReader, CountsMalformedBtsnoopRecordsAndReports) {
    const Bytes good = legacyEvent(kFlags, -50);
    const Bytes report(good.begin() + 5, good.end());
    const Bytes twoReports =
        event(cat({{0x02, 2}, report, Bytes(report.begin(), report.end() - 2)}));
    Bytes pastRecord = good;
    pastRecord[2] += 1;  // the event claims a byte its record does not have
    const Bytes whole = btsnoop({{0, good}});
    const Bytes longRecord = cat({whole, be(100, 4), be(100, 4), be(3, 4), be(0, 12), good});
    const Bytes hci(good.begin() + 1, good.end());  // no H4 type: datalink 1001's flags tell
    const struct {
        const char* what;
        Bytes file;
        uint64_t reports, skipped;
    } cases[] = {
        {"a good report", whole, 1, 0},
        {"report data past the event", btsnoop({{0, legacyEvent(kFlags, -50, 1)}}), 0, 1},
        {"second report cut short", btsnoop({{0, twoReports}}), 1, 1},
        {"event past its record", btsnoop({{0, pastRecord}}), 0, 1},
        {"record past the end of the file", longRecord, 1, 1},
        {"record header cut short",
         Bytes(longRecord.begin(), longRecord.begin() + whole.size() + 10), 1, 1},
        {"empty H4 packet", btsnoop({{0, good}, {5, {}}}), 1, 1},
        {"commands and other events", btsnoop({{0, hex("01030c00")}, {1, hex("040e0401030c00")}}),
         0, 0},
        {"1001: a command sent, ACL data received, an event",
         btsnoop({{0, hci, 2}, {0, hci, 1}, {0, hci, 3}}, 1001), 1, 0},
        {"truncated extended report", btsnoop({{0, extendedEvent(0x40, kFlags, 0)}}), 0, 1},
        {"chain never completed", btsnoop({{0, extendedEvent(0x20, kFlags, 0)}}), 0, 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const CaptureContents contents = read(c.file);
        EXPECT_EQ(contents.reports, c.reports);
        EXPECT_EQ(contents.skipped, c.skipped);
        if (c.reports > 0 && !contents.advertisements.empty()) {
            EXPECT_EQ(contents.advertisements[0],
                      (CapturedAdvertisement{us(0), kAddress, kFlags, -50}));
        }
    }
}

TEST(CaptureReader, JoinsExtendedFragmentsPerDevice) {
    const CaptureContents contents = read(btsnoop({
        {1000, extendedEvent(0x20, {0x05, 0xFF, 0x4C}, -70)},
        {1500, extendedEvent(0x00, kFlags, 127, {1, 2, 3, 4, 5, 6})},  // another device; no RSSI
        {2000, extendedEvent(0x00, {0x00, 0x02, 0x15}, -60)},
    }));
    EXPECT_EQ(contents.skipped, 0u);
    // The joined report takes the completing fragment's place, time and RSSI.
    EXPECT_EQ(contents.advertisements, (Ads{{us(500), "06:05:04:03:02:01", kFlags, 0},
                                            {us(1000), kAddress, hex("05ff4c000215"), -60}}));
}

TEST(CaptureReader, LinkLayerPcapSkipsBadCrcsAndOtherPdus) {
    const Bytes adv = linkLayer(0x00, kFlags, kGood, -45);
    const CaptureContents contents = read(pcap(
        256,
        {
            {0, linkLayer(0x03, {}, kGood)},  // SCAN_REQ
            {100, adv},
            {200, linkLayer(0x42, {0xAA}, kCrcChecked | kCrcValid)},  // ADV_NONCONN_IND, no signal
            {300, linkLayer(0x06, {0xBB}, kGood)},                    // ADV_SCAN_IND
            {400, linkLayer(0x04, {0xCC}, 0)},                        // SCAN_RSP, CRC not checked
            {500, linkLayer(0x00, kFlags, kSignalValid | kCrcChecked)},  // bad CRC
            {600, Bytes(adv.begin(), adv.end() - 4)},                    // cut short
            {700, linkLayer(0x00, kFlags, kGood, -40, 0x50654321)},      // a data channel
            {1000000, linkLayer(0x05, Bytes(28, 0), kGood)},             // CONNECT_IND
        }));
    EXPECT_EQ(contents.format, "pcap");
    EXPECT_EQ(contents.skipped, 2u);
    EXPECT_EQ(contents.advertisements, (Ads{{us(100), kAddress, kFlags, -45},
                                            {us(200), kAddress, {0xAA}, 0},
                                            {us(300), kAddress, {0xBB}, -40},
                                            {us(400), kAddress, {0xCC}, 0}}));
}

TEST(CaptureReader, H4PcapngWithDirectionHeader) {
    const CaptureContents contents =
        read(pcapng(201, {
                             {0, cat({be(0, 4), hex("01030c00")})},  // a command sent
                             {2500000, cat({be(1, 4), legacyEvent(kFlags, -71)})},
                             {2600000, be(1, 4)},  // no packet after the direction
                         }));
    EXPECT_EQ(contents.format, "pcapng");
    EXPECT_EQ(contents.skipped, 1u);
    EXPECT_EQ(contents.advertisements, (Ads{{us(2500000), kAddress, kFlags, -71}}));
}

TEST(CaptureReader, RefusesWhatItCannotRead) {
    const Bytes header = btsnoop({});
    const struct {
        Bytes file;
        const char* error;
    } cases[] = {
        {{}, "unknown capture format"},
        {Bytes(header.begin(), header.begin() + 4), "unknown capture format"},
        {Bytes(header.begin(), header.begin() + 12), "truncated btsnoop header"},
        {cat({Bytes(header.begin(), header.begin() + 8), be(2, 4), be(1002, 4)}), "version 2"},
        {btsnoop({}, 2001), "datalink 2001"},
        {pcap(1, {}), "link type 1 (EN10MB)"},
        {pcapng(187, {}), "link type 187"},
        {le(0xA1B2C3D4, 4), "pcap: "},  // libpcap's own message about the short header
    };
    for (const auto& c : cases) {
        CaptureContents contents;
        std::string error;
        EXPECT_FALSE(readCapture(c.file.data(), c.file.size(), &contents, &error)) << c.error;
        EXPECT_NE(error.find(c.error), std::string::npos) << error;
        EXPECT_EQ(error.find('\n'), std::string::npos) << error;
    }
    CaptureContents contents;
    std::string error;
    EXPECT_FALSE(readCaptureFile(kDataDir + "missing.btsnoop", &contents, &error));
    EXPECT_NE(error.find("missing.btsnoop"), std::string::npos) << error;
}

// Each case its own file: ctest runs them at the same time.
class CaptureWriter : public testing::Test {
  protected:
    void TearDown() override { std::remove(m_path.c_str()); }
    Bytes fileBytes() const {
        std::ifstream file(m_path, std::ios::binary);
        return Bytes(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }
    const std::string m_path = testing::TempDir() +
                               testing::UnitTest::GetInstance()->current_test_info()->name() +
                               ".btsnoop";
};

TEST_F(CaptureWriter, BtsnoopReadsBackToTheSameAdvertisements) {
    Bytes longest(1650);
    std::iota(longest.begin(), longest.end(), uint8_t{0});
    const Ads written = {
        {us(0), kAddress, kFlags, -60},
        {us(1500), "AA:BB:CC:DD:EE:FF", Bytes(31, 0x31), -127},
        {us(2000000), "0A:0B:0C:0D:0E:0F", Bytes(32, 0x32), 20},
        {us(3000000), kAddress, longest, 0},
        {us(3000001), kAddress, {}, -1},
    };
    BtsnoopWriter writer;
    std::string error;
    ASSERT_TRUE(writer.open(m_path, &error)) << error;
    for (const CapturedAdvertisement& a : written) {
        ASSERT_TRUE(writer.write(a.offset, a.address, a.data, a.rssi, &error)) << error;
    }
    ASSERT_TRUE(writer.close(&error)) << error;

    const Bytes file = fileBytes();
    const CaptureContents contents = read(file);
    EXPECT_EQ(contents.skipped, 0u);
    EXPECT_EQ(contents.advertisements, written);

    // The file header, then the first record byte for byte: lengths, a received event, the
    // epoch as its time, and the packet.
    const Bytes first = legacyEvent(kFlags, -60);
    EXPECT_EQ(Bytes(file.begin(), file.begin() + 40 + first.size()),
              cat({hex("6274736e6f6f7000"), be(1, 4), be(1002, 4), be(first.size(), 4),
                   be(first.size(), 4), be(3, 4), be(0, 4), be(BtsnoopWriter::kEpoch, 8), first}));
    // Up to 31 bytes go in legacy reports; longer data in extended ones, 1650 bytes in 8.
    Bytes subevents;
    for (std::size_t at = 16; at + 24 + 4 <= file.size();
         at += 24 + (file[at + 6] << 8 | file[at + 7])) {
        subevents.push_back(file[at + 24 + 3]);
    }
    EXPECT_EQ(subevents, cat({{0x02, 0x02, 0x0D}, Bytes(8, 0x0D), {0x02}}));
}

TEST_F(CaptureWriter, RefusesBadInputAndClampsRssi) {
    BtsnoopWriter writer;
    std::string error;
    EXPECT_FALSE(writer.write(us(0), kAddress, kFlags, -50, &error));
    EXPECT_FALSE(writer.open("/nonexistent-dir/x.btsnoop", &error));
    EXPECT_NE(error.find("/nonexistent-dir/x.btsnoop"), std::string::npos) << error;

    ASSERT_TRUE(writer.open(m_path, &error)) << error;
    EXPECT_FALSE(writer.write(us(0), "11:22:33:44:55", kFlags, -50, &error));
    EXPECT_FALSE(writer.write(us(0), "11-22-33-44-55-66", kFlags, -50, &error));
    EXPECT_FALSE(writer.write(us(0), kAddress, Bytes(1651), -50, &error));
    EXPECT_TRUE(writer.write(us(0), "aa:bb:cc:dd:ee:ff", kFlags, 50, &error));
    EXPECT_TRUE(writer.write(us(5), kAddress, kFlags, -300, &error));
    ASSERT_TRUE(writer.close(&error)) << error;

    const CaptureContents contents = read(fileBytes());
    EXPECT_EQ(contents.advertisements,
              (Ads{{us(0), "AA:BB:CC:DD:EE:FF", kFlags, 20}, {us(5), kAddress, kFlags, -127}}));
}

}  // namespace
}  // namespace sim
}  // namespace tracker
