#pragma once

#include <chrono>
#include <ctime>
#include <memory>
#include <string>

#include "tracker/util/time/SafeCTimeAccess.h"

namespace tracker {
namespace util {
namespace time {

// Conversions between Unix time, the 24-character ISO 8601 form the library reads
// ("2020-02-29T12:00:00+0000"; the zone suffix is ignored and the text read as UTC) and the
// RFC 3339 form it writes ("2017-07-14T02:40:00.123Z").
//
// Every failure returns false with one error line under "TrackerD-TimeUtils" and leaves the
// output untouched. Times before 1970 fail wherever mktime() yields a negative value.
//
// Thread-safety: no state but the shared SafeCTimeAccess; any object may be used from any
// thread.
class TimeUtils {
  public:
    TimeUtils();

    bool getCurrentUnixTime(long long* currentTime);
    bool convertTimeToUtcIso8601Rfc3339(
        const std::chrono::time_point<std::chrono::system_clock, std::chrono::microseconds>& time,
        std::string* out);
    bool convert8601TimeStringToUnix(const std::string& text, long long* convertedTime);
    // The inverse of gmtime(): broken-down UTC to Unix seconds.
    bool convertToUtcTimeT(const tm* utc, time_t* out);
    // (UTC fields of t read as local time) - t; -3600 for a zone one hour east of UTC.
    bool localtimeOffset(time_t t, time_t* offset);

  private:
    std::shared_ptr<SafeCTimeAccess> m_access;
};

}  // namespace time
}  // namespace util
}  // namespace tracker
