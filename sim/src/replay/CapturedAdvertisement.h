#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tracker {
namespace sim {

// The longest advertising data a controller hands the host in one report: extended advertising,
// every fragment joined. Readers give up on longer chains and the writer refuses longer data.
constexpr std::size_t kMaxAdvertisingDataSize = 1650;

// One advertisement as a capture recorded it.
struct CapturedAdvertisement {
    // Since the capture's first record, whatever that record was (the first record is 0).
    std::chrono::microseconds offset{0};
    // "AA:BB:CC:DD:EE:FF": upper case, most significant byte first.
    std::string address;
    // The AD structures exactly as received; fragments of an extended report already joined.
    std::vector<uint8_t> data;
    // dBm; 0 when the capture does not say.
    int rssi = 0;
};

// Everything a reader took from one capture.
struct CaptureContents {
    // "btsnoop", "pcap" or "pcapng": what the file's first bytes say it is.
    std::string format;
    // In the order the records that completed them appear in the capture.
    std::vector<CapturedAdvertisement> advertisements;
    // Advertisement reports read (a joined extended report counts once).
    uint64_t reports = 0;
    // Records or reports that were malformed (cut short, lengths past their end, a bad CRC),
    // counted and left out.
    uint64_t skipped = 0;
};

}  // namespace sim
}  // namespace tracker
