// Measures tracker::util::Executor against BaselineQueue, the least a serial queue can do, on
// the same two cases, and ends with an "executor / baseline" table (RatioReport.h).

#include <asio.hpp>
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdint>
#include <future>
#include <memory>
#include <thread>
#include <utility>

#include "BaselineQueue.h"
#include "RatioReport.h"
#include "tracker/util/Executor.h"

namespace {

using tracker::bench::BaselineQueue;

struct ExecutorQueue {
    // Long enough that the worker stays borrowed between iterations: the run loop's start-up
    // is then paid once, outside the timed loop, as it is for the baseline's thread.
    tracker::util::Executor executor{std::chrono::milliseconds(1000)};

    template <typename F>
    std::future<void> push(F f) {
        return executor.pushTo(false, std::move(f));
    }
};

// The field's serial executor: asio's io_context run by one thread, each task posted with a
// promise for its future, as pushTo() gives one.
struct AsioQueue {
    AsioQueue() : work(asio::make_work_guard(context)), thread([this] { context.run(); }) {}
    ~AsioQueue() {
        work.reset();
        thread.join();
    }

    template <typename F>
    std::future<void> push(F f) {
        auto promise = std::make_shared<std::promise<void>>();
        std::future<void> future = promise->get_future();
        asio::post(context, [promise, f = std::move(f)]() mutable {
            f();
            promise->set_value();
        });
        return future;
    }

    asio::io_context context;
    asio::executor_work_guard<asio::io_context::executor_type> work;
    std::thread thread;
};

// Push, run on the worker, wake the caller: one task at a time.
template <typename Queue>
void roundTrip(benchmark::State& state) {
    Queue queue;
    queue.push([] {}).get();
    for (auto _ : state) {
        queue.push([] {}).get();
    }
}

// A burst of trivial tasks; the queue is serial, so the last future covers them all.
template <typename Queue>
void throughput(benchmark::State& state) {
    const int64_t tasks = state.range(0);
    Queue queue;
    queue.push([] {}).get();
    for (auto _ : state) {
        std::future<void> last;
        for (int64_t i = 0; i < tasks; ++i) {
            last = queue.push([] {});
        }
        last.get();
    }
    state.SetItemsProcessed(state.iterations() * tasks);
}

// Both subjects of a case are named "<case>/<subject>" so the summary can pair them.
void registerBenchmarks() {
    benchmark::RegisterBenchmark("RoundTrip/executor", roundTrip<ExecutorQueue>)
        ->UseRealTime()
        ->Unit(benchmark::kNanosecond);
    benchmark::RegisterBenchmark("RoundTrip/baseline", roundTrip<BaselineQueue>)
        ->UseRealTime()
        ->Unit(benchmark::kNanosecond);
    benchmark::RegisterBenchmark("RoundTrip/asio", roundTrip<AsioQueue>)
        ->UseRealTime()
        ->Unit(benchmark::kNanosecond);
    benchmark::RegisterBenchmark("Throughput/asio", throughput<AsioQueue>)
        ->Arg(1000)
        ->UseRealTime()
        ->Unit(benchmark::kMicrosecond);
    benchmark::RegisterBenchmark("Throughput/executor", throughput<ExecutorQueue>)
        ->Arg(1000)
        ->UseRealTime()
        ->Unit(benchmark::kMicrosecond);
    benchmark::RegisterBenchmark("Throughput/baseline", throughput<BaselineQueue>)
        ->Arg(1000)
        ->UseRealTime()
        ->Unit(benchmark::kMicrosecond);
}

}  // namespace

int main(int argc, char** argv) {
    registerBenchmarks();
    return tracker::bench::runWithRatios(argc, argv);
}
