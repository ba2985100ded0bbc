#include "tracker/util/ThreadPool.h"

#include <gtest/gtest.h>

#include <future>
#include <regex>
#include <thread>

#include "log/LogCapture.h"
#include "support/Waits.h"
#include "tracker/util/Executor.h"
#include "tracker/util/TaskThread.h"
#include "tracker/util/WorkerThread.h"

namespace tracker {
namespace util {
namespace {

using testing::kEventLimit;

struct Stats {
    unsigned long long created = 0, obtained = 0, returned = 0, evicted = 0;
};

Stats statsOf(ThreadPool& pool) {
    Stats stats;
    pool.getStats(stats.created, stats.obtained, stats.returned, stats.evicted);
    return stats;
}

TEST(WorkerThread, MonikersAreThreeCharacterHexAndIncreasing) {
    const std::regex layout("^ *[0-9a-f]+$");
    unsigned long previous = 0;
    for (int round = 0; round < 20; ++round) {
        WorkerThread worker;
        const std::string moniker = worker.getMoniker();
        ASSERT_EQ(moniker.size(), 3u) << '"' << moniker << '"';
        ASSERT_TRUE(std::regex_match(moniker, layout)) << '"' << moniker << '"';
        const unsigned long value = std::stoul(moniker, nullptr, 16);
        EXPECT_GT(value, previous);
        previous = value;
    }
}

TEST(WorkerThread, RunsAFunctionUntilItSaysStopAndCanBeCancelled) {
    WorkerThread worker;
    int calls = 0;
    std::promise<void> done;
    worker.run([&] {
        if (++calls < 5) {
            return true;
        }
        done.set_value();
        return false;
    });
    ASSERT_EQ(done.get_future().wait_for(kEventLimit), std::future_status::ready);

    // A function that never says stop ends at cancel(); the worker then takes new work.
    std::promise<void> spinning;
    std::atomic<bool> signalled{false};
    worker.run([&] {
        if (!signalled.exchange(true)) {
            spinning.set_value();
        }
        return true;
    });
    ASSERT_EQ(spinning.get_future().wait_for(kEventLimit), std::future_status::ready);
    worker.cancel();
    std::promise<void> next;
    worker.run([&] {
        next.set_value();
        return false;
    });
    EXPECT_EQ(next.get_future().wait_for(kEventLimit), std::future_status::ready);
    EXPECT_EQ(calls, 5);
}

TEST(ThreadPool, ReusesOldestIdleWorkersAndCountsEverything) {
    ThreadPool pool(2);
    std::unique_ptr<WorkerThread> first = pool.obtainWorker("");
    std::unique_ptr<WorkerThread> second = pool.obtainWorker("");
    std::unique_ptr<WorkerThread> third = pool.obtainWorker("");
    WorkerThread* const firstAddress = first.get();
    const std::string secondMoniker = second->getMoniker();
    pool.releaseWorker(std::move(first));
    pool.releaseWorker(std::move(second));
    // The pool is full: the oldest idle worker (first) makes room.
    pool.releaseWorker(std::move(third));
    Stats stats = statsOf(pool);
    EXPECT_EQ(stats.created, 3u);
    EXPECT_EQ(stats.obtained, 3u);
    EXPECT_EQ(stats.returned, 2u);
    EXPECT_EQ(stats.evicted, 1u);

    std::unique_ptr<WorkerThread> reused = pool.obtainWorker("");
    EXPECT_EQ(reused->getMoniker(), secondMoniker) << "oldest idle first";
    EXPECT_NE(reused.get(), firstAddress);
    stats = statsOf(pool);
    EXPECT_EQ(stats.created, 3u);
    EXPECT_EQ(stats.obtained, 4u);
    pool.releaseWorker(std::move(reused));

    // Two idle workers; a limit of 0 keeps one, the newest.
    std::unique_ptr<WorkerThread> extra = pool.obtainWorker("");
    const std::string newest = extra->getMoniker();
    pool.releaseWorker(std::move(extra));
    pool.setMaxThreads(0);
    EXPECT_EQ(pool.getMaxThreads(), 1u);
    const Stats beforeTrim = statsOf(pool);
    std::unique_ptr<WorkerThread> kept = pool.obtainWorker("");
    std::unique_ptr<WorkerThread> fresh = pool.obtainWorker("");
    EXPECT_EQ(kept->getMoniker(), newest);
    EXPECT_EQ(statsOf(pool).created, beforeTrim.created + 1);
    EXPECT_EQ(ThreadPool::getDefaultThreadPool().getMaxThreads(), 20u);
    EXPECT_EQ(&ThreadPool::getDefaultThreadPool(), &ThreadPool::getDefaultThreadPool());
}

TEST(TaskThread, RefusesEmptyFunctionsAndASecondPendingStart) {
    sim::LogCapture capture;
    TaskThread task;
    EXPECT_FALSE(task.start({}));
    EXPECT_EQ(capture.texts(), std::vector<std::string>{
                                   "E TrackerD-TaskThread: startFailed: reason=invalidFunction"});
    capture.clear();

    // A loop that holds the TaskThread until the gate opens.
    std::promise<void> entered;
    std::promise<void> gate;
    std::shared_future<void> gateOpen = gate.get_future().share();
    ASSERT_TRUE(task.start([&, first = true]() mutable {
        if (first) {
            first = false;
            entered.set_value();
            gateOpen.wait();
        }
        return true;
    }));
    ASSERT_EQ(entered.get_future().wait_for(kEventLimit), std::future_status::ready);

    // Two more starts: one is accepted and waits for the running loop, the other is refused.
    std::atomic<int> secondLoopRuns{0};
    auto next = [&] {
        return task.start([&] {
            ++secondLoopRuns;
            return false;
        });
    };
    std::future<bool> a = std::async(std::launch::async, next);
    std::future<bool> b = std::async(std::launch::async, next);
    ASSERT_TRUE(
        capture.waitFor("E TrackerD-TaskThread: startFailed: reason=tooManyThreads", kEventLimit));
    gate.set_value();
    EXPECT_NE(a.get(), b.get()) << "exactly one start is accepted";
    EXPECT_TRUE(testing::eventually([&] { return secondLoopRuns == 1; }));
}

TEST(TaskThread, GivesItsWorkerBackAndTheNextStartReusesIt) {
    ThreadPool& pool = ThreadPool::getDefaultThreadPool();
    const Stats before = statsOf(pool);
    TaskThread task;
    for (int round = 0; round < 3; ++round) {
        std::promise<void> ran;
        // start() waits for the previous loop, which hands its worker back before it ends.
        ASSERT_TRUE(task.start([&] {
            ran.set_value();
            return false;
        }));
        ASSERT_EQ(ran.get_future().wait_for(kEventLimit), std::future_status::ready);
    }
    ASSERT_TRUE(testing::eventually([&] { return statsOf(pool).returned >= before.returned + 3; }));
    const Stats after = statsOf(pool);
    EXPECT_EQ(after.obtained - before.obtained, 3u);
    EXPECT_LE(after.created - before.created, 1u) << "one worker serves every round";
}

TEST(TaskThread, WhatTheLoopHeldMayStartWorkAsTheLoopLetsGoOfIt) {
    // An object held by the loop's function queues work on an idle Executor from its destructor.
    // The only idle worker then must not be the one still busy destroying it.
    struct Trigger {
        Trigger(Executor* e, std::promise<void>* r) : executor(e), ran(r) {}
        ~Trigger() {
            executor->post(false, [ran = ran] { ran->set_value(); });
        }
        Executor* executor;
        std::promise<void>* ran;
    };
    Executor executor(std::chrono::milliseconds(0));
    std::promise<void> ran;
    TaskThread task;
    auto trigger = std::make_shared<Trigger>(&executor, &ran);
    ASSERT_TRUE(task.start([trigger] { return false; }));
    trigger.reset();
    ASSERT_EQ(ran.get_future().wait_for(kEventLimit), std::future_status::ready);
}

}  // namespace
}  // namespace util
}  // namespace tracker
