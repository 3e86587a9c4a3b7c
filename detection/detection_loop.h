// The life of a detection thread, the same for all: it starts when there is a reason to, looks again and
// again, and ends when the reason is gone.
#ifndef PAVO_DETECTION_DETECTION_LOOP_H
#define PAVO_DETECTION_DETECTION_LOOP_H

#include <chrono>
#include <source_location>

#include "common/log_format.h"
#include "swapi/switch.h"

namespace pavo {

// What a thread says of itself; what is left out is not said.
struct LoopTexts {
    LogFormat<> started;       // INFO
    LogFormat<> lookingNow{};  // before the check of a cycle
    LogFormat<> skipped{};     // the check cannot tell: no cycle this time
    LogFormat<> ended{};       // there is no reason any more; not said when there was none to start with
};

// Where the pause of a cycle is.
enum class Pause { BeforeCycle, AfterCycle };

// What a thread does, apart from the loop around it. Steps run in the thread.
struct DetectionLoop {
    LoopTexts texts;
    std::chrono::seconds period;
    Pause pause = Pause::BeforeCycle;

    // Whether there is a reason to look: Present runs the cycle, Absent ends the thread, Unknown skips the
    // cycle. Asked at the start, where only Present goes on, and before each cycle. Any thread may call it.
    // Null: there always is.
    Presence (*check)(Switch sw) = nullptr;
    void (*begin)(Switch sw) = nullptr;  // after the check at the start
    void (*cycle)(Switch sw);
    void (*end)(Switch sw) = nullptr;  // on every way out, also when there was no reason to start

    bool hasReason(Switch sw) const { return check == nullptr || check(sw) == Presence::Present; }
};

// Runs the loop until it ends. Log lines name `where`. A cycle that runs out of memory is given up (logged).
void runLoop(const DetectionLoop &loop, Switch sw, Where where = std::source_location::current());

}  // namespace pavo

#endif
