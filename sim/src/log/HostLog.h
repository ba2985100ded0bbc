#pragma once

namespace tracker {
namespace sim {

struct LogLine;

// Writes the line to stderr in logcat's layout if its priority passes the threshold. LogCaptures
// do not see it: this is how other platform logs (the metrics log) print.
void printLine(const LogLine& line);

// The simulated platform log writes every line at or above this priority to stderr (every line
// reaches LogCaptures regardless). It starts from TRACKER_LOG_LEVEL, read at the first line.
int stderrThreshold();
void setStderrThreshold(int priority);

// The priority of a level name's first letter, either case (V, D, I, W, E, F; S for silent),
// I otherwise.
int priorityFromLevelName(const char* name);
// The priority's logcat letter: V, D, I, W, E, F; '?' for anything else.
char priorityLetter(int priority);

}  // namespace sim
}  // namespace tracker
