#include "tracker/util/ManualClock.h"

#include <algorithm>

namespace tracker {
namespace util {

namespace {
// How often a wait on a manual clock looks whether the test has moved the time.
constexpr std::chrono::milliseconds kPollInterval{1};
}  // namespace

ManualClock::ManualClock(SleepMode mode)
    : m_mode(mode), m_now(TimePoint{} + std::chrono::hours(1)) {}

Clock::TimePoint ManualClock::now() const {
    MutexLock lock(m_mutex);
    return m_now;
}

void ManualClock::sleepFor(Duration duration) {
    MutexLock lock(m_mutex);
    m_sleeps.push_back(duration);
    const TimePoint end = saturatedAdd(m_now, std::max(duration, Duration::zero()));
    if (m_mode == SleepMode::Advance) {
        m_now = std::max(m_now, end);
    } else {
        m_deadlines.insert(end);
    }
    m_moved.notify_all();
    m_moved.wait(lock.native(), [&]() TRACKER_NO_THREAD_SAFETY_ANALYSIS { return m_now >= end; });
}

void ManualClock::advance(Duration duration) {
    {
        MutexLock lock(m_mutex);
        m_now += std::max(duration, Duration::zero());
        // Deadlines passed can no longer be waited for; a long run would otherwise keep them all.
        m_deadlines.erase(m_deadlines.begin(), m_deadlines.lower_bound(m_now));
    }
    m_moved.notify_all();
}

std::vector<Clock::Duration> ManualClock::sleeps() const {
    MutexLock lock(m_mutex);
    return m_sleeps;
}

bool ManualClock::waitForSleeps(std::size_t count, std::chrono::milliseconds limit) const {
    MutexLock lock(m_mutex);
    return m_moved.wait_for(lock.native(), limit, [&]() TRACKER_NO_THREAD_SAFETY_ANALYSIS {
        return m_sleeps.size() >= count;
    });
}

bool ManualClock::waitForDeadline(TimePoint deadline, std::chrono::milliseconds limit) const {
    MutexLock lock(m_mutex);
    return m_moved.wait_for(lock.native(), limit, [&]() TRACKER_NO_THREAD_SAFETY_ANALYSIS {
        return m_deadlines.count(deadline) > 0;
    });
}

std::optional<Clock::TimePoint> ManualClock::nextDeadlineAfter(TimePoint time) const {
    MutexLock lock(m_mutex);
    const auto next = m_deadlines.upper_bound(time);
    return next != m_deadlines.end() ? std::optional<TimePoint>(*next) : std::nullopt;
}

void ManualClock::noteWait(TimePoint deadline) const {
    MutexLock lock(m_mutex);
    if (m_deadlines.insert(deadline).second) {
        m_moved.notify_all();
    }
}

Clock::Duration ManualClock::realWait(Duration remaining) const {
    return std::min<Duration>(remaining, kPollInterval);
}

}  // namespace util
}  // namespace tracker
