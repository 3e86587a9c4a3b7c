#include "store/profile_db.h"

#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <utility>

#include "common/files.h"
#include "common/log.h"
#include "common/text.h"
#include "platform/paths.h"
#include "store/sqlite.h"

namespace pavo {
namespace {

using namespace std::string_view_literals;

constexpr std::size_t kStatementMax = 255;
constexpr const char *kCountRows = "SELECT count(*) FROM vlanInfo;";
constexpr const char *kReplaceRow =
    "replace into vlanInfo values(    %d,    %d,    '%q',    '%q',    '%q'    )";
constexpr const char *kSelectAll = "SELECT id, vlanType, profileName, profileType, color FROM vlanInfo";

constexpr LogFormat<const char *> kCannotOpen = "[%s:%d] Can't open database: %s\r\n";
constexpr LogFormat<const char *, const char *> kStatementError = "[%s:%d] %s error: %s\r\n";

std::int32_t numberOf(const char *text) {
    using Limits = std::numeric_limits<std::int32_t>;
    return static_cast<std::int32_t>(
        std::clamp(std::strtol(text, nullptr, 10), long{Limits::min()}, long{Limits::max()}));
}

// textAt(column): the cell as text, never null.
template <class TextAt>
ProfileRow makeRow(TextAt textAt) {
    const auto cut = [&](int column, std::size_t size) { return cutToBytes(textAt(column), size - 1); };
    return {numberOf(textAt(0)), numberOf(textAt(1)), cut(2, VLAN_INFO_NAME_SIZE),
            cut(3, VLAN_INFO_TYPE_SIZE), cut(4, VLAN_INFO_COLOR_SIZE)};
}

// All cells of a result, as text.
class Table {
  public:
    int read(sqlite3 *db, const char *sql) {
        char **cells = nullptr;
        const int code = sqlite3_get_table(db, sql, &cells, &rows_, &columns_, nullptr);
        cells_.reset(cells);
        return code;
    }
    int rows() const { return rows_; }

    // Empty for a null cell and for a column that the table, which is not ours to trust, does not have.
    const char *text(int row, int column) const {
        if (column >= columns_)
            return "";
        const char *const cell = cells_.get()[(row + 1) * columns_ + column];  // row 0 has the column names
        return cell != nullptr ? cell : "";
    }

    ProfileRow row(int row) const {
        return makeRow([&](int column) { return text(row, column); });
    }

  private:
    SqlitePtr<char *> cells_;
    int rows_ = 0;
    int columns_ = 0;
};

int openProfileDb(Connection &connection) {
    return connection.open(platform::paths::kProfileDb, Connection::Access::Write);
}

// One statement on a connection of its own. Its failure is logged with the statement, or as `failure` says.
DbResult<Table> runStatement(const std::string &sql, const Where &where,
                             LogFormat<const char *> failure = {}) {
    Connection connection;
    Table table;
    if (const int code = openProfileDb(connection); code != SQLITE_OK) {
        logError(where, kCannotOpen, connection.message());
        return dbFailure(code, false);
    }
    if (const int code = table.read(connection.handle(), sql.c_str()); code != SQLITE_OK) {
        if (failure.text() != nullptr)
            logError(where, failure, connection.message());
        else
            logError(where, kStatementError, shownStatement(sql).c_str(), connection.message());
        return dbFailure(code);
    }
    return table;
}

DbResult<> runChange(const std::string &sql, const Where &where) {
    const auto done = runStatement(sql, where);
    return done ? DbResult<>() : std::unexpected(done.error());
}

// A statement that strings are substituted into. One with a quote would change it, and a statement that was
// cut short could mean something else altogether (an update without its where clause changes every row):
// neither is ever run.
class Statement {
  public:
    template <class... Args>
    Statement &add(std::type_identity_t<TextFormat<Args...>> format, const Args &...args) {
        text_ += formatText<Args...>(format, args...);
        return *this;
    }
    // What stands for a '%s' between quotes. A string without storage stands for a missing one.
    std::string quotable(std::string_view text) {
        if (text.data() == nullptr)
            refusal_ = "no text";
        else if (text.find_first_of("'\0"sv) != std::string_view::npos)
            refusal_ = "quote in text";
        return std::string(text);
    }
    void dropLast(std::size_t characters) { text_.resize(text_.size() - characters); }

    DbResult<Table> run(const Where &where) const {
        const bool fits = text_.size() <= kStatementMax;
        if (fits && refusal_ == nullptr)
            return runStatement(text_, where);
        logError(where, kStatementError, shownStatement(text_).c_str(),
                 fits ? refusal_ : "statement too long");
        return dbFailure(SQLITE_ERROR);
    }

  private:
    std::string text_;
    const char *refusal_ = nullptr;
};

DbResult<std::vector<std::int32_t>> readIds(const Statement &statement, const Where &where) {
    const auto table = statement.run(where);
    if (!table)
        return std::unexpected(table.error());
    std::vector<std::int32_t> ids;
    ids.reserve(static_cast<std::size_t>(table->rows()));
    for (int i = 0; i < table->rows(); ++i)
        ids.push_back(numberOf(table->text(i, 0)));
    return ids;
}

// Insert or replace; SQLite's own formatter takes care of quotes and of any length.
SqlitePtr<char> rowStatement(const char *format, const ProfileRow &row) {
    return SqlitePtr<char>(sqlite3_mprintf(format, row.id, row.vlanType, row.profileName.c_str(),
                                           row.profileType.c_str(), row.color.c_str()));
}

DbResult<> writeRow(const char *format, const ProfileRow &row, const Where &where) {
    const auto sql = rowStatement(format, row);
    if (sql != nullptr)
        return runChange(sql.get(), where);
    logError(where, kStatementError, formatText("vlanInfo, id = %d", row.id).c_str(),
             sqlite3_errstr(SQLITE_NOMEM));
    return dbFailure(SQLITE_NOMEM);
}

std::string createStatement() {
    return formatText(
        "create table vlanInfo(        id int primary key,        vlanType int,        profileName "
        "varchar(%d),"
        "        profileType varchar(%d),        color varchar(%d)        )",
        static_cast<int>(VLAN_INFO_NAME_SIZE), static_cast<int>(VLAN_INFO_TYPE_SIZE),
        static_cast<int>(VLAN_INFO_COLOR_SIZE));
}

int createTable(const Where &where, Connection &connection, const std::string &fixedPath) {
    if (const int code = connection.open(fixedPath, Connection::Access::Create); code != SQLITE_OK) {
        logError(where, kCannotOpen, connection.message());
        return code;
    }
    connection.run("PRAGMA synchronous = FULL;");
    connection.run("PRAGMA journal_mode = DELETE;");
    if (const int code = connection.run(createStatement().c_str()); code != SQLITE_OK) {
        logError(where, "[%s:%d] Can't create table vlanInfo: %s\r\n", connection.message());
        return code;
    }
    const int code = connection.run(kCountRows);
    if (code != SQLITE_OK)
        logError(where, "[%s:%d] Table vlanInfo verification failed: %s\r\n", connection.message());
    return code;
}

int createTable(const Where &where) {
    Connection connection;
    return createTable(where, connection, platform::paths::kProfileDb);
}

// Whether the file, of `size` bytes, is a sound database with the table in it; if not, why is logged.
bool isSound(long size, const Where &where) {
    Connection connection;
    if (size == 0)
        logError(where, "[%s:%d] vlanInfo database file is empty (size=0)\r\n");
    else if (openProfileDb(connection) != SQLITE_OK)
        logError(where, "[%s:%d] Can't open vlanInfo database for verification: %s\r\n",
                 connection.message());
    else if (connection.run(kCountRows) != SQLITE_OK)
        logError(where, "[%s:%d] vlanInfo table verification failed: %s\r\n", connection.message());
    else if (connection.run("PRAGMA integrity_check;") != SQLITE_OK)
        logError(where, "[%s:%d] vlanInfo database integrity check failed: %s\r\n", connection.message());
    else
        return true;
    return false;
}

}  // namespace

bool isDamage(SqliteCode code) {
    const int number = static_cast<int>(code);
    return number == SQLITE_CORRUPT || number == SQLITE_NOTADB || number == SQLITE_ERROR;
}

ProfileRow defaultProfileRow() {
    return {1, 1, "Default", "Default", "#000000"};
}

DbResult<std::vector<ProfileRow>> readProfileRows(Where where) {
    auto rows = readProfileRowsUnsorted(where);
    if (rows)
        std::ranges::stable_sort(*rows, {}, &ProfileRow::id);
    return rows;
}

DbResult<std::vector<ProfileRow>> readProfileRowsUnsorted(Where where) {
    const auto table = runStatement(kSelectAll, where, "[%s:%d] vlanInfoSelectAll error: %s\r\n");
    if (!table)
        return std::unexpected(table.error());
    std::vector<ProfileRow> rows;
    for (int i = 0; i < std::min(table->rows(), static_cast<int>(VLAN_INFO_ROWS_MAX)); ++i)
        rows.push_back(table->row(i));
    return rows;
}

DbResult<std::optional<ProfileRow>> readProfileRow(std::int32_t id, Where where) {
    const auto table = Statement().add("select * from vlanInfo where id = %d", id).run(where);
    if (!table)
        return std::unexpected(table.error());
    return table->rows() > 0 ? std::optional(table->row(0)) : std::nullopt;
}

DbResult<std::vector<std::optional<ProfileRow>>> readProfileRowsOf(std::span<const VlanId> ids, Where where) {
    static const std::string kSelect = "select * from vlanInfo where id = ";
    Connection connection;
    if (const int code = openProfileDb(connection); code != SQLITE_OK) {
        logError(where, kCannotOpen, connection.message());
        return dbFailure(code, false);
    }
    connection.run("BEGIN");  // one read lock for all
    sqlite3_stmt *prepared = nullptr;
    int code = sqlite3_prepare_v2(connection.handle(), (kSelect + "?").c_str(), -1, &prepared, nullptr);
    const SqlitePtr<sqlite3_stmt> statement(prepared);
    const auto textAt = [&](int column) {
        const bool there = column < sqlite3_column_count(prepared);
        const auto *const cell = there ? sqlite3_column_text(prepared, column) : nullptr;
        return cell != nullptr ? reinterpret_cast<const char *>(cell) : "";
    };
    std::vector<std::optional<ProfileRow>> rows(ids.size());
    std::size_t asked = 0;  // which of them
    for (std::size_t i = 0; i < ids.size() && code == SQLITE_OK; ++i) {
        asked = i;
        sqlite3_bind_int64(prepared, 1, ids[i].number());
        while (sqlite3_step(prepared) == SQLITE_ROW)
            rows[i] = makeRow(textAt);
        code = sqlite3_reset(prepared);
    }
    // What is wrong with one id is wrong with all: thousands must not wait for a busy database in turn.
    if (code != SQLITE_OK)
        logError(where, kStatementError,
                 (kSelect + (ids.empty() ? "?" : std::to_string(ids[asked].number()))).c_str(),
                 connection.message());
    return rows;
}

DbResult<std::vector<std::int32_t>> readIdsOfType(std::string_view profileType, Where where) {
    Statement statement;
    statement.add("select id from vlanInfo where profileType = '%s'", statement.quotable(profileType));
    return readIds(statement, where);
}

DbResult<std::vector<std::int32_t>> readIdsOfTypeAndRole(std::string_view profileType, std::int32_t vlanType,
                                                         Where where) {
    Statement statement;
    statement.add("select id from vlanInfo where profileType = '%s' and vlanType = %d",
                  statement.quotable(profileType), vlanType);
    return readIds(statement, where);
}

DbResult<> insertProfileRow(const ProfileRow &row, Where where) {
    return writeRow("insert into vlanInfo values(    %d,    %d,    '%q',    '%q',    '%q'    )", row, where);
}

DbResult<> replaceProfileRow(const ProfileRow &row, Where where) {
    return writeRow(kReplaceRow, row, where);
}

DbResult<> deleteProfileRow(std::int32_t id, Where where) {
    const auto done = Statement().add("delete from vlanInfo where id = %d", id).run(where);
    return done ? DbResult<>() : std::unexpected(done.error());
}

DbResult<> updateProfileRow(std::int32_t id, const ProfileRowChange &change, Where where) {
    Statement statement;
    statement.add("update vlanInfo set ");
    if (change.vlanType != 0)
        statement.add("vlanType = %d, ", change.vlanType);
    if (change.profileName)
        statement.add("profileName = '%s', ", statement.quotable(*change.profileName));
    if (change.profileType)
        statement.add("profileType = '%s', ", statement.quotable(*change.profileType));
    if (change.color)
        statement.add("color = '%s', ", statement.quotable(*change.color));
    statement.dropLast(2);  // with nothing to change this spoils the "set", and SQLite refuses the statement
    const auto done = statement.add(" where id = %d", id).run(where);
    return done ? DbResult<>() : std::unexpected(done.error());
}

DbResult<> createProfileDb(Where where) {
    if (const int code = createTable(where); code != SQLITE_OK) {
        removeFile(platform::paths::kProfileDb);
        return dbFailure(code);
    }
    sync();
    if (!replaceProfileRow(defaultProfileRow(), where))
        logWarn(where, "[%s:%d] vlanInfo seed Default profile failed (id=1)\r\n");
    logInfo(where, "[%s:%d] vlanInfo database table created successfully\r\n");
    return {};
}

DbResult<> makeProfileDb(std::span<const ProfileRow> rows, Where where) {
    const std::string beside = std::string(platform::paths::kProfileDb) + ".new";
    removeFile(beside);
    {
        Connection connection;
        int code = createTable(where, connection, beside);
        if (code == SQLITE_OK) {
            connection.run("BEGIN");
            for (const auto &row : rows) {
                const auto sql = rowStatement(kReplaceRow, row);
                if (code == SQLITE_OK)
                    code = sql != nullptr ? connection.run(sql.get()) : SQLITE_NOMEM;
                if (code != SQLITE_OK)
                    logError(where, kStatementError, shownStatement(sql != nullptr ? sql.get() : "").c_str(),
                             connection.message());
            }
            if (code == SQLITE_OK)
                code = connection.run("COMMIT");
        }
        if (code != SQLITE_OK) {
            removeFile(beside);
            return dbFailure(code);
        }
    }
    if (std::rename(platform::fsPath(beside).c_str(),
                    platform::fsPath(platform::paths::kProfileDb).c_str()) != 0) {
        logError(where, "[%s:%d] cannot replace %s: %s\r\n", platform::paths::kProfileDb,
                 std::strerror(errno));
        removeFile(beside);
        return dbFailure(SQLITE_CANTOPEN);
    }
    logInfo(where, "[%s:%d] vlanInfo database table created successfully\r\n");
    return {};
}

Result<> verifyProfileDb(Where where) {
    struct stat info{};
    if (stat(platform::fsPath(platform::paths::kProfileDb).c_str(), &info) != 0) {
        logError(where, "[%s:%d] vlanInfo database file does not exist\r\n");
        return failed(ResultCode::Failed, "there is no profile database");
    }
    const long size = static_cast<long>(info.st_size);
    if (!isSound(size, where)) {
        removeFile(platform::paths::kProfileDb);
        return failed(ResultCode::Failed, "the profile database was damaged");
    }
    logInfo(where, "[%s:%d] vlanInfo database verification passed (size=%ld bytes)\r\n", size);
    return {};
}

void ensureProfileDb(Where where) {
    // Daemon and profile operations may come at the same time, and what one has just begun looks empty to the
    // other. Without a lock (no such folder) nothing can be made either.
    const FileLock lock(platform::paths::kProfileDbLock, FileLock::Afterwards::Keep, FileLock::kWaitMax,
                        where);
    if (lock.timedOut()) {
        logError(where, "[%s:%d] cannot lock %s\n", platform::paths::kProfileDbLock);
        return;
    }
    struct stat info{};
    if (stat(platform::fsPath(platform::paths::kProfileDb).c_str(), &info) == 0) {
        if (info.st_size > 0)
            return;
        static_cast<void>(verifyProfileDb(where));  // deletes the empty file, and says so
    } else if (errno != ENOENT) {
        return;
    }
    static_cast<void>(createProfileDb(where));
}

const ProfileRow *findProfileRow(std::span<const ProfileRow> rows, std::int32_t id) {
    const auto row = std::ranges::lower_bound(rows, id, {}, &ProfileRow::id);
    return row != rows.end() && row->id == id ? &*row : nullptr;
}

}  // namespace pavo
