// Routing interfaces, as the CLI lists them.
#include <algorithm>
#include <cstdint>
#include <random>
#include <string_view>

#include "platform/clock.h"
#include "platform/paths.h"
#include "vlan/vlan_records.h"

namespace {

// Another file for each of several callers at the same time.
std::string showFile() {
    std::minstd_rand random(static_cast<std::uint32_t>(platform::wallNow().tv_nsec));
    char path[512];
    std::snprintf(path, sizeof path, platform::paths::kIpInterfaceBriefShow, static_cast<int>(random()));
    return path;
}

std::uint32_t ipConfigOf(std::string_view method) {
    if (method == "DHCP")
        return VLAN_IP_CONFIG_DHCP;
    return method == "Manual" ? VLAN_IP_CONFIG_MANUAL : VLAN_IP_CONFIG_OTHER;
}

void rowTake(const char *line, VLAN_ROUTING_INFO_T *table) {
    int id = 0;
    // No word is longer than its line.
    char address[VLAN_SHOW_LINE_SIZE], mask[VLAN_SHOW_LINE_SIZE], method[VLAN_SHOW_LINE_SIZE];
    if (std::sscanf(line, "%*s %d %*s %s %s %*s %s", &id, address, mask, method) != 4 || id < 1 ||
        id >= static_cast<int>(VLAN_TABLE_SIZE))
        return;
    VLAN_ROUTING_INFO_T &routing = table[id];
    routing.vlanId = static_cast<std::uint32_t>(id);
    routing.ipConfig = ipConfigOf(method);
    textCopy(routing.ipAddr, address);
    textCopy(routing.ipMask, mask);
}

}  // namespace

std::int32_t vlanListRoutingInfoGet(openapiClientHandle_t *client, VLAN_ROUTING_INFO_T *table) {
    std::fill_n(table, VLAN_TABLE_SIZE, VLAN_ROUTING_INFO_T{});
    return showLineForEach(client, "show ip interface brief", showFile().c_str(), [&](const char *line) {
        if (std::string_view(line).starts_with("vlan "))
            rowTake(line, table);
        return true;
    });
}
