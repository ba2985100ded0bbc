#include "Timeline.h"

#include <algorithm>
#include <cstdio>
#include <tuple>

#include "tracker/json/JSONBuilder.h"

namespace tracker {
namespace trackersim {

namespace {

thread_local bool t_runThread = false;

bool before(const TimelineEvent& a, const TimelineEvent& b) {
    if (std::tie(a.t, a.connector) != std::tie(b.t, b.connector)) {
        return std::tie(a.t, a.connector) < std::tie(b.t, b.connector);
    }
    if (a.fromRun || b.fromRun) {
        return a.fromRun && !b.fromRun;  // stable: the run's own keep their order
    }
    return std::tie(a.event, a.address, a.detail, a.rssi, a.metres, a.failure) <
           std::tie(b.event, b.address, b.detail, b.rssi, b.metres, b.failure);
}

template <typename T>
void widen(std::optional<T>& low, std::optional<T>& high, T value) {
    low = low ? std::min(*low, value) : value;
    high = high ? std::max(*high, value) : value;
}

std::string metres(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.2f m", value);
    return text;
}

}  // namespace

Timeline::Timeline(std::ostream& out, Format format, std::function<int64_t()> now)
    : m_out(out), m_format(format), m_now(std::move(now)) {}

Timeline::RunThread::RunThread() : m_was(t_runThread) {
    t_runThread = true;
}

Timeline::RunThread::~RunThread() {
    t_runThread = m_was;
}

void Timeline::declareConnector(const std::string& name, const std::string& kind,
                                const std::string& filters) {
    std::lock_guard<std::mutex> lock(m_mutex);
    ConnectorSummary& summary = m_summaries[name];
    summary.kind = kind;
    summary.filters = filters;
}

void Timeline::add(TimelineEvent event) {
    event.t = m_now();
    event.fromRun = t_runThread;
    std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = m_summaries.find(event.connector);
    if (found != m_summaries.end()) {
        ConnectorSummary& summary = found->second;
        if (event.event == "result" || event.event == "distance") {
            ++summary.results;
        }
        if (event.rssi) {
            widen(summary.rssiLow, summary.rssiHigh, *event.rssi);
        }
        if (event.metres) {
            widen(summary.metresLow, summary.metresHigh, *event.metres);
        }
        summary.sessions += event.event == "session complete" ? 1 : 0;
        summary.failures += event.failure ? 1 : 0;
    }
    m_pending.push_back(std::move(event));
}

void Timeline::countGattOperation(const std::string& connector) {
    std::lock_guard<std::mutex> lock(m_mutex);
    ++m_summaries[connector].gattOperations;
}

void Timeline::flush() {
    std::lock_guard<std::mutex> lock(m_mutex);
    std::stable_sort(m_pending.begin(), m_pending.end(), before);
    if (m_format == Format::Text && !m_headerWritten && !m_pending.empty()) {
        m_out
            << "     time  connector       event                  address    value       detail\n";
        m_headerWritten = true;
    }
    for (TimelineEvent& event : m_pending) {
        write(event);
        m_written.push_back(std::move(event));
    }
    m_pending.clear();
    m_out.flush();
}

void Timeline::write(const TimelineEvent& event) {
    if (m_format == Format::Json) {
        util::json::JSONBuilder json;
        json.addMember("t", static_cast<long long>(event.t));
        json.addMember("connector", event.connector);
        json.addMember("event", event.event);
        if (!event.address.empty()) {
            json.addMember("address", event.address);
        }
        if (event.rssi) {
            json.addMember("rssi", *event.rssi);
        }
        if (event.metres) {
            json.addMember("metres", *event.metres);
        }
        if (!event.detail.empty()) {
            json.addMember("detail", event.detail);
        }
        if (event.failure) {
            json.addMember("failure", true);
        }
        m_out << json.toString(true) << '\n';
        return;
    }
    std::string value;
    if (event.rssi) {
        value = std::to_string(*event.rssi) + " dBm";
    } else if (event.metres) {
        value = metres(*event.metres);
    }
    char line[160];
    std::snprintf(line, sizeof line, "%9.3f  %-15s %-22s %-10s %-11s ",
                  static_cast<double>(event.t) / 1000.0, event.connector.c_str(),
                  event.event.c_str(), event.address.c_str(), value.c_str());
    std::string text = line + event.detail;
    text.erase(text.find_last_not_of(' ') + 1);
    m_out << text << '\n';
}

std::map<std::string, ConnectorSummary> Timeline::summaries() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_summaries;
}

std::vector<TimelineEvent> Timeline::events() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_written;
}

}  // namespace trackersim
}  // namespace tracker
