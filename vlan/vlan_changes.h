// What an operator changes about VLANs: some of them, or all interfaces at once.
//
// VLANs are numbers as they were asked for, so that one that is none can be reported. Failures have been
// logged, on behalf of the operation that `where` names, and have a human-readable reason. Changes are done
// when these functions return, as far as the switch shows them in time (swapi/poll.h). Any thread of any
// process may call; the callers take turns, with profile operations as well, so nobody may call who holds the
// profile lock.
#ifndef PAVO_VLAN_VLAN_CHANGES_H
#define PAVO_VLAN_VLAN_CHANGES_H

#include <cstdint>
#include <source_location>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "common/result.h"
#include "common/where.h"
#include "swapi/switch.h"
#include "vlan/vlan_owners.h"

namespace pavo {

// What becomes of what a profile has (vlan/vlan_owners.h): it is changed, and the log tells what it was; or
// the whole change is refused before it begins, with the same words (describe()) as its reason.
enum class OfProfiles { Change, Refuse };

// What a change has done.
struct VlanChange {
    std::vector<VlanId> vlans{};  // that have been created or deleted, in this order
    // Of all ports and LAGs: how many there are, and how many of them the switch did not change (logged
    // together in one line).
    unsigned interfaces = 0;
    unsigned refused = 0;
    // The switch has accepted the change, but did not show it in time (logged).
    bool isPending = false;
    // What profiles had of what was changed; they get it back when they are applied again.
    ProfileThings ofProfiles{};
};

// {"interfaces":28,"refused":0,"pending":false,"profiles":[{"name":"Stage","has":["VLAN 20","0/1"]}]} for a
// change of all interfaces, {"vlans":[20],"profiles":[...]} for all others. In one line.
std::string printVlanChange(const VlanChange &change);

// --- some VLANs

// Creates those that do not exist, in this order, up to the first that fails.
Result<VlanChange> createVlans(Switch sw, std::span<const std::uint32_t> vlans,
                               Where where = std::source_location::current());

// Deletes those that exist, in this order, up to the first that fails.
Result<VlanChange> deleteVlans(Switch sw, std::span<const std::uint32_t> vlans, OfProfiles ofProfiles,
                               Where where = std::source_location::current());

// The name is cut to 32 bytes, at a character; an empty one restores the default name. InvalidArgument for
// one that no configuration can hold (isVlanName, store/vlan_settings.h).
Result<VlanChange> renameVlan(Switch sw, std::uint32_t vlan, std::string_view name, OfProfiles ofProfiles,
                              Where where = std::source_location::current());

// Creates the VLAN as a static one unless it exists, and names it; the name is cut to 255 bytes, and a switch
// refuses one that is too long for it. VLAN 1 is left alone. VlanNotCreated when it cannot be created.
Result<VlanChange> createNamedVlan(Switch sw, std::int32_t vlan, std::string_view name,
                                   Where where = std::source_location::current());

// --- all ports and LAGs

// Failed when not all interfaces can be listed; those that were have been changed then. Whether there is such
// a VLAN is not asked by the first two: a switch refuses it for every interface.
Result<VlanChange> setParticipationOfAll(Switch sw, std::uint32_t vlan, Participation participation,
                                         OfProfiles ofProfiles,
                                         Where where = std::source_location::current());
Result<VlanChange> setTaggingOfAll(Switch sw, std::uint32_t vlan, Tagging tagging, OfProfiles ofProfiles,
                                   Where where = std::source_location::current());
// A profile has the interfaces whose frames are not accepted any more; applying it again does not change it.
Result<VlanChange> setAcceptFramesOfAll(Switch sw, AcceptFrames frames, OfProfiles ofProfiles,
                                        Where where = std::source_location::current());
Result<VlanChange> setPvidOfAll(Switch sw, std::uint32_t vlan, OfProfiles ofProfiles,
                                Where where = std::source_location::current());

}  // namespace pavo

#endif
