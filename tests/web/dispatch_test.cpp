// Routing of requests, and the check of their sessions.
#include <sys/stat.h>

#include <cstdio>
#include <filesystem>

#include "tests/web/requests_fixture.h"

namespace {

using namespace pavo;
using namespace test_support;

constexpr std::uint32_t kGet = 0, kPost = 1;
constexpr const char *kJson = "Content-Type: application/json\r\n\r\n";
constexpr const char *kForbidden = "Status:403\r\n\r\n";

class DispatchTest : public RequestTest {
  protected:
    void SetUp() override {
        RequestTest::SetUp();
        add("/api/v2/vlan", "list", kGet, 0, [] { std::fputs("list", stdout); });
        add("", "status", kGet, 0, [] { std::fputs("old", stdout); });
        add("/", "status", kGet, 0, [] { std::fputs("status", stdout); });
        add("//api//v2/", "read", kGet, 1, [] { std::fputs("read", stdout); });
        add("/api/v2", "read", kPost, 1, [] { std::fputs("write", stdout); });
        add("/api/v2", "rule", kGet, 2, [] { std::fputs("rule", stdout); });
    }
    void add(const char *dir, const char *name, std::uint32_t method, std::uint32_t access,
             HttpdHandler handler) {
        ASSERT_EQ(0, httpdAddCContent(*tree, dir, name, method, access, handler));
    }
    std::string get(const std::string &uri, const std::string &token = "",
                    const std::string &method = "GET") {
        Variables variables{{"REQUEST_URI", uri}, {"REQUEST_METHOD", method}};
        if (!token.empty())
            variables["HTTP_SESSION"] = token;
        return request(*tree, variables);
    }

    std::unique_ptr<HttpdTree> tree = httpdTreeCreate();
};

TEST_F(DispatchTest, RequestsGoToTheirHandlers) {
    const struct {
        std::string uri, method, printed;
    } cases[] = {{"/api/v2/vlan/list?x=1", "GET", std::string(kJson) + "list"},
                 {"/api/v2//vlan/list", "get", std::string(kJson) + "list"},
                 {"/status?a=b", "GET", "status"},
                 {"status?x", "GET", "Invalid request path 'status?x'\n"},
                 {"", "GET", "Invalid request path ''\n"},
                 {"/api/v2/vlan/List", "GET", ""},
                 {"/api/v2/vlan/lis", "GET", ""},
                 {"/api/v2/vlan/list/", "GET", ""},
                 {"/api/v2/vlan/list", "HEAD", ""},
                 {"/api/v2/vlan/list?to=a/b", "GET", ""},
                 {"/status" + std::string(2000, '?'), "GET", "status"},
                 {std::string(2000, '/') + "status", "GET", ""},
                 {"/status" + std::string(2000, 'x'), "GET", ""}};
    for (const auto &[uri, method, printed] : cases)
        EXPECT_EQ(printed, get(uri, "", method)) << uri.substr(0, 80);
    EXPECT_EQ("", request(*tree, {})) << "no request";
    EXPECT_EQ("", request(*tree, {{"REQUEST_URI", "/status"}})) << "no method";
    EXPECT_EQ("", get("/new/\x1b[31m/leaf"));
    EXPECT_EQ("new", tree->root->firstChild->name);
    EXPECT_EQ(1u, logged("method not found:/new/.[31m/leaf\n.[31m\nleaf\n"));
    EXPECT_STREQ("PUT", httpdMethodName(3));
    EXPECT_STREQ("Invalid method '-1'", httpdMethodName(~0u));
}

TEST_F(DispatchTest, LevelsOfUsers) {
    const struct {
        const char *lines, *uri, *method;
        std::string printed;
    } cases[] = {{"admin\n0\n", "read", "POST", std::string(kJson) + "write"},
                 {"admin\n0\n", "rule", "GET", std::string(kJson) + "rule"},
                 {"eve\n0\nrw\n", "read", "POST", std::string(kJson) + "write"},
                 {"eve\n0\nrw\n", "rule", "GET", kForbidden},
                 {"eve\n0\nro\n", "read", "GET", std::string(kJson) + "read"},
                 {"eve\n0\nro\n", "read", "POST", kForbidden},
                 {"eve\n0\nro\n", "rule", "GET", kForbidden},
                 {"eve\n0\n", "read", "GET", kForbidden},
                 {"eve\n0\nxx\n", "read", "GET", kForbidden},
                 {"admin \n0\nro\n", "rule", "GET", kForbidden},
                 {"", "read", "GET", kForbidden}};
    for (const auto &[lines, uri, method, printed] : cases) {
        writeSession("t0ken-_", *lines != '\0' ? lines + std::string("t0ken-_") : "");
        EXPECT_EQ(printed, get(std::string("/api/v2/") + uri, "t0ken-_", method)) << lines << uri << method;
    }
    EXPECT_EQ(4u, logged("Permission denied, not a priviledged user\n"));
    EXPECT_EQ(1u, logged("Invalid priviledged level in user session\n"));
    EXPECT_EQ(7u, logged("403 Forbidden\n"));
}

TEST_F(DispatchTest, SessionsEndTwoHoursAfterTheirLastUse) {
    const std::string uri = "/api/v2/read";
    // The system has been up for 100,000 seconds.
    for (const std::string level : {"", "rw trailing\n"}) {
        const std::string user = level.empty() ? "admin\n" : "eve\n";
        writeSession("t", user + "92800\n" + level + "t");
        const Variables poll{
            {"REQUEST_URI", uri}, {"REQUEST_METHOD", "GET"}, {"HTTP_SESSION", "t"}, {"HTTP_REFRESH", ""}};
        EXPECT_EQ(std::string(kJson) + "read", request(*tree, poll));
        EXPECT_EQ(user + "92800\n" + level + "t", session("t")) << "a poll is no use";
        EXPECT_EQ(std::string(kJson) + "read", get(uri, "t"));
        EXPECT_EQ(user + "100000\n" + level + "t", session("t"));
        for (const std::string time : {"92799", "-1", "-9223372036854775808"}) {
            writeSession("t", user + time + "\n" + level + "t");
            EXPECT_EQ(kForbidden, get(uri, "t")) << time;
            EXPECT_FALSE(exists(path("t").c_str()));
        }
    }
    for (const char *const never : {"0", "soon", "", "200000", "9223372036854775807"}) {
        writeSession("t", std::string("admin\n") + never + "\nt");
        EXPECT_EQ(std::string(kJson) + "read", get(uri, "t")) << never;
    }
    EXPECT_EQ(2u, logged("Token timeout(100000 - 92799).please login again. (userName: "));
    platform::manual_clock::setUptimeKnown(false);
    EXPECT_EQ(kForbidden, get(uri, "t"));
    EXPECT_EQ(1u, logged("Failed to get sysinfo\r\n"));
}

// As a program leaves it that is killed while it writes.
TEST_F(DispatchTest, PartsOfASessionAreNone) {
    const std::string whole = "eve\n92900\nrw\nt0ken";
    for (std::size_t size = 0; size <= whole.size(); ++size) {
        writeSession("t0ken", whole.substr(0, size));
        EXPECT_EQ(size == whole.size() ? std::string(kJson) + "write" : kForbidden,
                  get("/api/v2/read", "t0ken", "POST"))
            << size;
    }
}

TEST_F(DispatchTest, WhatIsNoTokenFindsNoSession) {
    namespace fs = std::filesystem;
    const std::string text = "admin\n0\n";
    writeSession("real", text + "real");
    const fs::path dir = platform::fsPath(platform::paths::kSessionDir);
    writeText("/tmp/outside", text + "../outside");
    for (const std::string name : {"(null)", "real.user", ".lock", "a b", "other"})
        writeSession(name, text + (name == "other" ? "real" : name));
    fs::create_symlink(dir / "real", dir / "link");
    fs::create_directory(dir / "dir");
    ASSERT_EQ(0, mkfifo((dir / "pipe").c_str(), 0600));
    writeSession("shared", text + "shared");
    fs::permissions(dir / "shared", fs::perms(0666));
    for (const std::string &token :
         {std::string("../outside"), std::string("(null)"), std::string("real.user"), std::string(".lock"),
          std::string("a b"), std::string("other"), std::string("link"), std::string("dir"),
          std::string("pipe"), std::string("shared"), std::string("."), std::string("real\n"),
          std::string(300, 'a'), std::string()})
        EXPECT_EQ(kForbidden, get("/api/v2/read", token)) << token;
    EXPECT_EQ(std::string(kJson) + "read", get("/api/v2/read", "real"));
    fs::permissions(dir, fs::perms(0777));
    EXPECT_EQ(kForbidden, get("/api/v2/read", "real")) << "anybody may have written it";
    EXPECT_EQ(0u, logged("\nreal"));
}

}  // namespace
