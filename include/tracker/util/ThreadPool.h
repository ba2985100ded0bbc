#pragma once

#include <deque>
#include <memory>
#include <string>

#include "tracker/util/Mutex.h"
#include "tracker/util/WorkerThread.h"

namespace tracker {
namespace util {

// Keeps idle workers for reuse, oldest first, and counts what happens to them. A returned worker
// is always kept; when the pool already holds maxThreads idle workers, the oldest is destroyed
// to make room.
//
// Thread-safety: every member may be called from any thread; m_mutex guards the idle list, the
// limit and the counters. Workers are created and destroyed outside the mutex.
class ThreadPool {
  public:
    explicit ThreadPool(unsigned int maxThreads);
    ~ThreadPool();
    ThreadPool(const ThreadPool&) = delete;
    ThreadPool& operator=(const ThreadPool&) = delete;

    // The oldest idle worker, or a new one. The moniker argument is not used.
    std::unique_ptr<WorkerThread> obtainWorker(std::string moniker);
    void releaseWorker(std::unique_ptr<WorkerThread> worker);

    // 0 is taken as 1; idle workers beyond the new limit are destroyed, oldest first.
    void setMaxThreads(unsigned int maxThreads);
    unsigned int getMaxThreads();

    // A consistent snapshot: workers created because none was idle, obtainWorker calls,
    // returns without eviction, returns that evicted the oldest idle worker.
    void getStats(unsigned long long& created, unsigned long long& obtained,
                  unsigned long long& returned, unsigned long long& evicted);

    // The process-wide pool (at most 20 idle workers) that TaskThread borrows from.
    static ThreadPool& getDefaultThreadPool();

  private:
    Mutex m_mutex;
    std::deque<std::unique_ptr<WorkerThread>> m_idle TRACKER_GUARDED_BY(m_mutex);
    unsigned int m_maxThreads TRACKER_GUARDED_BY(m_mutex);
    unsigned long long m_created TRACKER_GUARDED_BY(m_mutex) = 0;
    unsigned long long m_obtained TRACKER_GUARDED_BY(m_mutex) = 0;
    unsigned long long m_returned TRACKER_GUARDED_BY(m_mutex) = 0;
    unsigned long long m_evicted TRACKER_GUARDED_BY(m_mutex) = 0;
};

}  // namespace util
}  // namespace tracker
