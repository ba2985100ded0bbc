#include "scenario/JsonFields.h"

#include <algorithm>
#include <cctype>

namespace tracker {
namespace sim {
namespace fields {

using rapidjson::Value;

void fail(const std::string& path, const std::string& what) {
    throw FieldError{path + ": " + what};
}

std::string join(const std::string& path, const std::string& name) {
    return path.empty() ? name : path + "." + name;
}

std::string at(const std::string& path, std::size_t index) {
    return path + "[" + std::to_string(index) + "]";
}

void onlyKnown(const Value& object, const std::string& path,
               std::initializer_list<const char*> known) {
    for (auto it = object.MemberBegin(); it != object.MemberEnd(); ++it) {
        const std::string name = it->name.GetString();
        if (std::none_of(known.begin(), known.end(),
                         [&](const char* field) { return name == field; })) {
            fail(join(path, name), "unknown field");
        }
    }
}

const Value& object(const Value& value, const std::string& path) {
    if (!value.IsObject()) {
        fail(path, "expected an object");
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
        fail(join(path, name), "missing");
    }
    return *value;
}

std::string text(const Value& value, const std::string& path) {
    if (!value.IsString()) {
        fail(path, "expected a string");
    }
    return std::string(value.GetString(), value.GetStringLength());
}

int integer(const Value& value, const std::string& path) {
    if (!value.IsInt()) {
        fail(path, "expected an integer");
    }
    return value.GetInt();
}

int integerIn(const Value& value, const std::string& path, int low, int high) {
    const int result = integer(value, path);
    if (result < low || result > high) {
        fail(path, "expected a value from " + std::to_string(low) + " to " + std::to_string(high));
    }
    return result;
}

double number(const Value& value, const std::string& path) {
    if (!value.IsNumber()) {
        fail(path, "expected a number");
    }
    return value.GetDouble();
}

double nonNegative(double value, const std::string& path) {
    if (value < 0) {
        fail(path, "expected a value of 0 or more");
    }
    return value;
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
    const auto nibble = [&](char c) {
        if (!std::isxdigit(static_cast<unsigned char>(c))) {
            fail(path, "expected hex digits");
        }
        return std::isdigit(static_cast<unsigned char>(c))
                   ? c - '0'
                   : std::tolower(static_cast<unsigned char>(c)) - 'a' + 10;
    };
    std::vector<uint8_t> bytes;
    bytes.reserve(digits.size() / 2);
    for (std::size_t i = 0; i < digits.size(); i += 2) {
        bytes.push_back(static_cast<uint8_t>(nibble(digits[i]) << 4 | nibble(digits[i + 1])));
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

android::os::ParcelUuid uuid(const Value& value, const std::string& path) {
    std::string textual = text(value, path);
    // A 16- or 32-bit UUID stands for the full one on the Bluetooth base.
    const bool shortForm = (textual.size() == 4 || textual.size() == 8) &&
                           std::all_of(textual.begin(), textual.end(), [](char c) {
                               return std::isxdigit(static_cast<unsigned char>(c)) != 0;
                           });
    if (shortForm) {
        textual = std::string(8 - textual.size(), '0') + textual + "-0000-1000-8000-00805f9b34fb";
    }
    const android::os::ParcelUuid parsed = android::os::ParcelUuid::fromString(textual);
    if (parsed == android::os::ParcelUuid() && textual != "00000000-0000-0000-0000-000000000000") {
        fail(path, "expected a UUID like 180f or 0000180f-0000-1000-8000-00805f9b34fb");
    }
    return parsed;
}

}  // namespace fields
}  // namespace sim
}  // namespace tracker
