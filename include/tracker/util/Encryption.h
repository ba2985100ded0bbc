#pragma once

#include <string>
#include <vector>

namespace tracker {
namespace util {

// AES-128-ECB without padding, SHA-256 and MD5 over OpenSSL's EVP interface.
//
// AES processes whole 16-byte blocks only: a trailing partial block is dropped without error,
// so 20 bytes give 16 and 15 bytes give none. Every failure (including null pointers, a
// negative length, or an input longer than aesEncrypt/aesDecrypt's 128-byte limit) is one
// error line under "TrackerD-Encryption" and a failure result; nothing is thrown and OpenSSL
// contexts are freed on every path.
//
// Stateless: callable from any thread.
class Encryption {
  public:
    Encryption() = delete;

    // The most input aesEncrypt/aesDecrypt accept: eight blocks.
    static constexpr int kMaxAesLength = 128;

    // Bytes written to out, or -1. `data` holds `length` bytes, `out` room for `length` rounded
    // down to 16, `key` 16 bytes; `iv` is ignored by ECB and may be null.
    static int aesEncrypt128ECB(unsigned char* data, int length, const unsigned char* key,
                                const unsigned char* iv, unsigned char* out);
    static int aesDecrypt128ECB(unsigned char* data, int length, const unsigned char* key,
                                const unsigned char* iv, unsigned char* out);

    // The bytes produced, or an empty vector on failure.
    static std::vector<unsigned char> aesEncrypt(unsigned char* data, int length,
                                                 const unsigned char* key);
    static std::vector<unsigned char> aesDecrypt(unsigned char* data, int length,
                                                 const unsigned char* key);

    // 32 and outHex = 64 lower-case hex digits; -1 on failure (outHex untouched).
    static int sha256(const std::string& in, std::string& outHex);
    // 32 lower-case hex digits, or "" on failure.
    static std::string md5(const std::string& in);
};

}  // namespace util
}  // namespace tracker
