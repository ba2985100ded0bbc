#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <frameworklink/managers/AndroidBTProxyManager.h>
#include <frameworklink/managers/IAndroidBTGattCallback.h>
#include <frameworklink/managers/IConnectivityEventCallback.h>

#include "bluetooth/World.h"
#include "support/Waits.h"
#include "tracker/util/ManualClock.h"

namespace tracker {
namespace testing {

// Events as text, in arrival order, with the thread each came on; tests wait for them.
class EventLog {
  public:
    // Notifies under the lock: a test that has seen the event may destroy the log at once, and
    // must not find the platform's thread still inside the notification.
    void add(std::string event) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_events.push_back(std::move(event));
        m_threads.push_back(std::this_thread::get_id());
        m_changed.notify_all();
    }
    bool waitForCount(std::size_t count) {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, kEventLimit, [&] { return m_events.size() >= count; });
    }
    bool waitFor(const std::string& event) {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, kEventLimit, [&] {
            return std::find(m_events.begin(), m_events.end(), event) != m_events.end();
        });
    }
    std::vector<std::string> events() {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_events;
    }
    std::vector<std::thread::id> threads() {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_threads;
    }

  private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<std::string> m_events;
    std::vector<std::thread::id> m_threads;
};

// A fresh simulated world on a ManualClock, for each test. Nothing happens in the world until
// the test moves time with settle(); sleeps pass at once, moving the time on by their length.
class SimulatedWorld : public ::testing::Test {
  protected:
    using Proxy = com::orvane::frameworklink::managers::AndroidBTProxyManager;

    void SetUp() override {
        util::Clock::install(m_clock);
        world().reset();
    }
    void TearDown() override {
        world().reset();
        util::Clock::install(nullptr);
    }

    static sim::World& world() { return sim::World::instance(); }
    static Proxy& proxy() { return *Proxy::getManager(); }

    // Moves the world's time on and returns once everything due by then has been delivered.
    void settle(util::Clock::Duration step = std::chrono::seconds(1)) {
        m_clock->advance(step);
        ASSERT_TRUE(world().barrier(kEventLimit));
    }

    std::shared_ptr<util::ManualClock> m_clock = std::make_shared<util::ManualClock>();
};

// The same, with the proxy initialised.
class SimulatedBluetooth : public SimulatedWorld {
  protected:
    void SetUp() override {
        SimulatedWorld::SetUp();
        ASSERT_TRUE(proxy().initialize(300));
    }
};

}  // namespace testing
}  // namespace tracker
