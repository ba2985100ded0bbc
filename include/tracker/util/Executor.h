#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <type_traits>
#include <utility>

#include "tracker/util/Mutex.h"
#include "tracker/util/TaskThread.h"

namespace tracker {
namespace util {

// A serial task queue. Tasks run one at a time, in queue order, on a thread borrowed from the
// default ThreadPool while there is work; the thread goes back to the pool once no task has
// arrived for the idle time-out. An idle Executor holds no thread.
//
// Shutdown: shutdown() drops every queued task (their futures report broken_promise), refuses
// further pushes (pushTo returns a future whose valid() is false) and returns once the task in
// progress, if any, has finished. restart() accepts pushes again.
//
// Thread-safety: every member may be called from any thread. Tasks run without the mutex, so a
// task may push to its own Executor, but it must not call waitForSubmittedTasks() or shutdown()
// on it: the call would wait for the task making it. Nor may an Executor be destroyed by its own
// task (say, a task holding the last reference to the Executor's owner): that ends the process
// with an error line, as it could only deadlock. An exception leaving a task ends the process:
// tasks handle their own. m_mutex guards m_queue and m_active.
class Executor {
  public:
    explicit Executor(const std::chrono::milliseconds& idleTimeout);
    ~Executor();
    Executor(const Executor&) = delete;
    Executor& operator=(const Executor&) = delete;

    // Queues f at the front (runs next, ahead of everything queued) or at the back, and returns
    // the future of its result. After shutdown() the future is invalid and f is destroyed unrun.
    // F must be copy-constructible (it is held in a std::function).
    template <typename F>
    auto pushTo(bool toFront, F f) -> std::future<decltype(f())> {
        using Result = decltype(f());
        auto promise = std::make_shared<std::promise<Result>>();
        std::future<Result> future = promise->get_future();
        std::function<void()> task = [f = std::move(f), promise]() mutable {
            if constexpr (std::is_void_v<Result>) {
                f();
                promise->set_value();
            } else {
                promise->set_value(f());
            }
        };
        if (!enqueue(toFront, std::move(task))) {
            return {};
        }
        return future;
    }

    // Returns once every task queued at the back before the call has run; at once if idle.
    void waitForSubmittedTasks();
    void shutdown();
    void restart();
    bool isShutdown();

  private:
    // A queued task, or the marker of a waitForSubmittedTasks() call, which shutdown() keeps so
    // that its waiter still learns when the running task has finished.
    struct Entry {
        std::function<void()> run;
        bool marker;
    };

    // False (and the task destroyed unrun) when shut down.
    bool enqueue(bool toFront, std::function<void()> task);
    std::function<void()> pop();
    // Runs one task, then reports whether another is ready (see hasNext).
    bool runNext();
    // Waits up to the idle time-out for work (not at all once shut down); false ends the loop.
    bool hasNext();

    Mutex m_mutex;
    std::deque<Entry> m_queue TRACKER_GUARDED_BY(m_mutex);
    // A run loop is started or running.
    bool m_active TRACKER_GUARDED_BY(m_mutex) = false;
    const std::chrono::milliseconds m_idleTimeout;
    std::atomic<bool> m_shutdownFlag{false};
    std::condition_variable m_taskQueued;
    // Last: destroyed first, once its loop has ended.
    TaskThread m_taskThread;
};

}  // namespace util
}  // namespace tracker
