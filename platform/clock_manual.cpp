#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <set>

#include "platform/manual_clock.h"

namespace platform {
namespace {

constexpr std::time_t kWallStart = 1767225600;  // 2026-01-01 00:00:00 UTC

constexpr long kUptimeStart = 100'000;

std::atomic<bool> uptimeKnown = true;
std::mutex mutex;
std::condition_variable timeMoved;
std::condition_variable sleepersChanged;
Duration now{};
Duration slept{};
bool autoAdvance = false;
std::multiset<Duration> deadlines;  // one per thread in sleepFor

}  // namespace

double clockRate() {
    return 1.0;
}

void sleepFor(Duration time) {
    std::unique_lock lock(mutex);
    time = std::max(time, Duration::zero());
    slept += time;
    if (autoAdvance) {
        now += time;
        return;
    }
    const auto deadline = now + time;
    const auto self = deadlines.insert(deadline);
    sleepersChanged.notify_all();
    timeMoved.wait(lock, [&] { return now >= deadline; });
    deadlines.erase(self);
    sleepersChanged.notify_all();
}

Duration monotonicNow() {
    const std::lock_guard lock(mutex);
    return now;
}

std::timespec wallNow() {
    const auto since = monotonicNow();
    std::timespec out{};
    out.tv_sec = kWallStart + static_cast<std::time_t>(since.count() / 1'000'000);
    out.tv_nsec = static_cast<long>(since.count() % 1'000'000) * 1000;
    return out;
}

std::optional<long> systemUptime() {
    const auto since = monotonicNow();
    return uptimeKnown ? std::optional(kUptimeStart + static_cast<long>(since.count() / 1'000'000))
                       : std::nullopt;
}

namespace manual_clock {

void setUptimeKnown(bool known) {
    uptimeKnown = known;
}

void reset() {
    const std::lock_guard lock(mutex);
    now = slept = Duration::zero();
    autoAdvance = false;
    uptimeKnown = true;
}

void setAutoAdvance(bool on) {
    const std::lock_guard lock(mutex);
    autoAdvance = on;
}

void advance(Duration time) {
    std::unique_lock lock(mutex);
    const auto end = now + time;
    for (;;) {
        const bool due = !deadlines.empty() && *deadlines.begin() <= end;
        now = due ? std::max(now, *deadlines.begin()) : end;
        if (!due)
            break;
        timeMoved.notify_all();
        sleepersChanged.wait(lock, [&] { return deadlines.empty() || *deadlines.begin() > now; });
    }
    timeMoved.notify_all();
}

bool awaitSleepers(std::size_t count) {
    std::unique_lock lock(mutex);
    return sleepersChanged.wait_for(lock, std::chrono::seconds(20),
                                    [&] { return deadlines.size() >= count; });
}

std::size_t sleepers() {
    const std::lock_guard lock(mutex);
    return deadlines.size();
}

Duration totalSlept() {
    const std::lock_guard lock(mutex);
    return slept;
}

}  // namespace manual_clock
}  // namespace platform
