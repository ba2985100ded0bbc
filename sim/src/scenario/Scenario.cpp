#include "scenario/Scenario.h"

#include <rapidjson/document.h>

#include <algorithm>
#include <optional>
#include <sstream>

#include "inloc/InLocService.h"
#include "io/RegularFile.h"
#include "scenario/JsonFields.h"
#include "tracker/json/JSONUtil.h"

namespace tracker {
namespace sim {

namespace {

constexpr double kMaxMetres = 100000;

using android::bluetooth::BluetoothGattCharacteristic;
using android::bluetooth::BluetoothGattDescriptor;
using android::bluetooth::BluetoothGattService;
using android::os::ParcelUuid;
using com::orvane::frameworklink::interfaces::ParcelByteArray;
using com::orvane::frameworklink::interfaces::RemoteDeviceAdapter;
using rapidjson::Value;
using namespace fields;

BluetoothGattCharacteristic characteristic(const Value& json, const std::string& path) {
    if (!json.IsObject()) {
        fail(path, "expected an object");
    }
    onlyKnown(json, path, {"uuid", "properties", "value", "notify"});
    const Value* notify = member(json, "notify");
    const bool notifies = notify != nullptr && boolean(*notify, path + ".notify");
    // Without stated properties a characteristic can be read, and notify if it says so.
    const Value* properties = member(json, "properties");
    BluetoothGattCharacteristic result(
        uuid(required(json, path, "uuid"), path + ".uuid"),
        properties ? integer(*properties, path + ".properties")
                   : BluetoothGattCharacteristic::PROPERTY_READ |
                         (notifies ? BluetoothGattCharacteristic::PROPERTY_NOTIFY : 0));
    if (const Value* value = member(json, "value")) {
        result.setValue(std::make_shared<ParcelByteArray>(hexBytes(*value, path + ".value")));
    }
    if (notifies) {
        result.addDescriptor(BluetoothGattDescriptor(
            ParcelUuid::fromString("00002902-0000-1000-8000-00805f9b34fb")));
    }
    return result;
}

std::vector<BluetoothGattService> gatt(const Value& json, const std::string& path) {
    std::vector<BluetoothGattService> services;
    for (rapidjson::SizeType i = 0; i < array(json, path).Size(); ++i) {
        const std::string entryPath = at(path, i);
        const Value& entry = object(json[i], entryPath);
        onlyKnown(entry, entryPath, {"uuid", "characteristics"});
        BluetoothGattService service(uuid(required(entry, entryPath, "uuid"), entryPath + ".uuid"));
        if (const Value* list = member(entry, "characteristics")) {
            const std::string listPath = entryPath + ".characteristics";
            for (rapidjson::SizeType c = 0; c < array(*list, listPath).Size(); ++c) {
                service.addCharacteristic(characteristic((*list)[c], at(listPath, c)));
            }
        }
        services.push_back(std::move(service));
    }
    return services;
}

RemoteDeviceAdapter pairing(const Value& json, const std::string& path, const std::string& addr) {
    if (!json.IsObject()) {
        fail(path, "expected an object");
    }
    onlyKnown(json, path, {"dsn", "state", "category", "inputDescriptor"});
    RemoteDeviceAdapter device;
    device.mAddress = addr;
    if (const Value* dsn = member(json, "dsn")) {
        device.mDSN = text(*dsn, path + ".dsn");
    }
    device.mPairedState = integer(required(json, path, "state"), path + ".state");
    if (const Value* categories = member(json, "category")) {
        for (rapidjson::SizeType i = 0; i < array(*categories, path + ".category").Size(); ++i) {
            device.mCategory.push_back(
                integer((*categories)[i], path + ".category[" + std::to_string(i) + "]"));
        }
    }
    if (const Value* descriptor = member(json, "inputDescriptor")) {
        device.mInputDescriptor = text(*descriptor, path + ".inputDescriptor");
    }
    return device;
}

// A distance a tag can have: from touching to well beyond any radio's range.
double metres(const Value& value, const std::string& path) {
    const double result = nonNegative(number(value, path), path);
    if (result > kMaxMetres) {
        fail(path, "expected at most " + std::to_string(static_cast<int>(kMaxMetres)) + " metres");
    }
    return result;
}

TagSpec tag(const Value& json, const std::string& path) {
    if (!json.IsObject()) {
        fail(path, "expected an object");
    }
    onlyKnown(json, path,
              {"address", "advertisement", "intervalMs", "txPower", "connectable", "distance",
               "gatt", "pairing", "membership", "rangeBuckets"});
    TagSpec tagSpec;
    tagSpec.address = address(required(json, path, "address"), path + ".address");
    tagSpec.advertisement =
        hexBytes(required(json, path, "advertisement"), path + ".advertisement");
    if (const Value* interval = member(json, "intervalMs")) {
        const int ms = integer(*interval, path + ".intervalMs");
        // No advertiser is allowed a shorter interval, and a shorter one would cost a step of
        // the simulation each.
        if (ms < 20) {
            fail(path + ".intervalMs", "expected at least 20 milliseconds");
        }
        tagSpec.interval = std::chrono::milliseconds(ms);
    }
    if (const Value* txPower = member(json, "txPower")) {
        // Beyond what a radio can send or receive, the path-loss arithmetic would overflow.
        tagSpec.txPower = integerIn(*txPower, path + ".txPower", -127, 20);
    }
    if (const Value* connectable = member(json, "connectable")) {
        tagSpec.connectable = boolean(*connectable, path + ".connectable");
    }
    if (const Value* distance = member(json, "distance")) {
        const std::string distancePath = path + ".distance";
        if (distance->IsNumber()) {
            tagSpec.distance.emplace_back(std::chrono::milliseconds(0),
                                          metres(*distance, distancePath));
        } else {
            for (rapidjson::SizeType i = 0; i < array(*distance, distancePath).Size(); ++i) {
                const std::string point = at(distancePath, i);
                const Value& entry = (*distance)[i];
                if (!entry.IsArray() || entry.Size() != 2) {
                    fail(point, "expected [milliseconds, metres]");
                }
                const std::chrono::milliseconds when(integer(entry[0], point + "[0]"));
                if (when.count() < 0 ||
                    (!tagSpec.distance.empty() && when < tagSpec.distance.back().first)) {
                    fail(point + "[0]", "expected times of 0 or more, in ascending order");
                }
                tagSpec.distance.emplace_back(when, metres(entry[1], point + "[1]"));
            }
        }
    }
    if (const Value* services = member(json, "gatt")) {
        tagSpec.gatt = gatt(*services, path + ".gatt");
    }
    if (const Value* paired = member(json, "pairing")) {
        tagSpec.pairing = pairing(*paired, path + ".pairing", tagSpec.address);
    }
    if (const Value* membership = member(json, "membership")) {
        tagSpec.membership = hexBytes(*membership, path + ".membership");
    }
    if (const Value* buckets = member(json, "rangeBuckets")) {
        tagSpec.rangeBuckets = boolean(*buckets, path + ".rangeBuckets");
    }
    return tagSpec;
}

}  // namespace

bool loadScenario(const rapidjson::Value& scenario, World& world, std::string* error,
                  std::initializer_list<const char*> alsoKnown) {
    std::vector<TagSpec> tags;
    std::optional<double> range;
    std::optional<int> failInitializations;
    std::optional<int> failScanStarts;
    std::optional<bool> failPaired;
    std::optional<int> failAdapterInits;
    try {
        object(scenario, "scenario");
        for (auto it = scenario.MemberBegin(); it != scenario.MemberEnd(); ++it) {
            const std::string name = it->name.GetString();
            const auto is = [&](const char* field) { return name == field; };
            if (!is("range") && !is("tags") && !is("faults") &&
                std::none_of(alsoKnown.begin(), alsoKnown.end(), is)) {
                fail(name, "unknown field");
            }
        }
        if (const Value* value = member(scenario, "range")) {
            range = nonNegative(number(*value, "range"), "range");
        }
        if (const Value* list = member(scenario, "tags")) {
            for (rapidjson::SizeType i = 0; i < array(*list, "tags").Size(); ++i) {
                tags.push_back(tag((*list)[i], at("tags", i)));
            }
        }
        if (const Value* faults = member(scenario, "faults")) {
            onlyKnown(object(*faults, "faults"), "faults",
                      {"failInitializations", "failScanStarts", "failPairedDeviceQuery",
                       "failAdapterInits"});
            if (const Value* value = member(*faults, "failInitializations")) {
                failInitializations = integer(*value, "faults.failInitializations");
            }
            if (const Value* value = member(*faults, "failScanStarts")) {
                failScanStarts = integer(*value, "faults.failScanStarts");
            }
            if (const Value* value = member(*faults, "failPairedDeviceQuery")) {
                failPaired = boolean(*value, "faults.failPairedDeviceQuery");
            }
            if (const Value* value = member(*faults, "failAdapterInits")) {
                failAdapterInits = integer(*value, "faults.failAdapterInits");
            }
        }
    } catch (const FieldError& field) {
        if (error != nullptr) {
            *error = field.message;
        }
        return false;
    }
    if (range) {
        world.setRange(*range);
    }
    for (TagSpec& tagSpec : tags) {
        world.addTag(std::move(tagSpec));
    }
    // Only the faults the scenario names; the others keep what the world had.
    if (failInitializations) {
        world.failNext(ProxyCall::Initialize, *failInitializations);
    }
    if (failScanStarts) {
        world.failNextScanStarts(*failScanStarts);
    }
    if (failPaired) {
        world.failNext(ProxyCall::GetPairedDevices, *failPaired ? World::kEveryCall : 0);
    }
    if (failAdapterInits) {
        InLocService::instance().failNext(InLocCall::AdapterInit, IXA_STATUS_NOT_READY,
                                          *failAdapterInits);
    }
    return true;
}

bool parseJson(const std::string& json, rapidjson::Document* document, std::string* error) {
    std::size_t offset = 0;
    std::string message;
    if (util::json::JSONUtil::parseDocument(json, *document, &offset, &message)) {
        return true;
    }
    if (error != nullptr) {
        *error = "offset " + std::to_string(offset) + ": " + message;
    }
    return false;
}

bool loadScenario(const std::string& json, World& world, std::string* error) {
    rapidjson::Document document;
    return parseJson(json, &document, error) && loadScenario(document, world, error);
}

bool readDescriptionFile(const std::string& path, std::string* content, std::string* error) {
    return readRegularFile(path, kMaxDescriptionBytes, content, error);
}

bool loadScenarioFile(const std::string& path, World& world, std::string* error) {
    std::string content;
    if (!readDescriptionFile(path, &content, error)) {
        return false;
    }
    return loadScenario(content, world, error);
}

}  // namespace sim
}  // namespace tracker
