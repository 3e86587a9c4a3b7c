#include "vswitch/dataplane/wire_config.h"

#include <arpa/inet.h>

#include <algorithm>

namespace vswitch {
namespace {

// The model counts whole frames without the checksum's four bytes; no port is set below a full Ethernet
// payload.
constexpr std::uint32_t kFrameOverhead = 18, kPayloadMin = 1500;

std::uint32_t payloadOf(std::uint32_t frame) {
    return std::max(kPayloadMin + kFrameOverhead, frame) - kFrameOverhead;
}

// "address bits-that-may-differ" as "address/bits-that-must-match"; empty for "any", nothing when it is
// neither.
std::optional<std::string> matchOf(const std::string &text) {
    if (text == "any")
        return "";
    const auto blank = text.find(' ');
    in_addr address{}, wild{};
    if (blank == std::string::npos || ::inet_pton(AF_INET, text.substr(0, blank).c_str(), &address) != 1 ||
        ::inet_pton(AF_INET, text.substr(blank + 1).c_str(), &wild) != 1)
        return std::nullopt;
    const in_addr mask{~wild.s_addr};
    address.s_addr &= mask.s_addr;
    char shown[INET_ADDRSTRLEN], shownMask[INET_ADDRSTRLEN];
    ::inet_ntop(AF_INET, &address, shown, sizeof shown);
    ::inet_ntop(AF_INET, &mask, shownMask, sizeof shownMask);
    return std::string(shown) + "/" + shownMask;
}

// The lines of all lists of one direction, in order; nothing when no list with lines is bound.
std::optional<std::vector<WireRule>> rulesOf(const Model &model, const Interface &interface,
                                             std::uint32_t direction) {
    std::optional<std::vector<WireRule>> rules;
    for (const auto &group : interface.accessGroups) {
        const auto list = model.ipAccessLists().find(group.list);
        if (group.direction != direction || list == model.ipAccessLists().end() || list->second.empty())
            continue;
        if (!rules)
            rules.emplace();
        for (const auto &rule : list->second) {
            const auto source = matchOf(rule.source), destination = matchOf(rule.destination);
            // A line that cannot be parsed must not let through what it may have been meant to stop.
            if (source && destination)
                rules->push_back({rule.permit, *source, *destination});
            else
                rules->push_back({false, "", ""});
        }
    }
    return rules;
}

bool administrativelyUp(const Interface &interface) {
    return interface.adminUp && interface.errorDisabled == OPEN_ERROR_DISABLE_NONE &&
           interface.carrier != Carrier::ForcedDown;
}

// Whoever has no address and secret cannot be asked: nobody looks up names here.
std::vector<WireAccess::Radius> radiusOf(const RadiusSettings &settings) {
    std::vector<std::pair<std::uint32_t, WireAccess::Radius>> found;
    for (const auto &[key, server] : settings.servers) {
        in6_addr address{};
        const bool known = ::inet_pton(AF_INET, key.host.c_str(), &address) == 1 ||
                           ::inet_pton(AF_INET6, key.host.c_str(), &address) == 1;
        if (key.type == OPEN_RADIUS_AUTH && known && !server.secret.empty())
            found.push_back({server.priority, {key.host, server.secret, server.port}});
    }
    std::ranges::stable_sort(found, {}, [](const auto &item) { return item.first; });
    std::vector<WireAccess::Radius> servers;
    servers.reserve(found.size());
    for (auto &[priority, server] : found)
        servers.push_back(std::move(server));
    return servers;
}

WireAccess accessOf(const SystemSettings &settings) {
    WireAccess access;
    if (settings.dot1x.method == Dot1xMethod::Radius)
        access.radius = radiusOf(settings.radius);
    else
        access.users = settings.dot1x.users;
    return access;
}

}  // namespace

WireConfig wireConfigOf(const Model &model, const PortMap &ports) {
    WireConfig config;
    config.associations = model.macAssociations();
    config.ageTime = model.system().fdbAgeTime;
    config.fdbCapacity = model.config().fdbCapacity;
    config.fdbClears = model.fdbClears();
    config.systemName = model.system().hostName;
    config.systemDescription = model.system().machineModel + ", " + model.system().osVersion;
    bool authenticates = false;
    for (const auto &[num, netdev] : ports) {
        const auto *port = model.interface(num);
        if (port == nullptr)
            continue;
        const auto *forwarder = port->lag != 0 ? model.interface(port->lag) : port;
        auto &wire = config.ports[num] = {netdev, administrativelyUp(*port), payloadOf(forwarder->mtu)};
        if (wire.adminUp && model.authenticates(num)) {
            const auto period =
                std::chrono::seconds(port->dot1xReauthentication ? port->dot1xReauthPeriod : 0);
            wire.authentication = {port->dot1x.round, period};
            authenticates = true;
        }
        if (!forwarder->adminUp || !model.authorized(num))
            continue;
        auto &interface = config.interfaces[forwarder->num];
        interface.members.push_back(num);
        interface.authenticates = wire.authentication.has_value();
    }
    if (authenticates)
        config.access = accessOf(model.settings());
    for (auto &[num, wire] : config.interfaces) {
        const auto &interface = *model.interface(num);
        wire.pvid = interface.pvid;
        wire.acceptFrames = interface.acceptFrames;
        wire.in = rulesOf(model, interface, OPEN_ACL_INBOUND);
        wire.out = rulesOf(model, interface, OPEN_ACL_OUTBOUND);
        const auto takePart = [&, &to = wire.vlans](VlanId id, const Membership &membership) {
            if (membership.participation == OPEN_VLAN_PARTICIPATION_MODE_INCLUDE)
                to[id] = membership.tagged;
        };
        for (const auto &[id, membership] : interface.vlans)
            takePart(id, membership);
        if (!interface.vlans.contains(kDefaultVlan))
            takePart(kDefaultVlan, Model::defaultMembership(kDefaultVlan));
    }
    for (const auto &[mac, vlan] : config.associations) {
        const auto entry = model.fdb().find({mac, vlan});
        if (entry == model.fdb().end())
            continue;
        const auto wire = config.interfaces.find(entry->second.ifNum);
        if (wire != config.interfaces.end() &&
            model.membership(wire->first, vlan).participation == OPEN_VLAN_PARTICIPATION_MODE_AUTO)
            wire->second.vlans.try_emplace(vlan, false);
    }
    for (const auto &[id, vlan] : model.vlans())
        if (auto multicast = model.wireMulticast(id); multicast.snooping)
            config.multicast.emplace(id, std::move(multicast));
    return config;
}

void putIntoModel(Model &model, const WireView &view, std::uint64_t generation) {
    for (const auto &text : view.messages)
        model.log(4, "DATAPLANE", "dataPlaneTask", text);
    for (const auto &[port, up] : view.carrier)
        model.seeCarrier(port, up);
    // After the links: who has authenticated has done so on a link that is there.
    for (const auto &[port, supplicant] : view.supplicants)
        model.seeSupplicant(supplicant);
    for (const auto &message : view.igmp)
        model.hearIgmp(message);
    if (view.addresses && view.generation == generation)
        model.seeAddresses(*view.addresses);
    if (view.neighbours)
        model.seeNeighbours(*view.neighbours);
    if (view.arp)
        model.seeArp(*view.arp);
}

}  // namespace vswitch
