#pragma once

#include <chrono>
#include <string>

namespace tracker {
namespace util {
namespace power {

// The library's wake-lock interface. It holds no platform wake lock: every call only logs, and
// callers rely on it being cheap and safe from any thread in any order.
class WakeLockManager {
  public:
    // Neither argument is kept.
    WakeLockManager(const std::string& tag, bool);

    void acquireWakeLock(std::chrono::milliseconds timeout);
    void releaseWakeLock();
};

}  // namespace power
}  // namespace util
}  // namespace tracker
