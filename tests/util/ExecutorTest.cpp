#include "tracker/util/Executor.h"

#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "support/Waits.h"
#include "tracker/util/ThreadPool.h"

namespace tracker {
namespace util {
namespace {

using namespace std::chrono_literals;
using testing::kEventLimit;

// Holds the executor's worker inside a task until open() is called.
class Gate {
  public:
    Gate() : m_open(m_promise.get_future().share()) {}
    // A task that reports it has started, waits for the gate, then marks itself finished.
    std::function<void()> task() {
        return [this] {
            m_entered.set_value();
            m_open.wait();
            m_finished = true;
        };
    }
    bool finished() const { return m_finished; }
    bool waitEntered() {
        return m_entered.get_future().wait_for(kEventLimit) == std::future_status::ready;
    }
    void open() { m_promise.set_value(); }

  private:
    std::promise<void> m_promise;
    std::shared_future<void> m_open;
    std::promise<void> m_entered;
    std::atomic<bool> m_finished{false};
};

// Thread-safe record of the order tasks ran in.
class Trace {
  public:
    std::function<void()> step(int id) {
        return [this, id] {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_steps.push_back(id);
        };
    }
    std::vector<int> steps() {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_steps;
    }

  private:
    std::mutex m_mutex;
    std::vector<int> m_steps;
};

unsigned long long obtainedWorkers() {
    unsigned long long created, obtained, returned, evicted;
    ThreadPool::getDefaultThreadPool().getStats(created, obtained, returned, evicted);
    return obtained;
}

TEST(Executor, RunsBackPushesInOrderAndAFrontPushNext) {
    Executor executor(1000ms);
    Gate gate;
    Trace trace;
    executor.pushTo(false, gate.task());
    ASSERT_TRUE(gate.waitEntered());
    executor.pushTo(false, trace.step(1));
    executor.pushTo(false, trace.step(2));
    executor.pushTo(false, trace.step(3));
    executor.pushTo(true, trace.step(0));
    std::future<void> last = executor.pushTo(false, trace.step(4));
    gate.open();
    ASSERT_EQ(last.wait_for(kEventLimit), std::future_status::ready);
    EXPECT_EQ(trace.steps(), (std::vector<int>{0, 1, 2, 3, 4}));
}

TEST(Executor, FuturesCarryResultsAndTasksMayPushMore) {
    struct Adder {
        int add(int a, int b) { return a + b; }
    };
    auto adder = std::make_shared<Adder>();
    Executor executor(1000ms);
    EXPECT_EQ(executor.pushTo(false, [] { return 42; }).get(), 42);
    EXPECT_EQ(executor.pushTo(false, std::bind(&Adder::add, adder, 2, 3)).get(), 5);
    EXPECT_EQ(executor.pushTo(true, [] { return std::string("front"); }).get(), "front");

    // A task queues a follow-up on its own executor; both finish.
    std::promise<int> followUp;
    executor.pushTo(false, [&] { executor.pushTo(false, [&] { followUp.set_value(7); }); });
    std::future<int> result = followUp.get_future();
    ASSERT_EQ(result.wait_for(kEventLimit), std::future_status::ready);
    EXPECT_EQ(result.get(), 7);
}

TEST(Executor, WaitForSubmittedTasksWaitsForEarlierBackPushesOnly) {
    Executor executor(1000ms);
    const unsigned long long before = obtainedWorkers();
    executor.waitForSubmittedTasks();  // idle: returns at once
    EXPECT_EQ(obtainedWorkers(), before) << "an idle executor holds no thread";

    std::atomic<int> done{0};
    for (int round = 0; round < 50; ++round) {
        executor.pushTo(false, [&] { ++done; });
    }
    executor.waitForSubmittedTasks();
    EXPECT_EQ(done, 50);
}

TEST(Executor, ShutdownDropsQueuedTasksAwaitsTheRunningOneAndRefusesPushes) {
    Executor executor(1000ms);
    Gate gate;
    executor.pushTo(false, gate.task());
    ASSERT_TRUE(gate.waitEntered());
    std::atomic<bool> droppedRan{false};
    std::future<void> dropped = executor.pushTo(false, [&] { droppedRan = true; });
    std::future<int> droppedValue = executor.pushTo(true, [] { return 1; });

    std::future<bool> shutdownSawFinish = std::async(std::launch::async, [&] {
        executor.shutdown();
        return gate.finished();
    });
    ASSERT_EQ(dropped.wait_for(kEventLimit), std::future_status::ready);
    EXPECT_TRUE(executor.isShutdown());
    gate.open();
    EXPECT_TRUE(shutdownSawFinish.get()) << "shutdown returns only after the running task";

    EXPECT_THROW(
        try { dropped.get(); } catch (const std::future_error& error) {
            EXPECT_EQ(error.code(), std::future_errc::broken_promise);
            throw;
        },
        std::future_error);
    EXPECT_THROW(droppedValue.get(), std::future_error);
    EXPECT_FALSE(droppedRan);

    // Refused pushes: no shared state, and the callable is destroyed without running.
    auto token = std::make_shared<int>(0);
    std::future<void> refused = executor.pushTo(false, [token] { ++*token; });
    EXPECT_FALSE(refused.valid());
    EXPECT_EQ(token.use_count(), 1);

    executor.restart();
    EXPECT_FALSE(executor.isShutdown());
    std::future<void> accepted = executor.pushTo(false, [token] { ++*token; });
    ASSERT_TRUE(accepted.valid());
    ASSERT_EQ(accepted.wait_for(kEventLimit), std::future_status::ready);
    EXPECT_EQ(*token, 1);
}

TEST(Executor, GivesItsThreadBackWhenIdleAndTheNextPushReusesIt) {
    ThreadPool& pool = ThreadPool::getDefaultThreadPool();
    unsigned long long created0, obtained0, returned0, evicted0;
    pool.getStats(created0, obtained0, returned0, evicted0);

    Executor executor(20ms);
    for (int round = 1; round <= 3; ++round) {
        executor.pushTo(false, [] {}).get();
        // After 20 ms without work the loop ends and its worker goes back to the pool.
        ASSERT_TRUE(testing::eventually([&] {
            unsigned long long created, obtained, returned, evicted;
            pool.getStats(created, obtained, returned, evicted);
            return returned + evicted >= returned0 + evicted0 + round;
        }));
    }
    unsigned long long created, obtained, returned, evicted;
    pool.getStats(created, obtained, returned, evicted);
    EXPECT_EQ(obtained - obtained0, 3u) << "one worker per busy period";
    EXPECT_LE(created - created0, 1u) << "later periods reuse the returned worker";
}

TEST(Executor, KeepsItsThreadWithinTheIdleTimeout) {
    Executor executor(10s);
    const unsigned long long before = obtainedWorkers();
    for (int round = 0; round < 5; ++round) {
        executor.pushTo(false, [] {}).get();
    }
    EXPECT_EQ(obtainedWorkers() - before, 1u) << "one thread serves every push";
}

TEST(Executor, DestructionDropsQueuedTasksAfterTheRunningOne) {
    Gate gate;
    std::future<void> queued;
    std::future<void> destroyed;
    {
        auto executor = std::make_unique<Executor>(1000ms);
        executor->pushTo(false, gate.task());
        ASSERT_TRUE(gate.waitEntered());
        queued = executor->pushTo(false, [] {});
        destroyed = std::async(std::launch::async, [&executor] { executor.reset(); });
        ASSERT_EQ(queued.wait_for(kEventLimit), std::future_status::ready);
        gate.open();
        ASSERT_EQ(destroyed.wait_for(kEventLimit), std::future_status::ready);
    }
    EXPECT_TRUE(gate.finished());
    EXPECT_THROW(queued.get(), std::future_error);
}

// An object that owns an Executor, as the managers and GATT handlers do.
struct Owner {
    Executor executor{1000ms};
};

TEST(Executor, ATaskReleasesItsCapturesBeforeItsFutureIsReady) {
    // A caller that has seen the future ready and drops its last reference destroys the owner
    // on its own thread: the task no longer holds one.
    for (int round = 0; round < 100; ++round) {
        auto owner = std::make_shared<Owner>();
        const std::weak_ptr<Owner> watch = owner;
        std::future<void> done = owner->executor.pushTo(false, [self = owner] {});
        // Too large to be kept inline by the queue: the same rule holds on the heap.
        std::array<char, 256> bulk{};
        bulk[0] = 7;
        std::future<int> value =
            owner->executor.pushTo(false, [self = owner, bulk] { return int{bulk[0]}; });
        std::shared_ptr<Owner> last = std::move(owner);
        done.get();
        ASSERT_EQ(value.get(), 7);
        ASSERT_EQ(watch.use_count(), 1) << "a finished task still holds its capture";
        last.reset();
        ASSERT_TRUE(watch.expired());
    }
}

TEST(Executor, MayBeDestroyedByItsOwnTask) {
    ThreadPool& pool = ThreadPool::getDefaultThreadPool();
    unsigned long long created0, obtained0, returned0, evicted0;
    pool.getStats(created0, obtained0, returned0, evicted0);

    // The last reference is dropped inside the task, or with the task's captures once it ran.
    for (const bool insideTheCall : {true, false}) {
        auto owner = std::make_shared<Owner>();
        const std::weak_ptr<Owner> watch = owner;
        Gate gate;
        owner->executor.pushTo(false, gate.task());
        ASSERT_TRUE(gate.waitEntered());
        std::atomic<bool> wentOnAfterwards{false};
        std::future<void> destroying = owner->executor.pushTo(
            false, [self = owner, insideTheCall, &watch, &wentOnAfterwards]() mutable {
                if (insideTheCall) {
                    self.reset();
                    wentOnAfterwards = watch.expired();
                }
            });
        std::atomic<bool> droppedRan{false};
        std::future<void> dropped = owner->executor.pushTo(false, [&] { droppedRan = true; });
        owner.reset();
        gate.open();

        ASSERT_EQ(destroying.wait_for(kEventLimit), std::future_status::ready);
        EXPECT_NO_THROW(destroying.get());
        EXPECT_TRUE(watch.expired());
        EXPECT_EQ(wentOnAfterwards, insideTheCall) << "the running task finishes";
        ASSERT_EQ(dropped.wait_for(kEventLimit), std::future_status::ready);
        EXPECT_THROW(dropped.get(), std::future_error) << "queued tasks are dropped";
        EXPECT_FALSE(droppedRan);
    }
    // Both workers went back to the pool.
    EXPECT_TRUE(testing::eventually([&] {
        unsigned long long created, obtained, returned, evicted;
        pool.getStats(created, obtained, returned, evicted);
        return returned + evicted >= returned0 + evicted0 + 2;
    }));
}

TEST(Executor, ADroppedTaskLetsGoOfItsCapturesBeforeItsFutureSaysSo) {
    // A task dropped by shutdown() has let go of its captures once its future is ready, as a
    // task that ran has; and a shutdown that drops the last reference to the Executor's owner
    // (destroying the Executor inside the call) returns safely.
    for (const bool lastReference : {false, true}) {
        auto owner = std::make_shared<Owner>();
        const std::weak_ptr<Owner> ownerWatch = owner;
        Executor* const executor = &owner->executor;
        Gate gate;
        executor->pushTo(false, gate.task());
        ASSERT_TRUE(gate.waitEntered());
        auto capture = std::make_shared<int>(0);
        const std::weak_ptr<int> watch = capture;
        std::future<void> dropped = executor->pushTo(false, [capture] {});
        capture.reset();
        if (lastReference) {
            executor->pushTo(false, [self = owner] {});
            owner.reset();
        }
        std::future<void> stopped =
            std::async(std::launch::async, [executor] { executor->shutdown(); });
        ASSERT_EQ(dropped.wait_for(kEventLimit), std::future_status::ready);
        EXPECT_TRUE(watch.expired()) << "the future was ready before the captures were gone";
        gate.open();
        ASSERT_EQ(stopped.wait_for(kEventLimit), std::future_status::ready);
        EXPECT_EQ(ownerWatch.expired(), lastReference);
    }
}

TEST(Executor, WaitersAndOverlappingShutdownsAllReturnOnceTheRunningTaskEnds) {
    Executor executor(1000ms);
    Gate gate;
    executor.pushTo(false, gate.task());
    ASSERT_TRUE(gate.waitEntered());
    auto observe = [&](auto call) {
        return std::async(std::launch::async, [&, call] {
            call();
            return gate.finished();
        });
    };
    std::future<bool> waiter = observe([&] { executor.waitForSubmittedTasks(); });
    std::future<bool> firstShutdown = observe([&] { executor.shutdown(); });
    std::future<bool> secondShutdown = observe([&] { executor.shutdown(); });
    gate.open();
    for (std::future<bool>* call : {&waiter, &firstShutdown, &secondShutdown}) {
        ASSERT_EQ(call->wait_for(kEventLimit), std::future_status::ready);
        EXPECT_TRUE(call->get()) << "returned before the running task ended";
    }
}

TEST(Executor, ZeroIdleTimeoutStopsAtOnceAndRestartsOnPush) {
    Executor executor(0ms);
    const unsigned long long before = obtainedWorkers();
    for (int round = 0; round < 20; ++round) {
        ASSERT_EQ(executor.pushTo(false, [round] { return round; }).get(), round);
    }
    EXPECT_GE(obtainedWorkers() - before, 1u);
    executor.waitForSubmittedTasks();
}

TEST(Executor, ConcurrentPushesShutdownsAndRestartsLoseNothing) {
    Executor executor(5ms);
    std::atomic<int> ran{0};
    std::atomic<int> accepted{0};
    std::atomic<bool> stop{false};
    std::vector<std::thread> pushers;
    std::vector<std::vector<std::future<void>>> futures(3);
    for (int id = 0; id < 3; ++id) {
        pushers.emplace_back([&, id] {
            for (int round = 0; round < 400; ++round) {
                std::future<void> future = executor.pushTo(round % 5 == 0, [&] { ++ran; });
                if (future.valid()) {
                    ++accepted;
                    futures[id].push_back(std::move(future));
                }
            }
        });
    }
    std::thread cycler([&] {
        while (!stop) {
            executor.shutdown();
            executor.restart();
            std::this_thread::yield();
        }
    });
    for (std::thread& pusher : pushers) {
        pusher.join();
    }
    stop = true;
    cycler.join();
    executor.waitForSubmittedTasks();

    // Every accepted task either ran or was dropped by a shutdown; none is left hanging.
    int completed = 0;
    int brokenPromises = 0;
    for (auto& perThread : futures) {
        for (std::future<void>& future : perThread) {
            ASSERT_EQ(future.wait_for(kEventLimit), std::future_status::ready);
            try {
                future.get();
                ++completed;
            } catch (const std::future_error&) {
                ++brokenPromises;
            }
        }
    }
    EXPECT_EQ(completed, ran.load());
    EXPECT_EQ(completed + brokenPromises, accepted.load());
}

}  // namespace
}  // namespace util
}  // namespace tracker
