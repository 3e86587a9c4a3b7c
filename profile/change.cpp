#include "profile/change.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <new>
#include <ranges>
#include <utility>

#include "common/files.h"
#include "common/log.h"
#include "platform/clock.h"
#include "profile/detection_files.h"
#include "profile/file_snapshots.h"
#include "profile/placing.h"
#include "profile/switch_script.h"
#include "store/vlan_settings.h"
#include "swapi/poll.h"

namespace pavo {
namespace {

using Kind = ThingName::Kind;
using Value = std::optional<std::string>;

// A configuration that was accepted shows within this time, also on a slow switch.
constexpr int kTargetPolls = 120;

void put(Things &things, const std::string &name, const Value &value) {
    if (value)
        things[name] = *value;
    else
        things.erase(name);
}

std::set<std::string> keysOf(std::initializer_list<const Things *> all) {
    std::set<std::string> keys;
    for (const auto *things : all)
        for (const auto &[name, value] : *things)
            keys.insert(name);
    return keys;
}

bool isSetting(const std::string &name) {
    return parseThingName(name).kind == Kind::Setting;
}

// Filters come from elsewhere: profiles only take them away.
bool isFilter(const std::string &name) {
    return name.starts_with("ip access-list ") || name.starts_with("mac access-list ");
}

bool hasVlan(const Things &things, const std::optional<VlanId> &id) {
    return !id || *id == kDefaultVlan || things.contains(vlanThing(*id));
}

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
        for (const auto &key : keysOf({&last_, &now}))
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
            put(wanted.things, name, value);
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
        put(base, name, thing.before);
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
        auto keys = keysOf({&change_.observed, &change_.wantedBefore.things, &change_.wantedAfter.things});
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
        std::erase_if(change_.thingsAfter, [&](const auto &item) {
            return !change_.wantedAfter.claims.contains(item.first);
        });
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
        RecordedThing thing = known != nullptr ? *known : RecordedThing{observed, wanted, observed, {}};
        if (concerned) {
            if (!isInPlace(known, wanted, observed))
                put(change_.target, name, wanted);
            thing.want = wanted;
        }
        thing.profiles = profiles;
        change_.things[name] = std::move(thing);
    }

    void free(const std::string &name) {
        const auto *const known = recorded(name);
        if (known != nullptr && !isFilter(name))
            put(change_.target, name, givenBack(*known, thingOf(change_.observed, name)));
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

    // A VLAN that goes takes along what is about it, and nothing comes back into one that is not there.
    void dropVlans() {
        auto &target = change_.target;
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
};

// --- carrying it out

std::string processTag(const char *name) {
    return std::string(name) + "_" + std::to_string(getpid());
}

// The script from one configuration to another.
std::string scriptOf(Things from, const Things &to) {
    // Naming a VLAN in its settings would bring it back.
    std::erase_if(from, [&](const auto &item) {
        return isSetting(item.first) && !hasVlan(to, parseThingName(item.first).id);
    });
    const auto before = stateOf(from), after = stateOf(to);
    return switchScript(before, after) + settingsScript(before.settings, after.settings);
}

// Logs how long each phase took.
class PhaseTimer {
  public:
    explicit PhaseTimer(const Where &where) : where_(where) {}

    void done(const std::string &phase) {
        const auto now = platform::monotonicNow();
        const auto spent = std::chrono::duration_cast<std::chrono::milliseconds>(now - last_);
        logDebug(where_, "[%s:%d] %s took %ld ms\n", phase, static_cast<long>(spent.count()));
        last_ = now;
    }

  private:
    Where where_;
    platform::Duration last_ = platform::monotonicNow();
};

// Carries a change out; its destructor takes back what was done, unless all of it was.
class Execution {
  public:
    Execution(ProfileSession &session, const ProfileChange &change)
        : session_(session), change_(change), sw_(session.sw), where_(session.where), now_(change.observed) {
        wholeRecord_ = session.record;
    }
    ~Execution() {
        if (done_ || !begun_ || rolledBack_)
            return;
        try {
            rollBack();
        } catch (const std::bad_alloc &) {
            logError(where_, "[%s:%d] step '%s' failed, and memory ran out while it was rolled back\n", step_);
        }
    }
    Execution(const Execution &) = delete;
    Execution &operator=(const Execution &) = delete;

    Result<> run(const ProfileRequest *request);
    // Only database and files.
    Result<> putRecords() {
        auto done = putRows();
        return done ? putFiles() : done;
    }
    // Only after a failure.
    Failure failure();

  private:
    Result<> announce();
    Result<> switchOffGone();
    Result<> changeVlansAndPorts(const ProfileRequest *request);
    Result<> putRows();
    Result<> putFiles();
    Result<> switchOn();
    Result<> settle();
    Result<> finish();

    Result<> readNow();
    Result<> apply(const std::string &script);
    // Waits until the switch shows `goal`, as far as `names` go.
    Result<> await(const Things &goal, const std::set<std::string> &names);
    bool hasByCall(const std::string &name, const Value &goal);
    Result<> putFile(const std::string &path, const std::string &text);
    void dropFile(const std::string &path);
    void rollBack();
    Result<> restoreSwitch();
    Result<> restoreRows();
    Result<> step(const char *name) {
        step_ = name;
        return {};
    }

    ProfileSession &session_;
    const ProfileChange &change_;
    Switch sw_;
    Where where_;
    Things now_;
    ProfileRecord wholeRecord_;
    // Things that blocks which ran may have changed.
    std::set<std::string> disturbed_;
    // Things that blocks which went off have left at a value of their own.
    std::set<std::string> lastWords_;
    std::vector<ProfileRow> rows_;  // as they are now
    FileSnapshots files_;
    std::string step_ = "profile record";
    std::string left_;
    ResultCode code_ = ResultCode::Failed;
    bool begun_ = false, done_ = false, switchTouched_ = false, rolledBack_ = false;
};

Result<> Execution::readNow() {
    auto state = readSwitchState(sw_, where_);
    if (!state)
        return std::unexpected(std::move(state).error());
    now_ = thingsOf(*state);
    return {};
}

Result<> Execution::apply(const std::string &script) {
    switchTouched_ = true;
    const auto applied = sw_.apply(script, ScriptFiles::forTag(processTag("profile")), where_);
    return applied ? Result<>() : failed(applied.error().code);
}

// Membership of a port as the switch's calls tell it: its text may leave out what it takes for granted.
bool Execution::hasByCall(const std::string &name, const Value &goal) {
    const auto thing = parseThingName(name);
    if (thing.kind == Kind::Mtu)
        return !now_.contains(name);  // accepted and not shown: the default of this switch
    const auto port = session_.ports.ifNumOf(thing.interface);
    if (!port)
        return false;
    if (thing.kind == Kind::Pvid) {
        const auto pvid = sw_.pvidNumber(*port);
        return pvid && std::to_string(*pvid) == goal.value_or("1");
    }
    if (thing.kind != Kind::Membership || !thing.id)
        return false;
    const auto state = stateOf(goal ? Things{{name, *goal}} : Things{});
    const auto it = state.interfaces.find(thing.interface);
    const auto wanted = it == state.interfaces.end() ? InterfaceState{} : it->second;
    const auto tagging = sw_.tagging(*port, *thing.id);
    if (!tagging || (*tagging == Tagging::Tagged) != wanted.tagged.contains(*thing.id))
        return false;
    // What the switch decides by itself is nothing to wait for.
    const auto mode = wanted.participationIn(*thing.id);
    const auto participation = sw_.participation(*port, *thing.id);
    return mode == Participation::Auto || (participation && *participation == mode);
}

Result<> Execution::await(const Things &goal, const std::set<std::string> &names) {
    for (int polls = kTargetPolls; polls > 0; --polls) {
        if (auto read = readNow(); !read)
            return read;
        if (std::ranges::all_of(names, [&](const std::string &name) {
                const auto wanted = thingOf(goal, name);
                return thingOf(now_, name) == wanted || hasByCall(name, wanted);
            }))
            return {};
        platform::sleepFor(kPollInterval);
    }
    logError(where_, "[%s:%d] the switch did not take the configuration after %d reads\n", kTargetPolls);
    return failed(ResultCode::Failed, "the switch did not take the configuration");
}

// The record goes ahead of everything else.
Result<> Execution::announce() {
    static_cast<void>(step("profile record"));
    auto ahead = session_.record;
    ahead.things = change_.things;
    ahead.pending = PendingChange{change_.after, change_.name, false};
    auto written = writeProfileRecord(ahead, where_);
    begun_ = written.has_value();
    return written;
}

// Blocks that nobody needs, as far as their scripts do just what is wanted: not when somebody had such a setting
// before, or has changed it since.
Result<> Execution::switchOffGone() {
    static_cast<void>(step("profile_action_match_and_do"));
    bool ran = false;
    for (const auto &block : change_.blocksGone) {
        const bool fits = std::ranges::all_of(
            block.off, [&](const auto &write) { return thingOf(change_.target, write.first) == write.second; });
        const bool due = std::ranges::any_of(
            block.off, [&](const auto &write) { return thingOf(now_, write.first) != write.second; });
        if (block.off.empty() || !fits || !due)
            continue;
        for (const auto *writes : {&block.on, &block.off})
            for (const auto &[name, value] : *writes)
                disturbed_.insert(name);
        // A value of its own that a block leaves behind may be one that the switch does not show.
        for (const auto &[name, value] : block.off)
            if (value)
                lastWords_.insert(name);
        switchTouched_ = ran = true;
        if (auto done = block.switchOff(sw_); !done)
            return done;
    }
    return ran ? readNow() : Result<>();
}

Result<> Execution::changeVlansAndPorts(const ProfileRequest *request) {
    static_cast<void>(step(request != nullptr ? "vlanParticipationSet" : "vlan delete"));
    auto goal = now_;
    std::set<std::string> names;
    for (const auto &name : keysOf({&change_.observed, &change_.target}))
        if (!isSetting(name) && thingOf(change_.observed, name) != thingOf(change_.target, name)) {
            put(goal, name, thingOf(change_.target, name));
            if (thingOf(now_, name) != thingOf(goal, name))
                names.insert(name);
        }
    const auto script = switchScript(stateOf(now_), stateOf(goal));
    if (names.empty() || script.empty())
        return {};
    if (auto applied = apply(script); !applied)
        return applied;
    return await(goal, names);
}

Result<> Execution::putRows() {
    static_cast<void>(step("profile database"));
    const auto wanted = rowsOf(change_.to);
    const auto write = [&](const ProfileRow &row) -> Result<> {
        return replaceProfileRow(row, where_) ? Result<>() : failed(ResultCode::Failed);
    };
    VlanSet ours;
    for (const auto &placed : change_.from.vlans)
        if (!placed.shared)
            ours.insert(placed.vlan.id);
    for (const auto &row : session_.rows) {
        const auto id = row.vlan();
        const bool stray = !id && row.profileName == change_.name;
        if (stray || (id && ours.contains(*id) && findProfileRow(wanted, row.id) == nullptr))
            if (!deleteProfileRow(row.id, where_))
                return failed(ResultCode::Failed);
    }
    for (const auto &row : wanted) {
        const auto *const old = findProfileRow(session_.rows, row.id);
        if (old == nullptr || *old != row)
            if (auto written = write(row); !written)
                return written;
    }
    return {};
}

VlanHistory historyOf(VlanId id, const std::map<std::string, RecordedThing> &things) {
    VlanHistory history{.created = false, .oldName = "", .oldRouting = std::nullopt};
    if (const auto vlan = things.find(vlanThing(id)); vlan != things.end())
        history.created = !vlan->second.before;
    if (const auto name = things.find(vlanNameThing(id)); name != things.end())
        history.oldName = name->second.before.value_or("");
    if (const auto routing = things.find(routingThing(id)); routing != things.end()) {
        const auto state = stateOf(routing->second.before ? Things{{routing->first, *routing->second.before}}
                                                          : Things{});
        const auto it = state.routing.find(id);
        history.oldRouting = it == state.routing.end() ? VlanRouting{} : it->second;
    }
    return history;
}

Result<> Execution::putFile(const std::string &path, const std::string &text) {
    if (readFile(path, kFileMax, where_) == text)
        return {};
    files_.note(path);
    return replaceFile(path, text, where_);
}

void Execution::dropFile(const std::string &path) {
    if (!fileExists(path))
        return;
    files_.note(path);
    removeFile(path);
}

Result<> Execution::putFiles() {
    static_cast<void>(step("configuration file"));
    VlanSet kept;
    for (const auto &[profile, vlan, shared, free] : change_.to.vlans) {
        if (shared)
            continue;
        kept.insert(vlan.id);
        const VlanSettings settings{.vlanType = vlan.vlanType,
                                    .profileType = vlan.profileType,
                                    .ptpTc = profile->request.ptpTc,
                                    .assignedPorts = vlan.assigned,
                                    .history = historyOf(vlan.id, change_.thingsAfter)};
        if (auto written = putFile(vlanSettingsPath(vlan.id), settings.print(vlan.id)); !written)
            return written;
    }
    for (const auto &placed : change_.from.vlans)
        if (!kept.contains(placed.vlan.id))
            dropFile(vlanSettingsPath(placed.vlan.id));
    // Their failure is no reason to stop: detection goes on with what it has.
    for (const auto &file : detectionFilesOf(change_.to, where_))
        if (file.text)
            static_cast<void>(putFile(file.path, *file.text));
        else
            dropFile(file.path);
    return {};
}

Result<> Execution::switchOn() {
    static_cast<void>(step("profile_action_match_and_do"));
    bool ran = false;
    for (const auto &block : change_.wantedAfter.blocks) {
        if (std::ranges::all_of(block.on, [&](const auto &write) {
                return thingOf(change_.target, write.first) == thingOf(now_, write.first);
            }))
            continue;
        for (const auto &[name, value] : block.on)
            disturbed_.insert(name);
        switchTouched_ = ran = true;
        if (auto done = block.switchOn(sw_); !done)
            return done;
        // What one block has brought, the next one need not bring again.
        for (const auto &[name, value] : block.on)
            put(now_, name, thingOf(change_.target, name));
    }
    return ran ? readNow() : Result<>();
}

// Gives back what nobody wants any more, and what scripts took along.
Result<> Execution::settle() {
    auto goal = now_;
    std::set<std::string> names;
    auto concerned = disturbed_;
    for (const auto &[name, thing] : change_.things)
        concerned.insert(name);
    for (const auto &name : concerned) {
        if (!isSetting(name) || isFilter(name) || lastWords_.contains(name) || change_.wantedAfter.claims.contains(name) ||
            thingOf(now_, name) == thingOf(change_.target, name) || !hasVlan(now_, parseThingName(name).id))
            continue;
        put(goal, name, thingOf(change_.target, name));
        names.insert(name);
    }
    if (names.empty())
        return {};
    if (auto applied = apply(settingsScript(stateOf(now_).settings, stateOf(goal).settings)); !applied)
        return applied;
    return await(goal, names);
}

Result<> Execution::finish() {
    static_cast<void>(step("profile_action_match_and_do"));
    for (const auto &filter : change_.filtersGone)
        if (auto done = filter.switchOff(sw_); !done)
            return done;
    static_cast<void>(step("profile record"));
    auto record = session_.record;
    record.profiles = change_.after;
    record.pending.reset();
    record.things = change_.thingsAfter;
    for (auto &[name, thing] : record.things) {
        if (isFilter(name))
            continue;
        if (thingOf(change_.target, name) != thingOf(change_.observed, name) || disturbed_.contains(name) ||
            !session_.record.things.contains(name))
            thing.shown = thingOf(now_, name);
    }
    if (!begun_ && record == session_.record)
        return {};
    if (auto written = writeProfileRecord(record, where_); !written)
        return written;
    wholeRecord_ = std::move(record);
    return {};
}

Result<> Execution::run(const ProfileRequest *request) {
    PhaseTimer phase(where_);
    const auto counted = [&](std::vector<IfNum> ProfileVlanRequest::*list) {
        std::size_t count = 0;
        for (const auto &vlan : request->vlans)
            count += (vlan.*list).size();
        return static_cast<int>(count);
    };
    const bool same = !change_.touchesSwitch() && change_.things == session_.record.things &&
                      change_.thingsAfter == change_.things && change_.after == session_.record.profiles &&
                      rowsOf(change_.to) == session_.rows && !session_.record.pending;
    if (!same)
        if (auto done = announce(); !done)
            return done;
    begun_ = true;
    if (request != nullptr) {
        phase.done("profileConfigUntagedPortReset");
        for (std::size_t i = 0; i < request->vlans.size(); ++i)
            phase.done(formatText("vlan[%d] exist check", static_cast<int>(i)));
    }
    auto done = switchOffGone();
    phase.done("vlanIfConfigReset");
    if (done)
        done = changeVlansAndPorts(request);
    if (done && request != nullptr) {
        phase.done("vlanCreateAndNameSet");
        phase.done(formatText("vlanParticipationSet (untagged=%d, tagged=%d)",
                              counted(&ProfileVlanRequest::untagged), counted(&ProfileVlanRequest::tagged)));
    }
    if (done)
        done = putRows();
    if (done)
        done = putFiles();
    phase.done("profileConfigUpdate");
    phase.done("vlanListProfileCreateEX");
    if (done)
        done = switchOn();
    if (done)
        done = settle();
    phase.done("profile_action_match_and_do");
    if (done && !same)
        done = finish();
    done_ = done.has_value();
    if (!done) {
        code_ = done.error().code;
        left_ = done.error().reason;
        return done;
    }
    session_.record = std::move(wholeRecord_);
    session_.rows = rowsOf(change_.to);
    session_.observed = stateOf(now_);
    return {};
}

// Everything the change may have touched goes back to what was observed. A slow switch may not show yet what it was
// told: what the change asked for is taken back even where it does not show.
Result<> Execution::restoreSwitch() {
    if (!switchTouched_)
        return {};
    if (auto read = readNow(); !read)
        return read;
    auto assumed = now_, goal = now_;
    std::set<std::string> names;
    auto concerned = disturbed_;
    for (const auto *blocks : {&change_.wantedAfter.blocks, &change_.blocksGone})
        for (const auto &block : *blocks)
            for (const auto *writes : {&block.on, &block.off})
                for (const auto &[name, value] : *writes)
                    concerned.insert(name);
    for (const auto &name : keysOf({&change_.observed, &change_.target}))
        if (thingOf(change_.observed, name) != thingOf(change_.target, name))
            concerned.insert(name);
    for (const auto &name : concerned) {
        const auto before = thingOf(change_.observed, name);
        if (thingOf(now_, name) == before && !isSetting(name))
            put(assumed, name, thingOf(change_.target, name));
        put(goal, name, before);
        names.insert(name);
    }
    const auto script = scriptOf(assumed, goal);
    if (script.empty())
        return {};
    if (auto applied = apply(script); !applied)
        return applied;
    return await(goal, names);
}

Result<> Execution::restoreRows() {
    auto rows = readProfileRows(where_);
    if (!rows)
        return failed(ResultCode::Failed);
    Result<> first;
    for (const auto &row : *rows)
        if (findProfileRow(session_.rows, row.id) == nullptr && !deleteProfileRow(row.id, where_))
            first = failed(ResultCode::Failed);
    for (const auto &row : session_.rows) {
        const auto *const now = findProfileRow(*rows, row.id);
        if ((now == nullptr || *now != row) && !replaceProfileRow(row, where_))
            first = failed(ResultCode::Failed);
    }
    return first;
}

void Execution::rollBack() {
    rolledBack_ = true;
    const auto cause = std::exchange(left_, "");
    const auto add = [&](const char *what) { left_ += (left_.empty() ? "" : ", ") + std::string(what); };
    if (!restoreSwitch())
        add("the configuration of the switch");
    if (!restoreRows())
        add("profile database");
    if (!files_.restore(where_))
        add("configuration file");
    // What could not be taken back is still to be taken back by whoever comes next.
    auto record = session_.record;
    if (!left_.empty()) {
        record.things = change_.things;
        record.pending = PendingChange{change_.after, change_.name, true};
    }
    if (!writeProfileRecord(record, where_))
        add("profile record");
    else
        session_.record = std::move(record);
    if (left_.empty())
        logError(where_, "[%s:%d] step '%s' failed (result = %d), everything is as before\n", step_, code_);
    else
        logError(where_, "[%s:%d] step '%s' failed (result = %d), could not be taken back: %s\n", step_, code_,
                 left_);
    const std::string why = cause.empty() ? "" : " (" + cause + ")";
    left_ = left_.empty() ? formatText("step '%s' failed%s, everything is as before", step_, why)
                          : formatText("step '%s' failed%s, could not be taken back: %s", step_, why, left_);
}

Failure Execution::failure() {
    if (begun_ && !rolledBack_)
        rollBack();
    return {code_, left_};
}

// A port that is not there is passed over; one that the switch does not tell about is not.
Result<> learnPorts(const AppliedProfiles &profiles, ProfileSession &session) {
    for (const auto &profile : profiles)
        for (const auto &vlan : profile.request.vlans)
            for (const auto *list : {&vlan.untagged, &vlan.tagged})
                for (const IfNum port : *list)
                    if (const auto name = session.ports.find(port);
                        !name && name.error() != OpenError::NotFound) {
                        const auto why =
                            formatText("the switch does not say what interface %d is", port);
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

Result<> restoreFiles(ProfileSession &session, const ProfileLock &) {
    ProfileChange same;
    same.before = same.after = session.record.profiles;
    same.from = standingOf(same.before);
    same.to = standingOf(same.after);
    same.things = same.thingsAfter = session.record.things;
    return Execution(session, same).putRecords();
}

Result<> carryOut(ProfileSession &session, const ProfileChange &change, const ProfileLock &) {
    const ProfileRequest *request = nullptr;
    for (const auto &profile : change.after)
        if (profile.request.name == change.name)
            request = &profile.request;
    Execution execution(session, change);
    if (const auto done = execution.run(request); done)
        return {};
    auto failure = execution.failure();
    return failed(failure.code, std::move(failure.reason));
}

}  // namespace pavo
