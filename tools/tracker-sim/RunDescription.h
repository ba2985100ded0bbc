#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "tracker/bluetooth/TrackerBleTypes.h"
#include "tracker/bluetooth/TrackerScanFilter.h"

namespace tracker {
namespace trackersim {

// A connector the run creates.
struct ConnectorSetup {
    enum class Kind { Bluetooth, InLoc };
    std::string name;
    Kind kind = Kind::Bluetooth;
    std::vector<util::bluetooth::TrackerScanFilter> filters;
};

// One timed event of a run's script. Steps on the simulated world alone (notify, move, remove,
// inject, failScanStarts, killProxy, pair) take effect at their time; the others run in order
// on the script thread, after any earlier step that still waits in a manager. `action` says
// which fields count:
//   start, stop                connector
//   reload                     connector, filters (when given: the connector's new filters)
//   gatt                       connector, address, service, read, notify, notifications
//   notify                     address, service, notify (the characteristic), value
//   move                       address, metres
//   remove                     address
//   inject                     address, value (the advertisement), rssi
//   failScanStarts             count, throughCallback
//   killProxy, pairedDevices   -
//   pair                       address, state
//   ring                       connector, address
//   scanPeriod                 connector, active, inactive (seconds): the connector is stopped,
//                              given the period and started again, and the pause/resume cycle
//                              begins
struct ScriptStep {
    std::chrono::milliseconds at{0};
    std::string action;
    std::string connector;
    std::string address;  // "AA:BB:CC:DD:EE:FF"
    bool hasFilters = false;
    std::vector<util::bluetooth::TrackerScanFilter> filters;
    util::bluetooth::TrackerUuid service, read, notify;
    int notifications = 3;
    std::vector<uint8_t> value;
    double metres = 0;
    int rssi = -60;
    int count = 0;
    bool throughCallback = false;
    int state = 0;
    int active = 0, inactive = 0;
};

// What a scenario file holds beside the simulated world: the run's length, a capture to replay,
// the connectors and the script. The world's own fields are kept as text for the simulator's
// loader.
struct RunDescription {
    std::chrono::milliseconds duration{60000};
    std::string replay;  // a capture file; relative paths are from the scenario's folder
    std::vector<ConnectorSetup> connectors;
    std::vector<ScriptStep> script;  // in time order (stable for equal times)
    std::string json;                // the whole description, for the world's loader
};

// The top-level fields this reader handles; the world's loader takes the rest.
extern const std::initializer_list<const char*> kRunFields;

// Reads a run description. False, with "path: what" in *error (the field's path, as in
// "script[2].connector: no connector named keys"), for anything wrong with the run's own fields;
// the world's fields are checked when the world loads them.
bool readRunDescription(const std::string& json, const std::string& folder, RunDescription* out,
                        std::string* error);

}  // namespace trackersim
}  // namespace tracker
