#include "tracker/util/Clock.h"

#include <algorithm>
#include <thread>

namespace tracker {
namespace util {

namespace {

// The longest a real wait blocks before it looks at the clock again: the standard library adds a
// wait's length to the current time, which a saturated deadline's would overflow.
constexpr Clock::Duration kLongestRealWait = std::chrono::hours(24);

class RealClock : public Clock {
  public:
    TimePoint now() const override { return std::chrono::steady_clock::now(); }
    void sleepFor(Duration duration) override { std::this_thread::sleep_for(duration); }

  protected:
    Duration realWait(Duration remaining) const override {
        return std::min(remaining, kLongestRealWait);
    }
};

// Read and replaced with the atomic shared_ptr operations: current() is called from any thread.
// Never destroyed: threads still running at exit read it.
std::shared_ptr<Clock>& installed() {
    static auto* clock = new std::shared_ptr<Clock>(std::make_shared<RealClock>());
    return *clock;
}

}  // namespace

Clock::~Clock() = default;

std::shared_ptr<Clock> Clock::current() {
    return std::atomic_load(&installed());
}

void Clock::install(std::shared_ptr<Clock> clock) {
    if (!clock) {
        clock = std::make_shared<RealClock>();
    }
    std::atomic_store(&installed(), std::move(clock));
}

bool Clock::waitUntil(std::condition_variable& cv, std::unique_lock<std::mutex>& lock,
                      TimePoint deadline) const {
    const Duration remaining = deadline - now();
    if (remaining <= Duration::zero()) {
        return false;
    }
    noteWait(deadline);
    cv.wait_for(lock, realWait(remaining));
    return now() < deadline;
}

}  // namespace util
}  // namespace tracker
