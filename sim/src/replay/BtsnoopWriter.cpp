#include "replay/BtsnoopWriter.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "replay/BluetoothAddress.h"
#include "replay/CapturedAdvertisement.h"
#include "replay/Hci.h"

namespace tracker {
namespace sim {

namespace {

using namespace hci;

constexpr uint32_t kReceivedEvent = kBtsnoopCommandOrEvent | kBtsnoopReceived;
constexpr uint32_t kSentCommand = kBtsnoopCommandOrEvent;
constexpr uint16_t kLeSetScanEnable = 0x200C;
constexpr uint8_t kAdvInd = 0x00;
constexpr uint8_t kRandomAddress = 0x01;
constexpr std::size_t kLegacyDataSize = 31;
// An event's parameters hold at most 255 bytes: subevent, report count and the 24 bytes of an
// extended report before its data leave 229 for the data.
constexpr std::size_t kExtendedFragmentSize = 255 - 2 - 24;
constexpr uint16_t kMoreToComeBits = kMoreToCome << kDataStatusShift;
constexpr uint8_t kLe1M = 0x01;
constexpr uint8_t kTxPowerNotAvailable = 0x7F;

void putBe32(std::vector<uint8_t>& out, uint32_t value) {
    for (int shift = 24; shift >= 0; shift -= 8) {
        out.push_back(static_cast<uint8_t>(value >> shift));
    }
}

// An H4 LE Meta event: the packet type, event code and parameter length, then the subevent and
// the parameters after it.
std::vector<uint8_t> leMetaEvent(uint8_t subevent, const std::vector<uint8_t>& params) {
    std::vector<uint8_t> packet = {kH4Event, kLeMetaEvent, static_cast<uint8_t>(params.size() + 1),
                                   subevent};
    packet.insert(packet.end(), params.begin(), params.end());
    return packet;
}

}  // namespace

BtsnoopWriter::~BtsnoopWriter() {
    close();
}

bool BtsnoopWriter::open(const std::string& path, std::string* error) {
    close();
    m_file = std::fopen(path.c_str(), "wb");
    if (!m_file) {
        setError(error, "cannot create " + path + ": " + std::strerror(errno));
        return false;
    }
    m_path = path;
    m_failed = false;
    std::vector<uint8_t> header = {'b', 't', 's', 'n', 'o', 'o', 'p', 0};
    putBe32(header, 1);  // version
    putBe32(header, kBtsnoopH4);
    return put(header, error);
}

bool BtsnoopWriter::writeScanEnable(std::chrono::microseconds offset, std::string* error) {
    if (!m_file) {
        setError(error, "no btsnoop file open");
        return false;
    }
    // Enable scanning, duplicates not filtered.
    const std::vector<uint8_t> command = {
        kH4Command, kLeSetScanEnable & 0xFF, kLeSetScanEnable >> 8, 2, 1, 0};
    return putRecord(offset, kSentCommand, command, error);
}

bool BtsnoopWriter::putRecord(std::chrono::microseconds offset, uint32_t flags,
                              const std::vector<uint8_t>& packet, std::string* error) {
    if (m_failed) {
        // Another record after a partial one would only hide where the damage is.
        setError(error, "an earlier write to " + m_path + " failed");
        return false;
    }
    const uint64_t timestamp =
        static_cast<uint64_t>(kEpoch) + static_cast<uint64_t>(offset.count());
    std::vector<uint8_t> record;
    putBe32(record, static_cast<uint32_t>(packet.size()));  // original length
    putBe32(record, static_cast<uint32_t>(packet.size()));  // included length
    putBe32(record, flags);
    putBe32(record, 0);  // cumulative drops
    putBe32(record, static_cast<uint32_t>(timestamp >> 32));
    putBe32(record, static_cast<uint32_t>(timestamp));
    record.insert(record.end(), packet.begin(), packet.end());
    return put(record, error);
}

bool BtsnoopWriter::write(std::chrono::microseconds offset, const std::string& address,
                          const std::vector<uint8_t>& data, int rssi, std::string* error) {
    if (!m_file) {
        setError(error, "no btsnoop file open");
        return false;
    }
    uint8_t wire[6];
    if (!parseAddress(address, wire)) {
        setError(error, "not a device address: \"" + address + "\"");
        return false;
    }
    if (data.size() > kMaxAdvertisingDataSize) {
        setError(error, "advertising data of " + std::to_string(data.size()) +
                            " bytes is longer than an advertisement can carry (" +
                            std::to_string(kMaxAdvertisingDataSize) + ")");
        return false;
    }
    const uint8_t rssiByte = static_cast<uint8_t>(static_cast<int8_t>(std::clamp(rssi, -127, 20)));

    std::vector<std::vector<uint8_t>> events;
    if (data.size() <= kLegacyDataSize) {
        std::vector<uint8_t> report = {1, kAdvInd, kRandomAddress};
        report.insert(report.end(), wire, wire + 6);
        report.push_back(static_cast<uint8_t>(data.size()));
        report.insert(report.end(), data.begin(), data.end());
        report.push_back(rssiByte);
        events.push_back(leMetaEvent(kLeAdvertisingReport, report));
    } else {
        for (std::size_t start = 0; start < data.size(); start += kExtendedFragmentSize) {
            const std::size_t length = std::min(kExtendedFragmentSize, data.size() - start);
            const bool last = start + length == data.size();
            const uint16_t eventType = last ? 0 : kMoreToComeBits;
            std::vector<uint8_t> report = {1, static_cast<uint8_t>(eventType),
                                           static_cast<uint8_t>(eventType >> 8), kRandomAddress};
            report.insert(report.end(), wire, wire + 6);
            // Primary and secondary PHY, SID 0, TX power, RSSI, no periodic advertising, no
            // direct address.
            const uint8_t middle[] = {
                kLe1M, kLe1M, 0, kTxPowerNotAvailable, rssiByte, 0, 0, 0, 0, 0, 0, 0, 0, 0};
            report.insert(report.end(), std::begin(middle), std::end(middle));
            report.push_back(static_cast<uint8_t>(length));
            report.insert(report.end(), data.begin() + static_cast<std::ptrdiff_t>(start),
                          data.begin() + static_cast<std::ptrdiff_t>(start + length));
            events.push_back(leMetaEvent(kLeExtendedAdvertisingReport, report));
        }
    }

    for (const std::vector<uint8_t>& packet : events) {
        if (!putRecord(offset, kReceivedEvent, packet, error)) {
            return false;
        }
    }
    return true;
}

bool BtsnoopWriter::close(std::string* error) {
    if (!m_file) {
        return true;
    }
    const bool closed = std::fclose(m_file) == 0;
    m_file = nullptr;
    if (m_failed || !closed) {
        setError(error, "cannot write " + m_path +
                            (closed ? "" : std::string(": ") + std::strerror(errno)));
        return false;
    }
    return true;
}

bool BtsnoopWriter::put(const std::vector<uint8_t>& bytes, std::string* error) {
    if (std::fwrite(bytes.data(), 1, bytes.size(), m_file) != bytes.size()) {
        m_failed = true;
        setError(error, "cannot write " + m_path + ": " + std::strerror(errno));
        return false;
    }
    return true;
}

}  // namespace sim
}  // namespace tracker
