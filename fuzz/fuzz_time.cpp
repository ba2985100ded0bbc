// Times from outside: ISO 8601 text as the back end sends it, and any instant, written in the
// RFC 3339 form the library sends. The instant is the input's first eight bytes.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "tracker/util/time/TimeUtils.h"

using tracker::util::time::TimeUtils;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    TimeUtils times;
    long long seconds = 0;
    times.convert8601TimeStringToUnix(std::string(reinterpret_cast<const char*>(data), size),
                                      &seconds);

    int64_t micros = 0;
    std::memcpy(&micros, data, size < sizeof micros ? size : sizeof micros);
    const std::chrono::time_point<std::chrono::system_clock, std::chrono::microseconds> instant{
        std::chrono::microseconds(micros)};
    std::string written;
    if (!times.convertTimeToUtcIso8601Rfc3339(instant, &written)) {
        return 0;
    }
    // An instant from 1970 on with a four-digit year ("2017-07-14T02:40:00.123Z") reads back, in
    // the form the library reads, as its whole seconds.
    if (micros >= 0 && written.size() == 24) {
        long long back = 0;
        if (!times.convert8601TimeStringToUnix(written.substr(0, 19) + "+0000", &back) ||
            back != micros / 1000000) {
            __builtin_trap();
        }
    }
    return 0;
}
