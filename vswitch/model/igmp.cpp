#include "vswitch/model/igmp.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "vswitch/model/model.h"

namespace vswitch {
namespace {

using std::chrono::seconds;

// While the VLAN or the switch has nothing else configured.
constexpr auto kMembershipInterval = seconds(260), kRouterExpiry = seconds(300);
constexpr auto kQueryInterval = seconds(60), kMaxResponse = seconds(10);
constexpr auto kOtherQuerierExpiry = seconds(255);
constexpr std::uint32_t kQuerierVersion = 2;
// A leave is followed by this many queries for the group, this far apart.
constexpr int kLastMemberQueries = 2;
constexpr auto kLastMemberInterval = seconds(1);
// Tables are not looked through more often than this.
constexpr auto kPass = std::chrono::milliseconds(100);
// Queries that nobody takes, as no port is live, do not pile up.
constexpr std::size_t kQueriesMax = 4096;

constexpr auto kNever = Duration::max();
constexpr Ipv4 kAllHosts = 0xE0000001;

bool isGroup(Ipv4 address) {
    return address >> 28 == 0xE;
}

// One interface may fill half of a table, so that whatever is behind it leaves room for the others.
std::size_t shareOf(std::size_t table) {
    return std::max<std::size_t>(1, table / 2);
}

bool hasSubscriberAt(const std::map<IgmpSubscriberKey, IgmpSubscriber> &subscribers, IfNum interface) {
    const auto first = subscribers.lower_bound({interface, 0});
    return first != subscribers.end() && first->first.interface == interface;
}

// 224.0.0.x is flooded, whoever asks for it.
bool isLinkLocal(Ipv4 group) {
    return group >> 8 == 0xE00000;
}

std::optional<Ipv4> ipv4At(std::string_view text) {
    Ipv4 address = 0;
    const char *at = text.data(), *const end = at + text.size();
    for (int part = 0; part < 4; ++part) {
        unsigned value = 0;
        const auto parsed = std::from_chars(at, end, value);
        if (parsed.ec != std::errc{} || value > 255)
            return std::nullopt;
        address = address << 8 | value;
        at = parsed.ptr;
        if (part == 3)
            break;
        if (at == end || *at != '.')
            return std::nullopt;
        ++at;
    }
    return at == end ? std::optional(address) : std::nullopt;
}

// `where` is "any", or an address and the bits of it that may differ. What cannot be parsed matches nothing
// that a line permits and all that it denies.
bool matches(const AccessRule &rule, const std::string &where, Ipv4 address) {
    if (where == "any")
        return true;
    const auto blank = where.find(' ');
    const auto wanted = ipv4At(std::string_view(where).substr(0, blank));
    const auto wild =
        blank == std::string::npos ? std::nullopt : ipv4At(std::string_view(where).substr(blank + 1));
    if (!wanted || !wild)
        return !rule.permit;
    return ((address ^ *wanted) & ~*wild) == 0;
}

Duration secondsOr(const std::optional<std::uint32_t> &configured, Duration otherwise) {
    return configured ? Duration(seconds(*configured)) : otherwise;
}

}  // namespace

std::optional<Ipv4> parseIpv4(std::string_view text) {
    return ipv4At(text);
}

std::string ipv4Text(Ipv4 address) {
    return std::to_string(address >> 24) + "." + std::to_string(address >> 16 & 255) + "." +
           std::to_string(address >> 8 & 255) + "." + std::to_string(address & 255);
}

std::string groupMacText(Ipv4 group) {
    const auto byte = [&](int shift, Ipv4 mask) { return static_cast<std::uint8_t>(group >> shift & mask); };
    return Mac{{0x01, 0x00, 0x5E, byte(16, 0x7F), byte(8, 0xFF), byte(0, 0xFF)}}.text();
}

// --- what holds of a VLAN

bool Model::igmpSnooped(VlanId id) const {
    const auto vlan = vlans_.find(id);
    return vlan != vlans_.end() && (vlan->second.features.igmpSnooping || vlan->second.features.igmpPlus);
}

// An interval between queries, or IGMP Plus, asks for a querier.
bool Model::igmpQuerierWanted(VlanId id) const {
    return igmpSnooped(id) && (features_.queryInterval || vlans_.at(id).features.igmpPlus);
}

Ipv4 Model::querierAddress(VlanId id) const {
    std::optional<Ipv4> own;
    if (const auto route = routing_.find(id);
        route != routing_.end() && route->second.method == AddressMethod::Manual)
        own = ipv4At(route->second.ip);
    else if (system_.mgmtVlan == id && !system_.mgmtDhcp)
        own = ipv4At(system_.mgmtIp);
    return own.value_or(0);
}

// A port whose participation is left to the switch belongs to a VLAN by an address that is associated with
// it.
bool Model::igmpParticipates(IfNum ifNum, VlanId id, const Mac &mac) const {
    const auto *found = interface(ifNum);
    if (found == nullptr || found->lag != 0 || !carries(*found))
        return false;
    const auto participation = membership(ifNum, id).participation;
    if (participation != OPEN_VLAN_PARTICIPATION_MODE_AUTO)
        return participation == OPEN_VLAN_PARTICIPATION_MODE_INCLUDE;
    const auto association = associations_.find(mac);
    return association != associations_.end() && association->second == id;
}

bool Model::admitsIp(IfNum ifNum, std::uint32_t direction, Ipv4 source, Ipv4 destination) const {
    const auto *found = interface(ifNum);
    bool filtered = false;
    if (found == nullptr)
        return false;
    for (const auto &group : found->accessGroups) {
        const auto list = ipAccessLists_.find(group.list);
        if (group.direction != direction || list == ipAccessLists_.end())
            continue;
        for (const auto &rule : list->second) {
            filtered = true;
            if (matches(rule, rule.source, source) && matches(rule, rule.destination, destination))
                return rule.permit;
        }
    }
    return !filtered;
}

// --- messages

void Model::hearIgmp(const IgmpMessage &received) {
    auto message = received;
    message.interface = forwarderOf(message.interface);
    const bool toAllHosts = message.kind == IgmpKind::Query && message.group == 0;
    if (!igmpSnooped(message.vlan) || (!toAllHosts && !isGroup(message.group)) || isGroup(message.host) ||
        message.mac == Mac{} || (message.mac.bytes[0] & 1) != 0 ||
        !igmpParticipates(message.interface, message.vlan, message.mac) ||
        !admitsIp(message.interface, OPEN_ACL_INBOUND, message.host, toAllHosts ? kAllHosts : message.group))
        return;
    if (message.kind == IgmpKind::Query)
        hearQuery(message);
    else if (!isLinkLocal(message.group) && message.kind == IgmpKind::Report)
        hearReport(message);
    else if (!isLinkLocal(message.group))
        hearLeave(message);
}

void Model::hearReport(const IgmpMessage &message) {
    const IgmpGroupKey key{message.vlan, message.group};
    auto group = igmpGroups_.find(key);
    const IgmpSubscriberKey host{message.interface, message.host};
    if (group == igmpGroups_.end() || !group->second.contains(host)) {
        auto &share = igmpShares_[message.interface];
        const bool noGroup = igmpGroups_.size() >= config_.igmpGroupsMax ||
                             share.groups >= shareOf(config_.igmpGroupsMax),
                   noSubscriber = igmpSubscribers_ >= config_.igmpSubscribersMax ||
                                  share.subscribers >= shareOf(config_.igmpSubscribersMax);
        if ((group == igmpGroups_.end() && noGroup) || noSubscriber) {
            ++igmpRefused_;
            return;
        }
        group = igmpGroups_.try_emplace(key).first;
        ++igmpSubscribers_;
        ++share.subscribers;
        share.groups += hasSubscriberAt(group->second, message.interface) ? 0 : 1;
        event("igmp", ipv4Text(message.host) + " on " + interfaces_.at(message.interface).name() +
                          " joined " + ipv4Text(message.group) + ", VLAN " + std::to_string(message.vlan));
    }
    // A host is in one place: it has moved from where it was.
    const auto expires =
        now_ + secondsOr(vlans_.at(message.vlan).features.membershipInterval, kMembershipInterval);
    group->second[host] = {message.mac, std::clamp(message.version, 1u, 3u), expires};
    removeSubscribers(group->second, [&](const auto &item) {
        return item.second.mac == message.mac && item.first.interface != message.interface;
    });
    igmpDue_ = std::min(igmpDue_, expires);
}

void Model::hearLeave(const IgmpMessage &message) {
    const auto group = igmpGroups_.find({message.vlan, message.group});
    if (group == igmpGroups_.end())
        return;
    // By its address; a host that has changed that since is known by the one of its interface.
    const bool known = group->second.contains({message.interface, message.host});
    const auto isSender = [&](const auto &item) {
        return item.first.interface == message.interface &&
               (known ? item.first.host == message.host : item.second.mac == message.mac);
    };
    if (vlans_.at(message.vlan).features.fastLeave) {
        forgetSubscribers(group, isSender);
        return;
    }
    // Another host behind the same interface may want the group on, one that was never heard because it heard
    // others report.
    bool here = false;
    for (auto &item : group->second) {
        here |= item.first.interface == message.interface;
        if (isSender(item))
            item.second.expires =
                std::min(item.second.expires, now_ + kLastMemberQueries * kLastMemberInterval);
    }
    if (!here)
        return;
    const LastMemberQuery asked{message.vlan, message.group, message.interface};
    lastMemberQueries_[asked] = {now_, kLastMemberQueries};
    // One pass for all who leave at the same time: with thousands of groups it takes a while.
    igmpDue_ = std::min(igmpDue_, now_);
}

void Model::hearQuery(const IgmpMessage &message) {
    const auto &features = vlans_.at(message.vlan).features;
    auto &state = igmpVlans_[message.vlan];
    // Also a querier without an address, a switch like this one: what is subscribed to behind it is known
    // there only.
    const auto expiry = secondsOr(features.mrouterExpiry, kRouterExpiry);
    const bool known = state.routers.contains(message.interface);
    state.routers[message.interface] = expiry == Duration::zero() ? kNever : now_ + expiry;
    if (!known)
        event("igmp", "multicast router on " + interfaces_.at(message.interface).name() + ", VLAN " +
                          std::to_string(message.vlan));
    // The lower address wins an election; without taking part in it, this switch gives way to anyone.
    const auto own = querierAddress(message.vlan);
    if (message.host != 0 && (!features.querierElection || own == 0 || message.host < own)) {
        state.otherQuerier = message.host;
        state.otherUntil = now_ + secondsOr(features_.querierExpiry, kOtherQuerierExpiry);
    }
    igmpDue_ = now_;
    answerQuery({message.vlan, message.group, message.version, message.host, message.maxResponse, {}});
}

// --- queries

std::vector<IgmpQuery> Model::takeIgmpQueries() {
    serveIgmp();
    return std::exchange(igmpQueries_, {});
}

void Model::sendQuery(IgmpQuery query) {
    query.version = features_.querierVersion.value_or(kQuerierVersion);
    query.source = querierAddress(query.vlan);
    const auto state = igmpVlans_.find(query.vlan);
    if (vlans_.at(query.vlan).features.proxyQuerier && state != igmpVlans_.end() &&
        state->second.otherUntil > now_)
        query.source = state->second.otherQuerier;
    answerQuery(query);
    if (igmpQueries_.size() < kQueriesMax)
        igmpQueries_.push_back(std::move(query));
}

// The simulated devices answer at once.
void Model::answerQuery(const IgmpQuery &query) {
    for (const auto &[name, device] : devices_) {
        if (device.groups.empty() || device.macs.empty() ||
            classify(device, device.macs.front()) != query.vlan)
            continue;
        if (query.interfaces.empty() || std::find(query.interfaces.begin(), query.interfaces.end(),
                                                  forwarderOf(device.port)) != query.interfaces.end())
            reportGroups(device, query.group);
    }
}

// Reports what the device has joined, or only `group` unless that is 0.
void Model::reportGroups(const Device &device, Ipv4 group) {
    for (const auto &[joined, version] : device.groups)
        if (group == 0 || joined == group)
            sendFromDevice(device, IgmpKind::Report, joined, version);
}

void Model::sendFromDevice(const Device &device, IgmpKind kind, Ipv4 group, std::uint32_t version) {
    if (!device.talking || device.macs.empty() || !forwarding(device.port))
        return;
    IgmpMessage message;
    message.kind = kind;
    message.vlan = classify(device, device.macs.front());
    message.interface = device.port;
    message.version = version;
    message.mac = device.macs.front();
    message.host = ipv4At(device.ip).value_or(0);
    message.group = group;
    hearIgmp(message);
}

// --- time

// Queries that are due go out, and what has expired is forgotten.
void Model::serveIgmp() {
    if (igmpStale_)
        refreshIgmp();
    if (now_ < igmpDue_)
        return;
    Duration next = kNever;
    const auto note = [&](Duration due) { next = std::min(next, due); };
    std::vector<IgmpQuery> due;
    for (auto it = lastMemberQueries_.begin(); it != lastMemberQueries_.end();) {
        auto &[asked, left] = *it;
        if (left.due <= now_ && igmpGroups_.contains({asked.vlan, asked.group})) {
            due.push_back({asked.vlan, asked.group, 0, 0, kLastMemberInterval, {asked.interface}});
            left.due = now_ + kLastMemberInterval;
            --left.count;
        }
        if (left.count == 0 || !igmpGroups_.contains({asked.vlan, asked.group})) {
            it = lastMemberQueries_.erase(it);
            continue;
        }
        note(left.due);
        ++it;
    }
    for (const auto &[id, vlan] : vlans_) {
        if (!igmpQuerierWanted(id)) {
            if (const auto state = igmpVlans_.find(id); state != igmpVlans_.end())
                state->second.nextQuery = Duration::zero();
            continue;
        }
        auto &state = igmpVlans_[id];
        if (state.otherUntil > now_) {
            state.nextQuery = state.otherUntil;
        } else {
            const auto interval = secondsOr(features_.queryInterval, kQueryInterval);
            state.nextQuery = std::min(state.nextQuery, state.lastQuery + interval);
            if (state.nextQuery <= now_) {
                due.push_back({id, 0, 0, 0, secondsOr(vlan.features.maxResponse, kMaxResponse), {}});
                state.lastQuery = now_;
                state.nextQuery = now_ + interval;
            }
        }
        note(state.nextQuery);
    }
    for (auto &query : due)
        sendQuery(std::move(query));

    // After the answers.
    const auto expired = [&](const auto &item) { return item.second.expires <= now_; };
    for (auto group = igmpGroups_.begin(); group != igmpGroups_.end();)
        group = forgetSubscribers(group, expired);
    for (const auto &[key, subscribers] : igmpGroups_)
        for (const auto &[host, subscriber] : subscribers)
            note(subscriber.expires);
    for (auto &[id, state] : igmpVlans_) {
        std::erase_if(state.routers, [&](const auto &item) { return item.second <= now_; });
        for (const auto &[ifNum, expires] : state.routers)
            note(expires);
    }
    igmpDue_ = next == kNever ? kNever : std::max(next, now_ + kPass);
}

template <class Which>
void Model::removeSubscribers(std::map<IgmpSubscriberKey, IgmpSubscriber> &subscribers, Which which) {
    for (auto it = subscribers.begin(); it != subscribers.end();) {
        if (!which(*it)) {
            ++it;
            continue;
        }
        const auto ifNum = it->first.interface;
        it = subscribers.erase(it);
        auto &share = igmpShares_[ifNum];
        --igmpSubscribers_;
        --share.subscribers;
        share.groups -= hasSubscriberAt(subscribers, ifNum) ? 0 : 1;
    }
}

// Removes the subscribers that fit, and the group when none is left; what comes after it.
template <class Which>
IgmpGroups::iterator Model::forgetSubscribers(IgmpGroups::iterator group, Which which) {
    const IgmpGroupKey key = group->first;
    auto &subscribers = group->second;
    removeSubscribers(subscribers, [this, key, &which](const auto &item) {
        if (!which(item))
            return false;
        event("igmp", ipv4Text(item.first.host) + " on " + interfaces_.at(item.first.interface).name() +
                          " left " + ipv4Text(key.group) + ", VLAN " + std::to_string(key.vlan));
        return true;
    });
    return subscribers.empty() ? igmpGroups_.erase(group) : std::next(group);
}

void Model::refreshIgmp() {
    igmpStale_ = false;
    for (auto group = igmpGroups_.begin(); group != igmpGroups_.end();) {
        const auto id = group->first.vlan;
        const bool snooped = igmpSnooped(id);
        group = forgetSubscribers(group, [&](const auto &item) {
            return !snooped || !igmpParticipates(item.first.interface, id, item.second.mac);
        });
    }
    for (auto it = igmpVlans_.begin(); it != igmpVlans_.end();) {
        if (!igmpSnooped(it->first)) {
            it = igmpVlans_.erase(it);
            continue;
        }
        std::erase_if(it->second.routers, [&](const auto &item) {
            const auto *found = interface(item.first);
            return found->lag != 0 || !carries(*found) ||
                   membership(item.first, it->first).participation == OPEN_VLAN_PARTICIPATION_MODE_EXCLUDE;
        });
        ++it;
    }
    igmpDue_ = std::min(igmpDue_, now_);
}

// What was known by way of an interface without link is gone; devices that find a link report.
void Model::igmpLinkChanged(IfNum ifNum) {
    refreshIgmp();
    for (const auto port : portsOf(ifNum))
        for (const auto *device : devicesAt(port))
            reportGroups(*device);
}

// --- what is known

std::vector<IfNum> Model::igmpRouters(VlanId id) const {
    std::set<IfNum> routers;
    for (const auto &[num, found] : interfaces_)
        if (found.igmpMrouter && found.lag == 0 &&
            membership(num, id).participation == OPEN_VLAN_PARTICIPATION_MODE_INCLUDE)
            routers.insert(num);
    if (const auto state = igmpVlans_.find(id); state != igmpVlans_.end())
        for (const auto &[num, expires] : state->second.routers)
            routers.insert(num);
    return {routers.begin(), routers.end()};
}

WireMulticast Model::wireMulticast(VlanId id) const {
    WireMulticast wire;
    const auto vlan = vlans_.find(id);
    wire.snooping = igmpSnooped(id);
    if (vlan == vlans_.end() || !wire.snooping)
        return wire;
    const auto &features = vlan->second.features;
    wire.floodUnknown = !features.igmpPlus && !features.dropUnknown;
    wire.floodReports = features.floodReport;
    wire.routersGetGroups = !features.excludeMrouter;
    wire.routers = igmpRouters(id);
    for (auto it = igmpGroups_.lower_bound({id, 0}); it != igmpGroups_.end() && it->first.vlan == id; ++it) {
        auto &interfaces = wire.groups[it->first.group];
        // Sorted by interface first.
        for (const auto &[host, subscriber] : it->second)
            if (interfaces.empty() || interfaces.back() != host.interface)
                interfaces.push_back(host.interface);
    }
    return wire;
}

// --- simulated devices

open_error_t Model::joinGroup(const std::string &name, Ipv4 group, std::uint32_t version) {
    const auto device = devices_.find(name);
    if (device == devices_.end())
        return OPEN_E_NOT_FOUND;
    if (!isGroup(group) || version < 1 || version > 3 || device->second.macs.empty())
        return OPEN_E_PARAM;
    device->second.groups[group] = version;
    sendFromDevice(device->second, IgmpKind::Report, group, version);
    return OPEN_E_NONE;
}

open_error_t Model::leaveGroup(const std::string &name, Ipv4 group) {
    const auto device = devices_.find(name);
    if (device == devices_.end())
        return OPEN_E_NOT_FOUND;
    const auto joined = device->second.groups.find(group);
    if (joined == device->second.groups.end())
        return OPEN_E_NOT_FOUND;
    const auto version = joined->second;
    device->second.groups.erase(joined);
    // Version 1 has no leave: the host just stops answering.
    if (version > 1)
        sendFromDevice(device->second, IgmpKind::Leave, group, version);
    return OPEN_E_NONE;
}

}  // namespace vswitch
