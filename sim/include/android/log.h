#pragma once

// Host stand-in for the platform log interface. Priorities and signatures match the device's.

#include <stdarg.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef enum android_LogPriority {
    ANDROID_LOG_UNKNOWN = 0,
    ANDROID_LOG_DEFAULT,
    ANDROID_LOG_VERBOSE,
    ANDROID_LOG_DEBUG,
    ANDROID_LOG_INFO,
    ANDROID_LOG_WARN,
    ANDROID_LOG_ERROR,
    ANDROID_LOG_FATAL,
    ANDROID_LOG_SILENT,
} android_LogPriority;

int __android_log_vprint(int prio, const char* tag, const char* fmt, va_list ap)
    __attribute__((format(printf, 3, 0)));
int __android_log_print(int prio, const char* tag, const char* fmt, ...)
    __attribute__((format(printf, 3, 4)));
// Whether a line of this priority and tag would be written anywhere; default_prio is the level
// that applies when the platform has none configured for the tag. Lines that would not be
// written are dropped by the print functions above without being formatted.
int __android_log_is_loggable(int prio, const char* tag, int default_prio);

#ifdef __cplusplus
}
#endif
