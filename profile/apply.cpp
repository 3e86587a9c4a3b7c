#include "profile/apply.h"

#include <algorithm>
#include <utility>

#include "common/json.h"
#include "common/log.h"
#include "common/text.h"
#include "profile/change.h"
#include "profile/detection_files.h"
#include "profile/rules.h"
#include "store/profile_types.h"

namespace pavo {
namespace {

AppliedProfiles withoutProfile(AppliedProfiles profiles, const std::string &name) {
    std::erase_if(profiles, [&](const AppliedProfile &profile) { return profile.request.name == name; });
    return profiles;
}

// Puts VLAN 1 back to the default profile, whoever has it.
bool isReturnToDefault(const ProfileRequest &request) {
    return request.name == "default" && request.profileType == PROFILE_TYPE_NAME_DEFAULT &&
           request.vlans.size() == 1 && request.vlans[0].id == kDefaultVlan;
}

// Whether a profile lost something to another one, and would take it back.
bool hasLosses(const AppliedProfiles &profiles, const std::string &name) {
    return std::ranges::any_of(standingOf(profiles).losses,
                               [&](const Loss &loss) { return loss.loser == name; });
}

}  // namespace

Result<std::optional<ProfilePlan>> applyProfile(Switch sw, const ProfileConfig &config,
                                                const VlanSet &replaced, const ProfileLock &held,
                                                Where where) {
    const auto &request = config.request;
    PortNames ports(sw);
    if (auto checked = checkRequest(sw, request, ports, where); !checked)
        return std::unexpected(std::move(checked).error());
    auto session = config.plan ? ProfileSession::look(sw, where) : ProfileSession::open(sw, held, where);
    if (!session)
        return std::unexpected(std::move(session).error());
    if (config.condition != nullptr)
        if (auto holds = config.condition(session->record.profiles.size(), where); !holds)
            return std::unexpected(std::move(holds).error());
    session->ports = std::move(ports);

    auto left = replaced;
    if (isReturnToDefault(request))
        left.insert(kDefaultVlan);
    const auto present = withoutVlans(session->record.profiles, left);
    const auto others = withoutProfile(present, request.name);
    const auto othersStanding = standingOf(others);
    auto checked = config.overwrite ? Result<>() : checkName(request, present, session->observed, where);
    if (checked)
        checked = checkOneVlanTypes(request, othersStanding, session->observed, where);
    if (checked && !config.overwrite)
        checked = checkOwners(request, othersStanding, where);
    if (!checked)
        return std::unexpected(std::move(checked).error());
    const bool takes =
        config.overwrite && hasLosses(withProfile(present, {request, ""}, false), request.name);
    auto goal = withProfile(present, {request, config.document}, takes);
    const auto change = planChange(*session, std::move(goal), request.name);
    if (!change)
        return std::unexpected(change.error());
    if (checked =
            checkExclusions(request, (*change)->wantedAfter, session->observed, config.overwrite, where);
        !checked)
        return std::unexpected(std::move(checked).error());
    if (config.plan) {
        auto plan = planOf(**change);
        for (const auto &placed : standingOf(session->record.profiles).vlans)
            if (left.contains(placed.vlan.id) && !placed.free)
                plan.notKept.push_back(formatText("VLAN %d leaves profile %s for good", placed.vlan.id,
                                                  quoteText(placed.profile->request.name)));
        if (isReturnToDefault(request))
            plan.notKept.emplace_back("VLAN 1 returns to the default profile instead");
        if (const auto &pending = session->record.pending)
            plan.notKept.push_back(
                formatText("a change of profile %s was interrupted and is finished or taken back first",
                           quoteText(pending->name)));
        return std::optional(std::move(plan));
    }
    FileSnapshots snapshots;
    if (!config.document.empty())
        writeDetectionFiles(config, snapshots, where);
    if (auto done = carryOut(*session, **change, held); !done) {
        static_cast<void>(snapshots.restore(where));
        return std::unexpected(std::move(done).error());
    }
    return std::optional<ProfilePlan>();
}

Result<> removeFromVlans(Switch sw, const VlanSet &ids, const ProfileLock &held, Where where) {
    auto session = ProfileSession::open(sw, held, where);
    if (!session)
        return std::unexpected(std::move(session).error());
    const auto change = planChange(*session, withoutVlans(session->record.profiles, ids), "");
    return change ? carryOut(*session, **change, held) : std::unexpected(change.error());
}

Result<> removeProfile(Switch sw, const std::string &name, const ProfileLock &held, Where where) {
    auto session = ProfileSession::open(sw, held, where);
    if (!session)
        return std::unexpected(std::move(session).error());
    // A row whose id is no VLAN's: nothing of it is on the switch.
    const bool stray = std::ranges::any_of(
        session->rows, [&](const ProfileRow &row) { return row.profileName == name && !row.vlan(); });
    if (session->record.find(name) == nullptr && !stray)
        return refuse(ResultCode::NotExist, "there is no such profile", where);
    const auto change = planChange(*session, withoutProfile(session->record.profiles, name), name);
    return change ? carryOut(*session, **change, held) : std::unexpected(change.error());
}

Result<std::vector<ProfileStatus>> readProfileStatus(Switch sw, Where where) {
    auto session = ProfileSession::look(sw, where);
    if (!session)
        return std::unexpected(std::move(session).error());
    std::vector<ProfileStatus> out;
    auto &record = session->record;
    // What a change that was interrupted has left behind is nobody's drift.
    if (record.pending)
        std::erase_if(record.things, [&](const auto &item) {
            return std::ranges::none_of(item.second.profiles, [&](const std::string &name) {
                return record.find(name) != nullptr && name != record.pending->name;
            });
        });
    for (const auto &profile : record.profiles) {
        const auto &name = profile.request.name;
        const auto change = planChange(*session, record.profiles, name);
        if (!change)
            return std::unexpected(change.error());
        ProfileStatus status{name, planOf(**change), {}, record.pending && record.pending->name == name};
        for (const auto *losses : {&(*change)->to.losses, &(*change)->wantedAfter.losses})
            std::ranges::copy_if(*losses, std::back_inserter(status.losses),
                                 [&](const Loss &loss) { return loss.loser == name; });
        out.push_back(std::move(status));
    }
    if (record.pending && record.find(record.pending->name) == nullptr)
        out.push_back({record.pending->name, {}, {}, true});
    return out;
}

std::string printStatus(const std::vector<ProfileStatus> &status) {
    const JsonPtr array(cJSON_CreateArray());
    for (const auto &profile : status) {
        cJSON *const object = cJSON_CreateObject();
        cJSON_AddItemToArray(array.get(), object);
        cJSON_AddStringToObject(object, "name", wellFormed(profile.name).c_str());
        cJSON_AddBoolToObject(object, "asApplied", profile.isAsApplied());
        cJSON_AddBoolToObject(object, "interrupted", profile.interrupted);
        cJSON *const losses = cJSON_AddArrayToObject(object, "losses");
        for (const auto &loss : profile.losses) {
            cJSON *const item = cJSON_CreateObject();
            cJSON_AddItemToArray(losses, item);
            cJSON_AddStringToObject(item, "what", loss.what.c_str());
            cJSON_AddStringToObject(item, "to", wellFormed(loss.taker).c_str());
        }
        addItem(object, "repair", JsonPtr(cJSON_Parse(printPlan(profile.repair).c_str())));
    }
    return printJson(array.get());
}

}  // namespace pavo
