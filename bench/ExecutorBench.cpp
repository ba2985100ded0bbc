// Measures tracker::util::Executor against BaselineQueue, the least a serial queue can do, on
// the same two cases, and ends with an "executor / baseline" table.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <future>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "BaselineQueue.h"
#include "tracker/util/Executor.h"

namespace {

using tracker::bench::BaselineQueue;

struct ExecutorQueue {
    // Long enough that the worker stays borrowed between iterations: the run loop's start-up
    // is then paid once, outside the timed loop, as it is for the baseline's thread.
    tracker::util::Executor executor{std::chrono::milliseconds(1000)};

    template <typename F>
    std::future<void> push(F f) {
        return executor.pushTo(false, std::move(f));
    }
};

// Push, run on the worker, wake the caller: one task at a time.
template <typename Queue>
void roundTrip(benchmark::State& state) {
    Queue queue;
    queue.push([] {}).get();
    for (auto _ : state) {
        queue.push([] {}).get();
    }
}

// A burst of trivial tasks; the queue is serial, so the last future covers them all.
template <typename Queue>
void throughput(benchmark::State& state) {
    const int64_t tasks = state.range(0);
    Queue queue;
    queue.push([] {}).get();
    for (auto _ : state) {
        std::future<void> last;
        for (int64_t i = 0; i < tasks; ++i) {
            last = queue.push([] {});
        }
        last.get();
    }
    state.SetItemsProcessed(state.iterations() * tasks);
}

// Both subjects of a case are named "<case>/<subject>" so the summary can pair them.
void registerBenchmarks() {
    benchmark::RegisterBenchmark("RoundTrip/executor", roundTrip<ExecutorQueue>)
        ->UseRealTime()
        ->Unit(benchmark::kNanosecond);
    benchmark::RegisterBenchmark("RoundTrip/baseline", roundTrip<BaselineQueue>)
        ->UseRealTime()
        ->Unit(benchmark::kNanosecond);
    benchmark::RegisterBenchmark("Throughput/executor", throughput<ExecutorQueue>)
        ->Arg(1000)
        ->UseRealTime()
        ->Unit(benchmark::kMicrosecond);
    benchmark::RegisterBenchmark("Throughput/baseline", throughput<BaselineQueue>)
        ->Arg(1000)
        ->UseRealTime()
        ->Unit(benchmark::kMicrosecond);
}

struct Measure {
    double nsPerIteration = 0;
    // 0 when the case counts no items; the summary then compares time.
    double itemsPerSecond = 0;
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
        const auto items = run.counters.find("items_per_second");
        measure.itemsPerSecond = items == run.counters.end() ? 0 : items->second.value;
        measure.fromMedian = median;
    }

    std::unique_ptr<benchmark::BenchmarkReporter> m_inner;
    Results m_results;
};

std::string formatMeasure(const Measure& measure) {
    char text[32];
    if (measure.itemsPerSecond > 0) {
        std::snprintf(text, sizeof text, "%.3gM items/s", measure.itemsPerSecond / 1e6);
    } else {
        std::snprintf(text, sizeof text, "%.0f ns", measure.nsPerIteration);
    }
    return text;
}

void printSummary(const Results& results, std::ostream& out) {
    std::vector<std::string> rows;
    for (const auto& [key, subjects] : results) {
        const auto executor = subjects.find("executor");
        const auto baseline = subjects.find("baseline");
        if (executor == subjects.end() || baseline == subjects.end()) {
            continue;
        }
        const Measure& e = executor->second;
        const Measure& b = baseline->second;
        const bool rate = e.itemsPerSecond > 0 && b.itemsPerSecond > 0;
        const double ratio =
            rate ? e.itemsPerSecond / b.itemsPerSecond : e.nsPerIteration / b.nsPerIteration;
        char row[160];
        std::snprintf(row, sizeof row, "%-20s %16s %16s %8.2f  (%s)", key.c_str(),
                      formatMeasure(e).c_str(), formatMeasure(b).c_str(), ratio,
                      rate ? "rate: below 1 is slower" : "time: above 1 is slower");
        rows.emplace_back(row);
    }
    if (rows.empty()) {
        return;
    }
    char header[160];
    std::snprintf(header, sizeof header, "%-20s %16s %16s %8s", "executor / baseline", "executor",
                  "baseline", "ratio");
    out << "\n" << header << "\n";
    for (const std::string& row : rows) {
        out << row << "\n";
    }
}

// The reporter the library itself would pick. Read before benchmark::Initialize(), which
// removes the flags it knows from argv.
std::unique_ptr<benchmark::BenchmarkReporter> makeReporter(int argc, char** argv, bool& console) {
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

}  // namespace

int main(int argc, char** argv) {
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
    registerBenchmarks();
    CapturingReporter reporter(std::move(inner));
    benchmark::RunSpecifiedBenchmarks(&reporter);
    // Kept off stdout when that carries JSON, so the output still parses.
    printSummary(reporter.results(), console ? std::cout : std::cerr);
    benchmark::Shutdown();
    return 0;
}
