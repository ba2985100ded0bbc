#include "tracker/util/Base64.h"

#include <gtest/gtest.h>

#include <openssl/evp.h>

#include <random>
#include <string>
#include <vector>

#include "log/LogCapture.h"

namespace tracker {
namespace util {
namespace {

using sim::LogCapture;

struct Vector {
    const char* plain;
    const char* encoded;
};

// RFC 4648, section 10 (the empty input is refused, see BadArgumentsFailWithOneLine).
constexpr Vector kRfc4648[] = {
    {"f", "Zg=="},        {"fo", "Zm8="},        {"foo", "Zm9v"},
    {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"},
};

TEST(Base64, EncodesAndDecodesThePublishedVectors) {
    for (const Vector& vector : kRfc4648) {
        std::string encoded;
        ASSERT_TRUE(Base64::encode(vector.plain, &encoded)) << vector.plain;
        EXPECT_EQ(encoded, vector.encoded);
        EXPECT_EQ(Base64::encodedLength(vector.plain), encoded.size());

        std::string decoded;
        ASSERT_TRUE(Base64::decode(vector.encoded, &decoded)) << vector.encoded;
        EXPECT_EQ(decoded, vector.plain);
        EXPECT_EQ(Base64::decodedLength(vector.encoded), decoded.size());
    }
}

TEST(Base64, RoundTripsEveryByteValue) {
    std::string bytes;
    for (int value = 255; value >= 0; --value) {
        bytes.push_back(static_cast<char>(value));
    }
    for (std::size_t length = 1; length <= bytes.size(); length += 37) {
        const std::string plain = bytes.substr(0, length);
        std::string encoded;
        std::string decoded;
        ASSERT_TRUE(Base64::encode(plain, &encoded));
        ASSERT_TRUE(Base64::decode(encoded, &decoded));
        EXPECT_EQ(decoded, plain) << "length " << length;
    }
}

TEST(Base64, LengthsFollowTheTextNotTheContent) {
    EXPECT_EQ(Base64::encodedLength("12345"), 8u);
    EXPECT_EQ(Base64::decodedLength("Zm8="), 2u);
    EXPECT_EQ(Base64::decodedLength("Zm9v"), 3u);
    // Padding alone must neither read before the text nor wrap below zero.
    EXPECT_EQ(Base64::decodedLength("="), 0u);
    EXPECT_EQ(Base64::decodedLength("===="), 0u);
    EXPECT_EQ(Base64::decodedLength(""), 0u);
}

TEST(Base64, DecodingStopsAtTheFirstPadCharacter) {
    std::string decoded;
    EXPECT_FALSE(Base64::decode("Zg==Zm9v", &decoded));
    EXPECT_EQ(decoded, "f");

    // Padding that claims fewer bytes than the text holds: false, and the bytes stay bounded.
    EXPECT_FALSE(Base64::decode("Zm9v====", &decoded));
    EXPECT_EQ(decoded, "foo");

    // A lone character carries no whole byte: true, and nothing decoded. Padding alone is no
    // Base64 at all.
    for (const char* empty : {"Z", "Z==="}) {
        decoded = "stale";
        EXPECT_TRUE(Base64::decode(empty, &decoded)) << empty;
        EXPECT_EQ(decoded, "");
    }
    for (const char* padding : {"====", "="}) {
        EXPECT_FALSE(Base64::decode(padding, &decoded)) << padding;
        EXPECT_EQ(decoded, "");
    }
}

TEST(Base64, UnpaddedAndInvalidTextDecodeWithoutChecks) {
    std::string decoded;
    EXPECT_TRUE(Base64::decode("Zm8", &decoded));
    EXPECT_EQ(decoded, "fo");
    EXPECT_TRUE(Base64::decode("Zm9vZ", &decoded));
    EXPECT_EQ(decoded, "foo");

    // Characters outside the alphabet take part as the value 255 would.
    EXPECT_EQ(Base64::b64Lookup('*'), 255);
    EXPECT_TRUE(Base64::decode("*m9v", &decoded));
    EXPECT_EQ(decoded.size(), 3u);
    EXPECT_EQ(decoded.substr(1), "oo");
}

// Decoding as the per-character rule reads it: up to the first "=", every character looked up
// (invalid ones as 255), groups of four combined, a final group of k giving k - 1 bytes.
std::string referenceDecode(const std::string& in) {
    std::string out;
    unsigned char a4[4];
    unsigned char a3[3];
    std::size_t group = 0;
    for (std::size_t i = 0; i < in.size() && in[i] != '='; ++i) {
        a4[group++] = Base64::b64Lookup(static_cast<unsigned char>(in[i]));
        if (group == 4) {
            Base64::a4ToA3(a4, a3);
            out.append(reinterpret_cast<char*>(a3), 3);
            group = 0;
        }
    }
    if (group > 0) {
        for (std::size_t k = group; k < 4; ++k) {
            a4[k] = Base64::b64Lookup(0);
        }
        Base64::a4ToA3(a4, a3);
        out.append(reinterpret_cast<char*>(a3), group - 1);
    }
    return out;
}

TEST(Base64, TheFastPathsAgreeWithTheRuleAndWithOpenSsl) {
    std::mt19937 random(11);
    const std::string characters =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/=-_ .\n\xff";
    for (int round = 0; round < 3000; ++round) {
        // Arbitrary text, invalid characters and stray padding included.
        std::string text(1 + random() % 40, ' ');
        for (char& c : text) {
            c = characters[random() % characters.size()];
        }
        std::string decoded;
        Base64::decode(text, &decoded);
        EXPECT_EQ(decoded, referenceDecode(text)) << text;

        // Bytes: our text is OpenSSL's, and OpenSSL reads it back to the same bytes.
        std::string bytes(random() % 64 + 1, '\0');
        for (char& c : bytes) {
            c = static_cast<char>(random());
        }
        std::string encoded;
        ASSERT_TRUE(Base64::encode(bytes, &encoded));
        std::vector<unsigned char> theirs(bytes.size() / 3 * 4 + 5);
        const int length =
            EVP_EncodeBlock(theirs.data(), reinterpret_cast<const unsigned char*>(bytes.data()),
                            static_cast<int>(bytes.size()));
        EXPECT_EQ(encoded, std::string(reinterpret_cast<char*>(theirs.data()), length));
        ASSERT_TRUE(Base64::decode(encoded, &decoded));
        EXPECT_EQ(decoded, bytes);
    }
}

TEST(Base64, BadArgumentsFailWithOneLine) {
    LogCapture capture;
    std::string out = "untouched";
    EXPECT_FALSE(Base64::encode("", &out));
    EXPECT_FALSE(Base64::encode("foo", nullptr));
    EXPECT_FALSE(Base64::decode("", &out));
    EXPECT_FALSE(Base64::decode("Zm9v", nullptr));
    EXPECT_EQ(out, "untouched");
    const std::vector<std::string> expected(4, "E TrackerD-Base64: Invalid parameters");
    EXPECT_EQ(capture.texts(), expected);
}

TEST(Base64, SplitsAndJoinsSextets) {
    unsigned char a3[3] = {'M', 'a', 'n'};
    unsigned char a4[4];
    Base64::a3ToA4(a3, a4);
    EXPECT_EQ(a4[0], 19);
    EXPECT_EQ(a4[1], 22);
    EXPECT_EQ(a4[2], 5);
    EXPECT_EQ(a4[3], 46);
    unsigned char back[3];
    Base64::a4ToA3(a4, back);
    EXPECT_EQ(std::string(back, back + 3), "Man");
    EXPECT_EQ(Base64::b64Lookup('A'), 0);
    EXPECT_EQ(Base64::b64Lookup('a'), 26);
    EXPECT_EQ(Base64::b64Lookup('0'), 52);
    EXPECT_EQ(Base64::b64Lookup('+'), 62);
    EXPECT_EQ(Base64::b64Lookup('/'), 63);
    EXPECT_EQ(Base64::b64Lookup('='), 255);
}

}  // namespace
}  // namespace util
}  // namespace tracker
