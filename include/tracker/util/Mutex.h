#pragma once

#include <mutex>

#include "tracker/util/ThreadAnnotations.h"

namespace tracker {
namespace util {

// std::mutex with the marks the thread-safety analysis needs. Members it guards are declared
// TRACKER_GUARDED_BY(m_mutex); helpers that expect it held are TRACKER_REQUIRES(m_mutex) and
// named ...Locked.
class TRACKER_CAPABILITY("mutex") Mutex {
  public:
    void lock() TRACKER_ACQUIRE() { m_mutex.lock(); }
    void unlock() TRACKER_RELEASE() { m_mutex.unlock(); }
    std::mutex& native() { return m_mutex; }

  private:
    std::mutex m_mutex;
};

// Holds a Mutex for its scope, like std::unique_lock, whose native() form condition variables
// wait with. unlock()/lock() may hand the mutex back early and take it again.
class TRACKER_SCOPED_CAPABILITY MutexLock {
  public:
    explicit MutexLock(Mutex& mutex) TRACKER_ACQUIRE(mutex) : m_lock(mutex.native()) {}
    ~MutexLock() TRACKER_RELEASE() {}
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

    void unlock() TRACKER_RELEASE() { m_lock.unlock(); }
    void lock() TRACKER_ACQUIRE() { m_lock.lock(); }
    std::unique_lock<std::mutex>& native() { return m_lock; }

  private:
    std::unique_lock<std::mutex> m_lock;
};

}  // namespace util
}  // namespace tracker
