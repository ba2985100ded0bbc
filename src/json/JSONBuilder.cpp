#include "tracker/json/JSONBuilder.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "tracker/json/JSONUtil.h"
#include "tracker/util/Log.h"

namespace tracker {
namespace util {
namespace json {

namespace {

const Log& kLog = *new Log("JSONBuilder");

constexpr std::size_t kBufferCapacity = 256;
constexpr std::size_t kNestingStackBytes = 256;

// rapidjson gives each buffer and stack an allocator object of its own unless handed one. The
// C runtime's allocator holds no state, so every builder shares this one and saves the two
// allocations.
rapidjson::CrtAllocator& sharedAllocator() {
    static rapidjson::CrtAllocator allocator;
    return allocator;
}

// The bytes of `word` that rapidjson escapes in a string, a control character, '"' or '\\', have
// their high bit set in the result (and maybe bytes above them too: only "any" is exact). A byte
// below 0x20 borrows into its high bit, and so does a zero byte, which '"' and '\\' become when
// xor-ed with themselves.
template <typename Word>
Word escapedBytes(Word word) {
    constexpr Word kOnes = static_cast<Word>(~Word{0}) / 0xFF;
    constexpr Word kHighBits = kOnes * 0x80;
    const auto below = [word](Word bound) { return (word - bound) & ~word & kHighBits; };
    const auto zero = [](Word w) { return (w - kOnes) & ~w & kHighBits; };
    return below(kOnes * 0x20) | zero(word ^ (kOnes * '"')) | zero(word ^ (kOnes * '\\'));
}

template <typename Word>
Word wordAt(const char* chars) {
    Word word;
    std::memcpy(&word, chars, sizeof word);
    return word;
}

// Copies the bytes to `out` and says whether none needs an escape: a word at a time, the last
// word overlapping the one before it rather than reaching past the end. Checked as they are
// copied, short names cost two loads and two stores.
bool copyUnescaped(char* out, const char* chars, std::size_t length) {
    if (length >= 8) {
        uint64_t found = 0;
        const auto copyWord = [&](std::size_t at) {
            const auto word = wordAt<uint64_t>(chars + at);
            found |= escapedBytes(word);
            std::memcpy(out + at, &word, sizeof word);
        };
        for (std::size_t i = 0; i + 8 < length; i += 8) {
            copyWord(i);
        }
        copyWord(length - 8);
        return found == 0;
    }
    if (length >= 4) {
        const auto first = wordAt<uint32_t>(chars);
        const auto last = wordAt<uint32_t>(chars + length - 4);
        std::memcpy(out, &first, sizeof first);
        std::memcpy(out + length - 4, &last, sizeof last);
        return (escapedBytes(first) | escapedBytes(last)) == 0;
    }
    bool clean = true;
    for (std::size_t i = 0; i < length; ++i) {
        const auto c = static_cast<unsigned char>(chars[i]);
        out[i] = chars[i];
        clean &= c >= 0x20 && c != '"' && c != '\\';
    }
    return clean;
}

}  // namespace

JSONBuilder::Writer::Writer(rapidjson::StringBuffer& buffer)
    : rapidjson::Writer<rapidjson::StringBuffer>(buffer, &sharedAllocator(),
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

bool JSONBuilder::Writer::name(const std::string& name) {
    Level* const level = level_stack_.Empty() ? nullptr : level_stack_.Top<Level>();
    if (level == nullptr || level->inArray || level->valueCount % 2 != 0) {
        return text(name.data(), name.size());
    }
    const std::size_t comma = level->valueCount > 0 ? 1 : 0;
    const std::size_t written = comma + name.size() + 3;
    char* out = os_->Push(written);
    out[0] = ',';
    out += comma;
    out[0] = '"';
    if (!copyUnescaped(out + 1, name.data(), name.size())) {
        os_->Pop(written);
        return text(name.data(), name.size());
    }
    out[name.size() + 1] = '"';
    out[name.size() + 2] = ':';
    ++level->valueCount;
    m_colonWritten = true;
    return true;
}

// Inlined: it is all a member's value costs besides the digits.
[[gnu::always_inline]] inline void JSONBuilder::Writer::valuePrefix(rapidjson::Type type) {
    if (m_colonWritten) {
        m_colonWritten = false;
        ++level_stack_.Top<Level>()->valueCount;
    } else {
        Prefix(type);
    }
}

bool JSONBuilder::Writer::rawValue(const std::string& json) {
    // The type only feeds rapidjson's check that a value in an object follows a name.
    valuePrefix(rapidjson::kObjectType);
    rapidjson::PutReserve(*os_, json.size());
    for (char c : json) {
        rapidjson::PutUnsafe(*os_, c);
    }
    return EndValue(true);
}

bool JSONBuilder::Writer::text(const char* chars, std::size_t length) {
    valuePrefix(rapidjson::kStringType);
    // Names and values rarely need an escape: such text is copied whole. rapidjson's own loop
    // stores its buffer's end after every character, which costs more than the rest of a
    // record together.
    char* out = os_->Push(length + 2);
    out[0] = '"';
    if (!copyUnescaped(out + 1, chars, length)) {
        os_->Pop(length + 2);
        return EndValue(WriteString(chars, static_cast<rapidjson::SizeType>(length)));
    }
    out[length + 1] = '"';
    return EndValue(true);
}

bool JSONBuilder::Writer::number(unsigned long long value) {
    valuePrefix(rapidjson::kNumberType);
    return EndValue(WriteUint64(value));
}

bool JSONBuilder::Writer::number(unsigned int value) {
    valuePrefix(rapidjson::kNumberType);
    return EndValue(WriteUint(value));
}

bool JSONBuilder::Writer::number(long long value) {
    valuePrefix(rapidjson::kNumberType);
    return EndValue(WriteInt64(value));
}

bool JSONBuilder::Writer::number(int value) {
    valuePrefix(rapidjson::kNumberType);
    return EndValue(WriteInt(value));
}

bool JSONBuilder::Writer::number(double value) {
    valuePrefix(rapidjson::kNumberType);
    return EndValue(WriteDouble(value));
}

bool JSONBuilder::Writer::boolean(bool value) {
    valuePrefix(value ? rapidjson::kTrueType : rapidjson::kFalseType);
    return EndValue(WriteBool(value));
}

bool JSONBuilder::Writer::open(bool array) {
    valuePrefix(array ? rapidjson::kArrayType : rapidjson::kObjectType);
    new (level_stack_.Push<Level>()) Level(array);
    return array ? WriteStartArray() : WriteStartObject();
}

template <typename WriteValue>
bool JSONBuilder::writeMember(const std::string& name, WriteValue writeValue) {
    if (!checkWriter()) {
        return false;
    }
    return m_writer.name(name) && writeValue();
}

JSONBuilder::JSONBuilder() : m_buffer(&sharedAllocator(), kBufferCapacity), m_writer(m_buffer) {
    m_writer.open(false);
}

bool JSONBuilder::startObject(const std::string& name) {
    return writeMember(name, [this] { return m_writer.open(false); });
}

bool JSONBuilder::finishObject() {
    return checkWriter() && m_writer.closeLevel('}');
}

bool JSONBuilder::startArray(const std::string& name) {
    return writeMember(name, [this] { return m_writer.open(true); });
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
    return m_writer.open(false);
}

bool JSONBuilder::finishArrayElement() {
    return finishObject();
}

bool JSONBuilder::addMember(const std::string& name, const std::string& value) {
    return writeMember(name, [&] { return m_writer.text(value.data(), value.size()); });
}

bool JSONBuilder::addMember(const std::string& name, const char* value) {
    if (value == nullptr) {
        return false;
    }
    return writeMember(name, [&] { return m_writer.text(value, std::strlen(value)); });
}

bool JSONBuilder::addMember(const std::string& name, unsigned long long value) {
    return writeMember(name, [&] { return m_writer.number(value); });
}

bool JSONBuilder::addMember(const std::string& name, unsigned int value) {
    return writeMember(name, [&] { return m_writer.number(value); });
}

bool JSONBuilder::addMember(const std::string& name, long long value) {
    return writeMember(name, [&] { return m_writer.number(value); });
}

bool JSONBuilder::addMember(const std::string& name, int value) {
    return writeMember(name, [&] { return m_writer.number(value); });
}

bool JSONBuilder::addMember(const std::string& name, bool value) {
    return writeMember(name, [&] { return m_writer.boolean(value); });
}

bool JSONBuilder::addMember(const std::string& name, double value) {
    return writeMember(name, [&] { return m_writer.number(value); });
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
