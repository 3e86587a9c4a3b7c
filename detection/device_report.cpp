#include "detection/device_report.h"

#include <map>
#include <mutex>
#include <utility>

namespace pavo {
namespace {

struct Report {
    std::mutex mutex;  // held while the file is written, too: the last report is the one that stays
    std::map<std::string, std::vector<DeviceState>> families;
};

// Never destroyed: threads may report until the process is gone.
Report &report() {
    static auto *const instance = new Report;
    return *instance;
}

void write(const Report &shared, const Where &where) {
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
    if (known == devices)
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
