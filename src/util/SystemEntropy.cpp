#include "SystemEntropy.h"

#include <sys/random.h>

#include <cerrno>
#include <fstream>

namespace tracker {
namespace util {

namespace {
constexpr double kFullySeeded = 4096.0;
}

double systemEntropyBits() {
    unsigned char probe = 0;
    if (getrandom(&probe, sizeof probe, GRND_NONBLOCK) == sizeof probe) {
        return kFullySeeded;
    }
    if (errno != ENOSYS) {
        return 0.0;
    }
    double count = 0.0;
    std::ifstream file("/proc/sys/kernel/random/entropy_avail");
    file >> count;
    return file ? count : 0.0;
}

}  // namespace util
}  // namespace tracker
