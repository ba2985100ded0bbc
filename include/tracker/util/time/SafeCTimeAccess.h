#pragma once

#include <ctime>
#include <memory>

#include "tracker/util/Mutex.h"

namespace tracker {
namespace util {
namespace time {

// The one gate to gmtime() and localtime(), whose results live in shared static storage: each
// call runs under m_mutex and its result is copied out before the mutex is released.
//
// Thread-safety: one process-wide instance (instance()), usable from any thread.
class SafeCTimeAccess {
  public:
    static std::shared_ptr<SafeCTimeAccess> instance();

    // false if out is null or the conversion failed; otherwise *out is the whole tm.
    bool getGmtime(const time_t& t, tm* out);
    bool getLocaltime(const time_t& t, tm* out);
    // The same for any function of that shape.
    bool safeAccess(tm* (*fn)(const time_t*), const time_t& t, tm* out);

  private:
    Mutex m_mutex;
};

}  // namespace time
}  // namespace util
}  // namespace tracker
