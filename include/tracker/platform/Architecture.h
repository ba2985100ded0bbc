#pragma once

#include <string>

namespace tracker {
namespace util {

// Process set-up for platform binder services, and the OS version. Stateless; callable from any
// thread.
class Architecture {
  public:
    Architecture() = delete;

    // Starts the process's binder thread pool; call once at start-up, before any platform
    // service is used. Always true.
    static bool initialize();
    // Leaves the binder thread pool running; only logs.
    static void shutdown();
    // "ro.build.version.kelpos" when set, else "ro.build.version.release", else "".
    static std::string getOSVersion();
};

}  // namespace util
}  // namespace tracker
