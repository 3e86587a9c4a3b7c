#include "ctl/profile_commands.h"

#include <algorithm>
#include <cstdio>
#include <vector>

#include "common/text.h"
#include "ctl/plan_text.h"
#include "ctl/port_list.h"
#include "profile/apply.h"
#include "profile/configure.h"
#include "profile/feature_mask_ops.h"
#include "profile/list.h"
#include "profile/request.h"
#include "profile/templates.h"
#include "store/profile_demand.h"

namespace pavo::ctl {
namespace {

constexpr const char *kNoProfiles = "the profiles cannot be read";

// What a template says under a key, for people.
std::string textOf(const cJSON *object, const char *key) {
    const cJSON *const item = member(object, key);
    if (cJSON_IsString(item))
        return item->valuestring;
    if (cJSON_IsNumber(item))
        return std::to_string(item->valueint);
    if (cJSON_IsBool(item))
        return cJSON_IsTrue(item) ? "yes" : "no";
    return "";
}

std::string namesOf(const ProfileDemand &demand) {
    std::string names;
    for (const auto &feature : demandNames())
        if (feature.wanted(demand))
            names += (names.empty() ? "" : " ") + std::string(feature.name);
    return names;
}

std::string idsOf(const ListedProfile &profile) {
    std::string ids;
    for (const auto &vlan : profile.vlans)
        ids += (ids.empty() ? "" : ",") + std::to_string(vlan.row.id);
    return ids.empty() ? "-" : ids;
}

// The members of all VLANs of a profile.
VlanMembers membersOf(const ListedProfile &profile) {
    VlanMembers all;
    const auto add = [&](auto list, const VlanMembers &members) {
        for (const auto interface : members.*list)
            if (std::ranges::find(all.*list, interface) == (all.*list).end())
                (all.*list).push_back(interface);
    };
    for (const auto &vlan : profile.vlans) {
        const auto members = vlan.members.value_or(VlanMembers{});
        add(&VlanMembers::untaggedPorts, members);
        add(&VlanMembers::taggedPorts, members);
        add(&VlanMembers::untaggedLags, members);
        add(&VlanMembers::taggedLags, members);
    }
    return all;
}

Row rowOf(const ListedProfile &profile) {
    const auto members = membersOf(profile);
    return {profile.name,
            profile.profileType,
            idsOf(profile),
            portListOf(members.untaggedPorts, members.untaggedLags),
            portListOf(members.taggedPorts, members.taggedLags),
            profile.color,
            profile.incomplete.empty() ? "complete" : "incomplete"};
}

Row rowOf(const ListedVlan &vlan) {
    const auto members = vlan.members.value_or(VlanMembers{});
    const auto ptpTc = vlan.settings ? vlan.settings->ptpTc : std::nullopt;
    return {std::to_string(vlan.row.id),
            std::to_string(vlan.row.vlanType),
            vlan.row.profileType,
            vlan.exists ? portListOf(members.untaggedPorts, members.untaggedLags) : "(not on the switch)",
            portListOf(members.taggedPorts, members.taggedLags),
            ptpTc ? (*ptpTc ? "yes" : "no") : ""};
}

}  // namespace

void showTypes(const Output &output) {
    std::vector<Row> rows;
    const JsonPtr answer(cJSON_CreateArray());
    for (const auto &type : profileTypes()) {
        const auto profileTemplate = loadProfileTemplate(type.name);
        const auto demand = profileDemand(type.name, 0, profileTemplate ? &*profileTemplate : nullptr);
        rows.push_back({type.name, demand.mtu != 0 ? std::to_string(demand.mtu) : "-", namesOf(demand)});
        cJSON *const object = appendObject(answer.get());
        cJSON_AddStringToObject(object, "name", type.name);
        cJSON_AddNumberToObject(object, "mtu", demand.mtu);
        cJSON_AddNumberToObject(object, "features", profileTemplate ? featureMaskOf(demand).features : 0);
    }
    if (output.json)
        printEnvelope(ResultCode::Success, "profileTypes", printJson(answer.get()).c_str());
    else
        output.printTable({"TYPE", "MTU", "FEATURES"}, rows);
}

void showTemplates(Switch sw, const Output &output) {
    const std::string text = listTemplates(sw);
    const JsonPtr list(cJSON_Parse(text.c_str()));
    if (output.json) {
        printEnvelope(ResultCode::Success, "profile", list != nullptr ? text.c_str() : "[]");
        return;
    }
    std::vector<Row> rows;
    const cJSON *item = nullptr;
    cJSON_ArrayForEach(item, list.get()) {
        rows.push_back({textOf(item, "name"), textOf(item, "description")});
    }
    output.printTable({"TEMPLATE", "DESCRIPTION"}, rows);
}

void listProfiles(Switch sw, const Output &output) {
    const auto profiles = require(readProfiles(sw, ListDetails::Full), kNoProfiles);
    if (output.json) {
        printEnvelope(ResultCode::Success, "profileList", printProfiles(profiles).c_str());
        return;
    }
    std::vector<Row> rows;
    rows.reserve(profiles.size());
    for (const auto &profile : profiles)
        rows.push_back(rowOf(profile));
    output.printTable({"PROFILE", "TYPE", "VLANS", "UNTAGGED", "TAGGED", "COLOUR", "STATE"}, rows);
}

void showProfile(Switch sw, const Output &output, const std::string &name) {
    const auto profiles = require(readProfiles(sw, ListDetails::Full), kNoProfiles);
    const auto profile = std::ranges::find(profiles, cutProfileName(name), &ListedProfile::name);
    if (profile == profiles.end())
        throw Failure{ResultCode::NotExist, "there is no profile " + quoteText(name)};
    if (output.json) {
        printEnvelope(ResultCode::Success, "profile", printProfile(*profile).c_str());
        return;
    }
    output.printHeading(profile->name, profile->profileType);
    if (!profile->incomplete.empty())
        output.printHeading("incomplete:", lossesText(profile->incomplete));
    std::vector<Row> rows;
    for (const auto &vlan : profile->vlans)
        rows.push_back(rowOf(vlan));
    output.printTable({"VLAN", "ROLE", "TYPE", "UNTAGGED", "TAGGED", "PTP"}, rows);
}

void applyProfile(Switch sw, const Output &output, const ApplyOptions &options) {
    const auto plan = require(configureProfile(sw, requestOf(sw, options)));
    if (!plan)
        output.printDone("applied");
    else if (output.json)
        printEnvelope(ResultCode::Success, "plan", printPlan(*plan).c_str());
    else
        std::fputs(planText(*plan).c_str(), stdout);
}

bool showStatus(Switch sw, const Output &output, const std::string &name) {
    auto profiles = require(readProfileStatus(sw), kNoProfiles);
    if (!name.empty()) {
        std::erase_if(profiles,
                      [&](const ProfileStatus &status) { return status.name != cutProfileName(name); });
        if (profiles.empty())
            throw Failure{ResultCode::NotExist, "no profile " + quoteText(name) + " has been applied"};
    }
    if (output.json) {
        printEnvelope(ResultCode::Success, "profileStatus", printStatus(profiles).c_str());
    } else {
        for (const auto &status : profiles) {
            output.printHeading(status.name, stateText(status));
            if (!status.repair.empty())
                std::fputs(planText(status.repair, 2).c_str(), stdout);
        }
    }
    return std::ranges::all_of(profiles, &ProfileStatus::isAsApplied);
}

void deleteProfile(Switch sw, const Output &output, const std::string &name) {
    const JsonPtr request(cJSON_CreateObject());
    cJSON_AddStringToObject(request.get(), "name", name.c_str());
    require(pavo::deleteProfile(sw, printJson(request.get())));
    output.printDone("deleted");
}

}  // namespace pavo::ctl
