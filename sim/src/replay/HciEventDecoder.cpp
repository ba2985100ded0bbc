#include "replay/HciEventDecoder.h"

#include "replay/Hci.h"

#include <algorithm>
#include <utility>

#include "replay/BluetoothAddress.h"
#include "replay/ByteReader.h"

namespace tracker {
namespace sim {

namespace {

using namespace hci;

constexpr int8_t kRssiNotAvailable = 127;

}  // namespace

void HciEventDecoder::event(const uint8_t* bytes, std::size_t size,
                            std::chrono::microseconds offset) {
    if (size == 0) {
        ++m_out->skipped;  // an event packet without even its code
        return;
    }
    if (bytes[0] != kLeMetaEvent) {
        return;
    }
    ByteReader event(bytes + 1, size - 1);
    const uint8_t length = event.u8();
    ByteReader params = event.sub(length);
    const uint8_t subevent = params.u8();
    if (params.failed()) {
        // A snoop log may cut packets short; without the whole event its reports cannot be
        // trusted.
        ++m_out->skipped;
        return;
    }
    const std::size_t restSize = params.remaining();
    const uint8_t* rest = params.take(restSize);
    if (subevent == kLeAdvertisingReport) {
        legacyReports(rest, restSize, offset);
    } else if (subevent == kLeExtendedAdvertisingReport) {
        extendedReports(rest, restSize, offset);
    }
}

void HciEventDecoder::legacyReports(const uint8_t* params, std::size_t size,
                                    std::chrono::microseconds offset) {
    ByteReader reader(params, size);
    const uint8_t count = reader.u8();
    for (unsigned i = 0; i < count; ++i) {
        reader.u8();  // event type: every kind carries advertising data the same way
        reader.u8();  // address type
        const uint8_t* address = reader.take(6);
        const uint8_t dataLength = reader.u8();
        const uint8_t* data = reader.take(dataLength);
        const int8_t rssi = static_cast<int8_t>(reader.u8());
        if (reader.failed()) {
            ++m_out->skipped;
            return;
        }
        Address wire;
        std::copy(address, address + 6, wire.begin());
        add(offset, wire, std::vector<uint8_t>(data, data + dataLength), rssi);
    }
}

void HciEventDecoder::extendedReports(const uint8_t* params, std::size_t size,
                                      std::chrono::microseconds offset) {
    ByteReader reader(params, size);
    const uint8_t count = reader.u8();
    for (unsigned i = 0; i < count; ++i) {
        const uint16_t eventType = reader.u16le();
        const uint8_t addressType = reader.u8();
        const uint8_t* address = reader.take(6);
        reader.take(2);  // primary and secondary PHY
        const uint8_t sid = reader.u8();
        reader.u8();  // TX power
        const int8_t rssi = static_cast<int8_t>(reader.u8());
        reader.take(2 + 1 + 6);  // periodic advertising interval, direct address type and address
        const uint8_t dataLength = reader.u8();
        const uint8_t* data = reader.take(dataLength);
        if (reader.failed()) {
            ++m_out->skipped;
            return;
        }

        Address wire;
        std::copy(address, address + 6, wire.begin());
        const ChainKey key{addressType, wire, sid};
        const unsigned status = (eventType >> kDataStatusShift) & 0x3;
        auto chain = m_chains.find(key);
        if (status == kMoreToCome || status == kComplete) {
            if (status == kComplete && chain == m_chains.end()) {
                add(offset, wire, std::vector<uint8_t>(data, data + dataLength), rssi);
                continue;
            }
            if (chain == m_chains.end()) {
                chain = m_chains.emplace(key, Chain{}).first;
            }
            Chain& joined = chain->second;
            if (joined.data.size() + dataLength > kMaxAdvertisingDataSize) {
                // Held no further: the chain is only waiting to be counted when it ends.
                joined.tooLong = true;
                joined.data.clear();
            }
            if (!joined.tooLong) {
                joined.data.insert(joined.data.end(), data, data + dataLength);
            }
            if (status == kComplete) {
                if (joined.tooLong) {
                    ++m_out->skipped;
                } else {
                    add(offset, wire, std::move(joined.data), rssi);
                }
                m_chains.erase(chain);
            }
        } else {
            // Truncated (2), or the reserved 3: what arrived is not what was advertised.
            if (chain != m_chains.end()) {
                m_chains.erase(chain);
            }
            ++m_out->skipped;
        }
    }
}

void HciEventDecoder::add(std::chrono::microseconds offset, const Address& address,
                          std::vector<uint8_t> data, int8_t rssi) {
    CapturedAdvertisement advertisement;
    advertisement.offset = offset;
    advertisement.address = formatAddress(address.data());
    advertisement.data = std::move(data);
    advertisement.rssi = rssi == kRssiNotAvailable ? 0 : rssi;
    m_out->advertisements.push_back(std::move(advertisement));
    ++m_out->reports;
}

void HciEventDecoder::finish() {
    m_out->skipped += m_chains.size();
    m_chains.clear();
}

}  // namespace sim
}  // namespace tracker
