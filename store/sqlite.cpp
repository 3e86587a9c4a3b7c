#include "store/sqlite.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "common/json.h"
#include "common/owners.h"
#include "platform/paths.h"

namespace pavo {
namespace {

constexpr std::size_t kShownMax = 255;

int flagsFor(Connection::Access access) {
    switch (access) {
        case Connection::Access::Read:
            return SQLITE_OPEN_READONLY;
        case Connection::Access::Write:
            return SQLITE_OPEN_READWRITE;
        case Connection::Access::Create:
            break;
    }
    return SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
}

// The path with the links of its folders resolved. SQLite refuses a link anywhere in a path; only the last
// part of ours is somebody else's to make.
std::string resolveFolder(const std::string &path) {
    const std::size_t slash = path.rfind('/');
    const TextPtr folder(realpath(path.substr(0, slash).c_str(), nullptr));
    return folder != nullptr ? folder.get() + path.substr(slash) : path;
}

}  // namespace

std::string shownStatement(std::string_view sql) {
    std::string out(sql.substr(0, kShownMax));
    std::ranges::replace_if(out, [](unsigned char c) { return c < 0x20 || c == 0x7f; }, '?');
    return out;
}

int Connection::open(const std::string &fixedPath, Access access, std::chrono::milliseconds busyTimeout,
                     Links links) {
    const std::string path = platform::fsPath(fixedPath);
    const bool refuse = links == Links::Refuse;
    // A pipe would be waited for.
    struct stat found{};
    if (refuse && lstat(path.c_str(), &found) == 0 && S_ISFIFO(found.st_mode)) {
        db_.reset();
        return SQLITE_CANTOPEN;
    }
    // Made here, so that it belongs to whom it should; a file without anything in it is an empty database. Not one that
    // is there: closing it would drop the locks that other threads have on it.
    if (access == Access::Create && geteuid() == 0 && lstat(path.c_str(), &found) != 0 && errno == ENOENT)
        if (const int fd = openShared(fixedPath, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0644);
            fd >= 0) {
            close(fd);
            access = Access::Write;
        }
    sqlite3 *handle = nullptr;
    const int code = sqlite3_open_v2(refuse ? resolveFolder(path).c_str() : path.c_str(), &handle,
                                     flagsFor(access) | (refuse ? SQLITE_OPEN_NOFOLLOW : 0), nullptr);
    db_.reset(handle);
    if (code == SQLITE_OK)
        sqlite3_busy_timeout(handle, static_cast<int>(busyTimeout.count()));
    return code;
}

int Query::prepare(const Connection &connection, const char *sql) {
    sqlite3_stmt *statement = nullptr;
    const int code = sqlite3_prepare_v2(connection.handle(), sql, -1, &statement, nullptr);
    statement_.reset(statement);
    bound_ = SQLITE_OK;
    return code;
}

void Query::bind(int index, std::string_view text) {
    // Without storage it would be a null and not an empty string.
    const char *const begin = text.data() != nullptr ? text.data() : "";
    const int code =
        sqlite3_bind_text64(statement_.get(), index, begin, text.size(), SQLITE_STATIC, SQLITE_UTF8);
    if (bound_ == SQLITE_OK)
        bound_ = code;
}

bool Query::isNull(int column) const {
    return column >= sqlite3_column_count(statement_.get()) ||
           sqlite3_column_type(statement_.get(), column) == SQLITE_NULL;
}

std::string_view Query::text(int column) const {
    if (isNull(column))
        return {};
    const auto *const text = reinterpret_cast<const char *>(sqlite3_column_text(statement_.get(), column));
    const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column));
    return text != nullptr ? std::string_view(text, size) : std::string_view();
}

}  // namespace pavo
