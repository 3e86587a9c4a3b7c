// Which ports and LAGs are in which VLAN.
//
// "Untagged" means everywhere that the interface's PVID is the VLAN. An interface that cannot be read is in
// no VLAN; neither is a LAG without members. Failures are logged on behalf of the operation that `where`
// names.
#ifndef PAVO_VLAN_VLAN_MEMBERS_H
#define PAVO_VLAN_VLAN_MEMBERS_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <source_location>
#include <vector>

#include "swapi/switch.h"

namespace pavo {

// Interface numbers of ports, and numbers of LAGs (1 for the first LAG interface), in the order of the
// switch's walk.
struct VlanMembers {
    std::vector<IfNum> taggedPorts;
    std::vector<IfNum> untaggedPorts;
    std::vector<std::uint32_t> taggedLags;
    std::vector<std::uint32_t> untaggedLags;
};

// Collects the members of several VLANs at a time: each interface is asked once, not once per VLAN.
class MemberCollector {
  public:
    // What becomes of an interface in a VLAN that has no slot.
    enum class Strays { Dropped, InFirstSlot };

    explicit MemberCollector(Strays strays) : strays_(strays) {}

    // The slots are numbered from 0 in the order of these calls. One without a VLAN stays empty, but for
    // strays.
    void addSlot(std::optional<VlanId> id);

    void collectPorts(Switch sw, Where where = std::source_location::current());
    void collectLags(Switch sw, LagNumbering numbering, Where where = std::source_location::current());

    const VlanMembers &slot(std::size_t i) const { return slots_[i]; }
    std::vector<VlanMembers> takeSlots() { return std::move(slots_); }

  private:
    VlanMembers *slotOf(VlanId id);
    template <class Number>
    void place(Switch sw, IfNum ifNum, Number number, std::vector<Number> VlanMembers::*tagged,
               std::vector<Number> VlanMembers::*untagged, const Where &where);

    Strays strays_;
    std::vector<VlanMembers> slots_;
    std::vector<std::optional<std::size_t>> slotByVlan_ =
        std::vector<std::optional<std::size_t>>(VlanId::kMax + 1);
};

// What becomes of LAGs without members: they are nowhere, or where they are configured to be. The latter does
// not count VLAN 1 as PVID: an interface that nobody uses is there because it has to be somewhere.
enum class EmptyLags { Nowhere, InTheirVlans };

// Adds the members of the VLANs that are the keys of `vlans`. Failed (logged once) as soon as the switch does
// not answer: there are no gaps.
Result<> readAllMembers(Switch sw, EmptyLags emptyLags, std::map<VlanId, VlanMembers> &vlans,
                        Where where = std::source_location::current());

// The numbers of LAGs; Failed (logged) when there is no LAG interface.
Result<LagNumbering> readLagNumbering(Switch sw, Where where = std::source_location::current());

// The interface numbers of a LAG's members. Failed (logged) when the switch does not tell.
Result<std::vector<IfNum>> readLagMembers(Switch sw, IfNum lag,
                                          Where where = std::source_location::current());

}  // namespace pavo

#endif
