// The profile database: which VLAN belongs to which AV profile. SQLite file platform::paths::kProfileDb, one
// table `vlanInfo`, one row per VLAN that a profile created.
//
// Every function opens the file, runs its statement with a busy timeout of 3000 ms and closes it, so any
// thread of any process may call any of them. A failure is logged once, with SQLite's message, on behalf of
// the operation that `where` names.
//
// Statements are at most 255 bytes long and strings are substituted into them as they are, except by insert
// and replace: one that is longer, or with a quote in a string, is refused like a faulty one.
#ifndef PAVO_STORE_PROFILE_DB_H
#define PAVO_STORE_PROFILE_DB_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <source_location>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "common/result.h"
#include "common/vlan_id.h"
#include "common/where.h"
#include "store/db_result.h"

namespace pavo {

// Whether a file that can be opened is no database of profiles (any more), rather than one that cannot be read now.
bool isDamage(SqliteCode code);

// Widths of the columns, with the terminating zero; longer strings are cut when they are read, at a
// character.
inline constexpr std::size_t VLAN_INFO_NAME_SIZE = 256;
inline constexpr std::size_t VLAN_INFO_TYPE_SIZE = 256;
inline constexpr std::size_t VLAN_INFO_COLOR_SIZE = 8;
inline constexpr std::size_t VLAN_INFO_ROWS_MAX = 4096;

struct ProfileRow {
    std::int32_t id = 0;        // VLAN id, as it stands in the database
    std::int32_t vlanType = 0;  // role within the profile
    std::string profileName;
    std::string profileType;
    std::string color;  // "#rrggbb"

    std::optional<VlanId> vlan() const { return VlanId::from(id); }
    bool operator==(const ProfileRow &) const = default;
};

// VLAN 1 under the default profile, the seed of the table.
ProfileRow defaultProfileRow();

// All rows, at most VLAN_INFO_ROWS_MAX: in ascending order of id, or in SQLite's.
DbResult<std::vector<ProfileRow>> readProfileRows(Where where = std::source_location::current());
DbResult<std::vector<ProfileRow>> readProfileRowsUnsorted(Where where = std::source_location::current());
DbResult<std::optional<ProfileRow>> readProfileRow(std::int32_t id,
                                                   Where where = std::source_location::current());
// The rows of many VLANs by one connection, as they are at one moment, in the order of `ids`. A statement
// that fails ends the look-up (logged once): the rows found until then are the answer.
DbResult<std::vector<std::optional<ProfileRow>>> readProfileRowsOf(
    std::span<const VlanId> ids, Where where = std::source_location::current());
// Ids of the rows of a profile type, and of those with a role within it, in SQLite's order.
DbResult<std::vector<std::int32_t>> readIdsOfType(std::string_view profileType,
                                                  Where where = std::source_location::current());
DbResult<std::vector<std::int32_t>> readIdsOfTypeAndRole(std::string_view profileType, std::int32_t vlanType,
                                                         Where where = std::source_location::current());

DbResult<> insertProfileRow(const ProfileRow &row, Where where = std::source_location::current());
// Inserts the row or overwrites the one with its id.
DbResult<> replaceProfileRow(const ProfileRow &row, Where where = std::source_location::current());
DbResult<> deleteProfileRow(std::int32_t id, Where where = std::source_location::current());

// The fields of a row that are to change. An update of none is refused by SQLite.
struct ProfileRowChange {
    std::int32_t vlanType = 0;  // 0: kept
    std::optional<std::string_view> profileName{};
    std::optional<std::string_view> profileType{};
    std::optional<std::string_view> color{};
};
DbResult<> updateProfileRow(std::int32_t id, const ProfileRowChange &change,
                            Where where = std::source_location::current());

// Creates the table and its seed row. An existing table is a failure; after any the file is deleted, so that
// the next call creates it fresh.
DbResult<> createProfileDb(Where where = std::source_location::current());

// Makes the database anew with these rows, in place of the one that is there, if any: others see that or the whole
// new one.
DbResult<> makeProfileDb(std::span<const ProfileRow> rows, Where where = std::source_location::current());

// Failed when the file is not there or is no sound database with the table in it; then it is deleted.
Result<> verifyProfileDb(Where where = std::source_location::current());

// Creates the table and its seed row when the file is missing or empty; a file with content is not touched.
// For those who write the database: the daemon at start, and profile operations.
void ensureProfileDb(Where where = std::source_location::current());

// The row of that id among rows in ascending order of id, or null.
const ProfileRow *findProfileRow(std::span<const ProfileRow> rows, std::int32_t id);

}  // namespace pavo

#endif
