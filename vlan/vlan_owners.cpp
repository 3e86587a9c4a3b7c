#include "vlan/vlan_owners.h"

#include <cstdint>
#include <optional>

#include "common/files.h"
#include "common/text.h"
#include "platform/paths.h"
#include "store/profile_db.h"
#include "store/profile_types.h"

namespace pavo {

Result<VlanOwners> VlanOwners::read(Where where) {
    VlanOwners owners;
    if (!fileExists(platform::paths::kProfileDb))
        return owners;
    const auto rows = readProfileRows(where);
    if (!rows)
        return failed(ResultCode::Failed, "the profile database cannot be read");
    for (const ProfileRow &row : *rows) {
        const auto id = row.vlan();
        const bool everybodys = id == kDefaultVlan && row.profileType == PROFILE_TYPE_NAME_DEFAULT;
        if (id && !everybodys)
            owners.names_.emplace(*id, row.profileName);
    }
    return owners;
}

const std::string *VlanOwners::find(VlanId id) const {
    const auto owner = names_.find(id);
    return owner != names_.end() ? &owner->second : nullptr;
}

void VlanOwners::noteVlan(VlanId id, ProfileThings &things) const {
    if (const std::string *const owner = find(id))
        things[*owner].push_back("VLAN " + std::to_string(id.number()));
}

void VlanOwners::noteInterfaces(Switch sw, VlanId except, ProfileThings &things) const {
    if (empty())
        return;
    const auto note = [&](IfNum ifNum, const std::string &name) {
        const auto pvid = sw.pvid(ifNum);
        if (const std::string *const owner = pvid && *pvid != except ? find(*pvid) : nullptr)
            things[*owner].push_back(name);
    };
    for (const IfNum port : sw.ports())
        note(port, portCliName(port));
    std::optional<LagNumbering> numbering;
    for (const IfNum lag : sw.lags()) {
        if (!numbering)
            numbering = LagNumbering{lag};
        note(lag, lagCliName(numbering->numberOf(lag)));
    }
}

std::string describe(const ProfileThings &things) {
    std::string out;
    for (const auto &[profile, has] : things) {
        out += (out.empty() ? "profile " : "; profile ") + quoteText(profile) + " has ";
        for (const std::string &thing : has)
            out += (&thing == &has.front() ? "" : ", ") + thing;
    }
    return out;
}

}  // namespace pavo
