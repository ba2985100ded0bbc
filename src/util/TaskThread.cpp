#include "tracker/util/TaskThread.h"

#include <thread>
#include <utility>

#include "tracker/util/Log.h"
#include "tracker/util/ThreadPool.h"

namespace tracker {
namespace util {

namespace {
const Log kLog("TaskThread");
}

TaskThread::TaskThread() = default;

TaskThread::~TaskThread() {
    std::unique_ptr<WorkerThread> worker;
    for (;;) {
        MutexLock lock(m_mutex);
        m_loopEnded.wait(lock.native(),
                         [this]() TRACKER_NO_THREAD_SAFETY_ANALYSIS { return !m_looping; });
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
    m_loopEnded.wait(lock.native(),
                     [this]() TRACKER_NO_THREAD_SAFETY_ANALYSIS { return !m_looping; });
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
    worker->run([this, f = std::move(f)]() {
        run(f);
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
    MutexLock lock(m_mutex);
    ThreadPool::getDefaultThreadPool().releaseWorker(std::move(m_worker));
    m_looping = false;
    // Under the mutex: a destructor waiting for this may free the object once it is released.
    m_loopEnded.notify_all();
}

}  // namespace util
}  // namespace tracker
