#include "vswitch/dataplane/flows.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <utility>

namespace vswitch {
namespace {

constexpr std::size_t kArpCapacity = 4096;
// The tables that flowsOf fills; learned flow entries are in others.
constexpr int kConfiguredTables[] = {0, 1, 2, 3, 4, kFdbTable, 20, 30};

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

void addPorts(Flows &flows, const WireConfig &config) {
    flows["table=0,priority=1000,dl_dst=01:80:c2:00:00:00/ff:ff:ff:ff:ff:f0"] = "drop";
    flows["table=0,priority=900,dl_src=01:00:00:00:00:00/01:00:00:00:00:00"] = "drop";
    for (const auto &[num, interface] : config.interfaces)
        for (const auto port : interface.members) {
            const auto enter = text("load:%u->NXM_NX_REG1[],resubmit(,1)", num);
            flows[text("table=0,priority=100,in_port=%u", port)] = enter;
            // A tag with VLAN 0 carries a priority only: the frame counts as untagged. Left on, it would
            // leave the switch beneath the tag of its VLAN.
            flows[text("table=0,priority=210,in_port=%u,vlan_tci=0x1000/0x1fff", port)] =
                "strip_vlan," + enter;
            if (interface.acceptFrames == AcceptFrames::VlanOnly)
                flows[text("table=0,priority=220,in_port=%u,vlan_tci=0x0000/0x0fff", port)] = "drop";
            else if (interface.acceptFrames == AcceptFrames::AdminUntaggedOnly)
                flows[text("table=0,priority=200,in_port=%u,vlan_tci=0x1000/0x1000", port)] = "drop";
        }
}

void addVlans(Flows &flows, const WireConfig &config) {
    flows["table=1,priority=0"] = "resubmit(,2)";
    for (const auto &[mac, vlan] : config.associations)
        flows[text("table=2,priority=200,dl_src=%s,vlan_tci=0x0000/0x1fff", mac.text().c_str())] =
            text("mod_vlan_vid:%u,resubmit(,3)", vlan);
    for (const auto &[num, interface] : config.interfaces) {
        if (interface.in)
            addAccessList(flows, 1, "reg1", num, *interface.in, "resubmit(,2)");
        flows[text("table=2,priority=100,reg1=%u,vlan_tci=0x0000/0x1fff", num)] =
            text("mod_vlan_vid:%u,resubmit(,3)", interface.pvid);
        for (const auto &[vlan, tagged] : interface.vlans)
            flows[text("table=2,priority=100,reg1=%u,dl_vlan=%u", num, vlan)] = "resubmit(,3)";
    }
}

void addLearning(Flows &flows, const WireConfig &config, std::uint32_t ageSeconds, std::uint32_t arpSeconds) {
    flows["table=3,priority=0"] = "resubmit(,4)";
    // Probes, which have no sender address yet.
    flows["table=3,priority=200,arp,arp_spa=0.0.0.0"] = "resubmit(,4)";
    flows[text("table=%d,priority=0", kFdbTable)] = "load:0->NXM_NX_REG0[]";
    // One interface may fill half of a table, so that a flood behind it leaves room for the others.
    const auto share = std::max<std::size_t>(1, config.fdbCapacity / 2), arpShare = kArpCapacity / 2;
    for (const auto &[num, interface] : config.interfaces) {
        flows[text("table=3,priority=100,arp,reg1=%u", num)] = text(
            "learn(table=%d,hard_timeout=%u,limit=%zu,cookie=%s,dl_type=0x806,NXM_OF_VLAN_TCI[0..11],"
            "NXM_OF_ARP_SPA[],load:NXM_OF_ETH_SRC[0..31]->NXM_NX_REG5[],"
            "load:NXM_OF_ETH_SRC[32..47]->NXM_NX_REG6[0..15]),resubmit(,4)",
            kArpTable, arpSeconds, arpShare, hexCookie(kArpCookie | num).c_str());
        flows[text("table=4,priority=100,reg1=%u", num)] = text(
            "learn(table=%d,hard_timeout=%u,limit=%zu,cookie=%s,NXM_OF_VLAN_TCI[0..11],"
            "NXM_OF_ETH_DST[]=NXM_OF_ETH_SRC[],load:NXM_NX_REG1[0..15]->NXM_NX_REG0[0..15]),"
            "resubmit(,%d),resubmit(,20)",
            kFdbTable, ageSeconds, share, hexCookie(kLearnedCookie | num).c_str(), kFdbTable);
    }
}

// What goes to all of a VLAN except the interface it came from: a LAG must not get back on one member what
// came in on another, whereas a port never gets its own frames anyway.
std::string floodActions(const WireConfig &config, const std::vector<IfNum> &tagged,
                         const std::vector<IfNum> &untagged, IfNum except) {
    std::string actions;
    const auto add = [&](const std::string &action) { actions += (actions.empty() ? "" : ",") + action; };
    for (const auto num : tagged)
        if (num != except)
            add(send(num, config.interfaces.at(num)));
    bool stripped = false;
    for (const auto num : untagged)
        if (num != except) {
            if (!std::exchange(stripped, true))
                add("strip_vlan");
            add(send(num, config.interfaces.at(num)));
        }
    return actions.empty() ? "drop" : actions;
}

void addDelivery(Flows &flows, const WireConfig &config) {
    std::map<VlanId, std::pair<std::vector<IfNum>, std::vector<IfNum>>> vlans;  // tagged, untagged
    for (const auto &[num, interface] : config.interfaces) {
        if (interface.members.size() > 1)
            flows[text("table=20,priority=300,reg0=%u,reg1=%u", num, num)] = "drop";
        for (const auto &[vlan, tagged] : interface.vlans) {
            flows[text("table=20,priority=200,reg0=%u,dl_vlan=%u", num, vlan)] =
                (tagged ? "" : "strip_vlan,") + send(num, interface);
            (tagged ? vlans[vlan].first : vlans[vlan].second).push_back(num);
        }
        if (interface.out) {
            auto unfiltered = interface;
            unfiltered.out.reset();
            addAccessList(flows, 30, "reg4", num, *interface.out, send(num, unfiltered));
            flows[text("table=30,priority=0,reg4=%u", num)] = send(num, unfiltered);
        }
    }
    for (const auto &[vlan, interfaces] : vlans) {
        const auto &[tagged, untagged] = interfaces;
        flows[text("table=20,priority=100,reg0=0,dl_vlan=%u", vlan)] =
            floodActions(config, tagged, untagged, 0);
        for (const auto *list : {&tagged, &untagged})
            for (const auto num : *list)
                if (config.interfaces.at(num).members.size() > 1)
                    flows[text("table=20,priority=150,reg0=0,reg1=%u,dl_vlan=%u", num, vlan)] =
                        floodActions(config, tagged, untagged, num);
    }
}

}  // namespace

Flows flowsOf(const WireConfig &config, std::uint32_t ageSeconds, std::uint32_t arpSeconds) {
    Flows flows;
    addPorts(flows, config);
    addVlans(flows, config);
    addLearning(flows, config, ageSeconds, arpSeconds);
    addDelivery(flows, config);
    return flows;
}

std::vector<std::string> flowChanges(const Flows &present, const Flows &wanted) {
    std::vector<std::string> lines;
    for (const auto &[key, actions] : present)
        if (!wanted.contains(key))
            lines.push_back("delete_strict " + key);
    for (const auto &[key, actions] : wanted) {
        const auto it = present.find(key);
        if (it == present.end() || it->second != actions)
            lines.push_back(std::string("add ").append(key).append(",actions=").append(actions));
    }
    return lines;
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
    for (const auto &[mac, vlan] : before.associations) {
        const auto it = now.associations.find(mac);
        if (it == now.associations.end() || it->second != vlan)
            lines.push_back(forgetMac(mac));
    }
    for (const auto &[mac, vlan] : now.associations)
        if (!before.associations.contains(mac))
            lines.push_back(forgetMac(mac));
    for (const auto &[num, interface] : before.interfaces) {
        const auto it = now.interfaces.find(num);
        if (it == now.interfaces.end() || it->second.pvid != interface.pvid ||
            it->second.members != interface.members) {
            lines.push_back(forgetInterface(num));
            continue;
        }
        // Addresses in VLANs that the interface has left.
        for (const auto &[vlan, tagged] : interface.vlans)
            if (!it->second.vlans.contains(vlan) && vlan != interface.pvid)
                lines.push_back(text("delete %s,vlan_tci=0x%04x/0x0fff", cookieOf(num).c_str(), vlan));
    }
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
