#include "tracker/util/StringUtils.h"

#include <gtest/gtest.h>

#include <list>
#include <string>
#include <vector>

namespace tracker {
namespace util {
namespace {

using Pieces = std::vector<std::string>;

TEST(StringUtils, SplitKeepsInnerEmptyPiecesButNoTrailingOne) {
    EXPECT_EQ(StringUtils::split("a,,b", ','), (Pieces{"a", "", "b"}));
    EXPECT_EQ(StringUtils::split("a:b:", ':'), (Pieces{"a", "b"}));
    EXPECT_EQ(StringUtils::split(":a", ':'), (Pieces{"", "a"}));
    EXPECT_EQ(StringUtils::split(":", ':'), (Pieces{""}));
    EXPECT_EQ(StringUtils::split("abc", ':'), (Pieces{"abc"}));
    EXPECT_TRUE(StringUtils::split("", ':').empty());

    std::list<std::string> pieces;
    StringUtils::split("11:22:33", ':', std::back_inserter(pieces));
    EXPECT_EQ(pieces, (std::list<std::string>{"11", "22", "33"}));
}

TEST(StringUtils, HexTextIsLowerCaseTwoDigitsPerByte) {
    std::vector<unsigned char> bytes = {0x0A, 0xFF};
    EXPECT_EQ(StringUtils::bytesToHexString(bytes), "0aff");
    unsigned char buffer[] = {0x00, 0x01, 0x7F, 0x80, 0xAB};
    EXPECT_EQ(StringUtils::bytesToHexString(buffer, 5), "00017f80ab");
    EXPECT_EQ(StringUtils::bytesToHexString(buffer, 0), "");
    EXPECT_EQ(StringUtils::bytesToHexString(nullptr, 4), "");
    std::vector<unsigned char> none;
    EXPECT_EQ(StringUtils::bytesToHexString(none), "");
}

TEST(StringUtils, HexParsingIsPermissive) {
    using Bytes = std::vector<unsigned char>;
    EXPECT_EQ(StringUtils::convertStringToHex("00ff7Fa0"), (Bytes{0x00, 0xFF, 0x7F, 0xA0}));
    // The last digit of an odd length pairs with the terminating NUL.
    EXPECT_EQ(StringUtils::convertStringToHex("abc"), (Bytes{0xAB, 0xC0}));
    EXPECT_EQ(StringUtils::convertStringToHex(""), Bytes{});
    // Invalid characters count as 0; letters past 'f' keep their alphabet value (8-bit wrap).
    EXPECT_EQ(StringUtils::convertStringToHex("-1"), (Bytes{0x01}));
    EXPECT_EQ(StringUtils::convertStringToHex("g0"), (Bytes{0x00}));

    EXPECT_EQ(hex('0'), 0);
    EXPECT_EQ(hex('9'), 9);
    EXPECT_EQ(hex('a'), 10);
    EXPECT_EQ(hex('F'), 15);
    EXPECT_EQ(hex('g'), 16);
    EXPECT_EQ(hex('z'), 35);
    EXPECT_EQ(hex('Z'), 35);
    EXPECT_EQ(hex(' '), 0);
    EXPECT_EQ(hex('\0'), 0);
}

TEST(StringUtils, DecimalParsingIsStrict) {
    int value = 7;
    EXPECT_TRUE(StringUtils::stringToInt(" 42 ", &value));
    EXPECT_EQ(value, 42);
    EXPECT_TRUE(StringUtils::stringToInt("-2147483648", &value));
    EXPECT_EQ(value, -2147483648LL);
    EXPECT_TRUE(StringUtils::stringToInt("+2147483647", &value));
    EXPECT_EQ(value, 2147483647);

    value = 7;
    for (const char* bad : {"42x", "", "-", "2147483648", "-2147483649", "4 2", "0x10", " "}) {
        EXPECT_FALSE(StringUtils::stringToInt(bad, &value)) << '"' << bad << '"';
    }
    EXPECT_EQ(value, 7) << "failures leave the output alone";
    EXPECT_FALSE(StringUtils::stringToInt("1", nullptr));
    // The text ends at its first NUL.
    EXPECT_TRUE(StringUtils::stringToInt(std::string("12\0x", 4), &value));
    EXPECT_EQ(value, 12);

    long long wide = 0;
    EXPECT_TRUE(StringUtils::stringToInt64("-9223372036854775808", &wide));
    EXPECT_EQ(wide, INT64_MIN);
    EXPECT_TRUE(StringUtils::stringToInt64("\t9223372036854775807\n", &wide));
    EXPECT_EQ(wide, INT64_MAX);
    EXPECT_FALSE(StringUtils::stringToInt64("9223372036854775808", &wide));
    EXPECT_FALSE(StringUtils::stringToInt64("1.5", &wide));
    EXPECT_FALSE(StringUtils::stringToInt64("5", nullptr));
}

TEST(StringUtils, HexByteParsing) {
    unsigned char value = 0;
    EXPECT_TRUE(StringUtils::hexStringToByte("ff", &value));
    EXPECT_EQ(value, 255);
    EXPECT_TRUE(StringUtils::hexStringToByte("0x1F", &value));
    EXPECT_EQ(value, 31);
    EXPECT_TRUE(StringUtils::hexStringToByte("  a:rest", &value));
    EXPECT_EQ(value, 10);
    value = 9;
    for (const char* bad : {"100", "zz", "", "-1", "fffffffffffffffffffff"}) {
        EXPECT_FALSE(StringUtils::hexStringToByte(bad, &value)) << '"' << bad << '"';
    }
    EXPECT_EQ(value, 9);
    EXPECT_FALSE(StringUtils::hexStringToByte("1", nullptr));
}

TEST(StringUtils, ReplacementNeverRescansInsertedText) {
    std::string text = "{x}-{x}";
    StringUtils::replaceStringInTemplate(text, "{x}", "{x}{x}");
    EXPECT_EQ(text, "{x}{x}-{x}{x}");

    text = "id={id}&again={id}";
    StringUtils::replaceStringInTemplate(text, "{id}", "42");
    EXPECT_EQ(text, "id=42&again=42");

    text = "aaa";
    StringUtils::replaceStringInTemplate(text, "a", "");
    EXPECT_EQ(text, "");

    text = "unchanged";
    StringUtils::replaceStringInTemplate(text, "", "x");
    EXPECT_EQ(text, "unchanged");
}

}  // namespace
}  // namespace util
}  // namespace tracker
