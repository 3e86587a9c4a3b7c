#include "profile/change.h"

#include <algorithm>
#include <utility>

#include "common/log.h"
#include "profile/placing.h"

namespace pavo {
namespace {

using Kind = ThingName::Kind;
using Value = std::optional<std::string>;

constexpr const char *kNonMember = "auto";

// --- what is wanted

Standing standingOfOne(const Standing &standing, const AppliedProfile *profile) {
    Standing own;
    std::ranges::copy_if(standing.vlans, std::back_inserter(own.vlans),
                         [&](const PlacedVlan &placed) { return placed.profile == profile; });
    return own;
}

// The names of the profiles that want each block.
std::map<std::string, std::set<std::string>> ownersOfBlocks(const Standing &standing) {
    std::map<std::string, std::set<std::string>> owners;
    std::set<const AppliedProfile *> seen;
    for (const auto &placed : standing.vlans) {
        if (!seen.insert(placed.profile).second)
            continue;
        const auto needs = readFeatureNeeds(standingOfOne(standing, placed.profile));
        for (const auto &block : blocksOf(needs, {}))
            owners[block.name].insert(placed.profile->request.name);
        for (const auto &filter : filtersOf(needs))
            owners[filter.setting].insert(placed.profile->request.name);
    }
    return owners;
}

// Places VLANs and ports, and notes for each thing that is named or changed who does.
class Placer {
  public:
    Placer(PortNames &ports, const SwitchState &base, Wanted &wanted)
        : ports_(ports), state_(base), last_(thingsOf(base)), wanted_(wanted) {}

    void place(const Standing &standing) {
        for (const auto &placed : standing.vlans) {
            placeVlan(placed, ports_, state_);
            note(placed, claimsOf(placed, ports_));
        }
        for (const auto &placed : standing.vlans) {
            placeTaggedPorts(placed, ports_, state_);
            note(placed, {});
        }
        placeMtu(standing, ports_, state_);
        wanted_.things = thingsOf(state_);
    }

  private:
    void note(const PlacedVlan &placed, const std::set<std::string> &named) {
        auto now = thingsOf(state_);
        auto changed = named;
        for (const auto &key : namesOf({&last_, &now}))
            if (thingOf(last_, key) != thingOf(now, key))
                changed.insert(key);
        for (const auto &key : changed)
            wanted_.claims[key].insert(placed.profile->request.name);
        last_ = std::move(now);
    }

    PortNames &ports_;
    SwitchState state_;
    Things last_;
    Wanted &wanted_;
};

void addBlocks(const Standing &standing, Wanted &wanted) {
    const auto owners = ownersOfBlocks(standing);
    const auto ownersOf = [&](const std::string &name) {
        const auto it = owners.find(name);
        return it == owners.end() ? std::set<std::string>() : it->second;
    };
    for (const auto &block : wanted.blocks)
        for (const auto &[name, value] : block.on) {
            putThing(wanted.things, name, value);
            wanted.claims[name].merge(ownersOf(block.name));
        }
    for (const auto &filter : filtersOf(wanted.needs))
        if (!filter.setting.empty())
            wanted.claims[filter.setting].merge(ownersOf(filter.setting));
}

void fillWanted(const Standing &standing, const SwitchState &base, PortNames &ports,
                const FeatureNeeds &other, Wanted &wanted) {
    wanted.blocks = blocksOf(wanted.needs, other);
    Placer(ports, base, wanted).place(standing);
    addBlocks(standing, wanted);
}

// The switch as it would be without profiles.
SwitchState baseOf(const ProfileSession &session, const Things &observed) {
    auto base = observed;
    for (const auto &[name, thing] : session.record.things)
        putThing(base, name, thing.before);
    auto state = stateOf(base);
    state.lagMembers = session.observed.lagMembers;
    return state;
}

// --- where that leads

bool isInPlace(const RecordedThing *recorded, const Value &wanted, const Value &observed) {
    return observed == wanted ||
           (recorded != nullptr && recorded->want == wanted && recorded->shown == observed);
}

// What profiles do not want any more: back to what it was, unless somebody else has changed it since.
Value givenBack(const RecordedThing &recorded, const Value &observed) {
    return observed == recorded.want || observed == recorded.shown ? recorded.before : observed;
}

class Targeting {
  public:
    Targeting(ProfileChange &change, const std::map<std::string, RecordedThing> &recorded)
        : change_(change), recorded_(recorded) {}

    void run() {
        change_.target = change_.observed;
        change_.things = recorded_;
        auto keys = namesOf({&change_.observed, &change_.wantedBefore.things, &change_.wantedAfter.things});
        for (const auto &[name, thing] : recorded_)
            keys.insert(name);
        for (const auto &[name, claims] : change_.wantedAfter.claims)
            keys.insert(name);
        for (const auto &name : keys)
            if (const auto claims = change_.wantedAfter.claims.find(name);
                claims != change_.wantedAfter.claims.end())
                claimed(name, claims->second);
            else
                free(name);
        leaveLastWord();
        dropVlans();
        change_.thingsAfter = change_.things;
        std::erase_if(change_.thingsAfter, [&](const auto &item) { return givenUp_.contains(item.first); });
    }

  private:
    const RecordedThing *recorded(const std::string &name) const {
        const auto it = recorded_.find(name);
        return it == recorded_.end() ? nullptr : &it->second;
    }

    void claimed(const std::string &name, const std::set<std::string> &profiles) {
        const auto *const known = recorded(name);
        const auto observed = thingOf(change_.observed, name);
        if (isFilter(name)) {
            change_.things[name] = {known != nullptr ? known->before : observed, {}, {}, profiles};
            return;
        }
        const auto wanted = thingOf(change_.wantedAfter.things, name);
        const bool concerned = profiles.contains(change_.name) ||
                               (known != nullptr && known->profiles.contains(change_.name)) ||
                               thingOf(change_.wantedBefore.things, name) != wanted ||
                               !change_.wantedBefore.claims.contains(name);
        if (!concerned && known == nullptr)
            return;  // its template has changed; that waits for a change of the profile
        RecordedThing thing = known != nullptr ? *known : RecordedThing{observed, wanted, observed, {}};
        if (concerned) {
            if (!isInPlace(known, wanted, observed)) {
                putThing(change_.target, name, wanted);
                thing.shown = wanted;  // how the switch shows it is known afterwards
            }
            thing.want = wanted;
        }
        thing.profiles = profiles;
        thing.wentAlong = false;
        change_.things[name] = std::move(thing);
    }

    // Nobody claims it any more. What a profile once claimed, and no longer does because its template has changed,
    // waits for a change of that profile.
    void free(const std::string &name) {
        const auto *const known = recorded(name);
        if (known == nullptr)
            return;
        const auto isThere = [&](const std::string &profile) {
            return std::ranges::any_of(
                change_.after, [&](const AppliedProfile &other) { return other.request.name == profile; });
        };
        const bool about = known->profiles.contains(change_.name);
        if (known->wentAlong ? std::ranges::any_of(known->profiles, isThere)
                             : !about && !change_.wantedBefore.claims.contains(name) &&
                                   !known->profiles.empty() && std::ranges::all_of(known->profiles, isThere))
            return;
        givenUp_.insert(name);
        // Half a change leaves values that nobody wanted: they are not somebody's own.
        if (!isFilter(name))
            putThing(change_.target, name,
                     change_.resumed && about ? known->before
                                              : givenBack(*known, thingOf(change_.observed, name)));
    }

    // Some blocks go off to a value of their own, which stands where there was none before.
    void leaveLastWord() {
        for (const auto &block : change_.blocksGone)
            for (const auto &[name, value] : block.off) {
                const auto *const known = recorded(name);
                if (value && known != nullptr && !known->before && !change_.target.contains(name) &&
                    !change_.wantedAfter.claims.contains(name))
                    change_.target[name] = *value;
            }
    }

    // An interface whose own VLAN goes falls back to the default VLAN. Detection takes the LAG of an endpoint out of
    // that one, and it would be in none.
    void returnToDefaultVlan() {
        std::vector<std::string> left;
        for (const auto &[name, value] : change_.target) {
            const auto thing = parseThingName(name);
            if (thing.kind == Kind::Pvid && !hasVlan(change_.target, VlanId::from(std::atoi(value.c_str()))))
                left.push_back(membershipThing(thing.interface, kDefaultVlan));
        }
        for (const auto &name : left)
            if (thingOf(change_.target, name) == kNonMember)
                change_.target.erase(name);
    }

    // A VLAN that goes takes along what is about it, and nothing comes back into one that is not there.
    void dropVlans() {
        auto &target = change_.target;
        returnToDefaultVlan();
        std::erase_if(target, [&](const auto &item) {
            const auto &[name, value] = item;
            const auto thing = parseThingName(name);
            auto id = thing.id;
            if (thing.kind == Kind::Pvid)
                id = VlanId::from(std::atoi(value.c_str()));
            if (thing.kind == Kind::Vlan || hasVlan(target, id))
                return false;
            // What was so before, of a VLAN that never was, is not ours to clear.
            return hasVlan(change_.observed, id) || thingOf(change_.observed, name) != Value(value);
        });
    }

    ProfileChange &change_;
    const std::map<std::string, RecordedThing> &recorded_;
    std::set<std::string> givenUp_;
};

// A port that is not there is passed over; one that the switch does not tell about is not.
Result<> learnPorts(const AppliedProfiles &profiles, ProfileSession &session) {
    for (const auto &profile : profiles)
        for (const auto &vlan : profile.request.vlans)
            for (const auto *list : {&vlan.untagged, &vlan.tagged})
                for (const IfNum port : *list)
                    if (const auto name = session.ports.find(port);
                        !name && name.error() != OpenError::NotFound) {
                        const auto why = formatText("the switch does not say what interface %d is", port);
                        logError(session.where, "[%s:%d] %s (result = %d)\n", why, name.error());
                        return failed(ResultCode::Failed, why);
                    }
    return {};
}

}  // namespace

Result<std::unique_ptr<ProfileChange>> planChange(ProfileSession &session, AppliedProfiles goal,
                                                  std::string name) {
    auto change = std::make_unique<ProfileChange>();
    change->name = std::move(name);
    change->resumed = session.record.pending.has_value();
    change->before = session.record.profiles;
    change->after = std::move(goal);
    for (const auto *profiles : {&change->before, &change->after})
        if (auto known = learnPorts(*profiles, session); !known)
            return std::unexpected(std::move(known).error());
    change->from = standingOf(change->before);
    change->to = standingOf(change->after);
    change->observed = thingsOf(session.observed);
    const auto base = baseOf(session, change->observed);
    change->wantedBefore.needs = readFeatureNeeds(change->from, &change->wantedBefore.losses);
    change->wantedAfter.needs = readFeatureNeeds(change->to, &change->wantedAfter.losses);
    fillWanted(change->from, base, session.ports, change->wantedAfter.needs, change->wantedBefore);
    fillWanted(change->to, base, session.ports, change->wantedBefore.needs, change->wantedAfter);
    const auto stays = [&](const FeatureBlock &block) {
        return std::ranges::any_of(change->wantedAfter.blocks,
                                   [&](const FeatureBlock &other) { return other.name == block.name; });
    };
    std::ranges::copy_if(change->wantedBefore.blocks, std::back_inserter(change->blocksGone),
                         [&](const FeatureBlock &block) { return !stays(block); });
    const auto filtersAfter = filtersOf(change->wantedAfter.needs);
    for (auto &filter : filtersOf(change->wantedBefore.needs)) {
        const bool kept = std::ranges::any_of(
            filtersAfter, [&](const FilterBlock &other) { return other.setting == filter.setting; });
        const auto known = session.record.things.find(filter.setting);
        // One that was there before the profile stays.
        const bool ours = known == session.record.things.end() || !known->second.before;
        if (!kept && ours)
            change->filtersGone.push_back(std::move(filter));
    }
    Targeting(*change, session.record.things).run();
    return change;
}

}  // namespace pavo
