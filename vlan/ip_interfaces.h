// VLAN interfaces and their addresses, as "show ip interface brief" lists them.
#ifndef PAVO_VLAN_IP_INTERFACES_H
#define PAVO_VLAN_IP_INTERFACES_H

#include <cstdint>
#include <optional>
#include <source_location>
#include <string>
#include <string_view>
#include <vector>

#include "swapi/switch.h"

namespace pavo {

enum class IpMethod : std::uint32_t { Other = 1, Dhcp = 2, Manual = 3 };

struct IpInterface {
    VlanId vlan;
    IpMethod method = IpMethod::Other;
    std::string address;  // as printed
    std::string mask;
    std::optional<bool> isUp;  // nothing for a state other than "Up" and "Down"

    bool operator==(const IpInterface &) const = default;
};

// The lines that begin with "vlan ", in their order; those without all of their columns are passed over. A
// pure function of what the command prints.
std::vector<IpInterface> parseIpInterfaces(std::string_view shown);

// OpenFailed (logged) when the output cannot be read. Any thread may call this: each call captures into a
// file of its own.
Result<std::vector<IpInterface>> readIpInterfaces(Switch sw, Where where = std::source_location::current());

}  // namespace pavo

#endif
