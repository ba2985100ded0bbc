#include "VirtualTime.h"

#include <dirent.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <thread>

#include "bluetooth/World.h"

namespace tracker {
namespace trackersim {

namespace {

// Longer than a manual clock's waits take to look at the time again, so a wait whose deadline a
// step passed has noticed before the threads are looked at.
constexpr std::chrono::microseconds kPollSpan{1200};
// Work is handed from thread to thread (platform thread, manager executor, client): a second look
// a little later catches a hand-over the first look fell between.
constexpr std::chrono::microseconds kSecondLook{300};
// A run that cannot come to rest (a client that spins) still moves on.
constexpr std::chrono::seconds kRestLimit{10};

// Whether every thread of the process other than the caller is asleep or blocked.
bool othersAsleep() {
    const long self = syscall(SYS_gettid);
    DIR* tasks = opendir("/proc/self/task");
    if (tasks == nullptr) {
        return true;
    }
    bool asleep = true;
    while (const dirent* entry = readdir(tasks)) {
        if (entry->d_name[0] == '.' || std::atol(entry->d_name) == self) {
            continue;
        }
        const std::string path = std::string("/proc/self/task/") + entry->d_name + "/stat";
        std::FILE* file = std::fopen(path.c_str(), "r");
        if (file == nullptr) {
            continue;  // the thread has just ended
        }
        char line[512];
        const std::size_t length = std::fread(line, 1, sizeof line - 1, file);
        std::fclose(file);
        line[length] = '\0';
        // The state follows the command name in parentheses, which may itself hold ") ".
        const char* close = std::strrchr(line, ')');
        if (close != nullptr && close[1] == ' ' && close[2] == 'R') {
            asleep = false;
            break;
        }
    }
    closedir(tasks);
    return asleep;
}

}  // namespace

VirtualTime::VirtualTime(sim::World& world)
    : m_world(world),
      m_clock(std::make_shared<util::ManualClock>(util::ManualClock::SleepMode::Block)),
      m_start(m_clock->now()) {
    util::Clock::install(m_clock);
}

std::chrono::milliseconds VirtualTime::now() const {
    return std::chrono::duration_cast<std::chrono::milliseconds>(m_clock->now() - m_start);
}

std::optional<std::chrono::milliseconds> VirtualTime::nextWake() const {
    const std::optional<util::Clock::TimePoint> next = m_clock->nextDeadlineAfter(m_clock->now());
    if (!next) {
        return std::nullopt;
    }
    return std::chrono::ceil<std::chrono::milliseconds>(*next - m_start);
}

void VirtualTime::step(std::chrono::milliseconds duration) {
    m_clock->advance(duration);
    settle();
}

void VirtualTime::settle() {
    const auto limit = std::chrono::steady_clock::now() + kRestLimit;
    while (std::chrono::steady_clock::now() < limit) {
        m_world.barrier(std::chrono::duration_cast<std::chrono::milliseconds>(kRestLimit));
        std::this_thread::sleep_for(kPollSpan);
        if (!othersAsleep()) {
            continue;
        }
        std::this_thread::sleep_for(kSecondLook);
        if (othersAsleep()) {
            return;
        }
    }
    // Something keeps running (a connector that spins, say): the run goes on, stamped as best
    // it can be, and says so once.
    static bool warned = false;
    if (!warned) {
        warned = true;
        std::fprintf(stderr,
                     "tracker-sim: warning: the process did not come to rest within %d s "
                     "of real time; the timeline may not repeat exactly\n",
                     static_cast<int>(kRestLimit.count()));
    }
}

}  // namespace trackersim
}  // namespace tracker
