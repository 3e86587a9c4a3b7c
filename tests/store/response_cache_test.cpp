#include "store/response_cache.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "common/json.h"
#include "store/response_cache_ops.h"
#include "tests/support/switch_fixture.h"

namespace {

namespace fs = std::filesystem;
using namespace pavo;
using platform::paths::kApiLockDir;
using platform::paths::kResponseCache;
using platform::paths::kResponseCacheDelta;
using platform::paths::kWebServerPid;
using test_support::exists;
using test_support::readFile;
using test_support::writeText;

class ResponseCacheTest : public test_support::SwitchTest {
  protected:
    void SetUp() override {
        SwitchTest::SetUp();
        takeCacheChanged();
    }

    static int write(const char *name, const char *data) { return restapi_db_operation(3, name, data); }

    // What is stored; the code in parentheses when nothing is.
    static std::string read(const char *name) {
        char *text = nullptr;
        const auto code = restapi_db_read(name, &text);
        const TextPtr owned(text);
        return code == 0 ? text : "(" + std::to_string(code) + ")" + (text != nullptr ? text : "");
    }
    static std::string delta() { return readFile(kResponseCacheDelta); }

    // Changes the file behind the cache's back.
    static void sql(const char *statements) {
        sqlite3 *db = nullptr;
        ASSERT_EQ(sqlite3_open(platform::fsPath(kResponseCache).c_str(), &db), SQLITE_OK);
        EXPECT_EQ(sqlite3_exec(db, statements, nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(db);
        sqlite3_close(db);
    }

    static std::string lockPath(const std::string &name) {
        return platform::fsPath(kApiLockDir) + "/" + name + ".lock";
    }
    static bool isLocked(const std::string &name) {
        const int fd = open(lockPath(name).c_str(), O_RDWR | O_CLOEXEC);
        EXPECT_GE(fd, 0);
        const bool locked = flock(fd, LOCK_EX | LOCK_NB) != 0;
        close(fd);
        return locked;
    }
};

TEST_F(ResponseCacheTest, AnAnswerIsWrittenOnceAndDeleted) {
    ASSERT_EQ(restapi_db_operation(1, nullptr, nullptr), 0);
    EXPECT_EQ(restapi_db_operation(1, nullptr, nullptr), 0);
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
    EXPECT_EQ(read("vlan_list"), "{\"a\":12");
    EXPECT_EQ(read("other"), "");
    EXPECT_EQ(restapi_db_operation(2, "vlan_list", nullptr), 0);

    takeCacheChanged();
    EXPECT_EQ(restapi_db_operation(6, "vlan_list", nullptr), 0);
    EXPECT_TRUE(takeCacheChanged());
    EXPECT_EQ(read("vlan_list"), "(10023)");
    EXPECT_EQ(delta(), "vlan_list\nvlan_list\nvlan_list\nother\nvlan_list\n");
    EXPECT_EQ(logged("ERROR"), 0u);

    for (const int operation : {-1, 0, 4, 7, 1000}) {
        EXPECT_EQ(restapi_db_operation(operation, "other", "x"), -1);
        EXPECT_EQ(logged("Invalid operation " + std::to_string(operation) + "\n"), 1u);
    }
    sql("update restapi_db set data = null");
    EXPECT_EQ(read("other"), "(10023)");
    EXPECT_EQ(write("other", ""), 101) << "nothing is not an empty text";
}

TEST_F(ResponseCacheTest, NamesAndAnswersAreData) {
    ASSERT_EQ(restapi_db_operation(1, nullptr, nullptr), 0);
    const std::vector<std::string> names = {
        "x'; DROP TABLE restapi_db; --", "x' OR '1'='1", "neighbor_ex/0", "\"%s%n\"",
        std::string(400, 'n') + "'",  // longer than a statement would be in a buffer
    };
    ASSERT_EQ(write("bystander", "'"), 101);
    std::string lines = "bystander\n";
    for (const auto &name : names) {
        EXPECT_EQ(write(name.c_str(), ("'" + name).c_str()), 101);
        EXPECT_EQ(read(name.c_str()), "'" + name);
        EXPECT_EQ(restapi_db_operation(6, name.c_str(), nullptr), 0);
        EXPECT_EQ(read(name.c_str()), "(10023)");
        lines += name + "\n" + name + "\n";
    }
    EXPECT_EQ(read("bystander"), "'");
    EXPECT_EQ(delta(), lines);

    // What would be more than one line of the delta file, or none, and what is missing.
    takeCacheChanged();
    for (const char *name : {"a\nvlan_list", "a\rb", "", static_cast<const char *>(nullptr)}) {
        EXPECT_EQ(write(name, "x"), SQLITE_MISUSE);
        EXPECT_EQ(restapi_db_operation(6, name, nullptr), SQLITE_MISUSE);
    }
    EXPECT_EQ(write("a", nullptr), SQLITE_MISUSE);
    EXPECT_EQ(delta(), lines);
    EXPECT_FALSE(takeCacheChanged());
    char *text = nullptr;
    EXPECT_EQ(restapi_db_read(nullptr, &text), 10003);
    EXPECT_EQ(restapi_db_read("a", nullptr), 10003);
}

TEST_F(ResponseCacheTest, FailuresAreLoggedOnceAndLoseNothing) {
    EXPECT_EQ(write("a", "x"), SQLITE_CANTOPEN);
    EXPECT_EQ(restapi_db_operation(6, "a", nullptr), SQLITE_CANTOPEN);
    EXPECT_EQ(logged("[restapi_db_operation:"), 2u);
    EXPECT_EQ(logged("] Can't open database: unable to open database file\n"), 2u);
    EXPECT_EQ(read("a"), "(10000)");
    EXPECT_EQ(logged("] restapi_db_read(): Can't open database: unable to open database file\n"), 1u);
    EXPECT_FALSE(exists(kResponseCache)) << "only creating makes it";

    sql("create table other(id)");
    EXPECT_EQ(write("a", "x"), SQLITE_ERROR);
    EXPECT_EQ(logged("] prepare failed: no such table: restapi_db\n"), 1u);
    EXPECT_EQ(restapi_db_operation(6, "a", nullptr), SQLITE_ERROR);
    EXPECT_EQ(logged("] SQL error: no such table: restapi_db\n"), 1u);
    EXPECT_EQ(read("a"), "(10000)");
    EXPECT_EQ(logged("] restapi_db_read(): prepare failed: no such table: restapi_db\n"), 1u);
    EXPECT_EQ(logged("ERROR"), 6u);
    EXPECT_FALSE(exists(kResponseCacheDelta));

    // Who could not be told about the change does not get it.
    ASSERT_EQ(restapi_db_operation(1, nullptr, nullptr), 0);
    ASSERT_EQ(write("a", "old"), 101);
    fs::remove(platform::fsPath(kResponseCacheDelta));
    const std::string target = platform::fsPath("/tmp/target");
    fs::create_symlink(target, platform::fsPath(kResponseCacheDelta));
    EXPECT_EQ(write("a", "new"), SQLITE_CANTOPEN);
    EXPECT_EQ(logged("] Unable to open delta file\n"), 1u);
    EXPECT_EQ(read("a"), "old");
    EXPECT_EQ(restapi_db_operation(6, "a", nullptr), 0);
    EXPECT_FALSE(fs::exists(target));

    // A view in the table's place can be read but not written.
    sql("drop table restapi_db; create view restapi_db as select 'a' as api_name, 'x' as data");
    EXPECT_EQ(write("a", "x"), 1);
    fs::remove(platform::fsPath(kResponseCacheDelta));
    EXPECT_EQ(write("a", "y"), SQLITE_ERROR);
    EXPECT_EQ(delta(), "a\n");
}

TEST_F(ResponseCacheTest, ADamagedFileOrALinkIsNotUsed) {
    writeText(kResponseCache, std::string(4096, 'x'));
    EXPECT_EQ(write("a", "x"), SQLITE_NOTADB);
    EXPECT_EQ(read("a"), "(10000)");
    EXPECT_EQ(restapi_db_operation(1, nullptr, nullptr), 0);
    EXPECT_EQ(logged("/tmp/restapi_db is damaged and made anew\n"), 1u);
    EXPECT_EQ(write("a", std::string(20000, 'x').c_str()), 101);

    // The first page is sound, the ones behind it are not: what a writer that was killed can leave behind.
    auto bytes = readFile(kResponseCache);
    ASSERT_GT(bytes.size(), 12288u);
    std::fill(bytes.begin() + 4096, bytes.end(), '\xff');
    writeText(kResponseCache, bytes);
    EXPECT_EQ(read("a"), "(10000)");
    EXPECT_EQ(logged("] restapi_db_read(): step rc=11: database disk image is malformed\n"), 1u);
    EXPECT_EQ(restapi_db_operation(1, nullptr, nullptr), 0);
    EXPECT_EQ(read("a"), "(10023)");

    const std::string target = platform::fsPath("/tmp/target");
    fs::remove(platform::fsPath(kResponseCache));
    fs::create_symlink(target, platform::fsPath(kResponseCache));
    EXPECT_EQ(restapi_db_operation(1, nullptr, nullptr), SQLITE_CANTOPEN);
    EXPECT_EQ(write("a", "x"), SQLITE_CANTOPEN);
    EXPECT_FALSE(fs::exists(target));
}

TEST_F(ResponseCacheTest, LockNamesStayInTheirFolder) {
    int fd = 7;
    EXPECT_EQ(rest_db_lock_acquire("a", nullptr), -1);
    for (const char *name : {"", static_cast<const char *>(nullptr)}) {
        EXPECT_EQ(rest_db_lock_acquire(name, &fd), -1);
        EXPECT_EQ(fd, -1);
    }
    EXPECT_EQ(logged("[rest_db_lock_acquire:"), 2u);
    EXPECT_EQ(logged("] rest_db_lock_acquire: empty api_name\n"), 2u);
    EXPECT_FALSE(exists(kApiLockDir));

    for (const char *name : {"profile/list_ex", "../evil", "..", "a..b", "/etc/evil"})
        EXPECT_EQ(rest_db_lock_acquire(name, &fd), -1) << name;
    EXPECT_EQ(logged("] rest_db_lock_acquire: open(/tmp/api_lock/../evil.lock) failed: Invalid argument\n"),
              1u);
    EXPECT_TRUE(fs::is_empty(platform::fsPath(kApiLockDir)));
    EXPECT_FALSE(exists("/tmp/evil.lock"));

    // "/tmp/api_lock/" and ".lock" are 19 characters.
    EXPECT_EQ(rest_db_lock_acquire(std::string(109, 'n').c_str(), &fd), -1);
    EXPECT_EQ(logged("] rest_db_lock_acquire: path too long for '" + std::string(109, 'n') + "'\n"), 1u);
    ASSERT_EQ(rest_db_lock_acquire(std::string(108, 'n').c_str(), &fd), 0);
    rest_db_lock_release(fd);

    // Links, as the file and as the folder.
    const std::string target = platform::fsPath("/tmp/target");
    fs::create_symlink(target, lockPath("linked"));
    EXPECT_EQ(rest_db_lock_acquire("linked", &fd), -1);
    EXPECT_EQ(logged("] rest_db_lock_acquire: open(/tmp/api_lock/linked.lock) failed: Too many levels"), 1u);
    EXPECT_FALSE(fs::exists(target));
    fs::remove_all(platform::fsPath(kApiLockDir));
    fs::create_directory(target);
    fs::create_directory_symlink(target, platform::fsPath(kApiLockDir));
    EXPECT_EQ(rest_db_lock_acquire("a", &fd), -1);
    EXPECT_TRUE(fs::is_empty(target));

    fs::remove_all(platform::fsPath("/tmp"));
    EXPECT_EQ(rest_db_lock_acquire("a", &fd), -1);
    fs::create_directory(platform::fsPath("/tmp"));
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
    EXPECT_EQ(fs::status(platform::fsPath(kApiLockDir)).permissions(), fs::perms(0755));
    rest_db_lock_release(0);
    rest_db_lock_release(-1);
    rest_db_lock_release(fd);
    EXPECT_FALSE(isLocked("a"));
    EXPECT_EQ(fcntl(fd, F_GETFD), -1) << "closed";
    EXPECT_EQ(logged("ERROR"), 0u);

    rest_db_lock_release(fd);
    EXPECT_EQ(logged("] rest_db_lock_release: flock unlock failed: Bad file descriptor\n"), 1u);
}

TEST_F(ResponseCacheTest, ThreadsExcludeEachOtherAlsoWhenTheFolderIsCleared) {
    std::atomic<int> inside = 0, worst = 0, done = 0;
    const auto work = [&] {
        for (int i = 0; i < 50; ++i) {
            const ApiLock lock("a");
            ASSERT_TRUE(lock.held());
            const int now = ++inside;
            worst = std::max(worst.load(), now);
            std::this_thread::yield();
            --inside;
            ++done;
        }
    };
    {
        std::vector<std::jthread> threads;
        for (int i = 0; i < 4; ++i)
            threads.emplace_back(work);
    }
    EXPECT_EQ(worst, 1);
    EXPECT_EQ(done, 200);

    // Who waited for a lock on a file that is gone has a lock on nothing.
    int first = -1;
    ASSERT_EQ(rest_db_lock_acquire("a", &first), 0);
    std::atomic<bool> entered = false;
    std::jthread second([&] {
        const ApiLock lock("a");
        entered = true;
        EXPECT_TRUE(isLocked("a")) << "the file that others see";
    });
    fs::remove(lockPath("a"));
    rest_db_lock_release(first);
    second.join();
    EXPECT_TRUE(entered);
}

TEST_F(ResponseCacheTest, OneSignalForTheThreadOfTheWebServer) {
    static std::atomic<int> signals = 0;
    static std::atomic<pid_t> by = 0;
    struct sigaction action{}, before{};
    action.sa_handler = [](int) {
        by = gettid();
        ++signals;
    };
    sigaction(SIGINT, &action, &before);
    const auto sendTo = [](const std::string &line) {
        writeText(kWebServerPid, line);
        send_signal_to_ws();
    };
    send_signal_to_ws();
    EXPECT_EQ(logged("ERROR"), 0u);

    std::atomic<pid_t> other = 0;
    std::jthread thread([&](const std::stop_token &stop) {
        other = gettid();
        while (!stop.stop_requested())
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    });
    while (other == 0)
        std::this_thread::yield();
    const auto self = std::to_string(getpid());
    sendTo(self + " " + std::to_string(other) + "\n");
    while (signals == 0)
        std::this_thread::yield();
    EXPECT_EQ(by, other);

    for (const char *none : {"0 0\n", "0 5\n"})
        sendTo(none);
    sendTo(self + " 0");
    EXPECT_EQ(signals, 1);
    EXPECT_EQ(logged("ERROR"), 0u);
    for (const char *bad : {"", "x", "12", "12 x", "99999999999999999999 1", "\n12 12\n"})
        sendTo(bad);
    EXPECT_EQ(logged("] send_signal_to_ws(): Failed to parse integers from the file.\n"), 6u);
    sendTo("2147483647 2147483647");
    EXPECT_EQ(
        logged(
            "] send_signal_to_ws(): cannot signal thread 2147483647 of process 2147483647: No such process"),
        1u);
    fs::remove(platform::fsPath(kWebServerPid));
    fs::create_directory(platform::fsPath(kWebServerPid));
    send_signal_to_ws();
    EXPECT_EQ(logged("] send_signal_to_ws(): Unable to open file\n"), 1u);
    EXPECT_EQ(signals, 1);
    sigaction(SIGINT, &before, nullptr);
}

}  // namespace
