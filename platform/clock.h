// The one clock of the program: every sleep and every reading of time goes through it.
//
// Three clocks can be linked: the real one; the scaled one (virtual switch builds), which runs
// PAVO_CLOCK_SCALE times as fast; and the manual one (tests, see platform/manual_clock.h), where time moves
// only when told to. All functions may be called from any thread.
#ifndef PAVO_PLATFORM_CLOCK_H
#define PAVO_PLATFORM_CLOCK_H

#include <chrono>
#include <ctime>
#include <optional>

namespace platform {

using Duration = std::chrono::microseconds;

// Blocks the calling thread for `time`.
void sleepFor(Duration time);

// Time since an arbitrary origin; never goes back.
Duration monotonicNow();

// Time of day, seconds and nanoseconds since 1970-01-01 UTC.
std::timespec wallNow();

// Whole seconds since the system was started, as sysinfo() reports them; nothing when that fails. Begins anew
// with a reboot.
std::optional<long> systemUptime();

// How many times as fast as real time this clock runs: for code that converts durations measured in real
// time.
double clockRate();

}  // namespace platform

#endif
