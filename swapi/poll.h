// Waiting for the switch to show what it has accepted: one budget for all, 40 reads 100 ms apart on the
// program's clock, at most 4 seconds.
#ifndef PAVO_SWAPI_POLL_H
#define PAVO_SWAPI_POLL_H

#include <chrono>

#include "platform/clock.h"

namespace pavo {

inline constexpr int kPolls = 40;
inline constexpr platform::Duration kPollInterval = std::chrono::milliseconds(100);

enum class Poll { Again, Done, Stop };

// Asks `look` until it says Done or Stop, and answers what it said; Again when the budget is spent. Each
// Again is followed by its pause, so nothing is read after the last one.
template <class Look>
[[nodiscard]] Poll pollUntil(Look look) {
    for (int budget = kPolls; budget > 0; --budget) {
        if (const Poll answer = look(); answer != Poll::Again)
            return answer;
        platform::sleepFor(kPollInterval);
    }
    return Poll::Again;
}

}  // namespace pavo

#endif
