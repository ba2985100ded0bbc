#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "log/LogCapture.h"
#include "support/SimBluetooth.h"

namespace tracker {
namespace testing {

// A simulated world whose platform log is captured, with helpers for the lines of one
// component, "<letter> <Tag>: <message>". Lines written on other threads are waited for.
template <const char* Tag>
class LoggedWorld : public SimulatedWorld {
  protected:
    static std::string line(char level, const std::string& message) {
        return std::string(1, level) + " " + Tag + ": " + message;
    }
    bool logged(char level, const std::string& message) {
        return m_log.contains(line(level, message));
    }
    ::testing::AssertionResult awaitLine(char level, const std::string& message) {
        if (m_log.waitFor(line(level, message), kEventLimit)) {
            return ::testing::AssertionSuccess();
        }
        return ::testing::AssertionFailure() << "never logged: " << line(level, message);
    }
    std::size_t count(char level, const std::string& message) {
        const std::vector<std::string> texts = m_log.texts();
        return static_cast<std::size_t>(
            std::count(texts.begin(), texts.end(), line(level, message)));
    }

    sim::LogCapture m_log;
};

inline constexpr char kBluetoothManagerTag[] = "TrackerD-BluetoothManager";
inline constexpr char kInLocManagerTag[] = "TrackerD-InLocManager";

}  // namespace testing
}  // namespace tracker
