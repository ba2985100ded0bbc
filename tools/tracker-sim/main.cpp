// tracker-sim: the library's managers and real connectors on the simulated device platform.

#include <cstdio>
#include <iostream>
#include <string>

#include "DefaultScenario.h"
#include "Options.h"
#include "RunDescription.h"
#include "Simulation.h"
#include "log/HostLog.h"
#include "scenario/Scenario.h"

namespace {

int refuse(const std::string& message) {
    std::fprintf(stderr, "tracker-sim: %s\n", message.c_str());
    return 2;
}

std::string folderOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash == 0 ? 1 : slash);
}

}  // namespace

int main(int argc, char** argv) {
    using namespace tracker;
    trackersim::Options options;
    std::string error;
    if (!trackersim::parseOptions(argc, argv, &options, &error)) {
        return refuse(error);
    }
    if (options.help) {
        std::fputs(trackersim::usage(), stdout);
        return 0;
    }
    sim::setStderrThreshold(
        sim::priorityFromLevelName(options.logLevel.empty() ? "S" : options.logLevel.c_str()));

    std::string text = trackersim::defaultScenario();
    std::string folder = ".";
    if (!options.scenario.empty()) {
        if (!sim::readDescriptionFile(options.scenario, &text, &error)) {
            return refuse(error);
        }
        folder = folderOf(options.scenario);
    }
    trackersim::RunDescription description;
    if (!trackersim::readRunDescription(text, folder, &description, &error)) {
        return refuse((options.scenario.empty() ? "default scenario" : options.scenario) + ": " +
                      error);
    }
    trackersim::Simulation simulation(std::move(description), options.run, std::cout);
    const int status = simulation.run(&error);
    if (status != 0) {
        return refuse(error);
    }
    return 0;
}
