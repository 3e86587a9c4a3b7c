// What belongs to profiles among the VLANs and interfaces that an operator is about to change. Any thread may
// call these functions; failures are logged on behalf of `where`.
#ifndef PAVO_VLAN_VLAN_OWNERS_H
#define PAVO_VLAN_VLAN_OWNERS_H

#include <map>
#include <optional>
#include <source_location>
#include <string>
#include <vector>

#include "common/json.h"
#include "common/result.h"
#include "common/where.h"
#include "swapi/switch.h"

namespace pavo {

// By the name of the profile: "VLAN 20", and interfaces by their CLI names ("0/5", "lag 2").
using ProfileThings = std::map<std::string, std::vector<std::string>>;

struct OwnedInterface {
    std::string profile;
    std::string name;  // in the CLI
};

// VLANs that profiles have, from the profile database; as long as it is missing, after a reboot, from the
// record that it is going to be made of (profile/record.h). The default profile's VLAN 1 is everybody's.
class VlanOwners {
  public:
    // Nobody owns anything where there is neither. Failed (logged) when there is one that cannot be read.
    static Result<VlanOwners> read(Where where = std::source_location::current());

    bool empty() const { return names_.empty(); }
    // The profile's name; null when no profile has the VLAN.
    const std::string *find(VlanId id) const;
    // Interfaces that carry a VLAN of a profile, other than `except`, with such frames. One that the switch
    // does not tell about is nobody's.
    std::map<IfNum, OwnedInterface> interfaces(Switch sw, Tagging frames,
                                               std::optional<VlanId> except = std::nullopt) const;

  private:
    // The profiles of a record; where two name a VLAN, the later one has it.
    void addProfiles(const cJSON *profiles);

    std::map<VlanId, std::string> names_;
};

// For people: `profile "Stage" has VLAN 20, 0/1, 0/2; profile "Hall" has lag 2`.
std::string describe(const ProfileThings &things);

}  // namespace pavo

#endif
