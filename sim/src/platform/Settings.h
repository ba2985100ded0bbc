#pragma once

#include <optional>
#include <string>

namespace tracker {
namespace sim {

// Where the simulated device's settings come from, first match wins:
//   1. a value a test set with setSetting();
//   2. the environment variable TRACKER_SIM_<NAME>, the name upper-cased with every character
//      that is not a letter or digit turned into '_' ("ro.build.version.release" is read from
//      TRACKER_SIM_RO_BUILD_VERSION_RELEASE);
//   3. the file named by TRACKER_SIM_SETTINGS: "name=value" lines, '#' starting a comment line.
// System properties and the account identifiers ("account.marketplace", "account.customer") are
// read through here.
//
// Thread-safety: every function may be called from any thread.
std::optional<std::string> setting(const std::string& name);
void setSetting(const std::string& name, const std::string& value);
// Forgets what tests set; the environment and the file apply again.
void clearSettings();

// Process-wide binder state: how many times the binder thread pool was asked to start.
int binderThreadPoolStarts();

}  // namespace sim
}  // namespace tracker
