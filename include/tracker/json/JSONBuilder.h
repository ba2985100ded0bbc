#pragma once

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstddef>
#include <string>

namespace tracker {
namespace util {
namespace json {

// A forward-only writer of one compact JSON object (no whitespace). The root object is opened by
// the constructor; members, nested objects and arrays follow in call order, and finalize() or
// toString(true) closes whatever is still open. The builder is "finalized" once the root object
// is closed: from then on every writing call returns false and logs
// "addMemberFailed,reason=finalizedGenerator" (tag "TrackerD-JSONBuilder").
//
// Failure: every bool result is true on success. Nesting is mostly the caller's business: nothing
// checks that a name is written inside an object or that a finish call closes the kind of level it
// names, and finalize() closes every open level with "}", an open array too (which yields text
// that is not JSON). The one misplacement refused is startArrayElement() outside an array, where
// a name belongs: it returns false, writes nothing and logs
// "startArrayElementFailed,reason=notInArray". A failed call may leave a dangling member name in
// the output (a non-finite double does), so a builder that reported a failure should be
// discarded.
//
// Thread-safety: none; one thread at a time. Not copyable (the writer points into the buffer).
class JSONBuilder {
  public:
    // Opens the root object: the text is then "{".
    JSONBuilder();
    JSONBuilder(const JSONBuilder&) = delete;
    JSONBuilder& operator=(const JSONBuilder&) = delete;

    // Member `name` holding a new object or array, left open for the calls that follow.
    bool startObject(const std::string& name);
    bool startArray(const std::string& name);
    // Close the innermost open level with "}" or "]".
    bool finishObject();
    bool finishArray();
    // An unnamed object as the next element of the open array, and its close ("}"). Outside an
    // array startArrayElement() is refused (see above).
    bool startArrayElement();
    bool finishArrayElement();

    // Member `name` with a JSON string, integer, true/false or number value. A null `value`
    // pointer returns false at once, writing and logging nothing. NaN and infinities return false
    // after the name was written. Doubles are written in shortest round-trip form.
    bool addMember(const std::string& name, const std::string& value);
    bool addMember(const std::string& name, const char* value);
    bool addMember(const std::string& name, unsigned long long value);
    bool addMember(const std::string& name, unsigned int value);
    bool addMember(const std::string& name, long long value);
    bool addMember(const std::string& name, int value);
    bool addMember(const std::string& name, bool value);
    bool addMember(const std::string& name, double value);

    // Member `name` whose value is `json`, verbatim. With `validate` the whole text must parse
    // first, with no NUL and no byte-order mark (a failure logs JSONUtil's parse error, if it
    // was one, then "addRawJsonMemberFailed,reason=invalidJson", and writes nothing); without,
    // it is inserted unchecked.
    bool addRawJsonMember(const std::string& name, const std::string& json, bool validate);

    // True while more may be written; false, with the finalized line, once finalized.
    bool checkWriter();
    // Closes every open level, innermost first, each with "}". True unless a close failed
    // ("finishFailed,reason=failToEndObject").
    bool finalize();
    // The text so far; with `finalize` true, finalize() runs first.
    std::string toString(bool finalize);
    // True once finalized, and then it also logs the finalized line, so misuse shows in the log.
    bool isFinalized();

  private:
    // rapidjson's compact Writer with faster member writes, plus the two writes the builder's
    // contract allows and rapidjson's debug-build assertions would abort on: closing a level
    // whatever its kind, and raw text copied as is; and a look at the innermost level.
    //
    // A member's name goes out with its comma and colon in one write where the innermost level
    // is an object expecting a name; the value that must follow then skips rapidjson's prefix.
    // Every value therefore goes through this class's own writes, never rapidjson's.
    class Writer : public rapidjson::Writer<rapidjson::StringBuffer> {
      public:
        explicit Writer(rapidjson::StringBuffer& buffer);
        // Closes the innermost open level with `bracket`; false when no level is open.
        bool closeLevel(char bracket);
        // Whether the innermost open level is an array.
        bool inArray() const;
        // A member's name.
        bool name(const std::string& name);
        // Values: verbatim JSON, a string (escaped as rapidjson escapes it), numbers, true or
        // false, and a new object or array level.
        bool rawValue(const std::string& json);
        bool text(const char* chars, std::size_t length);
        bool number(unsigned long long value);
        bool number(unsigned int value);
        bool number(long long value);
        bool number(int value);
        bool number(double value);
        bool boolean(bool value);
        bool open(bool array);

      private:
        // What rapidjson writes and counts before a value, or only the count after name().
        void valuePrefix(rapidjson::Type type);

        bool m_colonWritten = false;
    };

    // The finalized check, the name, then writeValue() for the value.
    template <typename WriteValue>
    bool writeMember(const std::string& name, WriteValue writeValue);

    rapidjson::StringBuffer m_buffer;
    Writer m_writer;
};

}  // namespace json
}  // namespace util
}  // namespace tracker
