#include "tracker/json/JSONUtil.h"

#include <rapidjson/encodedstream.h>
#include <rapidjson/error/en.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstddef>
#include <utility>

#include "tracker/util/Log.h"

namespace tracker {
namespace util {
namespace json {

namespace {

const Log& kLog = *new Log("JSONUtil");

constexpr std::size_t kBufferCapacity = 256;

// Hands the reader's events to the document being built, counting the nesting: deeper than
// kMaxNestingDepth, the parse stops (the reader reports a handler termination there).
class DepthLimitedHandler {
  public:
    explicit DepthLimitedHandler(rapidjson::Document& doc) : m_doc(doc) {}

    bool tooDeep() const { return m_tooDeep; }

    bool Null() { return m_doc.Null(); }
    bool Bool(bool b) { return m_doc.Bool(b); }
    bool Int(int i) { return m_doc.Int(i); }
    bool Uint(unsigned u) { return m_doc.Uint(u); }
    bool Int64(int64_t i) { return m_doc.Int64(i); }
    bool Uint64(uint64_t u) { return m_doc.Uint64(u); }
    bool Double(double d) { return m_doc.Double(d); }
    bool RawNumber(const char* text, rapidjson::SizeType length, bool copy) {
        return m_doc.RawNumber(text, length, copy);
    }
    bool String(const char* text, rapidjson::SizeType length, bool copy) {
        return m_doc.String(text, length, copy);
    }
    bool Key(const char* text, rapidjson::SizeType length, bool copy) {
        return m_doc.Key(text, length, copy);
    }
    bool StartObject() { return enter() && m_doc.StartObject(); }
    bool EndObject(rapidjson::SizeType members) {
        --m_depth;
        return m_doc.EndObject(members);
    }
    bool StartArray() { return enter() && m_doc.StartArray(); }
    bool EndArray(rapidjson::SizeType elements) {
        --m_depth;
        return m_doc.EndArray(elements);
    }

  private:
    bool enter() {
        m_tooDeep = ++m_depth > JSONUtil::kMaxNestingDepth;
        return !m_tooDeep;
    }

    rapidjson::Document& m_doc;
    unsigned m_depth = 0;
    bool m_tooDeep = false;
};

// Finds the direct member `name`. A value that is not an object has none (rapidjson would read
// its storage as a member list).
bool lookUp(const rapidjson::Value& object, const std::string& name,
            rapidjson::Value::ConstMemberIterator& member) {
    if (!object.IsObject()) {
        return false;
    }
    member = object.FindMember(rapidjson::Value(rapidjson::StringRef(name.data(), name.size())));
    return member != object.MemberEnd();
}

// Stores get(value) in out when accepts(value), else logs `failure`; out is untouched then.
template <typename T, typename Accepts, typename Get>
bool convert(const rapidjson::Value& value, T& out, Accepts accepts, Get get, const char* failure) {
    if (!accepts(value)) {
        kLog.e("%s", failure);
        return false;
    }
    out = get(value);
    return true;
}

}  // namespace

bool JSONUtil::parseDocument(const std::string& text, rapidjson::Document& doc, std::size_t* offset,
                             std::string* message) {
    // The stream rapidjson's own Parse(text, length) reads, so that documents parse the same.
    rapidjson::MemoryStream memory(text.data(), text.size());
    rapidjson::EncodedInputStream<rapidjson::UTF8<>, rapidjson::MemoryStream> input(memory);
    rapidjson::ParseResult result;
    bool tooDeep = false;
    // The iterative parser keeps its state on the heap: nesting costs no stack.
    auto generate = [&](rapidjson::Document& handler) {
        DepthLimitedHandler limited(handler);
        rapidjson::Reader reader;
        result = reader.Parse<rapidjson::kParseIterativeFlag>(input, limited);
        tooDeep = limited.tooDeep();
        return !result.IsError();
    };
    doc.SetNull();
    doc.Populate(generate);
    if (!result.IsError()) {
        return true;
    }
    if (offset != nullptr) {
        *offset = result.Offset();
    }
    if (message != nullptr) {
        *message = tooDeep ? "Nesting deeper than " + std::to_string(kMaxNestingDepth) + "."
                           : rapidjson::GetParseError_En(result.Code());
    }
    doc.SetNull();
    return false;
}

bool JSONUtil::convertJsonStringToDocument(const std::string& text, rapidjson::Document& doc) {
    std::size_t offset = 0;
    std::string message;
    if (!parseDocument(text, doc, &offset, &message)) {
        kLog.e("convertJsonStringToDocumentFailed, offset=%zu, error=%s", offset, message.c_str());
        return false;
    }
    return true;
}

bool JSONUtil::convertJSONObjectToString(const rapidjson::Value& value, std::string& out) {
    if (value.IsNull()) {
        kLog.e("convertJSONObjectToStringFailed, reason: nullValue");
        return false;
    }
    rapidjson::StringBuffer buffer(nullptr, kBufferCapacity);
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    if (!value.Accept(writer)) {
        kLog.e("convertJSONObjectToStringFailed");
        return false;
    }
    out.assign(buffer.GetString(), buffer.GetSize());
    return true;
}

bool JSONUtil::convertJSONObjectToString(const rapidjson::Document& doc, std::string& out) {
    return convertJSONObjectToString(static_cast<const rapidjson::Value&>(doc), out);
}

bool JSONUtil::findNode(const rapidjson::Value& object, const std::string& name,
                        rapidjson::Value::ConstMemberIterator& out) {
    rapidjson::Value::ConstMemberIterator member;
    if (!lookUp(object, name, member)) {
        kLog.e("findNodeFailed, reason=missingDirectChild");
        return false;
    }
    out = member;
    return true;
}

bool JSONUtil::convertToValue(const rapidjson::Value& value, std::string& out) {
    return convert(
        value, out, [](const rapidjson::Value& v) { return v.IsString(); },
        [](const rapidjson::Value& v) { return std::string(v.GetString(), v.GetStringLength()); },
        "convertToStringValueFailed,reason=invalidType");
}

bool JSONUtil::convertToValue(const rapidjson::Value& value, unsigned long long& out) {
    return convert(
        value, out, [](const rapidjson::Value& v) { return v.IsUint64(); },
        [](const rapidjson::Value& v) { return v.GetUint64(); },
        "convertToUnsignedInt64ValueFailed,reason=invalidValue,expectedValue=Uint64");
}

bool JSONUtil::convertToValue(const rapidjson::Value& value, long long& out) {
    return convert(
        value, out, [](const rapidjson::Value& v) { return v.IsInt64(); },
        [](const rapidjson::Value& v) { return v.GetInt64(); },
        "convertToInt64ValueFailed,reason=invalidValue,expectedValue=Int64");
}

bool JSONUtil::convertToValue(const rapidjson::Value& value, bool& out) {
    return convert(
        value, out, [](const rapidjson::Value& v) { return v.IsBool(); },
        [](const rapidjson::Value& v) { return v.GetBool(); },
        "convertToBoolValueFailed,reason=invalidValue,expectedValue=Bool");
}

bool JSONUtil::convertToValue(const rapidjson::Value& value, double& out) {
    // IsDouble() is true only for numbers stored as floating point: 2 is refused, 2.0 accepted.
    return convert(
        value, out, [](const rapidjson::Value& v) { return v.IsDouble(); },
        [](const rapidjson::Value& v) { return v.GetDouble(); },
        "convertToDoubleValueFailed,reason=invalidValue,expectedValue=Double");
}

bool JSONUtil::jsonArrayExists(const rapidjson::Value& object, const std::string& key) {
    rapidjson::Value::ConstMemberIterator member;
    if (!lookUp(object, key, member)) {
        kLog.e("lookupArrayExistsFailed,keyNotFound,key=%s", key.c_str());
        return false;
    }
    if (!member->value.IsArray()) {
        kLog.e("lookupArrayExistsFailed,notArrayType");
        return false;
    }
    return true;
}

bool JSONUtil::retrieveArrayOfStringMapFromArray(
    const rapidjson::Value& object, const std::string& key,
    std::vector<std::map<std::string, std::string>>& out) {
    rapidjson::Value::ConstMemberIterator member;
    if (!lookUp(object, key, member)) {
        kLog.e("reason, couldNotFindObject, key=%s", key.c_str());
        return false;
    }
    if (!member->value.IsArray()) {
        kLog.e("reason, NotAnArray, key=%s", key.c_str());
        return false;
    }
    for (const rapidjson::Value& element : member->value.GetArray()) {
        if (!element.IsObject()) {
            kLog.e("reason, NotAnObject, key=%s", key.c_str());
            out.clear();
            return false;
        }
        std::map<std::string, std::string> strings;
        for (const auto& field : element.GetObject()) {
            if (field.value.IsString()) {
                strings[std::string(field.name.GetString(), field.name.GetStringLength())] =
                    std::string(field.value.GetString(), field.value.GetStringLength());
            }
        }
        out.push_back(std::move(strings));
    }
    return true;
}

}  // namespace json
}  // namespace util
}  // namespace tracker
