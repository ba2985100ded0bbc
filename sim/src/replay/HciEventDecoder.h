#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <tuple>
#include <vector>

#include "replay/CapturedAdvertisement.h"

namespace tracker {
namespace sim {

// Takes the advertisements out of the HCI events of one capture: LE Advertising Reports and LE
// Extended Advertising Reports (subevents 0x02 and 0x0D of the LE Meta event). Every other event
// is ignored and not counted.
//
// What lands in CaptureContents:
//   - each report read adds one advertisement and counts in `reports`;
//   - a report cut short by its event, or an LE Meta event cut short by its record, counts once
//     in `skipped` and ends that event (the reports after it cannot be found);
//   - extended reports marked "incomplete, more to come" are held per (address type, address,
//     SID) and joined with the following ones until one arrives complete: the joined report
//     counts once, carries the completing fragment's time and RSSI, and takes its place in the
//     order there. A chain the controller ends as "incomplete, truncated" counts in `skipped`
//     (its data is not what was advertised), as does a chain longer than
//     kMaxAdvertisingDataSize and every chain still open at finish();
//   - an RSSI of 127 ("not available") becomes 0.
//
// Not thread-safe: one decoder belongs to one read of one capture.
class HciEventDecoder {
  public:
    // `out` must outlive the decoder.
    explicit HciEventDecoder(CaptureContents* out) : m_out(out) {}

    // One event as it follows the H4 packet type byte: event code, parameter length,
    // parameters. `offset` is the time of the record that carried it.
    void event(const uint8_t* bytes, std::size_t size, std::chrono::microseconds offset);
    // The capture has ended: chains still waiting for their complete fragment are skipped.
    void finish();

  private:
    using Address = std::array<uint8_t, 6>;
    using ChainKey = std::tuple<uint8_t, Address, uint8_t>;
    struct Chain {
        std::vector<uint8_t> data;
        bool tooLong = false;
    };

    void legacyReports(const uint8_t* params, std::size_t size, std::chrono::microseconds offset);
    void extendedReports(const uint8_t* params, std::size_t size, std::chrono::microseconds offset);
    void add(std::chrono::microseconds offset, const Address& address, std::vector<uint8_t> data,
             int8_t rssi);

    CaptureContents* m_out;
    std::map<ChainKey, Chain> m_chains;
};

}  // namespace sim
}  // namespace tracker
