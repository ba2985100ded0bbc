#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "capture/Capture.h"

namespace tracker {
namespace sim {

// One line as the platform log received it.
struct LogLine {
    int priority;
    std::string tag;
    std::string message;

    // "<letter> <tag>: <message>", e.g. "E TrackerD-Base64: Invalid parameters".
    std::string text() const;
};

// Every line written to the simulated platform log while it exists, whatever the stderr level
// filter says. Thread-safety as for Capture.
class LogCapture : public Capture<LogLine> {
  public:
    std::vector<LogLine> lines() const { return entries(); }
    // text() of every line, oldest first.
    std::vector<std::string> texts() const;
    bool contains(const std::string& text) const;
    // Waits until a line with this text() has been captured, for at most `limit`.
    bool waitFor(const std::string& text, std::chrono::milliseconds limit) const;
};

}  // namespace sim
}  // namespace tracker
