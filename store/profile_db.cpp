#include "store/profile_db.h"

#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <string>

#include "common/log.h"
#include "common/owners.h"
#include "common/result.h"
#include "platform/paths.h"

namespace {

constexpr int kBusyTimeoutMs = 3000;
constexpr std::size_t kStatementSize = 256;
constexpr const char *kCountRows = "SELECT count(*) FROM vlanInfo;";

struct SqliteDeleter {
    void operator()(sqlite3 *db) const { sqlite3_close(db); }
    void operator()(char *text) const { sqlite3_free(text); }
    void operator()(sqlite3_stmt *statement) const { sqlite3_finalize(statement); }
};
using SqlitePtr = std::unique_ptr<sqlite3, SqliteDeleter>;
using SqliteText = std::unique_ptr<char, SqliteDeleter>;
using SqliteStatement = std::unique_ptr<sqlite3_stmt, SqliteDeleter>;

std::int32_t numberOf(const char *text) {
    using Limits = std::numeric_limits<std::int32_t>;
    return static_cast<std::int32_t>(
        std::clamp(std::strtol(text, nullptr, 10), long{Limits::min()}, long{Limits::max()}));
}

// All cells of a result, as text.
class Table {
  public:
    Table() = default;
    Table(const Table &) = delete;
    Table &operator=(const Table &) = delete;
    ~Table() { sqlite3_free_table(cells_); }

    int read(sqlite3 *db, const char *sql) {
        return sqlite3_get_table(db, sql, &cells_, &rows_, &columns_, nullptr);
    }
    int rows() const { return rows_; }

    // Empty for a null cell and for a column that the table, which is not ours to trust, does not have.
    const char *text(int row, int column) const {
        if (column >= columns_)
            return "";
        const char *const cell = cells_[(row + 1) * columns_ + column];  // row 0 holds the column names
        return cell != nullptr ? cell : "";
    }

    std::int32_t number(int row, int column) const { return numberOf(text(row, column)); }

  private:
    char **cells_ = nullptr;
    int rows_ = 0;
    int columns_ = 0;
};

// A connection to the database for one operation. Only creating the table may create the file: a read or a
// delete must not leave an empty database behind where there was none.
class Connection {
  public:
    // SQLite's code. Reports nothing: operations differ in what they say.
    int open(int createFlag = 0) {
        sqlite3 *handle = nullptr;
        const int code = sqlite3_open_v2(platform::fsPath(platform::paths::kProfileDb).c_str(), &handle,
                                         SQLITE_OPEN_READWRITE | createFlag, nullptr);
        db_.reset(handle);
        if (code == SQLITE_OK)
            sqlite3_busy_timeout(handle, kBusyTimeoutMs);
        return code;
    }
    int run(const char *sql) { return sqlite3_exec(db_.get(), sql, nullptr, nullptr, nullptr); }
    sqlite3 *handle() const { return db_.get(); }
    const char *message() const { return sqlite3_errmsg(db_.get()); }

  private:
    SqlitePtr db_;
};

using ErrorLog = void (*)(const char *sql, const char *message);

void statementErrorLog(const char *sql, const char *message) {
    LOG_ERROR("[%s:%d] %s error: %s\r\n", sql, message);
}

void selectAllErrorLog(const char *, const char *message) {
    LOG_ERROR("[%s:%d] vlanInfoSelectAll error: %s\r\n", message);
}

struct Outcome {
    int code;  // of SQLite
    bool opened;
};

// One statement on a connection of its own; its rows go to `table` when given.
Outcome statementRun(const char *sql, Table *table = nullptr, ErrorLog errorLog = statementErrorLog) {
    Connection connection;
    int code = connection.open();
    if (code != SQLITE_OK) {
        LOG_ERROR("[%s:%d] Can't open database: %s\r\n", connection.message());
        return {code, false};
    }
    code = table != nullptr ? table->read(connection.handle(), sql) : connection.run(sql);
    if (code != SQLITE_OK)
        errorLog(sql, connection.message());
    return {code, true};
}

// A statement in its fixed buffer. Texts are substituted as they are, so one with a quote would change the
// statement, and a statement that was cut short could mean something else altogether (an update without its
// where clause changes every row): neither is ever run.
class Statement {
  public:
    void append(const char *format, ...) __attribute__((format(printf, 2, 3))) {
        std::va_list args;
        va_start(args, format);
        const std::size_t room = sizeof text_ - length_;
        const int needed = std::vsnprintf(text_ + length_, room, format, args);
        va_end(args);
        if (needed < 0 || static_cast<std::size_t>(needed) >= room)
            refusal_ = "statement too long";
        length_ = std::strlen(text_);
    }

    // A text that `append` is about to put between single quotes.
    const char *quotable(const char *text) {
        if (text == nullptr)
            refusal_ = "no text";
        else if (std::strchr(text, '\'') != nullptr)
            refusal_ = "quote in text";
        return text != nullptr ? text : "";
    }

    void dropLast(std::size_t characters) {
        length_ -= characters;
        text_[length_] = '\0';
    }

    Outcome run(Table *table = nullptr) const {
        if (refusal_ == nullptr)
            return statementRun(text_, table);
        statementErrorLog(text_, refusal_);
        return {SQLITE_ERROR, true};
    }

  private:
    char text_[kStatementSize] = "";
    std::size_t length_ = 0;
    const char *refusal_ = nullptr;
};

// Insert or replace; SQLite's own formatter takes care of quotes and of any length.
int rowWrite(const char *format, std::int32_t id, std::int32_t vlanType, const char *profileName,
             const char *profileType, const char *color) {
    const auto orEmpty = [](const char *text) { return text != nullptr ? text : ""; };
    const SqliteText sql(
        sqlite3_mprintf(format, id, vlanType, orEmpty(profileName), orEmpty(profileType), orEmpty(color)));
    if (sql == nullptr) {
        statementErrorLog(format, sqlite3_errstr(SQLITE_NOMEM));
        return SQLITE_NOMEM;
    }
    return statementRun(sql.get()).code;
}

template <std::size_t N>
void textCopy(char (&dst)[N], const char *src) {
    std::snprintf(dst, N, "%s", src);
}

// text(column): the cell as text, never null.
template <class Text>
void rowFill(VlanInfoRow &row, Text text) {
    row.id = numberOf(text(0));
    row.vlanType = numberOf(text(1));
    textCopy(row.profileName, text(2));
    textCopy(row.profileType, text(3));
    textCopy(row.color, text(4));
}

Statement selectById(std::int32_t id) {
    Statement statement;
    statement.append("select * from vlanInfo where id = %d", id);
    return statement;
}

int tableCreate(const char *sql) {
    Connection connection;
    int code = connection.open(SQLITE_OPEN_CREATE);
    if (code != SQLITE_OK) {
        LOG_ERROR("[%s:%d] Can't open database: %s\r\n", connection.message());
        return code;
    }
    connection.run("PRAGMA synchronous = FULL;");
    connection.run("PRAGMA journal_mode = DELETE;");
    code = connection.run(sql);
    if (code != SQLITE_OK) {
        LOG_ERROR("[%s:%d] Can't create table vlanInfo: %s\r\n", connection.message());
        return code;
    }
    code = connection.run(kCountRows);
    if (code != SQLITE_OK)
        LOG_ERROR("[%s:%d] Table vlanInfo verification failed: %s\r\n", connection.message());
    return code;
}

// False (logged) when the file, of `size` bytes, is no sound database with the table in it.
bool databaseSound(long size) {
    Connection connection;
    if (size == 0)
        LOG_ERROR("[%s:%d] vlanInfo database file is empty (size=0)\r\n");
    else if (connection.open() != SQLITE_OK)
        LOG_ERROR("[%s:%d] Can't open vlanInfo database for verification: %s\r\n", connection.message());
    else if (connection.run(kCountRows) != SQLITE_OK)
        LOG_ERROR("[%s:%d] vlanInfo table verification failed: %s\r\n", connection.message());
    else if (connection.run("PRAGMA integrity_check;") != SQLITE_OK)
        LOG_ERROR("[%s:%d] vlanInfo database integrity check failed: %s\r\n", connection.message());
    else
        return true;
    return false;
}

}  // namespace

int vlanInfoTableCreate() {
    char create[kStatementSize];
    std::snprintf(create, sizeof create,
                  "create table vlanInfo("
                  "        id int primary key,"
                  "        vlanType int,"
                  "        profileName varchar(%d),"
                  "        profileType varchar(%d),"
                  "        color varchar(%d)"
                  "        )",
                  static_cast<int>(VLAN_INFO_NAME_SIZE), static_cast<int>(VLAN_INFO_TYPE_SIZE),
                  static_cast<int>(VLAN_INFO_COLOR_SIZE));
    const int code = tableCreate(create);
    if (code != SQLITE_OK) {
        fileRemove(platform::paths::kProfileDb);
        return code;
    }
    sync();
    if (vlanInfoReplace(1, 1, "Default", "Default", "#000000") != SQLITE_OK)
        LOG_WARN("[%s:%d] vlanInfo seed Default profile failed (id=1)\r\n");
    LOG_INFORM("[%s:%d] vlanInfo database table created successfully\r\n");
    return SQLITE_OK;
}

std::int32_t vlanInfoDbVerify() {
    struct stat info{};
    if (stat(platform::fsPath(platform::paths::kProfileDb).c_str(), &info) != 0) {
        LOG_ERROR("[%s:%d] vlanInfo database file does not exist\r\n");
        return RESULT_FAILED;
    }
    const long size = static_cast<long>(info.st_size);
    if (!databaseSound(size)) {
        fileRemove(platform::paths::kProfileDb);
        return RESULT_FAILED;
    }
    LOG_INFORM("[%s:%d] vlanInfo database verification passed (size=%ld bytes)\r\n", size);
    return RESULT_SUCCESS;
}

void vlanInfoDbEnsure() {
    // Daemon and profile operations may come at the same time, and what one has just begun looks empty to the
    // other. Without a lock (no such folder) nothing can be made either.
    const FileLock lock(platform::paths::kProfileDbLock);
    struct stat info{};
    if (stat(platform::fsPath(platform::paths::kProfileDb).c_str(), &info) == 0) {
        if (info.st_size > 0)
            return;
        vlanInfoDbVerify();  // deletes the empty file
    } else if (errno != ENOENT) {
        return;
    }
    vlanInfoTableCreate();
}

int vlanInfoInsert(std::int32_t id, std::int32_t vlanType, const char *profileName, const char *profileType,
                   const char *color) {
    return rowWrite("insert into vlanInfo values(    %d,    %d,    '%q',    '%q',    '%q'    )", id, vlanType,
                    profileName, profileType, color);
}

int vlanInfoReplace(std::int32_t id, std::int32_t vlanType, const char *profileName, const char *profileType,
                    const char *color) {
    return rowWrite("replace into vlanInfo values(    %d,    %d,    '%q',    '%q',    '%q'    )", id,
                    vlanType, profileName, profileType, color);
}

int vlanInfoUpdateByid(std::int32_t id, std::int32_t vlanType, const char *profileName,
                       const char *profileType, const char *color) {
    Statement statement;
    statement.append("update vlanInfo set ");
    if (vlanType != 0)
        statement.append("vlanType = %d, ", vlanType);
    if (profileName != nullptr)
        statement.append("profileName = '%s', ", statement.quotable(profileName));
    if (profileType != nullptr)
        statement.append("profileType = '%s', ", statement.quotable(profileType));
    if (color != nullptr)
        statement.append("color = '%s', ", statement.quotable(color));
    statement.dropLast(2);  // with nothing to change this spoils the "set", and SQLite refuses the statement
    statement.append(" where id = %d", id);
    return statement.run().code;
}

int vlanInfoDeleteById(std::int32_t id) {
    Statement statement;
    statement.append("delete from vlanInfo where id = %d", id);
    const Outcome outcome = statement.run();
    return outcome.opened ? outcome.code : SQLITE_OK;  // no database: nothing left to delete
}

int vlanInfoSelectById(std::int32_t id, std::int32_t *vlanType, char profileName[VLAN_INFO_NAME_SIZE],
                       char profileType[VLAN_INFO_TYPE_SIZE], char color[VLAN_INFO_COLOR_SIZE]) {
    Table table;
    if (selectById(id).run(&table).code != SQLITE_OK || table.rows() == 0)
        return 0;
    if (vlanType != nullptr)
        *vlanType = table.number(0, 1);
    if (profileName != nullptr)
        std::snprintf(profileName, VLAN_INFO_NAME_SIZE, "%s", table.text(0, 2));
    if (profileType != nullptr)
        std::snprintf(profileType, VLAN_INFO_TYPE_SIZE, "%s", table.text(0, 3));
    if (color != nullptr)
        std::snprintf(color, VLAN_INFO_COLOR_SIZE, "%s", table.text(0, 4));
    return table.rows();
}

int vlanInfoSelectRowsById(std::int32_t id) {
    Table table;
    return selectById(id).run(&table).code == SQLITE_OK ? table.rows() : 0;
}

std::int32_t vlanInfoSelectByIds(std::span<const std::uint32_t> ids,
                                 const std::function<void(std::size_t i, const VlanInfoRow &row)> &visit) {
    static constexpr const char *kSelect = "select * from vlanInfo where id = ?";
    Connection connection;
    if (connection.open() != SQLITE_OK) {
        LOG_ERROR("[%s:%d] Can't open database: %s\r\n", connection.message());
        return RESULT_FAILED;
    }
    connection.run("BEGIN");  // one read lock for all
    sqlite3_stmt *prepared = nullptr;
    int code = sqlite3_prepare_v2(connection.handle(), kSelect, -1, &prepared, nullptr);
    const SqliteStatement statement(prepared);
    const auto text = [&](int column) {
        const bool there = column < sqlite3_column_count(prepared);
        const auto *const cell = there ? sqlite3_column_text(prepared, column) : nullptr;
        return cell != nullptr ? reinterpret_cast<const char *>(cell) : "";
    };
    for (std::size_t i = 0; i < ids.size() && code == SQLITE_OK; ++i) {
        sqlite3_bind_int64(prepared, 1, ids[i]);
        while (sqlite3_step(prepared) == SQLITE_ROW) {
            VlanInfoRow row{};
            rowFill(row, text);
            visit(i, row);
        }
        code = sqlite3_reset(prepared);
    }
    // What is wrong with one id is wrong with all: thousands must not wait for a busy database in turn.
    if (code != SQLITE_OK)
        statementErrorLog(kSelect, connection.message());
    return RESULT_SUCCESS;
}

int vlanInfoSelectAll(VlanInfoRowList *list) {
    if (list == nullptr || list->rows == nullptr)
        return -1;
    list->count = 0;
    Table table;
    const Outcome outcome = statementRun("SELECT id, vlanType, profileName, profileType, color FROM vlanInfo",
                                         &table, selectAllErrorLog);
    if (outcome.code != SQLITE_OK)
        return -1;
    const int count = std::min(table.rows(), static_cast<int>(list->capacity));
    for (int i = 0; i < count; ++i)
        rowFill(list->rows[i], [&](int column) { return table.text(i, column); });
    list->count = count;
    return count;
}

std::int32_t vlanInfoSelectHasofProfileType(openapiClientHandle_t *client, const char *profileType,
                                            std::int32_t excluded) {
    Statement statement;
    statement.append("select id from vlanInfo where profileType = '%s'", statement.quotable(profileType));
    Table table;
    if (statement.run(&table).code != SQLITE_OK)
        return 0;
    for (int i = 0; i < table.rows(); ++i) {
        const std::int32_t id = table.number(i, 0);
        if (id != excluded && openapiVlanCreatedCheck(client, static_cast<std::uint32_t>(id)) == OPEN_E_NONE)
            return id;
    }
    return 0;
}

std::int32_t vlanIdSelectByProfileTypeAndVlanType(const char *profileType, std::int32_t vlanType) {
    Statement statement;
    statement.append("select id from vlanInfo where profileType = '%s' and vlanType = %d",
                     statement.quotable(profileType), vlanType);
    Table table;
    return statement.run(&table).code == SQLITE_OK && table.rows() > 0 ? table.number(0, 0) : 0;
}

VlanInfoRowList *vlanInfoRowListCreate() {
    std::unique_ptr<VlanInfoRow[]> rows(new (std::nothrow) VlanInfoRow[VLAN_INFO_ROWS_MAX]());
    if (rows == nullptr)
        return nullptr;
    auto *const list = new (std::nothrow) VlanInfoRowList{0, VLAN_INFO_ROWS_MAX, rows.get()};
    if (list != nullptr)
        rows.release();
    return list;
}

void vlanInfoRowListFree(VlanInfoRowList *list) {
    if (list == nullptr)
        return;
    delete[] list->rows;
    delete list;
}

void vlanInfoRowListSort(VlanInfoRowList *list) {
    if (list != nullptr && list->rows != nullptr && list->count >= 2)
        std::sort(list->rows, list->rows + list->count,
                  [](const VlanInfoRow &a, const VlanInfoRow &b) { return a.id < b.id; });
}

VlanInfoRow *vlanInfoRowListFind(VlanInfoRowList *list, std::int32_t id) {
    if (list == nullptr || list->rows == nullptr || list->count <= 0)
        return nullptr;
    VlanInfoRow *const end = list->rows + list->count;
    VlanInfoRow *const row = std::lower_bound(
        list->rows, end, id,
        [](const VlanInfoRow &candidate, std::int32_t wanted) { return candidate.id < wanted; });
    return row != end && row->id == id ? row : nullptr;
}

VlanInfoCache::VlanInfoCache() : rows_(vlanInfoRowListCreate()) {
    vlanInfoSelectAll(rows_);
    vlanInfoRowListSort(rows_);
}
