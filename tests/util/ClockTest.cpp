#include "tracker/util/ManualClock.h"

#include <gtest/gtest.h>

#include <future>
#include <thread>

#include "support/Waits.h"

namespace tracker {
namespace util {
namespace {

using namespace std::chrono_literals;
using testing::kEventLimit;

TEST(Clock, RealTimeUnlessATestInstallsAnother) {
    const auto real = Clock::current();
    const auto before = std::chrono::steady_clock::now();
    EXPECT_GE(real->now(), before);

    auto manual = std::make_shared<ManualClock>();
    Clock::install(manual);
    EXPECT_EQ(Clock::current(), manual);
    Clock::install(nullptr);
    EXPECT_NE(Clock::current(), manual);
    EXPECT_GE(Clock::current()->now(), before);

    // A real wait with a limit ends on its own.
    std::mutex mutex;
    std::condition_variable cv;
    std::unique_lock<std::mutex> lock(mutex);
    EXPECT_FALSE(Clock::current()->waitFor(cv, lock, 1ms, [] { return false; }));
}

TEST(ManualClock, SleepsPassAtOnceAndAreRecorded) {
    ManualClock clock;
    const auto start = clock.now();
    const auto realStart = std::chrono::steady_clock::now();
    for (auto backoff : {2s, 4s, 6s, 8s}) {
        clock.sleepFor(backoff);
    }
    EXPECT_EQ(clock.sleeps(), (std::vector<Clock::Duration>{2s, 4s, 6s, 8s}));
    EXPECT_EQ(clock.now() - start, 20s);
    EXPECT_LT(std::chrono::steady_clock::now() - realStart, kEventLimit);
    clock.advance(-5s);  // time never runs backwards
    EXPECT_EQ(clock.now() - start, 20s);
}

TEST(ManualClock, BlockingSleepsWaitForTheTestToMoveTime) {
    ManualClock clock(ManualClock::SleepMode::Block);
    std::future<void> sleeper = std::async(std::launch::async, [&] { clock.sleepFor(300s); });
    ASSERT_TRUE(clock.waitForSleeps(1, kEventLimit));
    clock.advance(299s);
    EXPECT_EQ(sleeper.wait_for(5ms), std::future_status::timeout);
    clock.advance(1s);
    EXPECT_EQ(sleeper.wait_for(kEventLimit), std::future_status::ready);
    EXPECT_EQ(clock.sleeps(), std::vector<Clock::Duration>{300s});
}

TEST(ManualClock, WaitsEndAtTheirEventOrWhenTimeIsMovedPastTheirLimit) {
    ManualClock clock;
    std::mutex mutex;
    std::condition_variable cv;
    bool flag = false;

    // The event comes first.
    std::future<bool> byEvent = std::async(std::launch::async, [&] {
        std::unique_lock<std::mutex> lock(mutex);
        return clock.waitFor(cv, lock, 10s, [&] { return flag; });
    });
    ASSERT_TRUE(clock.waitForDeadline(clock.now() + 10s, kEventLimit));
    {
        std::lock_guard<std::mutex> lock(mutex);
        flag = true;
    }
    cv.notify_all();
    EXPECT_TRUE(byEvent.get());

    // The limit comes first, but only once the test moves the time. (Moved a little first, so
    // that this deadline differs from the one recorded above.)
    flag = false;
    clock.advance(1s);
    const auto deadline = clock.now() + 10s;
    std::future<bool> byLimit = std::async(std::launch::async, [&] {
        std::unique_lock<std::mutex> lock(mutex);
        return clock.waitFor(cv, lock, 10s, [&] { return flag; });
    });
    ASSERT_TRUE(clock.waitForDeadline(deadline, kEventLimit));
    clock.advance(10s);
    EXPECT_FALSE(byLimit.get());

    // Futures are bounded the same way.
    std::promise<int> never;
    std::future<int> pending = never.get_future();
    clock.advance(1s);
    const auto futureDeadline = clock.now() + 10s;
    std::future<std::future_status> futureWait =
        std::async(std::launch::async, [&] { return clock.waitFor(pending, 10s); });
    ASSERT_TRUE(clock.waitForDeadline(futureDeadline, kEventLimit));
    clock.advance(10s);
    EXPECT_EQ(futureWait.get(), std::future_status::timeout);
}

}  // namespace
}  // namespace util
}  // namespace tracker
