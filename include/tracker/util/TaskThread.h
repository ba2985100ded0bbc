#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <string>

#include "tracker/util/Mutex.h"
#include "tracker/util/WorkerThread.h"

namespace tracker {
namespace util {

// A borrowed thread: start(f) takes a worker from the default ThreadPool, calls f on it again
// and again until f returns false (or a later start() asks the loop to stop), then gives the
// worker back. The Executor's run loop is one.
//
// start() refuses, with an error line under "TrackerD-TaskThread" and false: an empty function
// ("startFailed: reason=invalidFunction"), a start while an earlier one has not begun its loop
// ("startFailed: reason=tooManyThreads"), and a start after destruction began
// ("startFailed: reason=shuttingDown"; every later start then reports tooManyThreads).
//
// start() waits for an earlier loop to end (and hand its worker back) before it starts a new
// one. The destructor waits for a running loop to end by itself; it does not interrupt f.
// No lock of the TaskThread or its worker is held while f runs, so f may take any lock and
// start() may be called holding any lock. m_mutex guards the members so marked; it is taken
// before the pool's mutex, and start() hands the worker its function only after releasing it.
class TaskThread {
  public:
    TaskThread();
    ~TaskThread();
    TaskThread(const TaskThread&) = delete;
    TaskThread& operator=(const TaskThread&) = delete;

    bool start(std::function<bool()> f);
    // The loop; runs on the worker's thread, installed there by start(). f is destroyed before
    // the worker goes back to the pool, and may own this TaskThread: the loop touches nothing
    // of it once it has ended.
    void run(std::function<bool()> f);

  private:
    Mutex m_mutex;
    // Signalled when a loop has handed its worker back.
    std::condition_variable m_loopEnded;
    // A loop is running f, or has ended and not yet handed its worker back.
    bool m_looping TRACKER_GUARDED_BY(m_mutex) = false;
    bool m_returning TRACKER_GUARDED_BY(m_mutex) = false;
    std::chrono::steady_clock::time_point m_lastStart TRACKER_GUARDED_BY(m_mutex);
    bool m_shuttingDown TRACKER_GUARDED_BY(m_mutex) = false;
    std::atomic<bool> m_stopRequested{false};
    std::atomic<bool> m_starting{false};
    std::string m_moniker TRACKER_GUARDED_BY(m_mutex);
    std::unique_ptr<WorkerThread> m_worker TRACKER_GUARDED_BY(m_mutex);
};

}  // namespace util
}  // namespace tracker
