// The builder fed names, values and raw JSON that come from outside (back-end answers passed on,
// device names), in any order of calls. While the calls nest as the builder's callers must and
// none fails, the result must be JSON, byte for byte what rapidjson's own Writer makes of the
// same calls.

#include <fuzzer/FuzzedDataProvider.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "tracker/json/JSONBuilder.h"

using tracker::util::json::JSONBuilder;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    FuzzedDataProvider input(data, size);
    JSONBuilder builder;
    // The open levels as the harness sees them ('{' or '['), the root first; empty once the
    // root is closed.
    std::vector<char> open{'{'};
    bool wellFormed = true;
    // rapidjson's Writer, given the same calls while they are well formed.
    rapidjson::StringBuffer mirrorText;
    rapidjson::Writer<rapidjson::StringBuffer> mirror(mirrorText);
    mirror.StartObject();
    const auto key = [&mirror](const std::string& name) {
        mirror.Key(name.data(), static_cast<rapidjson::SizeType>(name.size()));
    };

    while (input.remaining_bytes() > 0) {
        const int call = input.ConsumeIntegralInRange(0, 10);
        const bool finalized = open.empty();
        const bool inArray = !finalized && open.back() == '[';
        // What a named call does to the nesting, and what a close expects.
        char opens = 0;
        char closes = 0;
        bool named = true;
        bool ok = false;
        std::function<void()> mirrored;
        if (call == 5) {
            // Outside an array, refused with nothing written; then the caller's mistake is
            // harmless.
            if (builder.startArrayElement()) {
                if (!inArray) {
                    __builtin_trap();
                }
                open.push_back('{');
                if (wellFormed) {
                    mirror.StartObject();
                }
            } else if (inArray && !finalized) {
                wellFormed = false;
            }
            continue;
        }
        if (call == 3 || call == 4 || call == 6) {
            named = false;
            closes = call == 4 ? '[' : '{';
            ok = call == 3   ? builder.finishObject()
                 : call == 4 ? builder.finishArray()
                             : builder.finishArrayElement();
            mirrored = [&mirror, call] { call == 4 ? mirror.EndArray() : mirror.EndObject(); };
        } else {
            const std::string name = input.ConsumeRandomLengthString(16);
            switch (call) {
                case 0:
                case 1: {
                    const std::string json = input.ConsumeRandomLengthString();
                    ok = builder.addRawJsonMember(name, json, call == 0);
                    mirrored = [&, name, json] {
                        key(name);
                        mirror.RawValue(json.data(), json.size(), rapidjson::kObjectType);
                    };
                    // Unchecked text is the caller's responsibility.
                    wellFormed = wellFormed && call == 0;
                    break;
                }
                case 2:
                    ok = builder.startObject(name);
                    opens = '{';
                    mirrored = [&, name] {
                        key(name);
                        mirror.StartObject();
                    };
                    break;
                case 7: {
                    const std::string value = input.ConsumeRandomLengthString(16);
                    ok = builder.addMember(name, value);
                    mirrored = [&, name, value] {
                        key(name);
                        mirror.String(value.data(), static_cast<rapidjson::SizeType>(value.size()));
                    };
                    break;
                }
                case 8: {
                    const long long value = input.ConsumeIntegral<long long>();
                    ok = builder.addMember(name, value);
                    mirrored = [&, name, value] {
                        key(name);
                        mirror.Int64(value);
                    };
                    break;
                }
                case 9: {
                    // Any bit pattern: NaN and the infinities too.
                    const uint64_t bits = input.ConsumeIntegral<uint64_t>();
                    double value = 0;
                    std::memcpy(&value, &bits, sizeof value);
                    ok = builder.addMember(name, value);
                    mirrored = [&, name, value] {
                        key(name);
                        mirror.Double(value);
                    };
                    break;
                }
                default:
                    ok = builder.startArray(name);
                    opens = '[';
                    mirrored = [&, name] {
                        key(name);
                        mirror.StartArray();
                    };
                    break;
            }
        }
        if (finalized) {
            // A finalized builder refuses everything and writes nothing.
            if (ok) {
                __builtin_trap();
            }
            continue;
        }
        if (!ok || (named && inArray) || (closes != 0 && closes != open.back())) {
            wellFormed = false;
        }
        if (wellFormed) {
            mirrored();
        }
        if (ok && opens != 0) {
            open.push_back(opens);
        } else if (ok && closes != 0) {
            open.pop_back();
        }
    }

    // toString(true) closes an open array with "}" as well: the caller's to close it first.
    const bool arrayLeftOpen = std::find(open.begin(), open.end(), '[') != open.end();
    const std::string text = builder.toString(true);
    if (wellFormed && !arrayLeftOpen) {
        rapidjson::Document document;
        document.Parse<rapidjson::kParseIterativeFlag>(text.data(), text.size());
        if (document.HasParseError() || !document.IsObject()) {
            __builtin_trap();
        }
        for (std::size_t level = 0; level < open.size(); ++level) {
            mirror.EndObject();
        }
        if (text != std::string(mirrorText.GetString(), mirrorText.GetSize())) {
            __builtin_trap();
        }
    }
    return 0;
}
