#pragma once

#include <chrono>
#include <memory>
#include <optional>

#include "tracker/util/ManualClock.h"

namespace tracker {
namespace sim {
class World;
}

namespace trackersim {

// The run's time. Installs a manual clock on the library's clock seam, so that the managers'
// waits, back-offs and periods and the simulated platform all run on virtual time, and moves it
// in steps. After each step it waits until the process has come to rest: every platform call due
// has been delivered and no thread but the caller's is runnable. What happens in a step is then
// stamped with that step's time whatever the machine's load, which is what makes a run
// repeatable. A run at rest can jump to the next time a thread waits for (nextWake()), so a
// minute of quiet costs one step.
//
// Thread-safety: step() and settle() belong to the thread that drives the run;
// now() may be called from any thread.
class VirtualTime {
  public:
    // The clock stays installed after the run: threads still waiting on it when the process ends
    // must not find the time jump to the steady clock's.
    explicit VirtualTime(sim::World& world);
    VirtualTime(const VirtualTime&) = delete;
    VirtualTime& operator=(const VirtualTime&) = delete;

    // Virtual time since the run began.
    std::chrono::milliseconds now() const;
    // Moves the time on and waits for the process to come to rest.
    void step(std::chrono::milliseconds duration);
    // The next time, after now, at which a waiting thread wakes (whole milliseconds, rounded up);
    // nullopt when none waits for a time. Meaningful once the process is at rest.
    std::optional<std::chrono::milliseconds> nextWake() const;
    // Waits for the process to come to rest without moving the time.
    void settle();

  private:
    sim::World& m_world;
    const std::shared_ptr<util::ManualClock> m_clock;
    const util::Clock::TimePoint m_start;
};

}  // namespace trackersim
}  // namespace tracker
