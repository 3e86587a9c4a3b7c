// SQLite as the stores use it: a connection for one operation, and statements whose values are bound. Nothing
// here logs, because operations differ in what they say; codes are SQLite's. An object belongs to one thread.
#ifndef PAVO_STORE_SQLITE_H
#define PAVO_STORE_SQLITE_H

#include <sqlite3.h>

#include <chrono>
#include <memory>
#include <string>
#include <string_view>

#include "store/db_result.h"

namespace pavo {

struct SqliteDeleter {
    void operator()(sqlite3 *db) const { sqlite3_close(db); }
    void operator()(char *text) const { sqlite3_free(text); }
    void operator()(char **cells) const { sqlite3_free_table(cells); }
    void operator()(sqlite3_stmt *statement) const { sqlite3_finalize(statement); }
};
template <class T>
using SqlitePtr = std::unique_ptr<T, SqliteDeleter>;

inline std::unexpected<DbFailure> dbFailure(int code, bool opened = true) {
    return std::unexpected(DbFailure{static_cast<SqliteCode>(code), opened});
}

// A statement as it stands in the log: its values may be as long, and hold whatever, as somebody likes.
std::string shownStatement(std::string_view sql);

class Connection {
  public:
    // How long a database that another connection has locked is waited for, unless told otherwise.
    static constexpr auto kBusyTimeout = std::chrono::milliseconds(3000);

    enum class Access {
        Read,
        Write,   // a read or a delete must not leave an empty database behind where there was none
        Create,  // makes the file when it is missing
    };
    enum class Links {
        Follow,
        Refuse,  // for a file in a folder that is open to everybody
    };

    // Opens a database by its fixed path (platform/paths.h).
    int open(const std::string &fixedPath, Access access,
             std::chrono::milliseconds busyTimeout = kBusyTimeout, Links links = Links::Follow);
    int run(const char *sql) { return sqlite3_exec(db_.get(), sql, nullptr, nullptr, nullptr); }

    sqlite3 *handle() const { return db_.get(); }
    const char *message() const {
        return db_ != nullptr ? sqlite3_errmsg(db_.get()) : sqlite3_errstr(SQLITE_CANTOPEN);
    }

  private:
    SqlitePtr<sqlite3> db_;
};

// One statement with its values bound in place of '?'. It must not outlive its connection, nor the strings
// that are bound to it.
class Query {
  public:
    int prepare(const Connection &connection, const char *sql);
    // `index` counts from 1.
    void bind(int index, std::string_view text);
    // SQLITE_ROW, SQLITE_DONE or an error, which may be that of a value that could not be bound: the statement
    // is not run with a null in its place.
    int step() { return bound_ == SQLITE_OK ? sqlite3_step(statement_.get()) : bound_; }

    // The current row. A column that the table, which is not ours to trust, does not have is null.
    bool isNull(int column) const;
    // Empty for null, and when memory runs out, which the next step gives as its error. Valid until then.
    std::string_view text(int column) const;

  private:
    SqlitePtr<sqlite3_stmt> statement_;
    int bound_ = SQLITE_OK;  // the first failure to bind
};

}  // namespace pavo

#endif
