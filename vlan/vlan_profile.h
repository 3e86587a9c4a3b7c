// What the profiles of VLANs turn on or change, from the profile database, the templates, the table of
// profile types and the settings files. Any thread may call these functions; failures are logged on behalf of
// the operation that `where` names.
#ifndef PAVO_VLAN_VLAN_PROFILE_H
#define PAVO_VLAN_VLAN_PROFILE_H

#include <cstdint>
#include <optional>
#include <source_location>
#include <span>
#include <string>
#include <vector>

#include "common/result.h"
#include "common/vlan_id.h"
#include "common/where.h"
#include "store/profile_demand.h"
#include "store/profile_types.h"

namespace pavo {

struct VlanProfile {
    std::uint32_t vlanType = 0;        // role within the profile; 0 for a VLAN of no profile
    std::string profileType;           // empty for a VLAN of no profile
    ProfileDemand demand;              // what template and name say: nothing from the table of types
    ProfileTypeAttributes attributes;  // of the type in that table
    std::optional<bool> ptpTc;         // as the VLAN's settings file states it
};

// The profiles of VLANs, in the order of `ids`. Failed when the profile database cannot be opened.
Result<std::vector<VlanProfile>> readVlanProfiles(std::span<const VlanId> ids,
                                                  Where where = std::source_location::current());

// The quick form, for VLANs by number: one copy of the database instead of a look-up for each VLAN, the
// templates of the first 32 different types, no attributes and no settings files.
std::vector<VlanProfile> scanVlanProfiles(std::span<const std::uint32_t> numbers,
                                          Where where = std::source_location::current());

}  // namespace pavo

#endif
