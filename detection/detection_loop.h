// The life of a detection thread, the same for all: it starts when there is a reason to, looks again and
// again, and ends when the reason is gone.
#ifndef PAVO_DETECTION_DETECTION_LOOP_H
#define PAVO_DETECTION_DETECTION_LOOP_H

#include <chrono>
#include <cstdint>
#include <source_location>

#include "common/log_format.h"
#include "swapi/switch.h"

namespace pavo {

// Log lines of a detection thread; any may be left out.
struct LoopTexts {
    LogFormat<> started{};     // INFO
    LogFormat<> lookingNow{};  // before the check of a cycle
    LogFormat<> skipped{};     // the check cannot tell: no cycle this time (and see Reason)
    LogFormat<> ended{};       // there is no reason any more; not said when there was none to start with
};

// Whether a cycle sleeps before or after its work.
enum class Pause { BeforeCycle, AfterCycle };

// What a check says. An Unknown comes with what it waits for, a string literal for the log, which says so
// once until the check can tell again.
struct Reason {
    Reason(Presence says, const char *waitsFor = "the switch") : presence(says), awaited(waitsFor) {}

    Presence presence;
    const char *awaited;
};

// What a thread does, apart from the loop around it. Steps run in the thread; a step's own log lines name
// `where`. A step that runs out of memory is given up (logged), a check then cannot tell.
struct DetectionLoop {
    LoopTexts texts;
    std::chrono::seconds period;
    Pause pause = Pause::BeforeCycle;

    // Whether there is a reason to look: Present runs the cycle, Absent ends the thread, Unknown skips the
    // cycle. Asked at the start, where only Present goes on, and before each cycle. Any thread may call it.
    // Null: there always is.
    Reason (*check)(Switch sw, const Where &where) = nullptr;
    // After the check at the start: takes over what the switch has from an earlier run. False when that could
    // not be read; it is called again then before the next cycle, and there is no cycle without it.
    bool (*begin)(Switch sw, const Where &where) = nullptr;
    void (*cycle)(Switch sw, const Where &where);
    void (*end)(Switch sw, const Where &where) = nullptr;  // on every way out, also without a reason to start
};

// What the check of a loop says now.
Presence checkReason(const DetectionLoop &loop, Switch sw, Where where = std::source_location::current());

// What the operations return that ask the same: 0, 17001 for Absent, 10000 for Unknown.
std::int32_t checkCodeOf(Presence presence);

// Runs the loop until it ends. Log lines name `where`.
void runLoop(const DetectionLoop &loop, Switch sw, Where where = std::source_location::current());

}  // namespace pavo

#endif
