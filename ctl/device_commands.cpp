#include "ctl/device_commands.h"

#include <algorithm>
#include <cstdio>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "common/text.h"
#include "detection/daemon_lock.h"
#include "detection/nice.h"
#include "detection/oui_table.h"
#include "store/device_states.h"
#include "store/vendors.h"

namespace pavo::ctl {
namespace {

struct Device {
    DeviceState known;
    std::string state;   // a word, and in the table what belongs to it
    std::string vendor;  // registered for the address; empty when unknown
};

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

std::vector<Device> unmanagedDevices(Switch sw, const std::vector<DeviceState> &managed) {
    const auto known = addressesOf(managed);
    std::vector<Device> devices;
    auto table = sw.forwardingTable();
    for (const auto &[mac, vlan, port, learned] : table)
        if (const char *const family = manufacturerOf(mac); family != nullptr && !known.contains(mac.bits()))
            devices.push_back({.known = {.family = family, .address = mac.text(), .port = port, .vlan = vlan},
                               .state = "unmanaged",
                               .vendor = {}});
    if (table.brokenBy())
        std::fputs("pavoctl: the forwarding table cannot be read to its end\n", stderr);
    return devices;
}

std::vector<Device> readDevices(Switch sw) {
    if (!DaemonLock::isHeldByAnyone())
        throw Failure{ResultCode::Failed, "pavo_detection is not running"};
    const auto reported = readDeviceStates();
    if (!reported)
        throw Failure{ResultCode::Failed, "pavo_detection has not reported its devices"};
    std::vector<Device> devices = unmanagedDevices(sw, *reported);
    for (const DeviceState &state : *reported)
        devices.push_back({.known = state, .state = wordOf(state.kind), .vendor = {}});
    for (Device &device : devices)
        device.vendor = vendorTable().vendorOf(device.known.address);
    std::ranges::sort(devices, {}, [](const Device &device) {
        return std::tie(device.known.port, device.known.family, device.known.address);
    });
    return devices;
}

std::string shown(const std::string &text) {
    return text.empty() ? "-" : printable(validUtf8(text));
}

Row rowOf(const Device &device) {
    const DeviceState &known = device.known;
    std::string state = device.state;
    if (known.kind == DeviceState::Kind::Missing)
        state += " " + std::to_string(known.missed) + " of " + std::to_string(known.missedMax);
    if (!known.reason.empty())
        state += ": " + known.reason;
    return {shown(known.family),
            shown(known.address),
            shown(device.vendor),
            known.port ? std::to_string(known.port.number()) : "-",
            known.vlan ? std::to_string(known.vlan->number()) : "-",
            shown(state)};
}

void printDevices(const std::vector<Device> &devices) {
    const JsonPtr list(cJSON_CreateArray());
    for (const Device &device : devices) {
        const DeviceState &known = device.known;
        cJSON *const object = appendObject(list.get());
        const auto add = [&](const char *key, const std::string &text) {
            if (!text.empty())
                cJSON_AddStringToObject(object, key, validUtf8(text).c_str());
        };
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
    printEnvelope(ResultCode::Success, "devices", printJson(list.get()).c_str());
}

}  // namespace

void showDevices(Switch sw, const Output &output) {
    const std::vector<Device> devices = readDevices(sw);
    if (output.json) {
        printDevices(devices);
        return;
    }
    std::vector<Row> rows;
    rows.reserve(devices.size());
    std::ranges::transform(devices, std::back_inserter(rows), rowOf);
    output.printTable({"FAMILY", "ADDRESS", "VENDOR", "PORT", "VLAN", "STATE"}, rows);
}

}  // namespace pavo::ctl
