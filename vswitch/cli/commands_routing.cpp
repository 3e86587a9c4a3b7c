// Routing interfaces: the VLANs that the switch routes between, with their addresses.
#include "vswitch/cli/command.h"

namespace vswitch::cli {
namespace {

bool setAddress(Context &c, AddressMethod method, const std::string &ip = "", const std::string &mask = "") {
    if (!c.model.routing().contains(c.session.vlan))
        return c.refuse("Routing is not enabled on this interface.");
    return c.accept(c.model.setAddress(c.session.vlan, method, ip, mask));
}

void emitRouting(const Model &model, const Interface *interface, std::string &out) {
    if (interface != nullptr)
        return;
    for (const auto &[id, routing] : model.routing()) {
        out += "interface vlan " + std::to_string(id) + "\nrouting\n";
        if (routing.method == AddressMethod::Manual)
            out += "ip address " + routing.ip + " " + routing.mask + "\n";
        else if (routing.method == AddressMethod::Dhcp)
            out += "ip address dhcp\n";
        out += "exit\n\n";
    }
}

bool showIpInterfaceBrief(Context &c, const Values &) {
    static constexpr const char *kMethods[] = {"None", "Manual", "DHCP"};
    c.out += "Interface   State  IP Address       IP Mask          Type     Method\n";
    c.out += "----------  -----  ---------------  ---------------  -------  ------\n";
    for (const auto &[id, routing] : c.model.routing())
        c.out += format("vlan %-5u  %-5s  %-15s  %-15s  %-7s  %s\n", id, c.model.vlanUp(id) ? "Up" : "Down",
                        routing.ip.c_str(), routing.mask.c_str(), "Primary",
                        kMethods[static_cast<std::size_t>(routing.method)]);
    return true;
}

const Command kRouting[] = {
    {kInterfaceEntry, "interface vlan <vlan>", "Configure a VLAN's routing interface",
     [](Context &c, const Values &v) {
         if (!c.model.hasVlan(v[0].number))
             return c.refuse("VLAN does not exist.");
         c.session.vlan = v[0].number;
         return enterInterfaceMode(c, CliMode::VlanInterface);
     },
     emitRouting},
    {kVlanInterface, "routing", "Route between this VLAN and others",
     [](Context &c, const Values &) { return c.accept(c.model.setRouting(c.session.vlan, true)); }},
    {kVlanInterface, "no routing", "Remove the routing interface with its address",
     [](Context &c, const Values &) { return c.accept(c.model.setRouting(c.session.vlan, false)); }},
    {kVlanInterface, "ip address <ip> <ip>", "Set address and netmask",
     [](Context &c, const Values &v) { return setAddress(c, AddressMethod::Manual, v[0].text, v[1].text); }},
    {kVlanInterface, "ip address dhcp", "Take the address from DHCP",
     [](Context &c, const Values &) { return setAddress(c, AddressMethod::Dhcp); }},
    {kVlanInterface, "no ip address", "Remove the address",
     [](Context &c, const Values &) { return setAddress(c, AddressMethod::None); }},
    {kAnyMode, "show ip interface brief", "Routing interfaces and their addresses", showIpInterfaceBrief},
};

}  // namespace

std::span<const Command> routingCommands() {
    return kRouting;
}

}  // namespace vswitch::cli
