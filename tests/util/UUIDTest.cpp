#include "tracker/util/UUID.h"

#include <gtest/gtest.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <numeric>
#include <thread>
#include <unordered_set>

#include "log/LogCapture.h"
#include "util/SystemEntropy.h"

namespace tracker {
namespace util {
namespace {

bool hasUuidLayout(const std::string& uuid) {
    if (uuid.size() != 36) {
        return false;
    }
    for (std::size_t index = 0; index < uuid.size(); ++index) {
        const char c = uuid[index];
        const bool hyphen = index == 8 || index == 13 || index == 18 || index == 23;
        if (hyphen ? c != '-' : !std::isxdigit(static_cast<unsigned char>(c)) || std::isupper(c)) {
            return false;
        }
    }
    return uuid[14] == '4' && std::string("89ab").find(uuid[19]) != std::string::npos;
}

TEST(UUID, EveryResultIsALowerCaseVersion4Uuid) {
    for (int round = 0; round < 2000; ++round) {
        const std::string uuid = UUID::randomUUID();
        ASSERT_TRUE(hasUuidLayout(uuid)) << uuid;
    }
}

TEST(UUID, TenThousandInARowAreDistinctAndNoEntropyWarning) {
    sim::LogCapture capture;
    std::unordered_set<std::string> seen;
    for (int round = 0; round < 10000; ++round) {
        ASSERT_TRUE(seen.insert(UUID::randomUUID()).second) << "duplicate after " << round;
    }
    // A seeded system generator is recognised at the first reseed, so the engine is not
    // reseeded (and frozen) on every call.
    EXPECT_TRUE(capture.texts().empty());
}

TEST(UUID, TwoThreadsAtOnceGetDistinctValues) {
    std::vector<std::string> first;
    std::vector<std::string> second;
    auto generate = [](std::vector<std::string>* out) {
        for (int round = 0; round < 1000; ++round) {
            out->push_back(UUID::randomUUID());
        }
    };
    std::thread a(generate, &first);
    std::thread b(generate, &second);
    a.join();
    b.join();
    std::unordered_set<std::string> seen(first.begin(), first.end());
    seen.insert(second.begin(), second.end());
    EXPECT_EQ(seen.size(), 2000u);
}

TEST(UUID, AFullPoolKeepsItsOldestSeeds) {
    // The pool must start empty: the "threadsafe" style runs the body in a new process.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            std::vector<unsigned int> seeds(2000);
            std::iota(seeds.begin(), seeds.end(), 1u);
            UUID::addSeeds(seeds);
            const std::string first = UUID::randomUUID();

            // Only the first 1024 values went in, and the reseed's own values were cut off
            // again: the engine was seeded from exactly those 1024.
            std::seed_seq sequence(seeds.begin(), seeds.begin() + 1024);
            UuidEngine expected;
            expected.seed(sequence);
            const bool seededFromPool =
                first.substr(0, 8) == generateHexWithReplacement(expected, 8, 0, 0);

            // More seeds cannot change a full pool: the next reseed restarts the same sequence.
            UUID::addSeeds({42, 43});
            const bool frozen = UUID::randomUUID() == first;
            std::fprintf(stderr, "seededFromPool=%d frozen=%d", seededFromPool, frozen);
            std::exit(seededFromPool && frozen ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "seededFromPool=1 frozen=1");
}

TEST(UUID, AnUnreadyGeneratorIsReportedAndTriedAgainEachCall) {
    const EntropySource previous = setEntropySource([] { return 256.0; });
    UUID::addSeeds({});  // forgets an earlier successful seeding
    sim::LogCapture capture;
    EXPECT_TRUE(hasUuidLayout(UUID::randomUUID()));
    EXPECT_TRUE(hasUuidLayout(UUID::randomUUID()));
    const std::string warning =
        "W TrackerD-UUID: low entropy on call to generate UUID, currentEntropy=256.000000";
    EXPECT_EQ(capture.texts(), (std::vector<std::string>{warning, warning}));

    // Once the generator is ready the warnings stop.
    setEntropySource(previous);
    capture.clear();
    UUID::randomUUID();
    UUID::randomUUID();
    EXPECT_TRUE(capture.texts().empty());
}

TEST(UUID, HexWithReplacementSetsLeadingBits) {
    UuidEngine engine;
    for (int round = 0; round < 64; ++round) {
        EXPECT_EQ(generateHexWithReplacement(engine, 4, 0x40, 4)[0], '4');
        const char variant = generateHexWithReplacement(engine, 4, 0x80, 2)[0];
        EXPECT_NE(std::string("89ab").find(variant), std::string::npos);
        EXPECT_EQ(generateHexWithReplacement(engine, 2, 0xFF, 8), "ff");
    }
    // Odd counts drop the last digit of the last byte.
    EXPECT_EQ(generateHexWithReplacement(engine, 3, 0, 0).size(), 3u);
    EXPECT_EQ(generateHexWithReplacement(engine, 0, 0, 0), "");

    // The same engine state gives the same digits.
    UuidEngine a;
    UuidEngine b;
    EXPECT_EQ(generateHexWithReplacement(a, 12, 0, 0), generateHexWithReplacement(b, 12, 0, 0));
}

TEST(UUID, ImpossibleReplacementsFailWithTheirLine) {
    sim::LogCapture capture;
    UuidEngine engine;
    EXPECT_EQ(generateHexWithReplacement(engine, 1, 0, 5), "");
    EXPECT_EQ(generateHexWithReplacement(engine, 4, 0, 9), "");
    EXPECT_EQ(capture.texts(),
              (std::vector<std::string>{
                  "E TrackerD-UUID: generateHexWithReplacementFailed, numDigitsInBits=4, "
                  "numReplacementBits=5",
                  "E TrackerD-UUID: generateHexWithReplacementFailed, "
                  "numReplacementBitsLimit=8, numReplacementBits=9"}));

    // As many digits as asked for, the first bits replaced.
    const std::string many = generateHexWithReplacement(engine, 5001, 0xF0, 4);
    EXPECT_EQ(many.size(), 5001u);
    EXPECT_EQ(many[0], 'f');
    EXPECT_EQ(many.find_first_not_of("0123456789abcdef"), std::string::npos);
}

TEST(UUID, ReverseFlipsByteOrder) {
    std::vector<unsigned char> bytes = {1, 2, 3};
    UUID::reverseUUID(bytes);
    EXPECT_EQ(bytes, (std::vector<unsigned char>{3, 2, 1}));
    std::vector<unsigned char> one = {9};
    UUID::reverseUUID(one);
    EXPECT_EQ(one, (std::vector<unsigned char>{9}));
    std::vector<unsigned char> none;
    UUID::reverseUUID(none);
    EXPECT_TRUE(none.empty());
}

}  // namespace
}  // namespace util
}  // namespace tracker
