// What a request must fulfil before anything is changed. Each refusal is one ERROR line, on behalf of the
// operation that `where` names.
#ifndef PAVO_PROFILE_RULES_H
#define PAVO_PROFILE_RULES_H

#include <span>

#include "common/result.h"
#include "profile/change.h"
#include "profile/port_names.h"
#include "profile/request.h"
#include "profile/standing.h"
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

// NameInUse when the name belongs to a profile whose VLANs are all others.
Result<> checkName(const ProfileRequest &request, const AppliedProfiles &present, const SwitchState &state,
                   Where where);

// Types that are for one VLAN only, or for one VLAN of each role; `others` are the profiles that stay beside
// the request's. AvbOneVlan, SmpteOneVlan or ShureOneVlan.
Result<> checkOneVlanTypes(const ProfileRequest &request, const Standing &others, const SwitchState &state,
                           Where where);

// A VLAN, and the untagged frames of a port, belong to one profile: ObjectExists when the request names one
// of another profile.
Result<> checkOwners(const ProfileRequest &request, const Standing &others, Where where);

// What cannot be on together. PtpTcEnabled or Dot1asEnabled for 802.1AS beside the PTP transparent clock,
// InvalidArgument for two spanning-tree modes; with `overwrite` the request has its way among profiles.
Result<> checkExclusions(const ProfileRequest &request, const Wanted &wanted, const SwitchState &state,
                         bool overwrite, Where where);

}  // namespace pavo

#endif
