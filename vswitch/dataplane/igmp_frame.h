// IGMP (versions 1 to 3) as frames. Pure functions of bytes; what comes in is whatever somebody has sent.
#ifndef PAVO_VSWITCH_DATAPLANE_IGMP_FRAME_H
#define PAVO_VSWITCH_DATAPLANE_IGMP_FRAME_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "vswitch/model/igmp.h"

namespace vswitch {

// The header of a frame with an 802.1Q tag.
struct TaggedHeader {
    Mac destination, source;
    VlanId vlan = 0;
};
// Nothing when the frame is too short or not tagged.
std::optional<TaggedHeader> taggedHeaderOf(std::string_view frame);

struct IgmpFrame {
    // Membership: reports and leaves, for multicast routers. Other: types that are not for snooping, to be
    // flooded.
    enum class Kind { Membership, Query, Other };

    Kind kind = Kind::Other;
    VlanId vlan = 0;
    // One for each group of a version 3 report, at most as many as fit into a frame; records that say nothing
    // of a membership have none. A version 3 source list is taken for the whole group.
    std::vector<IgmpMessage> messages;
};

// What a frame with one tag, received by `interface`, says. Nothing when it is not IGMP in an IPv4 packet or
// has a wrong checksum, length or group: such a frame is not to be forwarded either. Padding behind the
// packet does not matter, nor do IP options.
std::optional<IgmpFrame> parseIgmpFrame(std::string_view frame, IfNum interface);

// A query as a tagged frame of that source address. The maximum response time is taken as it is.
std::string igmpQueryFrame(const IgmpQuery &query, const Mac &source);

}  // namespace vswitch

#endif
