#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <thread>

#include "tracker/util/Clock.h"
#include "tracker/util/Log.h"
#include "tracker/util/Mutex.h"

namespace tracker {
namespace util {

// The Timer's logger, "TrackerD-Timer" (never destroyed, like every file's logger).
extern const Log& TSTIMERLOG;

// Runs a callable on a thread of its own after an initial delay, then every period, `count`
// times (0: until stopped). One schedule at a time. The clock is the one in force at start();
// the schedule counts from the moment its thread begins, so a test on a manual clock waits for
// the first deadline (ManualClock::waitForDeadline) before it moves the time.
//
// start() refuses, with an error line and false: a negative delay
// ("startFailed: reason=negativeDelay"), a negative period ("startFailed: reason=negativePeriod")
// and a start while a schedule runs ("startFailed: reason=timerAlreadyActive").
//
// Thread-safety: every member may be called from any thread. stop() wakes a waiting schedule at
// once and, from another thread, returns after a running callable has returned; from the
// callable itself it does not wait, and the schedule ends at its next wait. The callable runs
// without the mutex; it must not start() its own Timer nor destroy it (that ends the process
// with an error line), and an exception leaving it ends the process. m_mutex guards
// m_stopRequested; m_threadMutex serialises starting and joining m_thread.
class Timer {
  public:
    // Other values keep the schedule's waits and never call.
    enum PeriodType : int {
        // Runs at start + delay + k * period, whatever the callable takes; a run whose time has
        // passed when the previous one returns is skipped, so the schedule stays on its grid.
        FixedRate = 0,
        // Each wait of `period` starts when the callable returns.
        FixedDelay = 1,
    };

    Timer();
    ~Timer();
    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;

    template <typename Rep, typename Period, typename F>
    bool start(std::chrono::duration<Rep, Period> delay, std::chrono::duration<Rep, Period> period,
               PeriodType type, unsigned int count, F f) {
        using Zero = std::chrono::duration<Rep, Period>;
        if (delay < Zero::zero()) {
            TSTIMERLOG.e("startFailed: reason=negativeDelay");
            return false;
        }
        if (period < Zero::zero()) {
            TSTIMERLOG.e("startFailed: reason=negativePeriod");
            return false;
        }
        if (!activate()) {
            TSTIMERLOG.e("startFailed: reason=timerAlreadyActive");
            return false;
        }
        startSchedule(Clock::saturated(delay), Clock::saturated(period), type, count,
                      std::make_shared<std::function<void()>>(std::move(f)));
        return true;
    }

    void stop();
    bool isActive() const;
    // Sets the active flag; true if it was clear.
    bool activate();

  private:
    void startSchedule(Clock::Duration delay, Clock::Duration period, PeriodType type,
                       unsigned int count, std::shared_ptr<std::function<void()>> f);
    void runSchedule(std::shared_ptr<Clock> clock, Clock::Duration delay, Clock::Duration period,
                     PeriodType type, unsigned int count, std::shared_ptr<std::function<void()>> f);
    // The schedule is over: clears the stop request and the active flag.
    void endScheduleLocked() TRACKER_REQUIRES(m_mutex);

    std::condition_variable m_wake;
    Mutex m_mutex;
    Mutex m_threadMutex;
    std::thread m_thread TRACKER_GUARDED_BY(m_threadMutex);
    std::atomic<bool> m_active{false};
    bool m_stopRequested TRACKER_GUARDED_BY(m_mutex) = false;
};

}  // namespace util
}  // namespace tracker
