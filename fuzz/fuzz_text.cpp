// Text from outside (back-end answers, configuration, addresses) through every parser of it.

#include <cstddef>
#include <cstdint>
#include <string>

#include <android/os/ParcelUuid.h>

#include "tracker/bluetooth/BleUtils.h"
#include "tracker/json/JSONUtil.h"
#include "tracker/util/Base64.h"
#include "tracker/util/StringUtils.h"
#include "tracker/util/time/TimeUtils.h"

using namespace tracker::util;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::string out;
    Base64::decode(text, &out);
    Base64::encode(text, &out);
    Base64::decodedLength(text);

    StringUtils::split(text, ':');
    StringUtils::convertStringToHex(text);
    long long wide = 0;
    StringUtils::stringToInt64(text, &wide);
    unsigned char byte = 0;
    StringUtils::hexStringToByte(text, &byte);
    if (!text.empty()) {
        std::string copy = text;
        StringUtils::replaceStringInTemplate(copy, text.substr(0, 1 + size % 3), "{x}");
    }

    bluetooth::BleUtils::stringToTrackerDeviceAddr(text.c_str());
    bluetooth::BleUtils::getObfuscatedAddress(text);
    android::os::ParcelUuid::fromString(text);

    long long seconds = 0;
    time::TimeUtils().convert8601TimeStringToUnix(text, &seconds);

    rapidjson::Document document;
    if (json::JSONUtil::convertJsonStringToDocument(text, document) && document.IsObject()) {
        std::vector<std::map<std::string, std::string>> maps;
        for (auto it = document.MemberBegin(); it != document.MemberEnd(); ++it) {
            json::JSONUtil::retrieveArrayOfStringMapFromArray(document, it->name.GetString(), maps);
        }
        json::JSONUtil::convertJSONObjectToString(document, out);
    }
    return 0;
}
