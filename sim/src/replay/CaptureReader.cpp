#include "replay/CaptureReader.h"

#include <pcap/pcap.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

#include "io/RegularFile.h"
#include "replay/BluetoothAddress.h"
#include "replay/ByteReader.h"
#include "replay/Hci.h"
#include "replay/HciEventDecoder.h"

namespace tracker {
namespace sim {

namespace {

using namespace hci;

using std::chrono::microseconds;

constexpr std::size_t kBtsnoopHeaderSize = 16;
constexpr std::size_t kBtsnoopRecordHeaderSize = 24;
// In datalink 1001 the record flags say what a packet is: bit 1 command or event, bit 0
// received; an event is both.
constexpr uint32_t kBtsnoopEventFlags = kBtsnoopCommandOrEvent | kBtsnoopReceived;

constexpr int kLinkTypeH4WithHeader = 201;
constexpr int kLinkTypeLeLinkLayerWithHeader = 256;

// The radio header of link type 256: channel, signal and noise power, access address offenses,
// reference access address, flags.
constexpr std::size_t kRadioHeaderSize = 10;
constexpr uint16_t kSignalPowerValid = 0x0002;
constexpr uint16_t kCrcChecked = 0x0400;
constexpr uint16_t kCrcValid = 0x0800;

constexpr uint32_t kAdvertisingAccessAddress = 0x8E89BED6;
constexpr std::size_t kCrcSize = 3;
constexpr uint8_t kAdvInd = 0x0;
constexpr uint8_t kAdvNonconnInd = 0x2;
constexpr uint8_t kScanRsp = 0x4;
constexpr uint8_t kAdvScanInd = 0x6;

// Counts time from the capture's first record. Timestamps come from the file and may be
// anything, so the difference is taken modulo 2^64 rather than risk a signed overflow.
class Offsets {
  public:
    microseconds since(uint64_t stamp) {
        if (!m_started) {
            m_first = stamp;
            m_started = true;
        }
        return microseconds(static_cast<int64_t>(stamp - m_first));
    }

  private:
    uint64_t m_first = 0;
    bool m_started = false;
};

bool readBtsnoop(const uint8_t* bytes, std::size_t size, CaptureContents* out, std::string* error) {
    if (size < kBtsnoopHeaderSize) {
        setError(error, "truncated btsnoop header");
        return false;
    }
    ByteReader file(bytes + 8, size - 8);
    const uint32_t version = file.u32be();
    const uint32_t datalink = file.u32be();
    if (version != 1) {
        setError(error, "unsupported btsnoop version " + std::to_string(version));
        return false;
    }
    if (datalink != kBtsnoopH4 && datalink != kBtsnoopHci) {
        setError(error, "unsupported btsnoop datalink " + std::to_string(datalink) +
                            " (only 1001 and 1002, HCI packets)");
        return false;
    }

    HciEventDecoder decoder(out);
    Offsets offsets;
    while (file.remaining() > 0) {
        if (file.remaining() < kBtsnoopRecordHeaderSize) {
            ++out->skipped;  // a record header cut short: the file ends here
            break;
        }
        file.u32be();  // original length: what was on the wire, not what was kept
        const uint32_t included = file.u32be();
        const uint32_t flags = file.u32be();
        file.u32be();  // cumulative drops
        const uint64_t timestamp = file.u64be();
        const uint8_t* packet = file.take(included);
        if (!packet) {
            ++out->skipped;  // the packet runs past the end of the file
            break;
        }
        const microseconds offset = offsets.since(timestamp);
        if (datalink == kBtsnoopHci) {
            if ((flags & kBtsnoopEventFlags) == kBtsnoopEventFlags) {
                decoder.event(packet, included, offset);
            }
        } else if (included == 0) {
            ++out->skipped;  // not even the packet type
        } else if (packet[0] == kH4Event) {
            decoder.event(packet + 1, included - 1, offset);
        }
    }
    decoder.finish();
    return true;
}

// One link-layer packet of link type 256.
void readLinkLayerPacket(const uint8_t* bytes, std::size_t size, microseconds offset,
                         CaptureContents* out) {
    ByteReader packet(bytes, size);
    // The radio header; one cut short fails `packet` too.
    ByteReader radio = packet.sub(kRadioHeaderSize);
    radio.take(1);  // RF channel
    const int8_t signal = static_cast<int8_t>(radio.u8());
    radio.take(2 + 4);  // noise power, access address offenses, reference access address
    const uint16_t flags = radio.u16le();
    const uint32_t accessAddress = packet.u32le();
    const uint8_t header = packet.u8();
    const uint8_t length = packet.u8();
    if (packet.failed()) {
        ++out->skipped;
        return;
    }
    if ((flags & kCrcChecked) && !(flags & kCrcValid)) {
        ++out->skipped;  // the radio garbled it; nothing in it can be trusted
        return;
    }
    const uint8_t type = header & 0x0F;
    if (accessAddress != kAdvertisingAccessAddress ||
        (type != kAdvInd && type != kAdvNonconnInd && type != kAdvScanInd && type != kScanRsp)) {
        return;
    }
    // AdvA, AdvData, then the CRC after the payload.
    const uint8_t* address = packet.take(6);
    const std::size_t dataLength = length >= 6 ? length - 6u : 0;
    const uint8_t* data = packet.take(dataLength);
    packet.take(kCrcSize);
    if (packet.failed() || length < 6) {
        ++out->skipped;
        return;
    }
    CapturedAdvertisement advertisement;
    advertisement.offset = offset;
    advertisement.address = formatAddress(address);
    advertisement.data.assign(data, data + dataLength);
    advertisement.rssi = (flags & kSignalPowerValid) ? signal : 0;
    out->advertisements.push_back(std::move(advertisement));
    ++out->reports;
}

bool readPcap(const uint8_t* bytes, std::size_t size, CaptureContents* out, std::string* error) {
    // The stream only reads; fmemopen merely lacks a const overload.
    std::FILE* stream = fmemopen(const_cast<uint8_t*>(bytes), size, "rb");
    if (!stream) {
        setError(error, std::string("cannot open the capture in memory: ") + std::strerror(errno));
        return false;
    }
    char message[PCAP_ERRBUF_SIZE] = {};
    // libpcap converts nanosecond files to microseconds for us.
    pcap_t* capture =
        pcap_fopen_offline_with_tstamp_precision(stream, PCAP_TSTAMP_PRECISION_MICRO, message);
    if (!capture) {
        std::fclose(stream);
        setError(error, out->format + ": " + message);
        return false;
    }
    const int linkType = pcap_datalink(capture);
    if (linkType != kLinkTypeH4WithHeader && linkType != kLinkTypeLeLinkLayerWithHeader) {
        const char* name = pcap_datalink_val_to_name(linkType);
        setError(error, "unsupported " + out->format + " link type " + std::to_string(linkType) +
                            (name ? std::string(" (") + name + ")" : std::string()) +
                            " (only 201 and 256, Bluetooth)");
        pcap_close(capture);  // closes the stream too
        return false;
    }

    HciEventDecoder decoder(out);
    Offsets offsets;
    pcap_pkthdr* header = nullptr;
    const u_char* packet = nullptr;
    for (;;) {
        const int result = pcap_next_ex(capture, &header, &packet);
        if (result == PCAP_ERROR_BREAK) {
            break;  // the end of the file
        }
        if (result != 1) {
            ++out->skipped;  // a record libpcap could not read; nothing after it can be found
            break;
        }
        const uint64_t stamp = static_cast<uint64_t>(header->ts.tv_sec) * 1000000u +
                               static_cast<uint64_t>(header->ts.tv_usec);
        const microseconds offset = offsets.since(stamp);
        if (linkType == kLinkTypeLeLinkLayerWithHeader) {
            readLinkLayerPacket(packet, header->caplen, offset, out);
            continue;
        }
        // A four-byte direction, then the H4 packet.
        ByteReader record(packet, header->caplen);
        record.take(4);
        const uint8_t type = record.u8();
        if (record.failed()) {
            ++out->skipped;
        } else if (type == kH4Event) {
            const std::size_t eventSize = record.remaining();
            decoder.event(record.take(eventSize), eventSize, offset);
        }
    }
    decoder.finish();
    pcap_close(capture);
    return true;
}

bool startsWith(const uint8_t* bytes, std::size_t size, const uint8_t* magic, std::size_t length) {
    return size >= length && std::memcmp(bytes, magic, length) == 0;
}

}  // namespace

bool readCapture(const uint8_t* bytes, std::size_t size, CaptureContents* out, std::string* error) {
    *out = CaptureContents{};
    static const uint8_t kBtsnoop[] = {'b', 't', 's', 'n', 'o', 'o', 'p', 0};
    static const uint8_t kPcapng[] = {0x0A, 0x0D, 0x0D, 0x0A};
    // Microsecond and nanosecond pcap, in either byte order.
    static const uint8_t kPcap[][4] = {{0xA1, 0xB2, 0xC3, 0xD4},
                                       {0xD4, 0xC3, 0xB2, 0xA1},
                                       {0xA1, 0xB2, 0x3C, 0x4D},
                                       {0x4D, 0x3C, 0xB2, 0xA1}};
    if (startsWith(bytes, size, kBtsnoop, sizeof kBtsnoop)) {
        out->format = "btsnoop";
        return readBtsnoop(bytes, size, out, error);
    }
    if (startsWith(bytes, size, kPcapng, sizeof kPcapng)) {
        out->format = "pcapng";
        return readPcap(bytes, size, out, error);
    }
    for (const auto& magic : kPcap) {
        if (startsWith(bytes, size, magic, sizeof magic)) {
            out->format = "pcap";
            return readPcap(bytes, size, out, error);
        }
    }
    setError(error, "unknown capture format (not btsnoop, pcap or pcapng)");
    return false;
}

bool readCaptureFile(const std::string& path, CaptureContents* out, std::string* error) {
    *out = CaptureContents{};
    std::string content;
    if (!readRegularFile(path, kMaxCaptureBytes, &content, error)) {
        return false;
    }
    const std::vector<uint8_t> bytes(content.begin(), content.end());
    if (!readCapture(bytes.data(), bytes.size(), out, error)) {
        if (error) {
            *error = path + ": " + *error;
        }
        return false;
    }
    return true;
}

}  // namespace sim
}  // namespace tracker
