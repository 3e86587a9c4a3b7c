#include "ctl/vlan_commands.h"

#include "vlan/vlan_picture.h"

namespace pavo::ctl {
namespace {

void addLags(cJSON *object, const char *key, const std::vector<std::uint32_t> &lags) {
    cJSON *const array = cJSON_AddArrayToObject(object, key);
    for (const std::uint32_t lag : lags)
        appendNumber(array, lag);
}

void fillVlan(cJSON *object, const VlanPicture &vlan) {
    cJSON_AddNumberToObject(object, "vlanId", vlan.id.number());
    cJSON_AddStringToObject(object, "name", vlan.name.c_str());
    cJSON_AddStringToObject(object, "profileName", vlan.profileType.c_str());
    cJSON_AddStringToObject(object, "color", vlan.color.c_str());
    cJSON_AddBoolToObject(object, "isStatic", vlan.isStatic);
    cJSON_AddBoolToObject(object, "isMgmtVlan", vlan.isManagement);
    addNumbers(object, "untagPorts", vlan.members.untaggedPorts);
    addNumbers(object, "tagPorts", vlan.members.taggedPorts);
    addLags(object, "untagLags", vlan.members.untaggedLags);
    addLags(object, "tagLags", vlan.members.taggedLags);
}

Row rowOf(const VlanPicture &vlan) {
    const auto &members = vlan.members;
    return {std::to_string(vlan.id.number()),
            vlan.name,
            vlan.profileType,
            rangesOf(members.untaggedPorts),
            rangesOf(members.taggedPorts),
            rangesOf(members.untaggedLags),
            rangesOf(members.taggedLags),
            vlan.isManagement ? "management" : ""};
}

}  // namespace

void showVlans(Switch sw, const Output &output, std::optional<VlanId> only) {
    const auto vlans = require(readVlanPictures(sw), "the VLANs cannot be read");
    const JsonPtr answer(cJSON_CreateArray());
    std::vector<Row> rows;
    for (const auto &vlan : vlans) {
        if (only && vlan.id != *only)
            continue;
        fillVlan(appendObject(answer.get()), vlan);
        rows.push_back(rowOf(vlan));
    }
    if (only && rows.empty())
        throw Failure{ResultCode::NotExist, "VLAN " + std::to_string(only->number())};
    if (output.json)
        printEnvelope(ResultCode::Success, "vlans", printJson(answer.get()).c_str());
    else
        output.printTable({"VLAN", "NAME", "PROFILE", "UNTAGGED", "TAGGED", "LAGS", "TAGGED LAGS", ""}, rows);
}

}  // namespace pavo::ctl
