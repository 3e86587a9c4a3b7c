// The clock of virtual switch builds. PAVO_CLOCK_SCALE (1 to 10000, default 1) is how many times faster than
// real time it runs; PAVO_CLOCK_ORIGIN (seconds since 1970) is the moment at which both clocks show the same
// time, so that processes started one after another agree.
#include <sys/sysinfo.h>

#include <cstdlib>
#include <thread>

#include "platform/clock.h"

namespace platform {
namespace {

using std::chrono::duration_cast;
using std::chrono::nanoseconds;

struct Scale {
    double factor = 1.0;
    nanoseconds realOrigin{};  // CLOCK_REALTIME at which both clocks agree

    Scale() {
        if (const char *text = std::getenv("PAVO_CLOCK_SCALE")) {
            const double wanted = std::strtod(text, nullptr);
            if (wanted >= 1.0 && wanted <= 10000.0)
                factor = wanted;
        }
        realOrigin = realNow();
        if (const char *text = std::getenv("PAVO_CLOCK_ORIGIN")) {
            const double seconds = std::strtod(text, nullptr);
            const auto origin = nanoseconds(static_cast<std::int64_t>(seconds * 1e9));
            if (origin.count() > 0 && origin < realOrigin)
                realOrigin = origin;
        }
    }

    static nanoseconds realNow() {
        std::timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        return std::chrono::seconds(now.tv_sec) + nanoseconds(now.tv_nsec);
    }
};

const Scale &scale() {
    static const Scale instance;
    return instance;
}

}  // namespace

double clockRate() {
    return scale().factor;
}

void sleepFor(Duration time) {
    std::this_thread::sleep_for(nanoseconds(
        static_cast<std::int64_t>(static_cast<double>(nanoseconds(time).count()) / scale().factor)));
}

Duration monotonicNow() {
    const auto now = duration_cast<nanoseconds>(std::chrono::steady_clock::now().time_since_epoch());
    return Duration(static_cast<std::int64_t>(static_cast<double>(now.count()) * scale().factor / 1000.0));
}

std::optional<long> systemUptime() {
    struct sysinfo info{};
    if (sysinfo(&info) != 0)
        return std::nullopt;
    return static_cast<long>(static_cast<double>(info.uptime) * scale().factor);
}

std::timespec wallNow() {
    const auto real = Scale::realNow();
    const auto since = static_cast<double>((real - scale().realOrigin).count()) * scale().factor;
    const auto shown = scale().realOrigin + nanoseconds(static_cast<std::int64_t>(since));
    std::timespec out{};
    out.tv_sec = static_cast<std::time_t>(shown.count() / 1'000'000'000);
    out.tv_nsec = static_cast<long>(shown.count() % 1'000'000'000);
    return out;
}

}  // namespace platform
