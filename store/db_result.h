// What an operation on one of the program's databases comes to: a value or SQLite's result code.
#ifndef PAVO_STORE_DB_RESULT_H
#define PAVO_STORE_DB_RESULT_H

#include <expected>

namespace pavo {

// SQLite's primary result codes, 0 for success: a type of its own that does not mix with the program's result
// codes.
enum class SqliteCode : int {};

struct DbFailure {
    SqliteCode code;
    bool opened;  // false: the database could not be opened at all
};

// A value, or why there is none; the failure has been logged.
template <class T = void>
class [[nodiscard]] DbResult : public std::expected<T, DbFailure> {
  public:
    using std::expected<T, DbFailure>::expected;
};

// What an operation returns for it: the number of SQLite's code, 0 for a success.
template <class T>
int codeOf(const DbResult<T> &result) {
    return result ? 0 : static_cast<int>(result.error().code);
}

}  // namespace pavo

#endif
