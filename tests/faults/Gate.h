#pragma once

#include <algorithm>
#include <atomic>
#include <future>
#include <mutex>
#include <string>
#include <vector>

#include "support/Waits.h"

namespace tracker {
namespace testing {

// A point where a client's callback stops until the test opens it: the test learns that the
// manager's thread has arrived there, and holds that thread for as long as the scenario needs.
// After open() every pass goes straight through. A test that fails before opening it lets the
// thread go after kEventLimit.
class Gate {
  public:
    void pass() {
        if (!m_arrived.exchange(true)) {
            m_arrival.set_value();
        }
        m_opened.wait_for(kEventLimit);
    }
    bool awaitArrival() { return m_arrivalSeen.wait_for(kEventLimit) == std::future_status::ready; }
    void open() {
        std::call_once(m_once, [this] { m_open.set_value(); });
    }

  private:
    std::atomic<bool> m_arrived{false};
    std::promise<void> m_arrival;
    std::future<void> m_arrivalSeen = m_arrival.get_future();
    std::once_flag m_once;
    std::promise<void> m_open;
    std::shared_future<void> m_opened = m_open.get_future().share();
};

inline std::size_t occurrences(const std::vector<std::string>& events, const std::string& event) {
    return static_cast<std::size_t>(std::count(events.begin(), events.end(), event));
}

}  // namespace testing
}  // namespace tracker
