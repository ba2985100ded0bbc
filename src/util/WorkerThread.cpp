#include "tracker/util/WorkerThread.h"

#include <pthread.h>

#include <algorithm>
#include <iomanip>
#include <sstream>

namespace tracker {
namespace util {

namespace {

std::string nextMoniker() {
    static std::atomic<unsigned long> counter{1};
    std::ostringstream moniker;
    moniker << std::hex << std::setw(3) << counter.fetch_add(1);
    return moniker.str();
}

}  // namespace

WorkerThread::WorkerThread() : m_moniker(nextMoniker()), m_thread([this] { runInternal(); }) {}

WorkerThread::~WorkerThread() {
    m_shutdown = true;
    {
        // Taking the mutex orders the flag before the worker's next look at it.
        MutexLock lock(m_mutex);
    }
    m_wake.notify_one();
    m_thread.join();
}

void WorkerThread::run(std::function<bool()> f) {
    {
        MutexLock lock(m_mutex);
        m_idle.wait(lock.native(),
                    [this]() TRACKER_NO_THREAD_SAFETY_ANALYSIS { return !m_busy && !m_function; });
        m_cancelled = false;
        m_function = std::move(f);
    }
    m_wake.notify_one();
}

void WorkerThread::cancel() {
    m_cancelled = true;
}

std::string WorkerThread::getMoniker() const {
    return m_moniker;
}

void WorkerThread::runInternal() {
    // Named for whoever looks at the process's threads (top, a debugger, the idle probe).
    std::string name = "trk-worker-" + m_moniker;
    std::replace(name.begin(), name.end(), ' ', '0');
    pthread_setname_np(pthread_self(), name.substr(0, 15).c_str());
    MutexLock lock(m_mutex);
    for (;;) {
        m_wake.wait(lock.native(), [this]() TRACKER_NO_THREAD_SAFETY_ANALYSIS {
            return m_function || m_shutdown;
        });
        if (m_function) {
            std::function<bool()> function = std::move(m_function);
            m_function = nullptr;
            m_busy = true;
            lock.unlock();
            while (!m_shutdown && !m_cancelled && function()) {
            }
            function = nullptr;
            lock.lock();
            m_busy = false;
            m_idle.notify_all();
        }
        if (m_shutdown) {
            return;
        }
    }
}

}  // namespace util
}  // namespace tracker
