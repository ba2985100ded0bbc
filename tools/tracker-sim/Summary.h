#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <ostream>
#include <string>

#include "Timeline.h"

namespace tracker {
namespace trackersim {

// What a replayed capture gave.
struct ReplayFigures {
    std::string file;
    std::string format;      // "btsnoop", "pcap" or "pcapng"
    uint64_t reports = 0;    // advertisement reports read
    uint64_t skipped = 0;    // malformed, left out
    uint64_t delivered = 0;  // passed the scan's filters
    uint64_t routed = 0;     // reached a connector
};

// The run as a whole, beside what each connector received.
struct RunFigures {
    std::chrono::milliseconds duration{0};
    uint32_t seed = 0;
    uint64_t scanStarts = 0;
    uint64_t scanStartsRefused = 0;
    uint64_t scanStops = 0;
    uint64_t proxyDeaths = 0;
    uint64_t proxyRecoveries = 0;
    // Tracking by membership stopped (a pause of the duty cycle, a stop) and started again.
    uint64_t trackingPauses = 0;
    uint64_t trackingResumes = 0;
    uint64_t advertisementsRecorded = 0;
    std::optional<ReplayFigures> replay;
};

// Writes the closing summary: a table per connector and the run's figures, or in JSON one
// object whose "event" is "summary".
void writeSummary(std::ostream& out, Timeline::Format format, int64_t t,
                  const std::map<std::string, ConnectorSummary>& connectors, const RunFigures& run);

}  // namespace trackersim
}  // namespace tracker
