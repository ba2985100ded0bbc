#pragma once

#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

#include "tracker/util/Clock.h"

namespace tracker {
namespace sim {

// The simulated platform's callback threads, as a device's binder pool: a few threads that make
// the platform's one-way calls into the library. Calls to one callback object (one Key) run in
// the order they were due, one at a time; calls to different objects may run at the same time,
// on any of the threads. Each call runs once its time has come on the clock seam, so a test that
// installs a ManualClock moves the platform by advancing it.
//
// Calls run without the pool's mutex and may post more calls. They never run inside the call
// that posted them.
//
// Lifetime: the threads start with the pool and stop when stop() is called, or at process exit
// before static objects are destroyed (a call that runs then would find the clock and the
// library's statics gone). After stop() posts are dropped.
//
// Thread-safety: every member may be called from any thread. barrier() must not be called from
// a delivery (it would wait for itself); clear() from a delivery waits only for the others, and
// two deliveries must not clear at once (each would wait for the other).
// m_mutex guards everything below it.
class DeliveryPool {
  public:
    // Identifies the callback object a call is made on: calls with one key keep their order.
    using Key = const void*;
    using TimePoint = util::Clock::TimePoint;

    explicit DeliveryPool(int threads);
    ~DeliveryPool();
    DeliveryPool(const DeliveryPool&) = delete;
    DeliveryPool& operator=(const DeliveryPool&) = delete;

    // Runs action on key's behalf at `due` (as soon as possible when that has passed).
    void post(Key key, TimePoint due, std::function<void()> action);
    // Runs action on key's behalf after `delay` of clock time.
    void postAfter(Key key, util::Clock::Duration delay, std::function<void()> action);
    // Drops every call not yet started and waits for those in progress.
    void clear();
    // Returns once every call due by now has run, including those they posted for now; false if
    // that took longer than `limit` of real time.
    bool barrier(std::chrono::milliseconds limit);
    // Lets the calls in progress finish and stops the threads; idempotent.
    void stop();

  private:
    struct Call {
        TimePoint due;
        std::function<void()> action;
    };
    // Calls of one key that are due, oldest first, and whether one of its calls is running.
    struct Line {
        std::deque<Call> due;
        bool running = false;
    };

    void run();
    // Moves the calls whose time has come into their keys' lines.
    void promoteDueLocked(TimePoint now);
    // True if the key's line became ready: a call of a line already running or waiting needs no
    // thread woken for it.
    bool appendDueLocked(Key key, Call call);
    // A line became ready: an idle thread takes it, or, with none idle, the one keeping time.
    void wakeForReadyLocked();
    // Whether a call due at or before `time` is waiting or running.
    bool pendingByLocked(TimePoint time) const;
    void stopThreads();

    std::mutex m_mutex;
    // Idle threads wait here for a line with work; the one keeping time waits on m_timer.
    std::condition_variable m_work;
    std::condition_variable m_timer;
    // Signalled whenever a call finishes.
    std::condition_variable m_finished;
    // (due, posting order) -> the call; not due yet.
    std::map<std::pair<TimePoint, uint64_t>, std::pair<Key, std::function<void()>>> m_timed;
    uint64_t m_sequence = 0;
    std::unordered_map<Key, Line> m_lines;
    // Keys with due calls and none running, in the order they became ready.
    std::deque<Key> m_ready;
    // Due times of the calls running now.
    std::vector<TimePoint> m_running;
    bool m_timekeeping = false;
    // Threads waiting on m_work.
    int m_idleThreads = 0;
    bool m_stopping = false;
    std::vector<std::thread> m_threads;
};

}  // namespace sim
}  // namespace tracker
