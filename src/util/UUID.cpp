#include "tracker/util/UUID.h"

#include <algorithm>
#include <chrono>
#include <cstdint>

#include "SystemEntropy.h"
#include "tracker/util/Log.h"
#include "tracker/util/Mutex.h"
#include "tracker/util/StringUtils.h"

namespace tracker {
namespace util {

namespace {

const Log& kLog = *new Log("UUID");

constexpr const char* kRandomDeviceToken = "/dev/urandom";
constexpr double kMinimumEntropy = 600.0;
constexpr unsigned int kMaxReplacementBits = 8;
// Far beyond any UUID group; keeps a caller's mistake from allocating gigabytes.
constexpr const char* kSeparator = "-";

// Process-wide seeding state. The engine is used only under seedMutex too.
struct SeedState {
    Mutex seedMutex;
    std::vector<std::uint32_t> seedPool TRACKER_GUARDED_BY(seedMutex);  // oldest first
    bool seeded TRACKER_GUARDED_BY(seedMutex) = false;
    // Steady-clock nanoseconds of the last reseed; 0 before the first.
    std::int64_t lastSeedTime TRACKER_GUARDED_BY(seedMutex) = 0;
};

SeedState& seedState() {
    static SeedState state;
    return state;
}

UuidEngine& engine() {
    static UuidEngine instance;
    return instance;
}

void reseedLocked(SeedState& state) TRACKER_REQUIRES(state.seedMutex) {
    std::random_device device(kRandomDeviceToken);
    const std::int64_t now = std::chrono::duration_cast<std::chrono::nanoseconds>(
                                 std::chrono::steady_clock::now().time_since_epoch())
                                 .count();
    if (state.lastSeedTime != 0) {
        state.seedPool.push_back(static_cast<std::uint32_t>(now - state.lastSeedTime));
    }
    state.lastSeedTime = now;
    state.seedPool.push_back(static_cast<std::uint32_t>(now));
    state.seedPool.push_back(device());
    volatile unsigned char stackBuffer[1] = {0};
    state.seedPool.push_back(
        static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(&stackBuffer[0])));
    // Keeps the oldest values: the ones just added are the ones cut.
    if (state.seedPool.size() > UUID::kMaxSeedPool) {
        state.seedPool.resize(UUID::kMaxSeedPool);
    }
    std::seed_seq sequence(state.seedPool.begin(), state.seedPool.end());
    engine().seed(sequence);

    const double entropy = currentEntropyBits();
    if (entropy > kMinimumEntropy) {
        state.seeded = true;
    } else {
        kLog.w("low entropy on call to generate UUID, currentEntropy=%f", entropy);
    }
}

}  // namespace

std::string generateHexWithReplacement(UuidEngine& engine, unsigned int numDigits,
                                       unsigned char replacement, unsigned int numReplacementBits) {
    if (numReplacementBits > kMaxReplacementBits) {
        kLog.e(
            "generateHexWithReplacementFailed, numReplacementBitsLimit=%u, numReplacementBits=%u",
            kMaxReplacementBits, numReplacementBits);
        return {};
    }
    // In 64 bits: four times a count near 2^32 digits must not wrap round.
    const uint64_t digitBits = static_cast<uint64_t>(numDigits) * 4;
    if (digitBits < numReplacementBits) {
        kLog.e("generateHexWithReplacementFailed, numDigitsInBits=%llu, numReplacementBits=%u",
               static_cast<unsigned long long>(digitBits), numReplacementBits);
        return {};
    }
    std::vector<unsigned char> bytes((static_cast<std::size_t>(numDigits) + 1) / 2);
    for (unsigned char& byte : bytes) {
        byte = engine();
    }
    if (!bytes.empty()) {
        const unsigned int keptMask = 0xFFu >> numReplacementBits;
        bytes[0] = static_cast<unsigned char>((bytes[0] & keptMask) | (replacement & ~keptMask));
    }
    std::string digits = StringUtils::bytesToHexString(bytes);
    digits.resize(numDigits);
    return digits;
}

std::string UUID::randomUUID() {
    SeedState& state = seedState();
    MutexLock lock(state.seedMutex);
    if (!state.seeded) {
        reseedLocked(state);
    }
    UuidEngine& source = engine();
    std::string uuid;
    uuid.reserve(36);
    uuid += generateHexWithReplacement(source, 8, 0, 0);
    uuid += kSeparator;
    uuid += generateHexWithReplacement(source, 4, 0, 0);
    uuid += kSeparator;
    uuid += generateHexWithReplacement(source, 4, 0x40, 4);
    uuid += kSeparator;
    uuid += generateHexWithReplacement(source, 4, 0x80, 2);
    uuid += kSeparator;
    uuid += generateHexWithReplacement(source, 12, 0, 0);
    return uuid;
}

void UUID::addSeeds(const std::vector<unsigned int>& seeds) {
    SeedState& state = seedState();
    MutexLock lock(state.seedMutex);
    const std::size_t count = std::min(seeds.size(), kMaxSeedPool);
    state.seedPool.insert(state.seedPool.end(), seeds.begin(), seeds.begin() + count);
    state.seeded = false;
}

void UUID::reverseUUID(std::vector<unsigned char>& bytes) {
    std::reverse(bytes.begin(), bytes.end());
}

}  // namespace util
}  // namespace tracker
