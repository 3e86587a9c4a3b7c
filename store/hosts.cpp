#include "store/hosts.h"

#include <unistd.h>

#include <chrono>
#include <initializer_list>
#include <utility>

#include "common/files.h"
#include "common/log.h"
#include "common/text.h"
#include "platform/paths.h"
#include "store/sqlite.h"

namespace pavo {
namespace {

using platform::paths::kHostDb;

constexpr int kNameColumn = 1;
constexpr auto kNoBusyTimeout = std::chrono::milliseconds(0);

DbResult<> openHostDb(Connection &connection, Connection::Access access, const Where &where) {
    const int code = connection.open(kHostDb, access, kNoBusyTimeout);
    if (code == SQLITE_OK)
        return {};
    logError(where, "[%s:%d] Can't open database: %s\r\n", connection.message());
    return dbFailure(code, false);
}

int createTable(const Where &where) {
    Connection connection;
    if (const auto opened = openHostDb(connection, Connection::Access::Create, where); !opened)
        return codeOf(opened);
    connection.run("PRAGMA synchronous = FULL;");
    connection.run("PRAGMA journal_mode = DELETE;");
    const auto create =
        formatText("create table if not exists host(mac varchar(%d) UNIQUE,hostName varchar(%d))",
                   static_cast<int>(HOST_MAC_SIZE), static_cast<int>(HOST_NAME_SIZE));
    if (const int code = connection.run(create.c_str()); code != SQLITE_OK) {
        logError(where, "[%s:%d] Can't create table host: %s\r\n", connection.message());
        return code;
    }
    const int code = connection.run("SELECT count(*) FROM host;");
    if (code != SQLITE_OK)
        logError(where, "[%s:%d] Table host verification failed: %s\r\n", connection.message());
    return code;
}

// One statement on a connection of its own, for the host with that address; visit(query) for each row.
// `shown` is the statement with its values, for the log.
template <class Visit>
DbResult<> runStatement(const char *sql, std::initializer_list<std::string_view> values,
                        const std::string &shown, const Where &where, Visit visit) {
    Connection connection;
    if (auto opened = openHostDb(connection, Connection::Access::Write, where); !opened)
        return opened;
    Query query;
    int code = query.prepare(connection, sql);
    if (code == SQLITE_OK) {
        int index = 0;
        for (const auto value : values)
            query.bind(++index, value);
        for (code = query.step(); code == SQLITE_ROW; code = query.step())
            visit(query);
    }
    if (code == SQLITE_DONE)
        return {};
    logError(where, "[%s:%d] %s error: %s\r\n", shownStatement(shown), connection.message());
    return dbFailure(code);
}

void ignoreRow(const Query &) {}

}  // namespace

DbResult<> createHostTable(Where where) {
    if (const int code = createTable(where); code != SQLITE_OK) {
        removeFile(kHostDb);
        return dbFailure(code);
    }
    sync();
    logInfo(where, "[%s:%d] host database table created successfully\r\n");
    return {};
}

DbResult<> replaceHost(std::string_view mac, std::string_view name, Where where) {
    const SqlitePtr<char> shown(sqlite3_mprintf("replace into host values('%q','%q')",
                                                std::string(mac).c_str(), std::string(name).c_str()));
    return runStatement("replace into host values(?,?)", {mac, name}, shown != nullptr ? shown.get() : "",
                        where, ignoreRow);
}

DbResult<HostMatch> findHost(std::string_view mac, Where where) {
    HostMatch match;
    const auto done = runStatement("select * from host where mac = ?", {mac},
                                   "select * from host where mac = '" + std::string(mac) + "'", where,
                                   [&](const Query &row) {
                                       ++match.rows;
                                       match.name = cutToBytes(row.text(kNameColumn), HOST_NAME_SIZE - 1);
                                   });
    return done ? DbResult<HostMatch>(std::move(match)) : std::unexpected(done.error());
}

DbResult<> deleteHost(std::string_view mac, Where where) {
    return runStatement("delete from host where mac = ?", {mac},
                        "delete from host where mac = '" + std::string(mac) + "'", where, ignoreRow);
}

}  // namespace pavo
