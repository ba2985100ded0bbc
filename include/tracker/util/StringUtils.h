#pragma once

#include <cstddef>
#include <iterator>
#include <string>
#include <vector>

namespace tracker {
namespace util {

// The value of one digit character: '0'-'9' give 0-9, 'a'-'z' and 'A'-'Z' give 10-35 (letters
// past 'f' are deliberately not rejected), anything else gives 0.
unsigned char hex(char c);

// Splitting, hexadecimal conversion, strict decimal parsing and placeholder replacement.
// Nothing here logs; failures are reported by the bool result and leave outputs untouched.
// Stateless: callable from any thread.
class StringUtils {
  public:
    StringUtils() = delete;

    // The pieces between delimiters: "a,,b" -> {"a", "", "b"}, "a," -> {"a"}, "" -> {}.
    template <typename OutputIt>
    static void split(const std::string& text, char delimiter, OutputIt out) {
        std::size_t start = 0;
        while (start < text.size()) {
            const std::size_t end = text.find(delimiter, start);
            if (end == std::string::npos) {
                *out++ = text.substr(start);
                return;
            }
            *out++ = text.substr(start, end - start);
            start = end + 1;
        }
    }
    static std::vector<std::string> split(const std::string& text, char delimiter) {
        std::vector<std::string> pieces;
        split(text, delimiter, std::back_inserter(pieces));
        return pieces;
    }

    // Two lower-case digits per byte, no separators; "" for no bytes or a null buffer.
    static std::string bytesToHexString(std::vector<unsigned char>& bytes);
    static std::string bytesToHexString(unsigned char* bytes, unsigned int length);

    // Bytes from pairs of digits read with hex(); invalid characters count as 0 and an odd
    // length pairs the last digit with 0 ("abc" -> {0xAB, 0xC0}). Never fails.
    static std::vector<unsigned char> convertStringToHex(std::string text);

    // Decimal, surrounding white space and one sign allowed, nothing else; range-checked.
    // The text is read up to its first NUL. *value is written only on success.
    static bool stringToInt64(const std::string& text, long long* value);
    static bool stringToInt(const std::string& text, int* value);

    // One hexadecimal number (leading white space and "0x" allowed, trailing text ignored) of
    // at most 0xFF.
    static bool hexStringToByte(const std::string& text, unsigned char* value);

    // Replaces every occurrence of placeholder, never searching text a replacement inserted.
    // An empty placeholder leaves the text unchanged.
    static void replaceStringInTemplate(std::string& text, const std::string& placeholder,
                                        const std::string& replacement);
};

}  // namespace util
}  // namespace tracker
