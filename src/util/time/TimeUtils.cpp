#include "tracker/util/time/TimeUtils.h"

#include <cstdio>

#include "tracker/util/Log.h"
#include "tracker/util/StringUtils.h"

namespace tracker {
namespace util {
namespace time {

namespace {

const Log& kLog = *new Log("TimeUtils");

// Field positions of "YYYY-MM-DDTHH:MM:SS+zzzz", derived from its separators.
constexpr std::size_t kDateSeparator = sizeof("-") - 1;
constexpr std::size_t kDateTimeSeparator = sizeof("T") - 1;
constexpr std::size_t kTimeSeparator = sizeof(":") - 1;
constexpr std::size_t kZoneSeparator = sizeof("+") - 1;

struct Field {
    const char* name;
    std::size_t start;
    std::size_t digits;
};

constexpr Field kYear{"year", 0, 4};
constexpr Field kMonth{"month", 4 + kDateSeparator, 2};
constexpr Field kDay{"day", 6 + 2 * kDateSeparator, 2};
constexpr Field kHour{"hour", 8 + kDateTimeSeparator + 2 * kDateSeparator, 2};
constexpr Field kMinute{"minute", kHour.start + kTimeSeparator + 2, 2};
constexpr Field kSecond{"second", kMinute.start + kTimeSeparator + 2, 2};
constexpr std::size_t kIso8601Length = kSecond.start + kZoneSeparator + 6;
static_assert(kIso8601Length == 24, "YYYY-MM-DDTHH:MM:SS+zzzz");

bool parseField(const std::string& text, const Field& field, int* value) {
    if (StringUtils::stringToInt(text.substr(field.start, field.digits), value)) {
        return true;
    }
    kLog.e("convert8601TimeStringToUnixFailed, error parsing %s. Input=%s", field.name,
           text.c_str());
    return false;
}

// mktime() of a copy with the daylight-saving flag left to the library.
time_t mktimeOf(const tm& fields) {
    tm copy = fields;
    copy.tm_isdst = -1;
    return mktime(&copy);
}

}  // namespace

TimeUtils::TimeUtils() : m_access(SafeCTimeAccess::instance()) {}

bool TimeUtils::getCurrentUnixTime(long long* currentTime) {
    if (currentTime == nullptr) {
        kLog.e("getCurrentUnixTimeFailed, currentTime parameter was nullptr.");
        return false;
    }
    *currentTime = static_cast<long long>(
        std::chrono::system_clock::to_time_t(std::chrono::system_clock::now()));
    return *currentTime >= 0;
}

bool TimeUtils::convertTimeToUtcIso8601Rfc3339(
    const std::chrono::time_point<std::chrono::system_clock, std::chrono::microseconds>& time,
    std::string* out) {
    if (out == nullptr) {
        kLog.e("convertTimeToUtcIso8601Rfc3339Failed, out parameter was nullptr.");
        return false;
    }
    // Truncating divisions, as they stand for times before 1970 too: gmtime reads the seconds,
    // and the milliseconds of such a time print with their sign.
    const long long micros = static_cast<long long>(time.time_since_epoch().count());
    const time_t seconds = static_cast<time_t>(micros / 1000000);
    const long long millis = micros / 1000;
    tm fields{};
    if (!m_access->getGmtime(seconds, &fields)) {
        kLog.e("convertTimeToUtcIso8601Rfc3339, cannot retrieve tm struct");
        return false;
    }
    char buffer[28];
    if (strftime(buffer, sizeof buffer, "%Y-%m-%dT%H:%M:%S", &fields) == 0) {
        kLog.e("convertTimeToUtcIso8601Rfc3339Failed, strftime(..) failed");
        return false;
    }
    char fraction[8];
    std::snprintf(fraction, sizeof fraction, ".%03lldZ", millis % 1000);
    *out = std::string(buffer) + fraction;
    return true;
}

bool TimeUtils::convert8601TimeStringToUnix(const std::string& text, long long* convertedTime) {
    if (convertedTime == nullptr) {
        kLog.e("convert8601TimeStringToUnixFailed, convertedTime parameter was nullptr.");
        return false;
    }
    if (text.size() != kIso8601Length) {
        kLog.e("convert8601TimeStringToUnixFailed, unexpected time string length=%zu", text.size());
        return false;
    }
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
    if (!parseField(text, kYear, &year) || !parseField(text, kMonth, &month) ||
        !parseField(text, kDay, &day) || !parseField(text, kHour, &hour) ||
        !parseField(text, kMinute, &minute) || !parseField(text, kSecond, &second)) {
        return false;
    }
    tm fields{};
    fields.tm_year = year - 1900;
    fields.tm_mon = month - 1;
    fields.tm_mday = day;
    fields.tm_hour = hour;
    fields.tm_min = minute;
    fields.tm_sec = second;
    time_t converted = 0;
    if (!convertToUtcTimeT(&fields, &converted)) {
        return false;
    }
    *convertedTime = static_cast<long long>(converted);
    return true;
}

bool TimeUtils::convertToUtcTimeT(const tm* utc, time_t* out) {
    if (out == nullptr) {
        kLog.e("convertToUtcTimeT, return variable is null");
        return false;
    }
    time_t offset = 0;
    const time_t local = utc != nullptr ? mktimeOf(*utc) : -1;
    if (local < 0 || !localtimeOffset(local, &offset)) {
        kLog.e("convertToUtcTimeT, failed to convert to local time");
        return false;
    }
    *out = local - offset;
    return true;
}

bool TimeUtils::localtimeOffset(time_t t, time_t* offset) {
    tm fields{};
    time_t asUtc = -1;
    time_t asLocal = -1;
    if (offset != nullptr && m_access->getGmtime(t, &fields)) {
        asUtc = mktimeOf(fields);
        if (asUtc >= 0 && m_access->getLocaltime(t, &fields)) {
            asLocal = mktimeOf(fields);
        }
    }
    if (asLocal < 0) {
        kLog.e("localtimeOffset, cannot retrieve tm struct");
        return false;
    }
    *offset = asUtc - asLocal;
    return true;
}

}  // namespace time
}  // namespace util
}  // namespace tracker
