#pragma once

namespace tracker {
namespace trackersim {

// The scenario a run without --scenario plays (default-scenario.json, built in): four tags, two
// Bluetooth and two InLoc connectors, and a script that shows every subsystem at work.
const char* defaultScenario();

}  // namespace trackersim
}  // namespace tracker
