#include "vswitch/model/model.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace vswitch {
namespace {

constexpr Duration kAgePass = std::chrono::seconds(10);
constexpr std::size_t kEventsKept = 4096;
// Maximum lengths of the parts of a log line.
constexpr std::size_t kLogNameMax = 256, kLogTextMax = 1024;

bool vlanIdValid(VlanId id) {
    return id >= 1 && id <= kVlanMax;
}

void cut(std::string &text, std::size_t length) {
    if (text.size() > length)
        text.resize(length);
}

}  // namespace

Model::Model(ModelConfig config) : config_(std::move(config)) {
    system_.hostName = config_.hostName;
    system_.machineModel = config_.machineModel;
    system_.osVersion = config_.osVersion;
    system_.serialNumber = config_.serialNumber;
    system_.burnedInMac = Mac::parse(config_.burnedInMac).value_or(Mac{});
    system_.activeImage = config_.osVersion;
    system_.backupImage = config_.osVersion;

    config_.physicalPorts = std::clamp(config_.physicalPorts, 1u, kInterfacesMax);
    config_.defaultMtu = std::clamp(config_.defaultMtu, kMtuMin, kMtuMax);
    config_.lags = std::min(config_.lags, kInterfacesMax - config_.physicalPorts);
    config_.sfpPorts = std::min(config_.sfpPorts, config_.physicalPorts / 2);
    for (std::uint32_t n = 1; n <= config_.physicalPorts + config_.lags; ++n) {
        Interface interface;
        interface.num = n;
        interface.index = n;
        interface.mtu = config_.defaultMtu;
        interface.hasCage = n <= config_.physicalPorts && n > config_.physicalPorts - config_.sfpPorts;
        if (n > config_.physicalPorts) {
            interface.type = OPEN_INTF_TYPE_LAG;
            interface.index = n - config_.physicalPorts;
            interface.lagName = "ch" + std::to_string(interface.index);
        }
        interfaces_.emplace(n, std::move(interface));
    }
    vlans_.emplace(kDefaultVlan, Vlan{kDefaultVlan, defaultVlanName(kDefaultVlan), true});
}

void Model::advanceTo(Duration now, std::timespec wall) {
    if (!started_) {
        started_ = true;
        now_ = bootTime_ = lastAged_ = lastSntpPoll_ = lastDot1x_ = now;
    }
    wall_ = wall;
    now_ = std::max(now_, now);
    while (!pending_.empty() && pending_.front().due <= now_)
        applyFirst();
    serveDot1x();
    if (now_ - lastAged_ >= kAgePass)
        age();
    serveIgmp();
    if (now_ - lastSntpPoll_ >= kSntpPollInterval)
        pollSntp();
}

// --- features of the whole switch

bool Model::runsPvst() const {
    return features_.spanningTreeMode == SpanningTreeMode::Pvst ||
           features_.spanningTreeMode == SpanningTreeMode::RapidPvst;
}

void Model::setSpanningTreeMode(SpanningTreeMode mode) {
    features_.spanningTreeMode = mode;
    if (runsPvst())
        return;
    for (auto &[id, vlan] : vlans_) {
        vlan.features.helloTime.reset();
        vlan.features.forwardTime.reset();
        vlan.features.maxAge.reset();
    }
}

// --- interfaces

const Interface *Model::interface(IfNum ifNum) const {
    const auto it = interfaces_.find(ifNum);
    return it == interfaces_.end() ? nullptr : &it->second;
}

Interface *Model::edit(IfNum ifNum) {
    const auto it = interfaces_.find(ifNum);
    return it == interfaces_.end() ? nullptr : &it->second;
}

IfNum Model::lagIfNum(std::uint32_t lagNumber) const {
    return lagNumber >= 1 && lagNumber <= config_.lags ? config_.physicalPorts + lagNumber : 0;
}

open_error_t Model::setAdmin(IfNum ifNum, bool up) {
    auto *interface = edit(ifNum);
    if (interface == nullptr)
        return OPEN_E_NOT_FOUND;
    interface->adminUp = up;
    if (up)
        interface->errorDisabled = OPEN_ERROR_DISABLE_NONE;
    refreshLink(ifNum);
    return OPEN_E_NONE;
}

open_error_t Model::setCarrier(IfNum port, Carrier carrier) {
    auto *interface = edit(port);
    if (interface == nullptr || interface->isLag())
        return OPEN_E_NOT_FOUND;
    // No command makes a wire where there is none.
    if (interface->live && carrier == Carrier::ForcedUp)
        return OPEN_E_PARAM;
    interface->carrier = carrier;
    refreshLink(port);
    return OPEN_E_NONE;
}

void Model::refreshLink(IfNum ifNum) {
    auto &interface = interfaces_.at(ifNum);
    bool up = interface.adminUp && interface.errorDisabled == OPEN_ERROR_DISABLE_NONE;
    if (interface.isLag()) {
        up = up && std::any_of(interface.members.begin(), interface.members.end(),
                               [&](IfNum member) { return interfaces_.at(member).linkUp; });
    } else if (interface.carrier != Carrier::FollowDevices) {
        up = up && interface.carrier == Carrier::ForcedUp;
    } else if (interface.live) {
        up = up && interface.wireUp;
    } else {
        const auto &here = devicesAt(ifNum);
        // There is no link at a fixed speed that the device cannot do.
        const auto fixed = parseSpeed(interface.speed).mbps;
        up = up && std::any_of(here.begin(), here.end(), [&](const Device *device) {
                 return device->behind.empty() && (device->speed == 0 || fixed <= device->speed);
             });
    }
    if (up == interface.linkUp)
        return;
    countUpToNow(ifNum);
    interface.linkUp = up;
    // Whoever comes next has to authenticate.
    if (!up && !interface.isLag()) {
        resetDot1x(interface);
        interface.dot1x.answers = false;
    }
    const auto text = "Link " + std::string(up ? "Up" : "Down") + ": " + interface.name();
    log(5, "TRAPMGR", "trapTask", text);
    event("link", text);
    if (interface.isLag()) {
        relearnInterface(ifNum);
        igmpLinkChanged(ifNum);
        return;
    }
    // Before the port learns: a LAG that was down forwards only from here on.
    if (interface.lag != 0)
        refreshLink(interface.lag);
    relearnPort(ifNum);
    igmpLinkChanged(ifNum);
    if (!up)
        lldp_.erase(ifNum);
}

// --- VLANs

std::string Model::defaultVlanName(VlanId id) {
    if (id == kDefaultVlan)
        return "default";
    auto digits = std::to_string(id);
    return "VLAN" + std::string(4 - digits.size(), '0') + digits;
}

open_error_t Model::createVlan(VlanId id) {
    if (!vlanIdValid(id))
        return OPEN_E_PARAM;
    // A creation takes effect at once, and so does a deletion accepted before it, with everything that
    // precedes that.
    const auto deletion = std::find_if(pending_.rbegin(), pending_.rend(), [&](const Change &c) {
        return c.kind == ChangeKind::VlanDelete && c.vlan == id;
    });
    for (auto left = pending_.rend() - deletion; left > 0; --left)
        applyFirst();
    if (vlans_.try_emplace(id, Vlan{id, defaultVlanName(id), true}).second)
        event("vlan", "VLAN " + std::to_string(id) + " created");
    return OPEN_E_NONE;
}

open_error_t Model::deleteVlan(VlanId id) {
    if (id == kDefaultVlan || !vlanIdValid(id))
        return OPEN_E_PARAM;
    if (!hasVlan(id))
        return OPEN_E_NOT_FOUND;
    submit({now_ + latency_, ChangeKind::VlanDelete, 0, id, 0});
    return OPEN_E_NONE;
}

open_error_t Model::nameVlan(VlanId id, std::string name) {
    const auto it = vlans_.find(id);
    if (it == vlans_.end())
        return OPEN_E_NOT_FOUND;
    const auto unprintable = [](unsigned char c) { return c < 0x20 || c == 0x7f; };
    if (name.size() > kVlanNameMax || std::any_of(name.begin(), name.end(), unprintable))
        return OPEN_E_PARAM;
    it->second.name = name.empty() ? defaultVlanName(id) : std::move(name);
    return OPEN_E_NONE;
}

open_error_t Model::makeVlanStatic(VlanId id) {
    const auto it = vlans_.find(id);
    if (it == vlans_.end())
        return OPEN_E_NOT_FOUND;
    it->second.isStatic = true;
    return OPEN_E_NONE;
}

VlanFeatures *Model::editVlan(VlanId id) {
    const auto it = vlans_.find(id);
    return it == vlans_.end() ? nullptr : &it->second.features;
}

Membership Model::defaultMembership(VlanId id) {
    return {id == kDefaultVlan ? OPEN_VLAN_PARTICIPATION_MODE_INCLUDE : OPEN_VLAN_PARTICIPATION_MODE_AUTO,
            false};
}

Membership Model::membership(IfNum ifNum, VlanId id) const {
    const auto *found = interface(ifNum);
    if (found != nullptr)
        if (const auto it = found->vlans.find(id); it != found->vlans.end())
            return it->second;
    return defaultMembership(id);
}

void Model::storeMembership(IfNum ifNum, VlanId id, const Membership &wanted) {
    auto &vlans = interfaces_.at(ifNum).vlans;
    if (wanted == defaultMembership(id))
        vlans.erase(id);
    else
        vlans[id] = wanted;
}

open_error_t Model::setPvid(IfNum ifNum, VlanId id) {
    if (interface(ifNum) == nullptr || !hasVlan(id))
        return interface(ifNum) == nullptr ? OPEN_E_PARAM : OPEN_E_NOT_FOUND;
    submit({now_ + latency_, ChangeKind::Pvid, ifNum, id, 0});
    return OPEN_E_NONE;
}

open_error_t Model::setParticipation(IfNum ifNum, VlanId id, std::uint32_t mode) {
    if (interface(ifNum) == nullptr || mode > OPEN_VLAN_PARTICIPATION_MODE_AUTO)
        return OPEN_E_PARAM;
    if (!hasVlan(id))
        return OPEN_E_NOT_FOUND;
    submit({now_ + latency_, ChangeKind::Participation, ifNum, id, mode});
    return OPEN_E_NONE;
}

open_error_t Model::setTagging(IfNum ifNum, VlanId id, bool tagged) {
    if (interface(ifNum) == nullptr)
        return OPEN_E_PARAM;
    if (!hasVlan(id))
        return OPEN_E_NOT_FOUND;
    submit({now_ + latency_, ChangeKind::Tagging, ifNum, id, tagged ? 1u : 0u});
    return OPEN_E_NONE;
}

// Changes take effect in the order in which they were accepted, even when the latency was changed in between.
void Model::submit(Change change) {
    if (!pending_.empty())
        change.due = std::max(change.due, pending_.back().due);
    if (change.due <= now_)
        apply(change);
    else
        pending_.push_back(change);
}

void Model::applyFirst() {
    const auto change = pending_.front();
    pending_.pop_front();
    apply(change);
}

Model Model::settled() const {
    Model out = *this;
    // What refers to the devices of this object, and what the configuration does not consist of.
    out.macOwner_.clear();
    out.ipOwners_.clear();
    out.devicesAt_.clear();
    out.devices_.clear();
    out.fdb_.clear();
    out.lldp_.clear();
    out.igmpGroups_.clear();
    out.igmpShares_.clear();
    while (!out.pending_.empty())
        out.applyFirst();
    return out;
}

void Model::apply(const Change &change) {
    // The VLAN may have been deleted while the change was pending.
    if (!hasVlan(change.vlan))
        return;
    if (change.kind == ChangeKind::VlanDelete) {
        removeVlan(change.vlan);
        return;
    }
    auto &interface = interfaces_.at(change.ifNum);
    auto wanted = membership(change.ifNum, change.vlan);
    const auto vlanText = std::to_string(change.vlan);
    if (change.kind == ChangeKind::Pvid) {
        if (interface.pvid == change.vlan)
            return;
        interface.pvid = change.vlan;
        event("vlan", interface.name() + " PVID " + vlanText);
        relearnInterface(change.ifNum);
        return;
    }
    if (change.kind == ChangeKind::Participation)
        wanted.participation = change.value;
    else
        wanted.tagged = change.value != 0;
    if (wanted == membership(change.ifNum, change.vlan))
        return;
    storeMembership(change.ifNum, change.vlan, wanted);
    static constexpr const char *kModes[] = {"include", "exclude", "auto"};
    event("vlan", interface.name() + " VLAN " + vlanText + " " + kModes[wanted.participation] + ", " +
                      (wanted.tagged ? "tagged" : "untagged"));
    if (change.kind == ChangeKind::Participation) {
        relearnTagged(change.ifNum, change.vlan);
        igmpStale_ = true;
    }
}

void Model::removeVlan(VlanId id) {
    vlans_.erase(id);
    std::erase_if(associations_, [&](const auto &item) { return item.second == id; });
    std::erase_if(arpSeen_, [&](const auto &item) { return item.first.vlan == id; });
    routing_.erase(id);
    for (auto &[num, interface] : interfaces_) {
        interface.vlans.erase(id);
        if (interface.pvid == id)
            interface.pvid = kDefaultVlan;
    }
    if (system_.mgmtVlan == id)
        system_.mgmtVlan = kDefaultVlan;
    event("vlan", "VLAN " + std::to_string(id) + " deleted");
    std::vector<Mac> homeless;
    std::erase_if(fdb_, [&](const auto &item) {
        if (item.first.vlan != id)
            return false;
        homeless.push_back(item.first.mac);
        return true;
    });
    for (const auto &mac : homeless)
        relearnMac(mac);
    refreshIgmp();
}

open_error_t Model::associateMac(const Mac &mac, VlanId id) {
    if (associations_.size() >= config_.macAssociationsMax && !associations_.contains(mac))
        return OPEN_E_FULL;
    if (const auto result = createVlan(id); result != OPEN_E_NONE)
        return result;
    const auto [association, isNew] = associations_.try_emplace(mac, id);
    const bool moved = !isNew && association->second != id;
    association->second = id;
    event("vlan", "MAC " + mac.text() + " associated with VLAN " + std::to_string(id));
    relearnMac(mac);
    igmpStale_ |= moved;
    return OPEN_E_NONE;
}

open_error_t Model::dissociateMac(const Mac &mac) {
    if (associations_.erase(mac) == 0)
        return OPEN_E_NOT_FOUND;
    event("vlan", "MAC " + mac.text() + " association removed");
    relearnMac(mac);
    igmpStale_ = true;
    return OPEN_E_NONE;
}

// --- routing interfaces

open_error_t Model::setRouting(VlanId id, bool on) {
    if (!hasVlan(id))
        return OPEN_E_NOT_FOUND;
    if (!on)
        routing_.erase(id);
    else
        routing_.try_emplace(id);
    return OPEN_E_NONE;
}

open_error_t Model::setAddress(VlanId id, AddressMethod method, std::string ip, std::string mask) {
    const auto it = routing_.find(id);
    if (it == routing_.end())
        return OPEN_E_FAIL;
    it->second = method == AddressMethod::Manual ? RoutingInterface{method, std::move(ip), std::move(mask)}
                                                 : RoutingInterface{method};
    return OPEN_E_NONE;
}

bool Model::vlanUp(VlanId id) const {
    return std::any_of(interfaces_.begin(), interfaces_.end(), [&](const auto &item) {
        const auto &interface = item.second;
        return carries(interface) && interface.lag == 0 &&
               (interface.pvid == id ||
                membership(interface.num, id).participation == OPEN_VLAN_PARTICIPATION_MODE_INCLUDE);
    });
}

// --- link aggregation

open_error_t Model::lagAdd(IfNum lag, IfNum port) {
    auto *group = edit(lag);
    auto *member = edit(port);
    if (group == nullptr || !group->isLag() || member == nullptr || member->isLag())
        return OPEN_E_PARAM;
    if (member->lag != 0 || isMirrorDestination(port))
        return OPEN_E_FAIL;
    if (group->members.size() >= config_.lagMembersMax)
        return OPEN_E_FULL;
    countUpToNow(port);
    const bool before = authorized(port);
    group->members.insert(port);
    member->lag = lag;
    resetDot1x(*member);
    accessChanged(port, before);
    event("lag", member->name() + " joined " + group->name());
    relearnPort(port);
    refreshLink(lag);
    igmpLinkChanged(port);
    return OPEN_E_NONE;
}

open_error_t Model::lagRemove(IfNum lag, IfNum port) {
    auto *group = edit(lag);
    auto *member = edit(port);
    if (group == nullptr || !group->isLag() || member == nullptr)
        return OPEN_E_PARAM;
    if (!group->members.contains(port))
        return OPEN_E_NOT_FOUND;
    countUpToNow(port);
    const bool before = authorized(port);
    group->members.erase(port);
    member->lag = 0;
    resetDot1x(*member);
    accessChanged(port, before);
    event("lag", member->name() + " left " + group->name());
    relearnPort(port);
    refreshLink(lag);
    igmpLinkChanged(port);
    return OPEN_E_NONE;
}

open_error_t Model::setLagStatic(IfNum lag, bool isStatic) {
    auto *group = edit(lag);
    if (group == nullptr || !group->isLag())
        return OPEN_E_PARAM;
    group->lagStatic = isStatic;
    return OPEN_E_NONE;
}

// --- forwarding database

IfNum Model::forwarderOf(IfNum port) const {
    const auto *found = interface(port);
    return found != nullptr && found->lag != 0 ? found->lag : port;
}

bool Model::forwarding(IfNum port) const {
    return carries(interfaces_.at(port)) && interfaces_.at(forwarderOf(port)).linkUp;
}

bool Model::install(const Mac &mac, VlanId vlan, IfNum port) {
    const FdbKey key{mac, vlan};
    const auto it = fdb_.find(key);
    if (it == fdb_.end() && fdb_.size() >= config_.fdbCapacity) {
        ++fdbRefused_;
        return false;
    }
    if (it != fdb_.end() && it->second.type == OPEN_FDB_ADDR_STATIC)
        return true;
    fdb_[key] = {forwarderOf(port), port, OPEN_FDB_ADDR_LEARNED, now_};
    return true;
}

open_error_t Model::learn(const Mac &mac, VlanId vlan, IfNum port) {
    const auto *found = interface(port);
    if (found == nullptr || found->isLag() || !hasVlan(vlan))
        return OPEN_E_PARAM;
    if (!forwarding(port))
        return OPEN_E_FAIL;
    return install(mac, vlan, port) ? OPEN_E_NONE : OPEN_E_FULL;
}

void Model::flushPort(IfNum port) {
    std::erase_if(fdb_, [&](const auto &item) {
        return item.second.port == port && item.second.type == OPEN_FDB_ADDR_LEARNED;
    });
}

std::vector<IfNum> Model::portsOf(IfNum ifNum) const {
    const auto &interface = interfaces_.at(ifNum);
    if (!interface.isLag())
        return {ifNum};
    return {interface.members.begin(), interface.members.end()};
}

void Model::clearFdb() {
    ++fdbClears_;
    std::erase_if(fdb_, [](const auto &item) { return item.second.type == OPEN_FDB_ADDR_LEARNED; });
    relearnAll();
}

void Model::age() {
    lastAged_ = now_;
    for (auto it = fdb_.begin(); it != fdb_.end();) {
        auto &[key, entry] = *it;
        const auto owner = macOwner_.find(key.mac);
        const Device *device = owner == macOwner_.end() ? nullptr : owner->second;
        const bool fresh = device != nullptr && device->port == entry.port && device->talking &&
                           classify(*device, key.mac) == key.vlan;
        if (fresh)
            entry.lastSeen = now_;
        // A live port's entries age where frames are forwarded.
        const bool old = entry.type == OPEN_FDB_ADDR_LEARNED && !interfaces_.at(entry.port).live &&
                         now_ - entry.lastSeen >= system_.fdbAgeTime;
        it = old ? fdb_.erase(it) : std::next(it);
    }
    for (auto &[port, neighbours] : lldp_) {
        if (interfaces_.at(port).live)
            continue;
        for (auto &[index, neighbour] : neighbours)
            if (const auto owner = devices_.find(neighbour.device);
                owner != devices_.end() && owner->second.port == port && audible(owner->second))
                neighbour.lastHeard = now_;
        std::erase_if(neighbours, [&](const auto &item) {
            const auto &neighbour = item.second;
            if (now_ - neighbour.lastHeard < std::chrono::seconds(neighbour.fields.ttl))
                return false;
            event("lldp", "neighbour " + neighbour.device + " expired");
            return true;
        });
    }
    if (std::exchange(unlearned_, false))
        relearnAll();
}

// --- access lists

open_error_t Model::deleteIpAccessList(const std::string &name) {
    if (ipAccessLists_.erase(name) == 0)
        return OPEN_E_NOT_FOUND;
    for (auto &[num, interface] : interfaces_)
        std::erase_if(interface.accessGroups, [&](const AccessGroup &group) { return group.list == name; });
    return OPEN_E_NONE;
}

std::uint32_t Model::accessListId(const std::string &name) {
    auto it = std::find(accessListNames_.begin(), accessListNames_.end(), name);
    if (it == accessListNames_.end())
        it = accessListNames_.insert(it, name);
    return static_cast<std::uint32_t>(it - accessListNames_.begin()) + 1;
}

const std::string *Model::accessListName(std::uint32_t id) const {
    return id >= 1 && id <= accessListNames_.size() ? &accessListNames_[id - 1] : nullptr;
}

open_error_t Model::bindAccessList(IfNum ifNum, const std::string &name, std::uint32_t direction,
                                   std::uint32_t sequence) {
    auto *interface = edit(ifNum);
    if (interface == nullptr || direction > OPEN_ACL_OUTBOUND)
        return OPEN_E_PARAM;
    if (!ipAccessLists_.contains(name))
        return OPEN_E_NOT_FOUND;
    auto &groups = interface->accessGroups;
    std::size_t bound = 0;
    std::uint32_t last = 0;
    for (const auto &group : groups) {
        if (group.direction != direction)
            continue;
        if (group.list == name && (sequence == 0 || group.sequence == sequence))
            return OPEN_E_NONE;
        if (group.list == name)
            continue;
        if (group.sequence == sequence)
            return OPEN_E_FAIL;
        ++bound;
        last = group.sequence;
    }
    if (bound == kAccessGroupsMax || (sequence == 0 && last == UINT32_MAX))
        return OPEN_E_FULL;
    if (sequence == 0)
        sequence = last + 1;
    // A list that is already bound moves to its new place.
    std::erase_if(
        groups, [&](const AccessGroup &group) { return group.direction == direction && group.list == name; });
    const AccessGroup added{direction, sequence, name};
    groups.insert(std::upper_bound(groups.begin(), groups.end(), added,
                                   [](const AccessGroup &a, const AccessGroup &b) {
                                       return std::tie(a.direction, a.sequence) <
                                              std::tie(b.direction, b.sequence);
                                   }),
                  added);
    return OPEN_E_NONE;
}

open_error_t Model::unbindAccessList(IfNum ifNum, const std::string &name, std::uint32_t direction) {
    auto *interface = edit(ifNum);
    if (interface == nullptr)
        return OPEN_E_PARAM;
    const auto removed = std::erase_if(interface->accessGroups, [&](const AccessGroup &group) {
        return group.list == name && group.direction == direction;
    });
    return removed == 0 ? OPEN_E_NOT_FOUND : OPEN_E_NONE;
}

// --- log and events

void Model::log(int severity, std::string component, std::string place, std::string text) {
    // Whatever a process writes, the size of the log stays bounded.
    severity = std::clamp(severity, 0, 7);
    cut(component, kLogNameMax);
    cut(place, kLogNameMax);
    cut(text, kLogTextMax);
    event("log", text);
    if (!settings_.log.buffered.takes(severity))
        return;
    log_.push_back({nextLog_++, wall_, severity, std::move(component), std::move(place), std::move(text)});
    if (log_.size() > config_.logCapacity)
        log_.pop_front();
}

void Model::event(std::string kind, std::string text) {
    events_.push_back({nextEvent_++, wall_, std::move(kind), std::move(text)});
    if (events_.size() > kEventsKept)
        events_.pop_front();
}

}  // namespace vswitch
