#include "detection/lightware.h"

#include <pthread.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <map>
#include <optional>
#include <string_view>
#include <utility>

#include "common/log.h"
#include "common/text.h"
#include "detection/lag.h"
#include "platform/clock.h"
#include "store/profile_types.h"
#include "swapi/vlan_membership.h"
#include "vlan/profile_vlan.h"

namespace pavo {
namespace {

using Links = DeviceList<LightwareLink>;
using Scan = std::vector<LightwareSighting>;

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

// The VLAN of the Lightware profile; nothing when there is no profile or its VLAN does not exist.
std::optional<VlanId> findProfileVlan(Switch sw, const Where &where) {
    const ProfileVlan profile =
        findVlanOfProfileType(sw, PROFILE_TYPE_NAME_LIGHTWARE, LIGHTWARE_TAGGED_VLAN, where);
    const bool exists = profile.presence == Presence::Present && sw.checkVlan(profile.vlan);
    return exists ? std::optional(profile.vlan) : std::nullopt;
}

// --- comparing

LightwareLink linkOf(const LightwareSighting &seen) {
    return {.port = seen.port,
            .chassisId = seen.chassisId.substr(0, kChassisIdKept),
            .portDescNum = leadingNumber(seen.portDesc),
            .lag = {}};
}

// Where each uplink of each endpoint has been seen; the first sighting counts.
using UplinkPorts = std::map<std::pair<std::string, std::uint32_t>, IfNum>;

UplinkPorts indexUplinks(const Scan &scan) {
    UplinkPorts ports;
    for (const LightwareSighting &seen : scan) {
        LightwareLink link = linkOf(seen);
        ports.try_emplace({std::move(link.chassisId), link.portDescNum}, link.port);
    }
    return ports;
}

// Whether the uplink is to be taken offline.
bool isGone(LightwareLink *link, const UplinkPorts &ports) {
    const auto seen = ports.find({link->chassisId, link->portDescNum});
    if (seen == ports.end())
        return ++link->missCount >= kMissMax;
    const bool moved = seen->second != link->port;
    link->missCount = moved ? kMissMoved : 0;
    return moved;
}

void takeGoneOffline(Switch sw, Links *links, const Scan &scan, const Where &where) {
    const UplinkPorts ports = indexUplinks(scan);
    links->removeWhere([&](LightwareLink &link) {
        if (!isGone(&link, ports))
            return false;
        logDebug(where, "[%s:%d] LightwareLookup ====== port=%d chassisId=%s offline\r\n", link.port,
                 printable(link.chassisId));
        return lightwareOfflineCli(sw, link).has_value();
    });
}

void bringNewOnline(Switch sw, Links *links, const Scan &scan, const Where &where) {
    for (const LightwareSighting &seen : scan) {
        LightwareLink link = linkOf(seen);
        if (links->find(link) != nullptr)
            continue;
        logDebug(where, "[%s:%d] LightwareLookup ====== port=%d chassisId=%s portDesc=%s online\r\n",
                 link.port, printable(link.chassisId), printable(seen.portDesc));
        // An uplink that cannot be kept is new again at the next scan.
        if (lightwareOnlineCli(sw, *links, &link))
            static_cast<void>(links->push(std::move(link)));
    }
}

// --- online and offline

// The endpoint's other uplink, or null.
const LightwareLink *findSibling(const Links &links, const LightwareLink &link) {
    const auto sibling = std::ranges::find_if(links, [&](const LightwareLink &other) {
        return other.chassisId == link.chassisId && other.portDescNum != link.portDescNum;
    });
    return sibling != links.end() ? &*sibling : nullptr;
}

void leaveLag(Switch sw, IfNum port, const Where &where) {
    const auto lag = phyPortLagNumGet(sw, port);
    if (!lag || !*lag)
        return;
    if (sw.deleteLagPort(*lag, port)) {
        logInfo(where, "[%s:%d] Lightware: Successfully to delete interface %u from LAG inaterface %d\n",
                port, *lag);
        platform::sleepFor(kLagLeavePause);
    } else {
        logError(where, "[%s:%d] Lightware: Failed to delete interface %u from LAG inaterface %d\n", port,
                 *lag);
    }
}

void setLagStatic(Switch sw, IfNum lag, bool isStatic, const Where &where) {
    if (const auto result = sw.setLagStatic(lag, isStatic); !result)
        logError(where, "[%s:%d] Failed to set the static mode for the LAG interface %d, result=%d\n", lag,
                 result.error());
}

void joinLag(Switch sw, IfNum lag, IfNum port, const Where &where) {
    if (const auto result = sw.addLagPort(lag, port); result)
        setLagStatic(sw, lag, false, where);
    else
        logError(where, "[%s:%d] Lightware: Failed to add interface %d to LAG interface %d, result=%d\n",
                 port, lag, result.error());
}

void tagInterface(Switch sw, IfNum ifNum, const Where &where) {
    if (setParticipationAndVerify(sw, ifNum, LIGHTWARE_TAGGED_VLAN, Participation::Include, where))
        static_cast<void>(setTaggingAndVerify(sw, ifNum, LIGHTWARE_TAGGED_VLAN, Tagging::Tagged, where));
}

// --- the thread

Presence checkProfile(Switch sw, const Where &where) {
    return findProfileVlan(sw, where) ? Presence::Present : Presence::Absent;
}

void runCycle(Switch sw, const Where &) {
    lightwareLookup(sw, knownLinks());
}

void forgetLinks(Switch, const Where &) {
    knownLinks()->clear();
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

std::vector<LightwareSighting> scanLightwareLinks(Switch sw, Where where) {
    Scan scan;
    const auto vlan = findProfileVlan(sw, where);
    if (!vlan)
        return scan;
    NeighbourReader reader(sw, lightwareNeighbours);
    for (const IfNum port : sw.lldpInterfaces()) {
        if (const auto pvid = sw.pvid(port); !pvid || *pvid != *vlan)
            continue;
        for (Neighbour &neighbour : reader.read(port, where).neighbours) {
            auto &systemDesc = neighbour[NeighbourField::SystemDesc];
            auto &chassisId = neighbour[NeighbourField::ChassisId];
            auto &portDesc = neighbour[NeighbourField::PortDesc];
            if (systemDesc && chassisId && !chassisId->empty() && portDesc)
                scan.push_back({port, std::move(*systemDesc), std::move(*chassisId), std::move(*portDesc)});
        }
    }
    return scan;
}

void lightwareLookup(Switch sw, Links *links) {
    const Where where = std::source_location::current();
    const Scan scan = scanLightwareLinks(sw, where);
    takeGoneOffline(sw, links, scan, where);
    bringNewOnline(sw, links, scan, where);
}

Result<> lightwareOnlineCli(Switch sw, const Links &links, LightwareLink *link) {
    const Where where = std::source_location::current();
    IfNum lag;
    if (const LightwareLink *sibling = findSibling(links, *link)) {
        lag = sibling->lag;
    } else {
        const auto free = freeLagFind(sw);
        if (!free)
            return std::unexpected(free.error());
        lag = *free;
    }
    if (!lag)
        return {};

    leaveLag(sw, link->port, where);
    joinLag(sw, lag, link->port, where);
    link->lag = lag;
    logDebug("[%s:%d] LightwareLookup: port %d added to LAG interface %d\n", link->port, lag);

    tagInterface(sw, lag, where);
    tagInterface(sw, link->port, where);
    const auto vlan = findProfileVlan(sw, where);
    if (!vlan)
        return failed(ResultCode::ConfigInvalid);
    ifUntaggedSet(sw, lag, *vlan);
    return {};
}

Result<> lightwareOfflineCli(Switch sw, const LightwareLink &link) {
    const Where where = std::source_location::current();
    if (!link.port || !link.lag)
        return {};
    ifTaggingClear(sw, link.lag);
    const auto vlan = findProfileVlan(sw, where);
    if (vlan)
        ifUntaggingClear(sw, link.lag);
    if (sw.deleteLagPort(link.lag, link.port)) {
        logDebug("[%s:%d] successful to delete interface %u from LAG inaterface %d\n", link.port, link.lag);
        setLagStatic(sw, link.lag, true, where);
    } else {
        logError("[%s:%d] Failed to delete interface %u from LAG inaterface %d\n", link.port, link.lag);
    }
    ifTaggingClear(sw, link.port);
    logDebug("[%s:%d] LightwareLookup: port %d remove from LAG interface %d\n", link.port, link.lag);
    return vlan ? Result<>() : failed(ResultCode::ConfigInvalid);
}

void ifTaggingClear(Switch sw, IfNum ifNum) {
    constexpr VlanId kVlan = LIGHTWARE_TAGGED_VLAN;
    if (setParticipationAndVerify(sw, ifNum, kVlan, Participation::Auto))
        logDebug(
            "[%s:%d] Lightware: set interface %d to vlan %d OPEN_VLAN_PARTICIPATION_MODE_AUTO success.\r\n",
            ifNum, kVlan);
    else
        logError(
            "[%s:%d] Lightware: set interface %d to vlan %d OPEN_VLAN_PARTICIPATION_MODE_AUTO failed.\r\n",
            ifNum, kVlan);
    if (setTaggingAndVerify(sw, ifNum, kVlan, Tagging::Untagged))
        logDebug("[%s:%d] Lightware: set interface %d to vlan %d tagged success.\r\n", ifNum, kVlan);
    else
        logError("[%s:%d] Lightware: set interface %d to vlan %d tagged failed.\r\n", ifNum, kVlan);
}

}  // namespace pavo
