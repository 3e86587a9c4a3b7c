#include "detection/device_report.h"

#include <chrono>
#include <map>
#include <mutex>
#include <utility>

#include "common/files.h"
#include "platform/clock.h"
#include "platform/paths.h"

namespace pavo {
namespace {

// A report that is missing is written again after this.
constexpr std::chrono::minutes kWriteAgainAfter{1};

struct Report {
    std::mutex mutex;  // held while the file is written, too: the last report is the one that stays
    std::map<std::string, std::vector<DeviceState>> families;
    platform::Duration written{};  // when that was tried last
};

// Never destroyed: threads may report until the process is gone.
Report &report() {
    static auto *const instance = new Report;
    return *instance;
}

void write(Report &shared, const Where &where) {
    shared.written = platform::monotonicNow();
    std::vector<DeviceState> all;
    for (const auto &[family, devices] : shared.families)
        all.insert(all.end(), devices.begin(), devices.end());
    if (!writeDeviceStates(all, where))
        removeDeviceStates();
}

}  // namespace

void reportDevices(const std::string &family, std::vector<DeviceState> devices, Where where) {
    Report &shared = report();
    const std::lock_guard lock(shared.mutex);
    auto &known = shared.families[family];
    const bool isDue = platform::monotonicNow() - shared.written >= kWriteAgainAfter;
    if (known == devices && (!isDue || fileExists(platform::paths::kDeviceStates)))
        return;
    known = std::move(devices);
    write(shared, where);
}

void beginDeviceReport(Where where) {
    Report &shared = report();
    const std::lock_guard lock(shared.mutex);
    shared.families.clear();
    write(shared, where);
}

}  // namespace pavo
