#include "platform/Settings.h"

#include <binder/ProcessState.h>
#include <cutils/properties.h>
#include <frameworklink/managers/BasicUtilsManager.h>

#include <atomic>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <mutex>

namespace tracker {
namespace sim {

namespace {

struct Overrides {
    std::mutex mutex;
    std::map<std::string, std::string> values;
};

Overrides& overrides() {
    static auto* instance = new Overrides;
    return *instance;
}

std::string environmentName(const std::string& name) {
    std::string result = "TRACKER_SIM_";
    for (char c : name) {
        const auto byte = static_cast<unsigned char>(c);
        result += std::isalnum(byte) ? static_cast<char>(std::toupper(byte)) : '_';
    }
    return result;
}

std::optional<std::string> fromFile(const std::string& name) {
    const char* path = std::getenv("TRACKER_SIM_SETTINGS");
    if (path == nullptr || *path == '\0') {
        return std::nullopt;
    }
    std::ifstream file(path);
    std::string line;
    std::optional<std::string> found;
    while (std::getline(file, line)) {
        const std::size_t equals = line.find('=');
        if (line.empty() || line[0] == '#' || equals == std::string::npos) {
            continue;
        }
        if (line.compare(0, equals, name) == 0 && equals == name.size()) {
            found = line.substr(equals + 1);
        }
    }
    return found;
}

std::atomic<int> g_threadPoolStarts{0};

}  // namespace

std::optional<std::string> setting(const std::string& name) {
    {
        Overrides& set = overrides();
        std::lock_guard<std::mutex> lock(set.mutex);
        const auto found = set.values.find(name);
        if (found != set.values.end()) {
            return found->second;
        }
    }
    if (const char* value = std::getenv(environmentName(name).c_str())) {
        return std::string(value);
    }
    return fromFile(name);
}

void setSetting(const std::string& name, const std::string& value) {
    Overrides& set = overrides();
    std::lock_guard<std::mutex> lock(set.mutex);
    set.values[name] = value;
}

void clearSettings() {
    Overrides& set = overrides();
    std::lock_guard<std::mutex> lock(set.mutex);
    set.values.clear();
}

int binderThreadPoolStarts() {
    return g_threadPoolStarts.load();
}

}  // namespace sim
}  // namespace tracker

extern "C" int property_get(const char* key, char* value, const char* default_value) {
    if (value == nullptr) {
        return 0;
    }
    std::optional<std::string> found;
    if (key != nullptr) {
        found = tracker::sim::setting(key);
    }
    const char* text = found && !found->empty()   ? found->c_str()
                       : default_value != nullptr ? default_value
                                                  : "";
    const std::size_t length = std::min<std::size_t>(std::strlen(text), PROPERTY_VALUE_MAX - 1);
    std::memcpy(value, text, length);
    value[length] = '\0';
    return static_cast<int>(length);
}

namespace android {

sp<ProcessState> ProcessState::self() {
    static const auto instance = std::make_shared<ProcessState>();
    return sp<ProcessState>(instance);
}

void ProcessState::startThreadPool() {
    ++tracker::sim::g_threadPoolStarts;
}

}  // namespace android

namespace com {
namespace orvane {
namespace frameworklink {
namespace managers {

std::shared_ptr<BasicUtilsManager> BasicUtilsManager::getManager() {
    static const auto instance = std::make_shared<BasicUtilsManager>();
    return instance;
}

std::string BasicUtilsManager::getPreferredMarketplace() {
    return tracker::sim::setting("account.marketplace").value_or("");
}

std::string BasicUtilsManager::getCustomerAccountId() {
    return tracker::sim::setting("account.customer").value_or("");
}

}  // namespace managers
}  // namespace frameworklink
}  // namespace orvane
}  // namespace com
