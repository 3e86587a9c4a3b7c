// IGMP snooping: which interfaces want which IPv4 multicast groups, and where multicast routers are. Plain
// state and its rules; the messages come from simulated devices, from operators, or from the wire of live
// ports.
#ifndef PAVO_VSWITCH_MODEL_IGMP_H
#define PAVO_VSWITCH_MODEL_IGMP_H

#include <compare>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "vswitch/model/types.h"

namespace vswitch {

using Ipv4 = std::uint32_t;  // host byte order
std::string ipv4Text(Ipv4 address);
// Four decimal numbers from 0 to 255.
std::optional<Ipv4> parseIpv4(std::string_view text);
// Upper case with ':' between: 01:00:5E and the low 23 bits of the group.
std::string groupMacText(Ipv4 group);

struct IgmpGroupKey {
    VlanId vlan = 0;
    Ipv4 group = 0;
    auto operator<=>(const IgmpGroupKey &) const = default;
};

// A host behind an interface.
struct IgmpSubscriberKey {
    IfNum interface = 0;  // port of its own, or LAG
    Ipv4 host = 0;        // 0.0.0.0 is allowed
    auto operator<=>(const IgmpSubscriberKey &) const = default;
};

struct IgmpSubscriber {
    Mac mac;
    std::uint32_t version = 2;  // of its last report: 1 to 3
    Duration expires{};         // on the switch's clock; after it the subscription is forgotten
};

using IgmpGroups = std::map<IgmpGroupKey, std::map<IgmpSubscriberKey, IgmpSubscriber>>;

enum class IgmpKind { Report, Leave, Query };

// An IGMP message as it was received: one for each group record of a version 3 report (a record that ends a
// membership is a Leave).
struct IgmpMessage {
    IgmpKind kind = IgmpKind::Report;
    VlanId vlan = 0;
    IfNum interface = 0;        // that received it: port or LAG
    std::uint32_t version = 2;  // 1 to 3
    Mac mac;                    // the sender's
    Ipv4 host = 0;              // the sender's, 0 for none
    Ipv4 group = 0;             // 0 in a general query
    Duration maxResponse{};     // of a query
};

// A query that the switch wants sent: general (group 0) to all that participate in the VLAN, or for one group
// to `interfaces`.
struct IgmpQuery {
    VlanId vlan = 0;
    Ipv4 group = 0;
    std::uint32_t version = 2;
    Ipv4 source = 0;  // the querier's address, 0.0.0.0 when it has none
    Duration maxResponse{};
    std::vector<IfNum> interfaces;  // empty: all of the VLAN
};

// What the data plane is to do with the multicast of one VLAN.
struct WireMulticast {
    bool snooping = false;                      // off: multicast is flooded like broadcast
    bool floodUnknown = true;                   // groups that nobody has asked for
    bool floodReports = false;                  // reports go to all, not to multicast routers only
    bool routersGetGroups = true;               // routers get every group, asked for or not
    std::map<Ipv4, std::vector<IfNum>> groups;  // interfaces with subscribers, sorted
    // Interfaces of multicast routers: static ones and those a query came from, sorted.
    std::vector<IfNum> routers;

    bool operator==(const WireMulticast &) const = default;
};

}  // namespace vswitch

#endif
