#pragma once

namespace tracker {
namespace util {

// How well the system random generator is seeded, in bits, on the scale of the classic kernel
// entropy count (0 to 4096).
//
// Kernels from 5.18 on report a constant 256 as their entropy count once their generator is
// ready, and std::random_device::entropy() is capped at 32, so neither says whether the
// generator is seeded. The kernel does say it directly: getrandom() without blocking fails with
// EAGAIN until the generator is fully seeded. A ready generator counts as a full pool (4096);
// one that is not ready counts as 0. Only where getrandom() does not exist is the kernel's own
// count read.
double systemEntropyBits();

// What UUID reads: systemEntropyBits() unless a test replaced it.
double currentEntropyBits();

// Replaces the reading behind currentEntropyBits() (null restores systemEntropyBits), so that
// tests can play a system whose generator is not ready. Returns the previous source.
using EntropySource = double (*)();
EntropySource setEntropySource(EntropySource source);

}  // namespace util
}  // namespace tracker
