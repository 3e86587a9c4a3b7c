#include "store/response_cache.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/cache_fixture.h"
#include "tests/support/sqlite.h"

namespace {

namespace fs = std::filesystem;
using namespace pavo;
using platform::fsPath;
using namespace platform::paths;
using test_support::exists;
using test_support::readFile;
using test_support::writeText;

class ResponseCacheTest : public test_support::CacheTest {
  protected:
    static void sql(const char *statements) { test_support::runSql(kResponseCache, statements); }
    // Whether a thread of this process waits for a lock on a file.
    static bool isWaiting() {
        std::ifstream locks("/proc/locks");
        for (std::string line; std::getline(locks, line);)
            if (line.contains("-> FLOCK") && line.contains(" " + std::to_string(getpid()) + " "))
                return true;
        return false;
    }
};

TEST_F(ResponseCacheTest, AnAnswerIsWrittenOnceAndDeleted) {
    ASSERT_EQ(create(), 0);
    takeCacheChanged();
    EXPECT_EQ(create(), 0);
    EXPECT_EQ(read("vlan_list"), "(10023)");
    EXPECT_EQ(restapi_db_operation(2, "vlan_list", nullptr), 0);
    EXPECT_FALSE(takeCacheChanged());

    EXPECT_EQ(write("vlan_list", "{\"a\":1}"), 101);
    EXPECT_TRUE(takeCacheChanged());
    EXPECT_EQ(write("vlan_list", "{\"a\":1}"), 1);
    EXPECT_FALSE(takeCacheChanged());
    EXPECT_EQ(delta(), "vlan_list\n");
    EXPECT_EQ(restapi_db_operation(5, "vlan_list", "{\"a\":12}"), 101);
    EXPECT_EQ(restapi_db_operation(5, "vlan_list", "{\"a\":12"), 101);
    EXPECT_EQ(write("other", ""), 101);
    EXPECT_EQ(write("other", ""), 1);
    EXPECT_EQ(read("vlan_list") + read("other"), "{\"a\":12");

    takeCacheChanged();
    EXPECT_EQ(erase("vlan_list"), 0);
    EXPECT_TRUE(takeCacheChanged());
    EXPECT_EQ(read("vlan_list"), "(10023)");
    EXPECT_EQ(delta(), "vlan_list\nvlan_list\nvlan_list\nother\nvlan_list\n");
    EXPECT_EQ(logged("ERROR"), 0u);

    for (const int operation : {-1, 0, 4, 7}) {
        EXPECT_EQ(restapi_db_operation(operation, "other", "x"), -1);
        EXPECT_EQ(logged("Invalid operation " + std::to_string(operation) + "\n"), 1u);
    }
    sql("update restapi_db set data = null");
    EXPECT_EQ(read("other"), "(10023)");
    EXPECT_EQ(write("other", ""), 101) << "nothing is not an empty text";
}

TEST_F(ResponseCacheTest, NamesAndAnswersAreData) {
    ASSERT_EQ(create(), 0);
    const std::string names[] = {
        "x'; DROP TABLE restapi_db; --", "x' OR '1'='1", "neighbor_ex/0", "\"%s%n\"",
        std::string(400, 'n') + "'",  // longer than a statement would be in a buffer
    };
    ASSERT_EQ(write("bystander", "'"), 101);
    std::string lines = "bystander\n";
    for (const auto &name : names) {
        EXPECT_EQ(write(name.c_str(), ("'" + name).c_str()), 101);
        EXPECT_EQ(read(name.c_str()), "'" + name);
        EXPECT_EQ(erase(name.c_str()), 0);
        EXPECT_EQ(read(name.c_str()), "(10023)");
        lines += name + "\n" + name + "\n";
    }
    EXPECT_EQ(read("bystander"), "'");

    // What would be more than one line of the delta file, or none, and what is missing.
    for (const char *name : {"a\nvlan_list", "a\rb", "", static_cast<const char *>(nullptr)}) {
        EXPECT_EQ(write(name, "x"), SQLITE_MISUSE);
        EXPECT_EQ(erase(name), SQLITE_MISUSE);
    }
    EXPECT_EQ(write("a", nullptr), SQLITE_MISUSE);
    EXPECT_EQ(delta(), lines);
    char text[] = "not mine";
    char *out = text;
    EXPECT_EQ(restapi_db_read(nullptr, &out), 10003);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(restapi_db_read("a", nullptr), 10003);
}

TEST_F(ResponseCacheTest, AMissingFileOrTableIsLoggedOnceAndNotMade) {
    const auto expectEach = [&](int code, const std::string &use, const std::string &deletion,
                                const std::string &reason) {
        const auto before = log().size();
        EXPECT_TRUE(write("a", "x") == code && erase("a") == code && read("a") == "(10000)");
        const auto lines = log().substr(before);
        for (const auto &what : {use, deletion, "restapi_db_read(): " + use})
            EXPECT_TRUE(lines.contains("] " + what + reason)) << what;
        EXPECT_EQ(test_support::occurrences(lines, "ERROR"), 3u);
    };
    const std::string cannotOpen = "Can't open database";
    expectEach(SQLITE_CANTOPEN, cannotOpen, cannotOpen, ": unable to open database file\n");
    EXPECT_FALSE(exists(kResponseCache)) << "only creating makes it";
    sql("create table other(id)");
    expectEach(SQLITE_ERROR, "prepare failed", "SQL error", ": no such table: restapi_db\n");
    EXPECT_FALSE(exists(kResponseCacheDelta));

    // A view in the table's place can be read but not written.
    sql("create view restapi_db as select 'a' as api_name, 'x' as data");
    EXPECT_EQ(write("a", "x"), 1);
    EXPECT_EQ(write("a", "y"), SQLITE_ERROR);
    EXPECT_EQ(delta(), "a\n");
}

// Any one failure of the disk and of memory, at each point of each operation.
TEST_F(ResponseCacheTest, EveryFailureLeavesTheOldAnswerOrTheNewOne) {
    const std::string old(9000, 'o'), fresh(9000, 'n');  // on more than one page
    ASSERT_EQ(create(), 0);
    ASSERT_EQ(write("a", old.c_str()), 101);
    fs::remove(fsPath(kResponseCacheDelta));
    const struct {
        const char *what;
        int done;
        std::string answer;  // then
        std::function<int()> operate;
    } operations[] = {
        {"create", 0, old, create},
        {"write", 101, fresh, [&] { return write("a", fresh.c_str()); }},
        {"delete", 0, "(10023)", [] { return erase("a"); }},
        {"read", 0, old,
         [&] {
             const auto seen = read("a");
             EXPECT_TRUE(seen == old || seen == "(10000)") << seen;
             return seen == old ? 0 : 10000;
         }},
        {"list", 0, old,
         [] {
             const auto seen = listCachedAnswers();
             EXPECT_TRUE(!seen || (seen->size() == 1 && (*seen)[0].size == 9000));
             return codeOf(seen);
         }},
    };
    test_support::SqliteFaults().sweep(
        kResponseCache, operations, [&](const auto &operation, int code, std::size_t failures) {
            EXPECT_EQ(failures, code == operation.done ? 0 : 1) << code;
            EXPECT_EQ(read("a"), failures == 0 ? operation.answer : old) << code;
            EXPECT_TRUE(read("a") == old || delta() == "a\n") << "who reads the file is told";
            fs::remove(fsPath(kResponseCacheDelta));
        });
    EXPECT_EQ(logged("made anew"), 0u);
}

TEST_F(ResponseCacheTest, ALockedDatabaseIsWaitedForOnce) {
    ASSERT_EQ(create(), 0);
    ASSERT_EQ(write("a", "x"), 101);
    const test_support::SqliteFaults faults;
    sqlite3 *other = nullptr;
    ASSERT_EQ(sqlite3_open(fsPath(kResponseCache).c_str(), &other), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(other, "begin exclusive", nullptr, nullptr, nullptr), SQLITE_OK);
    const std::pair<std::string, std::function<bool()>> operations[] = {
        {"prepare failed", [] { return write("a", "y") == SQLITE_BUSY; }},
        {"restapi_db_read(): prepare failed", [] { return read("a") == "(10000)"; }},
        {"SQL error", [] { return create() == SQLITE_BUSY; }}};
    for (const auto &[line, isBusy] : operations) {
        EXPECT_TRUE(isBusy());
        EXPECT_EQ(faults.takeWaited(), std::chrono::milliseconds(3000)) << line;
        EXPECT_EQ(logged("] " + line + ": database is locked\n"), 1u);
    }
    EXPECT_EQ(logged("ERROR"), 3u);
    sqlite3_close(other);
    EXPECT_EQ(read("a"), "x");
}

TEST_F(ResponseCacheTest, ALineOfTheDeltaFileStandsByItself) {
    ASSERT_EQ(create(), 0);
    ASSERT_EQ(write("a", "old"), 101);
    std::string lines(65532, 'x');
    lines += '\n';
    writeText(kResponseCacheDelta, lines);
    {
        const test_support::FullDisk disk(65536);
        EXPECT_EQ(write("a_long_name", "x"), SQLITE_CANTOPEN);
        EXPECT_EQ(logged("] Unable to open delta file\n"), 1u);
        EXPECT_EQ(read("a_long_name"), "(10023)") << "who cannot be told about the change does not get it";
        EXPECT_EQ(erase("b"), 0);
    }
    EXPECT_EQ(write("a", "new"), 101);
    EXPECT_EQ(write("b", "new"), 101);
    EXPECT_EQ(delta(), lines + "a_l\na\nb\n");
}

TEST_F(ResponseCacheTest, ADamagedFileIsMadeAnewOnce) {
    writeText(kResponseCache, std::string(4096, 'x'));
    EXPECT_EQ(write("a", "x"), SQLITE_NOTADB);
    EXPECT_EQ(read("a"), "(10000)");
    EXPECT_EQ(create(), 0);
    EXPECT_EQ(logged("/tmp/restapi_db is damaged and made anew\n"), 1u);
    EXPECT_EQ(write("a", std::string(20000, 'x').c_str()), 101);

    // The first page is sound, the ones behind it are not: what a writer that was killed can leave behind.
    auto bytes = readFile(kResponseCache);
    ASSERT_GT(bytes.size(), 12288u);
    std::fill(bytes.begin() + 4096, bytes.end(), '\xff');
    writeText(kResponseCache, bytes);
    EXPECT_EQ(read("a"), "(10000)");
    EXPECT_EQ(logged("] restapi_db_read(): step rc=11: database disk image is malformed\n"), 1u);
    // Of those who come together, none deletes what another one has made and filled.
    std::vector<std::jthread> threads;
    for (const char *const name : {"b", "c", "d", "e"})
        threads.emplace_back([name] {
            EXPECT_EQ(create(), 0);
            EXPECT_EQ(write(name, "y"), 101);
        });
    threads.clear();
    EXPECT_EQ(read("b") + read("c") + read("d") + read("e"), "yyyy");
    EXPECT_EQ(read("a"), "(10023)");
    EXPECT_EQ(logged("made anew"), 2u);

    const std::string target = fsPath("/tmp/target");
    fs::remove(fsPath(kResponseCache));
    fs::create_symlink(target, fsPath(kResponseCache));
    EXPECT_EQ(create(), SQLITE_CANTOPEN);
    EXPECT_EQ(write("a", "x"), SQLITE_CANTOPEN);
    EXPECT_FALSE(fs::exists(target));
    fs::remove(fsPath(kResponseCache));
    ASSERT_EQ(mkfifo(fsPath(kResponseCache).c_str(), 0600), 0);
    EXPECT_EQ(create(), SQLITE_CANTOPEN) << "and nobody waits for the other end of a pipe";
    EXPECT_EQ(read("a"), "(10000)");
}

TEST_F(ResponseCacheTest, LockNamesStayInTheirFolder) {
    const std::string target = fsPath("/tmp/target"), longest(108, 'n'), tooLong = longest + "n";
    int fd = 7;
    EXPECT_EQ(rest_db_lock_acquire("a", nullptr), -1);
    EXPECT_EQ(rest_db_lock_acquire(nullptr, &fd), -1);
    EXPECT_EQ(rest_db_lock_acquire("", &fd), -1);
    EXPECT_EQ(logged("] rest_db_lock_acquire: empty api_name\n"), 2u);
    EXPECT_FALSE(exists(kApiLockDir));
    ASSERT_EQ(rest_db_lock_acquire(longest.c_str(), &fd), 0);
    rest_db_lock_release(fd);
    fs::create_symlink(target, lockPath("linked"));
    const std::pair<std::string, std::string> refused[] = {
        {tooLong, "path too long for '" + tooLong + "'\n"},
        {"linked", "open(/tmp/api_lock/linked.lock) failed: Too many levels"},
        {"../evil", "open(/tmp/api_lock/../evil.lock) failed: Invalid argument\n"},
        {"profile/list_ex", "open(/tmp/api_lock/profile/list_ex.lock) failed: Invalid argument\n"},
        {"a..b", "open(/tmp/api_lock/a..b.lock) failed: Invalid argument\n"}};
    for (const auto &[name, reason] : refused) {
        EXPECT_EQ(rest_db_lock_acquire(name.c_str(), &fd), -1);
        EXPECT_EQ(fd, -1);
        EXPECT_EQ(logged("] rest_db_lock_acquire: " + reason), 1u) << name;
    }
    EXPECT_EQ(std::distance(fs::directory_iterator(fsPath(kApiLockDir)), {}), 2);
    EXPECT_FALSE(fs::exists(target));
    // A link as the folder
    fs::remove_all(fsPath(kApiLockDir));
    fs::create_directory(target);
    fs::create_directory_symlink(target, fsPath(kApiLockDir));
    EXPECT_EQ(rest_db_lock_acquire("a", &fd), -1);
    EXPECT_TRUE(fs::is_empty(target));
}

TEST_F(ResponseCacheTest, LockFileAndDescriptor) {
    // With standard input closed the lowest descriptor is 0, which release would take for none.
    const int input = dup(0);
    close(0);
    int fd = -1;
    EXPECT_EQ(rest_db_lock_acquire("a", &fd), 0);
    dup2(input, 0);
    close(input);
    ASSERT_GE(fd, 1);
    EXPECT_TRUE(isLocked("a"));
    EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);
    struct stat info{};
    ASSERT_EQ(fstat(fd, &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
    EXPECT_EQ(fs::status(fsPath(kApiLockDir)).permissions(), fs::perms(0755));
    for (const int descriptor : {0, -1, fd})
        rest_db_lock_release(descriptor);
    EXPECT_FALSE(isLocked("a"));
    EXPECT_EQ(fcntl(fd, F_GETFD), -1) << "closed";
    EXPECT_EQ(logged("ERROR"), 0u);
    rest_db_lock_release(fd);
    EXPECT_EQ(logged("] rest_db_lock_release: flock unlock failed: Bad file descriptor\n"), 1u);
}

TEST_F(ResponseCacheTest, AThreadWaitsForALockAlsoWhenTheFolderIsDeleted) {
    // Who waited for a lock on a file that is gone has a lock on nothing.
    int first = -1;
    ASSERT_EQ(rest_db_lock_acquire("a", &first), 0);
    const std::jthread second([] {
        const ApiLock lock("a");
        EXPECT_TRUE(lock.held() && isLocked("a")) << "the file that others see";
    });
    while (!isWaiting())
        std::this_thread::yield();
    fs::remove_all(fsPath(kApiLockDir));
    rest_db_lock_release(first);
}

TEST_F(ResponseCacheTest, OneSignalForTheThreadOfTheWebServer) {
    static std::atomic<int> signals = 0;
    static std::atomic<pid_t> by = 0;
    const auto before = std::signal(SIGINT, [](int) {
        by = gettid();
        ++signals;
    });
    const auto self = std::to_string(getpid());
    const auto sendTo = [](const std::string &line) {
        writeText(kWebServerPid, line);
        send_signal_to_ws();
    };
    send_signal_to_ws();  // no file
    std::jthread([&] {
        const auto caller = gettid();
        std::thread([&] { sendTo(self + " " + std::to_string(caller) + "\n"); }).join();
        EXPECT_EQ(by, caller);
    }).join();
    for (const std::string &none : {std::string("0 0\n"), std::string("0 5\n"), self + " 0"})
        sendTo(none);
    EXPECT_EQ(logged("ERROR"), 0u);

    for (const char *bad : {"", "x", "12", "12 x", "99999999999999999999 1", "\n12 12\n"})
        sendTo(bad);
    EXPECT_EQ(logged("] send_signal_to_ws(): Failed to parse integers from the file.\n"), 6u);
    sendTo("2147483647 2147483647");
    EXPECT_EQ(logged("] send_signal_to_ws(): cannot signal thread 2147483647 of process 2147483647: No such"),
              1u);
    fs::remove(fsPath(kWebServerPid));
    fs::create_directory(fsPath(kWebServerPid));
    send_signal_to_ws();
    EXPECT_EQ(logged("] send_signal_to_ws(): Unable to open file\n"), 1u);
    EXPECT_EQ(signals, 1);
    std::signal(SIGINT, before);
}

}  // namespace
