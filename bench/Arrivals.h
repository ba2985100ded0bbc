#pragma once

// What the path benchmarks share: arrival times per numbered item, and the process's CPU time.

#include <time.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
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

}  // namespace bench
}  // namespace tracker
