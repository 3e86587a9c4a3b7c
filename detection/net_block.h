// The access list NET-BLOCK on the ports of devices that are to have no part in the multicast that it denies: it is
// bound to the port in both directions.
//
// Several devices, of several families, may need it on one port, and an operator may have bound it there before them.
// So it is unbound when the last of them is gone, and only where it was bound for them. A file beside the switch's
// saved configuration knows both after a restart. What an operator unbinds while a device is there stays unbound
// until a device comes, or is seen for the first time by a daemon that has started again.
//
// The access list is the user's: without it nothing is done, and once it is there again its ports are bound again;
// so they are when several ports had it and it is bound nowhere any more. Nothing is reported; what cannot be done
// now is done by a later settleNetBlock() of any family. Any thread may call; each change waits for others of
// multicast settings, in other processes, too.
#ifndef PAVO_DETECTION_NET_BLOCK_H
#define PAVO_DETECTION_NET_BLOCK_H

#include <map>
#include <optional>
#include <set>
#include <source_location>
#include <span>
#include <string>

#include "platform/clock.h"
#include "swapi/switch.h"

namespace pavo {

struct NetBlockNeed {
    Mac mac;
    IfNum port;          // IfNum(): where it was needed for that device the last time
    bool isNew = false;  // the device has come, and was not only seen again
};

// The devices of a family that need it from now on: these and no others. It waits for others for at most that
// time. False when that could not be written down, and so is to be said again.
bool settleNetBlock(Switch sw, const char *family, std::span<const NetBlockNeed> needs,
                    platform::Duration most, Where where = std::source_location::current());

// One device more, or one less.
void addNetBlockNeed(Switch sw, const char *family, const NetBlockNeed &need,
                     Where where = std::source_location::current());
void removeNetBlockNeed(Switch sw, const char *family, Mac mac,
                        Where where = std::source_location::current());

// --- the file

// What became of the binding in one direction: not bound by us yet; being bound, or bound, by us; bound by
// somebody else before.
enum class NetBlockBinding { Open, Binding, Bound, Others };

struct NetBlockPort {
    NetBlockBinding inbound = NetBlockBinding::Open;
    NetBlockBinding outbound = NetBlockBinding::Open;
    std::set<std::string> needs;  // "harman 00:0F:D4:00:00:01"

    bool operator==(const NetBlockPort &) const = default;
};
using NetBlockPorts = std::map<IfNum, NetBlockPort>;

// What makes no sense is passed over.
NetBlockPorts parseNetBlockPorts(const std::string &text);
// Empty when memory runs out.
std::string printNetBlockPorts(const NetBlockPorts &ports);

}  // namespace pavo

#endif
