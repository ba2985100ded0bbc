#include "tracker/power/WakeLockManager.h"

#include "tracker/util/Log.h"

namespace tracker {
namespace util {
namespace power {

namespace {
const Log& kLog = *new Log("WakeLockManager");
}

WakeLockManager::WakeLockManager(const std::string& /*tag*/, bool) {
    kLog.d("WakeLockManager");
}

void WakeLockManager::acquireWakeLock(std::chrono::milliseconds /*timeout*/) {
    kLog.d("acquireWakeLock");
}

void WakeLockManager::releaseWakeLock() {
    kLog.d("releaseWakeLock");
}

}  // namespace power
}  // namespace util
}  // namespace tracker
