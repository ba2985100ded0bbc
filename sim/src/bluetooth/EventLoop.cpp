#include "bluetooth/EventLoop.h"

namespace tracker {
namespace sim {

EventLoop::EventLoop() : m_thread([this] { run(); }) {}

EventLoop::~EventLoop() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stopping = true;
    }
    m_changed.notify_all();
    m_thread.join();
}

void EventLoop::post(TimePoint due, std::function<void()> action) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_pending.emplace(std::make_pair(due, m_sequence++), std::move(action));
    }
    m_changed.notify_all();
}

void EventLoop::postAfter(util::Clock::Duration delay, std::function<void()> action) {
    post(util::Clock::current()->now() + delay, std::move(action));
}

void EventLoop::clear() {
    decltype(m_pending) dropped;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        dropped.swap(m_pending);
    }
}

bool EventLoop::hasDue(TimePoint time) {
    std::lock_guard<std::mutex> lock(m_mutex);
    return !m_pending.empty() && m_pending.begin()->first.first <= time;
}

void EventLoop::run() {
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_stopping) {
        if (m_pending.empty()) {
            m_changed.wait(lock);
            continue;
        }
        // The clock is read each time round: a test may have installed another one.
        const std::shared_ptr<util::Clock> clock = util::Clock::current();
        const auto next = m_pending.begin();
        if (clock->now() < next->first.first) {
            clock->waitUntil(m_changed, lock, next->first.first);
            continue;
        }
        std::function<void()> action = std::move(next->second);
        m_pending.erase(next);
        lock.unlock();
        action();
        lock.lock();
    }
}

}  // namespace sim
}  // namespace tracker
