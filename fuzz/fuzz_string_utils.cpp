// Text from outside (configuration values, back-end fields, hex payloads) through every parser of
// StringUtils. The first byte picks the delimiter and the placeholder's length; the rest is the
// text.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tracker/util/StringUtils.h"

using tracker::util::StringUtils;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const char delimiter = static_cast<char>(data[0]);
    const std::string text(reinterpret_cast<const char*>(data + 1), size - 1);

    StringUtils::split(text, delimiter);
    for (char c : text) {
        tracker::util::hex(c);
    }
    std::vector<unsigned char> bytes = StringUtils::convertStringToHex(text);
    long long wide = 0;
    StringUtils::stringToInt64(text, &wide);
    int narrow = 0;
    StringUtils::stringToInt(text, &narrow);
    unsigned char byte = 0;
    StringUtils::hexStringToByte(text, &byte);
    if (!text.empty()) {
        std::string copy = text;
        const std::size_t length = 1 + static_cast<uint8_t>(delimiter) % 4;
        // The replacement begins with the placeholder: what it inserts must not be searched again.
        StringUtils::replaceStringInTemplate(copy, text.substr(0, length),
                                             text.substr(0, 2 * length));
    }

    // Bytes printed as hex read back as the same bytes.
    if (StringUtils::convertStringToHex(StringUtils::bytesToHexString(bytes)) != bytes) {
        __builtin_trap();
    }
    return 0;
}
