// The clock of the tests: time stands still until a test moves it.
//
// A thread in platform::sleepFor is a sleeper; it wakes exactly when the time reaches its deadline. With
// several sleepers a test proceeds in rounds: awaitSleepers until all threads of interest sleep, then
// advance. With auto-advance on, a sleep moves the time itself and returns at once: for code under test that
// runs on the test's own thread.
#ifndef PAVO_PLATFORM_MANUAL_CLOCK_H
#define PAVO_PLATFORM_MANUAL_CLOCK_H

#include <cstddef>

#include "platform/clock.h"

namespace platform::manual_clock {

// Resets the time to zero (2026-01-01 00:00:00 UTC by wallNow) and turns auto-advance off. No thread may be
// sleeping.
void reset();

void setAutoAdvance(bool on);

// Whether systemUptime() tells anything, which it does after reset().
void setUptimeKnown(bool known);

// Moves the time forward by `time`, stopping at every deadline on the way so that each sleeper wakes at its
// own time. Returns when the last sleeper due has left its sleep; what that thread does next is not waited
// for.
void advance(Duration time);

// Waits until at least `count` threads sleep; false if that does not happen within 20 s of real time.
bool awaitSleepers(std::size_t count);

// Number of threads sleeping now.
std::size_t sleepers();

// Total time spent in sleepFor since reset, over all threads.
Duration totalSlept();

}  // namespace platform::manual_clock

#endif
