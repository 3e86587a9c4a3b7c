// The life of a detection thread, the same for all: it starts when there is a reason to, looks again and
// again, and ends when the reason is gone.
#ifndef PAVO_DETECTION_DETECTION_LOOP_H
#define PAVO_DETECTION_DETECTION_LOOP_H

#include <chrono>
#include <source_location>

#include "common/log_format.h"
#include "swapi/switch.h"

namespace pavo {

// Log lines of a detection thread; any may be left out.
struct LoopTexts {
    LogFormat<> started{};     // INFO
    LogFormat<> lookingNow{};  // before the check of a cycle
    LogFormat<> skipped{};     // the check cannot tell: no cycle this time
    LogFormat<> ended{};       // there is no reason any more; not said when there was none to start with
};

// Whether a cycle sleeps before or after its work.
enum class Pause { BeforeCycle, AfterCycle };

// What a thread does, apart from the loop around it. Steps run in the thread; a step's own log lines name
// `where`. A step that runs out of memory is given up (logged), a check then cannot tell.
struct DetectionLoop {
    LoopTexts texts;
    std::chrono::seconds period;
    Pause pause = Pause::BeforeCycle;

    // Whether there is a reason to look: Present runs the cycle, Absent ends the thread, Unknown skips the
    // cycle. Asked at the start, where only Present goes on, and before each cycle. Any thread may call it.
    // Null: there always is.
    Presence (*check)(Switch sw, const Where &where) = nullptr;
    void (*begin)(Switch sw, const Where &where) = nullptr;  // after the check at the start
    void (*cycle)(Switch sw, const Where &where);
    void (*end)(Switch sw, const Where &where) = nullptr;  // on every way out, also without a reason to start
};

// What the check of a loop says now.
Presence checkReason(const DetectionLoop &loop, Switch sw, Where where = std::source_location::current());

// Runs the loop until it ends. Log lines name `where`.
void runLoop(const DetectionLoop &loop, Switch sw, Where where = std::source_location::current());

}  // namespace pavo

#endif
