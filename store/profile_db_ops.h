// The profile database (store/profile_db.h) as procedures: strings are zero-terminated and cut to the widths
// of the columns, "SQLite code" is SQLite's primary result code, 0 for success. Each failure is logged once.
// Any thread of any process may call any of them.
#ifndef PAVO_STORE_PROFILE_DB_OPS_H
#define PAVO_STORE_PROFILE_DB_OPS_H

#include <cstdint>

#include "store/profile_db.h"

namespace pavo {

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

// Insert; insert or overwrite by id. Null strings are empty ones. 0 or the SQLite code.
int vlanInfoInsert(std::int32_t id, std::int32_t vlanType, const char *profileName, const char *profileType,
                   const char *color);
int vlanInfoReplace(std::int32_t id, std::int32_t vlanType, const char *profileName, const char *profileType,
                    const char *color);

// Changes the given fields of a row: vlanType 0 and null strings are kept. 0 or the SQLite code; a string
// with a single quote, a statement of more than 255 characters and a call with nothing to change are SQLite
// errors.
int vlanInfoUpdateByid(std::int32_t id, std::int32_t vlanType, const char *profileName,
                       const char *profileType, const char *color);

// 0 or the SQLite code; 0 also when the file cannot be opened or has no such row.
int vlanInfoDeleteById(std::int32_t id);

// Number of rows with that id (0 or 1; 0 on failure). The outputs that are given are filled when a row is
// found.
int vlanInfoSelectById(std::int32_t id, std::int32_t *vlanType, char profileName[VLAN_INFO_NAME_SIZE],
                       char profileType[VLAN_INFO_TYPE_SIZE], char color[VLAN_INFO_COLOR_SIZE]);
int vlanInfoSelectRowsById(std::int32_t id);

// Fills the list with all rows, at most its capacity. Number of rows read, or -1.
int vlanInfoSelectAll(VlanInfoRowList *list);

// The id of the first row with that type and role; 0 when none or on failure.
std::int32_t vlanIdSelectByProfileTypeAndVlanType(const char *profileType, std::int32_t vlanType);

// A list with room for VLAN_INFO_ROWS_MAX rows, zero-filled; null when memory runs out. Free accepts null.
VlanInfoRowList *vlanInfoRowListCreate();
void vlanInfoRowListFree(VlanInfoRowList *list);
// Sorts by id, ascending.
void vlanInfoRowListSort(VlanInfoRowList *list);
// The row with that id of a sorted list, or null.
VlanInfoRow *vlanInfoRowListFind(VlanInfoRowList *list, std::int32_t id);

}  // namespace pavo

#endif
