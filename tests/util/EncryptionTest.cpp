#include "tracker/util/Encryption.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "log/LogCapture.h"
#include "tracker/util/StringUtils.h"

namespace tracker {
namespace util {
namespace {

using Bytes = std::vector<unsigned char>;

Bytes bytes(const std::string& hexText) {
    return StringUtils::convertStringToHex(hexText);
}
std::string hexOf(Bytes data) {
    return StringUtils::bytesToHexString(data);
}

TEST(Aes128Ecb, MatchesThePublishedVectors) {
    // FIPS-197, appendix C.1.
    Bytes key = bytes("000102030405060708090a0b0c0d0e0f");
    Bytes plain = bytes("00112233445566778899aabbccddeeff");
    EXPECT_EQ(hexOf(Encryption::aesEncrypt(plain.data(), 16, key.data())),
              "69c4e0d86a7b0430d8cdb78070b4c55a");
    Bytes cipher = bytes("69c4e0d86a7b0430d8cdb78070b4c55a");
    EXPECT_EQ(hexOf(Encryption::aesDecrypt(cipher.data(), 16, key.data())), hexOf(plain));

    // SP 800-38A, F.1.1 and F.1.2: four blocks in one call.
    key = bytes("2b7e151628aed2a6abf7158809cf4f3c");
    plain = bytes(
        "6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51"
        "30c81c46a35ce411e5fbc1191a0a52eff69f2445df4f9b17ad2b417be66c3710");
    const std::string expected =
        "3ad77bb40d7a3660a89ecaf32466ef97f5d3d58503b9699de785895a96fdbaaf"
        "43b1cd7f598ece23881b00e3ed0306887b0c785e27e8ad3f8223207104725dd4";
    Bytes out(64);
    EXPECT_EQ(Encryption::aesEncrypt128ECB(plain.data(), 64, key.data(), nullptr, out.data()), 64);
    EXPECT_EQ(hexOf(out), expected);
    cipher = bytes(expected);
    EXPECT_EQ(Encryption::aesDecrypt128ECB(cipher.data(), 64, key.data(), nullptr, out.data()), 64);
    EXPECT_EQ(out, plain);
}

TEST(Aes128Ecb, OnlyWholeBlocksAreProcessed) {
    sim::LogCapture capture;
    Bytes key(16, 0x11);
    Bytes data(20, 0x22);
    const Bytes twenty = Encryption::aesEncrypt(data.data(), 20, key.data());
    EXPECT_EQ(twenty.size(), 16u);
    EXPECT_EQ(twenty, Encryption::aesEncrypt(data.data(), 16, key.data()));
    EXPECT_TRUE(Encryption::aesEncrypt(data.data(), 15, key.data()).empty());

    Bytes out(16, 0xEE);
    EXPECT_EQ(Encryption::aesEncrypt128ECB(data.data(), 15, key.data(), nullptr, out.data()), 0);
    EXPECT_EQ(out, Bytes(16, 0xEE));
    EXPECT_TRUE(capture.texts().empty()) << "a short input is not a failure";
}

TEST(Aes128Ecb, RejectsWhatWouldOverrunOrIsMissing) {
    sim::LogCapture capture;
    Bytes key(16, 0x11);
    Bytes data(129, 0x22);
    // 128 bytes is the limit of the buffer-returning forms; one more is refused, not overrun.
    EXPECT_EQ(Encryption::aesEncrypt(data.data(), 128, key.data()).size(), 128u);
    EXPECT_EQ(Encryption::aesDecrypt(data.data(), 128, key.data()).size(), 128u);
    EXPECT_TRUE(Encryption::aesEncrypt(data.data(), 129, key.data()).empty());
    EXPECT_TRUE(Encryption::aesDecrypt(data.data(), 129, key.data()).empty());

    Bytes out(16);
    EXPECT_EQ(Encryption::aesEncrypt128ECB(nullptr, 16, key.data(), nullptr, out.data()), -1);
    EXPECT_EQ(Encryption::aesDecrypt128ECB(data.data(), -1, key.data(), nullptr, out.data()), -1);
    EXPECT_EQ(Encryption::aesEncrypt128ECB(data.data(), 16, nullptr, nullptr, out.data()), -1);
    EXPECT_TRUE(Encryption::aesDecrypt(data.data(), 16, nullptr).empty());

    EXPECT_EQ(capture.texts(),
              (std::vector<std::string>{
                  "E TrackerD-Encryption: aesEncryptFailed: reason=inputTooLong, length=129, "
                  "limit=128",
                  "E TrackerD-Encryption: aesDecryptFailed: reason=inputTooLong, length=129, "
                  "limit=128",
                  "E TrackerD-Encryption: aesEncrypt128ECBFailed: reason=invalidParameters, "
                  "length=16",
                  "E TrackerD-Encryption: aesDecrypt128ECBFailed: reason=invalidParameters, "
                  "length=-1",
                  "E TrackerD-Encryption: aesEncrypt128ECBFailed: reason=invalidParameters, "
                  "length=16",
                  "E TrackerD-Encryption: aesDecrypt128ECBFailed: reason=invalidParameters, "
                  "length=16",
              }));
}

TEST(Digests, MatchThePublishedVectors) {
    // FIPS 180-2, appendix B, and the empty message.
    const std::pair<std::string, std::string> sha256Vectors[] = {
        {"abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
        {"", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
        {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
         "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1"},
    };
    for (const auto& vector : sha256Vectors) {
        std::string digest;
        EXPECT_EQ(Encryption::sha256(vector.first, digest), 32);
        EXPECT_EQ(digest, vector.second);
    }
    std::string digest;
    EXPECT_EQ(Encryption::sha256(std::string(1000000, 'a'), digest), 32);
    EXPECT_EQ(digest, "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");

    // RFC 1321, appendix A.5.
    const std::pair<std::string, std::string> md5Vectors[] = {
        {"", "d41d8cd98f00b204e9800998ecf8427e"},
        {"a", "0cc175b9c0f1b6a831c399e269772661"},
        {"abc", "900150983cd24fb0d6963f7d28e17f72"},
        {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
        {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
        {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
         "57edf4a22be3c955ac49da2e2107b67a"},
    };
    for (const auto& vector : md5Vectors) {
        EXPECT_EQ(Encryption::md5(vector.first), vector.second) << vector.first;
    }
    // Bytes past a NUL are hashed too.
    EXPECT_NE(Encryption::md5(std::string("a\0b", 3)), Encryption::md5("a"));
}

}  // namespace
}  // namespace util
}  // namespace tracker
