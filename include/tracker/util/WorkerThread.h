#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <string>
#include <thread>

#include "tracker/util/Mutex.h"

namespace tracker {
namespace util {

// One OS thread that sleeps until it is handed a function, then calls it again and again while
// it returns true, then sleeps again. Workers are pooled (ThreadPool) and borrowed through
// TaskThread; nothing else needs to make one.
//
// Monikers are the construction count in hexadecimal, right-aligned in three characters
// ("  1", "  a", "100"), so a worker is recognisable in logs and debuggers.
//
// Thread-safety: run() and cancel() may be called from any thread; run() on a busy worker waits
// until it is idle. m_mutex guards m_function and m_busy. It is not held while the function runs,
// nor while a finished function is destroyed, so the function may take any lock and its
// caller may hold any lock. An exception leaving the function ends the process.
class WorkerThread {
  public:
    WorkerThread();
    // Lets the running function finish its current call, then joins the thread.
    ~WorkerThread();
    WorkerThread(const WorkerThread&) = delete;
    WorkerThread& operator=(const WorkerThread&) = delete;

    // Installs f, clears an earlier cancel() and wakes the thread.
    void run(std::function<bool()> f);
    // The function is not called again once its current call returns.
    void cancel();
    std::string getMoniker() const;

  private:
    void runInternal();

    const std::string m_moniker;
    std::atomic<bool> m_shutdown{false};
    std::atomic<bool> m_cancelled{false};
    Mutex m_mutex;
    std::condition_variable m_wake;
    // Signalled when the worker turns idle.
    std::condition_variable m_idle;
    // Installed and not yet taken up by the thread.
    std::function<bool()> m_function TRACKER_GUARDED_BY(m_mutex);
    // A function is running, or being destroyed after it finished.
    bool m_busy TRACKER_GUARDED_BY(m_mutex) = false;
    // Last, so that it starts once everything it uses exists.
    std::thread m_thread;
};

}  // namespace util
}  // namespace tracker
