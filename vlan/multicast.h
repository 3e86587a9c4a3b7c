// Multicast groups, what interfaces do with multicast, and which addresses are denied.
//
// An interface is normal, has a multicast router behind it, or is blocked: the access list "NET-BLOCK" is
// bound to it in both directions. The lines of that list deny what is to be blocked and permit the rest.
//
// Failures have been logged, on behalf of the operation that `where` names. Any thread may call; changes wait
// for each other, in this process and in others.
#ifndef PAVO_VLAN_MULTICAST_H
#define PAVO_VLAN_MULTICAST_H

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <source_location>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "common/if_num.h"
#include "common/result.h"
#include "common/where.h"
#include "store/chunk_sink.h"
#include "swapi/switch.h"

namespace pavo {

inline constexpr const char *kNetBlock = "NET-BLOCK";

// --- groups

// A subscriber of a group. The views are into the capture.
struct GroupRow {
    bool onLag = false;
    std::uint32_t port = 0;  // physical port, or number of the LAG
    std::uint32_t vlan = 0;
    std::string_view subscriber;     // IPv4 address, at most 15 characters, as the following
    std::string_view subscriberMac;  // at most 17
    std::string_view group;
    std::string_view groupMac;
    std::string_view type;  // at most 7
    std::int32_t timeout = 0;
    bool isPlain = false;  // no string has a character that JSON escapes

    // Version 3 has a timer for each source instead.
    bool hasTimeout() const { return type.find("v3") == std::string_view::npos; }
};

// What "show igmpsnooping group" prints, row by row. Lines that are no rows are passed over.
void forEachGroupRow(std::string_view shown, const std::function<void(const GroupRow &)> &visit);

// The row as one JSON object in one line:
// {"unit":1,"port":"5","vlanId":20,"subscriberAddress":"10.0.0.1","subscriberMacAddress":"00:11:22:33:44:55",
//  "multicastAddress":"239.1.1.1","multicastMacAddress":"01:00:5E:01:01:01","type":"v2","timeout":260}
// The port of a LAG is "lag3"; the timeout is null without one. The result is in `room`, which is large enough for
// any row.
using GroupRowRoom = std::array<char, 1024>;
std::string_view printGroupRow(const GroupRow &row, GroupRowRoom &room);

// The table as the switch prints it, and its rows in a sink, in printGroupRow()'s form. Failed or OpenFailed
// when it cannot be captured.
Result<std::string> captureGroups(Switch sw, Where where = std::source_location::current());
Result<> readGroups(Switch sw, RowSink &sink, Where where = std::source_location::current());

// --- modes

enum class MulticastMode : std::int32_t { Normal = 0, Router = 1, Blocked = 2 };

struct ModeEntry {
    std::uint32_t number = 0;  // of the port or the LAG
    MulticastMode mode = MulticastMode::Normal;

    bool operator==(const ModeEntry &) const = default;
};
struct MulticastModes {
    std::vector<ModeEntry> ports;
    std::vector<ModeEntry> lags;

    bool operator==(const MulticastModes &) const = default;
};

// Every interface that is not normal: the blocked ones, then those with a router. One may be both.
Result<MulticastModes> readMulticastModes(Switch sw, Where where = std::source_location::current());

// Sets the modes of the interfaces named; where one is named twice, the last entry counts. Nothing is changed
// when one of them does not exist or the present state cannot be read, and what was changed is taken back
// when a later step fails.
Result<> changeMulticastModes(Switch sw, const MulticastModes &wanted,
                              Where where = std::source_location::current());

// No multicast router is behind this port or LAG any more. NotExist when there is no such interface.
Result<> removeRouterInterface(Switch sw, IfNum ifNum, Where where = std::source_location::current());

// --- deny list

// The destination addresses in what "show ip access-list" prints, "/8" behind each, cut to 20 characters.
std::vector<std::string> parseDenyList(std::string_view shown);
// Empty when there is no access list.
Result<std::vector<std::string>> readDenyList(Switch sw, Where where = std::source_location::current());

// The script that denies these addresses, or deletes the list when there are none. Of an address the first
// nine characters count, as the first of its four numbers decides. InvalidArgument, with a human-readable
// reason, when one is no address even so, or when the script would be longer than 2047 characters.
Result<std::string> denyListScript(std::span<const std::string> addresses,
                                   Where where = std::source_location::current());
// Puts the lines of the access list in the place of those that are there; these are brought back when it
// fails. When the caller is killed in between, or the switch does not answer any more, restoreDenyList() brings
// them back, which readDenyList() and every change of list or modes do first.
Result<> changeDenyList(Switch sw, std::span<const std::string> addresses,
                        Where where = std::source_location::current());
// A list that somebody has changed or deleted since is left alone.
Result<> restoreDenyList(Switch sw, Where where = std::source_location::current());

// Deletes the rules of an access list, the last one first. A list that does not exist has none.
Result<> clearAccessList(Switch sw, const std::string &name, Where where = std::source_location::current());

}  // namespace pavo

#endif
