#pragma once

// Host stand-in for the platform metrics log.

#ifdef __cplusplus
extern "C" {
#endif

// Writes one metric record for the program and schema; `count` is passed through to the
// metrics service as given.
int __metrics_log_print_v2(int priority, const char* tag, const char* programId,
                           const char* schemaId, int count, const char* format, ...)
    __attribute__((format(printf, 6, 7)));

#ifdef __cplusplus
}
#endif
