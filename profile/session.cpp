#include "profile/session.h"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <filesystem>
#include <map>
#include <optional>
#include <utility>

#include "common/files.h"
#include "common/log.h"
#include "platform/paths.h"
#include "profile/change.h"
#include "store/profile_types.h"
#include "store/vlan_settings.h"

namespace pavo {
namespace {

using platform::paths::kProfileDb;

// --- the database

bool hasContent(const char *fixedPath) {
    std::error_code error;
    return std::filesystem::file_size(platform::fsPath(fixedPath), error) > 0 && !error;
}

// The rows; nothing when there is no database, or only a damaged one.
Result<std::optional<std::vector<ProfileRow>>> readRows(const Where &where) {
    if (!hasContent(kProfileDb))
        return std::nullopt;
    auto rows = readProfileRows(where);
    if (rows)
        return std::optional(std::move(*rows));
    if (!isDamage(rows.error().code))
        return failed(ResultCode::Failed, "the profile database cannot be read");
    const std::string aside = std::string(kProfileDb) + ".damaged";
    logError(where, "[%s:%d] the profile database is damaged and made again; the old one is %s\n", aside);
    std::error_code ignored;
    std::filesystem::copy_file(platform::fsPath(kProfileDb), platform::fsPath(aside),
                               std::filesystem::copy_options::overwrite_existing, ignored);
    return std::nullopt;
}

std::string nameOnSwitch(VlanId id, const SwitchState &observed) {
    const auto it = observed.vlans.find(id);
    return it == observed.vlans.end() || it->second.empty() ? formatText("VLAN%04d", id) : it->second;
}

// VLANs that have a settings file and are on the switch, though no record knows them.
std::vector<ProfileRow> rowsOfSettings(const SwitchState &observed) {
    std::vector<ProfileRow> rows;
    std::error_code error;
    const auto folder = platform::fsPath(platform::paths::kVlanProfileConfigDir);
    for (const auto &entry : std::filesystem::directory_iterator(folder, error)) {
        const auto file = entry.path().filename().string();
        std::uint32_t number = 0;
        const auto read = std::from_chars(file.data(), file.data() + file.size(), number);
        const auto id = read.ptr == file.data() + file.size() ? VlanId::from(number) : std::nullopt;
        const auto settings = id ? readVlanSettings(*id) : std::nullopt;
        if (settings && observed.hasVlan(*id))
            rows.push_back({.id = static_cast<std::int32_t>(number),
                            .vlanType = settings->vlanType,
                            .profileName = nameOnSwitch(*id, observed),
                            .profileType = settings->profileType,
                            .color = defaultProfileRow().color});
    }
    return rows;
}

// Makes the database from what the record and the settings files know.
Result<> refill(ProfileSession &session) {
    auto rows = rowsOf(standingOf(session.record.profiles));
    for (auto &row : rowsOfSettings(session.observed))
        if (findProfileRow(rows, row.id) == nullptr || row.id == defaultProfileRow().id) {
            std::erase_if(rows, [&](const ProfileRow &other) { return other.id == row.id; });
            rows.push_back(std::move(row));
            std::ranges::sort(rows, {}, &ProfileRow::id);
        }
    if (!makeProfileDb(rows, session.where))
        return failed(ResultCode::Failed, "the profile database cannot be written");
    session.rows = std::move(rows);
    return {};
}

// --- profiles that the record does not know

bool isFactoryRow(const ProfileRow &row) {
    return row.id == defaultProfileRow().id && row.profileType == PROFILE_TYPE_NAME_DEFAULT;
}

ProfileVlanRequest vlanOf(const ProfileRow &row, VlanId id, ProfileSession &session) {
    ProfileVlanRequest vlan{.id = id, .vlanType = row.vlanType, .profileType = row.profileType};
    for (const auto &[name, interface] : session.observed.interfaces) {
        const auto port = session.ports.ifNumOf(name);
        if (!port || session.observed.lagMembers.contains(name))
            continue;
        if (interface.pvid == id && id != kDefaultVlan)
            vlan.untagged.push_back(*port);
        else if (interface.tagged.contains(id))
            vlan.tagged.push_back(*port);
    }
    if (const auto settings = readVlanSettings(id))
        vlan.assigned = settings->assignedPorts.value_or(std::vector<IfNum>{});
    return vlan;
}

void adoptRow(const ProfileRow &row, VlanId id, ProfileSession &session) {
    auto &profiles = session.record.profiles;
    auto known = std::ranges::find_if(
        profiles, [&](const AppliedProfile &profile) { return profile.request.name == row.profileName; });
    if (known == profiles.end()) {
        const auto settings = readVlanSettings(id);
        profiles.push_back({{.name = row.profileName,
                             .color = row.color,
                             .profileType = row.profileType,
                             .ptpTc = settings ? settings->ptpTc : std::nullopt,
                             .declaredVlans = 0,
                             .vlans = {}},
                            ""});
        known = profiles.end() - 1;
    }
    auto &request = known->request;
    std::erase_if(request.vlans, [&](const auto &vlan) { return vlan.id == id; });
    request.vlans.push_back(vlanOf(row, id, session));
    request.declaredVlans = static_cast<std::int32_t>(request.vlans.size());
}

// What such profiles changed was at its default before, but for what the settings files say.
Result<> recordAdopted(ProfileSession &session, const std::set<std::string> &names) {
    const auto planned = planChange(session, session.record.profiles, "");
    if (!planned)
        return std::unexpected(planned.error());
    const auto &change = *planned;
    for (const auto &[name, owners] : change->wantedAfter.claims) {
        const bool adopted =
            std::ranges::any_of(owners, [&](const std::string &owner) { return names.contains(owner); });
        if (!adopted || session.record.things.contains(name))
            continue;
        RecordedThing thing{std::nullopt, thingOf(change->wantedAfter.things, name),
                            thingOf(change->observed, name), owners};
        const auto parsed = parseThingName(name);
        const auto settings = parsed.id ? readVlanSettings(*parsed.id) : std::nullopt;
        const auto history = settings ? settings->history.value_or(VlanHistory{}) : VlanHistory{};
        if (parsed.kind == ThingName::Kind::Vlan && !history.created)
            thing.before = thing.shown;
        if (parsed.kind == ThingName::Kind::VlanName && !history.created && !history.oldName.empty())
            thing.before = history.oldName;
        if (parsed.kind == ThingName::Kind::Routing && parsed.id && history.oldRouting) {
            SwitchState routed;
            routed.routing[*parsed.id] = *history.oldRouting;
            thing.before = thingOf(thingsOf(routed), name);
        }
        session.record.things[name] = std::move(thing);
    }
    // A port of theirs that is no member of VLAN 1 was taken out of it, as far as anybody can tell.
    for (const auto &placed : change->to.vlans)
        for (const IfNum port : placed.vlan.untagged) {
            const auto name = membershipThing(session.ports.of(port), kDefaultVlan);
            const auto shown = thingOf(change->observed, name);
            if (names.contains(placed.profile->request.name) && placed.vlan.id != kDefaultVlan &&
                shown == "auto" && !session.record.things.contains(name))
                session.record.things[name] = {
                    std::nullopt, shown, shown, {placed.profile->request.name}, false};
        }
    return {};
}

// The database is what other programs read and write: rows that they wrote are profiles, too, and a VLAN
// whose row they deleted, and that is not on the switch, has left its profile.
Result<> reconcile(ProfileSession &session) {
    const auto known = rowsOf(standingOf(session.record.profiles));
    VlanSet left;
    for (const auto &row : known)
        if (const auto id = row.vlan(); id && !isFactoryRow(row) &&
                                        findProfileRow(session.rows, row.id) == nullptr &&
                                        !session.observed.hasVlan(*id))
            left.insert(*id);
    if (!left.empty())
        session.record.profiles = withoutVlans(std::move(session.record.profiles), left);
    std::set<std::string> adopted;
    for (const auto &row : session.rows) {
        const auto id = row.vlan();
        const auto *const own = findProfileRow(known, row.id);
        if (!id || isFactoryRow(row) || (own != nullptr && own->profileName == row.profileName))
            continue;
        adoptRow(row, *id, session);
        adopted.insert(row.profileName);
    }
    return adopted.empty() ? Result<>() : recordAdopted(session, adopted);
}

// --- interruptions

Result<> observe(ProfileSession &session) {
    auto state = readSwitchState(session.sw, session.where);
    if (!state)
        return std::unexpected(std::move(state).error());
    session.observed = std::move(*state);
    return {};
}

Result<> carryTo(ProfileSession &session, const AppliedProfiles &goal, const std::string &name,
                 const ProfileLock &held) {
    const auto change = planChange(session, goal, name);
    return change ? carryOut(session, **change, held) : std::unexpected(change.error());
}

Result<> finishInterrupted(ProfileSession &session, const ProfileLock &held) {
    const auto pending = session.record.pending.value_or(PendingChange{});
    if (!pending.undo) {
        logWarn(session.where, "[%s:%d] a change of profile '%s' was interrupted and is finished first\n",
                pending.name);
        if (carryTo(session, pending.profiles, pending.name, held))
            return {};
        if (auto read = observe(session); !read)
            return read;
    }
    logWarn(session.where, "[%s:%d] the interrupted change of profile '%s' is taken back\n", pending.name);
    // From what was to be there to what was: both are known to what takes it back.
    const auto found = session.record;
    session.record.profiles = pending.profiles;
    const auto undone = carryTo(session, found.profiles, pending.name, held);
    if (undone)
        return {};
    static_cast<void>(writeProfileRecord(found, session.where));
    return failed(
        undone.error().code,
        formatText("an interrupted change of profile '%s' could neither be finished nor taken back: %s",
                   pending.name, undone.error().reason));
}

Result<ProfileSession> begin(Switch sw, const Where &where) {
    auto record = readProfileRecord(where);
    if (!record)
        return std::unexpected(std::move(record).error());
    ProfileSession session{sw, where, std::move(*record), {}, {}, PortNames(sw)};
    if (auto read = observe(session); !read)
        return failed(read.error().code, "the switch's configuration cannot be read");
    return session;
}

}  // namespace

Result<SwitchState> readSwitchState(Switch sw, Where where) {
    const auto path = platform::paths::kScriptDir +
                      formatText("pavo_out_show_running-config_%d", static_cast<int>(getpid()));
    const auto text = sw.show("show running-config", path, where);
    if (!text)
        return failed(text.error().code);
    return parseSwitchState(*text);
}

Result<ProfileSession> ProfileSession::open(Switch sw, const ProfileLock &held, Where where) {
    setAsideDamagedRecord(where);
    auto session = begin(sw, where);
    if (!session)
        return session;
    auto rows = readRows(where);
    if (!rows)
        return std::unexpected(std::move(rows).error());
    if (auto &known = *rows)
        session->rows = std::move(*known);
    else if (auto filled = refill(*session); !filled)
        return std::unexpected(std::move(filled).error());
    if (session->record.pending) {
        if (auto finished = finishInterrupted(*session, held); !finished)
            return std::unexpected(std::move(finished).error());
        if (auto read = observe(*session); !read)
            return failed(read.error().code, "the switch's configuration cannot be read");
    }
    if (auto known = reconcile(*session); !known)
        return std::unexpected(std::move(known).error());
    return session;
}

Result<ProfileSession> ProfileSession::look(Switch sw, Where where) {
    auto session = begin(sw, where);
    if (!session)
        return session;
    // One that is lost would be made again from the record.
    session->rows = rowsOf(standingOf(session->record.profiles));
    if (hasContent(kProfileDb)) {
        auto rows = readProfileRows(where);
        if (rows)
            session->rows = std::move(*rows);
        else if (!isDamage(rows.error().code))
            return failed(ResultCode::Failed, "the profile database cannot be read");
    }
    if (session->record.pending)
        return session;
    if (auto known = reconcile(*session); !known)
        return std::unexpected(std::move(known).error());
    return session;
}

Result<> recoverProfiles(Switch sw, Where where) {
    const auto lock = ProfileLock::take(where);
    if (!lock)
        return std::unexpected(lock.error());
    auto session = ProfileSession::open(sw, *lock, where);
    if (!session)
        return std::unexpected(std::move(session).error());
    return restoreFiles(*session, *lock);
}

bool areVlanSettingsLost(Where where) {
    const auto record = readProfileRecord(where);
    if (!record || record->pending || record->profiles.empty())
        return false;
    const auto rows = readProfileRows(where);
    return rows && std::ranges::any_of(standingOf(record->profiles).vlans, [&](const PlacedVlan &placed) {
               return !placed.shared && !fileExists(vlanSettingsPath(placed.vlan.id)) &&
                      findProfileRow(*rows, static_cast<std::int32_t>(placed.vlan.id.number())) != nullptr;
           });
}

bool isProfileDbUsable(Where where) {
    if (!hasContent(kProfileDb))
        return false;
    const auto row = readProfileRow(defaultProfileRow().id, where);
    return row || !isDamage(row.error().code);
}

}  // namespace pavo
