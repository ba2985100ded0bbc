#include "tracker/util/time/SafeCTimeAccess.h"

namespace tracker {
namespace util {
namespace time {

std::shared_ptr<SafeCTimeAccess> SafeCTimeAccess::instance() {
    // Never destroyed: threads may still convert times while the process exits.
    static const auto* shared =
        new std::shared_ptr<SafeCTimeAccess>(std::make_shared<SafeCTimeAccess>());
    return *shared;
}

bool SafeCTimeAccess::getGmtime(const time_t& t, tm* out) {
    return safeAccess(&::gmtime, t, out);
}

bool SafeCTimeAccess::getLocaltime(const time_t& t, tm* out) {
    return safeAccess(&::localtime, t, out);
}

bool SafeCTimeAccess::safeAccess(tm* (*fn)(const time_t*), const time_t& t, tm* out) {
    if (out == nullptr || fn == nullptr) {
        return false;
    }
    MutexLock lock(m_mutex);
    const tm* shared = fn(&t);
    if (shared == nullptr) {
        return false;
    }
    *out = *shared;
    return true;
}

}  // namespace time
}  // namespace util
}  // namespace tracker
