#include "tracker/util/Encryption.h"

#include <openssl/evp.h>

#include <memory>

#include "tracker/util/Log.h"
#include "tracker/util/StringUtils.h"

namespace tracker {
namespace util {

namespace {

const Log& kLog = *new Log("Encryption");

// ECB does not use it; EVP takes one all the same.
constexpr unsigned char kFixedIv[16] = {0x74, 0x72, 0x61, 0x63, 0x6b, 0x65, 0x72, 0x75,
                                        0x74, 0x69, 0x6c, 0x2d, 0x69, 0x76, 0x30, 0x31};

struct CipherContextFree {
    void operator()(EVP_CIPHER_CTX* context) const { EVP_CIPHER_CTX_free(context); }
};
struct DigestContextFree {
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};
using CipherContext = std::unique_ptr<EVP_CIPHER_CTX, CipherContextFree>;
using DigestContext = std::unique_ptr<EVP_MD_CTX, DigestContextFree>;

// The log texts of one cipher direction; encryption and decryption word them differently.
struct CipherDirection {
    const char* name;  // "aesEncrypt" or "aesDecrypt"
    int encrypt;       // EVP_CipherInit_ex's enc argument
    const char* contextFailed;
    const char* initFailed;
    const char* updateFailed;
};

constexpr CipherDirection kEncrypt{"aesEncrypt", 1, "Failed to initialize cipher",
                                   "Failed to initialize encryption",
                                   "Failed to update the cipher"};
constexpr CipherDirection kDecrypt{"aesDecrypt", 0, "Failed to initialize cipher context",
                                   "Failed to initialize cipher", "Failed to update cipher"};

int aes128Ecb(const CipherDirection& direction, unsigned char* data, int length,
              const unsigned char* key, const unsigned char* iv, unsigned char* out) {
    if ((data == nullptr && length != 0) || length < 0 || key == nullptr || out == nullptr) {
        kLog.e("%s128ECBFailed: reason=invalidParameters, length=%d", direction.name, length);
        return -1;
    }
    CipherContext context(EVP_CIPHER_CTX_new());
    if (!context) {
        kLog.e("%s", direction.contextFailed);
        return -1;
    }
    if (EVP_CipherInit_ex(context.get(), EVP_aes_128_ecb(), nullptr, key, iv, direction.encrypt) !=
        1) {
        kLog.e("%s", direction.initFailed);
        return -1;
    }
    EVP_CIPHER_CTX_set_padding(context.get(), 0);
    // With padding off a single update handles every whole block; a partial last block stays
    // in the context and is dropped on purpose, so no final call is made.
    int produced = 0;
    if (EVP_CipherUpdate(context.get(), out, &produced, data, length) != 1) {
        kLog.e("%s", direction.updateFailed);
        return -1;
    }
    return produced;
}

std::vector<unsigned char> aesBounded(const CipherDirection& direction, unsigned char* data,
                                      int length, const unsigned char* key) {
    if (length > Encryption::kMaxAesLength) {
        kLog.e("%sFailed: reason=inputTooLong, length=%d, limit=%d", direction.name, length,
               Encryption::kMaxAesLength);
        return {};
    }
    unsigned char buffer[Encryption::kMaxAesLength];
    const int produced = aes128Ecb(direction, data, length, key, kFixedIv, buffer);
    if (produced < 0) {
        return {};
    }
    return std::vector<unsigned char>(buffer, buffer + produced);
}

// SHA-256 logs its failures bare, MD5 with its caller's name in front.
struct DigestKind {
    const EVP_MD* (*algorithm)();
    const char* label;   // "SHA" or "MD5"
    const char* caller;  // null for no prefix
};

constexpr DigestKind kSha256{EVP_sha256, "SHA", nullptr};
constexpr DigestKind kMd5{EVP_md5, "MD5", "md5"};

// "Failed to <step> <label> <object>", e.g. "md5: Failed to update MD5 digest".
void logDigestFailure(const DigestKind& kind, const char* step, const char* object) {
    if (kind.caller != nullptr) {
        kLog.e("%s: Failed to %s %s %s", kind.caller, step, kind.label, object);
    } else {
        kLog.e("Failed to %s %s %s", step, kind.label, object);
    }
}

// Fills digest and returns its length, or -1 after logging.
int computeDigest(const DigestKind& kind, const std::string& in,
                  unsigned char (&digest)[EVP_MAX_MD_SIZE]) {
    DigestContext context(EVP_MD_CTX_new());
    if (!context) {
        logDigestFailure(kind, "initialize", "context");
        return -1;
    }
    if (EVP_DigestInit_ex(context.get(), kind.algorithm(), nullptr) != 1) {
        logDigestFailure(kind, "initialize", "digest");
        return -1;
    }
    if (EVP_DigestUpdate(context.get(), in.data(), in.size()) != 1) {
        logDigestFailure(kind, "update", "digest");
        return -1;
    }
    unsigned int length = 0;
    if (EVP_DigestFinal_ex(context.get(), digest, &length) != 1) {
        logDigestFailure(kind, "finalize", "digest");
        return -1;
    }
    return static_cast<int>(length);
}

}  // namespace

int Encryption::aesEncrypt128ECB(unsigned char* data, int length, const unsigned char* key,
                                 const unsigned char* iv, unsigned char* out) {
    return aes128Ecb(kEncrypt, data, length, key, iv, out);
}

int Encryption::aesDecrypt128ECB(unsigned char* data, int length, const unsigned char* key,
                                 const unsigned char* iv, unsigned char* out) {
    return aes128Ecb(kDecrypt, data, length, key, iv, out);
}

std::vector<unsigned char> Encryption::aesEncrypt(unsigned char* data, int length,
                                                  const unsigned char* key) {
    return aesBounded(kEncrypt, data, length, key);
}

std::vector<unsigned char> Encryption::aesDecrypt(unsigned char* data, int length,
                                                  const unsigned char* key) {
    return aesBounded(kDecrypt, data, length, key);
}

int Encryption::sha256(const std::string& in, std::string& outHex) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    const int length = computeDigest(kSha256, in, digest);
    if (length < 0) {
        return -1;
    }
    outHex = StringUtils::bytesToHexString(digest, static_cast<unsigned int>(length));
    return length;
}

std::string Encryption::md5(const std::string& in) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    const int length = computeDigest(kMd5, in, digest);
    if (length < 0) {
        return {};
    }
    return StringUtils::bytesToHexString(digest, static_cast<unsigned int>(length));
}

}  // namespace util
}  // namespace tracker
