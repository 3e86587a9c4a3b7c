// The forwarding rules of a switch as OpenFlow flow entries, and the smallest set of changes from one set to
// another. Pure functions; flow entries are strings as ovs-ofctl reads them.
//
//   table 0   ports: which interface (port or LAG) received the frame; reserved addresses, accepted frame
//             types, EAPOL of ports that authenticate; untagged frames get a tag without a VLAN, as those with a priority only have it
//   table 1   ingress access lists
//   table 2   the frame's VLAN: the association of its source address, the PVID, or its tag; from here on
//             every frame carries its VLAN as a tag
//   table 3   ARP is recorded in table 11
//   table 4   the source address is looked up in table 10
//   table 5   an address that is new, or where it was, is learned into table 10; one that was elsewhere is
//             reported. Learning would not do there: Open vSwitch learns once more, and too late, from the
//             last frames that came by the old interface. Then the destination is looked up in table 10
//   table 6   addresses that have moved are reported, as many of an interface as its meter lets pass
//   table 10  learned addresses: the interface behind which the address is
//   table 11  learned ARP pairs
//   table 20  delivery: to that interface, to those that want the multicast group, or to all that participate
//             in the VLAN; IGMP in VLANs with snooping goes to table 21 and nowhere else
//   table 21  IGMP is reported, as many frames of an interface as its meter lets pass
//   table 30  egress access lists of interfaces that have some
//
// Register 0 holds the interface of the destination (of the source up to table 5), register 1 that of the
// source, register 3 is not 0 for what the switch itself sends, register 4 holds the interface in table 30.
#ifndef PAVO_VSWITCH_DATAPLANE_FLOWS_H
#define PAVO_VSWITCH_DATAPLANE_FLOWS_H

#include <map>
#include <string>
#include <vector>

#include "vswitch/dataplane/data_plane.h"

namespace vswitch {

// Maps table, priority and match of a flow entry to its actions.
using Flows = std::map<std::string, std::string>;

inline constexpr int kFdbTable = 10, kArpTable = 11;
// Cookies of learned flow entries: this bit, one more for ARP pairs, and the interface number.
inline constexpr std::uint64_t kLearnedCookie = 1ull << 40;
inline constexpr std::uint64_t kArpCookie = kLearnedCookie | (1ull << 32);
inline constexpr std::uint64_t kInterfaceCookie = 0xffffffff;
// On the switch's clock.
inline constexpr Duration kArpAge = std::chrono::seconds(1200);

// The table from which a packet-in reports an address that has moved, and the one from which it brings IGMP.
inline constexpr int kMoveTable = 6, kIgmpTable = 21;
inline constexpr int kDeliveryTable = 20;
// Frames that an interface may report in a second, and at once, of either kind: what one of them sends leaves
// room for what the others have to say.
inline constexpr std::uint32_t kReportsPerSecond = 2000, kReportsAtOnce = 2000;
// The meters of an interface, which Open vSwitch must have before the flow entries come.
constexpr std::uint32_t igmpMeter(IfNum interface) {
    return 2 * interface;
}
constexpr std::uint32_t moveMeter(IfNum interface) {
    return 2 * interface + 1;
}
// An outer tag with this VLAN ID, which no frame may carry, has been put in front of the frame's own tag on
// its way in (see tag_marks.h).
inline constexpr VlanId kMarkVlan = 4095;

// The real seconds after which a silent address and an ARP pair are forgotten.
struct FlowAges {
    std::uint32_t address = 300, arp = 1200;

    bool operator==(const FlowAges &) const = default;
};

// All flow entries of a configuration.
Flows flowsOf(const WireConfig &config, const FlowAges &ages = {});

// Lines for "ovs-ofctl add-flows" that turn `present` into `wanted`, deletions first.
std::vector<std::string> flowChanges(const Flows &present, const Flows &wanted);

struct FlowUpdate {
    std::vector<std::string> lines;
    std::ptrdiff_t growth = 0;  // of the number of flow entries
};

// The same lines for the flow entries of two configurations, worked out from what differs between these:
// takes the time of the comparison and of what has changed, however many flow entries there are.
FlowUpdate flowUpdate(const WireConfig &before, const FlowAges &agesBefore, const WireConfig &now,
                      const FlowAges &ages);

// 224.0.0.0/24, which is not for IGMP: all get it.
constexpr bool isLocalGroup(Ipv4 group) {
    return group >> 8 == 0xe00000;
}

// Lines that delete every flow entry of the tables that flowsOf fills.
std::vector<std::string> flowClear();

// Lines that forget the learned addresses which the change of configuration makes wrong: addresses of changed
// associations, and of interfaces whose VLANs, PVID or members changed.
std::vector<std::string> staleAddresses(const WireConfig &before, const WireConfig &now);

std::string forgetInterface(IfNum interface);  // and its ARP pairs
std::string forgetMac(const Mac &mac);
std::string forgetArp(const ArpKey &key);
// The flow entry that learning would have made, to be forgotten after `seconds`.
std::string learnedFlow(const SeenAddress &address, std::uint32_t seconds);
std::string learnedArpFlow(const ArpKey &key, const Mac &mac, IfNum interface, std::uint32_t seconds);

}  // namespace vswitch

#endif
