#include "vlan/vlan_changes.h"

#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "common/files.h"
#include "common/log.h"
#include "common/text.h"
#include "store/profile_lock.h"
#include "store/vlan_settings.h"
#include "swapi/poll.h"
#include "vlan/vlan_details.h"

namespace pavo {
namespace {

constexpr std::size_t kNameMax = 32;
constexpr std::size_t kLongNameMax = 255;

// A change in the middle of a profile's would be taken for its own doing, and taken back with it. Nobody is
// kept waiting for as long as a profile operation may take.
Result<ProfileLock> takeTurn(const Where &where) {
    return ProfileLock::take(where, FileLock::kWaitMax);
}

// Collects what profiles have of what is about to be changed, by note(owners, things). It is told, or the
// change is refused.
template <class Note>
Result<ProfileThings> respectProfiles(OfProfiles ofProfiles, const Where &where, Note note) {
    ProfileThings things;
    const auto owners = VlanOwners::read(where);
    if (!owners)
        return ofProfiles == OfProfiles::Refuse ? std::unexpected(owners.error())
                                                : Result<ProfileThings>(things);
    note(*owners, things);
    if (things.empty())
        return things;
    const std::string what = describe(things);
    if (ofProfiles == OfProfiles::Refuse) {
        logError(where, "[%s:%d] refused: %s\n", what);
        return failed(ResultCode::Failed, what);
    }
    logWarn(where, "[%s:%d] changed by hand: %s\n", what);
    return things;
}

Result<ProfileThings> respectVlan(OfProfiles ofProfiles, VlanId id, const Where &where) {
    return respectProfiles(ofProfiles, where, [id](const VlanOwners &owners, ProfileThings &things) {
        owners.noteVlan(id, things);
    });
}

// What is about to be changed in a VLAN on all interfaces. VLAN 1 is nobody's, but it matters to a profile
// which of its interfaces are members there.
Result<ProfileThings> respectMembers(Switch sw, VlanId id, OfProfiles ofProfiles, const Where &where) {
    return respectProfiles(ofProfiles, where, [&](const VlanOwners &owners, ProfileThings &things) {
        owners.noteVlan(id, things);
        if (id == kDefaultVlan)
            owners.noteInterfaces(sw, kDefaultVlan, things);
    });
}

std::string vlanText(std::uint32_t vlan) {
    return "VLAN " + std::to_string(vlan);
}

// An empty name is the default one.
Result<> checkName(std::string_view name, const Where &where) {
    if (name.empty() || isVlanName(name))
        return {};
    logError(where, "[%s:%d] Missing or invalid vlan-id or name\n");
    return failed(ResultCode::InvalidArgument,
                  "a name is UTF-8 without control characters, quotes and backslashes");
}

// Waits until the switch does not show them any more; nothing, or the one that is left.
std::optional<VlanId> awaitDeletion(Switch sw, const std::vector<VlanId> &ids) {
    std::size_t gone = 0;
    const Poll outcome = pollUntil([&] {
        while (gone < ids.size() && sw.vlanPresence(ids[gone]) == Presence::Absent)
            ++gone;
        return gone == ids.size() ? Poll::Done : Poll::Again;
    });
    return outcome == Poll::Done ? std::nullopt : std::optional(ids[gone]);
}

// Sets all ports, then all LAGs; a set that fails stops nothing. Changes take effect in the order in which
// they were accepted, so the last one tells of all: isShown(interface).
template <class Set, class IsShown>
Result<AllInterfaces> setAll(Switch sw, const Where &where, ProfileThings ofProfiles, Set set,
                             IsShown isShown) {
    AllInterfaces all{.ofProfiles = std::move(ofProfiles)};
    IfNum last, firstRefused;
    OpenError reason{};
    const auto setEach = [&](auto walk) -> std::optional<OpenError> {
        for (const IfNum ifNum : walk) {
            ++all.count;
            if (const OpenResult<> done = set(ifNum)) {
                last = ifNum;
            } else if (all.refused++ == 0) {
                firstRefused = ifNum;
                reason = done.error();
            }
        }
        return walk.brokenBy();
    };
    auto broken = setEach(sw.ports());
    if (!broken)
        broken = setEach(sw.lags());
    if (all.refused > 0)
        logError(where, "[%s:%d] %u of %u interfaces were not changed (first: interface %u, result = %d)\n",
                 all.refused, all.count, firstRefused, reason);
    if (broken) {
        logError(where, "[%s:%d] the list of interfaces cannot be read (result = %d)\n", *broken);
        return failed(ResultCode::Failed, "the list of interfaces cannot be read");
    }
    if (last && pollUntil([&] { return isShown(last) ? Poll::Done : Poll::Again; }) != Poll::Done)
        logWarn(where, "[%s:%d] the switch has accepted the change, but does not show it\n");
    return all;
}

// Membership of all interfaces in one VLAN.
template <class Value>
Result<AllInterfaces> setMembership(Switch sw, std::uint32_t vlan, Value value, OfProfiles ofProfiles,
                                    const Where &where,
                                    OpenResult<> (Switch::*set)(IfNum, VlanId, Value) const,
                                    OpenResult<Value> (Switch::*get)(IfNum, VlanId) const) {
    const auto turn = takeTurn(where);
    if (!turn)
        return std::unexpected(turn.error());
    const auto id = VlanId::from(vlan);
    if (!id)
        return setAll(
            sw, where, {}, [](IfNum) -> OpenResult<> { return std::unexpected(OpenError::Parameter); },
            [](IfNum) { return true; });
    auto respected = respectMembers(sw, *id, ofProfiles, where);
    if (!respected)
        return std::unexpected(respected.error());
    return setAll(
        sw, where, std::move(*respected), [&](IfNum ifNum) { return (sw.*set)(ifNum, *id, value); },
        [&](IfNum ifNum) {
            const auto shown = (sw.*get)(ifNum, *id);
            return shown && *shown == value;
        });
}

}  // namespace

Result<> createVlans(Switch sw, std::span<const std::uint32_t> vlans, Where where) {
    const auto turn = takeTurn(where);
    if (!turn)
        return std::unexpected(turn.error());
    const auto ensure = [&](std::uint32_t vlan) {
        const auto id = VlanId::from(vlan);
        const Presence presence = id ? sw.vlanPresence(*id) : Presence::Unknown;
        return presence == Presence::Present ||
               (id && presence == Presence::Absent && sw.createVlan(*id).has_value());
    };
    for (const std::uint32_t vlan : vlans) {
        if (ensure(vlan))
            continue;
        logError(where, "[%s:%d] Failed to create VLAN %u\n", vlan);
        return failed(ResultCode::Failed, vlanText(vlan) + " cannot be created");
    }
    return {};
}

Result<ProfileThings> deleteVlans(Switch sw, std::span<const std::uint32_t> vlans, OfProfiles ofProfiles,
                                  Where where) {
    const auto turn = takeTurn(where);
    if (!turn)
        return std::unexpected(turn.error());
    const auto fail = [&](VlanId id) {
        logError(where, "[%s:%d] Failed to delete VLAN %u\n", id);
        return failed(ResultCode::Failed, vlanText(id.number()) + " cannot be deleted");
    };
    VlanSet wanted;
    for (const std::uint32_t vlan : vlans)
        if (const auto id = VlanId::from(vlan))
            wanted.insert(*id);
    auto respected = respectProfiles(ofProfiles, where, [&](const VlanOwners &owners, ProfileThings &things) {
        for (const VlanId id : wanted)
            if (owners.find(id) != nullptr && sw.vlanPresence(id) == Presence::Present)
                owners.noteVlan(id, things);
    });
    if (!respected)
        return respected;
    std::vector<VlanId> deleted;
    for (const std::uint32_t vlan : vlans) {
        const auto id = VlanId::from(vlan);
        if (!id || wanted.erase(*id) == 0)  // named twice
            continue;
        const Presence presence = sw.vlanPresence(*id);
        if (presence == Presence::Absent)
            continue;
        if (presence == Presence::Unknown || !sw.deleteVlan(*id))
            return fail(*id);
        deleted.push_back(*id);
    }
    const auto left = awaitDeletion(sw, deleted);
    if (left)
        return fail(*left);
    return respected;
}

Result<ProfileThings> renameVlan(Switch sw, std::uint32_t vlan, std::string_view name, OfProfiles ofProfiles,
                                 Where where) {
    if (auto checked = checkName(name, where); !checked)
        return std::unexpected(checked.error());
    const auto turn = takeTurn(where);
    if (!turn)
        return std::unexpected(turn.error());
    const auto id = requireVlan(sw, vlan, where);
    if (!id)
        return std::unexpected(id.error());
    auto respected = respectVlan(ofProfiles, *id, where);
    if (!respected)
        return respected;
    const auto named = sw.setVlanName(*id, cutToBytes(name, kNameMax), kNameMax);
    if (named)
        return respected;
    logError(where, "[%s:%d] VLAN %u cannot be named (result = %d)\n", *id, named.error());
    return failed(ResultCode::Failed, "the switch refused the name");
}

Result<> createNamedVlan(Switch sw, std::int32_t vlan, std::string_view name, Where where) {
    if (vlan == static_cast<std::int32_t>(kDefaultVlan.number()))
        return {};
    if (auto checked = checkName(name, where); !checked)
        return checked;
    const auto turn = takeTurn(where);
    if (!turn)
        return std::unexpected(turn.error());
    const auto failCreation = [&](OpenError error) {
        logError(where, "[%s:%d] vlan %d create  error :%d \n", vlan, error);
        return failed(ResultCode::VlanNotCreated, "VLAN " + std::to_string(vlan));
    };
    const auto id = VlanId::from(vlan);
    if (!id)
        return failCreation(OpenError::Parameter);
    Result<> result;
    if (const auto check = sw.checkVlan(*id)) {
        static_cast<void>(respectVlan(OfProfiles::Change, *id, where));
    } else {
        if (presenceOf(check) != Presence::Absent)
            return failCreation(check.error());
        if (const auto created = sw.createVlan(*id); !created)
            return failCreation(created.error());
        logAt<int>(LOG_LEVEL_DEBUG, where, "[%s:%d] Create vlan(%d) success\n", vlan);
        const auto kept = sw.apply(formatText("vlan database\nvlan makestatic %d\nexit\n", vlan),
                                   ScriptFiles::forTag("vlan_makestatic"), where);
        if (!kept)
            result = failed(kept.error().code, "the VLAN cannot be made static");
    }
    const std::string kept = cutToBytes(name, kLongNameMax);
    const auto named = sw.setVlanName(*id, kept, static_cast<std::uint32_t>(kept.size() + 1));
    if (named)
        return result;
    logError(where, "[%s:%d] vlan %d set name :%s  error :%d \n", vlan, kept, named.error());
    return failed(ResultCode::Failed, "the switch refused the name");
}

// --- all ports and LAGs

Result<AllInterfaces> setParticipationOfAll(Switch sw, std::uint32_t vlan, Participation participation,
                                            OfProfiles ofProfiles, Where where) {
    return setMembership(sw, vlan, participation, ofProfiles, where, &Switch::setParticipation,
                         &Switch::participation);
}

Result<AllInterfaces> setTaggingOfAll(Switch sw, std::uint32_t vlan, Tagging tagging, OfProfiles ofProfiles,
                                      Where where) {
    return setMembership(sw, vlan, tagging, ofProfiles, where, &Switch::setTagging, &Switch::tagging);
}

Result<AllInterfaces> setAcceptFramesOfAll(Switch sw, AcceptFrames frames, Where where) {
    const auto turn = takeTurn(where);
    if (!turn)
        return std::unexpected(turn.error());
    return setAll(
        sw, where, {}, [&](IfNum ifNum) { return sw.setAcceptFrames(ifNum, frames); },
        [](IfNum) { return true; });
}

Result<AllInterfaces> setPvidOfAll(Switch sw, std::uint32_t vlan, OfProfiles ofProfiles, Where where) {
    const auto turn = takeTurn(where);
    if (!turn)
        return std::unexpected(turn.error());
    const auto id = requireVlan(sw, vlan, where);
    if (!id)
        return std::unexpected(id.error());
    auto respected = respectProfiles(ofProfiles, where, [&](const VlanOwners &owners, ProfileThings &things) {
        owners.noteInterfaces(sw, *id, things);
        // The interfaces that come into a profile's VLAN are its business, too.
        owners.noteVlan(*id, things);
    });
    if (!respected)
        return std::unexpected(respected.error());
    return setAll(
        sw, where, std::move(*respected), [&](IfNum ifNum) { return sw.setPvid(ifNum, *id); },
        [&](IfNum ifNum) {
            const auto shown = sw.pvid(ifNum);
            return shown && *shown == *id;
        });
}

}  // namespace pavo
