#include "tracker/util/Executor.h"

#include <algorithm>
#include <exception>
#include <iterator>

#include "tracker/util/Log.h"

namespace tracker {
namespace util {

namespace {

const Log kLog("Executor");

// The Executor whose task runs on this thread, if any.
thread_local const Executor* t_runningExecutor = nullptr;

}  // namespace

Executor::Executor(const std::chrono::milliseconds& idleTimeout) : m_idleTimeout(idleTimeout) {}

Executor::~Executor() {
    if (t_runningExecutor == this) {
        // Waiting for the running task here would wait for ourselves, and our worker's loop
        // still needs the members being destroyed.
        kLog.e("destroyFailed: reason=destroyedByOwnTask");
        std::terminate();
    }
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
            m_queue.push_front({std::move(task), false});
        } else {
            m_queue.push_back({std::move(task), false});
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
    std::function<void()> task = std::move(m_queue.front().run);
    m_queue.pop_front();
    return task;
}

bool Executor::runNext() {
    if (std::function<void()> task = pop()) {
        t_runningExecutor = this;
        task();
        // What the task captured is released here, still as this Executor's task.
        task = nullptr;
        t_runningExecutor = nullptr;
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
    // The marker owns the promise (std::function needs it copyable, hence shared).
    auto done = std::make_shared<std::promise<void>>();
    std::future<void> reached = done->get_future();
    {
        MutexLock lock(m_mutex);
        if (!m_active) {
            return;
        }
        m_queue.push_back({[done] { done->set_value(); }, true});
    }
    m_taskQueued.notify_one();
    reached.wait();
}

void Executor::shutdown() {
    std::deque<Entry> dropped;
    {
        MutexLock lock(m_mutex);
        // Markers stay: their waiters must still learn when the running task is done.
        const auto tasks = std::stable_partition(m_queue.begin(), m_queue.end(),
                                                 [](const Entry& entry) { return entry.marker; });
        std::move(tasks, m_queue.end(), std::back_inserter(dropped));
        m_queue.erase(tasks, m_queue.end());
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
