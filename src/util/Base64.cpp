#include "tracker/util/Base64.h"

#include <cstddef>

#include "tracker/util/Log.h"

namespace tracker {
namespace util {

namespace {

const Log& kLog = *new Log("Base64");

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char kPad = '=';

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
    std::size_t written = 0;
    unsigned char a3[3];
    unsigned char a4[4];
    std::size_t index = 0;
    for (; index + 3 <= in.size(); index += 3) {
        for (int k = 0; k < 3; ++k) {
            a3[k] = static_cast<unsigned char>(in[index + k]);
        }
        a3ToA4(a3, a4);
        for (unsigned char sextet : a4) {
            (*out)[written++] = kAlphabet[sextet];
        }
    }
    const std::size_t left = in.size() - index;
    if (left > 0) {
        for (std::size_t k = 0; k < 3; ++k) {
            a3[k] = k < left ? static_cast<unsigned char>(in[index + k]) : 0;
        }
        a3ToA4(a3, a4);
        for (std::size_t k = 0; k < left + 1; ++k) {
            (*out)[written++] = kAlphabet[a4[k]];
        }
        while (written % 4 != 0) {
            (*out)[written++] = kPad;
        }
    }
    return written == out->size();
}

bool Base64::decode(const std::string& in, std::string* out) {
    if (!validArguments(in, out)) {
        return false;
    }
    const std::size_t expected = decodedLength(in);
    out->resize(expected);
    std::size_t written = 0;
    unsigned char a4[4];
    unsigned char a3[3];
    std::size_t group = 0;
    // Writes the first `count` decoded bytes, growing the output if invalid input decodes to
    // more than decodedLength() predicted.
    auto emit = [&](std::size_t count) {
        for (std::size_t k = 0; k < 4; ++k) {
            a4[k] = b64Lookup(a4[k]);
        }
        a4ToA3(a4, a3);
        if (written + count > out->size()) {
            out->resize(written + count);
        }
        for (std::size_t k = 0; k < count; ++k) {
            (*out)[written++] = static_cast<char>(a3[k]);
        }
    };
    for (std::size_t index = 0; index < in.size() && in[index] != kPad; ++index) {
        a4[group++] = static_cast<unsigned char>(in[index]);
        if (group == 4) {
            emit(3);
            group = 0;
        }
    }
    if (group > 0) {
        for (std::size_t k = group; k < 4; ++k) {
            a4[k] = 0;
        }
        emit(group - 1);
    }
    // A lone character decodes to nothing, and rightly so ("Z" is true and empty); padding
    // alone is no Base64 at all, and decodedLength() could only have guessed a size for it.
    const bool onlyPadding = in.find_first_not_of(kPad) == std::string::npos;
    const bool complete = written == expected && !onlyPadding;
    out->resize(written);
    return complete;
}

}  // namespace util
}  // namespace tracker
