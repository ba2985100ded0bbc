#include "tracker/platform/Architecture.h"

#include <binder/ProcessState.h>
#include <cutils/properties.h>

#include "tracker/util/Log.h"

namespace tracker {
namespace util {

namespace {

const Log& kLog = *new Log("Architecture");

// The device OS's own version wins; the Android release string is the fallback.
constexpr const char* kOsVersionProperty = "ro.build.version.kelpos";
constexpr const char* kReleaseProperty = "ro.build.version.release";

}  // namespace

bool Architecture::initialize() {
    kLog.d("initialize");
    android::sp<android::ProcessState> state = android::ProcessState::self();
    state->startThreadPool();
    state.clear();
    return true;
}

void Architecture::shutdown() {
    kLog.d("shutdown");
}

std::string Architecture::getOSVersion() {
    char version[PROPERTY_VALUE_MAX] = {};
    if (property_get(kOsVersionProperty, version, "") == 0 &&
        property_get(kReleaseProperty, version, "") == 0) {
        return {};
    }
    kLog.d("%s: version=%s", "getOSVersion", version);
    return version;
}

}  // namespace util
}  // namespace tracker
