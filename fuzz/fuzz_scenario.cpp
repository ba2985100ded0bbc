// Scenario files, as connector developers write them by hand, into the simulated world.

#include <cstddef>
#include <cstdint>
#include <string>

#include "scenario/Scenario.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    tracker::sim::World& world = tracker::sim::World::instance();
    world.reset();
    std::string error;
    tracker::sim::loadScenario(std::string(reinterpret_cast<const char*>(data), size), world,
                               &error);
    return 0;
}
