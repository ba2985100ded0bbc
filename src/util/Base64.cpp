#include "tracker/util/Base64.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>

#include "tracker/util/Log.h"

namespace tracker {
namespace util {

namespace {

const Log& kLog = *new Log("Base64");

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char kPad = '=';

// Each 12-bit value as its two characters: a group of three bytes takes two lookups, not four.
constexpr std::array<std::array<char, 2>, 4096> pairTable() {
    std::array<std::array<char, 2>, 4096> table{};
    for (int value = 0; value < 4096; ++value) {
        table[value] = {kAlphabet[value >> 6], kAlphabet[value & 0x3F]};
    }
    return table;
}
constexpr std::array<std::array<char, 2>, 4096> kPairs = pairTable();

// b64Lookup() for every byte, worked out at compile time: the decoder's inner loop reads it.
constexpr std::array<unsigned char, 256> decodeTable() {
    std::array<unsigned char, 256> table{};
    for (int c = 0; c < 256; ++c) {
        table[c] = c >= 'A' && c <= 'Z'   ? static_cast<unsigned char>(c - 'A')
                   : c >= 'a' && c <= 'z' ? static_cast<unsigned char>(c - 'a' + 26)
                   : c >= '0' && c <= '9' ? static_cast<unsigned char>(c - '0' + 52)
                   : c == '+'             ? 62
                   : c == '/'             ? 63
                                          : 255;
    }
    return table;
}
constexpr std::array<unsigned char, 256> kDecode = decodeTable();

// a4ToA3() on four looked-up values, written to `out`: invalid characters (255) take part in
// the arithmetic as they are, and each byte is truncated to 8 bits.
inline void decodeGroup(unsigned a, unsigned b, unsigned c, unsigned d, char* out) {
    out[0] = static_cast<char>((a << 2) + ((b >> 4) & 0x3));
    out[1] = static_cast<char>((b << 4) + ((c >> 2) & 0xF));
    out[2] = static_cast<char>((c << 6) + d);
}

bool validArguments(const std::string& in, const std::string* out) {
    if (out == nullptr || in.empty()) {
        kLog.e("Invalid parameters");
        return false;
    }
    return true;
}

}  // namespace

unsigned int Base64::encodedLength(const std::string& in) {
    return static_cast<unsigned int>((in.size() + 2) / 3 * 4);
}

unsigned int Base64::decodedLength(const std::string& in) {
    std::size_t padding = 0;
    for (std::size_t index = in.size(); index > 0 && in[index - 1] == kPad; --index) {
        ++padding;
    }
    const std::size_t length = in.size() * 6 / 8;
    return length > padding ? static_cast<unsigned int>(length - padding) : 0;
}

void Base64::a3ToA4(unsigned char* a3, unsigned char* a4) {
    a4[0] = static_cast<unsigned char>(a3[0] >> 2);
    a4[1] = static_cast<unsigned char>(((a3[0] << 4) & 0x30) | (a3[1] >> 4));
    a4[2] = static_cast<unsigned char>(((a3[1] << 2) & 0x3C) | (a3[2] >> 6));
    a4[3] = static_cast<unsigned char>(a3[2] & 0x3F);
}

void Base64::a4ToA3(unsigned char* a4, unsigned char* a3) {
    a3[0] = static_cast<unsigned char>((a4[0] << 2) + ((a4[1] >> 4) & 0x3));
    a3[1] = static_cast<unsigned char>((a4[1] << 4) + ((a4[2] >> 2) & 0xF));
    a3[2] = static_cast<unsigned char>((a4[2] << 6) + a4[3]);
}

unsigned char Base64::b64Lookup(unsigned char c) {
    if (c >= 'A' && c <= 'Z') {
        return static_cast<unsigned char>(c - 'A');
    }
    if (c >= 'a' && c <= 'z') {
        return static_cast<unsigned char>(c - 'a' + 26);
    }
    if (c >= '0' && c <= '9') {
        return static_cast<unsigned char>(c - '0' + 52);
    }
    if (c == '+') {
        return 62;
    }
    if (c == '/') {
        return 63;
    }
    return 255;
}

bool Base64::encode(const std::string& in, std::string* out) {
    if (!validArguments(in, out)) {
        return false;
    }
    out->resize(encodedLength(in));
    const auto* src = reinterpret_cast<const unsigned char*>(in.data());
    char* dst = &(*out)[0];
    const std::size_t whole = in.size() / 3 * 3;
    for (std::size_t index = 0; index < whole; index += 3, dst += 4) {
        const unsigned group = src[index] << 16 | src[index + 1] << 8 | src[index + 2];
        std::memcpy(dst, kPairs[group >> 12].data(), 2);
        std::memcpy(dst + 2, kPairs[group & 0xFFF].data(), 2);
    }
    const std::size_t left = in.size() - whole;
    if (left > 0) {
        unsigned char a3[3] = {src[whole],
                               left > 1 ? src[whole + 1] : static_cast<unsigned char>(0), 0};
        unsigned char a4[4];
        a3ToA4(a3, a4);
        dst[0] = kAlphabet[a4[0]];
        dst[1] = kAlphabet[a4[1]];
        dst[2] = left > 1 ? kAlphabet[a4[2]] : kPad;
        dst[3] = kPad;
    }
    return true;
}

bool Base64::decode(const std::string& in, std::string* out) {
    if (!validArguments(in, out)) {
        return false;
    }
    const std::size_t expected = decodedLength(in);
    // Decoding stops at the first "=": only what comes before it is read.
    const void* pad = std::memchr(in.data(), kPad, in.size());
    const std::size_t length =
        pad != nullptr ? static_cast<std::size_t>(static_cast<const char*>(pad) - in.data())
                       : in.size();
    // Padding that claims fewer bytes than the text holds may decode to more than expected.
    out->resize(std::max(expected, length / 4 * 3 + 2));
    const auto* src = reinterpret_cast<const unsigned char*>(in.data());
    char* const begin = &(*out)[0];
    char* dst = begin;
    const std::size_t whole = length / 4 * 4;
    for (std::size_t index = 0; index < whole; index += 4, dst += 3) {
        decodeGroup(kDecode[src[index]], kDecode[src[index + 1]], kDecode[src[index + 2]],
                    kDecode[src[index + 3]], dst);
    }
    // A final group of k characters, zero-filled as they are looked up, gives k - 1 bytes.
    const std::size_t left = length - whole;
    if (left > 0) {
        char tail[3];
        decodeGroup(kDecode[src[whole]], left > 1 ? kDecode[src[whole + 1]] : kDecode[0],
                    left > 2 ? kDecode[src[whole + 2]] : kDecode[0], kDecode[0], tail);
        std::memcpy(dst, tail, left - 1);
        dst += left - 1;
    }
    const std::size_t written = static_cast<std::size_t>(dst - begin);
    out->resize(written);
    // A lone character decodes to nothing, and rightly so ("Z" is true and empty); padding
    // alone is no Base64 at all, and decodedLength() could only have guessed a size for it.
    return written == expected && length > 0;
}

}  // namespace util
}  // namespace tracker
