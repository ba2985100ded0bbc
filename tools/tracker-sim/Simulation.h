#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>

#include "RunDescription.h"
#include "Timeline.h"

namespace tracker {
namespace trackersim {

struct RunOptions {
    // Virtual time per real time; 0 runs as fast as it goes.
    double speed = 4;
    std::optional<std::chrono::milliseconds> duration;  // overrides the description's
    uint32_t seed = 1;
    Timeline::Format format = Timeline::Format::Text;
    std::string replay;  // overrides the description's capture
    std::string record;  // btsnoop file of every advertisement the radio delivered
    std::string report;  // HTML page
};

// One run of tracker-sim: the simulated world of the description, the library's real managers,
// the description's connectors registered and started, its script played on virtual time and a
// capture replayed into the radio; the timeline and the summary go to `out`.
//
// A run uses the process-wide world and managers, so a process makes one run: what the run's
// threads use is kept for the life of the process. Everything is called from the thread that
// calls run().
class Simulation {
  public:
    Simulation(RunDescription description, RunOptions options, std::ostream& out);

    // 0 after a run; 2, with a one-line message in *error, when the world, the capture or an
    // output file cannot be used (found before the run starts, except an output file that could
    // not be written completely).
    int run(std::string* error);

  private:
    RunDescription m_description;
    RunOptions m_options;
    std::ostream& m_out;
};

}  // namespace trackersim
}  // namespace tracker
