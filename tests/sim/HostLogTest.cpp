#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "log/HostLog.h"
#include "log/LogCapture.h"

namespace tracker {
namespace sim {
namespace {

using ::testing::MatchesRegex;

TEST(HostLog, StderrFollowsTheLevelFilterWhileCapturesSeeEverything) {
    setStderrThreshold(ANDROID_LOG_WARN);
    LogCapture capture;
    testing::internal::CaptureStderr();
    __android_log_print(ANDROID_LOG_INFO, "TrackerD-Sink", "dropped=%d", 1);
    __android_log_print(ANDROID_LOG_WARN, "TrackerD-Sink", "kept=%s", "yes");
    __android_log_print(ANDROID_LOG_ERROR, "TrackerD-Sink", "also kept");
    const std::string written = testing::internal::GetCapturedStderr();

    EXPECT_THAT(written, MatchesRegex("[0-9]{2}-[0-9]{2} [0-9:]{8}\\.[0-9]{3} +[0-9]+ +[0-9]+ "
                                      "W TrackerD-Sink: kept=yes\n"
                                      "[0-9]{2}-[0-9]{2} [0-9:]{8}\\.[0-9]{3} +[0-9]+ +[0-9]+ "
                                      "E TrackerD-Sink: also kept\n"));
    EXPECT_EQ(capture.texts(),
              (std::vector<std::string>{"I TrackerD-Sink: dropped=1", "W TrackerD-Sink: kept=yes",
                                        "E TrackerD-Sink: also kept"}));
}

TEST(HostLog, LevelNamesAndSilence) {
    EXPECT_EQ(priorityFromLevelName("V"), ANDROID_LOG_VERBOSE);
    EXPECT_EQ(priorityFromLevelName("debug"), ANDROID_LOG_DEBUG);
    EXPECT_EQ(priorityFromLevelName("E"), ANDROID_LOG_ERROR);
    EXPECT_EQ(priorityFromLevelName("S"), ANDROID_LOG_SILENT);
    EXPECT_EQ(priorityFromLevelName(nullptr), ANDROID_LOG_INFO);
    EXPECT_EQ(priorityFromLevelName(""), ANDROID_LOG_INFO);
    EXPECT_EQ(priorityFromLevelName("x"), ANDROID_LOG_INFO);

    setStderrThreshold(priorityFromLevelName("S"));
    testing::internal::CaptureStderr();
    __android_log_print(ANDROID_LOG_FATAL, "TrackerD-Sink", "quiet");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(HostLog, LinesNobodyWouldSeeAreNotLoggable) {
    setStderrThreshold(ANDROID_LOG_INFO);
    EXPECT_FALSE(__android_log_is_loggable(ANDROID_LOG_DEBUG, "T", ANDROID_LOG_VERBOSE));
    EXPECT_TRUE(__android_log_is_loggable(ANDROID_LOG_INFO, "T", ANDROID_LOG_VERBOSE));
    {
        LogCapture capture;  // a capture sees every line, so every line is loggable
        EXPECT_TRUE(__android_log_is_loggable(ANDROID_LOG_VERBOSE, "T", ANDROID_LOG_VERBOSE));
    }
    EXPECT_FALSE(__android_log_is_loggable(ANDROID_LOG_VERBOSE, "T", ANDROID_LOG_VERBOSE));
    EXPECT_LT(__android_log_print(ANDROID_LOG_DEBUG, "T", "dropped unformatted"), 0);
}

TEST(HostLog, CapturesAreIndependentAndWaitable) {
    LogCapture outer;
    {
        LogCapture inner;
        __android_log_print(ANDROID_LOG_DEBUG, "T", "both");
        EXPECT_EQ(inner.texts(), std::vector<std::string>{"D T: both"});
    }
    __android_log_print(ANDROID_LOG_VERBOSE, "T", "outer only");
    EXPECT_EQ(outer.texts(), (std::vector<std::string>{"D T: both", "V T: outer only"}));

    std::thread writer([] { __android_log_print(ANDROID_LOG_INFO, "T", "from %s", "afar"); });
    EXPECT_TRUE(outer.waitFor("I T: from afar", std::chrono::seconds(10)));
    writer.join();
    EXPECT_FALSE(outer.waitFor("I T: never", std::chrono::milliseconds(1)));
    outer.clear();
    EXPECT_TRUE(outer.lines().empty());
}

}  // namespace
}  // namespace sim
}  // namespace tracker
