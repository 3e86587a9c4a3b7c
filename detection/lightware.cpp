#include "detection/lightware.h"

#include <pthread.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <string_view>
#include <tuple>
#include <utility>

#include "common/log.h"
#include "common/text.h"
#include "detection/device_report.h"
#include "detection/lag.h"
#include "platform/clock.h"
#include "store/profile_types.h"
#include "swapi/vlan_membership.h"
#include "vlan/profile_vlan.h"

namespace pavo {
namespace {

using Links = DeviceList<LightwareLink>;
using LagShare = LightwareLink::LagShare;

constexpr std::chrono::seconds kLagLeavePause{2};
constexpr std::uint32_t kMissMax = 2;
constexpr std::uint32_t kMissMoved = 3;
constexpr std::size_t kChassisIdKept = 18;

constexpr NeighbourField kNeighbourReads[] = {NeighbourField::SystemDesc, NeighbourField::ChassisId,
                                              NeighbourField::PortDesc};

// What the thread knows. Never destroyed: the thread may run until the process is gone.
Links *knownLinks() {
    static auto *const links = new Links;
    return links;
}

// The VLAN of the Lightware profile, confirmed.
ProfileVlan findProfileVlan(Switch sw, const Where &where) {
    ProfileVlan profile =
        findVlanOfProfileType(sw, PROFILE_TYPE_NAME_LIGHTWARE, LIGHTWARE_TAGGED_VLAN, where);
    if (profile.presence == Presence::Present)
        profile = {.presence = sw.vlanPresence(profile.vlan), .vlan = profile.vlan, .awaited = "the switch"};
    return profile;
}

// --- comparing

// What tells an uplink from all others: chassis, number and text of the port description.
using UplinkKey = std::tuple<std::string, std::uint32_t, std::string>;

UplinkKey keyOf(const LightwareLink &link) {
    return {link.chassisId, link.portDescNum, link.portDesc};
}

bool beginsWithDigit(std::string_view text) {
    return !text.empty() && text[0] >= '0' && text[0] <= '9';
}

LightwareLink linkOf(const LightwareSighting &seen) {
    return {.port = seen.port,
            .chassisId = seen.chassisId.substr(0, kChassisIdKept),
            .portDescNum = leadingNumber(seen.portDesc),
            .lag = {},
            .portDesc = beginsWithDigit(seen.portDesc) ? "" : seen.portDesc};
}

// Where each uplink of each endpoint has been seen; the first sighting counts.
using UplinkPorts = std::map<UplinkKey, IfNum>;

UplinkPorts indexUplinks(const std::vector<LightwareSighting> &seen) {
    UplinkPorts ports;
    for (const LightwareSighting &one : seen)
        ports.try_emplace(keyOf(linkOf(one)), one.port);
    return ports;
}

// Whether the uplink is to be taken offline.
bool isGone(LightwareLink *link, const UplinkPorts &ports) {
    const auto seen = ports.find(keyOf(*link));
    if (seen == ports.end())
        return ++link->missCount >= kMissMax;
    const bool moved = seen->second != link->port;
    link->missCount = moved ? kMissMoved : 0;
    return moved;
}

// Uplinks that were taken over and are seen now get to know whose they are. Where that is another endpoint
// than the LAG's, the record goes, and the uplink is a new one.
void recogniseUnknown(Links *links, const std::vector<LightwareSighting> &seen) {
    links->removeWhere([&](LightwareLink &link) {
        if (!link.isUnknown())
            return false;
        const auto here = std::ranges::find(seen, link.port, &LightwareSighting::port);
        if (here == seen.end())
            return false;
        const LightwareLink known = linkOf(*here);
        const bool isOthers = std::ranges::any_of(*links, [&](const LightwareLink &other) {
            return other.lag == link.lag && !other.isUnknown() && other.chassisId != known.chassisId;
        });
        link.chassisId = isOthers ? "" : known.chassisId;
        link.portDescNum = known.portDescNum;
        link.portDesc = known.portDesc;
        return isOthers;
    });
}

// Whether LLDP hears anybody on the port.
Presence findNeighbour(Switch sw, IfNum port) {
    auto neighbours = sw.neighbours(port);
    if (neighbours.begin() != neighbours.end())
        return Presence::Present;
    return neighbours.brokenBy() ? Presence::Unknown : Presence::Absent;
}

// Whether the record is to be dropped.
bool takeOffline(Switch sw, LightwareLink *link, std::set<IfNum> *disturbed) {
    if (link->isUnknown()) {
        const Presence neighbour = findNeighbour(sw, link->port);
        if (neighbour != Presence::Absent)
            return neighbour == Presence::Present;
        disturbed->insert(link->lag);
    }
    return lightwareOfflineCli(sw, link).has_value();
}

void takeGoneOffline(Switch sw, Links *links, const LightwareScan &scan, const Where &where) {
    const UplinkPorts ports = indexUplinks(scan.seen);
    std::set<IfNum> disturbed;
    links->removeWhere([&](LightwareLink &link) {
        if (!scan.covers(link.port) || !isGone(&link, ports))
            return false;
        logDebug(where, "[%s:%d] LightwareLookup ====== port=%d chassisId=%s offline\r\n", link.port,
                 printable(link.chassisId));
        return takeOffline(sw, &link, &disturbed);
    });
    // What an earlier run has left must not cost an endpoint its VLANs.
    for (LightwareLink &link : *links)
        if (disturbed.contains(link.lag))
            link.isWhole = false;
}

// Success also when the uplink is to be kept, and finished later.
bool bringOnline(Switch sw, Links *links, LightwareLink *link) {
    const bool done = lightwareOnlineCli(sw, *links, link).has_value();
    if (link->lag && link->isWhole)
        for (LightwareLink &other : *links)
            if (other.lag == link->lag && other.isLeaving)
                other.lagShare = LagShare::Others;
    return done || link->lag;
}

void finishHalfDone(Switch sw, Links *links) {
    for (LightwareLink &link : *links)
        if (!link.isWhole && link.missCount == 0 && !link.isUnknown())
            bringOnline(sw, links, &link);
}

void bringNewOnline(Switch sw, Links *links, const LightwareScan &scan, const Where &where) {
    // An uplink whose own port could not be read has not moved to where it is seen as well.
    std::set<UplinkKey> unread;
    for (const LightwareLink &link : *links)
        if (!scan.covers(link.port))
            unread.insert(keyOf(link));
    for (const LightwareSighting &seen : scan.seen) {
        LightwareLink link = linkOf(seen);
        if (links->find(link) != nullptr || unread.contains(keyOf(link)))
            continue;
        logDebug(where, "[%s:%d] LightwareLookup ====== port=%d chassisId=%s portDesc=%s online\r\n",
                 link.port, printable(link.chassisId), printable(seen.portDesc));
        // What has begun is kept, to be finished; what has not, or cannot be kept, is new again at the next
        // scan.
        if (bringOnline(sw, links, &link))
            static_cast<void>(links->push(std::move(link)));
    }
}

// --- online and offline

// A line for a failure, which is an error when it is new.
int levelOf(bool isRetry) {
    return isRetry ? LOG_LEVEL_DEBUG : LOG_LEVEL_ERROR;
}

// The endpoint's other uplink, or null.
const LightwareLink *findSibling(const Links &links, const LightwareLink &link) {
    const auto sibling = std::ranges::find_if(links, [&](const LightwareLink &other) {
        return other.chassisId == link.chassisId &&
               (other.portDescNum != link.portDescNum || other.portDesc != link.portDesc);
    });
    return sibling != links.end() ? &*sibling : nullptr;
}

bool setLagStatic(Switch sw, IfNum lag, bool isStatic, bool isRetry, const Where &where) {
    const auto result = sw.setLagStatic(lag, isStatic);
    if (!result)
        logAt<IfNum, OpenError>(levelOf(isRetry), where,
                                "[%s:%d] Failed to set the static mode for the LAG interface %d, result=%d\n",
                                lag, result.error());
    return result.has_value();
}

void leaveOtherLag(Switch sw, IfNum lag, IfNum port, bool isRetry, const Where &where) {
    if (sw.deleteLagPort(lag, port)) {
        logInfo(where, "[%s:%d] Lightware: Successfully to delete interface %u from LAG inaterface %d\n",
                port, lag);
        platform::sleepFor(kLagLeavePause);
    } else {
        logAt<IfNum, IfNum>(levelOf(isRetry), where,
                            "[%s:%d] Lightware: Failed to delete interface %u from LAG inaterface %d\n", port,
                            lag);
    }
}

bool joinLag(Switch sw, IfNum lag, IfNum port, bool isRetry, const Where &where) {
    const auto current = phyPortLagNumGet(sw, port);
    const bool isMember = current && *current == lag;
    if (current && *current && !isMember)
        leaveOtherLag(sw, *current, port, isRetry, where);
    if (!isMember)
        if (const auto result = sw.addLagPort(lag, port); !result) {
            logAt<IfNum, IfNum, OpenError>(
                levelOf(isRetry), where,
                "[%s:%d] Lightware: Failed to add interface %d to LAG interface %d, result=%d\n", port, lag,
                result.error());
            return false;
        }
    return setLagStatic(sw, lag, false, isRetry, where);
}

// False unless the port is known not to be in the LAG.
bool isOutOfLag(Switch sw, IfNum lag, IfNum port) {
    const auto max = sw.lagMaxMembers();
    const auto members = max ? sw.lagMembers(lag, *max) : std::unexpected(max.error());
    return members && std::ranges::find(*members, port) == members->end();
}

bool leaveLag(Switch sw, const LightwareLink &link, bool isRetry, const Where &where) {
    if (sw.deleteLagPort(link.lag, link.port)) {
        logDebug(where, "[%s:%d] successful to delete interface %u from LAG inaterface %d\n", link.port,
                 link.lag);
    } else if (!isOutOfLag(sw, link.lag, link.port)) {
        logAt<IfNum, IfNum>(levelOf(isRetry), where,
                            "[%s:%d] Failed to delete interface %u from LAG inaterface %d\n", link.port,
                            link.lag);
        return false;
    }
    return link.lagShare == LagShare::Others || setLagStatic(sw, link.lag, true, isRetry, where);
}

// --- settings of ports and LAGs

// `value` is `wanted`; a VLAN that the switch does not have is no membership.
template <class T>
Presence presenceOf(const OpenResult<T> &value, T wanted) {
    if (value)
        return *value == wanted ? Presence::Present : Presence::Absent;
    return value.error() == OpenError::NotFound ? Presence::Absent : Presence::Unknown;
}

// VLAN 286, tagged.
Presence findTagging(Switch sw, IfNum ifNum) {
    const auto membership =
        presenceOf(sw.participation(ifNum, LIGHTWARE_TAGGED_VLAN), Participation::Include);
    return membership != Presence::Present
               ? membership
               : presenceOf(sw.tagging(ifNum, LIGHTWARE_TAGGED_VLAN), Tagging::Tagged);
}

// The profile's VLAN, untagged.
Presence findUntagging(Switch sw, IfNum ifNum, VlanId vlan) {
    const auto pvid = presenceOf(sw.pvidNumber(ifNum), vlan.number());
    return pvid != Presence::Present ? pvid
                                     : presenceOf(sw.participation(ifNum, vlan), Participation::Include);
}

// The settings of an endpoint's port: that it is in the profile's VLAN is left to the profile.
Presence findPortSettings(Switch sw, IfNum port, VlanId vlan) {
    const auto pvid = presenceOf(sw.pvidNumber(port), vlan.number());
    return pvid != Presence::Present ? pvid : findTagging(sw, port);
}

Presence findLagSettings(Switch sw, IfNum lag, VlanId vlan) {
    const Presence untagging = findUntagging(sw, lag, vlan);
    return untagging != Presence::Present ? untagging : findTagging(sw, lag);
}

// What is tried again is looked at first: a step that cannot be done must not have the others repeated, and
// one that waits for VLAN 286 to be created is not an error each time.
bool tagInterface(Switch sw, IfNum ifNum, bool isRetry, const Where &where) {
    if (isRetry && findTagging(sw, ifNum) == Presence::Present)
        return true;
    if (isRetry && sw.vlanPresence(LIGHTWARE_TAGGED_VLAN) == Presence::Absent)
        return false;
    return setParticipationAndVerify(sw, ifNum, LIGHTWARE_TAGGED_VLAN, Participation::Include, where) &&
           setTaggingAndVerify(sw, ifNum, LIGHTWARE_TAGGED_VLAN, Tagging::Tagged, where);
}

bool untagLag(Switch sw, IfNum lag, VlanId vlan, bool isRetry) {
    return (isRetry && findUntagging(sw, lag, vlan) == Presence::Present) || ifUntaggedSet(sw, lag, vlan);
}

// --- what an earlier run has left

// The records for the members of a LAG; nothing when they cannot be known.
std::optional<std::vector<LightwareLink>> findUplinks(Switch sw, IfNum lag, VlanId vlan,
                                                      const std::vector<IfNum> &members,
                                                      const LightwareScan &scan) {
    const Presence lagSettings = findLagSettings(sw, lag, vlan);
    if (lagSettings == Presence::Unknown)
        return std::nullopt;
    std::vector<LightwareLink> found;
    std::string chassisId;
    bool isOnlyOurs = true;  // no members but those of one endpoint, and ports with our settings
    std::set<IfNum> withSettings;
    for (const IfNum port : members) {
        const Presence settings = findPortSettings(sw, port, vlan);
        if (settings == Presence::Unknown)
            return std::nullopt;
        if (settings == Presence::Present)
            withSettings.insert(port);
        LightwareLink link{.port = port, .lag = lag};
        if (const auto here = std::ranges::find(scan.seen, port, &LightwareSighting::port);
            here != scan.seen.end()) {
            link = linkOf(*here);
            link.lag = lag;
            chassisId = chassisId.empty() ? link.chassisId : chassisId;
        }
        const bool isOfLag = link.isUnknown() || link.chassisId == chassisId;
        isOnlyOurs = isOnlyOurs && isOfLag && (!link.isUnknown() || settings == Presence::Present);
        link.isWhole = lagSettings == Presence::Present && settings == Presence::Present;
        if (isOfLag)
            found.push_back(std::move(link));
    }
    if (!isOnlyOurs)
        std::erase_if(found, [&](const LightwareLink &link) { return !withSettings.contains(link.port); });
    return found;
}

// An empty LAG with our settings. False when the switch could not be asked.
bool releaseEmptyLag(Switch sw, IfNum lag, VlanId vlan, const Where &where) {
    const Presence settings = findLagSettings(sw, lag, vlan);
    if (settings == Presence::Present) {
        logInfo(where,
                "[%s:%d] Lightware: LAG interface %d is empty and has settings from an earlier run: "
                "released\n",
                lag);
        ifTaggingClear(sw, lag);
        ifUntaggingClear(sw, lag);
        setLagStatic(sw, lag, true, false, where);
    }
    return settings != Presence::Unknown;
}

// --- the thread

Reason checkProfile(Switch sw, const Where &where) {
    const ProfileVlan profile = findProfileVlan(sw, where);
    return {profile.presence, profile.awaited};
}

bool takeOver(Switch sw, const Where &) {
    return adoptLightwareLinks(sw, knownLinks());
}

void runCycle(Switch sw, const Where &) {
    lightwareLookup(sw, knownLinks());
}

void report(const Links &links, const Where &where) {
    std::vector<DeviceState> states;
    for (const LightwareLink &link : links) {
        DeviceState state{.family = lightwareDetection.name,
                          .address = link.isUnknown() ? "?" : link.chassisId,
                          .port = link.port,
                          .missed = link.missCount,
                          .missedMax = kMissMax};
        if (link.isLeaving)
            state.kind = DeviceState::Kind::Leaving;
        else if (link.missCount > 0)
            state.kind = DeviceState::Kind::Missing;
        else if (link.isUnknown())
            state.kind = DeviceState::Kind::Unseen;
        else if (!link.isWhole) {
            state.kind = DeviceState::Kind::Refused;
            state.reason = "not all settings of its LAG and VLANs have taken effect";
        }
        states.push_back(std::move(state));
    }
    std::ranges::sort(states, {}, &DeviceState::port);
    reportDevices(lightwareDetection.name, std::move(states), where);
}

void forgetLinks(Switch, const Where &where) {
    knownLinks()->clear();
    report(*knownLinks(), where);
}

}  // namespace

constinit std::atomic<std::int32_t> lightwareRunning{0};

constinit const NeighbourFamily lightwareNeighbours = {.reads = kNeighbourReads, .prefix = "UBEX"};

constinit const DetectionRow lightwareDetection = {
    .name = "lightware",
    .profileType = PROFILE_TYPE_NAME_LIGHTWARE,
    .loop = {.texts = {.started = "[%s:%d] LightwareLookup Init success!\r\n",
                       .lookingNow = "[%s:%d] LightwareLookup wake up and start scanning lldp table.\r\n",
                       .ended = "[%s:%d] User already delete lightware profile, LightwareLookup exit!\r\n"},
             .period = std::chrono::seconds(30),
             .check = checkProfile,
             .begin = takeOver,
             .cycle = runCycle,
             .end = forgetLinks},
    .entry = detect_lightware_thread,
    .running = &lightwareRunning,
    .onStartFailure = StartFailure::Fatal,
    .notCreated = "[%s:%d] Fatal error unable to create detect lightware thread!",
    .notRecreated = "[%s:%d] Fatal error unable to recreate detect lightware thread!",
    .restartPause = std::chrono::seconds(1),
};

void *detect_lightware_thread(void *clientHandle) {
    runDetection(lightwareDetection, clientHandle);
    pthread_exit(nullptr);
}

LightwareScan scanLightwareLinks(Switch sw, Where where) {
    LightwareScan scan;
    const ProfileVlan profile = findProfileVlan(sw, where);
    scan.profile = profile.presence;
    if (profile.presence != Presence::Present)
        return scan;
    NeighbourReader reader(sw, lightwareNeighbours);
    auto interfaces = sw.lldpInterfaces();
    for (const IfNum port : interfaces) {
        const auto pvid = sw.pvid(port);
        if (!pvid)
            scan.unread.insert(port);
        if (!pvid || *pvid != profile.vlan)
            continue;
        PortNeighbours read = reader.read(port, where);
        if (!read.outcome)
            scan.unread.insert(port);
        for (Neighbour &neighbour : read.neighbours) {
            auto &systemDesc = neighbour[NeighbourField::SystemDesc];
            auto &chassisId = neighbour[NeighbourField::ChassisId];
            auto &portDesc = neighbour[NeighbourField::PortDesc];
            if (systemDesc && chassisId && !chassisId->empty() && portDesc)
                scan.seen.push_back(
                    {port, std::move(*systemDesc), std::move(*chassisId), std::move(*portDesc)});
        }
    }
    if (const auto error = interfaces.brokenBy()) {
        scan.isWhole = false;
        logWarn(where, "[%s:%d] Lightware: the LLDP interfaces cannot be read to the end (result = %d)\n",
                *error);
    }
    return scan;
}

bool adoptLightwareLinks(Switch sw, Links *links) {
    const Where where = std::source_location::current();
    const LightwareScan scan = scanLightwareLinks(sw, where);
    const ProfileVlan profile = findProfileVlan(sw, where);
    const auto max = sw.lagMaxMembers();
    if (profile.presence != Presence::Present || !max)
        return false;
    std::vector<LightwareLink> adopted;
    auto lags = sw.lagsByNext();
    for (const IfNum lag : lags) {
        const auto members = sw.lagMembers(lag, *max);
        if (!members)
            return false;
        if (members->empty() && !releaseEmptyLag(sw, lag, profile.vlan, where))
            return false;
        auto found = members->empty() ? std::vector<LightwareLink>()
                                      : findUplinks(sw, lag, profile.vlan, *members, scan);
        if (!found)
            return false;
        std::ranges::move(*found, std::back_inserter(adopted));
    }
    if (lags.brokenBy())
        return false;
    for (LightwareLink &link : adopted) {
        logInfo(where,
                "[%s:%d] Lightware: interface %d is in LAG interface %d from an earlier run: taken over\n",
                link.port, link.lag);
        static_cast<void>(links->push(std::move(link)));
    }
    return true;
}

void lightwareLookup(Switch sw, Links *links) {
    const Where where = std::source_location::current();
    const LightwareScan scan = scanLightwareLinks(sw, where);
    if (scan.profile == Presence::Unknown)
        return;
    recogniseUnknown(links, scan.seen);
    takeGoneOffline(sw, links, scan, where);
    finishHalfDone(sw, links);
    bringNewOnline(sw, links, scan, where);
    report(*links, where);
}

Result<> lightwareOnlineCli(Switch sw, const Links &links, LightwareLink *link) {
    const Where where = std::source_location::current();
    const bool isRetry = static_cast<bool>(link->lag);
    if (const LightwareLink *const sibling = isRetry ? nullptr : findSibling(links, *link)) {
        link->lag = sibling->lag;
    } else if (!isRetry) {
        const auto free = freeLagFind(sw);
        if (!free)
            return std::unexpected(free.error());
        link->lag = *free;
    }
    const IfNum lag = link->lag;
    if (!lag)
        return {};

    link->isWhole = link->isLeaving = false;
    link->lagShare = LagShare::Pending;
    const bool isIn = joinLag(sw, lag, link->port, isRetry, where);
    const bool isLagTagged = tagInterface(sw, lag, isRetry, where);
    const bool isPortTagged = tagInterface(sw, link->port, isRetry, where);
    const ProfileVlan profile = findProfileVlan(sw, where);
    if (profile.presence != Presence::Present)
        return failed(profile.presence == Presence::Absent ? ResultCode::ConfigInvalid : ResultCode::Failed);
    // What an uplink that is leaving has left half undone would mix with what is set now.
    const bool isMixed = std::ranges::any_of(links, [&](const LightwareLink &other) {
        return other.lag == lag && other.isLeaving && other.lagShare == LagShare::Pending;
    });
    const bool isUntagged =
        (!isMixed || ifUntaggingClear(sw, lag)) && untagLag(sw, lag, profile.vlan, isRetry);
    link->isWhole = isIn && isLagTagged && isPortTagged && isUntagged;
    if (link->isWhole)
        logDebug("[%s:%d] LightwareLookup: port %d added to LAG interface %d\n", link->port, lag);
    return {};
}

Result<> lightwareOfflineCli(Switch sw, LightwareLink *link) {
    const Where where = std::source_location::current();
    if (!link->port || !link->lag)
        return {};
    const bool isRetry = std::exchange(link->isLeaving, true);
    link->isWhole = false;
    Presence profile = Presence::Present;
    if (link->lagShare == LagShare::Pending) {
        const bool isUntagged = ifTaggingClear(sw, link->lag);
        profile = findProfileVlan(sw, where).presence;
        if (profile == Presence::Present && ifUntaggingClear(sw, link->lag) && isUntagged)
            link->lagShare = LagShare::Done;
    }
    const bool isOut = leaveLag(sw, *link, isRetry, where);
    const bool isPortUntagged = ifTaggingClear(sw, link->port);
    if (profile == Presence::Absent)
        return failed(ResultCode::ConfigInvalid);
    if (link->lagShare == LagShare::Pending || !isOut || !isPortUntagged)
        return failed(ResultCode::Failed);
    logDebug("[%s:%d] LightwareLookup: port %d remove from LAG interface %d\n", link->port, link->lag);
    return {};
}

bool ifTaggingClear(Switch sw, IfNum ifNum) {
    constexpr VlanId kVlan = LIGHTWARE_TAGGED_VLAN;
    const bool isOut = setParticipationAndVerify(sw, ifNum, kVlan, Participation::Auto).has_value();
    if (isOut)
        logDebug(
            "[%s:%d] Lightware: set interface %d to vlan %d OPEN_VLAN_PARTICIPATION_MODE_AUTO success.\r\n",
            ifNum, kVlan);
    else
        logError(
            "[%s:%d] Lightware: set interface %d to vlan %d OPEN_VLAN_PARTICIPATION_MODE_AUTO failed.\r\n",
            ifNum, kVlan);
    const bool isUntagged = setTaggingAndVerify(sw, ifNum, kVlan, Tagging::Untagged).has_value();
    if (isUntagged)
        logDebug("[%s:%d] Lightware: set interface %d to vlan %d tagged success.\r\n", ifNum, kVlan);
    else
        logError("[%s:%d] Lightware: set interface %d to vlan %d tagged failed.\r\n", ifNum, kVlan);
    // There is nothing to be taken out of a VLAN that the switch does not have.
    return (isOut && isUntagged) || sw.vlanPresence(kVlan) == Presence::Absent;
}

}  // namespace pavo
