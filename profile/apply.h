// Configuring the switch for profiles and taking them off again: VLANs, ports, feature blocks, database rows
// and files, as one change (see profile/change.h). These run inside an operation that holds the profile lock;
// see profile/configure.h and profile/apply_ops.h for those.
//
// A failure has been logged on behalf of the operation that `where` names, and has a human-readable reason;
// then everything is as before, or the reason says what is not.
#ifndef PAVO_PROFILE_APPLY_H
#define PAVO_PROFILE_APPLY_H

#include <optional>
#include <source_location>
#include <string>
#include <vector>

#include "common/result.h"
#include "profile/plan.h"
#include "profile/request.h"
#include "store/profile_lock.h"
#include "swapi/switch.h"

namespace pavo {

// Configures the switch for a finished request, or tells what that would change (`config.plan`). The whole
// request is checked first; then the switch is compared with what all profiles together want of the things
// that this one wants, wanted, takes or gives back, and what differs is changed: applying twice changes
// nothing the second time, and what somebody has changed by hand meanwhile is repaired.
//
// VLANs of the same profile (name) that the request no longer names leave it. With `overwrite` a profile of
// the same name on other VLANs is replaced instead of being a conflict, and VLANs and ports of other profiles
// are taken: those get them back when this one goes. The VLANs in `replaced` leave the profiles they have.
//
// InvalidArgument, AvbOneVlan, ShureOneVlan, NameInUse, ObjectExists, PtpTcEnabled, Dot1asEnabled,
// ProfileUnsupported and SmpteOneVlan for requests that are refused with nothing changed (see
// profile/rules.h); others when a step fails. The plan only when it was asked for.
Result<std::optional<ProfilePlan>> applyProfile(Switch sw, const ProfileConfig &config,
                                                const VlanSet &replaced, const ProfileLock &held,
                                                Where where = std::source_location::current());

// Takes profiles off VLANs: feature blocks that nobody else needs, the VLANs, database rows and files go, and
// everything that the profile changed is what it was before, unless somebody has changed it since. VLAN 1
// itself returns to the default profile. A VLAN without a profile is left alone. The files of detection go
// with the last VLAN of their type, so that its thread ends.
Result<> removeFromVlans(Switch sw, const VlanSet &ids, const ProfileLock &held,
                         Where where = std::source_location::current());

// The same with all VLANs of a profile. NotExist when there is no such profile.
Result<> removeProfile(Switch sw, const std::string &name, const ProfileLock &held,
                       Where where = std::source_location::current());

// A profile beside the switch as it is.
struct ProfileStatus {
    std::string name;
    ProfilePlan repair;        // what applying it again would change
    std::vector<Loss> losses;  // what it goes without
    bool interrupted = false;  // a change of it has begun and not ended

    bool isAsApplied() const { return repair.empty() && losses.empty() && !interrupted; }
};

// All profiles, in the order in which they were applied. Takes no lock and changes nothing. Failed (logged,
// with a reason) when the switch or the database cannot be read.
Result<std::vector<ProfileStatus>> readProfileStatus(Switch sw,
                                                     Where where = std::source_location::current());
// [{"name", "asApplied": bool, "interrupted": bool, "losses": [{"what", "to"}], "repair": plan}, ...]
std::string printStatus(const std::vector<ProfileStatus> &status);

}  // namespace pavo

#endif
