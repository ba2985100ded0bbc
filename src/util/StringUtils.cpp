#include "tracker/util/StringUtils.h"

#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <sstream>

namespace tracker {
namespace util {

unsigned char hex(char c) {
    if (c >= '0' && c <= '9') {
        return static_cast<unsigned char>(c - '0');
    }
    if (c >= 'a' && c <= 'z') {
        return static_cast<unsigned char>(c - 'a' + 10);
    }
    if (c >= 'A' && c <= 'Z') {
        return static_cast<unsigned char>(c - 'A' + 10);
    }
    return 0;
}

std::string StringUtils::bytesToHexString(std::vector<unsigned char>& bytes) {
    return bytesToHexString(bytes.data(), static_cast<unsigned int>(bytes.size()));
}

std::string StringUtils::bytesToHexString(unsigned char* bytes, unsigned int length) {
    static constexpr char kDigits[] = "0123456789abcdef";
    if (bytes == nullptr) {
        return {};
    }
    std::string text(2 * static_cast<std::size_t>(length), '0');
    for (unsigned int index = 0; index < length; ++index) {
        text[2 * index] = kDigits[bytes[index] >> 4];
        text[2 * index + 1] = kDigits[bytes[index] & 0x0F];
    }
    return text;
}

std::vector<unsigned char> StringUtils::convertStringToHex(std::string text) {
    std::vector<unsigned char> bytes;
    bytes.reserve((text.size() + 1) / 2);
    // text[size()] is the terminating NUL, which hex() maps to 0.
    for (std::size_t index = 0; index < text.size(); index += 2) {
        bytes.push_back(static_cast<unsigned char>(hex(text[index]) * 16 + hex(text[index + 1])));
    }
    return bytes;
}

bool StringUtils::stringToInt64(const std::string& text, long long* value) {
    if (value == nullptr) {
        return false;
    }
    const char* begin = text.c_str();
    char* end = nullptr;
    errno = 0;
    const long long parsed = std::strtoll(begin, &end, 10);
    if (end == begin || errno == ERANGE) {
        return false;
    }
    while (std::isspace(static_cast<unsigned char>(*end))) {
        ++end;
    }
    if (*end != '\0') {
        return false;
    }
    *value = parsed;
    return true;
}

bool StringUtils::stringToInt(const std::string& text, int* value) {
    long long parsed = 0;
    if (value == nullptr || !stringToInt64(text, &parsed) || parsed < INT_MIN || parsed > INT_MAX) {
        return false;
    }
    *value = static_cast<int>(parsed);
    return true;
}

bool StringUtils::hexStringToByte(const std::string& text, unsigned char* value) {
    if (value == nullptr) {
        return false;
    }
    std::istringstream stream(text);
    unsigned long number = 0;
    stream >> std::hex >> number;
    if (stream.fail() || number > 0xFF) {
        return false;
    }
    *value = static_cast<unsigned char>(number);
    return true;
}

void StringUtils::replaceStringInTemplate(std::string& text, const std::string& placeholder,
                                          const std::string& replacement) {
    if (placeholder.empty()) {
        return;
    }
    std::size_t position = text.find(placeholder);
    while (position != std::string::npos) {
        text.replace(position, placeholder.size(), replacement);
        position = text.find(placeholder, position + replacement.size());
    }
}

}  // namespace util
}  // namespace tracker
