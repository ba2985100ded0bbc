#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <thread>
#include <utility>

#include "tracker/util/Clock.h"

namespace tracker {
namespace sim {

// The simulator's own thread: runs each posted action once its time has come, in time order
// (posting order among equal times). Time is the library's clock seam, so a test that installs a
// ManualClock moves the simulated world by advancing it.
//
// Actions run without the loop's mutex held and may post more actions. This is where every
// platform callback is delivered: never inside the caller's call, as on a device.
//
// Thread-safety: post() and clear() may be called from any thread.
class EventLoop {
  public:
    using TimePoint = util::Clock::TimePoint;

    EventLoop();
    // Never called for the process-wide world; joins the thread for loops that tests own.
    ~EventLoop();
    EventLoop(const EventLoop&) = delete;
    EventLoop& operator=(const EventLoop&) = delete;

    // Runs action at `due` (at once when it has passed).
    void post(TimePoint due, std::function<void()> action);
    // Runs action after `delay` of clock time.
    void postAfter(util::Clock::Duration delay, std::function<void()> action);
    // Drops every action not yet run.
    void clear();
    // Whether an action due at or before `time` is waiting.
    bool hasDue(TimePoint time);

  private:
    void run();

    std::mutex m_mutex;
    std::condition_variable m_changed;
    // (due, sequence) -> action; guarded by m_mutex.
    std::map<std::pair<TimePoint, uint64_t>, std::function<void()>> m_pending;
    uint64_t m_sequence = 0;
    bool m_stopping = false;
    std::thread m_thread;
};

}  // namespace sim
}  // namespace tracker
