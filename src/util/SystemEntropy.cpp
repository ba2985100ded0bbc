#include "SystemEntropy.h"

#include <atomic>
#include <cerrno>
#include <fstream>

#if !defined(__ANDROID__) || __ANDROID_API__ >= 28
#include <sys/random.h>
#define TRACKER_HAVE_GETRANDOM 1
#endif

namespace tracker {
namespace util {

namespace {

constexpr double kFullySeeded = 4096.0;

std::atomic<EntropySource> g_source{&systemEntropyBits};

double kernelEntropyCount() {
    double count = 0.0;
    std::ifstream file("/proc/sys/kernel/random/entropy_avail");
    file >> count;
    return file ? count : 0.0;
}

}  // namespace

double systemEntropyBits() {
#ifdef TRACKER_HAVE_GETRANDOM
    unsigned char probe = 0;
    ssize_t result = 0;
    do {
        result = getrandom(&probe, sizeof probe, GRND_NONBLOCK);
    } while (result < 0 && errno == EINTR);
    if (result == sizeof probe) {
        return kFullySeeded;
    }
    if (errno != ENOSYS) {
        return 0.0;
    }
#endif
    return kernelEntropyCount();
}

double currentEntropyBits() {
    return g_source.load()();
}

EntropySource setEntropySource(EntropySource source) {
    return g_source.exchange(source != nullptr ? source : &systemEntropyBits);
}

}  // namespace util
}  // namespace tracker
