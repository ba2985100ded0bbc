#include "Options.h"

#include <cstdlib>
#include <cstring>

#include "tracker/util/StringUtils.h"

namespace tracker {
namespace trackersim {

namespace {

// A whole number within [low, high].
bool wholeNumber(const std::string& text, long long low, long long high, long long* value) {
    return util::StringUtils::stringToInt64(text, value) && *value >= low && *value <= high;
}

}  // namespace

const char* usage() {
    return "usage: tracker-sim [options]\n"
           "\n"
           "Runs the library's Bluetooth and InLoc managers with connectors on a simulated\n"
           "device and prints what happens: a timeline, then a summary per connector.\n"
           "\n"
           "  --scenario FILE    the world, connectors and script to run (default: built in)\n"
           "  --replay FILE      feeds a capture's advertisements into the simulated radio:\n"
           "                     btsnoop (a phone's HCI snoop log), pcap or pcapng\n"
           "  --record FILE      writes every advertisement the radio delivered as btsnoop\n"
           "  --report FILE      writes an HTML page with charts of the run\n"
           "  --json             one JSON object per line instead of the readable timeline\n"
           "  --speed N|max      virtual time N times real time (default 4); max: no pacing\n"
           "  --duration SECONDS how long the run lasts in virtual time\n"
           "  --seed N           the same seed gives the same timeline (default 1)\n"
           "  --log-level L      the library's log lines at or above L (v, d, i, w, e, f; s: "
           "none)\n"
           "                     to stderr (default s)\n"
           "  --help             this text\n"
           "\n"
           "Exit status: 0 after a run, 2 for bad options, scenarios or captures.\n";
}

bool parseOptions(int argc, const char* const* argv, Options* options, std::string* error) {
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        if (option == "--help" || option == "-h") {
            options->help = true;
            continue;
        }
        if (option == "--json") {
            options->run.format = Timeline::Format::Json;
            continue;
        }
        const bool takesValue = option == "--scenario" || option == "--replay" ||
                                option == "--record" || option == "--report" ||
                                option == "--speed" || option == "--duration" ||
                                option == "--seed" || option == "--log-level";
        if (!takesValue) {
            *error = "unknown option " + option + " (see --help)";
            return false;
        }
        if (i + 1 >= argc || argv[i + 1][0] == '\0') {
            *error = option + " needs a value";
            return false;
        }
        const std::string value = argv[++i];
        long long number = 0;
        if (option == "--scenario") {
            options->scenario = value;
        } else if (option == "--replay") {
            options->run.replay = value;
        } else if (option == "--record") {
            options->run.record = value;
        } else if (option == "--report") {
            options->run.report = value;
        } else if (option == "--speed") {
            if (value == "max") {
                options->run.speed = 0;
            } else if (wholeNumber(value, 1, 1000000, &number)) {
                options->run.speed = static_cast<double>(number);
            } else {
                *error = "--speed: expected a whole number from 1 to 1000000, or max, not " + value;
                return false;
            }
        } else if (option == "--duration") {
            if (!wholeNumber(value, 1, 86400, &number)) {
                *error = "--duration: expected whole seconds from 1 to 86400, not " + value;
                return false;
            }
            options->run.duration = std::chrono::seconds(number);
        } else if (option == "--seed") {
            if (!wholeNumber(value, 0, 4294967295LL, &number)) {
                *error = "--seed: expected a whole number from 0 to 4294967295, not " + value;
                return false;
            }
            options->run.seed = static_cast<uint32_t>(number);
        } else {
            if (value.size() != 1 || std::strchr("vdiwefsVDIWEFS", value[0]) == nullptr) {
                *error = "--log-level: expected one of v, d, i, w, e, f, s, not " + value;
                return false;
            }
            options->logLevel = value;
        }
    }
    return true;
}

}  // namespace trackersim
}  // namespace tracker
