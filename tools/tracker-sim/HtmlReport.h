#pragma once

#include <map>
#include <string>
#include <vector>

#include "Summary.h"
#include "Timeline.h"

namespace tracker {
namespace trackersim {

// A run as one self-contained HTML page, to look at rather than read: an SVG chart of each tag's
// RSSI and one of its distance over time, the connectors' table and what each received. No
// script, no style sheet or font from elsewhere: it opens the same offline.

// Whether the page can be written there (creating an empty file if there is none, leaving one
// that is there as it is); a run checks before it starts rather than failing at the end.
bool canWriteHtmlReport(const std::string& path, std::string* error);
bool writeHtmlReport(const std::string& path, const std::vector<TimelineEvent>& events,
                     const std::map<std::string, ConnectorSummary>& connectors,
                     const RunFigures& run, std::string* error);

}  // namespace trackersim
}  // namespace tracker
