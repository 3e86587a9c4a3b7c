// Databases behind the program's back, and SQLite with faults.
#ifndef PAVO_TESTS_SUPPORT_SQLITE_H
#define PAVO_TESTS_SUPPORT_SQLITE_H

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <utility>

#include "tests/support/root.h"

namespace test_support {

// The file and its folder are made when there are none.
inline void runSql(const char *fixedPath, const std::string &statements) {
    const std::filesystem::path path = platform::fsPath(fixedPath);
    std::filesystem::create_directories(path.parent_path());
    sqlite3 *db = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open(path.c_str(), &db));
    EXPECT_EQ(SQLITE_OK, sqlite3_exec(db, statements.c_str(), nullptr, nullptr, nullptr))
        << sqlite3_errmsg(db);
    sqlite3_close(db);
}

// A disk and memory of which one call fails, and locks that are waited for in no time. In force as long as it
// lives; no connection may be open when it begins and ends.
class SqliteFaults {
  public:
    SqliteFaults() {
        sqlite3_shutdown();
        sqlite3_config(SQLITE_CONFIG_GETMALLOC, &realMemory_);
        sqlite3_mem_methods memory = realMemory_;
        memory.xMalloc = [](int size) { return fails(Kind::Memory) ? nullptr : realMemory_.xMalloc(size); };
        memory.xRealloc = [](void *old, int size) {
            return fails(Kind::Memory) ? nullptr : realMemory_.xRealloc(old, size);
        };
        sqlite3_config(SQLITE_CONFIG_MALLOC, &memory);
        sqlite3_config(SQLITE_CONFIG_LOOKASIDE, 0, 0);  // memory that would not be asked for
        sqlite3_initialize();
        realDisk_ = sqlite3_vfs_find(nullptr);
        disk_ = *realDisk_;
        disk_.zName = "faults";
        disk_.xOpen = open;
        // Nor is the real disk waited for.
        disk_.xDelete = [](sqlite3_vfs *, const char *path, int) {
            return realDisk_->xDelete(realDisk_, path, 0);
        };
        disk_.xSleep = [](sqlite3_vfs *, int microseconds) {
            waited_ += std::chrono::microseconds(microseconds);
            return microseconds;
        };
        sqlite3_vfs_register(&disk_, 1);
    }
    SqliteFaults(const SqliteFaults &) = delete;
    SqliteFaults &operator=(const SqliteFaults &) = delete;
    ~SqliteFaults() {
        sqlite3_vfs_unregister(&disk_);
        sqlite3_shutdown();
        sqlite3_config(SQLITE_CONFIG_MALLOC, &realMemory_);
        sqlite3_config(SQLITE_CONFIG_LOOKASIDE, 1200, 40);
    }

    // Has each operation meet one failure after the other, at the first call of the disk and so on, then of
    // memory, over the same database. check(operation, result, failures) follows each time, without failures
    // of its own; `failures` are those that were logged, of which there is one at most.
    template <class Operations, class Check>
    static void sweep(const char *fixedPath, const Operations &operations, Check check) {
        const std::string database = readFile(fixedPath);
        const auto errors = [] { return occurrences(readFile(platform::paths::kLogFile), "ERROR"); };
        for (const auto &operation : operations)
            for (const Kind kind : {Kind::Disk, Kind::Memory}) {
                int nth = 0;
                do {
                    SCOPED_TRACE(std::string(operation.what) +
                                 (kind == Kind::Disk ? ", disk " : ", memory ") + std::to_string(nth + 1));
                    if (readFile(fixedPath) != database)
                        writeText(fixedPath, database);
                    const std::size_t before = errors();
                    kind_ = kind;
                    left_ = ++nth;
                    const auto result = operation.operate();
                    left_ = 0;
                    const std::size_t failures = errors() - before;
                    EXPECT_LE(failures, 1u);
                    check(operation, result, failures);
                } while (std::exchange(struck_, false));
                EXPECT_GT(nth, 3) << "some have struck";
            }
    }

    // How long locks have been waited for since the last call.
    static std::chrono::milliseconds takeWaited() {
        return std::chrono::duration_cast<std::chrono::milliseconds>(
            std::exchange(waited_, std::chrono::microseconds(0)));
    }

  private:
    enum class Kind { Disk, Memory };

    static bool fails(Kind kind) {
        if (kind != kind_ || left_ == 0 || --left_ > 0)
            return false;
        return struck_ = true;
    }
    static int open(sqlite3_vfs *, const char *path, sqlite3_file *file, int flags, int *done) {
        file->pMethods = nullptr;
        const int code =
            fails(Kind::Disk) ? SQLITE_CANTOPEN : realDisk_->xOpen(realDisk_, path, file, flags, done);
        if (file->pMethods == nullptr)
            return code;
        const bool isDatabase = (flags & SQLITE_OPEN_MAIN_DB) != 0;
        sqlite3_io_methods &methods = isDatabase ? file_ : journal_;
        methods = *file->pMethods;
        methods.iVersion = 1;  // no memory mapping
        methods.xSync = [](sqlite3_file *, int) { return SQLITE_OK; };
        if (isDatabase)
            addFaults(*file->pMethods);
        file->pMethods = &methods;
        return code;
    }
    static void addFaults(const sqlite3_io_methods &real) {
        realFile_ = real;
        file_.xRead = [](sqlite3_file *f, void *bytes, int size, sqlite3_int64 at) {
            return fails(Kind::Disk) ? SQLITE_IOERR_READ : realFile_.xRead(f, bytes, size, at);
        };
        file_.xWrite = [](sqlite3_file *f, const void *bytes, int size, sqlite3_int64 at) {
            return fails(Kind::Disk) ? SQLITE_FULL : realFile_.xWrite(f, bytes, size, at);
        };
        file_.xLock = [](sqlite3_file *f, int level) {
            return fails(Kind::Disk) ? SQLITE_IOERR_LOCK : realFile_.xLock(f, level);
        };
        file_.xFileSize = [](sqlite3_file *f, sqlite3_int64 *size) {
            return fails(Kind::Disk) ? SQLITE_IOERR_FSTAT : realFile_.xFileSize(f, size);
        };
    }

    static inline sqlite3_mem_methods realMemory_;
    static inline sqlite3_vfs *realDisk_;
    static inline sqlite3_vfs disk_;
    static inline sqlite3_io_methods realFile_;
    static inline sqlite3_io_methods file_;
    static inline sqlite3_io_methods journal_;
    static inline Kind kind_;
    static inline int left_;  // calls until one fails; 0: none will
    static inline bool struck_;
    static inline std::chrono::microseconds waited_;
};

}  // namespace test_support

#endif
