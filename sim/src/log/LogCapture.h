#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

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

// Records every line written to the simulated platform log while it exists, whatever the
// stderr level filter says. Several captures may be alive at once; each sees every line.
//
// Thread-safety: lines may arrive on any thread; every member may be called from any thread.
// m_mutex guards m_lines.
class LogCapture {
  public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<LogLine> lines() const;
    // text() of every line, oldest first.
    std::vector<std::string> texts() const;
    bool contains(const std::string& text) const;
    void clear();
    // Waits until a line with this text() has been captured, for at most `limit`.
    bool waitFor(const std::string& text, std::chrono::milliseconds limit) const;

    // Called by the log sink for each line.
    void record(const LogLine& line);

  private:
    mutable std::mutex m_mutex;
    mutable std::condition_variable m_arrived;
    std::vector<LogLine> m_lines;
};

}  // namespace sim
}  // namespace tracker
