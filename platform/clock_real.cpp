#include <sys/sysinfo.h>

#include <thread>

#include "platform/clock.h"

namespace platform {

double clockRate() {
    return 1.0;
}

void sleepFor(Duration time) {
    std::this_thread::sleep_for(time);
}

Duration monotonicNow() {
    return std::chrono::duration_cast<Duration>(std::chrono::steady_clock::now().time_since_epoch());
}

std::timespec wallNow() {
    std::timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return now;
}

std::optional<long> systemUptime() {
    struct sysinfo info{};
    return sysinfo(&info) == 0 ? std::optional(info.uptime) : std::nullopt;
}

}  // namespace platform
