// Single changes of VLAN membership that are verified, see swapi/vlan_membership.h, and two logged reads.
// Modes are the numbers of the OpEN calls.
#ifndef PAVO_SWAPI_VLAN_MEMBERSHIP_OPS_H
#define PAVO_SWAPI_VLAN_MEMBERSHIP_OPS_H

#include <cstdint>

#include "swapi/switch.h"

namespace pavo {

// 0; 10000 when the change is refused (for a number that is no VLAN's without asking the switch) or a read
// fails (logged), or the value did not show in time (not logged).
std::int32_t vlanIfPvidSetAndVerify(Switch sw, std::uint32_t ifNum, std::uint32_t vlanId);
std::int32_t vlanIfTaggingSetAndVerify(Switch sw, std::uint32_t ifNum, std::uint32_t vlanId,
                                       std::uint32_t taggingMode);
std::int32_t vlanIfParticipationSetAndVerify(Switch sw, std::uint32_t ifNum, std::uint32_t vlanId,
                                             std::uint32_t participationMode);

// 0 once the VLAN is gone; 10000 when the delete is refused (logged) or it is still there in the end (not
// logged).
std::int32_t vlanDeleteAndVerify(Switch sw, std::uint32_t vlanId);

// Waits until the port's administrative state is `state`; the outcome is only logged.
void ifAdminStateWaitSettled(Switch sw, std::uint32_t ifNum, std::uint32_t state);

// One read each; 0 or 10000 (logged). The list receives 16-bit VLAN ids as the OpEN call writes them.
std::int32_t swapiVlanIfPvidGet(Switch sw, std::uint32_t ifNum, std::uint32_t *pvid);
std::int32_t swapiDot1qSwPortTaggedVlanListGet(Switch sw, std::uint32_t ifNum, open_buffdesc *list);

}  // namespace pavo

#endif
