// JSON from outside (back-end answers, stored configuration) parsed, then read the way the library
// reads it: every lookup under the document's own member names, at every level, and under names
// taken from the input's quoted pieces, which include near-misses of them.

#include <rapidjson/document.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tracker/json/JSONUtil.h"

using tracker::util::json::JSONUtil;

namespace {

void readValue(const rapidjson::Value& value) {
    std::string text;
    unsigned long long unsignedNumber = 0;
    long long signedNumber = 0;
    bool flag = false;
    double real = 0;
    JSONUtil::convertToValue(value, text);
    JSONUtil::convertToValue(value, unsignedNumber);
    JSONUtil::convertToValue(value, signedNumber);
    JSONUtil::convertToValue(value, flag);
    JSONUtil::convertToValue(value, real);
    JSONUtil::convertJSONObjectToString(value, text);
}

void lookUp(const rapidjson::Value& object, const std::string& key) {
    rapidjson::Value::ConstMemberIterator member;
    if (JSONUtil::findNode(object, key, member)) {
        readValue(member->value);
    }
    JSONUtil::jsonArrayExists(object, key);
    std::vector<std::map<std::string, std::string>> maps;
    JSONUtil::retrieveArrayOfStringMapFromArray(object, key, maps);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    rapidjson::Document document;
    if (!JSONUtil::convertJsonStringToDocument(text, document)) {
        return 0;
    }
    std::string out;
    JSONUtil::convertJSONObjectToString(document, out);
    readValue(document);

    // Without recursion: documents nest up to JSONUtil::kMaxNestingDepth.
    std::vector<const rapidjson::Value*> pending{&document};
    while (!pending.empty()) {
        const rapidjson::Value& value = *pending.back();
        pending.pop_back();
        if (value.IsObject()) {
            for (auto it = value.MemberBegin(); it != value.MemberEnd(); ++it) {
                lookUp(value, std::string(it->name.GetString(), it->name.GetStringLength()));
                pending.push_back(&it->value);
            }
        } else if (value.IsArray()) {
            for (const rapidjson::Value& element : value.GetArray()) {
                pending.push_back(&element);
            }
        }
    }

    std::size_t start = 0;
    for (std::size_t quote = text.find('"'); quote != std::string::npos;
         quote = text.find('"', start)) {
        lookUp(document, text.substr(start, quote - start));
        start = quote + 1;
    }
    lookUp(document, text.substr(start));
    return 0;
}
