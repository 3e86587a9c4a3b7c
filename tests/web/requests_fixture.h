// A request as the web server hands it to its handler program, and sessions as files.
#ifndef PAVO_TESTS_WEB_REQUESTS_FIXTURE_H
#define PAVO_TESTS_WEB_REQUESTS_FIXTURE_H

#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>

#include "platform/paths.h"
#include "tests/support/switch_fixture.h"
#include "web/dispatch_ops.h"

namespace test_support {

class RequestTest : public SwitchTest {
  protected:
    using Variables = std::map<std::string, std::string>;

    void TearDown() override {
        setVariables({});
        SwitchTest::TearDown();
    }

    // What the tree prints for a request; variables that are not named are not set.
    std::string request(HttpdTree &tree, const Variables &variables) {
        setVariables(variables);
        testing::internal::CaptureStdout();
        httpdProcessRequest(tree);
        return testing::internal::GetCapturedStdout();
    }

    // Empty: no session of this token.
    static std::string session(const std::string &token) { return readFile(path(token).c_str()); }
    static void writeSession(const std::string &token, const std::string &text) {
        const auto dir = platform::fsPath(platform::paths::kSessionDir);
        mkdir(dir.c_str(), S_IRWXU);
        writeText(path(token).c_str(), text);
    }
    static std::string path(const std::string &name) {
        return platform::paths::kSessionDir + std::string("/") + name;
    }

  private:
    static void setVariables(const Variables &variables) {
        for (const char *const name : {"REQUEST_URI", "REQUEST_METHOD", "HTTP_SESSION", "HTTP_REFRESH",
                                       "QUERY_STRING", "CONTENT_LENGTH", "REMOTE_ADDR"}) {
            const auto found = variables.find(name);
            if (found != variables.end())
                setenv(name, found->second.c_str(), 1);
            else
                unsetenv(name);
        }
    }
};

}  // namespace test_support

#endif
