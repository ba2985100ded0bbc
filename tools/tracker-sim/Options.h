#pragma once

#include <string>

#include "Simulation.h"

namespace tracker {
namespace trackersim {

// The command line, read.
struct Options {
    RunOptions run;
    std::string scenario;  // empty: the embedded default
    std::string logLevel;  // empty: the library's log stays quiet
    bool help = false;
};

// Reads the arguments. False, with a one-line message naming the problem in *error, for an
// unknown option, a missing value or a value out of range.
bool parseOptions(int argc, const char* const* argv, Options* options, std::string* error);

// The --help text.
const char* usage();

}  // namespace trackersim
}  // namespace tracker
