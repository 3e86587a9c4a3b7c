#include "ctl/vlan_commands.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <vector>

#include "common/json.h"
#include "common/text.h"
#include "vlan/switchport_mode.h"
#include "vlan/vlan_changes.h"
#include "vlan/vlan_details.h"
#include "vlan/vlan_list.h"
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

const std::map<std::string, Participation> kModes = {
    {"include", Participation::Include}, {"auto", Participation::Auto}, {"exclude", Participation::Exclude}};
const std::map<std::string, AcceptFrames> kFrames = {{"all", AcceptFrames::All},
                                                     {"vlanonly", AcceptFrames::VlanOnly},
                                                     {"admituntaggedonly", AcceptFrames::UntaggedOnly}};

OfProfiles ofProfiles(bool force) {
    return force ? OfProfiles::Change : OfProfiles::Refuse;
}

std::vector<std::uint32_t> vlansOf(const std::string &list) {
    const auto isListed = [](char c) { return (c >= '0' && c <= '9') || c == ',' || c == '-' || c == ' '; };
    auto vlans = std::ranges::all_of(list, isListed) ? parseVlanList(list) : std::vector<std::uint32_t>{};
    if (vlans.empty() || std::ranges::any_of(vlans, [](std::uint32_t vlan) { return !VlanId::from(vlan); }))
        throw Failure{ResultCode::InvalidArgument,
                      quoteText(list) + " is no list of VLANs from 1 to 4094, such as 10,20-25"};
    return vlans;
}

// "deleted", and what that took from profiles.
void printChanged(const Output &output, const char *word, const ProfileThings &ofProfiles) {
    output.printDone(word);
    if (!output.json && !ofProfiles.empty())
        std::printf("%s, which applying it again brings back\n", printable(describe(ofProfiles)).c_str());
}

// The answer of a change of all interfaces: it is done when every one has taken it.
void printAll(const Output &output, Result<AllInterfaces> result) {
    const auto all = require(std::move(result));
    if (all.refused > 0)
        throw Failure{ResultCode::Failed, std::to_string(all.refused) + " of " + std::to_string(all.count) +
                                              " ports and LAGs were not changed"};
    printChanged(output, "set", all.ofProfiles);
}

std::string shown(const std::optional<const char *> &word) {
    return word.value_or("?");
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

void showVlanInterfaces(Switch sw, const Output &output, std::uint32_t vlan) {
    const auto details = require(readVlanDetails(sw, vlan));
    if (output.json) {
        printEnvelope(ResultCode::Success, "vlan", printVlanDetails(details).c_str());
        return;
    }
    std::vector<Row> rows;
    for (const VlanInterface &interface : details.interfaces)
        rows.push_back({interface.name.value_or("?"), shown(interface.currentWord()),
                        shown(interface.configuredWord()), shown(interface.taggingWord())});
    output.printTable({"INTERFACE", "CURRENT", "CONFIGURED", "TAGGING"}, rows);
}

void createListedVlans(Switch sw, const Output &output, const std::string &list) {
    require(createVlans(sw, vlansOf(list)));
    output.printDone("created");
}

void deleteListedVlans(Switch sw, const Output &output, const std::string &list, bool force) {
    printChanged(output, "deleted", require(deleteVlans(sw, vlansOf(list), ofProfiles(force))));
}

void runVlanName(Switch sw, const Output &output, std::uint32_t vlan, const std::optional<std::string> &name,
                 bool force) {
    if (name) {
        printChanged(output, "named", require(renameVlan(sw, vlan, *name, ofProfiles(force))));
        return;
    }
    const auto summary = require(readVlanName(sw, vlan));
    if (output.json)
        printEnvelope(ResultCode::Success, "vlan", printVlanName(summary).c_str());
    else
        std::puts(printable(summary.name.value_or("?")).c_str());
}

void setVlanParticipation(Switch sw, const Output &output, std::uint32_t vlan, const std::string &mode,
                          bool force) {
    printAll(output, setParticipationOfAll(sw, vlan, kModes.at(mode), ofProfiles(force)));
}

void setVlanTagging(Switch sw, const Output &output, std::uint32_t vlan, const std::string &tagging,
                    bool force) {
    printAll(output, setTaggingOfAll(sw, vlan, tagging == "tagged" ? Tagging::Tagged : Tagging::Untagged,
                                     ofProfiles(force)));
}

void setVlanFrames(Switch sw, const Output &output, const std::string &frames) {
    printAll(output, setAcceptFramesOfAll(sw, kFrames.at(frames)));
}

void setVlanPvid(Switch sw, const Output &output, std::uint32_t vlan, bool force) {
    printAll(output, setPvidOfAll(sw, vlan, ofProfiles(force)));
}

void runVlanAuto(Switch sw, const Output &output, const std::string &mode) {
    if (!mode.empty()) {
        require(setSwitchportModeAuto(sw, mode == "enable"));
        output.printDone("set");
        return;
    }
    const char *const word = require(readSwitchportModeAuto(sw)) ? "enable" : "disable";
    if (output.json)
        printEnvelope(ResultCode::Success, "switchportModeAuto",
                      (std::string("{\"mode\":\"") + word + "\"}").c_str());
    else
        std::puts(word);
}

}  // namespace pavo::ctl
