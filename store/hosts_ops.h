// The host table (store/hosts.h) as procedures: strings are zero-terminated, "SQLite code" is SQLite's
// primary result code, 0 for success. Each failure is logged once. A null string is an empty one.
#ifndef PAVO_STORE_HOSTS_OPS_H
#define PAVO_STORE_HOSTS_OPS_H

#include "store/hosts.h"

namespace pavo {

// 0 or the SQLite code; after any failure the database file is deleted.
int hostTableCreate();

// 0 or the SQLite code. An address has one name: a new one overwrites the old one.
int macToHostReplace(const char *mac, const char *hostName);

// Number of rows with that address (0 or 1; 0 on failure). The host name is copied into `hostName`, if that
// is not null, when there is one.
int hostSelectByMac(const char *mac, char hostName[HOST_NAME_SIZE]);

// 0 or the SQLite code; 0 also when the file cannot be opened or has no such row.
int hostDeleteByMac(const char *mac);

}  // namespace pavo

#endif
