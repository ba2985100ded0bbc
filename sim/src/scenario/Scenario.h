#pragma once

#include <rapidjson/document.h>

#include <cstdint>
#include <initializer_list>
#include <string>

#include "bluetooth/World.h"

namespace tracker {
namespace sim {

// Loads a world description into the world (adding to what it holds). The JSON:
//
// {
//   "range": 30,                              optional, metres
//   "tags": [{
//     "address": "C0:FF:EE:00:00:01",         required
//     "advertisement": "0201060303aafe",      required, hex of the AD structures
//     "intervalMs": 100,                      optional, > 0
//     "txPower": -59,                         optional, RSSI at 1 m, -127 to 20
//     "connectable": true,                    optional
//     "distance": 2.5 | [[0, 1.5], [5000, 10]],  optional, metres (up to 100 km), or
//                                             [ms, metres] points
//     "gatt": [{"uuid": "0000180f-0000-1000-8000-00805f9b34fb",
//               "characteristics": [{"uuid": "...", "properties": 18, "value": "64",
//                                    "notify": true}]}],   notify adds the 2902 descriptor;
//                                    properties default to read, plus notify with notify
//     "pairing": {"dsn": "G0001", "state": 12, "category": [3, 14], "inputDescriptor": ""},
//     "membership": "0a0b0c0d",               optional, hex of its InLoc membership
//     "rangeBuckets": false                   optional, InLoc reports a bucket, not a distance
//   }],
//   "faults": {"failInitializations": 0, "failScanStarts": 0, "failPairedDeviceQuery": false,
//              "failAdapterInits": 0}
// }
//
// A description that does not parse or has a wrong field is refused whole: false, nothing
// loaded, and *error names the field ("tags[1].advertisement: expected an even number of hex
// digits").
bool loadScenario(const std::string& json, World& world, std::string* error);
bool loadScenarioFile(const std::string& path, World& world, std::string* error);
// The same for a parsed description whose other top-level fields, `alsoKnown`, a caller reads
// itself (the CLI's connectors and script).
bool loadScenario(const rapidjson::Value& scenario, World& world, std::string* error,
                  std::initializer_list<const char*> alsoKnown = {});

// Parses JSON text; false with "offset N: what" in *error.
bool parseJson(const std::string& json, rapidjson::Document* document, std::string* error);

// Descriptions are small: a larger file is refused rather than read into memory.
constexpr std::uintmax_t kMaxDescriptionBytes = 16u << 20;
// Reads a description file: false, with "path: why" in *error, for anything but a regular file
// of at most kMaxDescriptionBytes (a FIFO would block, /dev/zero never end).
bool readDescriptionFile(const std::string& path, std::string* content, std::string* error);

}  // namespace sim
}  // namespace tracker
