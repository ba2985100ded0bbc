#include "tracker/util/ThreadPool.h"

#include <utility>

namespace tracker {
namespace util {

namespace {
constexpr unsigned int kDefaultMaxThreads = 20;
}

ThreadPool::ThreadPool(unsigned int maxThreads) : m_maxThreads(maxThreads) {}

ThreadPool::~ThreadPool() {
    std::deque<std::unique_ptr<WorkerThread>> idle;
    {
        MutexLock lock(m_mutex);
        idle.swap(m_idle);
    }
}

std::unique_ptr<WorkerThread> ThreadPool::obtainWorker(std::string /*moniker*/) {
    {
        MutexLock lock(m_mutex);
        ++m_obtained;
        if (!m_idle.empty()) {
            std::unique_ptr<WorkerThread> worker = std::move(m_idle.front());
            m_idle.pop_front();
            return worker;
        }
        ++m_created;
    }
    return std::make_unique<WorkerThread>();
}

void ThreadPool::releaseWorker(std::unique_ptr<WorkerThread> worker) {
    std::unique_ptr<WorkerThread> evicted;
    MutexLock lock(m_mutex);
    if (m_idle.size() >= m_maxThreads && !m_idle.empty()) {
        evicted = std::move(m_idle.front());
        m_idle.pop_front();
        ++m_evicted;
    } else {
        ++m_returned;
    }
    m_idle.push_back(std::move(worker));
    lock.unlock();
    // `evicted` joins its thread here, outside the mutex.
}

void ThreadPool::setMaxThreads(unsigned int maxThreads) {
    std::deque<std::unique_ptr<WorkerThread>> surplus;
    MutexLock lock(m_mutex);
    m_maxThreads = maxThreads == 0 ? 1 : maxThreads;
    while (m_idle.size() > m_maxThreads) {
        surplus.push_back(std::move(m_idle.front()));
        m_idle.pop_front();
    }
    lock.unlock();
}

unsigned int ThreadPool::getMaxThreads() {
    MutexLock lock(m_mutex);
    return m_maxThreads;
}

void ThreadPool::getStats(unsigned long long& created, unsigned long long& obtained,
                          unsigned long long& returned, unsigned long long& evicted) {
    MutexLock lock(m_mutex);
    created = m_created;
    obtained = m_obtained;
    returned = m_returned;
    evicted = m_evicted;
}

ThreadPool& ThreadPool::getDefaultThreadPool() {
    // Never destroyed: executors of process-wide singletons may still hand workers back while
    // the process exits.
    static ThreadPool* pool = new ThreadPool(kDefaultMaxThreads);
    return *pool;
}

}  // namespace util
}  // namespace tracker
