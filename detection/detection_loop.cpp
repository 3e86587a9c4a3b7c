#include "detection/detection_loop.h"

#include <new>

#include "common/log.h"
#include "platform/clock.h"

namespace pavo {
namespace {

// False when the step ran out of memory.
template <class Step>
bool guard(const Where &where, Step step) {
    try {
        step();
        return true;
    } catch (const std::bad_alloc &) {
        logError(where, "[%s:%d] Could not allocate memory.\r\n");
        return false;
    }
}

void repeatCycles(const DetectionLoop &loop, Switch sw, const Where &where) {
    for (;;) {
        if (loop.pause == Pause::BeforeCycle)
            platform::sleepFor(loop.period);
        logDebug(where, loop.texts.lookingNow);
        switch (checkReason(loop, sw, where)) {
            case Presence::Present:
                guard(where, [&] { loop.cycle(sw, where); });
                break;
            case Presence::Unknown:
                logDebug(where, loop.texts.skipped);
                break;
            case Presence::Absent:
                logDebug(where, loop.texts.ended);
                return;
        }
        if (loop.pause == Pause::AfterCycle)
            platform::sleepFor(loop.period);
    }
}

}  // namespace

Presence checkReason(const DetectionLoop &loop, Switch sw, Where where) {
    Presence reason = loop.check == nullptr ? Presence::Present : Presence::Unknown;
    if (loop.check != nullptr)
        guard(where, [&] { reason = loop.check(sw, where); });
    return reason;
}

void runLoop(const DetectionLoop &loop, Switch sw, Where where) {
    logInfo(where, loop.texts.started);
    if (checkReason(loop, sw, where) == Presence::Present) {
        if (loop.begin != nullptr)
            guard(where, [&] { loop.begin(sw, where); });
        repeatCycles(loop, sw, where);
    }
    if (loop.end != nullptr)
        guard(where, [&] { loop.end(sw, where); });
}

}  // namespace pavo
