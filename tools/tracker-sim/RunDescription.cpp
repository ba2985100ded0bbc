#include "RunDescription.h"

#include <algorithm>
#include <initializer_list>
#include <map>

#include "scenario/JsonFields.h"
#include "scenario/Scenario.h"
#include "tracker/bluetooth/BleUtils.h"
#include "tracker/util/StringUtils.h"

namespace tracker {
namespace trackersim {

const std::initializer_list<const char*> kRunFields = {"durationMs", "replay", "connectors",
                                                       "script"};

namespace {

using namespace sim::fields;
using rapidjson::Value;
using util::bluetooth::BleUtils;
using util::bluetooth::TrackerScanFilter;
using util::bluetooth::TrackerUuid;
using Kind = ConnectorSetup::Kind;

// Virtual time a run may last: a day, far beyond any demonstration, and far from overflow.
constexpr int kMaxMilliseconds = 24 * 3600 * 1000;

// The library's form of a UUID written as the simulator's readers take it.
TrackerUuid uuidOf(const Value& value, const std::string& path) {
    std::string digits = uuid(value, path).toString();
    digits.erase(std::remove(digits.begin(), digits.end(), '-'), digits.end());
    return {util::StringUtils::convertStringToHex(digits)};
}

std::vector<uint8_t> addressBytes(const Value& value, const std::string& path) {
    const std::string written = address(value, path);
    return BleUtils::stringToTrackerDeviceAddr(written.c_str())->addr;
}

TrackerScanFilter filter(const Value& json, const std::string& path, Kind kind) {
    object(json, path);
    onlyKnown(json, path, {"uuid", "manufacturer", "membership", "address", "mask"});
    TrackerScanFilter result;
    std::vector<uint8_t> mask;
    if (const Value* value = member(json, "mask")) {
        mask = hexBytes(*value, join(path, "mask"));
    }
    const bool bluetooth = kind == Kind::Bluetooth;
    if (const Value* value = member(json, "uuid"); value && bluetooth) {
        result.type = util::bluetooth::TYPE_UUID;
        result.uuidFilter = {uuidOf(*value, join(path, "uuid")).uuid, mask};
    } else if (const Value* data = member(json, "manufacturer"); data && bluetooth) {
        result.type = util::bluetooth::TYPE_MANU_DATA;
        result.manuDataFilter = {hexBytes(*data, join(path, "manufacturer")), mask};
        if (result.manuDataFilter.data.size() < 2) {
            fail(join(path, "manufacturer"), "expected the 2-byte company identifier first");
        }
    } else if (const Value* id = member(json, "membership"); id && !bluetooth) {
        result.type = util::bluetooth::TYPE_MEMBERSHIP;
        result.uuidFilter.uuid = hexBytes(*id, join(path, "membership"));
    } else if (const Value* device = member(json, "address"); device && !bluetooth) {
        result.type = util::bluetooth::TYPE_ADDRESS;
        result.addressFilter.bytesA = addressBytes(*device, join(path, "address"));
    } else {
        fail(path, bluetooth ? "expected a uuid or manufacturer filter"
                             : "expected a membership or address filter");
    }
    return result;
}

std::vector<TrackerScanFilter> filters(const Value& json, const std::string& path, Kind kind) {
    std::vector<TrackerScanFilter> result;
    for (rapidjson::SizeType i = 0; i < array(json, path).Size(); ++i) {
        result.push_back(filter(json[i], at(path, i), kind));
    }
    return result;
}

// The fields each action reads beside "at" and "do", and the kind of connector it needs.
struct ActionShape {
    std::vector<std::string> fields;
    bool needsConnector;
    Kind kind;
};

const std::map<std::string, ActionShape>& actions() {
    static const std::map<std::string, ActionShape> shapes = {
        {"start", {{"connector"}, true, Kind::Bluetooth}},
        {"stop", {{"connector"}, true, Kind::Bluetooth}},
        {"reload", {{"connector", "filters"}, true, Kind::Bluetooth}},
        {"gatt",
         {{"connector", "address", "service", "read", "notify", "notifications"},
          true,
          Kind::Bluetooth}},
        {"notify", {{"address", "service", "notify", "value"}, false, Kind::Bluetooth}},
        {"move", {{"address", "metres"}, false, Kind::Bluetooth}},
        {"remove", {{"address"}, false, Kind::Bluetooth}},
        {"inject", {{"address", "value", "rssi"}, false, Kind::Bluetooth}},
        {"failScanStarts", {{"count", "throughCallback"}, false, Kind::Bluetooth}},
        {"killProxy", {{}, false, Kind::Bluetooth}},
        {"pairedDevices", {{}, false, Kind::Bluetooth}},
        {"pair", {{"address", "state"}, false, Kind::Bluetooth}},
        {"ring", {{"connector", "address"}, true, Kind::InLoc}},
        {"scanPeriod", {{"connector", "active", "inactive"}, true, Kind::InLoc}},
    };
    return shapes;
}

ScriptStep step(const Value& json, const std::string& path,
                const std::vector<ConnectorSetup>& connectors) {
    object(json, path);
    ScriptStep result;
    result.at = std::chrono::milliseconds(
        integerIn(required(json, path, "at"), join(path, "at"), 0, kMaxMilliseconds));
    result.action = text(required(json, path, "do"), join(path, "do"));
    const auto shape = actions().find(result.action);
    if (shape == actions().end()) {
        fail(join(path, "do"), "unknown action \"" + result.action + "\"");
    }
    for (auto it = json.MemberBegin(); it != json.MemberEnd(); ++it) {
        const std::string name = it->name.GetString();
        const auto& known = shape->second.fields;
        if (name != "at" && name != "do" &&
            std::find(known.begin(), known.end(), name) == known.end()) {
            fail(join(path, name), "not a field of \"" + result.action + "\"");
        }
    }
    Kind kind = shape->second.kind;
    if (shape->second.needsConnector) {
        result.connector = text(required(json, path, "connector"), join(path, "connector"));
        const auto found = std::find_if(
            connectors.begin(), connectors.end(),
            [&](const ConnectorSetup& setup) { return setup.name == result.connector; });
        if (found == connectors.end()) {
            fail(join(path, "connector"), "no connector named " + result.connector);
        }
        // start, stop and reload serve both kinds of connector.
        const bool eitherKind =
            result.action == "start" || result.action == "stop" || result.action == "reload";
        if (!eitherKind && found->kind != kind) {
            fail(join(path, "connector"), result.connector + " cannot " + result.action);
        }
        kind = found->kind;
    }
    const std::vector<std::string>& fields = shape->second.fields;
    const bool needsAddress = std::find(fields.begin(), fields.end(), "address") != fields.end();
    if (needsAddress) {
        result.address = address(required(json, path, "address"), join(path, "address"));
    }
    if (const Value* list = member(json, "filters")) {
        result.hasFilters = true;
        result.filters = filters(*list, join(path, "filters"), kind);
    }
    if (result.action == "gatt" || result.action == "notify") {
        result.service = uuidOf(required(json, path, "service"), join(path, "service"));
        result.notify = uuidOf(required(json, path, "notify"), join(path, "notify"));
    }
    if (result.action == "gatt") {
        result.read = uuidOf(required(json, path, "read"), join(path, "read"));
        if (const Value* count = member(json, "notifications")) {
            result.notifications = integerIn(*count, join(path, "notifications"), 1, 1000);
        }
    }
    if (result.action == "notify" || result.action == "inject") {
        result.value = hexBytes(required(json, path, "value"), join(path, "value"));
    }
    if (const Value* rssi = member(json, "rssi")) {
        result.rssi = integerIn(*rssi, join(path, "rssi"), -127, 20);
    }
    if (result.action == "move") {
        result.metres = nonNegative(number(required(json, path, "metres"), join(path, "metres")),
                                    join(path, "metres"));
        if (result.metres > 100000) {
            fail(join(path, "metres"), "expected at most 100000 metres");
        }
    }
    if (result.action == "failScanStarts") {
        result.count = integerIn(required(json, path, "count"), join(path, "count"), 1, 1000);
        if (const Value* how = member(json, "throughCallback")) {
            result.throughCallback = boolean(*how, join(path, "throughCallback"));
        }
    }
    if (result.action == "pair") {
        result.state = integer(required(json, path, "state"), join(path, "state"));
    }
    if (result.action == "scanPeriod") {
        result.active = integerIn(required(json, path, "active"), join(path, "active"), 1, 86400);
        result.inactive =
            integerIn(required(json, path, "inactive"), join(path, "inactive"), 0, 86400);
    }
    return result;
}

ConnectorSetup connector(const Value& json, const std::string& path,
                         const std::vector<ConnectorSetup>& earlier) {
    object(json, path);
    onlyKnown(json, path, {"name", "kind", "filters"});
    ConnectorSetup setup;
    setup.name = text(required(json, path, "name"), join(path, "name"));
    if (setup.name.empty() || setup.name.size() > 32) {
        fail(join(path, "name"), "expected a name of 1 to 32 characters");
    }
    // The timeline's own sources keep their names.
    for (const char* reserved : {"radio", "inloc", "script", "pairing"}) {
        if (setup.name == reserved) {
            fail(join(path, "name"), setup.name + " is the name of the timeline's own lines");
        }
    }
    if (std::any_of(earlier.begin(), earlier.end(),
                    [&](const ConnectorSetup& other) { return other.name == setup.name; })) {
        fail(join(path, "name"), "another connector is named " + setup.name);
    }
    const std::string kind = text(required(json, path, "kind"), join(path, "kind"));
    if (kind != "bluetooth" && kind != "inloc") {
        fail(join(path, "kind"), "expected \"bluetooth\" or \"inloc\"");
    }
    setup.kind = kind == "bluetooth" ? Kind::Bluetooth : Kind::InLoc;
    setup.filters = filters(required(json, path, "filters"), join(path, "filters"), setup.kind);
    return setup;
}

}  // namespace

bool readRunDescription(const std::string& json, const std::string& folder, RunDescription* out,
                        std::string* error) {
    rapidjson::Document document;
    if (!sim::parseJson(json, &document, error)) {
        return false;
    }
    RunDescription run;
    run.json = json;
    try {
        object(document, "scenario");
        if (const Value* duration = member(document, "durationMs")) {
            run.duration =
                std::chrono::milliseconds(integerIn(*duration, "durationMs", 1, kMaxMilliseconds));
        }
        if (const Value* replay = member(document, "replay")) {
            run.replay = text(*replay, "replay");
            if (!run.replay.empty() && run.replay[0] != '/' && !folder.empty()) {
                run.replay = folder + "/" + run.replay;
            }
        }
        if (const Value* list = member(document, "connectors")) {
            for (rapidjson::SizeType i = 0; i < array(*list, "connectors").Size(); ++i) {
                run.connectors.push_back(
                    connector((*list)[i], at("connectors", i), run.connectors));
            }
        }
        if (const Value* list = member(document, "script")) {
            for (rapidjson::SizeType i = 0; i < array(*list, "script").Size(); ++i) {
                run.script.push_back(step((*list)[i], at("script", i), run.connectors));
            }
        }
    } catch (const FieldError& field) {
        if (error != nullptr) {
            *error = field.message;
        }
        return false;
    }
    std::stable_sort(run.script.begin(), run.script.end(),
                     [](const ScriptStep& a, const ScriptStep& b) { return a.at < b.at; });
    *out = std::move(run);
    return true;
}

}  // namespace trackersim
}  // namespace tracker
