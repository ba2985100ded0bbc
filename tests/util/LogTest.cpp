#include "tracker/util/Log.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>

#include "log/LogCapture.h"

namespace tracker {
namespace util {
namespace {

using sim::LogCapture;

TEST(Log, TagsCarryTheFixedPrefix) {
    EXPECT_EQ(Log("X").tag(), "TrackerD-X");
    EXPECT_EQ(Log({"A", "B", "C"}).tag(), "TrackerD-A:B:C");
    EXPECT_EQ(Log({"A"}).tag(), "TrackerD-A");
    // The character after the last name is always dropped, the hyphen too for an empty list.
    EXPECT_EQ(Log({}).tag(), "TrackerD");
    EXPECT_EQ(Log("").tag(), "TrackerD-");
    EXPECT_EQ(Log({"A", nullptr}).tag(), "TrackerD-A:");
}

TEST(Log, EachLevelReachesThePlatformWithItsPriority) {
    LogCapture capture;
    const Log log("Levels");
    log.v("verbose %d", 2);
    log.d("debug %s", "three");
    log.i("info: key=%d", 4);
    log.w("warn %c", '5');
    log.e("error %.1f", 6.0);

    const std::vector<sim::LogLine> lines = capture.lines();
    ASSERT_EQ(lines.size(), 5u);
    const std::pair<int, const char*> expected[] = {
        {2, "verbose 2"}, {3, "debug three"}, {4, "info: key=4"}, {5, "warn 5"}, {6, "error 6.0"}};
    for (std::size_t index = 0; index < lines.size(); ++index) {
        EXPECT_EQ(lines[index].priority, expected[index].first);
        EXPECT_EQ(lines[index].tag, "TrackerD-Levels");
        EXPECT_EQ(lines[index].message, expected[index].second);
    }
}

TEST(Log, ExceptionsBecomeOneLine) {
    LogCapture capture;
    // Held through the base pointer, as loggers may be.
    std::unique_ptr<Log> log = std::make_unique<Log>("Boundary");
    log->e("openFailed", std::runtime_error("boom"));
    log->w("retrying", std::out_of_range("index 7"));
    EXPECT_EQ(capture.texts(),
              (std::vector<std::string>{"E TrackerD-Boundary: openFailed: boom",
                                        "W TrackerD-Boundary: retrying: index 7"}));
}

TEST(Log, LongMessagesArriveWhole) {
    LogCapture capture;
    const std::string payload(5000, 'x');
    Log("Long").i("payload=%s", payload.c_str());
    ASSERT_EQ(capture.lines().size(), 1u);
    EXPECT_EQ(capture.lines()[0].message, "payload=" + payload);
}

}  // namespace
}  // namespace util
}  // namespace tracker
