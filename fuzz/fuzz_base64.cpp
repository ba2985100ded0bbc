// Base64 text from outside (back-end answers, stored keys) through the decoder, and any bytes
// through the encoder and back.

#include <cstddef>
#include <cstdint>
#include <string>

#include "tracker/util/Base64.h"

using tracker::util::Base64;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    std::string decoded;
    Base64::decode(bytes, &decoded);
    Base64::decodedLength(bytes);

    // Every byte string but the empty one encodes, to the announced length, and decodes back to
    // itself.
    std::string encoded;
    if (!Base64::encode(bytes, &encoded)) {
        if (!bytes.empty()) {
            __builtin_trap();
        }
        return 0;
    }
    std::string back;
    if (encoded.size() != Base64::encodedLength(bytes) || !Base64::decode(encoded, &back) ||
        back != bytes) {
        __builtin_trap();
    }
    return 0;
}
