#include "tracker/util/Log.h"

#include <cstdarg>
#include <utility>

#include "tracker/platform/DeviceLogger.h"

namespace tracker {
namespace util {

namespace {
constexpr const char* kTagPrefix = "TrackerD-";
}

Log::Log(std::string name) : m_tag(kTagPrefix + std::move(name)) {}

Log::Log(std::initializer_list<const char*> names) : m_tag(kTagPrefix) {
    for (const char* name : names) {
        m_tag += name != nullptr ? name : "";
        m_tag += ':';
    }
    m_tag.pop_back();
}

Log::~Log() = default;

bool Log::isLoggable(Level level) const {
    return DeviceLogger::isLoggable(m_tag.c_str(), static_cast<int>(level));
}

// Each level is a printf-style entry that has to open its own va_list, and an exception entry;
// one definition serves all five letters.
#define TRACKER_LOG_LEVEL(letter)                                                     \
    void Log::letter(const char* format, ...) const {                                 \
        va_list args;                                                                 \
        va_start(args, format);                                                       \
        DeviceLogger::letter(m_tag.c_str(), format, args);                            \
        va_end(args);                                                                 \
    }                                                                                 \
    void Log::letter(const std::string& message, const std::exception& error) const { \
        DeviceLogger::letter(m_tag.c_str(), message, error);                          \
    }                                                                                 \
    void Log::letter(const char* message, const std::exception& error) const {        \
        DeviceLogger::letter(m_tag.c_str(), std::string(message), error);             \
    }

TRACKER_LOG_LEVEL(v)
TRACKER_LOG_LEVEL(d)
TRACKER_LOG_LEVEL(i)
TRACKER_LOG_LEVEL(w)
TRACKER_LOG_LEVEL(e)

#undef TRACKER_LOG_LEVEL

}  // namespace util
}  // namespace tracker
