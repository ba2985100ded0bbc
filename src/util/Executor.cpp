#include "tracker/util/Executor.h"

namespace tracker {
namespace util {

Executor::Executor(const std::chrono::milliseconds& idleTimeout) : m_idleTimeout(idleTimeout) {}

Executor::~Executor() {
    shutdown();
}

bool Executor::enqueue(bool toFront, std::function<void()> task) {
    bool startLoop = false;
    {
        MutexLock lock(m_mutex);
        if (m_shutdownFlag) {
            return false;
        }
        if (toFront) {
            m_queue.push_front(std::move(task));
        } else {
            m_queue.push_back(std::move(task));
        }
        startLoop = !m_active;
        m_active = true;
    }
    m_taskQueued.notify_one();
    // Started outside the mutex: start() may wait for the previous loop to hand its worker back,
    // and other pushes need not wait for that.
    if (startLoop) {
        m_taskThread.start([this] { return runNext(); });
    }
    return true;
}

std::function<void()> Executor::pop() {
    MutexLock lock(m_mutex);
    if (m_queue.empty()) {
        return {};
    }
    std::function<void()> task = std::move(m_queue.front());
    m_queue.pop_front();
    return task;
}

bool Executor::runNext() {
    if (std::function<void()> task = pop()) {
        task();
    }
    return hasNext();
}

bool Executor::hasNext() {
    MutexLock lock(m_mutex);
    const auto deadline = std::chrono::steady_clock::now() + m_idleTimeout;
    while (m_queue.empty() && !m_shutdownFlag) {
        if (m_taskQueued.wait_until(lock.native(), deadline) == std::cv_status::timeout) {
            break;
        }
    }
    m_active = !m_queue.empty();
    return m_active;
}

void Executor::waitForSubmittedTasks() {
    // Shared, so that a marker dropped by a concurrent shutdown() still releases the wait.
    auto done = std::make_shared<std::promise<void>>();
    std::future<void> reached = done->get_future();
    {
        MutexLock lock(m_mutex);
        if (!m_active) {
            return;
        }
        m_queue.push_back([done] { done->set_value(); });
    }
    m_taskQueued.notify_one();
    reached.wait();
}

void Executor::shutdown() {
    std::deque<std::function<void()>> dropped;
    {
        MutexLock lock(m_mutex);
        dropped.swap(m_queue);
        m_shutdownFlag = true;
    }
    // Destroyed outside the mutex: a dropped task's destructor may push (and be refused).
    dropped.clear();
    waitForSubmittedTasks();
}

void Executor::restart() {
    MutexLock lock(m_mutex);
    m_shutdownFlag = false;
}

bool Executor::isShutdown() {
    return m_shutdownFlag;
}

}  // namespace util
}  // namespace tracker
