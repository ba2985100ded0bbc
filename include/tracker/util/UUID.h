#pragma once

#include <random>
#include <string>
#include <vector>

namespace tracker {
namespace util {

// The engine behind UUID: one byte per draw from the minimal-standard LCG.
using UuidEngine = std::independent_bits_engine<std::minstd_rand, 8, unsigned char>;

// Random version-4 UUIDs from one process-wide engine, reseeded from a pool of seed values.
//
// Until a reseed finds the system random generator fully seeded, every randomUUID() reseeds
// first, adding the time since the last reseed, the time, 32 bits from /dev/urandom and a stack
// address to the pool. The pool keeps its oldest 1024 values: once it is full, values added
// later (by reseeds or addSeeds) no longer change the seed.
//
// Thread-safety: every operation may be called from any thread; the pool, the engine and the
// seeding state are guarded by one mutex, so concurrent callers draw from one sequence.
class UUID {
  public:
    UUID() = delete;

    static constexpr std::size_t kMaxSeedPool = 1024;

    // 36 characters, "xxxxxxxx-xxxx-4xxx-[89ab]xxx-xxxxxxxxxxxx", lower case. Throws the standard
    // library's exception only if /dev/urandom cannot be opened.
    static std::string randomUUID();
    // Appends the first (at most 1024) values to the pool and makes the next randomUUID()
    // reseed.
    static void addSeeds(const std::vector<unsigned int>& seeds);
    // Reverses the bytes in place.
    static void reverseUUID(std::vector<unsigned char>& bytes);
};

// numDigits lower-case hex digits drawn from engine, whose leading numReplacementBits bits
// (at most 8, and no more than the digits hold) come from replacement; "" with an error line
// otherwise. Any number of digits is drawn.
std::string generateHexWithReplacement(UuidEngine& engine, unsigned int numDigits,
                                       unsigned char replacement, unsigned int numReplacementBits);

}  // namespace util
}  // namespace tracker
