#include "tracker/json/JSONUtil.h"

#include <gtest/gtest.h>

#include <pthread.h>

#include <cmath>
#include <functional>
#include <limits>
#include <map>
#include <string>
#include <vector>

#include "log/LogCapture.h"

namespace tracker {
namespace util {
namespace json {
namespace {

using sim::LogCapture;
using Lines = std::vector<std::string>;
using Maps = std::vector<std::map<std::string, std::string>>;

std::string errorLine(const std::string& message) {
    return "E TrackerD-JSONUtil: " + message;
}

// Runs `work` on a thread with a device thread's 1 MiB stack.
void onDeviceSizedStack(std::function<void()> work) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, 1 << 20);
    pthread_t thread;
    ASSERT_EQ(pthread_create(
                  &thread, &attributes,
                  [](void* argument) -> void* {
                      (*static_cast<std::function<void()>*>(argument))();
                      return nullptr;
                  },
                  &work),
              0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
}

rapidjson::Document parsed(const std::string& text) {
    rapidjson::Document doc;
    EXPECT_TRUE(JSONUtil::convertJsonStringToDocument(text, doc)) << text;
    return doc;
}

TEST(JSONUtil, ParsesWritesCompactlyAndReportsWhatFails) {
    const rapidjson::Document doc = parsed(R"( { "a" : [1, 2.5, "x"], "b" : {"c" : null} } )");
    std::string out;
    EXPECT_TRUE(JSONUtil::convertJSONObjectToString(doc, out));
    EXPECT_EQ(out, R"({"a":[1,2.5,"x"],"b":{"c":null}})");
    EXPECT_TRUE(JSONUtil::convertJSONObjectToString(doc["a"], out));
    EXPECT_EQ(out, R"([1,2.5,"x"])");

    LogCapture capture;
    rapidjson::Document bad;
    for (const char* text : {"", "{bad", "[1,]", "{} {}", "\"abc", "[1e400]"}) {
        EXPECT_FALSE(JSONUtil::convertJsonStringToDocument(text, bad)) << text;
    }
    rapidjson::Document nonFinite;
    nonFinite.SetObject().AddMember("n", std::nan(""), nonFinite.GetAllocator());
    EXPECT_FALSE(JSONUtil::convertJSONObjectToString(rapidjson::Value(), out));
    EXPECT_FALSE(JSONUtil::convertJSONObjectToString(nonFinite, out));
    EXPECT_EQ(out, R"([1,2.5,"x"])");
    const std::string parseFailed = "convertJsonStringToDocumentFailed, offset=";
    EXPECT_EQ(
        capture.texts(),
        (Lines{errorLine(parseFailed + "0, error=The document is empty."),
               errorLine(parseFailed + "1, error=Missing a name for object member."),
               errorLine(parseFailed + "3, error=Invalid value."),
               errorLine(parseFailed +
                         "3, error=The document root must not be followed by other values."),
               errorLine(parseFailed + "4, error=Missing a closing quotation mark in string."),
               errorLine(parseFailed + "1, error=Number too big to be stored in double."),
               errorLine("convertJSONObjectToStringFailed, reason: nullValue"),
               errorLine("convertJSONObjectToStringFailed")}));
}

TEST(JSONUtil, LooksUpDirectMembersOnly) {
    const rapidjson::Document doc = parsed(R"({"a":{"b":1},"a.b":2,"list":[]})");
    LogCapture capture;
    rapidjson::Value::ConstMemberIterator node;
    ASSERT_TRUE(JSONUtil::findNode(doc, "a.b", node));  // a name, not a path
    EXPECT_EQ(node->value.GetInt(), 2);
    EXPECT_FALSE(JSONUtil::findNode(doc, "b", node));
    EXPECT_FALSE(JSONUtil::findNode(doc["a"]["b"], "b", node));  // a number has no members
    EXPECT_EQ(node->value.GetInt(), 2);
    EXPECT_TRUE(JSONUtil::jsonArrayExists(doc, "list"));
    EXPECT_FALSE(JSONUtil::jsonArrayExists(doc, "a"));
    EXPECT_FALSE(JSONUtil::jsonArrayExists(doc, "none"));
    EXPECT_FALSE(JSONUtil::jsonArrayExists(doc["list"], "list"));
    EXPECT_EQ(capture.texts(), (Lines{errorLine("findNodeFailed, reason=missingDirectChild"),
                                      errorLine("findNodeFailed, reason=missingDirectChild"),
                                      errorLine("lookupArrayExistsFailed,notArrayType"),
                                      errorLine("lookupArrayExistsFailed,keyNotFound,key=none"),
                                      errorLine("lookupArrayExistsFailed,keyNotFound,key=list")}));
}

TEST(JSONUtil, ConvertsOnlyTheStoredKind) {
    const rapidjson::Document doc =
        parsed(R"({"s":"t\u0000x","u":18446744073709551615,"min":-9223372036854775808,)"
               R"("big":9223372036854775808,"three":3,"half":3.5,"yes":true,"nil":null})");
    std::string text;
    unsigned long long unsignedValue = 0;
    long long signedValue = 0;
    bool flag = false;
    double number = 0;
    EXPECT_TRUE(JSONUtil::convertToValue(doc["s"], text));
    EXPECT_TRUE(JSONUtil::convertToValue(doc["u"], unsignedValue));
    EXPECT_TRUE(JSONUtil::convertToValue(doc["min"], signedValue));
    EXPECT_TRUE(JSONUtil::convertToValue(doc["yes"], flag));
    EXPECT_TRUE(JSONUtil::convertToValue(doc["half"], number));

    LogCapture capture;
    EXPECT_FALSE(JSONUtil::convertToValue(doc["three"], text));
    EXPECT_FALSE(JSONUtil::convertToValue(doc["min"], unsignedValue));
    EXPECT_FALSE(JSONUtil::convertToValue(doc["big"], signedValue));
    EXPECT_FALSE(JSONUtil::convertToValue(doc["nil"], flag));
    EXPECT_FALSE(JSONUtil::convertToValue(doc["three"], number));  // 3 is an integer, not 3.0
    // Failures leave the outputs as the successes set them.
    EXPECT_EQ(text, std::string("t\0x", 3));
    EXPECT_EQ(unsignedValue, std::numeric_limits<unsigned long long>::max());
    EXPECT_EQ(signedValue, std::numeric_limits<long long>::min());
    EXPECT_TRUE(flag);
    EXPECT_EQ(number, 3.5);
    const std::string invalid = "ValueFailed,reason=invalidValue,expectedValue=";
    EXPECT_EQ(capture.texts(), (Lines{errorLine("convertToStringValueFailed,reason=invalidType"),
                                      errorLine("convertToUnsignedInt64" + invalid + "Uint64"),
                                      errorLine("convertToInt64" + invalid + "Int64"),
                                      errorLine("convertToBool" + invalid + "Bool"),
                                      errorLine("convertToDouble" + invalid + "Double")}));
}

TEST(JSONUtil, ReadsArraysOfStringMaps) {
    const rapidjson::Document doc =
        parsed(R"({"ok":[{"a":"1","n":2},{"b":"x","b":"y","o":{"c":"z"}}],"empty":[],)"
               R"("mixed":[{"a":"1"},5],"object":{}})");
    Maps out;
    EXPECT_TRUE(JSONUtil::retrieveArrayOfStringMapFromArray(doc, "ok", out));
    EXPECT_EQ(out, (Maps{{{"a", "1"}}, {{"b", "y"}}}));
    EXPECT_TRUE(JSONUtil::retrieveArrayOfStringMapFromArray(doc, "empty", out));
    EXPECT_EQ(out.size(), 2u);

    LogCapture capture;
    EXPECT_FALSE(JSONUtil::retrieveArrayOfStringMapFromArray(doc, "missing", out));
    EXPECT_FALSE(JSONUtil::retrieveArrayOfStringMapFromArray(doc, "object", out));
    EXPECT_EQ(out.size(), 2u);
    EXPECT_FALSE(JSONUtil::retrieveArrayOfStringMapFromArray(doc, "mixed", out));
    EXPECT_TRUE(out.empty()) << "what the vector held before is cleared too";
    EXPECT_EQ(capture.texts(), (Lines{errorLine("reason, couldNotFindObject, key=missing"),
                                      errorLine("reason, NotAnArray, key=object"),
                                      errorLine("reason, NotAnObject, key=mixed")}));
}

}  // namespace
}  // namespace json
}  // namespace util
}  // namespace tracker

namespace tracker {
namespace util {
namespace json {
namespace {

TEST(JSONUtil, NestingIsRefusedBeyondItsLimitOnADeviceSizedStack) {
    onDeviceSizedStack([] {
        LogCapture capture;
        rapidjson::Document doc;
        // 20,000 brackets overflowed a 1 MiB stack, 300,000 an 8 MiB one.
        for (std::size_t depth : {20000u, 300000u}) {
            EXPECT_FALSE(JSONUtil::convertJsonStringToDocument(std::string(depth, '['), doc));
        }
        const std::string tooDeep = errorLine(
            "convertJsonStringToDocumentFailed, offset=512, error=Nesting deeper than 512.");
        EXPECT_EQ(capture.texts(), (Lines{tooDeep, tooDeep}));

        // At the limit a document parses, and writes back the same.
        const std::string deepest = std::string(JSONUtil::kMaxNestingDepth, '[') +
                                    std::string(JSONUtil::kMaxNestingDepth, ']');
        ASSERT_TRUE(JSONUtil::convertJsonStringToDocument(deepest, doc));
        std::string written;
        ASSERT_TRUE(JSONUtil::convertJSONObjectToString(doc, written));
        EXPECT_EQ(written, deepest);
    });
}

}  // namespace
}  // namespace json
}  // namespace util
}  // namespace tracker
