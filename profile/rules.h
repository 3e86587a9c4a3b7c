// What a request must fulfil before anything is changed. Each refusal is one ERROR line, on behalf of the
// operation that `where` names.
#ifndef PAVO_PROFILE_RULES_H
#define PAVO_PROFILE_RULES_H

#include <span>

#include "common/result.h"
#include "profile/port_names.h"
#include "profile/request.h"
#include "profile/switch_state.h"
#include "store/profile_db.h"

namespace pavo {

// Logs the refusal and returns it, with its reason.
std::unexpected<Failure> refuse(ResultCode code, std::string why, const Where &where);
// The message of the code says why.
std::unexpected<Failure> refuse(ResultCode code, const Where &where);

// What a request must fulfil by itself and on this switch: InvalidArgument for too many VLANs or none, a VLAN
// named twice, unknown types, ports that do not exist, a port untagged in two VLANs, names that cannot be
// VLAN names or are reserved, malformed addresses; ProfileUnsupported when the switch does not offer the
// type. Failed when the switch does not answer for a port.
Result<> checkRequest(Switch sw, const ProfileRequest &request, PortNames &ports, Where where);

// The VLANs of the profile of this name that the request no longer names. NameInUse when the name belongs to
// a profile on other VLANs, unless that is to be overwritten.
Result<VlanSet> findLeftovers(const ProfileRequest &request, std::span<const ProfileRow> rows,
                              const SwitchState &state, bool overwrite, Where where);

// Types that are for one VLAN only, or for one VLAN of each role; `gone` are VLANs that do not count any
// more. AvbOneVlan, SmpteOneVlan or ShureOneVlan.
Result<> checkOneVlanTypes(const ProfileRequest &request, std::span<const ProfileRow> rows,
                           const SwitchState &state, const VlanSet &gone, Where where);

}  // namespace pavo

#endif
