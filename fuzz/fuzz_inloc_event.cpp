// Distance events as the InLoc service delivers them, carrying advertisement data that any device
// in radio range may send, through the bridge's conversion into the library's event. Every
// buffer is heap-allocated at exactly the size its record states, so that AddressSanitizer
// catches a read past it; the advertisement's structures may claim any length.
//
// Input, front to back (missing bytes read as 0):
//   u8  control: bit 0 no event, bit 1 no address record, bit 2 no membership record,
//       bit 3 no advertisement bytes, bit 4 no bucket table, bit 5 no address bytes,
//       bit 6 no membership bytes
//   u8  report kind, u8 flags, u8 bucket index
//   i16 accumulated distance, u16 sample count (little-endian)
//   u8  bucket count n, then n u16 boundaries (little-endian; as many as there are)
//   u8  address length n, then n bytes (as many as there are)
//   u8  membership length n, then n bytes (as many as there are)
//   the rest: the advertisement, its stated length the number of bytes left

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "tracker/inloc/IxaInLocBridge.h"

using namespace tracker::util;
using namespace tracker::util::inloc;

namespace {

class Reader {
  public:
    Reader(const uint8_t* data, std::size_t size) : m_data(data), m_size(size) {}

    uint8_t byte() { return m_offset < m_size ? m_data[m_offset++] : 0; }
    uint16_t word() {
        const uint8_t low = byte();
        return static_cast<uint16_t>(low | (byte() << 8));
    }
    std::size_t left() const { return m_size - m_offset; }
    // Up to count bytes, in a heap buffer of exactly that many (none for zero).
    std::unique_ptr<uint8_t[]> bytes(std::size_t count, std::size_t* taken) {
        *taken = count < left() ? count : left();
        std::unique_ptr<uint8_t[]> out(*taken == 0 ? nullptr : new uint8_t[*taken]);
        if (*taken != 0) {
            std::memcpy(out.get(), m_data + m_offset, *taken);
        }
        m_offset += *taken;
        return out;
    }

  private:
    const uint8_t* m_data;
    std::size_t m_size;
    std::size_t m_offset = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    Reader input(data, size);
    const uint8_t control = input.byte();

    ixaInloc_distanceEvent_t event;
    std::memset(&event, 0, sizeof(event));
    event.reportKind = input.byte();
    event.flags = input.byte();
    event.bucketIndex = input.byte();
    event.accumulatedDistance = static_cast<int16_t>(input.word());
    event.sampleCount = input.word();

    const std::size_t bucketCount = input.byte();
    const std::size_t boundaries = bucketCount < input.left() / 2 ? bucketCount : input.left() / 2;
    std::unique_ptr<uint16_t[]> buckets(boundaries == 0 ? nullptr : new uint16_t[boundaries]);
    for (std::size_t i = 0; i < boundaries; ++i) {
        buckets[i] = input.word();
    }
    event.bucketCount = static_cast<uint8_t>(boundaries);
    event.buckets = (control & 0x10) != 0 ? nullptr : buckets.get();

    std::size_t addressLength = 0;
    const auto addressBytes = input.bytes(input.byte(), &addressLength);
    ixaInloc_deviceAddr_t address;
    address.len = static_cast<uint16_t>(addressLength);
    address.addr = (control & 0x20) != 0 ? nullptr : addressBytes.get();

    std::size_t membershipLength = 0;
    const auto membershipBytes = input.bytes(input.byte(), &membershipLength);
    ixaInloc_membership_t membership;
    membership.kind = 0;
    membership.len = static_cast<uint16_t>(membershipLength);
    membership.data = (control & 0x40) != 0 ? nullptr : membershipBytes.get();

    std::size_t advertisementLength = 0;
    const auto advertisement = input.bytes(UINT16_MAX, &advertisementLength);
    event.advDataLen = static_cast<uint16_t>(advertisementLength);
    event.advData = (control & 0x08) != 0 ? nullptr : advertisement.get();

    const auto result = IxaInLocBridge::toTrackerInLocDistanceEvent(
        (control & 0x01) != 0 ? nullptr : &event, (control & 0x02) != 0 ? nullptr : &address,
        (control & 0x04) != 0 ? nullptr : &membership);

    // What a client relies on: an address is always there, and the scan record is a part of the
    // advertisement that was delivered.
    if (result == nullptr || result->deviceAddr == nullptr ||
        result->scanRecord.size() > event.advDataLen ||
        (!result->scanRecord.empty() &&
         std::memcmp(result->scanRecord.data(), event.advData, result->scanRecord.size()) != 0)) {
        std::abort();
    }

    // The membership bytes back out as a tracking request: every copy is freed by the clear.
    bluetooth::TrackerScanFilter filter;
    filter.type = bluetooth::TYPE_MEMBERSHIP;
    filter.uuidFilter.uuid = result->membership;
    ixaInloc_distanceConfigMembership_t entry;
    const unsigned count = IxaInLocBridge::toIxaConfigMembershipList({filter}, &entry);
    if (count != 1 || entry.membership.len != result->membership.size()) {
        std::abort();
    }
    IxaInLocBridge::clearIxaConfigMembershipList(&entry, count);
    return 0;
}
