// Capture files as anyone may hand them to the replay tools: btsnoop, pcap and pcapng, every
// record and report length taken from the bytes themselves.

#include <cstddef>
#include <cstdint>
#include <string>

#include "replay/CaptureReader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    tracker::sim::CaptureContents contents;
    std::string error;
    if (tracker::sim::readCapture(data, size, &contents, &error)) {
        // Whatever was read must be whole: every advertisement counted as a report.
        if (contents.advertisements.size() != contents.reports) {
            __builtin_trap();
        }
    }
    return 0;
}
