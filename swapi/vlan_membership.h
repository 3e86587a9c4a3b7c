// Single changes of VLAN membership that are not done until the switch shows them.
//
// The switch OS accepts a membership change before it has taken effect. These functions make the change and
// read it back, within the budget of swapi/poll.h. They hold no state and block the calling thread; two
// threads that change the same port can make each other's verification fail. Nothing is undone on failure.
//
// Failed when the change is refused or a read fails (logged), or when the value did not show in time (not
// logged: the caller does, in its own words).
#ifndef PAVO_SWAPI_VLAN_MEMBERSHIP_H
#define PAVO_SWAPI_VLAN_MEMBERSHIP_H

#include <source_location>
#include <vector>

#include "common/result.h"
#include "swapi/switch.h"

namespace pavo {

Result<> setPvidAndVerify(Switch sw, IfNum ifNum, VlanId id, Where where = std::source_location::current());
Result<> setTaggingAndVerify(Switch sw, IfNum ifNum, VlanId id, Tagging tagging,
                             Where where = std::source_location::current());
Result<> setParticipationAndVerify(Switch sw, IfNum ifNum, VlanId id, Participation participation,
                                   Where where = std::source_location::current());
// Until the VLAN is gone.
Result<> deleteVlanAndVerify(Switch sw, VlanId id, Where where = std::source_location::current());

// One read each; Failed (logged).
Result<VlanId> readPvid(Switch sw, IfNum ifNum, Where where = std::source_location::current());
Result<std::vector<VlanId>> readTaggedVlans(Switch sw, IfNum ifNum,
                                            Where where = std::source_location::current());

}  // namespace pavo

#endif
