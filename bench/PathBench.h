#pragma once

// What the path benchmarks share: arrival times per numbered item, the process's CPU time, and
// the two cases each path is measured in, for the manager and for the baseline.

#include <benchmark/benchmark.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace tracker {
namespace bench {

using Clock = std::chrono::steady_clock;

// When each item (numbered by the benchmark) left the platform and reached its client, and how
// many have arrived. Items are numbered modulo the capacity.
class Arrivals {
  public:
    explicit Arrivals(std::size_t capacity) : m_delivered(capacity), m_arrived(capacity) {}

    void reset(std::size_t expected) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_count = 0;
        m_expected = expected;
    }
    void delivered(uint32_t seq) { m_delivered[seq % m_delivered.size()] = Clock::now(); }
    void arrived(uint32_t seq) {
        m_arrived[seq % m_arrived.size()] = Clock::now();
        if (m_count.fetch_add(1) + 1 == m_expected) {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_done.notify_all();
        }
    }
    bool waitForAll() {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_done.wait_for(lock, std::chrono::seconds(30),
                               [&] { return m_count.load() >= m_expected; });
    }
    // Platform callback to client callback, in microseconds, of results [0, count).
    std::vector<double> latencies(std::size_t count) const {
        std::vector<double> result;
        for (std::size_t seq = 0; seq < count; ++seq) {
            result.push_back(
                std::chrono::duration<double, std::micro>(m_arrived[seq] - m_delivered[seq])
                    .count());
        }
        return result;
    }

  private:
    std::vector<Clock::time_point> m_delivered;
    std::vector<Clock::time_point> m_arrived;
    std::atomic<std::size_t> m_count{0};
    std::size_t m_expected = 0;
    std::mutex m_mutex;
    std::condition_variable m_done;
};

// CPU time of the whole process (every thread: radio, platform callbacks, routing, clients).
inline double processCpuSeconds() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

// Items flat out: each iteration sends a burst of state.range(0) and waits for the last one.
// Reports the rate, and the process's CPU time per item as `cpuCounter`: the rate alone also
// reflects how often a consumer that runs dry has to be woken.
template <typename Send>
void runThroughput(benchmark::State& state, Arrivals& arrivals, Send send, const char* cpuCounter) {
    const auto burst = static_cast<uint32_t>(state.range(0));
    const double cpuBefore = processCpuSeconds();
    for (auto _ : state) {
        arrivals.reset(burst);
        for (uint32_t seq = 0; seq < burst; ++seq) {
            send(seq);
        }
        if (!arrivals.waitForAll()) {
            state.SkipWithError("items were lost");
            return;
        }
    }
    const double items = static_cast<double>(state.iterations()) * burst;
    state.SetItemsProcessed(static_cast<int64_t>(items));
    state.counters[cpuCounter] = (processCpuSeconds() - cpuBefore) * 1e6 / items;
}

// state.range(0) items a second for two seconds; `send` (or the path it feeds) marks each item
// delivered. Reports the median and 99th percentile from delivery to arrival.
template <typename Send>
void runLatency(benchmark::State& state, Arrivals& arrivals, Send send) {
    const auto perSecond = static_cast<uint32_t>(state.range(0));
    const uint32_t count = perSecond * 2;
    const auto spacing = std::chrono::nanoseconds(1000000000 / perSecond);
    std::vector<double> latencies;
    for (auto _ : state) {
        arrivals.reset(count);
        const Clock::time_point start = Clock::now();
        for (uint32_t seq = 0; seq < count; ++seq) {
            std::this_thread::sleep_until(start + spacing * seq);
            send(seq);
        }
        if (!arrivals.waitForAll()) {
            state.SkipWithError("items were lost");
            return;
        }
        latencies = arrivals.latencies(count);
    }
    std::sort(latencies.begin(), latencies.end());
    state.counters["p50_us"] = latencies[latencies.size() / 2];
    state.counters["p99_us"] = latencies[latencies.size() * 99 / 100];
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * count);
}

// Registers Throughput/<subject> (bursts of `burst`) and Latency/<subject> (at `rate` a second)
// for the manager's path and the baseline's.
template <typename Path, typename Throughput, typename Latency>
void registerPathBenchmarks(Path manager, Path baseline, Throughput throughput, Latency latency,
                            int64_t burst, int64_t rate) {
    for (const auto& [subject, path] :
         {std::make_pair("manager", manager), std::make_pair("baseline", baseline)}) {
        benchmark::RegisterBenchmark(
            (std::string("Throughput/") + subject).c_str(),
            [throughput, path = path](benchmark::State& state) { throughput(state, path); })
            ->Arg(burst)
            ->UseRealTime()
            ->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(
            (std::string("Latency/") + subject).c_str(),
            [latency, path = path](benchmark::State& state) { latency(state, path); })
            ->Arg(rate)
            ->Iterations(1)
            ->UseRealTime()
            ->Unit(benchmark::kMillisecond);
    }
}

}  // namespace bench
}  // namespace tracker
