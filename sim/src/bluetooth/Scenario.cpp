#include "bluetooth/Scenario.h"

#include <rapidjson/document.h>
#include <rapidjson/error/en.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <fstream>
#include <initializer_list>
#include <optional>
#include <sstream>

#include "inloc/InLocService.h"

namespace tracker {
namespace sim {

namespace {

using android::bluetooth::BluetoothGattCharacteristic;
using android::bluetooth::BluetoothGattDescriptor;
using android::bluetooth::BluetoothGattService;
using android::os::ParcelUuid;
using com::orvane::frameworklink::interfaces::ParcelByteArray;
using com::orvane::frameworklink::interfaces::RemoteDeviceAdapter;
using rapidjson::Value;

// Thrown inside the loader only, with the path of the offending field; loadScenario turns it
// into its false result.
struct FieldError {
    std::string message;
};

[[noreturn]] void fail(const std::string& path, const std::string& what) {
    throw FieldError{path + ": " + what};
}

// A misspelt field would otherwise be ignored silently.
void onlyKnown(const Value& object, const std::string& path,
               std::initializer_list<const char*> known) {
    for (auto it = object.MemberBegin(); it != object.MemberEnd(); ++it) {
        const std::string name = it->name.GetString();
        if (std::none_of(known.begin(), known.end(),
                         [&](const char* field) { return name == field; })) {
            fail(path.empty() ? name : path + "." + name, "unknown field");
        }
    }
}

double nonNegative(double value, const std::string& path) {
    if (value < 0) {
        fail(path, "expected a value of 0 or more");
    }
    return value;
}

const Value* member(const Value& object, const char* name) {
    const auto found = object.FindMember(name);
    return found != object.MemberEnd() ? &found->value : nullptr;
}

const Value& required(const Value& object, const std::string& path, const char* name) {
    const Value* value = member(object, name);
    if (value == nullptr) {
        fail(path + "." + name, "missing");
    }
    return *value;
}

std::string text(const Value& value, const std::string& path) {
    if (!value.IsString()) {
        fail(path, "expected a string");
    }
    return value.GetString();
}

int integer(const Value& value, const std::string& path) {
    if (!value.IsInt()) {
        fail(path, "expected an integer");
    }
    return value.GetInt();
}

double number(const Value& value, const std::string& path) {
    if (!value.IsNumber()) {
        fail(path, "expected a number");
    }
    return value.GetDouble();
}

bool boolean(const Value& value, const std::string& path) {
    if (!value.IsBool()) {
        fail(path, "expected true or false");
    }
    return value.GetBool();
}

const Value& array(const Value& value, const std::string& path) {
    if (!value.IsArray()) {
        fail(path, "expected an array");
    }
    return value;
}

std::vector<uint8_t> hexBytes(const Value& value, const std::string& path) {
    const std::string digits = text(value, path);
    if (digits.size() % 2 != 0) {
        fail(path, "expected an even number of hex digits");
    }
    std::vector<uint8_t> bytes;
    for (std::size_t i = 0; i < digits.size(); i += 2) {
        unsigned int byte = 0;
        if (std::sscanf(digits.c_str() + i, "%2x", &byte) != 1 ||
            !std::isxdigit(static_cast<unsigned char>(digits[i])) ||
            !std::isxdigit(static_cast<unsigned char>(digits[i + 1]))) {
            fail(path, "expected hex digits");
        }
        bytes.push_back(static_cast<uint8_t>(byte));
    }
    return bytes;
}

std::string address(const Value& value, const std::string& path) {
    const std::string result = text(value, path);
    bool valid = result.size() == 17;
    for (std::size_t i = 0; valid && i < result.size(); ++i) {
        valid =
            i % 3 == 2 ? result[i] == ':' : std::isxdigit(static_cast<unsigned char>(result[i]));
    }
    if (!valid) {
        fail(path, "expected an address like C0:FF:EE:00:00:01");
    }
    return result;
}

ParcelUuid uuid(const Value& value, const std::string& path) {
    const std::string textual = text(value, path);
    const ParcelUuid parsed = ParcelUuid::fromString(textual);
    if (parsed == ParcelUuid() && textual != "00000000-0000-0000-0000-000000000000") {
        fail(path, "expected a UUID like 0000180f-0000-1000-8000-00805f9b34fb");
    }
    return parsed;
}

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
        const std::string at = path + "[" + std::to_string(i) + "]";
        const Value& entry = json[i];
        if (!entry.IsObject()) {
            fail(at, "expected an object");
        }
        onlyKnown(entry, at, {"uuid", "characteristics"});
        BluetoothGattService service(uuid(required(entry, at, "uuid"), at + ".uuid"));
        if (const Value* list = member(entry, "characteristics")) {
            const std::string listPath = at + ".characteristics";
            for (rapidjson::SizeType c = 0; c < array(*list, listPath).Size(); ++c) {
                service.addCharacteristic(
                    characteristic((*list)[c], listPath + "[" + std::to_string(c) + "]"));
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
        if (ms <= 0) {
            fail(path + ".intervalMs", "expected a positive number of milliseconds");
        }
        tagSpec.interval = std::chrono::milliseconds(ms);
    }
    if (const Value* txPower = member(json, "txPower")) {
        tagSpec.txPower = integer(*txPower, path + ".txPower");
    }
    if (const Value* connectable = member(json, "connectable")) {
        tagSpec.connectable = boolean(*connectable, path + ".connectable");
    }
    if (const Value* distance = member(json, "distance")) {
        const std::string at = path + ".distance";
        if (distance->IsNumber()) {
            tagSpec.distance.emplace_back(std::chrono::milliseconds(0),
                                          nonNegative(distance->GetDouble(), at));
        } else {
            for (rapidjson::SizeType i = 0; i < array(*distance, at).Size(); ++i) {
                const std::string point = at + "[" + std::to_string(i) + "]";
                const Value& entry = (*distance)[i];
                if (!entry.IsArray() || entry.Size() != 2) {
                    fail(point, "expected [milliseconds, metres]");
                }
                const std::chrono::milliseconds when(integer(entry[0], point + "[0]"));
                if (when.count() < 0 ||
                    (!tagSpec.distance.empty() && when < tagSpec.distance.back().first)) {
                    fail(point + "[0]", "expected times of 0 or more, in ascending order");
                }
                tagSpec.distance.emplace_back(
                    when, nonNegative(number(entry[1], point + "[1]"), point + "[1]"));
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

bool loadScenario(const std::string& json, World& world, std::string* error) {
    rapidjson::Document document;
    document.Parse(json.c_str(), json.size());
    std::string message;
    if (document.HasParseError()) {
        message = "offset " + std::to_string(document.GetErrorOffset()) + ": " +
                  rapidjson::GetParseError_En(document.GetParseError());
    } else if (!document.IsObject()) {
        message = "scenario: expected an object";
    }
    std::vector<TagSpec> tags;
    std::optional<double> range;
    std::optional<int> failInitializations;
    std::optional<int> failScanStarts;
    std::optional<bool> failPaired;
    std::optional<int> failAdapterInits;
    if (message.empty()) {
        try {
            onlyKnown(document, "", {"range", "tags", "faults"});
            if (const Value* value = member(document, "range")) {
                range = nonNegative(number(*value, "range"), "range");
            }
            if (const Value* list = member(document, "tags")) {
                for (rapidjson::SizeType i = 0; i < array(*list, "tags").Size(); ++i) {
                    tags.push_back(tag((*list)[i], "tags[" + std::to_string(i) + "]"));
                }
            }
            if (const Value* faults = member(document, "faults")) {
                if (!faults->IsObject()) {
                    fail("faults", "expected an object");
                }
                onlyKnown(*faults, "faults",
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
            message = field.message;
        }
    }
    if (!message.empty()) {
        if (error != nullptr) {
            *error = message;
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

bool loadScenarioFile(const std::string& path, World& world, std::string* error) {
    std::ifstream file(path);
    if (!file) {
        if (error != nullptr) {
            *error = path + ": cannot be read";
        }
        return false;
    }
    std::ostringstream content;
    content << file.rdbuf();
    return loadScenario(content.str(), world, error);
}

}  // namespace sim
}  // namespace tracker
