// The response cache as its users see it.
#ifndef PAVO_TESTS_SUPPORT_CACHE_FIXTURE_H
#define PAVO_TESTS_SUPPORT_CACHE_FIXTURE_H

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <string>

#include "common/json.h"
#include "store/response_cache_ops.h"
#include "tests/support/switch_fixture.h"

namespace test_support {

class CacheTest : public SwitchTest {
  protected:
    static int create() { return restapi_db_operation(1, nullptr, nullptr); }
    static int write(const char *name, const char *data) { return restapi_db_operation(3, name, data); }
    static int erase(const char *name) { return restapi_db_operation(6, name, nullptr); }
    // What is stored; the code in parentheses when nothing is.
    static std::string read(const std::string &name) {
        char *text = nullptr;
        const auto code = restapi_db_read(name.c_str(), &text);
        const TextPtr owned(text);
        return code == 0 ? text : "(" + std::to_string(code) + ")" + (text != nullptr ? text : "");
    }
    static std::string delta() { return readFile(platform::paths::kResponseCacheDelta); }

    static std::string lockPath(const std::string &name) {
        return platform::fsPath(platform::paths::kApiLockDir) + "/" + name + ".lock";
    }
    static bool isLocked(const std::string &name) {
        const int fd = open(lockPath(name).c_str(), O_RDWR | O_CLOEXEC);
        EXPECT_GE(fd, 0);
        const bool locked = flock(fd, LOCK_EX | LOCK_NB) != 0;
        close(fd);
        return locked;
    }
};

}  // namespace test_support

#endif
