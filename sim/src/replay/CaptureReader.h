#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "replay/CapturedAdvertisement.h"

namespace tracker {
namespace sim {

// Reads the advertisements out of a Bluetooth capture. The format is told by the first bytes,
// never by the file name:
//   - btsnoop version 1 with datalink 1002 (H4) or 1001 (HCI without the packet type byte,
//     which the record flags stand in for): the advertising reports of HCI LE Meta events;
//   - pcap or pcapng (read through libpcap) with link type 201 (H4 with a direction header),
//     the same events, or 256 (link-layer packets with a radio header): ADV_IND,
//     ADV_NONCONN_IND, ADV_SCAN_IND and SCAN_RSP on the advertising access address.
// Offsets count from the first record of the file, whatever it holds.
//
// Returns false, with a one-line message in *error (when error is not null), for an unreadable
// file, an unknown format, a damaged file header or an unsupported datalink or link type; *out
// then holds nothing useful. Otherwise true, also when some records were malformed: those are
// counted in out->skipped and left out, and a record running past the end of the file ends the
// read. No input makes a read go outside `bytes`.
//
// readCaptureFile reads the whole file into memory first: only a regular file of at most
// kMaxCaptureBytes. Both functions may run on several
// threads at once, each with its own `out`.
constexpr std::uintmax_t kMaxCaptureBytes = 512u << 20;
bool readCaptureFile(const std::string& path, CaptureContents* out, std::string* error);
bool readCapture(const uint8_t* bytes, std::size_t size, CaptureContents* out, std::string* error);

}  // namespace sim
}  // namespace tracker
