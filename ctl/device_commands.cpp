#include "ctl/device_commands.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <string>
#include <vector>

#include "common/text.h"
#include "detection/known_devices.h"

namespace pavo::ctl {
namespace {

std::string shown(const std::string &text) {
    return text.empty() ? "-" : printable(validUtf8(text));
}

Row rowOf(const KnownDevice &device) {
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

}  // namespace

void showDevices(Switch sw, const Output &output) {
    const auto found = require(readKnownDevices(sw));
    if (!found.isWhole)
        std::fputs("pavoctl: the forwarding table cannot be read to its end\n", stderr);
    if (output.json) {
        printEnvelope(ResultCode::Success, "devices", printKnownDevices(found.devices).c_str());
        return;
    }
    std::vector<Row> rows;
    rows.reserve(found.devices.size());
    std::ranges::transform(found.devices, std::back_inserter(rows), rowOf);
    output.printTable({"FAMILY", "ADDRESS", "VENDOR", "PORT", "VLAN", "STATE"}, rows);
}

}  // namespace pavo::ctl
