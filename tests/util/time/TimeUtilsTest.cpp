#include "tracker/util/time/TimeUtils.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <thread>
#include <vector>

#include "log/LogCapture.h"

namespace tracker {
namespace util {
namespace time {
namespace {

using Micros = std::chrono::time_point<std::chrono::system_clock, std::chrono::microseconds>;

// Zones as POSIX rules, so no time-zone database is needed. Each case runs in its own process.
void useZone(const char* zone) {
    setenv("TZ", zone, 1);
    tzset();
}

constexpr const char* kCentralEurope = "CET-1CEST,M3.5.0,M10.5.0/3";

long long parse(const std::string& text) {
    long long seconds = -1;
    EXPECT_TRUE(TimeUtils().convert8601TimeStringToUnix(text, &seconds)) << text;
    return seconds;
}

std::string format(long long micros) {
    std::string text;
    EXPECT_TRUE(TimeUtils().convertTimeToUtcIso8601Rfc3339(
        Micros(std::chrono::microseconds(micros)), &text));
    return text;
}

TEST(TimeUtils, ParsesAsUtcWhateverTheLocalZone) {
    for (const char* zone : {"UTC0", "CET-1", kCentralEurope, "PST8PDT,M3.2.0,M11.1.0"}) {
        useZone(zone);
        EXPECT_EQ(parse("2020-02-29T12:00:00+0000"), 1582977600) << zone;
        // The zone suffix is not read.
        EXPECT_EQ(parse("2020-02-29T12:00:00-0700"), 1582977600) << zone;
        EXPECT_EQ(parse("2020-07-01T12:00:00+0000"), 1593604800) << zone;
        // Out-of-range fields roll over as mktime normalises them.
        EXPECT_EQ(parse("2020-13-01T00:00:00+0000"), 1609459200) << zone;
        // Surrounding blanks are tolerated inside a field.
        EXPECT_EQ(parse("2020-02-29T12:00: 0+0000"), 1582977600) << zone;
    }
}

TEST(TimeUtils, FormatsRfc3339WithMilliseconds) {
    useZone(kCentralEurope);
    EXPECT_EQ(format(1500000000123456LL), "2017-07-14T02:40:00.123Z");
    EXPECT_EQ(format(0), "1970-01-01T00:00:00.000Z");
    EXPECT_EQ(format(1582977600000999LL), "2020-02-29T12:00:00.000Z");
    EXPECT_EQ(format(4102444799999000LL), "2099-12-31T23:59:59.999Z");
}

TEST(TimeUtils, WhatItWritesItReadsBack) {
    for (const char* zone : {"UTC0", "CET-1", "JST-9"}) {
        useZone(zone);
        for (long long seconds = 86400; seconds < 4102444800LL; seconds += 7654321) {
            EXPECT_EQ(parse(format(seconds * 1000000 + 250000)), seconds) << zone;
        }
    }
}

TEST(TimeUtils, MalformedTextFailsWithTheFieldItStoppedAt) {
    useZone("UTC0");
    sim::LogCapture capture;
    TimeUtils utils;
    long long seconds = 99;
    EXPECT_FALSE(utils.convert8601TimeStringToUnix("2020-02-29T12:00:00+000", &seconds));
    EXPECT_FALSE(utils.convert8601TimeStringToUnix("2020-02-29T12:00:00+00000", &seconds));
    EXPECT_FALSE(utils.convert8601TimeStringToUnix("", &seconds));
    EXPECT_FALSE(utils.convert8601TimeStringToUnix("20X0-01-01T00:00:00+0000", &seconds));
    EXPECT_FALSE(utils.convert8601TimeStringToUnix("2020-0a-01T00:00:00+0000", &seconds));
    EXPECT_FALSE(utils.convert8601TimeStringToUnix("2020-01-01T00:00:6x+0000", &seconds));
    EXPECT_FALSE(utils.convert8601TimeStringToUnix("", nullptr));
    // Before 1970 mktime goes negative, which is refused.
    EXPECT_FALSE(utils.convert8601TimeStringToUnix("1969-12-31T00:00:00+0000", &seconds));
    EXPECT_EQ(seconds, 99);

    const std::string prefix = "E TrackerD-TimeUtils: convert8601TimeStringToUnixFailed, ";
    EXPECT_EQ(capture.texts(),
              (std::vector<std::string>{
                  prefix + "unexpected time string length=23",
                  prefix + "unexpected time string length=25",
                  prefix + "unexpected time string length=0",
                  prefix + "error parsing year. Input=20X0-01-01T00:00:00+0000",
                  prefix + "error parsing month. Input=2020-0a-01T00:00:00+0000",
                  prefix + "error parsing second. Input=2020-01-01T00:00:6x+0000",
                  prefix + "convertedTime parameter was nullptr.",
                  "E TrackerD-TimeUtils: convertToUtcTimeT, failed to convert to local time",
              }));
}

TEST(TimeUtils, OffsetsAndNullOutputs) {
    sim::LogCapture capture;
    TimeUtils utils;
    time_t offset = 1;
    useZone("CET-1");
    ASSERT_TRUE(utils.localtimeOffset(1582977600, &offset));
    EXPECT_EQ(offset, -3600);
    useZone(kCentralEurope);
    ASSERT_TRUE(utils.localtimeOffset(1593604800, &offset));
    EXPECT_EQ(offset, -7200);
    useZone("UTC0");
    ASSERT_TRUE(utils.localtimeOffset(1593604800, &offset));
    EXPECT_EQ(offset, 0);

    tm fields{};
    fields.tm_year = 120;
    fields.tm_mon = 1;
    fields.tm_mday = 29;
    fields.tm_hour = 12;
    time_t converted = 0;
    ASSERT_TRUE(utils.convertToUtcTimeT(&fields, &converted));
    EXPECT_EQ(converted, 1582977600);
    EXPECT_EQ(fields.tm_isdst, 0) << "the caller's fields are not touched";

    long long now = 0;
    EXPECT_TRUE(utils.getCurrentUnixTime(&now));
    EXPECT_GT(now, 1700000000);

    capture.clear();
    EXPECT_FALSE(utils.convertToUtcTimeT(&fields, nullptr));
    EXPECT_FALSE(utils.convertToUtcTimeT(nullptr, &converted));
    EXPECT_FALSE(utils.localtimeOffset(0, nullptr));
    EXPECT_FALSE(utils.getCurrentUnixTime(nullptr));
    EXPECT_FALSE(utils.convertTimeToUtcIso8601Rfc3339(Micros{}, nullptr));
    std::string text = "untouched";
    // Before 1970 the truncating divisions stand: gmtime of -1 s, and milliseconds -500.
    EXPECT_TRUE(
        utils.convertTimeToUtcIso8601Rfc3339(Micros(std::chrono::microseconds(-1500000)), &text));
    EXPECT_EQ(text, "1969-12-31T23:59:59.-500Z");
    EXPECT_EQ(capture.texts(),
              (std::vector<std::string>{
                  "E TrackerD-TimeUtils: convertToUtcTimeT, return variable is null",
                  "E TrackerD-TimeUtils: convertToUtcTimeT, failed to convert to local time",
                  "E TrackerD-TimeUtils: localtimeOffset, cannot retrieve tm struct",
                  "E TrackerD-TimeUtils: getCurrentUnixTimeFailed, currentTime parameter was "
                  "nullptr.",
                  "E TrackerD-TimeUtils: convertTimeToUtcIso8601Rfc3339Failed, out parameter was "
                  "nullptr.",
              }));
}

TEST(SafeCTimeAccess, OneGuardCopiesResultsOutForEveryThread) {
    useZone(kCentralEurope);
    auto access = SafeCTimeAccess::instance();
    EXPECT_EQ(access, SafeCTimeAccess::instance());
    EXPECT_FALSE(access->getGmtime(0, nullptr));

    // gmtime and localtime share one static buffer; hammered from several threads at once, each
    // caller must still get its own answer.
    static constexpr int kDayOfMonth[] = {29, 1, 2, 3};
    auto worker = [&](int id, int* failures) {
        TimeUtils utils;
        for (int round = 0; round < 300; ++round) {
            const time_t t = 1582977600 + id * 86400 + round;
            tm utc{};
            tm local{};
            if (!access->getGmtime(t, &utc) || !access->getLocaltime(t, &local) ||
                utc.tm_mday != kDayOfMonth[id] || utc.tm_sec != round % 60 ||
                local.tm_hour != (utc.tm_hour + 1) % 24 ||
                parse(format(static_cast<long long>(t) * 1000000)) != t) {
                ++*failures;
            }
        }
    };
    std::vector<int> failures(4, 0);
    std::vector<std::thread> threads;
    for (int id = 0; id < 4; ++id) {
        threads.emplace_back(worker, id, &failures[id]);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(failures, std::vector<int>(4, 0));
}

}  // namespace
}  // namespace time
}  // namespace util
}  // namespace tracker
