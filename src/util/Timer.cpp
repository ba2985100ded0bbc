#include "tracker/util/Timer.h"

#include <pthread.h>

#include <exception>

namespace tracker {
namespace util {

const Log& TSTIMERLOG = *new Log("Timer");

namespace {
// The Timer whose schedule runs on this thread, so that stop() from its callable does not join
// the thread it runs on.
thread_local const Timer* t_scheduleOwner = nullptr;
}  // namespace

Timer::Timer() = default;

Timer::~Timer() {
    if (t_scheduleOwner == this) {
        // The schedule loop still needs this object once the callable returns.
        TSTIMERLOG.e("destroyFailed: reason=destroyedByOwnCallable");
        std::terminate();
    }
    stop();
}

bool Timer::isActive() const {
    return m_active;
}

bool Timer::activate() {
    return !m_active.exchange(true);
}

void Timer::startSchedule(Clock::Duration delay, Clock::Duration period, PeriodType type,
                          unsigned int count, std::shared_ptr<std::function<void()>> f) {
    std::shared_ptr<Clock> clock = Clock::current();
    MutexLock lock(m_threadMutex);
    // An earlier schedule has ended (the timer was inactive); its thread may still be leaving.
    if (m_thread.joinable()) {
        m_thread.join();
    }
    m_thread = std::thread(&Timer::runSchedule, this, std::move(clock), delay, period, type, count,
                           std::move(f));
}

void Timer::runSchedule(std::shared_ptr<Clock> clock, Clock::Duration delay, Clock::Duration period,
                        PeriodType type, unsigned int count,
                        std::shared_ptr<std::function<void()>> f) {
    t_scheduleOwner = this;
    pthread_setname_np(pthread_self(), "trk-timer");
    Clock::TimePoint base = clock->now();
    // count 0 wraps to the largest value: in practice the schedule never ends by itself.
    const unsigned int lastRun = count - 1;
    bool skipNext = false;
    for (unsigned int run = 0;; ++run) {
        const Clock::TimePoint deadline = Clock::saturatedAdd(base, run == 0 ? delay : period);
        {
            MutexLock lock(m_mutex);
            while (!m_stopRequested && clock->waitUntil(m_wake, lock.native(), deadline)) {
            }
            if (m_stopRequested) {
                endScheduleLocked();
                return;
            }
        }
        switch (type) {
            case FixedDelay:
                (*f)();
                base = clock->now();
                break;
            case FixedRate:
                base = deadline;
                if (!skipNext) {
                    (*f)();
                }
                skipNext = Clock::saturatedAdd(base, period) < clock->now();
                break;
            default:
                // Unknown types keep the schedule's waits and never call.
                base = deadline;
                break;
        }
        if (run == lastRun) {
            break;
        }
    }
    MutexLock lock(m_mutex);
    endScheduleLocked();
}

void Timer::endScheduleLocked() {
    m_stopRequested = false;
    m_active = false;
}

void Timer::stop() {
    {
        MutexLock lock(m_mutex);
        if (m_active) {
            m_stopRequested = true;
        }
    }
    m_wake.notify_all();
    if (t_scheduleOwner == this) {
        return;
    }
    MutexLock lock(m_threadMutex);
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

}  // namespace util
}  // namespace tracker
