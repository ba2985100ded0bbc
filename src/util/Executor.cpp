#include "tracker/util/Executor.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <iterator>

#include "tracker/util/Mutex.h"
#include "tracker/util/TaskThread.h"

namespace tracker {
namespace util {

// What an Executor's run loop works on. Shared by the Executor and, while it runs, by the loop,
// so that the last of them to let go destroys it: normally the Executor, the loop when the
// Executor was destroyed by its own task.
//
// Thread-safety: every member may be called from any thread; runNext() and next() only by the
// loop. m_mutex guards m_queue and m_active.
class Executor::Queue : public std::enable_shared_from_this<Executor::Queue> {
  public:
    explicit Queue(std::chrono::milliseconds idleTimeout) : m_idleTimeout(idleTimeout) {}

    bool enqueue(bool toFront, InlineTask task);
    void waitForSubmittedTasks();
    // Drops the queued tasks and refuses pushes from now on; the caller then waits for the
    // running task, unless it is that task.
    void close();
    void restart();
    bool isShutdown() const { return m_shutdownFlag; }
    // Whether the task running on this thread is one of this queue's.
    bool runsOnThisThread() const;

  private:
    // A queued task, or the marker of a waitForSubmittedTasks() call, which close() keeps so that
    // its waiter still learns when the running task has finished.
    struct Entry {
        InlineTask run;
        bool marker;
    };

    // Runs the next task; false, ending the loop, when there was none (see next()).
    bool runNext();
    // Takes the first task, waiting for one up to the idle time-out (not at all once shut
    // down); none, with the loop marked inactive, if none came. One lock per task.
    InlineTask next();

    Mutex m_mutex;
    std::deque<Entry> m_queue TRACKER_GUARDED_BY(m_mutex);
    // A run loop is started or running.
    bool m_active TRACKER_GUARDED_BY(m_mutex) = false;
    const std::chrono::milliseconds m_idleTimeout;
    std::atomic<bool> m_shutdownFlag{false};
    std::condition_variable m_taskQueued;
    TaskThread m_taskThread;
};

namespace {
// The queue whose task runs on this thread, if any.
thread_local const void* t_runningQueue = nullptr;
}  // namespace

bool Executor::Queue::enqueue(bool toFront, InlineTask task) {
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
        m_taskThread.start([self = shared_from_this()] { return self->runNext(); });
    }
    return true;
}

bool Executor::Queue::runNext() {
    InlineTask task = next();
    if (!task) {
        return false;
    }
    t_runningQueue = this;
    task();
    // What the task captured is released here, still as this queue's task.
    task.reset();
    t_runningQueue = nullptr;
    return true;
}

InlineTask Executor::Queue::next() {
    MutexLock lock(m_mutex);
    if (m_queue.empty() && !m_shutdownFlag) {
        const auto deadline = std::chrono::steady_clock::now() + m_idleTimeout;
        while (m_queue.empty() && !m_shutdownFlag) {
            if (m_taskQueued.wait_until(lock.native(), deadline) == std::cv_status::timeout) {
                break;
            }
        }
    }
    if (m_queue.empty()) {
        m_active = false;
        return {};
    }
    InlineTask task = std::move(m_queue.front().run);
    m_queue.pop_front();
    return task;
}

bool Executor::Queue::runsOnThisThread() const {
    return t_runningQueue == this;
}

void Executor::Queue::waitForSubmittedTasks() {
    auto done = std::make_shared<std::promise<void>>();
    std::future<void> reached = done->get_future();
    {
        MutexLock lock(m_mutex);
        if (!m_active) {
            return;
        }
        m_queue.push_back({InlineTask([done] { done->set_value(); }), true});
    }
    m_taskQueued.notify_one();
    reached.wait();
}

void Executor::Queue::close() {
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
    // Wakes an idle loop, which now stops at once.
    m_taskQueued.notify_one();
    // Destroyed outside the mutex: a dropped task's destructor may push (and be refused).
    dropped.clear();
}

void Executor::Queue::restart() {
    MutexLock lock(m_mutex);
    m_shutdownFlag = false;
}

Executor::Executor(const std::chrono::milliseconds& idleTimeout)
    : m_queue(std::make_shared<Queue>(idleTimeout)) {}

Executor::~Executor() {
    // From its own task, waiting for the running task would wait for ourselves; the loop keeps
    // the queue alive and ends once that task returns.
    if (m_queue->runsOnThisThread()) {
        m_queue->close();
        return;
    }
    shutdown();
}

bool Executor::enqueue(bool toFront, InlineTask task) {
    return m_queue->enqueue(toFront, std::move(task));
}

void Executor::waitForSubmittedTasks() {
    m_queue->waitForSubmittedTasks();
}

void Executor::shutdown() {
    // A dropped task may hold the last reference to this Executor's owner: its own reference
    // keeps the queue for the wait, whatever happens to this object meanwhile.
    const std::shared_ptr<Queue> queue = m_queue;
    queue->close();
    queue->waitForSubmittedTasks();
}

void Executor::restart() {
    m_queue->restart();
}

bool Executor::isShutdown() {
    return m_queue->isShutdown();
}

}  // namespace util
}  // namespace tracker
