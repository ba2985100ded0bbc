#include "tracker/util/Timer.h"

#include <gtest/gtest.h>

#include <future>
#include <mutex>
#include <thread>
#include <vector>

#include "log/LogCapture.h"
#include "support/Waits.h"
#include "tracker/util/ManualClock.h"

namespace tracker {
namespace util {
namespace {

using namespace std::chrono_literals;
using testing::kEventLimit;
using Steady = std::chrono::steady_clock;

// Counts calls and lets the test wait for the n-th.
class Calls {
  public:
    void record(Clock::TimePoint at) {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_times.push_back(at);
        }
        m_changed.notify_all();
    }
    bool waitFor(std::size_t count) {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, kEventLimit, [&] { return m_times.size() >= count; });
    }
    std::vector<Clock::TimePoint> times() {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_times;
    }
    std::size_t count() { return times().size(); }

  private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<Clock::TimePoint> m_times;
};

TEST(Timer, RefusesNegativeTimesAndASecondSchedule) {
    sim::LogCapture capture;
    Timer timer;
    EXPECT_FALSE(timer.start(-1ms, 1ms, Timer::FixedRate, 1, [] {}));
    EXPECT_FALSE(timer.start(1ms, -1ms, Timer::FixedDelay, 1, [] {}));
    EXPECT_FALSE(timer.isActive());
    ASSERT_TRUE(timer.start(std::chrono::minutes(10), std::chrono::minutes(10), Timer::FixedDelay,
                            0u, [] {}));
    EXPECT_TRUE(timer.isActive());
    EXPECT_FALSE(timer.start(0s, 0s, Timer::FixedRate, 1, [] {}));
    EXPECT_TRUE(timer.isActive()) << "a refusal leaves the running schedule alone";
    EXPECT_EQ(capture.texts(), (std::vector<std::string>{
                                   "E TrackerD-Timer: startFailed: reason=negativeDelay",
                                   "E TrackerD-Timer: startFailed: reason=negativePeriod",
                                   "E TrackerD-Timer: startFailed: reason=timerAlreadyActive"}));
    // stop() wakes the ten-minute wait at once.
    const auto before = Steady::now();
    timer.stop();
    EXPECT_LT(Steady::now() - before, kEventLimit);
    EXPECT_FALSE(timer.isActive());
}

TEST(Timer, RunsCountTimesThenEndsAndCanStartAgain) {
    Calls calls;  // outlives the timer, whose thread records into it
    Timer timer;
    // Fixed delay: a fixed rate would rightly skip runs when a loaded machine runs it late.
    ASSERT_TRUE(timer.start(0ms, 1ms, Timer::FixedDelay, 3, [&] { calls.record(Steady::now()); }));
    ASSERT_TRUE(calls.waitFor(3));
    ASSERT_TRUE(testing::eventually([&] { return !timer.isActive(); }));
    timer.stop();  // joins the finished thread
    EXPECT_EQ(calls.count(), 3u);

    // One run after the delay, then inactive; a new schedule starts on the same timer.
    const auto start = Steady::now();
    ASSERT_TRUE(timer.start(30ms, 0ms, Timer::FixedDelay, 1, [&] { calls.record(Steady::now()); }));
    ASSERT_TRUE(calls.waitFor(4));
    EXPECT_GE(calls.times()[3] - start, 30ms);
    ASSERT_TRUE(testing::eventually([&] { return !timer.isActive(); }));
    EXPECT_EQ(calls.count(), 4u);
}

TEST(Timer, EndlessScheduleRunsUntilStoppedAndNotAfter) {
    Calls calls;  // outlives the timer, whose thread records into it
    Timer timer;
    ASSERT_TRUE(timer.start(0ms, 1ms, Timer::FixedDelay, 0, [&] { calls.record(Steady::now()); }));
    ASSERT_TRUE(calls.waitFor(5));
    timer.stop();
    const std::size_t afterStop = calls.count();
    EXPECT_FALSE(timer.isActive());
    // The thread has been joined: nothing can run any more.
    timer.stop();
    EXPECT_EQ(calls.count(), afterStop);
}

TEST(Timer, StopDuringTheInitialDelayRunsNothing) {
    std::atomic<int> runs{0};
    Timer timer;
    ASSERT_TRUE(timer.start(3600000ms, 1ms, Timer::FixedRate, 0, [&] { ++runs; }));
    const auto before = Steady::now();
    timer.stop();
    EXPECT_LT(Steady::now() - before, kEventLimit);
    EXPECT_FALSE(timer.isActive());
    EXPECT_EQ(runs, 0);
}

TEST(Timer, TheCallableMayStopItsOwnTimer) {
    Calls calls;  // outlives the timer, whose thread records into it
    Timer timer;
    ASSERT_TRUE(timer.start(0ms, 1ms, Timer::FixedRate, 0, [&] {
        calls.record(Steady::now());
        if (calls.count() == 3) {
            timer.stop();  // does not wait for itself; the schedule ends at its next wait
        }
    }));
    ASSERT_TRUE(calls.waitFor(3));
    ASSERT_TRUE(testing::eventually([&] { return !timer.isActive(); }));
    timer.stop();
    EXPECT_EQ(calls.count(), 3u);
}

TEST(Timer, StopFromAnotherThreadWaitsForARunningCallable) {
    std::promise<void> entered;
    std::promise<void> release;
    std::atomic<bool> finished{false};
    Timer timer;
    ASSERT_TRUE(timer.start(0ms, 1ms, Timer::FixedDelay, 0, [&, first = true]() mutable {
        if (first) {
            first = false;
            entered.set_value();
            release.get_future().wait();
            finished = true;
        }
    }));
    ASSERT_EQ(entered.get_future().wait_for(kEventLimit), std::future_status::ready);
    std::promise<void> stopping;
    std::future<bool> stopSawFinish = std::async(std::launch::async, [&] {
        stopping.set_value();
        timer.stop();
        return finished.load();
    });
    stopping.get_future().wait();
    EXPECT_EQ(stopSawFinish.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout)
        << "stop() must wait for the running callable";
    release.set_value();
    EXPECT_TRUE(stopSawFinish.get());
}

// With a manual clock the schedules are exact: the callable "takes time" by moving the clock.
class TimerOnManualClock : public ::testing::Test {
  protected:
    void SetUp() override { Clock::install(m_clock); }
    void TearDown() override { Clock::install(nullptr); }
    // Model time since the clock was installed.
    std::vector<std::chrono::seconds> offsets(Calls& calls) {
        std::vector<std::chrono::seconds> result;
        for (Clock::TimePoint at : calls.times()) {
            result.push_back(std::chrono::duration_cast<std::chrono::seconds>(at - m_origin));
        }
        return result;
    }

    std::shared_ptr<ManualClock> m_clock = std::make_shared<ManualClock>();
    const Clock::TimePoint m_origin = m_clock->now();
};

TEST_F(TimerOnManualClock, FixedRateSkipsTheRunAfterAnOverrunAndStaysOnTheGrid) {
    Calls calls;  // outlives the timer, whose thread records into it
    Timer timer;
    ASSERT_TRUE(timer.start(10s, 10s, Timer::FixedRate, 5, [&] {
        calls.record(m_clock->now());
        if (calls.count() == 1) {
            m_clock->advance(15s);  // overruns the run due at 20 s
        }
    }));
    // The grid starts when the timer thread reads the clock.
    ASSERT_TRUE(m_clock->waitForDeadline(m_origin + 10s, kEventLimit));
    m_clock->advance(10s);
    ASSERT_TRUE(calls.waitFor(1));
    m_clock->advance(5s);  // 30 s
    ASSERT_TRUE(calls.waitFor(2));
    m_clock->advance(10s);  // 40 s
    ASSERT_TRUE(calls.waitFor(3));
    m_clock->advance(10s);  // 50 s, the fifth and last slot
    ASSERT_TRUE(calls.waitFor(4));
    ASSERT_TRUE(testing::eventually([&] { return !timer.isActive(); }));
    EXPECT_EQ(offsets(calls), (std::vector<std::chrono::seconds>{10s, 30s, 40s, 50s}));
}

TEST_F(TimerOnManualClock, FixedDelayWaitsAFullPeriodAfterEachRun) {
    Calls calls;  // outlives the timer, whose thread records into it
    Timer timer;
    ASSERT_TRUE(timer.start(10s, 10s, Timer::FixedDelay, 3, [&] {
        calls.record(m_clock->now());
        m_clock->advance(3s);  // each run takes three seconds
    }));
    // Each wait begins when the previous run has returned: 10 s, then 13 + 10, then 26 + 10.
    std::size_t run = 0;
    for (const auto deadline : {10s, 23s, 36s}) {
        ASSERT_TRUE(m_clock->waitForDeadline(m_origin + deadline, kEventLimit));
        m_clock->advance(m_origin + deadline - m_clock->now());
        ASSERT_TRUE(calls.waitFor(++run));
    }
    ASSERT_TRUE(testing::eventually([&] { return !timer.isActive(); }));
    EXPECT_EQ(offsets(calls), (std::vector<std::chrono::seconds>{10s, 23s, 36s}));
}

TEST(Timer, RealFixedRateNeverRunsEarlyAndSkipsAfterAnOverrun) {
    Calls calls;
    Timer timer;
    const auto start = Steady::now();
    // Slots every 100 ms; the first run lasts 150 ms, so the slot after it is skipped and at
    // most two of the three slots run.
    ASSERT_TRUE(timer.start(100ms, 100ms, Timer::FixedRate, 3, [&] {
        calls.record(Steady::now());
        if (calls.count() == 1) {
            std::this_thread::sleep_for(150ms);  // the work of an overrunning run
        }
    }));
    ASSERT_TRUE(testing::eventually([&] { return !timer.isActive(); }));
    const std::vector<Clock::TimePoint> times = calls.times();
    ASSERT_GE(times.size(), 1u);
    EXPECT_LE(times.size(), 2u);
    EXPECT_GE(times[0] - start, 100ms);
    if (times.size() == 2) {
        // The slot at 200 ms fell inside the overrun and was skipped; the next is at 300 ms.
        EXPECT_GE(times[1] - start, 300ms);
        EXPECT_GT(times[1] - times[0], 150ms);
    }
}

TEST_F(TimerOnManualClock, DelaysBeyondTheClocksRangeWaitForEver) {
    // 10^10 s does not fit in the clock's nanoseconds: the schedule must saturate, not wrap
    // round to a time already passed.
    Calls calls;
    Timer timer;
    ASSERT_TRUE(timer.start(std::chrono::seconds(10000000000LL), std::chrono::seconds(1),
                            Timer::FixedRate, 1, [&] { calls.record(m_clock->now()); }));
    ASSERT_TRUE(m_clock->waitForDeadline(Clock::TimePoint::max(), kEventLimit));
    m_clock->advance(std::chrono::hours(24 * 365 * 100));
    EXPECT_EQ(calls.count(), 0u);
    EXPECT_TRUE(timer.isActive());
    timer.stop();
    EXPECT_FALSE(timer.isActive());
}

TEST_F(TimerOnManualClock, AnUnknownPeriodTypeWaitsButNeverCalls) {
    Calls calls;
    Timer timer;
    ASSERT_TRUE(timer.start(1s, 1s, static_cast<Timer::PeriodType>(7), 2,
                            [&] { calls.record(m_clock->now()); }));
    ASSERT_TRUE(m_clock->waitForDeadline(m_origin + 1s, kEventLimit));
    m_clock->advance(1s);
    ASSERT_TRUE(m_clock->waitForDeadline(m_origin + 2s, kEventLimit));
    m_clock->advance(1s);
    ASSERT_TRUE(testing::eventually([&] { return !timer.isActive(); }));
    EXPECT_EQ(calls.count(), 0u);
}

TEST(Timer, RealFixedDelaySpacesRunsByAtLeastThePeriod) {
    Calls calls;  // outlives the timer, whose thread records into it
    Timer timer;
    ASSERT_TRUE(timer.start(0ms, 15ms, Timer::FixedDelay, 4, [&] {
        calls.record(Steady::now());
        std::this_thread::sleep_for(5ms);  // each run does some work
    }));
    ASSERT_TRUE(calls.waitFor(4));
    const std::vector<Clock::TimePoint> times = calls.times();
    for (std::size_t run = 1; run < times.size(); ++run) {
        EXPECT_GE(times[run] - times[run - 1], 20ms) << "run " << run;
    }
}

}  // namespace
}  // namespace util
}  // namespace tracker
