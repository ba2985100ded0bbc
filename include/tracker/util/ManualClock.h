#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <set>
#include <vector>

#include "tracker/util/Clock.h"
#include "tracker/util/Mutex.h"

namespace tracker {
namespace util {

// A clock for tests: its time moves only when sleepFor() or advance() moves it, and it keeps
// every requested sleep. Install it with Clock::install().
//
// Sleeps either pass at once, moving the time on by their length (SleepMode::Advance: a retry
// loop that asks for 2, 4, 6 and 8 s finishes in microseconds), or block until advance() has
// moved the time past their end (SleepMode::Block: the test steps through them).
//
// Waits with a limit end when their event arrives or when advance() moves the time past their
// deadline; while waiting they look at the clock every millisecond of real time. Each deadline
// waited for is recorded, so a test can step in once a thread has started waiting.
//
// Thread-safety: every member may be called from any thread. m_mutex guards the time and the
// recorded sleeps; m_moved is signalled whenever either changes.
class ManualClock : public Clock {
  public:
    enum class SleepMode { Advance, Block };

    explicit ManualClock(SleepMode mode = SleepMode::Advance);

    TimePoint now() const override;
    void sleepFor(Duration duration) override;

    // Moves the time on, waking the sleeps and waits it passes.
    void advance(Duration duration);
    // Every sleep requested so far, in order.
    std::vector<Duration> sleeps() const;
    // Blocks (real time) until at least `count` sleeps were requested; false after `limit`.
    bool waitForSleeps(std::size_t count, std::chrono::milliseconds limit) const;
    // Blocks (real time) until some thread waits for exactly `deadline`, not yet passed; false
    // after `limit`.
    bool waitForDeadline(TimePoint deadline, std::chrono::milliseconds limit) const;
    // The earliest deadline after `time` that a wait, or a blocked sleep's end, ever recorded:
    // where moving the time can next make a difference. A driver that lets every thread come to
    // rest first can jump there instead of stepping through the time between.
    std::optional<TimePoint> nextDeadlineAfter(TimePoint time) const;

  protected:
    void noteWait(TimePoint deadline) const override;
    Duration realWait(Duration remaining) const override;

  private:
    const SleepMode m_mode;
    mutable Mutex m_mutex;
    mutable std::condition_variable m_moved;
    TimePoint m_now TRACKER_GUARDED_BY(m_mutex);
    std::vector<Duration> m_sleeps TRACKER_GUARDED_BY(m_mutex);
    // Every deadline waited for (a wait looks at the clock many times, once recorded), and the
    // end of every blocked sleep; advance() forgets those it passes.
    mutable std::set<TimePoint> m_deadlines TRACKER_GUARDED_BY(m_mutex);
};

}  // namespace util
}  // namespace tracker
