#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

namespace tracker {
namespace bench {

// The least a serial queue needs: one thread for its whole life, a locked deque, one promise per
// task. It is what the Executor is measured against, so it does the same per-task work (a shared
// promise, a std::function) and nothing else: no front pushes, no shutdown, no idle hand-back.
class BaselineQueue {
  public:
    BaselineQueue() : m_thread([this] { run(); }) {}

    ~BaselineQueue() {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_stop = true;
        }
        m_wake.notify_one();
        m_thread.join();
    }

    BaselineQueue(const BaselineQueue&) = delete;
    BaselineQueue& operator=(const BaselineQueue&) = delete;

    template <typename F>
    std::future<void> push(F f) {
        // Shared because std::function needs a copyable target.
        auto promise = std::make_shared<std::promise<void>>();
        std::future<void> future = promise->get_future();
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_queue.emplace_back([f = std::move(f), promise]() mutable {
                f();
                promise->set_value();
            });
        }
        m_wake.notify_one();
        return future;
    }

  private:
    void run() {
        std::unique_lock<std::mutex> lock(m_mutex);
        for (;;) {
            m_wake.wait(lock, [this] { return m_stop || !m_queue.empty(); });
            if (m_queue.empty()) {
                return;
            }
            std::function<void()> task = std::move(m_queue.front());
            m_queue.pop_front();
            lock.unlock();
            task();
            lock.lock();
        }
    }

    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::deque<std::function<void()>> m_queue;
    bool m_stop = false;
    // Last: the thread starts once everything it touches exists.
    std::thread m_thread;
};

}  // namespace bench
}  // namespace tracker
