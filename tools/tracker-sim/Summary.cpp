#include "Summary.h"

#include <cstdarg>
#include <cstdio>

#include "tracker/json/JSONBuilder.h"

namespace tracker {
namespace trackersim {

namespace {

// printf into a string of whatever length it takes: paths and filter lists can be long.
__attribute__((format(printf, 1, 2))) std::string formatted(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    va_list again;
    va_copy(again, arguments);
    const int size = std::vsnprintf(nullptr, 0, format, arguments);
    va_end(arguments);
    std::string text(size > 0 ? static_cast<std::size_t>(size) : 0, '\0');
    std::vsnprintf(&text[0], text.size() + 1, format, again);
    va_end(again);
    return text;
}

std::string metresRange(const std::optional<double>& low, const std::optional<double>& high) {
    if (!low) {
        return "-";
    }
    char text[64];
    std::snprintf(text, sizeof text, "%.2f..%.2f m", *low, *high);
    return text;
}

void writeText(std::ostream& out, const std::map<std::string, ConnectorSummary>& connectors,
               const RunFigures& run) {
    out << formatted("\nSummary: %.3f s of virtual time, seed %u\n",
                     static_cast<double>(run.duration.count()) / 1000.0, run.seed);
    out << formatted("  %-15s %-9s %7s  %-15s %-14s %5s %8s %8s  %s\n", "connector", "kind",
                     "results", "rssi", "distance", "gatt", "sessions", "failures", "filters");
    for (const auto& [name, c] : connectors) {
        const std::string rssi =
            c.rssiLow ? std::to_string(*c.rssiLow) + ".." + std::to_string(*c.rssiHigh) + " dBm"
                      : "-";
        out << formatted("  %-15s %-9s %7llu  %-15s %-14s %5llu %8llu %8llu  %s\n", name.c_str(),
                         c.kind.c_str(), static_cast<unsigned long long>(c.results), rssi.c_str(),
                         metresRange(c.metresLow, c.metresHigh).c_str(),
                         static_cast<unsigned long long>(c.gattOperations),
                         static_cast<unsigned long long>(c.sessions),
                         static_cast<unsigned long long>(c.failures), c.filters.c_str());
    }
    out << formatted(
        "  radio: %llu scan starts (%llu refused), %llu stops; proxy deaths %llu, "
        "recoveries %llu\n",
        static_cast<unsigned long long>(run.scanStarts),
        static_cast<unsigned long long>(run.scanStartsRefused),
        static_cast<unsigned long long>(run.scanStops),
        static_cast<unsigned long long>(run.proxyDeaths),
        static_cast<unsigned long long>(run.proxyRecoveries));
    out << formatted("  inloc: tracking by membership stopped %llu times, resumed %llu times\n",
                     static_cast<unsigned long long>(run.trackingPauses),
                     static_cast<unsigned long long>(run.trackingResumes));
    if (run.replay) {
        const ReplayFigures& r = *run.replay;
        out << formatted(
            "  replay: %s (%s): %llu reports, %llu skipped, %llu delivered, %llu "
            "routed\n",
            r.file.c_str(), r.format.c_str(), static_cast<unsigned long long>(r.reports),
            static_cast<unsigned long long>(r.skipped),
            static_cast<unsigned long long>(r.delivered),
            static_cast<unsigned long long>(r.routed));
    }
    if (run.advertisementsRecorded > 0) {
        out << "  recorded: " << run.advertisementsRecorded << " advertisements\n";
    }
}

void addCount(util::json::JSONBuilder& json, const char* name, uint64_t value) {
    json.addMember(name, static_cast<unsigned long long>(value));
}

void writeJson(std::ostream& out, int64_t t,
               const std::map<std::string, ConnectorSummary>& connectors, const RunFigures& run) {
    util::json::JSONBuilder json;
    json.addMember("t", static_cast<long long>(t));
    json.addMember("event", "summary");
    json.addMember("durationMs", static_cast<long long>(run.duration.count()));
    json.addMember("seed", static_cast<unsigned int>(run.seed));
    json.startObject("connectors");
    for (const auto& [name, c] : connectors) {
        json.startObject(name);
        json.addMember("kind", c.kind);
        json.addMember("filters", c.filters);
        addCount(json, "results", c.results);
        if (c.rssiLow) {
            json.addMember("rssiLow", *c.rssiLow);
            json.addMember("rssiHigh", *c.rssiHigh);
        }
        if (c.metresLow) {
            json.addMember("metresLow", *c.metresLow);
            json.addMember("metresHigh", *c.metresHigh);
        }
        addCount(json, "gattOperations", c.gattOperations);
        addCount(json, "sessions", c.sessions);
        addCount(json, "failures", c.failures);
        json.finishObject();
    }
    json.finishObject();
    json.startObject("radio");
    addCount(json, "scanStarts", run.scanStarts);
    addCount(json, "scanStartsRefused", run.scanStartsRefused);
    addCount(json, "scanStops", run.scanStops);
    addCount(json, "proxyDeaths", run.proxyDeaths);
    addCount(json, "proxyRecoveries", run.proxyRecoveries);
    json.finishObject();
    json.startObject("inloc");
    addCount(json, "trackingStops", run.trackingPauses);
    addCount(json, "trackingResumes", run.trackingResumes);
    json.finishObject();
    if (run.replay) {
        const ReplayFigures& r = *run.replay;
        json.startObject("replay");
        json.addMember("file", r.file);
        json.addMember("format", r.format);
        addCount(json, "reports", r.reports);
        addCount(json, "skipped", r.skipped);
        addCount(json, "delivered", r.delivered);
        addCount(json, "routed", r.routed);
        json.finishObject();
    }
    addCount(json, "recorded", run.advertisementsRecorded);
    out << json.toString(true) << '\n';
}

}  // namespace

void writeSummary(std::ostream& out, Timeline::Format format, int64_t t,
                  const std::map<std::string, ConnectorSummary>& connectors,
                  const RunFigures& run) {
    if (format == Timeline::Format::Json) {
        writeJson(out, t, connectors, run);
    } else {
        writeText(out, connectors, run);
    }
    out.flush();
}

}  // namespace trackersim
}  // namespace tracker
