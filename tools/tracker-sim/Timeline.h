#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace tracker {
namespace trackersim {

// One thing that happened in a run, as the timeline shows it.
struct TimelineEvent {
    int64_t t = 0;          // virtual milliseconds since the run began
    std::string connector;  // the connector that saw it, or "world" / "script"
    std::string event;      // "result", "connected", "distance", ...
    std::string address;    // obfuscated ("MAC:00:01"); empty when none
    std::string device;     // the clear address of a result or distance: counted, never written
    std::optional<int> rssi;
    std::optional<double> metres;  // a measured distance, or a range bucket's upper bound
    std::string detail;            // the rest, as text
    // Counted among the connector's failures in the summary.
    bool failure = false;
    // Stamped by add(): reported from the run's own threads (the script thread, the thread
    // that moves the time), whose order within a step is their program's order.
    bool fromRun = false;
};

// What a connector received over the run.
struct ConnectorSummary {
    std::string kind;  // "bluetooth" or "inloc"
    std::string filters;
    uint64_t results = 0;  // scan results or distance events
    uint64_t gattOperations = 0;
    uint64_t sessions = 0;  // GATT sessions that ran to their end
    uint64_t failures = 0;
    std::optional<int> rssiLow, rssiHigh;
    std::optional<double> metresLow, metresHigh;
};

// Collects the events of a run from every thread and writes them in time order, as readable
// lines or as JSON lines. Within one step and one connector, the events the run's own threads
// reported come first, in the order they were reported; the events of the platform's and the
// managers' threads follow, sorted by their content. Two runs that saw the same events therefore
// write the same bytes whatever order those threads ran in.
//
// Thread-safety: every member may be called from any thread; m_mutex guards everything.
class Timeline {
  public:
    enum class Format { Text, Json };

    Timeline(std::ostream& out, Format format, std::function<int64_t()> now);

    // While one exists, the calling thread's events count as the run's own.
    class RunThread {
      public:
        RunThread();
        ~RunThread();
        RunThread(const RunThread&) = delete;
        RunThread& operator=(const RunThread&) = delete;

      private:
        const bool m_was;
    };

    void declareConnector(const std::string& name, const std::string& kind,
                          const std::string& filters);
    // Stamps the event with the current virtual time and keeps it for the next flush().
    void add(TimelineEvent event);
    // Writes the events kept so far (in text, a header line before the first).
    void flush();
    // Counts a GATT operation a connector asked for.
    void countGattOperation(const std::string& connector);

    std::map<std::string, ConnectorSummary> summaries() const;
    // Every event written so far, in the order written.
    std::vector<TimelineEvent> events() const;

  private:
    void write(const TimelineEvent& event);

    std::ostream& m_out;
    const Format m_format;
    const std::function<int64_t()> m_now;
    mutable std::mutex m_mutex;
    std::vector<TimelineEvent> m_pending;
    std::vector<TimelineEvent> m_written;
    std::map<std::string, ConnectorSummary> m_summaries;
    bool m_headerWritten = false;
};

}  // namespace trackersim
}  // namespace tracker
