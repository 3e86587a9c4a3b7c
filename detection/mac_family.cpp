#include "detection/mac_family.h"

#include <cstddef>
#include <functional>
#include <new>
#include <string>
#include <unordered_map>
#include <unordered_set>

#include "common/log.h"

namespace pavo {
namespace {

using Devices = DeviceList<DetectedDevice>;
using Scan = std::vector<Sighting>;

// Equal devices have equal hashes.
struct DeviceHash {
    std::size_t operator()(const DetectedDevice &device) const {
        return std::hash<Mac>{}(device.mac) ^ (std::hash<IfNum>{}(device.port) << 12);
    }
};
using DeviceSet = std::unordered_set<DetectedDevice, DeviceHash>;

// The devices of the list. One that moved to where an equal one was already is dropped, or the list would
// gain one in each scan that shows one address on two ports.
DeviceSet indexDevices(Devices *devices) {
    DeviceSet known;
    known.reserve(devices->count());
    devices->removeWhere([&](const DetectedDevice &device) { return !known.insert(device).second; });
    return known;
}

void followTo(IfNum port, const MacFamily &family, DetectedDevice *device, const Where &where) {
    const std::string text =
        logToSystem(std::source_location::current(), family.texts.moved, device->mac, device->port, port);
    if (!text.empty())
        logInfo(where, "[%s:%d] %s\r\n", text);
    device->port = port;
}

void compareKnown(Switch sw, const MacFamily &family, Devices *devices, const Scan &scan,
                  const Where &where) {
    std::unordered_map<Mac, IfNum> portOf;
    portOf.reserve(scan.size());
    for (const Sighting &seen : scan)
        portOf.try_emplace(seen.mac, seen.port);  // the first sighting counts

    devices->removeWhere([&](DetectedDevice &device) {
        if (const auto seen = portOf.find(device.mac); seen != portOf.end()) {
            if (seen->second != device.port)
                followTo(seen->second, family, &device, where);
            device.missCount = 0;
            return false;
        }
        if (++device.missCount == 1 && family.firstMiss != nullptr)
            family.firstMiss(sw, device, where);
        if (device.missCount < DEVICE_MISS_MAX)
            return false;
        logDebug(where, family.texts.leaving, device.mac);
        return family.leave(sw, device, where);
    });
}

void joinNew(Switch sw, const MacFamily &family, Devices *devices, const Scan &scan, const Where &where) {
    DeviceSet known = indexDevices(devices);
    for (const Sighting &seen : scan) {
        DetectedDevice device{.port = seen.port, .type = seen.type, .mac = seen.mac};
        if (known.contains(device)) {
            if (family.stillThere != nullptr)
                family.stillThere(sw, seen, where);
            continue;
        }
        if (family.admit != nullptr && !family.admit(sw, seen, &device, where))
            continue;
        logDebug(where, family.texts.joining, device.mac);
        if (family.join(sw, device, where) && devices->push(device))
            known.insert(device);
    }
}

}  // namespace

void updateDevices(Switch sw, const MacFamily &family, Devices *devices, Where where) {
    const auto scan = family.scan(sw, where);
    if (!scan)
        return;
    logDebug(where, family.texts.comparing);
    compareKnown(sw, family, devices, *scan, where);
    joinNew(sw, family, devices, *scan, where);
}

Result<> repairDevices(Switch sw, const MacFamily &family, Devices *devices, Where where) {
    const auto shown = readMacAssociations(sw, where);
    if (!shown)
        return std::unexpected(shown.error());
    if (const auto &associations = *shown)
        devices->removeWhere([&](const DetectedDevice &device) {
            if (associations->mention(device.mac))
                return false;
            logError(where, family.texts.associationMissing, device.mac);
            return true;
        });
    return {};
}

std::int32_t repairCodeOf(const Result<> &repaired) {
    return repaired ? 1 : codeOf(repaired);
}

void clearDevices(Switch sw, const MacFamily &family, Devices *devices, Where where) {
    for (const DetectedDevice &device : *devices)
        try {
            static_cast<void>(family.leave(sw, device, where));
        } catch (const std::bad_alloc &) {
            logError(where, "[%s:%d] Could not allocate memory.\r\n");
        }
    devices->clear();
}

std::int32_t codeOf(const DeviceLeave &leave) {
    if (leave.control)
        return codeOf(*leave.control);
    return codeOf(leave.association ? ResultCode::Success : ResultCode::Failed);
}

DeviceLeave removeDevice(Switch sw, const MacFamily &family, const DetectedDevice &device, Where where) {
    DeviceLeave leave{.association = removeMacAssociation(sw, family.scripts, device.mac, where),
                      .control = {}};
    if (leave.association)
        logToSystem(std::source_location::current(), family.texts.left,
                    device.type == DEVICE_TYPE_CONTROL ? "Control" : "Audio", device.mac, device.port);
    else if (leave.association.error().step == ScriptFailure::Step::Write)
        return leave;
    if (device.controlMode == static_cast<std::uint32_t>(PortControl::Auto)) {
        leave.control = sw.setPortControl(device.port, PortControl::Auto);
        logDebug(where, family.texts.controlRestored, device.port, device.controlMode,
                 codeOf(*leave.control));
    }
    return leave;
}

}  // namespace pavo
