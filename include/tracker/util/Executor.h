#pragma once

#include <chrono>
#include <future>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>

#include "tracker/util/InlineTask.h"

namespace tracker {
namespace util {

// A serial task queue. Tasks run one at a time, in queue order, on a thread borrowed from the
// default ThreadPool while there is work; the thread goes back to the pool once no task has
// arrived for the idle time-out. An idle Executor holds no thread.
//
// Task lifetime: a task's callable, and everything it captured, is destroyed on the worker before
// the task's future becomes ready. A caller that has seen the future ready may therefore drop
// what the task held and know that it is gone, as with a std::packaged_task.
//
// Shutdown: shutdown() drops every queued task (their futures report broken_promise), refuses
// further pushes (pushTo returns a future whose valid() is false) and returns once the task in
// progress, if any, has finished. restart() accepts pushes again.
//
// Destruction shuts down. An Executor may be destroyed by its own task (say, a task that drops
// the last reference to the Executor's owner): the running task then finishes, the queued tasks
// are dropped, and the worker goes back to the pool without waiting for anyone.
//
// Thread-safety: every member may be called from any thread. Tasks run without the Executor's
// mutex, so a task may push to its own Executor, but it must not call waitForSubmittedTasks() or
// shutdown() on it: the call would wait for the task making it. An exception leaving a task ends
// the process: tasks handle their own.
class Executor {
  public:
    explicit Executor(const std::chrono::milliseconds& idleTimeout);
    ~Executor();
    Executor(const Executor&) = delete;
    Executor& operator=(const Executor&) = delete;

    // Queues f at the front (runs next, ahead of everything queued) or at the back, and returns
    // the future of its result. After shutdown() the future is invalid and f is destroyed unrun.
    // F is moved into the queue (InlineTask): a small one costs no allocation of its own.
    template <typename F>
    auto pushTo(bool toFront, F f) -> std::future<decltype(f())> {
        using Result = decltype(f());
        std::promise<Result> promise;
        std::future<Result> future = promise.get_future();
        if (!enqueue(toFront, InlineTask(PromisedTask<F, Result>{std::move(f), std::move(promise)}))) {
            return {};
        }
        return future;
    }

    // Queues f like pushTo, for a caller that will not wait for it: no future is made, which
    // spares the shared state a future needs. False (and f destroyed unrun) after shutdown().
    template <typename F>
    bool post(bool toFront, F f) {
        return enqueue(toFront, InlineTask(std::move(f)));
    }

    // Returns once every task queued at the back before the call has run; at once if idle.
    void waitForSubmittedTasks();
    void shutdown();
    void restart();
    bool isShutdown();

  private:
    // A callable with the promise of its result. The callable, and what it captured, always
    // goes first: before the promise is kept after a run, and before a dropped task's promise
    // is broken, so no future is ever ready while the task still holds anything.
    template <typename F, typename Result>
    struct PromisedTask {
        PromisedTask(F f, std::promise<Result> p)
            : callable(std::move(f)), promise(std::move(p)) {}
        PromisedTask(PromisedTask&&) = default;
        PromisedTask& operator=(const PromisedTask&) = delete;
        ~PromisedTask() { callable.reset(); }

        void operator()() {
            if constexpr (std::is_void_v<Result>) {
                (*callable)();
                callable.reset();
                promise.set_value();
            } else {
                Result result = (*callable)();
                callable.reset();
                promise.set_value(std::move(result));
            }
        }

        std::optional<F> callable;
        std::promise<Result> promise;
    };

    // The queue, its mutex and the borrowed thread (Executor.cpp). The run loop holds a reference
    // of its own, so a loop whose Executor was destroyed by the running task still has a queue
    // to finish on.
    class Queue;

    // False (and the task destroyed unrun) when shut down.
    bool enqueue(bool toFront, InlineTask task);

    const std::shared_ptr<Queue> m_queue;
};

}  // namespace util
}  // namespace tracker
