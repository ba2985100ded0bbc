#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace tracker {
namespace sim {

// Writes advertisements as a btsnoop version 1 file, datalink 1002 (H4), the way a phone's
// snoop log would have recorded them: each one an HCI LE Meta event received from the
// controller. readCapture() reads the file back to the same advertisements.
//
// Each advertisement is a report from a random device address (address type 1, as tags
// advertise):
//   - data of at most 31 bytes, what a legacy advertisement carries: an LE Advertising Report
//     (subevent 0x02) of an ADV_IND;
//   - longer data: LE Extended Advertising Reports (subevent 0x0D) of a non-connectable
//     extended advertisement, split into as many events as it needs, all but the last marked
//     "incomplete, more to come".
// Record timestamps are 2026-01-01 00:00:00 UTC (kEpoch, in btsnoop's microseconds since year 0)
// plus each advertisement's offset, so the same calls give the same bytes.
//
// Thread-safety: none; the caller serialises the calls. The destructor closes an open file,
// ignoring errors: call close() to learn whether everything reached the disk.
class BtsnoopWriter {
  public:
    static constexpr int64_t kEpoch = 0x00DCDDB30F2F8000 + 1767225600LL * 1000000;

    BtsnoopWriter() = default;
    ~BtsnoopWriter();
    BtsnoopWriter(const BtsnoopWriter&) = delete;
    BtsnoopWriter& operator=(const BtsnoopWriter&) = delete;

    // Creates or truncates `path` and writes the file header, closing a file still open first.
    // False, with a one-line message in *error when error is not null, if that fails.
    bool open(const std::string& path, std::string* error);
    // Appends one advertisement. `address` is "AA:BB:CC:DD:EE:FF" (either case, most
    // significant byte first); `rssi` is clamped to the -127..20 dBm a report can hold.
    // False, writing nothing, for a bad address, data longer than kMaxAdvertisingDataSize or no
    // open file; false after a failed write, which leaves the file damaged.
    bool write(std::chrono::microseconds offset, const std::string& address,
               const std::vector<uint8_t>& data, int rssi, std::string* error = nullptr);
    // Appends the host's command that turns scanning on (LE Set Scan Enable). A reader counts
    // offsets from a log's first record: a recording that begins with this one replays its
    // advertisements as long after the scan's start as they first came.
    bool writeScanEnable(std::chrono::microseconds offset, std::string* error = nullptr);
    // Flushes and closes; false if any write or the close failed. True with no file open.
    bool close(std::string* error = nullptr);

  private:
    bool putRecord(std::chrono::microseconds offset, uint32_t flags,
                   const std::vector<uint8_t>& packet, std::string* error);
    bool put(const std::vector<uint8_t>& bytes, std::string* error);

    std::FILE* m_file = nullptr;
    std::string m_path;
    bool m_failed = false;
};

}  // namespace sim
}  // namespace tracker
