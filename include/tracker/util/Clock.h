#pragma once

#include <chrono>
#include <condition_variable>
#include <future>
#include <memory>
#include <mutex>

namespace tracker {
namespace util {

// The one place through which the library sleeps, reads the time for its schedules and bounds
// its waits. Production runs on real time (the default); a test installs a clock it controls,
// such as ManualClock, so that minutes of retries and back-off pass in milliseconds and every
// requested sleep can be read back.
//
// Durations and time points are of the steady clock; a test clock may run its own time on them.
//
// Thread-safety: every member may be called from any thread. install() is meant for test set-up:
// code that already took current() keeps the clock it took.
class Clock {
  public:
    using Duration = std::chrono::steady_clock::duration;
    using TimePoint = std::chrono::steady_clock::time_point;

    virtual ~Clock();

    // The clock in force: the installed one, or real time.
    static std::shared_ptr<Clock> current();
    // Installs a clock for everything that asks current() from now on; null restores real time.
    static void install(std::shared_ptr<Clock> clock);

    // `d` as the clock's duration, saturated at Duration::max() (a delay of 10^10 s does not fit
    // in nanoseconds: it must wait for ever, not wrap round and run at once). d >= 0.
    template <typename Rep, typename Period>
    static Duration saturated(std::chrono::duration<Rep, Period> d) {
        using Nanos = std::chrono::duration<long double, std::nano>;
        if (std::chrono::duration_cast<Nanos>(d) >=
            std::chrono::duration_cast<Nanos>(Duration::max())) {
            return Duration::max();
        }
        return std::chrono::duration_cast<Duration>(d);
    }
    // time + d, or TimePoint::max() where the sum would not fit. d >= 0.
    static TimePoint saturatedAdd(TimePoint time, Duration d) {
        return d > TimePoint::max() - time ? TimePoint::max() : time + d;
    }

    virtual TimePoint now() const = 0;
    virtual void sleepFor(Duration duration) = 0;

    // One wait on cv (lock held, as for cv.wait): returns false without waiting once `deadline`
    // has passed on this clock; otherwise waits until notified, spuriously woken or the deadline,
    // and returns whether the deadline is still ahead.
    bool waitUntil(std::condition_variable& cv, std::unique_lock<std::mutex>& lock,
                   TimePoint deadline) const;

    // Waits until pred() holds or `limit` has passed on this clock; returns pred().
    template <typename Predicate>
    bool waitFor(std::condition_variable& cv, std::unique_lock<std::mutex>& lock, Duration limit,
                 Predicate pred) const {
        const TimePoint deadline = saturatedAdd(now(), limit);
        while (!pred()) {
            if (!waitUntil(cv, lock, deadline)) {
                return pred();
            }
        }
        return true;
    }

    // Waits until the future is ready or `limit` has passed on this clock.
    template <typename Future>
    std::future_status waitFor(const Future& future, Duration limit) const {
        const TimePoint deadline = saturatedAdd(now(), limit);
        noteWait(deadline);
        for (;;) {
            const Duration remaining = deadline - now();
            if (remaining <= Duration::zero()) {
                return future.wait_for(Duration::zero());
            }
            if (future.wait_for(realWait(remaining)) == std::future_status::ready) {
                return std::future_status::ready;
            }
        }
    }

  protected:
    // Every bounded wait reports its deadline here before it blocks.
    virtual void noteWait(TimePoint /*deadline*/) const {}
    // How long to block in real time when `remaining` of this clock's time is left before a
    // deadline; the waiter looks at the clock again afterwards.
    virtual Duration realWait(Duration remaining) const = 0;
};

}  // namespace util
}  // namespace tracker
