// The commands "pavoctl vlan ...". Each prints its answer or throws a pavo::Failure.
#ifndef PAVO_CTL_VLAN_COMMANDS_H
#define PAVO_CTL_VLAN_COMMANDS_H

#include <optional>

#include "ctl/output.h"
#include "swapi/switch.h"

namespace pavo::ctl {

// All VLANs, or only one.
void showVlans(Switch sw, const Output &output, std::optional<VlanId> only);

}  // namespace pavo::ctl

#endif
