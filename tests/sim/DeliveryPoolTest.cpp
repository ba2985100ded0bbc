#include "delivery/DeliveryPool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <set>
#include <thread>
#include <vector>

#include "support/Waits.h"
#include "tracker/util/ManualClock.h"

namespace tracker {
namespace sim {
namespace {

using namespace std::chrono_literals;
using testing::kEventLimit;

// Callback objects, as keys.
const int kFirst = 0;
const int kSecond = 0;
const int kThird = 0;

class DeliveryPoolTest : public ::testing::Test {
  protected:
    void SetUp() override { util::Clock::install(m_clock); }
    void TearDown() override {
        m_pool.stop();
        util::Clock::install(nullptr);
    }

    std::shared_ptr<util::ManualClock> m_clock = std::make_shared<util::ManualClock>();
    DeliveryPool m_pool{4};
};

TEST_F(DeliveryPoolTest, KeepsEachObjectsOrderAndServesObjectsSideBySide) {
    std::mutex mutex;
    std::vector<int> order;
    std::set<std::thread::id> threads;
    std::atomic<int> inside{0};
    std::atomic<bool> overlapped{false};
    for (int call = 0; call < 200; ++call) {
        m_pool.postAfter(&kFirst, 0ms, [&, call] {
            overlapped = overlapped || ++inside > 1;
            {
                std::lock_guard<std::mutex> lock(mutex);
                order.push_back(call);
                threads.insert(std::this_thread::get_id());
            }
            --inside;
        });
    }
    // A call on one object that waits for a call on another finishes only if the pool serves
    // the second object while the first is busy.
    std::promise<void> secondRan;
    std::future<void> secondSeen = secondRan.get_future();
    std::atomic<bool> waited{false};
    m_pool.postAfter(&kThird, 0ms, [&] {
        waited = secondSeen.wait_for(kEventLimit) == std::future_status::ready;
    });
    m_pool.postAfter(&kSecond, 0ms, [&] { secondRan.set_value(); });

    ASSERT_TRUE(m_pool.barrier(kEventLimit));
    EXPECT_TRUE(waited);
    EXPECT_FALSE(overlapped) << "two calls on one object ran at once";
    std::vector<int> expected(200);
    for (int call = 0; call < 200; ++call) {
        expected[call] = call;
    }
    EXPECT_EQ(order, expected);
    EXPECT_EQ(threads.count(std::this_thread::get_id()), 0u) << "never in the posting call";
}

TEST_F(DeliveryPoolTest, RunsCallsWhenTheirTimeHasComeInTheOrderTheyFellDue) {
    std::mutex mutex;
    std::vector<std::string> ran;
    const auto record = [&](std::string what) {
        return [&, what] {
            std::lock_guard<std::mutex> lock(mutex);
            ran.push_back(what);
        };
    };
    m_pool.postAfter(&kFirst, 2s, record("at 2 s"));
    m_pool.postAfter(&kFirst, 1s, record("at 1 s"));
    // A call that posts another for the same moment: the barrier covers both.
    m_pool.postAfter(&kSecond, 1s, [&] {
        record("chain")();
        m_pool.postAfter(&kSecond, 0ms, record("chained"));
    });
    ASSERT_TRUE(m_pool.barrier(kEventLimit));
    EXPECT_TRUE(ran.empty()) << "nothing before its time";

    m_clock->advance(1s);
    ASSERT_TRUE(m_pool.barrier(kEventLimit));
    {
        std::lock_guard<std::mutex> lock(mutex);
        EXPECT_EQ(ran.size(), 3u);
        EXPECT_EQ(std::count(ran.begin(), ran.end(), "chained"), 1);
        EXPECT_EQ(std::count(ran.begin(), ran.end(), "at 2 s"), 0);
    }
    m_clock->advance(1s);
    ASSERT_TRUE(m_pool.barrier(kEventLimit));
    std::lock_guard<std::mutex> lock(mutex);
    ASSERT_EQ(ran.size(), 4u);
    EXPECT_EQ(ran.back(), "at 2 s");
}

TEST_F(DeliveryPoolTest, ClearDropsWaitingCallsAndWaitsForTheRunningOne) {
    std::promise<void> entered;
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    std::atomic<bool> finished{false};
    std::atomic<int> droppedRan{0};
    m_pool.postAfter(&kFirst, 0ms, [&] {
        entered.set_value();
        released.wait();
        finished = true;
    });
    ASSERT_EQ(entered.get_future().wait_for(kEventLimit), std::future_status::ready);
    m_pool.postAfter(&kFirst, 0ms, [&] { ++droppedRan; });
    m_pool.postAfter(&kSecond, 5s, [&] { ++droppedRan; });
    EXPECT_FALSE(m_pool.barrier(50ms)) << "a call still runs";

    std::future<bool> cleared = std::async(std::launch::async, [&] {
        m_pool.clear();
        return finished.load();
    });
    EXPECT_EQ(cleared.wait_for(50ms), std::future_status::timeout);
    release.set_value();
    ASSERT_EQ(cleared.wait_for(kEventLimit), std::future_status::ready);
    EXPECT_TRUE(cleared.get()) << "clear returned before the running call ended";
    m_clock->advance(10s);
    ASSERT_TRUE(m_pool.barrier(kEventLimit));
    EXPECT_EQ(droppedRan, 0);
}

TEST_F(DeliveryPoolTest, OnRealTimeACallDueNowRunsWhileEveryOtherThreadIsBusy) {
    util::Clock::install(nullptr);
    // One thread keeps time for a call a minute away; three run calls that wait for a fourth.
    m_pool.postAfter(&kFirst, 60s, [] {});
    std::promise<void> fourthRan;
    std::shared_future<void> fourth = fourthRan.get_future().share();
    std::atomic<int> waiting{0};
    std::atomic<int> sawIt{0};
    const int keys[3] = {};
    for (const int& key : keys) {
        m_pool.postAfter(&key, 0ms, [&] {
            ++waiting;
            if (fourth.wait_for(kEventLimit) == std::future_status::ready) {
                ++sawIt;
            }
        });
    }
    ASSERT_TRUE(testing::eventually([&] { return waiting == 3; }));
    m_pool.postAfter(&kSecond, 0ms, [&] { fourthRan.set_value(); });
    ASSERT_TRUE(testing::eventually([&] { return sawIt == 3; }));
}

TEST_F(DeliveryPoolTest, OnRealTimeABarrierCoversWhatARunningCallPostsForNow) {
    util::Clock::install(nullptr);
    for (int round = 0; round < 20; ++round) {
        std::atomic<bool> followed{false};
        m_pool.postAfter(&kFirst, 0ms, [&] {
            // Real time moves on before the call posts its follow-up for now.
            const auto start = std::chrono::steady_clock::now();
            while (std::chrono::steady_clock::now() - start < 2ms) {
            }
            m_pool.postAfter(&kSecond, 0ms, [&] { followed = true; });
        });
        ASSERT_TRUE(m_pool.barrier(kEventLimit));
        EXPECT_TRUE(followed) << "the barrier returned before the follow-up ran";
    }
}

}  // namespace
}  // namespace sim
}  // namespace tracker
