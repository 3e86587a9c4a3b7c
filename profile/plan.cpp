#include "profile/plan.h"

#include <algorithm>
#include <set>

#include "common/json.h"
#include "common/log_format.h"
#include "common/text.h"

namespace pavo {
namespace {

using Kind = ThingName::Kind;

std::string valueText(const std::string &name, const std::optional<std::string> &value) {
    const auto thing = parseThingName(name);
    if (!value) {
        if (thing.kind == Kind::Vlan)
            return "absent";
        return thing.kind == Kind::Pvid ? "1" : "default";
    }
    // On by default: what the setting says is "no".
    if (name.ends_with("factory-default-vlan"))
        return "off";
    const auto lines = std::ranges::count(*value, '\n');
    if (lines > 0)
        return formatText("(%d lines)", static_cast<int>(lines));
    if (thing.kind == Kind::VlanName)
        return quoteText(*value);
    return *value;
}

std::vector<PlanLine> &groupOf(const std::string &name, ProfilePlan &plan) {
    const auto thing = parseThingName(name);
    if (!thing.interface.empty())
        return plan.ports;
    return thing.id ? plan.vlans : plan.switchWide;
}

// Without what goes with its VLAN anyway.
bool isImplied(const std::string &name, const ProfileChange &change) {
    const auto thing = parseThingName(name);
    return thing.kind != Kind::Vlan && thing.id && thing.interface.empty() && *thing.id != kDefaultVlan &&
           !change.target.contains(vlanThing(*thing.id));
}

// What a change brings that was not so before.
std::vector<Loss> newLosses(const ProfileChange &change) {
    auto before = change.from.losses, after = change.to.losses;
    before.insert(before.end(), change.wantedBefore.losses.begin(), change.wantedBefore.losses.end());
    after.insert(after.end(), change.wantedAfter.losses.begin(), change.wantedAfter.losses.end());
    std::erase_if(after, [&](const Loss &loss) { return std::ranges::find(before, loss) != before.end(); });
    return after;
}

JsonPtr linesJson(const std::vector<PlanLine> &lines) {
    JsonPtr array(cJSON_CreateArray());
    for (const auto &line : lines) {
        cJSON *const object = cJSON_CreateObject();
        cJSON_AddItemToArray(array.get(), object);
        cJSON_AddStringToObject(object, "what", line.what.c_str());
        cJSON_AddStringToObject(object, "now", wellFormed(line.now).c_str());
        cJSON_AddStringToObject(object, "then", wellFormed(line.then).c_str());
    }
    return array;
}

}  // namespace

ProfilePlan planOf(const ProfileChange &change) {
    ProfilePlan plan;
    plan.profile = change.name;
    std::set<std::string> keys;
    for (const auto *things : {&change.observed, &change.target})
        for (const auto &[name, value] : *things)
            keys.insert(name);
    for (const auto &name : keys) {
        const auto now = thingOf(change.observed, name), then = thingOf(change.target, name);
        if (now != then && !isImplied(name, change))
            groupOf(name, plan).push_back({name, valueText(name, now), valueText(name, then)});
    }
    for (const auto &filter : change.filtersGone)
        if (change.observed.contains(filter.setting)) {
            plan.switchWide.push_back({filter.setting, "present", "absent"});
            plan.notKept.push_back(filter.setting + " is deleted for good");
        }
    for (auto &loss : newLosses(change))
        if (loss.taker == change.name)
            plan.taken.push_back(std::move(loss));
        else
            plan.notKept.push_back(formatText("%s of profile %s goes to profile %s", loss.what,
                                              quoteText(loss.loser), quoteText(loss.taker)));
    for (const auto &[name, thing] : change.things) {
        // Somebody has changed it since: it stays as it is, and what was before does not come back.
        const auto now = thingOf(change.observed, name);
        if (!change.thingsAfter.contains(name) && thing.want && now == thingOf(change.target, name) && now &&
            now != thing.before && !isImplied(name, change))
            plan.notKept.push_back(
                formatText("%s stays at %s: it was changed since", name, valueText(name, now)));
    }
    return plan;
}

std::string printPlan(const ProfilePlan &plan) {
    const JsonPtr object(cJSON_CreateObject());
    cJSON_AddStringToObject(object.get(), "profile", wellFormed(plan.profile).c_str());
    cJSON_AddBoolToObject(object.get(), "changes", !plan.empty());
    addItem(object.get(), "switch", linesJson(plan.switchWide));
    addItem(object.get(), "vlans", linesJson(plan.vlans));
    addItem(object.get(), "ports", linesJson(plan.ports));
    cJSON *const taken = cJSON_AddArrayToObject(object.get(), "taken");
    for (const auto &loss : plan.taken) {
        cJSON *const item = cJSON_CreateObject();
        cJSON_AddItemToArray(taken, item);
        cJSON_AddStringToObject(item, "what", loss.what.c_str());
        cJSON_AddStringToObject(item, "from", wellFormed(loss.loser).c_str());
        cJSON_AddStringToObject(item, "to", wellFormed(loss.taker).c_str());
    }
    cJSON *const notKept = cJSON_AddArrayToObject(object.get(), "notKept");
    for (const auto &sentence : plan.notKept)
        cJSON_AddItemToArray(notKept, cJSON_CreateString(wellFormed(sentence).c_str()));
    return printJson(object.get());
}

}  // namespace pavo
