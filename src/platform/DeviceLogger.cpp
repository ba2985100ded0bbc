#include "tracker/platform/DeviceLogger.h"

#include <android/log.h>

namespace tracker {

bool DeviceLogger::isLoggable(const char* tag, int priority) {
    // With no level configured for the tag, every priority is written.
    return __android_log_is_loggable(priority, tag, ANDROID_LOG_VERBOSE) != 0;
}

#define TRACKER_DEVICE_LOG_LEVEL(letter, priority)                                          \
    int DeviceLogger::letter(const char* tag, const char* format, va_list args) {           \
        return __android_log_vprint(priority, tag, format, args);                           \
    }                                                                                       \
    int DeviceLogger::letter(const char* tag, const std::string& message,                   \
                             const std::exception& error) {                                 \
        return __android_log_print(priority, tag, "%s: %s", message.c_str(), error.what()); \
    }

TRACKER_DEVICE_LOG_LEVEL(v, ANDROID_LOG_VERBOSE)
TRACKER_DEVICE_LOG_LEVEL(d, ANDROID_LOG_DEBUG)
TRACKER_DEVICE_LOG_LEVEL(i, ANDROID_LOG_INFO)
TRACKER_DEVICE_LOG_LEVEL(w, ANDROID_LOG_WARN)
TRACKER_DEVICE_LOG_LEVEL(e, ANDROID_LOG_ERROR)

#undef TRACKER_DEVICE_LOG_LEVEL

}  // namespace tracker
