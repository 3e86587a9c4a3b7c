// A database changed behind the program's back.
#ifndef PAVO_TESTS_SUPPORT_SQL_H
#define PAVO_TESTS_SUPPORT_SQL_H

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>
#include <string>

#include "platform/paths.h"

namespace test_support {

// The file and its folder are made when there are none.
inline void sql(const char *fixedPath, const std::string &statements) {
    const std::filesystem::path path = platform::fsPath(fixedPath);
    std::filesystem::create_directories(path.parent_path());
    sqlite3 *db = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open(path.c_str(), &db));
    EXPECT_EQ(SQLITE_OK, sqlite3_exec(db, statements.c_str(), nullptr, nullptr, nullptr))
        << sqlite3_errmsg(db);
    sqlite3_close(db);
}

}  // namespace test_support

#endif
