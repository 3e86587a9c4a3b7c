// Host names by MAC address, from DHCP reservations: table `host` in the SQLite file
// platform::paths::kHostDb, which also has the reservations of the switch.
//
// Every function opens the file and closes it, so any thread of any process may call any of them. There is no
// busy timeout: a database that somebody else has locked fails the call at once. Addresses are compared as
// they are spelled, and values are bound, so quotes in them are data. A failure is logged once, on behalf of
// the operation that `where` names.
#ifndef PAVO_STORE_HOSTS_H
#define PAVO_STORE_HOSTS_H

#include <cstddef>
#include <source_location>
#include <string>
#include <string_view>

#include "common/where.h"
#include "store/db_result.h"

namespace pavo {

// Widths of the columns, with the terminating zero. A longer name is cut when it is read, at a character.
inline constexpr std::size_t HOST_MAC_SIZE = 18;
inline constexpr std::size_t HOST_NAME_SIZE = 32;

// Makes the table unless it is there. After any failure the whole file is deleted, the reservations with it,
// so that the next call makes it fresh.
DbResult<> createHostTable(Where where = std::source_location::current());

// Adds the host, or overwrites its name.
DbResult<> replaceHost(std::string_view mac, std::string_view name,
                       Where where = std::source_location::current());

struct HostMatch {
    int rows = 0;
    std::string name;  // of the last of them
};
DbResult<HostMatch> findHost(std::string_view mac, Where where = std::source_location::current());

DbResult<> deleteHost(std::string_view mac, Where where = std::source_location::current());

}  // namespace pavo

#endif
