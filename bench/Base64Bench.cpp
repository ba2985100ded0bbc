// Measures tracker::util::Base64 against OpenSSL's EVP_EncodeBlock / EVP_DecodeBlock on the same
// bytes, encoding and decoding 1 KiB and 64 KiB, and ends with a "base64 / baseline" table
// (RatioReport.h). The OpenSSL calls write into a buffer sized once, as a caller of that C
// interface would; ours fill a std::string.

#include <benchmark/benchmark.h>
#include <openssl/evp.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "RatioReport.h"
#include "tracker/util/Base64.h"

namespace {

using tracker::util::Base64;

std::string randomBytes(std::size_t size) {
    std::mt19937 generator(7);
    std::string bytes(size, '\0');
    for (char& byte : bytes) {
        byte = static_cast<char>(generator());
    }
    return bytes;
}

void encodeOurs(benchmark::State& state) {
    const std::string input = randomBytes(static_cast<std::size_t>(state.range(0)));
    std::string out;
    for (auto _ : state) {
        Base64::encode(input, &out);
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void encodeOpenSsl(benchmark::State& state) {
    const std::string input = randomBytes(static_cast<std::size_t>(state.range(0)));
    std::vector<unsigned char> out(input.size() / 3 * 4 + 5);
    for (auto _ : state) {
        EVP_EncodeBlock(out.data(), reinterpret_cast<const unsigned char*>(input.data()),
                        static_cast<int>(input.size()));
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void decodeOurs(benchmark::State& state) {
    std::string encoded;
    Base64::encode(randomBytes(static_cast<std::size_t>(state.range(0))), &encoded);
    std::string out;
    for (auto _ : state) {
        Base64::decode(encoded, &out);
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void decodeOpenSsl(benchmark::State& state) {
    std::string encoded;
    Base64::encode(randomBytes(static_cast<std::size_t>(state.range(0))), &encoded);
    std::vector<unsigned char> out(encoded.size() / 4 * 3 + 3);
    for (auto _ : state) {
        EVP_DecodeBlock(out.data(), reinterpret_cast<const unsigned char*>(encoded.data()),
                        static_cast<int>(encoded.size()));
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void registerBenchmarks() {
    for (const auto& [name, function] :
         {std::pair<const char*, void (*)(benchmark::State&)>{"Encode/base64", encodeOurs},
          {"Encode/baseline", encodeOpenSsl},
          {"Decode/base64", decodeOurs},
          {"Decode/baseline", decodeOpenSsl}}) {
        benchmark::RegisterBenchmark(name, function)->Arg(1024)->Arg(65536);
    }
}

}  // namespace

int main(int argc, char** argv) {
    registerBenchmarks();
    return tracker::bench::runWithRatios(argc, argv);
}
