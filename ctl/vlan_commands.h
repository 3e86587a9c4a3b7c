// The commands "pavoctl vlan ...". Each prints its answer or throws a pavo::Failure.
#ifndef PAVO_CTL_VLAN_COMMANDS_H
#define PAVO_CTL_VLAN_COMMANDS_H

#include <cstdint>
#include <optional>
#include <string>

#include "ctl/output.h"
#include "swapi/switch.h"

namespace pavo::ctl {

// All VLANs, or only one.
void showVlans(Switch sw, const Output &output, std::optional<VlanId> only);

// How each interface takes part in a VLAN.
void showVlanInterfaces(Switch sw, const Output &output, std::uint32_t vlan);

// The other commands change something. What a profile has is changed by `force` only.

// Lists as "10,20-25"; anything else in them is refused before the first VLAN is created or deleted. A VLAN
// with the management interface or a routing interface is deleted by `force` only.
void createListedVlans(Switch sw, const Output &output, const std::string &list);
void deleteListedVlans(Switch sw, const Output &output, const std::string &list, bool force);

// Without a name, what it is now.
void runVlanName(Switch sw, const Output &output, std::uint32_t vlan, const std::optional<std::string> &name,
                 bool force);

// All ports and LAGs. The words are those of the operations (vlan/vlan_ops.h).
void setVlanParticipation(Switch sw, const Output &output, std::uint32_t vlan, const std::string &mode,
                          bool force);
void setVlanTagging(Switch sw, const Output &output, std::uint32_t vlan, const std::string &tagging,
                    bool force);
void setVlanFrames(Switch sw, const Output &output, const std::string &frames, bool force);
void setVlanPvid(Switch sw, const Output &output, std::uint32_t vlan, bool force);

// The automatic switchport mode; without "enable" or "disable", what it is now.
void runVlanAuto(Switch sw, const Output &output, const std::string &mode);

}  // namespace pavo::ctl

#endif
