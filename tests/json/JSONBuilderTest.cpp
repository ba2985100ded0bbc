#include "tracker/json/JSONBuilder.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "log/LogCapture.h"

namespace tracker {
namespace util {
namespace json {
namespace {

using sim::LogCapture;
using Lines = std::vector<std::string>;

TEST(JSONBuilder, BuildsNestedLevelsAndEveryValueKind) {
    JSONBuilder empty;
    EXPECT_EQ(empty.toString(false), "{");
    EXPECT_EQ(empty.toString(true), "{}");

    JSONBuilder builder;
    EXPECT_TRUE(builder.startObject("a"));
    EXPECT_TRUE(builder.addMember("b", 1));
    EXPECT_TRUE(builder.finishObject());
    EXPECT_TRUE(builder.startArray("l"));
    EXPECT_TRUE(builder.startArrayElement());
    EXPECT_TRUE(builder.addMember("x", true));
    EXPECT_TRUE(builder.finishArrayElement());
    EXPECT_TRUE(builder.finishArray());
    EXPECT_TRUE(builder.addMember("s", std::string("q\"\\\n\x01\0z", 7)));
    EXPECT_TRUE(builder.addMember("c", "plain"));
    EXPECT_TRUE(builder.addMember("u64", std::numeric_limits<unsigned long long>::max()));
    EXPECT_TRUE(builder.addMember("u32", std::numeric_limits<unsigned int>::max()));
    EXPECT_TRUE(builder.addMember("i64", std::numeric_limits<long long>::min()));
    EXPECT_TRUE(builder.addMember("i32", -7));
    EXPECT_TRUE(builder.addMember("d", 0.1));
    EXPECT_TRUE(builder.addMember("whole", 2.0));
    EXPECT_TRUE(builder.addMember("na\"me", false));
    EXPECT_EQ(builder.toString(true),
              R"({"a":{"b":1},"l":[{"x":true}],"s":"q\"\\\n\u0001\u0000z","c":"plain",)"
              R"("u64":18446744073709551615,"u32":4294967295,"i64":-9223372036854775808,)"
              R"("i32":-7,"d":0.1,"whole":2.0,"na\"me":false})");
}

// Names and values are escaped as rapidjson's Writer escapes them, whatever the length of the
// text and wherever in it the character that needs escaping sits.
TEST(JSONBuilder, EscapesNamesAndValuesAsRapidjsonDoes) {
    for (const char special : {'"', '\\', '\n', '\x01', '\x1f', '/', '\x7f', '\xc3'}) {
        for (std::size_t length = 0; length <= 20; ++length) {
            for (std::size_t at = 0; at <= length; ++at) {
                std::string text(length, 'x');
                if (at < length) {
                    text[at] = special;
                }
                JSONBuilder builder;
                ASSERT_TRUE(builder.addMember(text, text));
                ASSERT_TRUE(builder.addMember("c", text.c_str()));
                rapidjson::StringBuffer buffer;
                rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
                writer.StartObject();
                writer.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
                writer.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
                writer.Key("c");
                writer.String(text.c_str());
                writer.EndObject();
                ASSERT_EQ(builder.toString(true), buffer.GetString())
                    << "length " << length << ", special at " << at;
            }
        }
    }
}

TEST(JSONBuilder, RefusesEveryWriteOnceFinalized) {
    LogCapture capture;
    JSONBuilder builder;
    EXPECT_TRUE(builder.checkWriter());
    EXPECT_FALSE(builder.isFinalized());
    EXPECT_EQ(builder.toString(true), "{}");
    EXPECT_FALSE(builder.addMember("b", 2));
    EXPECT_FALSE(builder.addRawJsonMember("b", "[]", true));
    EXPECT_FALSE(builder.startObject("b"));
    EXPECT_FALSE(builder.startArray("b"));
    EXPECT_FALSE(builder.startArrayElement());
    EXPECT_FALSE(builder.finishObject());
    EXPECT_FALSE(builder.finishArray());
    EXPECT_FALSE(builder.checkWriter());
    EXPECT_TRUE(builder.isFinalized());
    EXPECT_TRUE(builder.finalize());
    EXPECT_EQ(builder.toString(true), "{}");
    EXPECT_EQ(capture.texts(),
              Lines(9, "E TrackerD-JSONBuilder: addMemberFailed,reason=finalizedGenerator"));
}

TEST(JSONBuilder, FinalizeClosesEveryOpenLevelWithABrace) {
    JSONBuilder objects;
    objects.startObject("a");
    objects.startObject("b");
    EXPECT_EQ(objects.toString(false), R"({"a":{"b":{)");
    EXPECT_EQ(objects.toString(true), R"({"a":{"b":{}}})");

    // An open array gets "}" too, which is not JSON: callers close their arrays themselves.
    JSONBuilder array;
    array.startArray("l");
    array.startArrayElement();
    EXPECT_TRUE(array.finalize());
    EXPECT_EQ(array.toString(false), R"({"l":[{}}})");
}

TEST(JSONBuilder, RawTextIsCheckedOnlyWhenAskedAndBadValuesAreRefused) {
    LogCapture capture;
    JSONBuilder builder;
    EXPECT_TRUE(builder.addRawJsonMember("ok", R"({ "x": [1, 2] })", true));
    EXPECT_FALSE(builder.addRawJsonMember("r", "{bad", true));
    EXPECT_TRUE(builder.addRawJsonMember("u", "{bad", false));
    EXPECT_FALSE(builder.addMember("p", static_cast<const char*>(nullptr)));
    EXPECT_EQ(builder.toString(false), R"({"ok":{ "x": [1, 2] },"u":{bad)");
    EXPECT_EQ(capture.texts(),
              (Lines{"E TrackerD-JSONUtil: convertJsonStringToDocumentFailed, offset=1, "
                     "error=Missing a name for object member.",
                     "E TrackerD-JSONBuilder: addRawJsonMemberFailed,reason=invalidJson"}));

    // Text the parser would read only in part is refused whole: a NUL ends a document there, a
    // leading byte-order mark is skipped, yet the builder would copy every byte.
    capture.clear();
    EXPECT_FALSE(builder.addRawJsonMember("z", std::string("1\0x", 3), true));
    EXPECT_FALSE(builder.addRawJsonMember("m", "\xEF\xBB\xBF{}", true));
    EXPECT_FALSE(builder.addRawJsonMember("m",
                                          "\xBF"
                                          "1",
                                          true));
    EXPECT_EQ(builder.toString(false), R"({"ok":{ "x": [1, 2] },"u":{bad)");
    EXPECT_EQ(capture.texts().size(), 3u);
    capture.clear();

    // A non-finite number fails after its name was written: such a builder is to be dropped.
    JSONBuilder spoilt;
    EXPECT_FALSE(spoilt.addMember("n", std::nan("")));
    EXPECT_FALSE(spoilt.addMember("i", std::numeric_limits<double>::infinity()));
    EXPECT_EQ(spoilt.toString(false), R"({"n":,"i":)");
    EXPECT_TRUE(capture.texts().empty());
}

TEST(JSONBuilder, AnArrayElementOutsideAnArrayIsRefusedWithoutEndingTheProcess) {
    // rapidjson asserts on a nameless value in an object; the sanitizer builds keep its asserts.
    LogCapture capture;
    JSONBuilder builder;
    EXPECT_FALSE(builder.startArrayElement());
    EXPECT_TRUE(builder.startObject("o"));
    EXPECT_FALSE(builder.startArrayElement());
    EXPECT_TRUE(builder.startArray("l"));
    EXPECT_TRUE(builder.startArrayElement());
    EXPECT_FALSE(builder.startArrayElement());  // directly inside that element, an object
    EXPECT_TRUE(builder.finishArrayElement());
    EXPECT_TRUE(builder.finishArray());
    EXPECT_EQ(builder.toString(true), R"({"o":{"l":[{}]}})");
    EXPECT_EQ(capture.texts(),
              Lines(3, "E TrackerD-JSONBuilder: startArrayElementFailed,reason=notInArray"));
}

}  // namespace
}  // namespace json
}  // namespace util
}  // namespace tracker
