#pragma once

#include <string>

namespace tracker {
namespace util {

// Standard Base64 (RFC 4648 alphabet, "=" padding) between byte strings.
//
// Bad input: a null output or an empty input fails with "Invalid parameters" (tag
// "TrackerD-Base64"). decode() does not validate characters: anything outside the alphabet
// decodes as the value 255 would; an "=" before the end stops decoding, returns false and leaves
// the bytes decoded so far in *out; text that decodes to no byte at all ("=", "====", "Z") is
// false too.
//
// Stateless: callable from any thread.
class Base64 {
  public:
    Base64() = delete;

    static bool encode(const std::string& in, std::string* out);
    static bool decode(const std::string& in, std::string* out);

    // (length + 2) / 3 * 4.
    static unsigned int encodedLength(const std::string& in);
    // length * 6 / 8 minus the trailing "=" characters, never below 0.
    static unsigned int decodedLength(const std::string& in);

    // Three bytes into four 6-bit values, and back (results truncated to 8 bits).
    static void a3ToA4(unsigned char* a3, unsigned char* a4);
    static void a4ToA3(unsigned char* a4, unsigned char* a3);
    // Alphabet position of c, or 255 for a character outside the alphabet.
    static unsigned char b64Lookup(unsigned char c);
};

}  // namespace util
}  // namespace tracker
