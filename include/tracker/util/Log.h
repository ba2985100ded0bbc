#pragma once

#include <exception>
#include <initializer_list>
#include <string>

namespace tracker {
namespace util {

// A tagged logger. Every source file of the library owns one, built during static
// initialisation, whose tag is "TrackerD-" followed by the file's component name. It is
// allocated once and never destroyed (const Log& kLog = *new Log("Name")), so that the
// library's threads that are still running while the process exits can log.
//
// Each call forwards the tag, the format and the arguments to DeviceLogger, which hands them to
// the platform log in one call: no string is built here and nothing is filtered, the platform
// applies its own level filter.
//
// Thread-safety: immutable after construction; every operation may be called from any thread.
class Log {
  public:
    // The platform priorities of the five levels.
    enum class Level { Verbose = 2, Debug = 3, Info = 4, Warn = 5, Error = 6 };

    // Tag = "TrackerD-" + name.
    explicit Log(std::string name);
    // Tag = "TrackerD-" + the names joined by ':'. The character after the last name is always
    // dropped, so an empty list yields "TrackerD".
    Log(std::initializer_list<const char*> names);
    virtual ~Log();

    const std::string& tag() const { return m_tag; }
    // Whether the platform would write a line of this level under this tag: ask before building
    // costly arguments for a line that may well be dropped.
    bool isLoggable(Level level) const;

    void v(const char* format, ...) const __attribute__((format(printf, 2, 3)));
    void d(const char* format, ...) const __attribute__((format(printf, 2, 3)));
    void i(const char* format, ...) const __attribute__((format(printf, 2, 3)));
    void w(const char* format, ...) const __attribute__((format(printf, 2, 3)));
    void e(const char* format, ...) const __attribute__((format(printf, 2, 3)));

    // One line "<message>: <error.what()>", for exceptions caught at a boundary.
    void v(const std::string& message, const std::exception& error) const;
    void d(const std::string& message, const std::exception& error) const;
    void i(const std::string& message, const std::exception& error) const;
    void w(const std::string& message, const std::exception& error) const;
    void e(const std::string& message, const std::exception& error) const;
    // The same for a literal message, which would otherwise be ambiguous with the printf form.
    void v(const char* message, const std::exception& error) const;
    void d(const char* message, const std::exception& error) const;
    void i(const char* message, const std::exception& error) const;
    void w(const char* message, const std::exception& error) const;
    void e(const char* message, const std::exception& error) const;

  private:
    std::string m_tag;
};

}  // namespace util
}  // namespace tracker
