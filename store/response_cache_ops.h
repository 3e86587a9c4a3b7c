// The response cache (store/response_cache.h) as procedures. Any thread of any process may call any of them.
// Each failure is logged once.
#ifndef PAVO_STORE_RESPONSE_CACHE_OPS_H
#define PAVO_STORE_RESPONSE_CACHE_OPS_H

#include <cstdint>

namespace pavo {

// Operation numbers of restapi_db_operation.
inline constexpr int REST_DB_CREATE = 1;
inline constexpr int REST_DB_READ = 2;
inline constexpr int REST_DB_WRITE = 3;
inline constexpr int REST_DB_UPDATE = 5;  // the same as REST_DB_WRITE
inline constexpr int REST_DB_DELETE = 6;

// Results of writing an entry. 1 is also SQLite's general error, for example without the table; that is
// logged.
inline constexpr int REST_DB_UNCHANGED = 1;
inline constexpr int REST_DB_WRITTEN = 101;

// Create (the name is ignored), read (what was read is discarded) and delete: 0 or SQLite's code. Write: one
// of the results above, or another SQLite code. -1 for any other number. `data` is for writing only. A name
// to write or delete that is null, empty or has control characters, and null data, are refused with SQLite's
// code 21 (misuse).
int restapi_db_operation(int operation, const char *api_name, const char *data);

// 0 with newly allocated text in *out, the caller's to free with free(); otherwise *out is null: 10023 when
// there is no such entry or its data is null, 10003 on a missing argument, 10000 on a database error.
std::int32_t restapi_db_read(const char *api_name, char **out);

// Waits for the lock of that name. 0 with the descriptor of the held lock, or -1 with -1.
int rest_db_lock_acquire(const char *name, int *fd);
// Only for a descriptor of at least 1.
void rest_db_lock_release(int fd);
void ensure_lock_dir();

void send_signal_to_ws();

}  // namespace pavo

#endif
