// Configuring the switch for profiles and taking them off again: VLANs, ports, feature blocks, database rows
// and per-VLAN files, as one transaction. These run inside an operation that holds the profile lock; see
// profile/configure.h and profile/apply_ops.h for those.
//
// A failure has been logged on behalf of the operation that `where` names; then everything is as before, or
// the log says what is not.
#ifndef PAVO_PROFILE_APPLY_H
#define PAVO_PROFILE_APPLY_H

#include <source_location>
#include <string>

#include "common/result.h"
#include "profile/profile_lock.h"
#include "profile/request.h"
#include "swapi/switch.h"

namespace pavo {

// Configures the switch for a finished request. The whole request is checked first; then only what differs is
// changed: VLANs and names, port membership, PVIDs, MTU and VLAN addresses in one script, database rows, the
// per-VLAN files, and the feature blocks that no present profile has switched on yet.
//
// VLANs of the same profile (name) that the request no longer names leave it. With `overwrite` a profile of
// the same name on other VLANs is replaced instead of being a conflict. The VLANs in `replaced` leave the
// profiles they have.
//
// InvalidArgument, AvbOneVlan, ShureOneVlan, NameInUse, ProfileUnsupported and SmpteOneVlan for requests that
// are refused with nothing changed (see profile/rules.h); others when a step fails.
Result<> applyProfile(Switch sw, const ProfileRequest &request, bool overwrite, const VlanSet &replaced,
                      const ProfileLock &held, Where where = std::source_location::current());

// Takes profiles off VLANs: feature blocks that nobody else needs, the VLANs, database rows and files go,
// ports fall back to VLAN 1. VLAN 1 itself returns to the default profile; a VLAN that was there before the
// profile stays. A VLAN without a profile is left alone. The files of detection go with the last VLAN of
// their type, so that its thread ends.
Result<> removeFromVlans(Switch sw, const VlanSet &ids, const ProfileLock &held,
                         Where where = std::source_location::current());

// The same with all VLANs of a profile. NotExist when there is no such profile.
Result<> removeProfile(Switch sw, const std::string &name, const ProfileLock &held,
                       Where where = std::source_location::current());

}  // namespace pavo

#endif
