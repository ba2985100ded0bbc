// The simulated platform metrics log: each record is printed logcat-style on stderr, as
// "[<program> <schema> <count>] <record>" under the record's tag, and handed to every
// MetricsCapture. It is a log of its own: LogCaptures do not see it.

#include <metrics/metrics_log.h>

#include <cstdarg>
#include <cstdio>
#include <string>

#include "log/HostLog.h"
#include "log/LogCapture.h"
#include "metrics/MetricsCapture.h"

extern "C" int __metrics_log_print_v2(int priority, const char* tag, const char* programId,
                                      const char* schemaId, int count, const char* format, ...) {
    if (format == nullptr) {
        return -1;
    }
    va_list args;
    va_start(args, format);
    va_list measure;
    va_copy(measure, args);
    const int length = std::vsnprintf(nullptr, 0, format, measure);
    va_end(measure);
    std::string record(length > 0 ? static_cast<std::size_t>(length) : 0, '\0');
    if (length > 0) {
        std::vsnprintf(&record[0], record.size() + 1, format, args);
    }
    va_end(args);
    if (length < 0) {
        return -1;
    }

    const tracker::sim::MetricRecord entry{priority,
                                           tag != nullptr ? tag : "",
                                           programId != nullptr ? programId : "",
                                           schemaId != nullptr ? schemaId : "",
                                           count,
                                           record};
    tracker::sim::printLine({priority, entry.tag,
                             "[" + entry.programId + " " + entry.schemaId + " " +
                                 std::to_string(count) + "] " + record});
    tracker::sim::Capture<tracker::sim::MetricRecord>::publish(entry);
    return length;
}
