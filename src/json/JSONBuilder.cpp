#include "tracker/json/JSONBuilder.h"

#include <cstddef>

#include "tracker/json/JSONUtil.h"
#include "tracker/util/Log.h"

namespace tracker {
namespace util {
namespace json {

namespace {

const Log& kLog = *new Log("JSONBuilder");

constexpr std::size_t kBufferCapacity = 256;
constexpr std::size_t kNestingStackBytes = 256;

rapidjson::SizeType lengthOf(const std::string& text) {
    return static_cast<rapidjson::SizeType>(text.size());
}

}  // namespace

JSONBuilder::Writer::Writer(rapidjson::StringBuffer& buffer)
    : rapidjson::Writer<rapidjson::StringBuffer>(buffer, nullptr,
                                                 kNestingStackBytes / sizeof(Level)) {}

bool JSONBuilder::Writer::closeLevel(char bracket) {
    if (level_stack_.Empty()) {
        return false;
    }
    level_stack_.Pop<Level>(1);
    os_->Put(bracket);
    return EndValue(true);
}

bool JSONBuilder::Writer::inArray() const {
    return !level_stack_.Empty() && level_stack_.Top<Level>()->inArray;
}

bool JSONBuilder::Writer::rawValue(const std::string& json) {
    // The type only feeds rapidjson's check that a value in an object follows a name.
    Prefix(rapidjson::kObjectType);
    rapidjson::PutReserve(*os_, json.size());
    for (char c : json) {
        rapidjson::PutUnsafe(*os_, c);
    }
    return EndValue(true);
}

template <typename WriteValue>
bool JSONBuilder::writeMember(const std::string& name, WriteValue writeValue) {
    if (!checkWriter()) {
        return false;
    }
    return m_writer.Key(name.data(), lengthOf(name)) && writeValue();
}

JSONBuilder::JSONBuilder() : m_buffer(nullptr, kBufferCapacity), m_writer(m_buffer) {
    m_writer.StartObject();
}

bool JSONBuilder::startObject(const std::string& name) {
    return writeMember(name, [this] { return m_writer.StartObject(); });
}

bool JSONBuilder::finishObject() {
    return checkWriter() && m_writer.closeLevel('}');
}

bool JSONBuilder::startArray(const std::string& name) {
    return writeMember(name, [this] { return m_writer.StartArray(); });
}

bool JSONBuilder::finishArray() {
    return checkWriter() && m_writer.closeLevel(']');
}

bool JSONBuilder::startArrayElement() {
    if (!checkWriter()) {
        return false;
    }
    // In an object a name must come first; rapidjson would assert (and abort) on the value.
    if (!m_writer.inArray()) {
        kLog.e("startArrayElementFailed,reason=notInArray");
        return false;
    }
    return m_writer.StartObject();
}

bool JSONBuilder::finishArrayElement() {
    return finishObject();
}

bool JSONBuilder::addMember(const std::string& name, const std::string& value) {
    return writeMember(name, [&] { return m_writer.String(value.data(), lengthOf(value)); });
}

bool JSONBuilder::addMember(const std::string& name, const char* value) {
    if (value == nullptr) {
        return false;
    }
    return writeMember(name, [&] { return m_writer.String(value); });
}

bool JSONBuilder::addMember(const std::string& name, unsigned long long value) {
    return writeMember(name, [&] { return m_writer.Uint64(value); });
}

bool JSONBuilder::addMember(const std::string& name, unsigned int value) {
    return writeMember(name, [&] { return m_writer.Uint(value); });
}

bool JSONBuilder::addMember(const std::string& name, long long value) {
    return writeMember(name, [&] { return m_writer.Int64(value); });
}

bool JSONBuilder::addMember(const std::string& name, int value) {
    return writeMember(name, [&] { return m_writer.Int(value); });
}

bool JSONBuilder::addMember(const std::string& name, bool value) {
    return writeMember(name, [&] { return m_writer.Bool(value); });
}

bool JSONBuilder::addMember(const std::string& name, double value) {
    return writeMember(name, [&] { return m_writer.Double(value); });
}

bool JSONBuilder::addRawJsonMember(const std::string& name, const std::string& json,
                                   bool validate) {
    if (validate) {
        // The parser ends a document at a NUL and skips a leading byte-order mark, but the text
        // is copied whole: it must be JSON from its first byte to its last.
        const bool markOrNul = json.find('\0') != std::string::npos ||
                               (!json.empty() && static_cast<unsigned char>(json[0]) >= 0xBB);
        rapidjson::Document scratch;
        if (markOrNul || !JSONUtil::convertJsonStringToDocument(json, scratch)) {
            kLog.e("addRawJsonMemberFailed,reason=invalidJson");
            return false;
        }
    }
    return writeMember(name, [&] { return m_writer.rawValue(json); });
}

bool JSONBuilder::checkWriter() {
    if (m_writer.IsComplete()) {
        kLog.e("addMemberFailed,reason=finalizedGenerator");
        return false;
    }
    return true;
}

bool JSONBuilder::finalize() {
    while (!m_writer.IsComplete()) {
        if (!m_writer.closeLevel('}')) {
            kLog.e("finishFailed,reason=failToEndObject");
            return false;
        }
    }
    return true;
}

std::string JSONBuilder::toString(bool finalize) {
    if (finalize) {
        this->finalize();
    }
    return std::string(m_buffer.GetString(), m_buffer.GetSize());
}

bool JSONBuilder::isFinalized() {
    return !checkWriter();
}

}  // namespace json
}  // namespace util
}  // namespace tracker
