#include "ctl/vlan_commands.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <vector>

#include "common/json.h"
#include "common/text.h"
#include "swapi/switch_settings_ops.h"
#include "vlan/ip_interfaces.h"
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

constexpr const char *kForceHint = "; --force changes it all the same";

OfProfiles ofProfiles(bool force) {
    return force ? OfProfiles::Change : OfProfiles::Refuse;
}

// Stricter than the web interface's: what is no list is no command.
std::vector<std::uint32_t> vlansOf(const std::string &list) {
    const auto isItem = [](std::string_view item) {
        const auto dash = item.find('-');
        const auto low = wholeNumber(item.substr(0, dash));
        const auto high = dash == std::string_view::npos ? low : wholeNumber(item.substr(dash + 1));
        return low && high && *low >= VlanId::kMin && *low <= *high && *high <= VlanId::kMax;
    };
    std::string_view rest = list;
    bool isList = list.find_first_not_of("0123456789,-") == std::string::npos;
    while (isList) {
        const auto comma = rest.find(',');
        isList = isItem(rest.substr(0, comma));
        if (comma == std::string_view::npos)
            break;
        rest.remove_prefix(comma + 1);
    }
    if (!isList)
        throw Failure{ResultCode::InvalidArgument,
                      quoteText(list) + " is no list of VLANs from 1 to 4094, such as 10,20-25"};
    return parseVlanList(list);
}

// What an operator may be connected by goes with `force` only.
void keepAddresses(Switch sw, const std::vector<std::uint32_t> &vlans) {
    const auto isListed = [&](std::uint32_t vlan) { return std::ranges::find(vlans, vlan) != vlans.end(); };
    const auto keep = [](std::uint32_t vlan, const char *what) {
        throw Failure{ResultCode::Failed, "VLAN " + std::to_string(vlan) + " has " + what + kForceHint};
    };
    std::int32_t management = 0;
    if (managementVlanGet(sw, &management) != 0)
        throw Failure{ResultCode::Failed,
                      "the switch does not tell which VLAN the management interface is in"};
    if (isListed(static_cast<std::uint32_t>(management)))
        keep(static_cast<std::uint32_t>(management), "the management interface");
    for (const IpInterface &interface :
         require(readIpInterfaces(sw), "the routing interfaces cannot be read"))
        if (isListed(interface.vlan.number()))
            keep(interface.vlan.number(), "a routing interface");
}

// The result of a change. What is refused for the sake of a profile says how it can be done.
VlanChange changeOf(Result<VlanChange> result, bool force) {
    if (!result && !force && result.error().reason.starts_with("profile \""))
        result.error().reason += kForceHint;
    return require(std::move(result));
}

std::string listOf(const std::vector<VlanId> &vlans) {
    std::vector<std::uint32_t> numbers;
    numbers.reserve(vlans.size());
    for (const VlanId id : vlans)
        numbers.push_back(id.number());
    return rangesOf(std::move(numbers));
}

// What profiles had of what was changed, and what that means for them.
void printChanged(const Output &output, const char *word, const VlanChange &change,
                  const char *consequence = "which applying it again brings back") {
    if (output.json) {
        printEnvelope(ResultCode::Success, "vlanChange", printVlanChange(change).c_str());
        return;
    }
    output.printDone(word);
    if (!change.ofProfiles.empty())
        std::printf("%s, %s\n", printable(describe(change.ofProfiles)).c_str(), consequence);
    if (change.isPending)
        std::puts("the switch has accepted this, but does not show it yet");
}

// The answer of a change of all interfaces: it is done when every one has taken it.
void printAll(const Output &output, const VlanChange &all,
              const char *consequence = "which applying it again brings back") {
    if (all.refused > 0)
        throw Failure{ResultCode::Failed,
                      std::to_string(all.refused) + " of " + std::to_string(all.interfaces) +
                          " ports and LAGs were not changed" +
                          (all.ofProfiles.empty() ? "" : "; changed by hand: " + describe(all.ofProfiles))};
    printChanged(output, "set", all, consequence);
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
    rows.reserve(details.interfaces.size());
    for (const VlanInterface &interface : details.interfaces)
        rows.push_back({interface.name.value_or("?"), shown(interface.currentWord()),
                        shown(interface.configuredWord()), shown(interface.taggingWord())});
    output.printTable({"INTERFACE", "CURRENT", "CONFIGURED", "TAGGING"}, rows);
}

void createListedVlans(Switch sw, const Output &output, const std::string &list) {
    const auto change = require(createVlans(sw, vlansOf(list)));
    printChanged(output,
                 change.vlans.empty() ? "all of them exist" : ("created " + listOf(change.vlans)).c_str(),
                 change);
}

void deleteListedVlans(Switch sw, const Output &output, const std::string &list, bool force) {
    const auto vlans = vlansOf(list);
    // Before those in front of it have gone.
    if (std::ranges::find(vlans, kDefaultVlan.number()) != vlans.end())
        throw Failure{ResultCode::InvalidArgument, "VLAN 1 cannot be deleted"};
    if (!force)
        keepAddresses(sw, vlans);
    const auto change = changeOf(deleteVlans(sw, vlans, ofProfiles(force)), force);
    printChanged(output,
                 change.vlans.empty() ? "none of them exists" : ("deleted " + listOf(change.vlans)).c_str(),
                 change);
}

void runVlanName(Switch sw, const Output &output, std::uint32_t vlan, const std::optional<std::string> &name,
                 bool force) {
    if (name) {
        printChanged(output, "named", changeOf(renameVlan(sw, vlan, *name, ofProfiles(force)), force));
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
    printAll(output, changeOf(setParticipationOfAll(sw, vlan, kModes.at(mode), ofProfiles(force)), force));
}

void setVlanTagging(Switch sw, const Output &output, std::uint32_t vlan, const std::string &tagging,
                    bool force) {
    require(requireVlan(sw, vlan));
    require(requireVlan(sw, vlan));
    printAll(output,
             changeOf(setTaggingOfAll(sw, vlan, tagging == "tagged" ? Tagging::Tagged : Tagging::Untagged,
                                      ofProfiles(force)),
                      force));
}

void setVlanFrames(Switch sw, const Output &output, const std::string &frames, bool force) {
    printAll(output, changeOf(setAcceptFramesOfAll(sw, kFrames.at(frames), ofProfiles(force)), force),
             "whose frames are dropped there until this is \"all\" again");
}

void setVlanPvid(Switch sw, const Output &output, std::uint32_t vlan, bool force) {
    printAll(output, changeOf(setPvidOfAll(sw, vlan, ofProfiles(force)), force));
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
