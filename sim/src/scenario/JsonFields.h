#pragma once

#include <rapidjson/document.h>

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include <android/os/ParcelUuid.h>

namespace tracker {
namespace sim {
namespace fields {

// Readers for hand-written JSON descriptions (scenarios, the CLI's scripts). Each names the
// field it reads by its path ("tags[1].advertisement") and, for a value of the wrong kind,
// throws FieldError with that path and what was expected. Loaders catch it at their top and
// turn it into their false result, so a description is refused whole, never half loaded.

struct FieldError {
    std::string message;  // "tags[1].advertisement: expected an even number of hex digits"
};

[[noreturn]] void fail(const std::string& path, const std::string& what);

// "path.name", or "name" at the top.
std::string join(const std::string& path, const std::string& name);
// "path[index]".
std::string at(const std::string& path, std::size_t index);

// Refuses a field not in `known`: a misspelt field would otherwise be ignored silently.
void onlyKnown(const rapidjson::Value& object, const std::string& path,
               std::initializer_list<const char*> known);
// The object itself; fails unless it is one.
const rapidjson::Value& object(const rapidjson::Value& value, const std::string& path);

// The member, or null when absent.
const rapidjson::Value* member(const rapidjson::Value& object, const char* name);
const rapidjson::Value& required(const rapidjson::Value& object, const std::string& path,
                                 const char* name);

std::string text(const rapidjson::Value& value, const std::string& path);
int integer(const rapidjson::Value& value, const std::string& path);
// An integer within [low, high].
int integerIn(const rapidjson::Value& value, const std::string& path, int low, int high);
double number(const rapidjson::Value& value, const std::string& path);
double nonNegative(double value, const std::string& path);
bool boolean(const rapidjson::Value& value, const std::string& path);
const rapidjson::Value& array(const rapidjson::Value& value, const std::string& path);
// Hex digits, two per byte ("0201060303aafe").
std::vector<uint8_t> hexBytes(const rapidjson::Value& value, const std::string& path);
// "C0:FF:EE:00:00:01", as written.
std::string address(const rapidjson::Value& value, const std::string& path);
// "0000180f-0000-1000-8000-00805f9b34fb", or "180f" / "0000180f" on the Bluetooth base.
android::os::ParcelUuid uuid(const rapidjson::Value& value, const std::string& path);

}  // namespace fields
}  // namespace sim
}  // namespace tracker
