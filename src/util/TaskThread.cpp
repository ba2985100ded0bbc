#include "tracker/util/TaskThread.h"

#include <thread>
#include <utility>

#include "tracker/util/Log.h"
#include "tracker/util/ThreadPool.h"

namespace tracker {
namespace util {

namespace {
const Log& kLog = *new Log("TaskThread");
// The TaskThread whose ended loop is letting go of its function on this thread, if any; cleared
// by that TaskThread's destructor when the function held the last way to it.
thread_local const TaskThread* t_returning = nullptr;
}  // namespace

TaskThread::TaskThread() = default;

TaskThread::~TaskThread() {
    // Destroyed by what its own loop's function held, as the loop lets go of it: that loop
    // touches nothing of this object afterwards, so it is not waited for.
    const bool byOwnLoop = t_returning == this;
    if (byOwnLoop) {
        t_returning = nullptr;
    }
    std::unique_ptr<WorkerThread> worker;
    for (;;) {
        MutexLock lock(m_mutex);
        m_loopEnded.wait(lock.native(), [this, byOwnLoop]() TRACKER_NO_THREAD_SAFETY_ANALYSIS {
            return !m_looping && (byOwnLoop || !m_returning);
        });
        if (m_starting && m_worker) {
            // A start whose loop has not begun: let it begin, then ask it to stop at its next
            // look, and wait for it to end.
            lock.unlock();
            while (m_starting) {
                std::this_thread::yield();
            }
            m_stopRequested = true;
            continue;
        }
        m_shuttingDown = true;
        worker = std::move(m_worker);
        break;
    }
}

bool TaskThread::start(std::function<bool()> f) {
    if (!f) {
        kLog.e("startFailed: reason=invalidFunction");
        return false;
    }
    bool idle = false;
    if (!m_starting.compare_exchange_strong(idle, true)) {
        kLog.e("startFailed: reason=tooManyThreads");
        return false;
    }
    // Ends a loop still going from an earlier start at its next look.
    m_stopRequested = true;
    MutexLock lock(m_mutex);
    // The earlier loop's worker is back in the pool by then, so this start can reuse it.
    m_loopEnded.wait(lock.native(), [this]() TRACKER_NO_THREAD_SAFETY_ANALYSIS {
        return !m_looping && !m_returning;
    });
    if (m_shuttingDown) {
        kLog.e("startFailed: reason=shuttingDown");
        return false;
    }
    m_lastStart = std::chrono::steady_clock::now();
    m_worker = ThreadPool::getDefaultThreadPool().obtainWorker(m_moniker);
    m_moniker = m_worker->getMoniker();
    // Installed after unlocking, so that no thread ever waits for a worker's mutex while holding
    // this one (the loop takes them the other way round). The worker stays ours until the loop
    // it is about to run hands it back.
    WorkerThread* const worker = m_worker.get();
    lock.unlock();
    worker->run([this, f = std::move(f)]() mutable {
        run(std::move(f));
        return false;
    });
    return true;
}

void TaskThread::run(std::function<bool()> f) {
    {
        MutexLock lock(m_mutex);
        m_stopRequested = false;
        m_starting = false;
        m_looping = true;
    }
    while (!m_stopRequested && f()) {
    }
    std::unique_ptr<WorkerThread> worker;
    {
        MutexLock lock(m_mutex);
        worker = std::move(m_worker);
        m_looping = false;
        m_returning = true;
    }
    // What f holds goes while the worker is still ours: its destructors may start loops of their
    // own, which must not be handed a worker still busy with them. They may even destroy this
    // object, when f held the last way to it; no one else can then be waiting on it.
    t_returning = this;
    f = nullptr;
    const bool destroyed = t_returning != this;
    t_returning = nullptr;
    // Without a lock held: the pool may evict and join another worker.
    ThreadPool::getDefaultThreadPool().releaseWorker(std::move(worker));
    if (destroyed) {
        return;
    }
    MutexLock lock(m_mutex);
    m_returning = false;
    // Under the mutex: a destructor waiting for this may free the object once it is released.
    m_loopEnded.notify_all();
}

}  // namespace util
}  // namespace tracker
