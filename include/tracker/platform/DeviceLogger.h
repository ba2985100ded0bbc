#pragma once

#include <cstdarg>
#include <exception>
#include <string>

namespace tracker {

// The library's only door to the platform log. Each operation is one platform call with the
// priority of its letter: v 2, d 3, i 4, w 5, e 6. The platform's result is passed back.
//
// Thread-safety: stateless; callable from any thread.
class DeviceLogger {
  public:
    DeviceLogger() = delete;

    static int v(const char* tag, const char* format, va_list args)
        __attribute__((format(printf, 2, 0)));
    static int d(const char* tag, const char* format, va_list args)
        __attribute__((format(printf, 2, 0)));
    static int i(const char* tag, const char* format, va_list args)
        __attribute__((format(printf, 2, 0)));
    static int w(const char* tag, const char* format, va_list args)
        __attribute__((format(printf, 2, 0)));
    static int e(const char* tag, const char* format, va_list args)
        __attribute__((format(printf, 2, 0)));

    // Whether the platform would write a line of this priority (2 to 6) and tag anywhere, so that
    // a caller can skip building the arguments of one it would drop.
    static bool isLoggable(const char* tag, int priority);

    // Writes "<message>: <error.what()>".
    static int v(const char* tag, const std::string& message, const std::exception& error);
    static int d(const char* tag, const std::string& message, const std::exception& error);
    static int i(const char* tag, const std::string& message, const std::exception& error);
    static int w(const char* tag, const std::string& message, const std::exception& error);
    static int e(const char* tag, const std::string& message, const std::exception& error);
};

}  // namespace tracker
