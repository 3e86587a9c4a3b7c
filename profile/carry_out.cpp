#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <new>
#include <utility>

#include "common/files.h"
#include "common/log.h"
#include "platform/clock.h"
#include "profile/change.h"
#include "profile/detection_files.h"
#include "profile/file_snapshots.h"
#include "profile/switch_script.h"
#include "store/vlan_settings.h"
#include "swapi/poll.h"

namespace pavo {
namespace {

using Kind = ThingName::Kind;
using Value = std::optional<std::string>;

// A configuration that was accepted shows within this time, also on a slow switch.
constexpr int kTargetPolls = 120;

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
            logError(where_, "[%s:%d] step '%s' failed, and memory ran out while it was rolled back\n",
                     step_);
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
    void addWhatWentAlong(ProfileRecord &record) const;

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
    if (now_.contains(name) || !goal)
        return false;
    const auto thing = parseThingName(name);
    if (thing.kind == Kind::Mtu)
        return true;  // accepted and not shown: the default of this switch
    const auto port = session_.ports.ifNumOf(thing.interface);
    if (!port)
        return false;
    if (thing.kind == Kind::Pvid) {
        const auto pvid = sw_.pvidNumber(*port);
        return pvid && std::to_string(*pvid) == *goal;
    }
    if (thing.kind != Kind::Membership || !thing.id)
        return false;
    const auto state = stateOf({{name, *goal}});
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

// Blocks that nobody needs, as far as their scripts do just what is wanted: not when somebody had such a
// setting before, or has changed it since.
Result<> Execution::switchOffGone() {
    static_cast<void>(step("profile_action_match_and_do"));
    bool ran = false;
    for (const auto &block : change_.blocksGone) {
        const bool fits = std::ranges::all_of(block.off, [&](const auto &write) {
            return thingOf(change_.target, write.first) == write.second;
        });
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
    for (const auto &name : namesOf({&change_.observed, &change_.target}))
        if (!isSetting(name) && thingOf(change_.observed, name) != thingOf(change_.target, name)) {
            putThing(goal, name, thingOf(change_.target, name));
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
        Things before;
        putThing(before, routing->first, routing->second.before);
        const auto state = stateOf(before);
        const auto it = state.routing.find(id);
        history.oldRouting = it == state.routing.end() ? VlanRouting{} : it->second;
    }
    return history;
}

Result<> Execution::putFile(const std::string &path, const std::string &text) {
    if (readFile(path, kFileMax, where_) == text)
        return {};
    files_.note(path);
    return replaceProfileFile(path, text, where_);
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
            putThing(now_, name, thingOf(change_.target, name));
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
        if (!isSetting(name) || isFilter(name) || lastWords_.contains(name) ||
            change_.wantedAfter.claims.contains(name) ||
            thingOf(now_, name) == thingOf(change_.target, name) || !hasVlan(now_, parseThingName(name).id))
            continue;
        putThing(goal, name, thingOf(change_.target, name));
        names.insert(name);
    }
    if (names.empty())
        return {};
    if (auto applied = apply(settingsScript(stateOf(now_).settings, stateOf(goal).settings)); !applied)
        return applied;
    return await(goal, names);
}

// Settings that the switch dropped with others: a spanning-tree mode takes its timers along, a policy its bindings.
void Execution::addWhatWentAlong(ProfileRecord &record) const {
    if (change_.after.empty())
        return;
    for (const auto &[name, value] : change_.observed) {
        const auto now = thingOf(now_, name);
        if (!isSetting(name) || isFilter(name) || now == value || record.things.contains(name) ||
            thingOf(change_.target, name) != value || !hasVlan(now_, parseThingName(name).id))
            continue;
        std::set<std::string> profiles;
        for (const auto &profile : change_.after)
            if (change_.name.empty() || profile.request.name == change_.name)
                profiles.insert(profile.request.name);
        if (!profiles.empty())
            record.things[name] = {value, now, now, std::move(profiles), true};
    }
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
    addWhatWentAlong(record);
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
        if (auto done = announce(); !done) {
            code_ = done.error().code;
            left_ = done.error().reason + ", nothing was changed";
            return done;
        }
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

// Everything the change may have touched goes back to what was observed. A slow switch may not show yet what
// it was told: what the change asked for is taken back even where it does not show.
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
    for (const auto &name : namesOf({&change_.observed, &change_.target}))
        if (thingOf(change_.observed, name) != thingOf(change_.target, name))
            concerned.insert(name);
    for (const auto &name : concerned) {
        const auto before = thingOf(change_.observed, name);
        if (thingOf(now_, name) == before && !isSetting(name))
            putThing(assumed, name, thingOf(change_.target, name));
        putThing(goal, name, before);
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
        logError(where_, "[%s:%d] step '%s' failed (result = %d), could not be taken back: %s\n", step_,
                 code_, left_);
    const std::string why = cause.empty() ? "" : " (" + cause + ")";
    left_ = left_.empty() ? formatText("step '%s' failed%s, everything is as before", step_, why)
                          : formatText("step '%s' failed%s, could not be taken back: %s", step_, why, left_);
}

Failure Execution::failure() {
    if (begun_ && !rolledBack_)
        rollBack();
    return {code_, left_};
}

}  // namespace

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
