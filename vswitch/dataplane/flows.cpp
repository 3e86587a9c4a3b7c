#include "vswitch/dataplane/flows.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <iterator>
#include <set>
#include <utility>

namespace vswitch {
namespace {

constexpr std::size_t kArpCapacity = 4096;
// The tables that flowsOf fills; learned flow entries are in others.
constexpr int kConfiguredTables[] = {0, 1, 2, 3, 4, 5, kMoveTable, kFdbTable, kDeliveryTable, kIgmpTable, 30};

__attribute__((format(printf, 1, 2))) std::string text(const char *format, ...) {
    char buffer[512];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(buffer, sizeof buffer, format, arguments);
    va_end(arguments);
    return buffer;
}

std::string hexCookie(std::uint64_t cookie) {
    return text("0x%llx", static_cast<unsigned long long>(cookie));
}

// Matches the learned flow entries of an interface, addresses and ARP pairs alike.
std::string cookieOf(IfNum interface) {
    return "cookie=" + hexCookie(kLearnedCookie | interface) + "/" +
           hexCookie(kLearnedCookie | kInterfaceCookie);
}

// The actions that send a frame out of an interface with its VLAN tag as it is.
std::string send(IfNum num, const WireInterface &interface) {
    if (interface.out)
        return text("load:%u->NXM_NX_REG4[],resubmit(,30)", num);
    if (interface.members.size() == 1)
        return text("output:%u", interface.members.front());
    std::string members;
    for (const auto port : interface.members)
        members += (members.empty() ? "" : ",") + std::to_string(port);
    return "bundle(symmetric_l4,0,hrw,ofport,members:" + members + ")";
}

void addReports(Flows &flows, IfNum num) {
    flows[text("table=%d,reg1=%u", kMoveTable, num)] = text("meter:%u,controller:64", moveMeter(num));
    flows[text("table=%d,reg1=%u", kIgmpTable, num)] = text("meter:%u,controller:65535", igmpMeter(num));
}

void addAccessList(Flows &flows, int table, const char *reg, IfNum num, const std::vector<WireRule> &rules,
                   const std::string &permitted) {
    // The first matching line decides; at the end all IPv4 is denied.
    unsigned priority = 60000;
    for (const auto &rule : rules) {
        auto key = text("table=%d,priority=%u,%s=%u,ip", table, priority--, reg, num);
        if (!rule.source.empty())
            key += ",nw_src=" + rule.source;
        if (!rule.destination.empty())
            key += ",nw_dst=" + rule.destination;
        flows[key] = rule.permit ? permitted : "drop";
    }
    flows[text("table=%d,priority=100,%s=%u,ip", table, reg, num)] = "drop";
}

// What every configuration has.
void addCommon(Flows &flows) {
    // Reserved for protocols between neighbours, which end here. The first of them, 01:80:C2:00:00:00, is the
    // one of spanning tree, in which this switch takes no part: the bridges around it must hear each other,
    // or nobody would see a loop.
    for (const unsigned first : {1u, 2u, 4u, 8u})
        flows[text("table=0,priority=1000,dl_dst=01:80:c2:00:00:%02x/ff:ff:ff:ff:ff:%02x", first,
                   0x100 - first)] = "drop";
    flows["table=0,priority=900,dl_src=01:00:00:00:00:00/01:00:00:00:00:00"] = "drop";
    flows["table=0,priority=900,dl_src=00:00:00:00:00:00"] = "drop";
    flows[text("table=0,priority=950,dl_vlan=%u", kMarkVlan)] = "strip_vlan,resubmit(,0)";
    flows["table=1,priority=0"] = "resubmit(,2)";
    flows["table=3,priority=0"] = "resubmit(,4)";
    // Probes, which have no sender address yet.
    flows["table=3,priority=200,arp,arp_spa=0.0.0.0"] = "resubmit(,4)";
    // Known behind another interface. A report that the meter does not let pass costs the clone, not the frame.
    flows["table=5,priority=0"] =
        text("clone(resubmit(,%d)),resubmit(,%d),resubmit(,20)", kMoveTable, kFdbTable);
    flows[text("table=%d,priority=0", kFdbTable)] = "load:0->NXM_NX_REG0[]";
}

// A tag that gives no VLAN: pushed on the way in, or one that the frame came with for its priority.
constexpr const char *kNoVlan = "vlan_tci=0x1000/0x1fff";

// The actions for a frame with such a tag.
std::string classify(VlanId vlan) {
    return text("mod_vlan_vid:%u,resubmit(,3)", vlan);
}

void addAssociation(Flows &flows, const Mac &mac, VlanId vlan) {
    flows[text("table=2,priority=200,dl_src=%s,%s", mac.text().c_str(), kNoVlan)] = classify(vlan);
}

void addPorts(Flows &flows, IfNum num, const WireInterface &interface) {
    for (const auto port : interface.members) {
        const auto enter = text("load:%u->NXM_NX_REG1[],resubmit(,1)", num);
        flows[text("table=0,priority=100,in_port=%u", port)] = enter;
        // A tag with VLAN 0 carries a priority only: the frame counts as untagged and keeps the priority.
        // From here on every frame has a tag of its own, whatever is behind it.
        flows[text("table=0,priority=210,in_port=%u,%s", port, kNoVlan)] = enter;
        flows[text("table=0,priority=205,in_port=%u,vlan_tci=0x0000/0x1000", port)] =
            "push_vlan:0x8100," + enter;
        if (interface.authenticates)
            flows[text("table=0,priority=230,in_port=%u,dl_type=0x888e", port)] = "drop";
        if (interface.acceptFrames == AcceptFrames::VlanOnly)
            flows[text("table=0,priority=220,in_port=%u,vlan_tci=0x0000/0x0fff", port)] = "drop";
        else if (interface.acceptFrames == AcceptFrames::AdminUntaggedOnly)
            flows[text("table=0,priority=200,in_port=%u,vlan_tci=0x1000/0x1000", port)] = "drop";
    }
}

void addVlans(Flows &flows, IfNum num, const WireInterface &interface) {
    if (interface.in)
        addAccessList(flows, 1, "reg1", num, *interface.in, "resubmit(,2)");
    // An interface that was taken out of a VLAN brings nothing into it, not even by its PVID.
    if (interface.vlans.contains(interface.pvid))
        flows[text("table=2,priority=100,reg1=%u,%s", num, kNoVlan)] = classify(interface.pvid);
    for (const auto &[vlan, tagged] : interface.vlans)
        flows[text("table=2,priority=100,reg1=%u,dl_vlan=%u", num, vlan)] = "resubmit(,3)";
}

void addLearning(Flows &flows, IfNum num, std::size_t fdbCapacity, const FlowAges &ages) {
    // One interface may fill half of a table, so that a flood behind it leaves room for the others.
    const auto share = std::max<std::size_t>(1, fdbCapacity / 2), arpShare = kArpCapacity / 2;
    flows[text("table=3,priority=100,arp,reg1=%u", num)] = text(
        "learn(table=%d,hard_timeout=%u,limit=%zu,cookie=%s,dl_type=0x806,NXM_OF_VLAN_TCI[0..11],"
        "NXM_OF_ARP_SPA[],load:NXM_OF_ETH_SRC[0..31]->NXM_NX_REG5[],"
        "load:NXM_OF_ETH_SRC[32..47]->NXM_NX_REG6[0..15]),resubmit(,4)",
        kArpTable, ages.arp, arpShare, hexCookie(kArpCookie | num).c_str());
    // The source is looked up in the place of the destination.
    flows[text("table=4,priority=100,reg1=%u", num)] = text(
        "push:NXM_OF_ETH_DST[],move:NXM_OF_ETH_SRC[]->NXM_OF_ETH_DST[],resubmit(,%d),"
        "pop:NXM_OF_ETH_DST[],resubmit(,5)",
        kFdbTable);
    const auto learn = text(
        "learn(table=%d,hard_timeout=%u,limit=%zu,cookie=%s,NXM_OF_VLAN_TCI[0..11],"
        "NXM_OF_ETH_DST[]=NXM_OF_ETH_SRC[],load:NXM_NX_REG1[0..15]->NXM_NX_REG0[0..15]),"
        "resubmit(,%d),resubmit(,20)",
        kFdbTable, ages.address, share, hexCookie(kLearnedCookie | num).c_str(), kFdbTable);
    flows[text("table=5,priority=100,reg0=%u,reg1=%u", num, num)] = learn;
    flows[text("table=5,priority=100,reg0=0,reg1=%u", num)] = learn;
}

// Interfaces of a VLAN, by how its frames leave them.
struct Leaving {
    std::vector<IfNum> tagged, untagged;

    void add(IfNum num, bool withTag) { (withTag ? tagged : untagged).push_back(num); }
};

// What goes to several interfaces except the one it came from: a LAG must not get back on one member what
// came in on another, whereas a port never gets its own frames anyway.
std::string floodActions(const WireConfig &config, const Leaving &to, IfNum except) {
    std::string actions;
    const auto add = [&](const std::string &action) { actions += (actions.empty() ? "" : ",") + action; };
    for (const auto num : to.tagged)
        if (num != except)
            add(send(num, config.interfaces.at(num)));
    bool stripped = false;
    for (const auto num : to.untagged)
        if (num != except) {
            if (!std::exchange(stripped, true))
                add("strip_vlan");
            add(send(num, config.interfaces.at(num)));
        }
    return actions.empty() ? "drop" : actions;
}

void addDelivery(Flows &flows, IfNum num, const WireInterface &interface) {
    if (interface.members.size() > 1)
        flows[text("table=20,priority=300,reg0=%u,reg1=%u", num, num)] = "drop";
    for (const auto &[vlan, tagged] : interface.vlans)
        flows[text("table=20,priority=200,reg0=%u,dl_vlan=%u", num, vlan)] =
            (tagged ? "" : "strip_vlan,") + send(num, interface);
    if (interface.out) {
        auto unfiltered = interface;
        unfiltered.out.reset();
        addAccessList(flows, 30, "reg4", num, *interface.out, send(num, unfiltered));
        flows[text("table=30,priority=0,reg4=%u", num)] = send(num, unfiltered);
    }
}

// Delivery to `to`, and the variants of frames that come from a LAG among them.
void addFlood(Flows &flows, const WireConfig &config, const std::string &match, unsigned priority,
              unsigned lagPriority, const Leaving &to) {
    flows[text("table=20,priority=%u,reg0=0,", priority) + match] = floodActions(config, to, 0);
    for (const auto *list : {&to.tagged, &to.untagged})
        for (const auto num : *list)
            if (config.interfaces.at(num).members.size() > 1)
                flows[text("table=20,priority=%u,reg0=0,reg1=%u,", lagPriority, num) + match] =
                    floodActions(config, to, num);
}

Leaving everyoneIn(const WireConfig &config, VlanId vlan) {
    Leaving all;
    for (const auto &[num, interface] : config.interfaces)
        if (const auto it = interface.vlans.find(vlan); it != interface.vlans.end())
            all.add(num, it->second);
    return all;
}

// Those of two sorted lists that participate in the VLAN.
Leaving selectedIn(const WireConfig &config, VlanId vlan, const std::vector<IfNum> &some,
                   const std::vector<IfNum> &others) {
    std::vector<IfNum> both;
    std::ranges::set_union(some, others, std::back_inserter(both));
    Leaving selected;
    for (const auto num : both)
        if (const auto interface = config.interfaces.find(num); interface != config.interfaces.end())
            if (const auto it = interface->second.vlans.find(vlan); it != interface->second.vlans.end())
                selected.add(num, it->second);
    return selected;
}

const WireMulticast *multicastIn(const WireConfig &config, VlanId vlan) {
    const auto it = config.multicast.find(vlan);
    return it == config.multicast.end() ? nullptr : &it->second;
}

// Interfaces that get every group.
std::vector<IfNum> wanting(const WireMulticast &multicast) {
    return multicast.routersGetGroups ? multicast.routers : std::vector<IfNum>{};
}

void addGroup(Flows &flows, const WireConfig &config, VlanId vlan, Ipv4 group) {
    const auto *multicast = multicastIn(config, vlan);
    if (multicast == nullptr || isLocalGroup(group))
        return;
    const auto it = multicast->groups.find(group);
    if (it != multicast->groups.end())
        addFlood(flows, config, text("dl_vlan=%u,ip,nw_dst=", vlan) + ipv4Text(group), 180, 182,
                 selectedIn(config, vlan, it->second, wanting(*multicast)));
}

void addVlan(Flows &flows, const WireConfig &config, VlanId vlan) {
    const auto all = everyoneIn(config, vlan);
    if (all.tagged.empty() && all.untagged.empty())
        return;
    addFlood(flows, config, text("dl_vlan=%u", vlan), 100, 150, all);
    const auto *multicast = multicastIn(config, vlan);
    if (multicast == nullptr)
        return;
    // The switch forwards IGMP itself once it knows what it is; register 3 says that it does.
    flows[text("table=20,priority=400,reg0=0,reg3=0,dl_vlan=%u,ip,nw_proto=2", vlan)] =
        text("resubmit(,%d)", kIgmpTable);
    addFlood(flows, config, text("dl_vlan=%u,ip,nw_dst=224.0.0.0/24", vlan), 170, 172, all);
    if (!multicast->floodUnknown)
        addFlood(flows, config, text("dl_vlan=%u,ip,nw_dst=224.0.0.0/4", vlan), 160, 162,
                 selectedIn(config, vlan, {}, wanting(*multicast)));
}

void addInterface(Flows &flows, const WireConfig &config, IfNum num, const FlowAges &ages) {
    const auto it = config.interfaces.find(num);
    if (it == config.interfaces.end())
        return;
    addPorts(flows, num, it->second);
    addVlans(flows, num, it->second);
    addLearning(flows, num, config.fdbCapacity, ages);
    addReports(flows, num);
    addDelivery(flows, num, it->second);
}

std::set<VlanId> vlansOf(const WireConfig &config) {
    std::set<VlanId> vlans;
    for (const auto &[num, interface] : config.interfaces)
        for (const auto &[vlan, tagged] : interface.vlans)
            vlans.insert(vlans.end(), vlan);
    return vlans;
}

// Calls `differs(key, before, now)` for every key whose value is not the same in both maps, null for none.
template <class Map, class Differs>
void compare(const Map &before, const Map &now, Differs differs) {
    auto old = before.begin();
    auto fresh = now.begin();
    const typename Map::mapped_type *const none = nullptr;
    while (old != before.end() || fresh != now.end()) {
        if (fresh == now.end() || (old != before.end() && old->first < fresh->first)) {
            differs(old->first, &old->second, none);
            ++old;
        } else if (old == before.end() || fresh->first < old->first) {
            differs(fresh->first, none, &fresh->second);
            ++fresh;
        } else {
            if (!(old->second == fresh->second))
                differs(old->first, &old->second, &fresh->second);
            ++old, ++fresh;
        }
    }
}

template <class Map>
const typename Map::mapped_type &orEmpty(const typename Map::mapped_type *value, const Map &) {
    static const typename Map::mapped_type empty;
    return value != nullptr ? *value : empty;
}

// What of two configurations can lead to different flow entries.
struct Affected {
    std::set<IfNum> interfaces;
    std::set<VlanId> vlans;                         // and all groups in them
    std::set<std::pair<VlanId, Ipv4>> groups;       // beside those
    std::map<Mac, std::pair<VlanId, VlanId>> macs;  // associations: before and now, 0 for none

    Affected(const WireConfig &before, const WireConfig &now, bool everyInterface) {
        compare(before.associations, now.associations,
                [&](const Mac &mac, const VlanId *old, const VlanId *next) {
                    macs[mac] = {old != nullptr ? *old : 0, next != nullptr ? *next : 0};
                });
        if (everyInterface)
            for (const auto *config : {&before, &now})
                for (const auto &[num, interface] : config->interfaces)
                    interfaces.insert(num);
        compare(before.interfaces, now.interfaces,
                [&](IfNum num, const WireInterface *old, const WireInterface *next) {
                    interfaces.insert(num);
                    // How frames leave it is a part of all that floods.
                    const bool sameWay = old != nullptr && next != nullptr && old->members == next->members &&
                                         old->out.has_value() == next->out.has_value();
                    const auto &was = orEmpty(old, before.interfaces).vlans,
                               &is = orEmpty(next, now.interfaces).vlans;
                    if (sameWay)
                        compare(was, is,
                                [&](VlanId vlan, const bool *, const bool *) { vlans.insert(vlan); });
                    else
                        for (const auto *all : {&was, &is})
                            for (const auto &[vlan, tagged] : *all)
                                vlans.insert(vlan);
                });
        compare(before.multicast, now.multicast,
                [&](VlanId vlan, const WireMulticast *old, const WireMulticast *next) {
                    if (old == nullptr || next == nullptr || wanting(*old) != wanting(*next) ||
                        old->floodUnknown != next->floodUnknown)
                        vlans.insert(vlan);
                    else
                        compare(old->groups, next->groups,
                                [&](Ipv4 group, const auto *, const auto *) { groups.emplace(vlan, group); });
                });
    }

    // Their flow entries in one of the two configurations.
    Flows flowsIn(const WireConfig &config, const FlowAges &ages) const {
        Flows flows;
        for (const auto &[mac, change] : macs)
            if (const auto it = config.associations.find(mac); it != config.associations.end())
                addAssociation(flows, mac, it->second);
        for (const auto num : interfaces)
            addInterface(flows, config, num, ages);
        for (const auto vlan : vlans) {
            addVlan(flows, config, vlan);
            if (const auto *multicast = multicastIn(config, vlan))
                for (const auto &[group, members] : multicast->groups)
                    addGroup(flows, config, vlan, group);
        }
        for (const auto &[vlan, group] : groups)
            addGroup(flows, config, vlan, group);
        return flows;
    }
};

}  // namespace

Flows flowsOf(const WireConfig &config, const FlowAges &ages) {
    Flows flows;
    addCommon(flows);
    for (const auto &[mac, vlan] : config.associations)
        addAssociation(flows, mac, vlan);
    for (const auto &[num, interface] : config.interfaces)
        addInterface(flows, config, num, ages);
    for (const auto vlan : vlansOf(config))
        addVlan(flows, config, vlan);
    for (const auto &[vlan, multicast] : config.multicast)
        for (const auto &[group, members] : multicast.groups)
            addGroup(flows, config, vlan, group);
    return flows;
}

std::vector<std::string> flowChanges(const Flows &present, const Flows &wanted) {
    std::vector<std::string> lines;
    compare(present, wanted, [&](const std::string &key, const std::string *, const std::string *actions) {
        if (actions == nullptr)
            lines.push_back("delete_strict " + key);
    });
    compare(present, wanted, [&](const std::string &key, const std::string *, const std::string *actions) {
        if (actions != nullptr)
            lines.push_back(std::string("add ").append(key).append(",actions=").append(*actions));
    });
    return lines;
}

FlowUpdate flowUpdate(const WireConfig &before, const FlowAges &agesBefore, const WireConfig &now,
                      const FlowAges &ages) {
    const Affected affected(before, now, agesBefore != ages || before.fdbCapacity != now.fdbCapacity);
    const auto present = affected.flowsIn(before, agesBefore), wanted = affected.flowsIn(now, ages);
    return {flowChanges(present, wanted),
            static_cast<std::ptrdiff_t>(wanted.size()) - static_cast<std::ptrdiff_t>(present.size())};
}

std::vector<std::string> flowClear() {
    std::vector<std::string> lines;
    for (const auto table : kConfiguredTables)
        lines.push_back(text("delete cookie=0/%s,table=%d", hexCookie(kLearnedCookie).c_str(), table));
    return lines;
}

std::string forgetInterface(IfNum interface) {
    return text("delete %s", cookieOf(interface).c_str());
}

std::string forgetArp(const ArpKey &key) {
    return text("delete cookie=%s/%s,table=%d,arp,vlan_tci=0x%04x/0x0fff,arp_spa=%s",
                hexCookie(kArpCookie).c_str(), hexCookie(kArpCookie).c_str(), kArpTable, key.vlan,
                key.ip.c_str());
}

std::string forgetMac(const Mac &mac) {
    return text("delete cookie=%s/%s,table=%d,dl_dst=%s", hexCookie(kLearnedCookie).c_str(),
                hexCookie(kLearnedCookie).c_str(), kFdbTable, mac.text().c_str());
}

std::vector<std::string> staleAddresses(const WireConfig &before, const WireConfig &now) {
    std::vector<std::string> lines;
    if (before.fdbClears != now.fdbClears) {
        lines.push_back(text("delete cookie=%s/%s,table=%d", hexCookie(kLearnedCookie).c_str(),
                             hexCookie(kLearnedCookie).c_str(), kFdbTable));
        return lines;
    }
    compare(before.associations, now.associations,
            [&](const Mac &mac, const VlanId *, const VlanId *) { lines.push_back(forgetMac(mac)); });
    compare(
        before.interfaces, now.interfaces,
        [&](IfNum num, const WireInterface *old, const WireInterface *next) {
            if (old == nullptr)
                return;
            if (next == nullptr || next->pvid != old->pvid || next->members != old->members) {
                lines.push_back(forgetInterface(num));
                return;
            }
            // Addresses in VLANs that the interface has left.
            for (const auto &[vlan, tagged] : old->vlans)
                if (!next->vlans.contains(vlan))
                    lines.push_back(text("delete %s,vlan_tci=0x%04x/0x0fff", cookieOf(num).c_str(), vlan));
        });
    return lines;
}

std::string learnedFlow(const SeenAddress &address, std::uint32_t seconds) {
    return text(
        "add "
        "cookie=%s,table=%d,hard_timeout=%u,vlan_tci=0x%04x/"
        "0x0fff,dl_dst=%s,actions=load:%u->NXM_NX_REG0[0..15]",
        hexCookie(kLearnedCookie | address.interface).c_str(), kFdbTable, seconds, address.vlan,
        address.mac.text().c_str(), address.interface);
}

std::string learnedArpFlow(const ArpKey &key, const Mac &mac, IfNum interface, std::uint32_t seconds) {
    std::uint64_t bits = 0;
    for (const auto byte : mac.bytes)
        bits = bits << 8 | byte;
    return text(
        "add cookie=%s,table=%d,hard_timeout=%u,arp,vlan_tci=0x%04x/0x0fff,arp_spa=%s,"
        "actions=load:%u->NXM_NX_REG5[],load:%u->NXM_NX_REG6[0..15]",
        hexCookie(kArpCookie | interface).c_str(), kArpTable, seconds, key.vlan, key.ip.c_str(),
        static_cast<unsigned>(bits & 0xffffffff), static_cast<unsigned>(bits >> 32));
}

}  // namespace vswitch
