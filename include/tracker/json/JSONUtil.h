#pragma once

#include <rapidjson/document.h>

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace tracker {
namespace util {
namespace json {

// Reading JSON through rapidjson's UTF-8 Document and Value (memory-pool allocator): parsing,
// compact serialisation, direct-member lookup and type-checked conversion.
//
// Failure: false and one error line (tag "TrackerD-JSONUtil"); outputs are left unchanged unless
// stated. Lookups are one level deep ("a.b" is a name, not a path), and a value that is not an
// object has no members: it is reported as a missing member rather than read as one.
//
// Stateless: callable from any thread; the values passed in must not change during the call.
class JSONUtil {
  public:
    JSONUtil() = delete;

    // The deepest nesting of arrays and objects a document may have: far beyond any real
    // document, and shallow enough that parsing, walking and writing one stay well within a
    // device thread's 1 MiB stack.
    static constexpr unsigned kMaxNestingDepth = 512;

    // Parses `text` with default flags (a NUL ends the document, as in rapidjson), without
    // recursion, refusing nesting deeper than kMaxNestingDepth. On error logs
    // "convertJsonStringToDocumentFailed, offset=<offset>, error=<rapidjson's English message>",
    // or "error=Nesting deeper than 512." at the bracket too many.
    static bool convertJsonStringToDocument(const std::string& text, rapidjson::Document& doc);
    // The same parse without the log line: on failure *offset and *message (when not null) say
    // where and why. For readers that report errors their own way.
    static bool parseDocument(const std::string& text, rapidjson::Document& doc,
                              std::size_t* offset, std::string* message);

    // Compact text of `value`. A null value logs
    // "convertJSONObjectToStringFailed, reason: nullValue"; a value that cannot be written (a
    // non-finite double inside) logs "convertJSONObjectToStringFailed".
    static bool convertJSONObjectToString(const rapidjson::Value& value, std::string& out);
    static bool convertJSONObjectToString(const rapidjson::Document& doc, std::string& out);

    // The direct member `name` of `object`; missing: "findNodeFailed, reason=missingDirectChild".
    static bool findNode(const rapidjson::Value& object, const std::string& name,
                         rapidjson::Value::ConstMemberIterator& out);

    // Each accepts only its own stored kind, never converting: a string; an integer that fits
    // 64 bits unsigned or signed; true or false; a number written with a fraction or exponent
    // (3 is refused, 3.0 accepted). The failure lines name the target, e.g.
    // "convertToDoubleValueFailed,reason=invalidValue,expectedValue=Double".
    static bool convertToValue(const rapidjson::Value& value, std::string& out);
    static bool convertToValue(const rapidjson::Value& value, unsigned long long& out);
    static bool convertToValue(const rapidjson::Value& value, long long& out);
    static bool convertToValue(const rapidjson::Value& value, bool& out);
    static bool convertToValue(const rapidjson::Value& value, double& out);

    // Whether `object` has a direct member `key` that is an array. Missing:
    // "lookupArrayExistsFailed,keyNotFound,key=<key>"; not an array:
    // "lookupArrayExistsFailed,notArrayType".
    static bool jsonArrayExists(const rapidjson::Value& object, const std::string& key);

    // Appends one map per element of the array member `key`: the element's string-valued members
    // (others are skipped; a repeated name keeps the last). An empty array is true with `out`
    // untouched. Missing key: "reason, couldNotFindObject, key=<key>"; not an array:
    // "reason, NotAnArray, key=<key>"; an element that is not an object:
    // "reason, NotAnObject, key=<key>", and `out` is cleared, what it held before too.
    static bool retrieveArrayOfStringMapFromArray(
        const rapidjson::Value& object, const std::string& key,
        std::vector<std::map<std::string, std::string>>& out);
};

}  // namespace json
}  // namespace util
}  // namespace tracker
