#include "detection/detection_loop.h"

#include <new>

#include "common/log.h"
#include "platform/clock.h"

namespace pavo {
namespace {

void runCycle(const DetectionLoop &loop, Switch sw, const Where &where) {
    try {
        loop.cycle(sw);
    } catch (const std::bad_alloc &) {
        logError(where, "[%s:%d] Could not allocate memory.\r\n");
    }
}

void repeatCycles(const DetectionLoop &loop, Switch sw, const Where &where) {
    for (;;) {
        if (loop.pause == Pause::BeforeCycle)
            platform::sleepFor(loop.period);
        logDebug(where, loop.texts.lookingNow);
        switch (loop.check != nullptr ? loop.check(sw) : Presence::Present) {
            case Presence::Present:
                runCycle(loop, sw, where);
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

void runLoop(const DetectionLoop &loop, Switch sw, Where where) {
    logInfo(where, loop.texts.started);
    if (loop.hasReason(sw)) {
        if (loop.begin != nullptr)
            loop.begin(sw);
        repeatCycles(loop, sw, where);
    }
    if (loop.end != nullptr)
        loop.end(sw);
}

}  // namespace pavo
