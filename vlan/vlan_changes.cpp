#include "vlan/vlan_changes.h"

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "common/files.h"
#include "common/json.h"
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

// What profiles have of what is about to be changed.
struct Affected {
    std::map<VlanId, std::string> vlans{};  // and their profiles
    std::map<IfNum, OwnedInterface> interfaces{};

    void addVlan(const VlanOwners &owners, VlanId id) {
        if (const std::string *const owner = owners.find(id))
            vlans.emplace(id, *owner);
    }

    // Adds what there is of it to what has been changed.
    void noteVlan(VlanId id, ProfileThings &things) const {
        if (const auto owned = vlans.find(id); owned != vlans.end())
            things[owned->second].push_back("VLAN " + std::to_string(id.number()));
    }
    void noteInterface(IfNum ifNum, ProfileThings &things) const {
        if (const auto owned = interfaces.find(ifNum); owned != interfaces.end())
            things[owned->second.profile].push_back(owned->second.name);
    }
    ProfileThings all() const {
        ProfileThings things;
        for (const auto &vlan : vlans)
            noteVlan(vlan.first, things);
        for (const auto &interface : interfaces)
            noteInterface(interface.first, things);
        return things;
    }
};

// Collects it by note(owners, affected), or refuses the change.
template <class Note>
Result<Affected> respectProfiles(OfProfiles ofProfiles, const Where &where, Note note) {
    Affected affected;
    const auto owners = VlanOwners::read(where);
    if (!owners)
        return ofProfiles == OfProfiles::Refuse ? std::unexpected(owners.error())
                                                : Result<Affected>(affected);
    note(*owners, affected);
    if (ofProfiles == OfProfiles::Change)
        return affected;
    const auto things = affected.all();
    if (things.empty())
        return affected;
    const std::string what = describe(things);
    logError(where, "[%s:%d] refused: %s\n", what);
    return failed(ResultCode::Failed, what);
}

Result<Affected> respectVlan(OfProfiles ofProfiles, VlanId id, const Where &where) {
    return respectProfiles(ofProfiles, where, [id](const VlanOwners &owners, Affected &affected) {
        affected.addVlan(owners, id);
    });
}

// What is about to be changed in a VLAN on all interfaces. VLAN 1 is nobody's, but it matters to a profile
// which of its interfaces are members there.
Result<Affected> respectMembers(Switch sw, VlanId id, OfProfiles ofProfiles, const Where &where) {
    return respectProfiles(ofProfiles, where, [&](const VlanOwners &owners, Affected &affected) {
        affected.addVlan(owners, id);
        if (id == kDefaultVlan)
            affected.interfaces = owners.interfaces(sw, Tagging::Untagged, kDefaultVlan);
    });
}

// The reason of a failure that came after that.
std::string withThings(std::string reason, const ProfileThings &things) {
    return things.empty() ? reason : reason + "; changed by hand: " + describe(things);
}

// What has been changed, as the result of whoever changed it.
VlanChange changedOf(ProfileThings things, const Where &where) {
    if (!things.empty())
        logWarn(where, "[%s:%d] changed by hand: %s\n", describe(things));
    return {.ofProfiles = std::move(things)};
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

// Waits until the switch does not show them any more; nothing, or the first that stays. Each may take as long
// as one alone.
std::optional<VlanId> awaitDeletion(Switch sw, const std::vector<VlanId> &ids) {
    for (const VlanId id : ids) {
        const auto look = [&] { return sw.vlanPresence(id) == Presence::Absent ? Poll::Done : Poll::Again; };
        if (pollUntil(look) != Poll::Done)
            return id;
    }
    return std::nullopt;
}

// Sets all ports, then all LAGs; a set that fails stops nothing. Waits until isShown(interface) of all that
// were set.
template <class Set, class IsShown>
Result<VlanChange> setAll(Switch sw, const Where &where, const Affected &affected, Set set, IsShown isShown) {
    unsigned count = 0, refused = 0;
    std::vector<IfNum> changed;
    ProfileThings things;
    IfNum firstRefused;
    OpenError refusal{};
    const auto setEach = [&](auto walk) -> std::optional<OpenError> {
        for (const IfNum ifNum : walk) {
            ++count;
            if (const OpenResult<> done = set(ifNum); !done) {
                if (refused++ == 0) {
                    firstRefused = ifNum;
                    refusal = done.error();
                }
                continue;
            }
            if (changed.empty())
                for (const auto &vlan : affected.vlans)
                    affected.noteVlan(vlan.first, things);
            changed.push_back(ifNum);
            affected.noteInterface(ifNum, things);
        }
        return walk.brokenBy();
    };
    auto broken = setEach(sw.ports());
    if (!broken)
        broken = setEach(sw.lags());
    if (refused > 0)
        logError(where, "[%s:%d] %u of %u interfaces were not changed (first: interface %u, result = %d)\n",
                 refused, count, firstRefused, refusal);
    VlanChange change = changedOf(std::move(things), where);
    change.interfaces = count;
    change.refused = refused;
    if (broken) {
        logError(where, "[%s:%d] the list of interfaces cannot be read (result = %d)\n", *broken);
        std::string reason = "the list of interfaces cannot be read";
        if (!changed.empty())
            reason += "; " + std::to_string(changed.size()) + " interfaces have been changed";
        return failed(ResultCode::Failed, withThings(std::move(reason), change.ofProfiles));
    }
    std::size_t shown = 0;
    const auto look = [&] {
        while (shown < changed.size() && isShown(changed[shown]))
            ++shown;
        return shown == changed.size() ? Poll::Done : Poll::Again;
    };
    if (pollUntil(look) != Poll::Done) {
        logWarn(where, "[%s:%d] the switch has accepted the change, but does not show it\n");
        change.isPending = true;
    }
    return change;
}

// Membership of all interfaces in one VLAN.
template <class Value>
Result<VlanChange> setMembership(Switch sw, std::uint32_t vlan, Value value, OfProfiles ofProfiles,
                                 const Where &where, OpenResult<> (Switch::*set)(IfNum, VlanId, Value) const,
                                 OpenResult<Value> (Switch::*get)(IfNum, VlanId) const) {
    const auto turn = takeTurn(where);
    if (!turn)
        return std::unexpected(turn.error());
    const auto id = VlanId::from(vlan);
    if (!id)
        return setAll(
            sw, where, {}, [](IfNum) -> OpenResult<> { return std::unexpected(OpenError::Parameter); },
            [](IfNum) { return true; });
    const auto affected = respectMembers(sw, *id, ofProfiles, where);
    if (!affected)
        return std::unexpected(affected.error());
    return setAll(
        sw, where, *affected, [&](IfNum ifNum) { return (sw.*set)(ifNum, *id, value); },
        [&](IfNum ifNum) {
            const auto shown = (sw.*get)(ifNum, *id);
            return shown && *shown == value;
        });
}

}  // namespace

std::string printVlanChange(const VlanChange &change) {
    std::string out = "{";
    if (change.interfaces > 0)
        out += formatText("\"interfaces\":%u,\"refused\":%u,\"pending\":%s,", change.interfaces,
                          change.refused, change.isPending ? "true" : "false");
    else {
        out += "\"vlans\":[";
        for (const VlanId id : change.vlans)
            out += (out.back() == '[' ? "" : ",") + std::to_string(id.number());
        out += "],";
    }
    out += "\"profiles\":[";
    const auto addText = [&](std::string_view text) {
        out += '"';
        appendEscaped(out, text);
        out += '"';
    };
    for (const auto &[profile, has] : change.ofProfiles) {
        out += out.back() == '[' ? "{\"name\":" : ",{\"name\":";
        addText(profile);
        out += ",\"has\":[";
        for (const std::string &thing : has) {
            out += &thing == &has.front() ? "" : ",";
            addText(thing);
        }
        out += "]}";
    }
    return out + "]}";
}

// --- some VLANs

Result<VlanChange> createVlans(Switch sw, std::span<const std::uint32_t> vlans, Where where) {
    const auto turn = takeTurn(where);
    if (!turn)
        return std::unexpected(turn.error());
    VlanChange change;
    const auto ensure = [&](std::uint32_t vlan) {
        const auto id = VlanId::from(vlan);
        const Presence presence = id ? sw.vlanPresence(*id) : Presence::Unknown;
        if (presence != Presence::Absent)
            return presence == Presence::Present;
        // Somebody in the CLI may have been quicker, or the reply has been lost.
        const bool isThere = sw.createVlan(*id) || sw.vlanPresence(*id) == Presence::Present;
        if (isThere)
            change.vlans.push_back(*id);
        return isThere;
    };
    for (const std::uint32_t vlan : vlans) {
        if (ensure(vlan))
            continue;
        logError(where, "[%s:%d] Failed to create VLAN %u\n", vlan);
        return failed(ResultCode::Failed,
                      vlanText(vlan) + " cannot be created" +
                          (change.vlans.empty() ? "" : "; those in front of it have been"));
    }
    return change;
}

Result<VlanChange> deleteVlans(Switch sw, std::span<const std::uint32_t> vlans, OfProfiles ofProfiles,
                               Where where) {
    const auto turn = takeTurn(where);
    if (!turn)
        return std::unexpected(turn.error());
    VlanSet wanted;
    for (const std::uint32_t vlan : vlans)
        if (const auto id = VlanId::from(vlan))
            wanted.insert(*id);
    const auto affected = respectProfiles(ofProfiles, where, [&](const VlanOwners &owners, Affected &found) {
        for (const VlanId id : wanted)
            if (owners.find(id) != nullptr && sw.vlanPresence(id) != Presence::Absent)
                found.addVlan(owners, id);
    });
    if (!affected)
        return std::unexpected(affected.error());
    std::vector<VlanId> deleted;
    ProfileThings things;
    std::optional<VlanId> left;
    for (const std::uint32_t vlan : vlans) {
        const auto id = VlanId::from(vlan);
        if (!id || wanted.erase(*id) == 0)  // named twice
            continue;
        const Presence presence = sw.vlanPresence(*id);
        if (presence == Presence::Absent)
            continue;
        if (presence == Presence::Unknown || !sw.deleteVlan(*id)) {
            left = *id;
            break;
        }
        deleted.push_back(*id);
        affected->noteVlan(*id, things);
    }
    VlanChange change = changedOf(std::move(things), where);
    if (!left)
        left = awaitDeletion(sw, deleted);
    change.vlans = std::move(deleted);
    if (!left)
        return change;
    logError(where, "[%s:%d] Failed to delete VLAN %u\n", *left);
    std::string reason = vlanText(left->number()) + " cannot be deleted";
    if (!change.vlans.empty() && change.vlans.front() != *left)
        reason += "; those in front of it have been";
    return failed(ResultCode::Failed, withThings(std::move(reason), change.ofProfiles));
}

Result<VlanChange> renameVlan(Switch sw, std::uint32_t vlan, std::string_view name, OfProfiles ofProfiles,
                              Where where) {
    if (auto checked = checkName(name, where); !checked)
        return std::unexpected(checked.error());
    const auto turn = takeTurn(where);
    if (!turn)
        return std::unexpected(turn.error());
    const auto id = requireVlan(sw, vlan, where);
    if (!id)
        return std::unexpected(id.error());
    const auto affected = respectVlan(ofProfiles, *id, where);
    if (!affected)
        return std::unexpected(affected.error());
    if (const auto named = sw.setVlanName(*id, cutToBytes(name, kNameMax), kNameMax); !named) {
        logError(where, "[%s:%d] VLAN %u cannot be named (result = %d)\n", *id, named.error());
        return failed(ResultCode::Failed, "the switch refused the name");
    }
    return changedOf(affected->all(), where);
}

Result<VlanChange> createNamedVlan(Switch sw, std::int32_t vlan, std::string_view name, Where where) {
    if (vlan == static_cast<std::int32_t>(kDefaultVlan.number()))
        return {};
    if (auto checked = checkName(name, where); !checked)
        return std::unexpected(checked.error());
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
    Result<VlanChange> result;
    ProfileThings things;
    bool isNew = false;
    if (const auto check = sw.checkVlan(*id)) {
        things = respectVlan(OfProfiles::Change, *id, where).value_or(Affected{}).all();
    } else {
        if (presenceOf(check) != Presence::Absent)
            return failCreation(check.error());
        if (const auto created = sw.createVlan(*id); !created && sw.vlanPresence(*id) != Presence::Present)
            return failCreation(created.error());
        isNew = true;
        logAt<int>(LOG_LEVEL_DEBUG, where, "[%s:%d] Create vlan(%d) success\n", vlan);
        const auto kept = sw.apply(formatText("vlan database\nvlan makestatic %d\nexit\n", vlan),
                                   ScriptFiles::forTag("vlan_makestatic"), where);
        if (!kept)
            result = failed(kept.error().code, "the VLAN cannot be made static");
    }
    const std::string kept = cutToBytes(name, kLongNameMax);
    if (const auto named = sw.setVlanName(*id, kept, static_cast<std::uint32_t>(kept.size() + 1)); !named) {
        logError(where, "[%s:%d] vlan %d set name :%s  error :%d \n", vlan, kept, named.error());
        return failed(ResultCode::Failed,
                      std::string("the switch refused the name") +
                          (isNew ? "; " + vlanText(id->number()) + " has been created" : ""));
    }
    if (result) {
        result = changedOf(std::move(things), where);
        if (isNew)
            result->vlans = {*id};
    }
    return result;
}

// --- all ports and LAGs

Result<VlanChange> setParticipationOfAll(Switch sw, std::uint32_t vlan, Participation participation,
                                         OfProfiles ofProfiles, Where where) {
    return setMembership(sw, vlan, participation, ofProfiles, where, &Switch::setParticipation,
                         &Switch::participation);
}

Result<VlanChange> setTaggingOfAll(Switch sw, std::uint32_t vlan, Tagging tagging, OfProfiles ofProfiles,
                                   Where where) {
    return setMembership(sw, vlan, tagging, ofProfiles, where, &Switch::setTagging, &Switch::tagging);
}

Result<VlanChange> setAcceptFramesOfAll(Switch sw, AcceptFrames frames, OfProfiles ofProfiles, Where where) {
    const auto turn = takeTurn(where);
    if (!turn)
        return std::unexpected(turn.error());
    const auto dropped = frames == AcceptFrames::VlanOnly ? Tagging::Untagged : Tagging::Tagged;
    const auto affected =
        frames == AcceptFrames::All
            ? Result<Affected>(Affected{})
            : respectProfiles(ofProfiles, where, [&](const VlanOwners &owners, Affected &found) {
                  found.interfaces = owners.interfaces(sw, dropped);
              });
    if (!affected)
        return std::unexpected(affected.error());
    return setAll(
        sw, where, *affected, [&](IfNum ifNum) { return sw.setAcceptFrames(ifNum, frames); },
        [](IfNum) { return true; });
}

Result<VlanChange> setPvidOfAll(Switch sw, std::uint32_t vlan, OfProfiles ofProfiles, Where where) {
    const auto turn = takeTurn(where);
    if (!turn)
        return std::unexpected(turn.error());
    const auto id = requireVlan(sw, vlan, where);
    if (!id)
        return std::unexpected(id.error());
    const auto affected = respectProfiles(ofProfiles, where, [&](const VlanOwners &owners, Affected &found) {
        found.interfaces = owners.interfaces(sw, Tagging::Untagged, *id);
        // The interfaces that come into a profile's VLAN are its business, too.
        found.addVlan(owners, *id);
    });
    if (!affected)
        return std::unexpected(affected.error());
    return setAll(
        sw, where, *affected, [&](IfNum ifNum) { return sw.setPvid(ifNum, *id); },
        [&](IfNum ifNum) {
            const auto shown = sw.pvid(ifNum);
            return shown && *shown == *id;
        });
}

}  // namespace pavo
