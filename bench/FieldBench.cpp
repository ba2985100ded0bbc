// The library's JSON writer and UUID generator beside what a user would otherwise reach for, in
// one run: JSONBuilder against a raw rapidjson Writer building the same metrics record, and
// UUID::randomUUID against libuuid's uuid_generate_random + uuid_unparse. Ends with a
// "<subject> / baseline" table (RatioReport.h).

#include <benchmark/benchmark.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <uuid/uuid.h>

#include <string>

#include "RatioReport.h"
#include "tracker/json/JSONBuilder.h"
#include "tracker/util/UUID.h"

namespace {

// A record as the service's metrics send them: a few strings and numbers, one nested object.
void jsonBuilder(benchmark::State& state) {
    for (auto _ : state) {
        tracker::util::json::JSONBuilder json;
        json.addMember("event", "BluetoothStartFailure");
        json.addMember("device", "G030JF0123456789");
        json.addMember("count", 3);
        json.addMember("uptimeMs", 123456789LL);
        json.startObject("scan");
        json.addMember("filters", 17);
        json.addMember("retries", 2);
        json.addMember("ratio", 0.25);
        json.finishObject();
        benchmark::DoNotOptimize(json.toString(true));
    }
}

void rapidjsonWriter(benchmark::State& state) {
    for (auto _ : state) {
        rapidjson::StringBuffer buffer;
        rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
        writer.StartObject();
        writer.Key("event");
        writer.String("BluetoothStartFailure");
        writer.Key("device");
        writer.String("G030JF0123456789");
        writer.Key("count");
        writer.Int(3);
        writer.Key("uptimeMs");
        writer.Int64(123456789LL);
        writer.Key("scan");
        writer.StartObject();
        writer.Key("filters");
        writer.Int(17);
        writer.Key("retries");
        writer.Int(2);
        writer.Key("ratio");
        writer.Double(0.25);
        writer.EndObject();
        writer.EndObject();
        benchmark::DoNotOptimize(std::string(buffer.GetString(), buffer.GetSize()));
    }
}

void randomUuid(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(tracker::util::UUID::randomUUID());
    }
}

void libuuid(benchmark::State& state) {
    for (auto _ : state) {
        uuid_t id;
        uuid_generate_random(id);
        char text[37];
        uuid_unparse_lower(id, text);
        benchmark::DoNotOptimize(std::string(text));
    }
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::RegisterBenchmark("JsonRecord/builder", jsonBuilder);
    benchmark::RegisterBenchmark("JsonRecord/baseline", rapidjsonWriter);
    benchmark::RegisterBenchmark("RandomUuid/uuid", randomUuid);
    benchmark::RegisterBenchmark("RandomUuid/baseline", libuuid);
    return tracker::bench::runWithRatios(argc, argv);
}
