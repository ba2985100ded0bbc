#include "HtmlReport.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>

namespace tracker {
namespace trackersim {

namespace {

constexpr const char* kColours[] = {"#1f77b4", "#d62728", "#2ca02c", "#9467bd",
                                    "#ff7f0e", "#17becf", "#8c564b", "#e377c2"};
// A tag not heard for longer than this has left: its line breaks there.
constexpr double kGapSeconds = 5;
constexpr int kWidth = 900, kHeight = 260, kLeft = 60, kRight = 20, kTop = 20, kBottom = 40;

std::string escaped(const std::string& text) {
    std::string out;
    for (char c : text) {
        switch (c) {
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '&':
                out += "&amp;";
                break;
            case '"':
                out += "&quot;";
                break;
            default:
                out += c;
        }
    }
    return out;
}

struct Point {
    double t;  // seconds
    double value;
};

// One line chart: a series per tag, in the tag's colour, time across, the value up.
std::string chart(const std::string& title, const std::string& unit,
                  const std::map<std::string, std::vector<Point>>& series,
                  const std::map<std::string, const char*>& colours,
                  const std::map<std::string, std::string>& labels, double runSeconds) {
    if (series.empty()) {
        return "<p>No " + escaped(title) + " in this run.</p>\n";
    }
    double low = series.begin()->second.front().value, high = low;
    for (const auto& entry : series) {
        for (const Point& p : entry.second) {
            low = std::min(low, p.value);
            high = std::max(high, p.value);
        }
    }
    if (high - low < 1) {
        high += 0.5;
        low -= 0.5;
    }
    const double plotW = kWidth - kLeft - kRight, plotH = kHeight - kTop - kBottom;
    const auto x = [&](double t) { return kLeft + plotW * t / std::max(runSeconds, 1.0); };
    const auto y = [&](double v) { return kTop + plotH * (high - v) / (high - low); };
    std::ostringstream svg;
    svg.setf(std::ios::fixed);
    svg.precision(1);
    svg << "<h2>" << escaped(title) << "</h2>\n<svg xmlns=\"http://www.w3.org/2000/svg\" width=\""
        << kWidth << "\" height=\"" << kHeight + 20 * series.size() << "\" font-size=\"12\">\n";
    svg << "<rect x=\"" << kLeft << "\" y=\"" << kTop << "\" width=\"" << plotW << "\" height=\""
        << plotH << "\" fill=\"#fafafa\" stroke=\"#999\"/>\n";
    for (int i = 0; i <= 4; ++i) {
        const double v = low + (high - low) * i / 4;
        svg << "<text x=\"" << kLeft - 6 << "\" y=\"" << y(v) + 4 << "\" text-anchor=\"end\">" << v
            << "</text>\n";
        const double t = runSeconds * i / 4;
        svg << "<text x=\"" << x(t) << "\" y=\"" << kTop + plotH + 16
            << "\" text-anchor=\"middle\">" << t << " s</text>\n";
    }
    svg << "<text x=\"12\" y=\"" << kTop + plotH / 2 << "\" transform=\"rotate(-90 12 "
        << kTop + plotH / 2 << ")\" text-anchor=\"middle\">" << escaped(unit) << "</text>\n";
    std::size_t index = 0;
    for (const auto& [tag, points] : series) {
        const char* colour = colours.at(tag);
        svg << "<path fill=\"none\" stroke=\"" << colour << "\" stroke-width=\"1.5\" d=\"";
        for (std::size_t i = 0; i < points.size(); ++i) {
            const bool gap = i == 0 || points[i].t - points[i - 1].t > kGapSeconds;
            svg << (gap ? 'M' : 'L') << x(points[i].t) << ',' << y(points[i].value) << ' ';
        }
        svg << "\"/>\n";
        const double legendY = kHeight + 20.0 * index;
        svg << "<rect x=\"" << kLeft << "\" y=\"" << legendY - 9 << "\" width=\"10\" height=\"10\" "
            << "fill=\"" << colour << "\"/><text x=\"" << kLeft + 16 << "\" y=\"" << legendY
            << "\">" << escaped(labels.at(tag)) << " (" << points.size() << " points)</text>\n";
        ++index;
    }
    svg << "</svg>\n";
    return svg.str();
}

}  // namespace

bool canWriteHtmlReport(const std::string& path, std::string* error) {
    // Opened to append: a page already there stays until the run writes the new one.
    std::ofstream file(path, std::ios::app);
    if (!file) {
        *error = path + ": " + std::strerror(errno);
        return false;
    }
    return true;
}

bool writeHtmlReport(const std::string& path, const std::vector<TimelineEvent>& events,
                     const std::map<std::string, ConnectorSummary>& connectors,
                     const RunFigures& run, std::string* error) {
    std::map<std::string, std::vector<Point>> rssi, distance;
    // What each connector received, by tag.
    std::map<std::string, std::map<std::string, int>> received;
    // Series are kept by the clear address, which two tags never share, and labelled with the
    // obfuscated one.
    std::map<std::string, std::string> labels;
    for (const TimelineEvent& event : events) {
        const double t = static_cast<double>(event.t) / 1000.0;
        const std::string& tag = event.device.empty() ? event.address : event.device;
        labels.emplace(tag, event.address);
        if (event.event == "result" && event.rssi) {
            rssi[tag].push_back({t, static_cast<double>(*event.rssi)});
            ++received[event.connector][event.address];
        } else if (event.event == "distance") {
            if (event.metres) {
                distance[tag].push_back({t, *event.metres});
            }
            ++received[event.connector][event.address];
        }
    }
    // A tag keeps its colour from chart to chart.
    std::map<std::string, const char*> colours;
    for (const auto* series : {&rssi, &distance}) {
        for (const auto& entry : *series) {
            colours.emplace(entry.first, nullptr);
        }
    }
    std::size_t next = 0;
    for (auto& entry : colours) {
        entry.second = kColours[next++ % (sizeof kColours / sizeof *kColours)];
    }
    const double seconds = static_cast<double>(run.duration.count()) / 1000.0;
    std::ostringstream page;
    page << "<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\"><title>tracker-sim run</title>\n"
         << "<style>body{font-family:sans-serif;margin:2em;color:#222}table{border-collapse:"
            "collapse}td,th{border:1px solid #ccc;padding:4px 8px;text-align:left}</style>\n"
         << "</head><body>\n<h1>tracker-sim run</h1>\n<p>" << seconds << " s of virtual time, seed "
         << run.seed << ", " << events.size() << " timeline events; radio: " << run.scanStarts
         << " scan starts (" << run.scanStartsRefused << " refused), proxy deaths "
         << run.proxyDeaths << ", recoveries " << run.proxyRecoveries << ".</p>\n";
    if (run.replay) {
        page << "<p>Replayed " << escaped(run.replay->file) << " (" << run.replay->format
             << "): " << run.replay->reports << " reports, " << run.replay->skipped << " skipped, "
             << run.replay->delivered << " delivered, " << run.replay->routed << " routed.</p>\n";
    }
    page << chart("RSSI of each tag", "dBm", rssi, colours, labels, seconds);
    page << chart("Distance of each tag", "metres", distance, colours, labels, seconds);
    page << "<h2>Connectors</h2>\n<table><tr><th>connector</th><th>kind</th><th>filters</th>"
            "<th>results</th><th>GATT operations</th><th>sessions</th><th>failures</th>"
            "<th>received from</th></tr>\n";
    for (const auto& [name, c] : connectors) {
        std::string from;
        for (const auto& [tag, count] : received[name]) {
            from += (from.empty() ? "" : ", ") + escaped(tag) + " &times; " + std::to_string(count);
        }
        page << "<tr><td>" << escaped(name) << "</td><td>" << c.kind << "</td><td>"
             << escaped(c.filters) << "</td><td>" << c.results << "</td><td>" << c.gattOperations
             << "</td><td>" << c.sessions << "</td><td>" << c.failures << "</td><td>" << from
             << "</td></tr>\n";
    }
    page << "</table>\n</body></html>\n";
    std::ofstream file(path, std::ios::trunc);
    file << page.str();
    file.close();
    if (!file) {
        *error = path + ": the report could not be written";
        return false;
    }
    return true;
}

}  // namespace trackersim
}  // namespace tracker
