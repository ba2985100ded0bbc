// The simulated platform log: logcat-style lines on stderr, filtered by TRACKER_LOG_LEVEL
// (V, D, I, W, E, F or S for silent; default I), and handed unfiltered to every LogCapture.

#include <android/log.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <mutex>
#include <vector>

#include "log/HostLog.h"
#include "log/LogCapture.h"

namespace tracker {
namespace sim {

namespace {

// Logcat letters of the priorities VERBOSE (2) to FATAL (7).
constexpr char kPriorityLetters[] = "VDIWEF";
constexpr int kLetterCount = sizeof kPriorityLetters - 1;

std::atomic<int>& threshold() {
    static std::atomic<int> value{priorityFromLevelName(std::getenv("TRACKER_LOG_LEVEL"))};
    return value;
}

}  // namespace

// "MM-DD HH:MM:SS.mmm  PID  TID L tag: message\n", written with one call so that lines from
// different threads never interleave.
void printLine(const LogLine& line) {
    if (line.priority < stderrThreshold()) {
        return;
    }
    const auto now = std::chrono::system_clock::now();
    const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    const long millis = static_cast<long>(
        std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() %
        1000);
    std::tm local{};
    localtime_r(&seconds, &local);
    char stamp[32];
    std::strftime(stamp, sizeof stamp, "%m-%d %H:%M:%S", &local);
    char head[96];
    std::snprintf(head, sizeof head, "%s.%03ld %5d %5ld %c ", stamp, millis,
                  static_cast<int>(getpid()), static_cast<long>(syscall(SYS_gettid)),
                  priorityLetter(line.priority));
    std::string text = head;
    text += line.tag;
    text += ": ";
    text += line.message;
    text += '\n';
    std::fwrite(text.data(), 1, text.size(), stderr);
}

namespace {

// Stderr shows it, or a test captures it.
bool loggable(int priority) {
    return priority >= stderrThreshold() || Capture<LogLine>::anyLive();
}

__attribute__((format(printf, 3, 0))) int writeLine(int priority, const char* tag,
                                                    const char* format, va_list args) {
    if (!loggable(priority)) {
        return -EPERM;
    }
    LogLine line{priority, tag != nullptr ? tag : "", {}};
    if (format == nullptr) {
        return -1;
    }
    va_list measure;
    va_copy(measure, args);
    char small[512];
    const int length = std::vsnprintf(small, sizeof small, format, measure);
    va_end(measure);
    if (length < 0) {
        return -1;
    }
    if (static_cast<size_t>(length) < sizeof small) {
        line.message.assign(small, static_cast<size_t>(length));
    } else {
        line.message.resize(static_cast<size_t>(length));
        std::vsnprintf(&line.message[0], line.message.size() + 1, format, args);
    }

    printLine(line);
    Capture<LogLine>::publish(line);
    return length;
}

}  // namespace

int priorityFromLevelName(const char* name) {
    const char letter = name != nullptr
                            ? static_cast<char>(std::toupper(static_cast<unsigned char>(name[0])))
                            : '\0';
    const char* end = kPriorityLetters + kLetterCount;
    const char* found = std::find(kPriorityLetters, end, letter);
    if (letter != '\0' && found != end) {
        return ANDROID_LOG_VERBOSE + static_cast<int>(found - kPriorityLetters);
    }
    return letter == 'S' ? ANDROID_LOG_SILENT : ANDROID_LOG_INFO;
}

int stderrThreshold() {
    return threshold().load();
}

void setStderrThreshold(int priority) {
    threshold().store(priority);
}

char priorityLetter(int priority) {
    return priority >= ANDROID_LOG_VERBOSE && priority < ANDROID_LOG_VERBOSE + kLetterCount
               ? kPriorityLetters[priority - ANDROID_LOG_VERBOSE]
               : '?';
}

std::string LogLine::text() const {
    std::string result(1, priorityLetter(priority));
    result += ' ';
    result += tag;
    result += ": ";
    result += message;
    return result;
}

std::vector<std::string> LogCapture::texts() const {
    std::vector<std::string> result;
    for (const LogLine& line : entries()) {
        result.push_back(line.text());
    }
    return result;
}

bool LogCapture::contains(const std::string& text) const {
    const std::vector<std::string> all = texts();
    return std::find(all.begin(), all.end(), text) != all.end();
}

bool LogCapture::waitFor(const std::string& text, std::chrono::milliseconds limit) const {
    return Capture<LogLine>::waitFor([&](const LogLine& line) { return line.text() == text; },
                                     limit);
}

}  // namespace sim
}  // namespace tracker

extern "C" int __android_log_vprint(int prio, const char* tag, const char* fmt, va_list ap) {
    return tracker::sim::writeLine(prio, tag, fmt, ap);
}

extern "C" int __android_log_is_loggable(int prio, const char* /*tag*/, int /*default_prio*/) {
    return tracker::sim::loggable(prio) ? 1 : 0;
}

extern "C" int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    const int result = tracker::sim::writeLine(prio, tag, fmt, args);
    va_end(args);
    return result;
}
