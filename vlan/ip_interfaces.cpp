#include "vlan/ip_interfaces.h"

#include <cstdio>
#include <optional>
#include <random>
#include <sstream>

#include "common/log.h"
#include "common/text.h"
#include "platform/clock.h"
#include "platform/paths.h"
#include "vlan/show_vlan.h"

namespace pavo {
namespace {

constexpr std::size_t kLineMax = 511;

IpMethod methodOf(std::string_view method) {
    if (method == "DHCP")
        return IpMethod::Dhcp;
    return method == "Manual" ? IpMethod::Manual : IpMethod::Other;
}

// Columns: "vlan", number, state, address, mask, ..., method.
std::optional<IpInterface> parseRow(std::string_view line) {
    std::istringstream in{std::string(line)};
    std::string skipped, state, address, mask, method;
    std::int32_t number = 0;
    if (!(in >> skipped >> number >> state >> address >> mask >> skipped >> method))
        return std::nullopt;
    const auto id = VlanId::from(number);
    if (!id)
        return std::nullopt;
    IpInterface interface{*id, methodOf(method), address, mask, std::nullopt};
    if (state == "Up" || state == "Down")
        interface.isUp = state == "Up";
    return interface;
}

// Another file for each of several callers at the same time.
std::string captureFile() {
    std::minstd_rand random(static_cast<std::uint32_t>(platform::wallNow().tv_nsec));
    char path[512];
    std::snprintf(path, sizeof path, platform::paths::kIpInterfaceBriefShow, static_cast<int>(random()));
    return path;
}

}  // namespace

std::vector<IpInterface> parseIpInterfaces(std::string_view shown) {
    std::vector<IpInterface> interfaces;
    forEachLine(shown, kLineMax, [&](std::string_view line) {
        if (line.starts_with("vlan "))
            if (auto row = parseRow(line))
                interfaces.push_back(std::move(*row));
        return true;
    });
    return interfaces;
}

Result<std::vector<IpInterface>> readIpInterfaces(Switch sw, Where where) {
    const std::string file = captureFile();
    const auto shown = sw.show("show ip interface brief", file, where, kCannotOpenCapture);
    if (shown)
        return parseIpInterfaces(*shown);
    // A capture that the switch refuses leaves no file to open.
    if (shown.error().code != ResultCode::OpenFailed)
        logError(where, kCannotOpenCapture, file);
    return failed(ResultCode::OpenFailed, shown.error().reason);
}

}  // namespace pavo
