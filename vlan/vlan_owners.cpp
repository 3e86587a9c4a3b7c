#include "vlan/vlan_owners.h"

#include <cstdint>
#include <optional>
#include <string>

#include "common/files.h"
#include "common/json.h"
#include "common/log.h"
#include "common/text.h"
#include "platform/paths.h"
#include "store/profile_db.h"
#include "store/profile_types.h"

namespace pavo {

void VlanOwners::addProfiles(const cJSON *profiles) {
    const cJSON *profile = nullptr;
    cJSON_ArrayForEach(profile, profiles) {
        const cJSON *const request = member(profile, "profileConfig");
        const cJSON *vlan = nullptr;
        cJSON_ArrayForEach(vlan, member(request, "vlans")) {
            const auto id = VlanId::from(integerMember(vlan, "vlanId").value_or(0));
            if (id)
                names_.insert_or_assign(*id, stringMember(request, "name").value_or(""));
        }
    }
}

Result<VlanOwners> VlanOwners::read(Where where) {
    using platform::paths::kProfileRecord;
    VlanOwners owners;
    if (!fileExists(platform::paths::kProfileDb)) {
        const JsonPtr record(jsonFileLoad(kProfileRecord));
        if (record == nullptr && fileExists(kProfileRecord)) {
            logError(where, "[%s:%d] the profile record %s cannot be read\n", std::string(kProfileRecord));
            return failed(ResultCode::Failed, "the profile record cannot be read");
        }
        owners.addProfiles(member(record.get(), "profiles"));
        owners.addProfiles(member(member(record.get(), "pending"), "profiles"));
        return owners;
    }
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

std::map<IfNum, OwnedInterface> VlanOwners::interfaces(Switch sw, Tagging frames,
                                                       std::optional<VlanId> except) const {
    std::map<IfNum, OwnedInterface> owned;
    if (empty())
        return owned;
    const auto ownerOf = [&](IfNum ifNum) -> const std::string * {
        if (frames == Tagging::Untagged) {
            const auto pvid = sw.pvid(ifNum);
            return pvid && *pvid != except ? find(*pvid) : nullptr;
        }
        for (const VlanId id : sw.taggedVlans(ifNum).value_or(std::vector<VlanId>{}))
            if (const std::string *const owner = id != except ? find(id) : nullptr)
                return owner;
        return nullptr;
    };
    const auto note = [&](IfNum ifNum, const std::string &name) {
        if (const std::string *const owner = ownerOf(ifNum))
            owned.emplace(ifNum, OwnedInterface{*owner, name});
    };
    for (const IfNum port : sw.ports())
        note(port, portCliName(port));
    std::optional<LagNumbering> numbering;
    for (const IfNum lag : sw.lags()) {
        if (!numbering)
            numbering = LagNumbering{lag};
        note(lag, lagCliName(numbering->numberOf(lag)));
    }
    return owned;
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
