// The forwarding rules of a switch as OpenFlow flow entries, and the smallest set of changes from one set to
// another. Pure functions; flow entries are strings as ovs-ofctl reads them.
//
//   table 0   ports: which interface (port or LAG) received the frame; reserved addresses, accepted frame
//             types; a tag that only carries a priority is removed
//   table 1   ingress access lists
//   table 2   the frame's VLAN: the association of its source address, the PVID, or its tag; from here on
//             every frame carries its VLAN as a tag
//   table 3   ARP is recorded in table 11
//   table 4   the source address is learned into table 10, the destination looked up there
//   table 10  learned addresses: the interface behind which the destination is
//   table 11  learned ARP pairs
//   table 20  delivery: to that interface, or to all that participate in the VLAN
//   table 30  egress access lists of interfaces that have some
//
// Register 0 holds the interface of the destination, register 1 that of the source, register 4 the one in
// table 30.
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

// All flow entries of a configuration. The ages are the real times after which a silent address and an ARP
// pair are forgotten.
Flows flowsOf(const WireConfig &config, std::uint32_t ageSeconds, std::uint32_t arpSeconds = 1200);

// Lines for "ovs-ofctl add-flows" that turn `present` into `wanted`, deletions first.
std::vector<std::string> flowChanges(const Flows &present, const Flows &wanted);

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
