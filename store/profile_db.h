// The profile database: which VLAN belongs to which AV profile. SQLite file platform::paths::kProfileDb, one
// table `vlanInfo`, one row per VLAN that a profile created.
//
// Every operation opens the file, runs one statement with a busy timeout of 3000 ms and closes it, so any
// thread of any process may call any of them. A failure is logged once, with SQLite's message. Texts are
// zero-terminated and cut to the widths below. "SQLite code" is SQLite's primary result code, 0 for success.
#ifndef PAVO_STORE_PROFILE_DB_H
#define PAVO_STORE_PROFILE_DB_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>

#include "platform/open_client.h"

inline constexpr std::size_t VLAN_INFO_NAME_SIZE = 256;
inline constexpr std::size_t VLAN_INFO_TYPE_SIZE = 256;
inline constexpr std::size_t VLAN_INFO_COLOR_SIZE = 8;
inline constexpr std::size_t VLAN_INFO_ROWS_MAX = 4096;

struct VlanInfoRow {
    std::int32_t id;        // VLAN id, 1 to 4094
    std::int32_t vlanType;  // role within the profile
    char profileName[VLAN_INFO_NAME_SIZE];
    char profileType[VLAN_INFO_TYPE_SIZE];
    char color[VLAN_INFO_COLOR_SIZE];  // "#rrggbb"
};

struct VlanInfoRowList {
    std::int32_t count;
    std::int32_t capacity;
    VlanInfoRow *rows;
};

// Creates the table and its seed row (id 1, "Default"). 0 or the SQLite code. An existing table is a failure
// after which the file is deleted, so that the next call creates it fresh.
int vlanInfoTableCreate();

// 0 when the file passes; 10000 otherwise, and then a file that is there is deleted.
std::int32_t vlanInfoDbVerify();

// Creates the table when the file is missing or empty; a file with content is not touched. For those who
// write the database: the daemon at start, and profile operations.
void vlanInfoDbEnsure();

// Insert; insert or overwrite by id. 0 or the SQLite code.
int vlanInfoInsert(std::int32_t id, std::int32_t vlanType, const char *profileName, const char *profileType,
                   const char *color);
int vlanInfoReplace(std::int32_t id, std::int32_t vlanType, const char *profileName, const char *profileType,
                    const char *color);

// Changes the given fields of a row: vlanType 0 and null texts are kept. 0 or the SQLite code; a text with a
// single quote, a statement of more than 255 characters and a call with nothing to change are SQLite errors.
int vlanInfoUpdateByid(std::int32_t id, std::int32_t vlanType, const char *profileName,
                       const char *profileType, const char *color);

// 0 or the SQLite code; 0 also when the file cannot be opened or has no such row.
int vlanInfoDeleteById(std::int32_t id);

// Number of rows with that id (0 or 1; 0 on failure). The outputs that are given are filled when a row is
// found.
int vlanInfoSelectById(std::int32_t id, std::int32_t *vlanType, char profileName[VLAN_INFO_NAME_SIZE],
                       char profileType[VLAN_INFO_TYPE_SIZE], char color[VLAN_INFO_COLOR_SIZE]);
int vlanInfoSelectRowsById(std::int32_t id);

// The rows of many ids by one connection, as they are at one moment: visit(i, row) with the position in
// `ids`, in their order; ids without a row are passed over. `visit` must not write to the database. 0, or
// 10000 when the file cannot be opened; a statement that fails ends the look-up (logged once).
std::int32_t vlanInfoSelectByIds(std::span<const std::uint32_t> ids,
                                 const std::function<void(std::size_t i, const VlanInfoRow &row)> &visit);

// Fills the list with all rows, at most its capacity. Number of rows read, or -1.
int vlanInfoSelectAll(VlanInfoRowList *list);

// The first VLAN id of that profile type, other than `excluded`, that exists on the switch; 0 when none or on
// failure.
std::int32_t vlanInfoSelectHasofProfileType(openapiClientHandle_t *client, const char *profileType,
                                            std::int32_t excluded);

// The id of the first row with that type and role; 0 when none or on failure.
std::int32_t vlanIdSelectByProfileTypeAndVlanType(const char *profileType, std::int32_t vlanType);

// A list with room for VLAN_INFO_ROWS_MAX rows, zero-filled; null when memory runs out. Free accepts null.
VlanInfoRowList *vlanInfoRowListCreate();
void vlanInfoRowListFree(VlanInfoRowList *list);
// Sorts by id, ascending.
void vlanInfoRowListSort(VlanInfoRowList *list);
// The row with that id of a sorted list, or null.
VlanInfoRow *vlanInfoRowListFind(VlanInfoRowList *list, std::int32_t id);

// The whole table as it was when this was made, for callers that ask about many VLANs. Empty when the
// database cannot be read.
class VlanInfoCache {
  public:
    VlanInfoCache();
    VlanInfoCache(const VlanInfoCache &) = delete;
    VlanInfoCache &operator=(const VlanInfoCache &) = delete;
    ~VlanInfoCache() { vlanInfoRowListFree(rows_); }

    const VlanInfoRow *find(std::uint32_t id) const {
        return vlanInfoRowListFind(rows_, static_cast<std::int32_t>(id));
    }

  private:
    VlanInfoRowList *rows_;
};

#endif
