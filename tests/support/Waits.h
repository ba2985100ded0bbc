#pragma once

#include <chrono>
#include <functional>
#include <thread>

namespace tracker {
namespace testing {

// A limit no healthy run comes near, even on a loaded two-core machine under a sanitizer.
constexpr std::chrono::seconds kEventLimit{10};

// Waits until condition() holds, looking every millisecond; false if kEventLimit passes first.
// For state that offers nothing to block on, such as the pool's counters.
inline bool eventually(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + kEventLimit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace testing
}  // namespace tracker
