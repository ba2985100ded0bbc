#pragma once

// What every benchmark program here ends with: each measured subject beside the baseline that
// ran in the same process, as ratios. Benchmarks are named "<case>/<subject>", the baseline's
// subject being "baseline"; a case is compared by its rate (items_per_second) when it has one,
// else by its time per iteration, and also by every user counter both subjects report (such as
// latency percentiles).

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace tracker {
namespace bench {

struct Measure {
    double nsPerIteration = 0;
    // Counters as the run reported them; items_per_second among them when the case counts items.
    std::map<std::string, double> counters;
    bool fromMedian = false;
};

// "<case>[/<arg>]" -> subject -> measure.
using Results = std::map<std::string, std::map<std::string, Measure>>;

// Hands every run on to the reporter --benchmark_format asked for, and keeps what the summary
// needs: a plain run, or the median when --benchmark_repetitions produces aggregates.
class CapturingReporter : public benchmark::BenchmarkReporter {
  public:
    explicit CapturingReporter(std::unique_ptr<benchmark::BenchmarkReporter> inner)
        : m_inner(std::move(inner)) {}

    bool ReportContext(const Context& context) override { return m_inner->ReportContext(context); }

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            capture(run);
        }
        m_inner->ReportRuns(runs);
    }

    void Finalize() override { m_inner->Finalize(); }

    const Results& results() const { return m_results; }

  private:
    void capture(const Run& run) {
        const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
        if (run.error_occurred || (run.run_type == Run::RT_Aggregate && !median)) {
            return;
        }
        const std::string& name = run.run_name.function_name;
        const auto slash = name.rfind('/');
        if (slash == std::string::npos) {
            return;
        }
        std::string key = name.substr(0, slash);
        if (!run.run_name.args.empty()) {
            key += "/" + run.run_name.args;
        }
        Measure& measure = m_results[key][name.substr(slash + 1)];
        if (measure.fromMedian && !median) {
            return;
        }
        measure.nsPerIteration =
            run.GetAdjustedRealTime() * 1e9 / benchmark::GetTimeUnitMultiplier(run.time_unit);
        measure.counters.clear();
        for (const auto& [counter, value] : run.counters) {
            measure.counters[counter] = value.value;
        }
        measure.fromMedian = median;
    }

    std::unique_ptr<benchmark::BenchmarkReporter> m_inner;
    Results m_results;
};

inline void printRow(std::ostream& out, const std::string& what, const std::string& subject,
                     const std::string& baseline, double ratio, const char* reading) {
    char row[200];
    std::snprintf(row, sizeof row, "%-28s %18s %18s %8.2f  (%s)", what.c_str(), subject.c_str(),
                  baseline.c_str(), ratio, reading);
    out << row << "\n";
}

inline std::string formatValue(double value, const char* unit) {
    char text[40];
    std::snprintf(text, sizeof text, "%.3g %s", value, unit);
    return text;
}

// One table per subject other than the baseline.
inline void printSummary(const Results& results, std::ostream& out) {
    std::map<std::string, std::vector<std::pair<std::string, std::pair<Measure, Measure>>>> tables;
    for (const auto& [key, subjects] : results) {
        const auto baseline = subjects.find("baseline");
        if (baseline == subjects.end()) {
            continue;
        }
        for (const auto& [subject, measure] : subjects) {
            if (subject != "baseline") {
                tables[subject].push_back({key, {measure, baseline->second}});
            }
        }
    }
    for (const auto& [subject, rows] : tables) {
        char header[200];
        std::snprintf(header, sizeof header, "%-28s %18s %18s %8s",
                      (subject + " / baseline").c_str(), subject.c_str(), "baseline", "ratio");
        out << "\n" << header << "\n";
        for (const auto& [key, pair] : rows) {
            const Measure& s = pair.first;
            const Measure& b = pair.second;
            const auto rate = s.counters.find("items_per_second");
            const auto baseRate = b.counters.find("items_per_second");
            if (rate != s.counters.end() && baseRate != b.counters.end()) {
                printRow(out, key, formatValue(rate->second / 1e6, "M/s"),
                         formatValue(baseRate->second / 1e6, "M/s"),
                         rate->second / baseRate->second, "rate: below 1 is slower");
            } else {
                printRow(out, key, formatValue(s.nsPerIteration, "ns"),
                         formatValue(b.nsPerIteration, "ns"), s.nsPerIteration / b.nsPerIteration,
                         "time: above 1 is slower");
            }
            for (const auto& [counter, value] : s.counters) {
                const auto other = b.counters.find(counter);
                if (counter == "items_per_second" || other == b.counters.end() ||
                    other->second == 0) {
                    continue;
                }
                printRow(out, "  " + counter, formatValue(value, ""),
                         formatValue(other->second, ""), value / other->second,
                         "above 1 is larger");
            }
        }
    }
}

// The reporter the library itself would pick. Read before benchmark::Initialize(), which
// removes the flags it knows from argv.
inline std::unique_ptr<benchmark::BenchmarkReporter> makeReporter(int argc, char** argv,
                                                                  bool& console) {
    std::string format = "console";
    const char flag[] = "--benchmark_format=";
    for (int i = 1; i < argc; ++i) {
        if (std::strncmp(argv[i], flag, sizeof flag - 1) == 0) {
            format = argv[i] + sizeof flag - 1;
        }
    }
    console = format == "console";
    if (format == "json") {
        return std::make_unique<benchmark::JSONReporter>();
    }
    if (!console) {
        return nullptr;
    }
    auto options = benchmark::ConsoleReporter::OO_Tabular;
    if (isatty(STDOUT_FILENO)) {
        options = benchmark::ConsoleReporter::OO_ColorTabular;
    }
    return std::make_unique<benchmark::ConsoleReporter>(options);
}

// Runs the registered benchmarks and prints the ratio tables; main() of every program here.
inline int runWithRatios(int argc, char** argv) {
    bool console = true;
    std::unique_ptr<benchmark::BenchmarkReporter> inner = makeReporter(argc, argv, console);
    if (!inner) {
        std::cerr << "unknown --benchmark_format; use console or json\n";
        return 1;
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    CapturingReporter reporter(std::move(inner));
    benchmark::RunSpecifiedBenchmarks(&reporter);
    // Kept off stdout when that carries JSON, so the output still parses.
    printSummary(reporter.results(), console ? std::cout : std::cerr);
    benchmark::Shutdown();
    return 0;
}

}  // namespace bench
}  // namespace tracker
