#include "detection/detection_loop.h"

#include <new>
#include <utility>

#include "common/log.h"
#include "common/result.h"
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

Reason askReason(const DetectionLoop &loop, Switch sw, const Where &where) {
    Reason reason(loop.check == nullptr ? Presence::Present : Presence::Unknown, "memory");
    if (loop.check != nullptr)
        guard(where, [&] { reason = loop.check(sw, where); });
    return reason;
}

// Says what is waited for: once, until it is no longer waited for.
class Waiting {
  public:
    explicit Waiting(const Where &where) : where_(where) {}

    void waitFor(const char *awaited) {
        if (!std::exchange(isWaiting_, true))
            logWarn(where_, "[%s:%d] waiting for %s; nothing is changed until then\n", awaited);
    }
    void end() { isWaiting_ = false; }

  private:
    Where where_;
    bool isWaiting_ = false;
};

// Whether cycles may begin.
bool begin(const DetectionLoop &loop, Switch sw, const Where &where) {
    bool done = loop.begin == nullptr;
    if (!done)
        guard(where, [&] { done = loop.begin(sw, where); });
    return done;
}

void repeatCycles(const DetectionLoop &loop, Switch sw, const Where &where) {
    Waiting waiting(where);
    bool hasBegun = begin(loop, sw, where);
    for (;;) {
        if (loop.pause == Pause::BeforeCycle)
            platform::sleepFor(loop.period);
        logDebug(where, loop.texts.lookingNow);
        const Reason reason = askReason(loop, sw, where);
        switch (reason.presence) {
            case Presence::Present:
                hasBegun = hasBegun || begin(loop, sw, where);
                if (hasBegun) {
                    waiting.end();
                    guard(where, [&] { loop.cycle(sw, where); });
                } else {
                    waiting.waitFor("the switch to show what it has from an earlier run");
                }
                break;
            case Presence::Unknown:
                logDebug(where, loop.texts.skipped);
                waiting.waitFor(reason.awaited);
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
    return askReason(loop, sw, where).presence;
}

std::int32_t checkCodeOf(Presence presence) {
    switch (presence) {
        case Presence::Present:
            return codeOf(ResultCode::Success);
        case Presence::Absent:
            return codeOf(ResultCode::ConfigInvalid);
        case Presence::Unknown:
            break;
    }
    return codeOf(ResultCode::Failed);
}

void runLoop(const DetectionLoop &loop, Switch sw, Where where) {
    logInfo(where, loop.texts.started);
    const Reason reason = askReason(loop, sw, where);
    if (reason.presence == Presence::Present)
        repeatCycles(loop, sw, where);
    else if (reason.presence == Presence::Unknown)
        Waiting(where).waitFor(reason.awaited);
    if (loop.end != nullptr)
        guard(where, [&] { loop.end(sw, where); });
}

}  // namespace pavo
