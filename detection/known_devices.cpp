#include "detection/known_devices.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <set>
#include <tuple>

#include "common/json.h"
#include "common/log.h"
#include "common/text.h"
#include "detection/daemon_lock.h"
#include "detection/nice.h"
#include "detection/oui_table.h"
#include "platform/paths.h"
#include "store/vendors.h"

namespace pavo {
namespace {

const char *manufacturerOf(Mac mac) {
    if (isNiceAddress(mac))
        return niceDetection.name;
    const OuiRow *const row = findOui(mac);
    return row == nullptr ? nullptr : row->vendor;
}

// By their bits: families keep addresses as the switch or the device spells them.
std::set<std::uint64_t> addressesOf(const std::vector<DeviceState> &states) {
    std::set<std::uint64_t> addresses;
    for (const auto &state : states)
        if (const auto mac = Mac::parse(state.address))
            addresses.insert(mac->bits());
    return addresses;
}

KnownDevices unmanagedDevices(Switch sw, const std::vector<DeviceState> &managed) {
    const auto known = addressesOf(managed);
    KnownDevices found;
    auto table = sw.forwardingTable();
    for (const auto &[mac, vlan, port, learned] : table)
        if (const char *const family = manufacturerOf(mac); family != nullptr && !known.contains(mac.bits()))
            found.devices.push_back(
                {.known = {.family = family, .address = mac.text(), .port = port, .vlan = vlan},
                 .state = "unmanaged",
                 .vendor = {}});
    found.isWhole = !table.brokenBy();
    return found;
}

void addDevice(cJSON *list, const KnownDevice &device) {
    cJSON *const object = cJSON_CreateObject();
    cJSON_AddItemToArray(list, object);
    const auto add = [&](const char *key, const std::string &text) {
        if (!text.empty())
            cJSON_AddStringToObject(object, key, validUtf8(text).c_str());
    };
    const DeviceState &known = device.known;
    add("family", known.family);
    add("address", known.address);
    add("vendor", device.vendor);
    if (known.port)
        cJSON_AddNumberToObject(object, "ifNum", known.port.number());
    if (known.vlan)
        cJSON_AddNumberToObject(object, "vlanId", known.vlan->number());
    add("state", device.state);
    if (known.kind == DeviceState::Kind::Missing) {
        cJSON_AddNumberToObject(object, "missed", known.missed);
        cJSON_AddNumberToObject(object, "missedMax", known.missedMax);
    }
    add("reason", known.reason);
}

}  // namespace

Result<KnownDevices> readKnownDevices(Switch sw) {
    if (!DaemonLock::isHeldByAnyone())
        return failed(ResultCode::Failed, "pavo_detection is not running");
    const auto reported = readDeviceStates();
    if (!reported)
        return failed(ResultCode::Failed, "pavo_detection has not reported its devices");
    KnownDevices found = unmanagedDevices(sw, *reported);
    for (const DeviceState &state : *reported)
        found.devices.push_back({.known = state, .state = wordOf(state.kind), .vendor = {}});
    for (KnownDevice &device : found.devices)
        device.vendor = vendorTable().vendorOf(device.known.address);
    std::ranges::sort(found.devices, {}, [](const KnownDevice &device) {
        return std::tie(device.known.port, device.known.family, device.known.address);
    });
    return found;
}

std::string printKnownDevices(std::span<const KnownDevice> devices) {
    const JsonPtr list(cJSON_CreateArray());
    for (const KnownDevice &device : devices)
        addDevice(list.get(), device);
    return printJson(list.get());
}

Result<std::string> devicesAnswer(openapiClientHandle_t *client) {
    const auto found = readKnownDevices(client);
    if (!found) {
        logError("[%s:%d] %s\n", found.error().reason);
        return std::unexpected(found.error());
    }
    if (!found->isWhole) {
        logError("[%s:%d] the forwarding table cannot be read to its end\n");
        return failed(ResultCode::Failed, "the forwarding table cannot be read to its end");
    }
    return printKnownDevices(found->devices);
}

Result<std::string> niceAnswer() {
    const NiceSetting setting = readNiceSetting();
    if (setting == NiceSetting::Unreadable)
        return failed(ResultCode::OpenFailed, platform::paths::kNiceDetectConfig);
    const Presence profile = findAppliedProfile();
    if (profile == Presence::Unknown)
        return failed(ResultCode::OpenFailed, platform::paths::kVlanProfileConfigDir);
    const JsonPtr answer(cJSON_CreateObject());
    cJSON_AddBoolToObject(answer.get(), "enabled", setting != NiceSetting::Off);
    cJSON_AddBoolToObject(answer.get(), "factoryDefault", profile == Presence::Absent);
    return printJson(answer.get());
}

Result<> setNiceEnabled(bool enabled) {
    return writeNiceSetting(enabled);
}

}  // namespace pavo
