// The table of routes, and requests that are served through it.
#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <set>

#include "common/response_ops.h"
#include "store/profile_db_ops.h"
#include "store/writeback.h"
#include "tests/web/requests_fixture.h"
#include "web/routes.h"

namespace {

using namespace pavo;
using namespace test_support;
using nlohmann::json;

class RoutesTest : public RequestTest {
  protected:
    void SetUp() override {
        RequestTest::SetUp();
        ASSERT_TRUE(registerRoutes(*tree));
        writeSession("admin-session", "admin\n0\nadmin-session");
    }
    void TearDown() override {
        endRequest();
        RequestTest::TearDown();
    }

    // What is printed; standard input has the body.
    std::string send(const Route &route, const std::string &query, const std::string &body,
                     const std::string &token, long length = -1) {
        writeText("/tmp/body", body);
        EXPECT_NE(nullptr, std::freopen(platform::fsPath("/tmp/body").c_str(), "r", stdin));
        Variables variables{
            {"REQUEST_URI", std::string(route.path) + "?" + query},
            {"REQUEST_METHOD", httpdMethodName(static_cast<std::uint32_t>(route.method))},
            {"QUERY_STRING", query},
            {"CONTENT_LENGTH", std::to_string(length < 0 ? static_cast<long>(body.size()) : length)},
            {"REMOTE_ADDR", "10.0.0.1"}};
        if (!token.empty())
            variables["HTTP_SESSION"] = token;
        return request(*tree, variables);
    }
    static const Route &route(const std::string &path, HttpMethod method) {
        return *std::ranges::find_if(
            routes(), [&](const Route &row) { return row.path == path && row.method == method; });
    }
    // The answer's JSON, by a parser that takes nothing but JSON in UTF-8.
    static json answer(const std::string &printed) {
        const std::string header = "Content-Type: application/json\r\n\r\n";
        EXPECT_TRUE(printed.starts_with(header)) << printed;
        return json::parse(printed.substr(std::min(header.size(), printed.size())), nullptr, false);
    }
    json call(const std::string &path, HttpMethod method, const std::string &query = "",
              const std::string &body = "", const std::string &token = "admin-session") {
        return answer(send(route(path, method), query, body, token));
    }
    static int codeIn(const json &answer) { return answer["resp"]["respCode"]; }

    std::unique_ptr<HttpdTree> tree = httpdTreeCreate();
};

TEST_F(RoutesTest, TableIsSound) {
    std::set<std::pair<std::string, HttpMethod>> seen;
    const auto rows = writeBackRows();
    std::set<std::string> cached;
    for (const Route &row : routes()) {
        EXPECT_TRUE(seen.emplace(row.path, row.method).second) << row.path;
        EXPECT_TRUE(std::string(row.summary).ends_with('.')) << row.path;
        EXPECT_TRUE(row.request == nullptr || row.method == HttpMethod::Post ||
                    row.method == HttpMethod::Put);
        if (row.method != HttpMethod::Get)
            EXPECT_NE(row.access, row.path == std::string("/api/v2/session") ? Access::User : Access::Anyone);
        if (row.cached != nullptr) {
            const auto answer = std::ranges::find(rows, std::string_view(row.cached), &WriteBackRow::api);
            ASSERT_NE(rows.end(), answer) << row.path;
            EXPECT_STREQ(answer->key, row.key);
            EXPECT_TRUE(cached.insert(row.cached).second) << row.cached;
        }
        std::istringstream changes(row.changes);
        for (std::string name; changes >> name;)
            EXPECT_NE(rows.end(), std::ranges::find(rows, name, &WriteBackRow::api)) << name;
    }
    for (const auto &row : rows)
        EXPECT_TRUE(row.key == nullptr || cached.contains(row.api)) << "no route for " << row.api;
    const json document = json::parse(openApiDocument());
    std::size_t operations = 0;
    for (const auto &path : document["paths"])
        operations += path.size();
    EXPECT_EQ(routes().size(), operations);
    std::set<std::string> used;
    const std::function<void(const json &)> follow = [&](const json &node) {
        if (node.is_object() && node.contains("$ref")) {
            const std::string at = node["$ref"];
            EXPECT_TRUE(document.contains(json::json_pointer(at.substr(1)))) << at;
            used.insert(at.substr(at.rfind('/') + 1));
        }
        for (const auto &child : node)
            if (child.is_structured())
                follow(child);
    };
    follow(document);
    for (const auto &schema : document["components"]["schemas"].items())
        EXPECT_TRUE(used.contains(schema.key())) << schema.key() << " is in no route";
    EXPECT_NE(std::string::npos, routeList().find("[\"/api/v2/nice\"] = \"GET, PUT\",\n"));
}

TEST_F(RoutesTest, BodiesComeWholeOrNotAtAll) {
    const Route &put = route("/api/v2/nice", HttpMethod::Put);
    const std::string body = R"({"enabled":false})";
    for (const auto &[text, length] :
         {std::pair(body, 18L), {body, 1L << 21}, {body + '\0', -1L}, {body + "\xff", -1L}})
        EXPECT_EQ(10021, codeIn(answer(send(put, "", text, "admin-session", length)))) << length;
    EXPECT_EQ(10003, codeIn(answer(send(put, "", body + body, "admin-session")))) << "two values";
    EXPECT_EQ(10021, codeIn(answer(send(put, "a=1&a=2", body, "admin-session")))) << "which of them?";
    EXPECT_EQ(true, call("/api/v2/nice", HttpMethod::Get)["nice"]["enabled"]);
    EXPECT_EQ(0, codeIn(answer(send(put, "", body, "admin-session"))));
    EXPECT_EQ(false, call("/api/v2/nice", HttpMethod::Get)["nice"]["enabled"]);
}

TEST_F(RoutesTest, RefusalsSayWhy) {
    const struct {
        const char *path, *body, *message;
    } cases[] = {
        {"/api/v2/port/speed", R"({"ports":[3,99],"speed":"Auto"})", "Object not exist: there is no port 99"},
        {"/api/v2/port/speed", R"({"ports":[3],"speed":"100 Full\nexit"})",
         "Invalid argument: see the schema PortSpeedRequest in the answer of /api/v2/openapi"},
        {"/api/v2/system/management",
         R"({"vlanId":1,"mode":"static","address":"10.0.0.5","mask":"255.0","gateway":""})",
         "Invalid argument: \"mask\" is no IPv4 address"},
        {"/api/v2/log/level", R"({"level":0})",
         "Invalid argument: \"level\" is none of the values that it can have"},
        {"/api/v2/multicast/deny", R"({"blockAddressList":["239.0.0.0","x"]})",
         "Invalid argument: \"x\" is no IPv4 address"}};
    const std::string before = show("show running-config");
    for (const auto &[path, body, message] : cases)
        EXPECT_EQ(message, call(path, HttpMethod::Put, "", body)["resp"]["respMsg"]) << body;
    EXPECT_EQ(before, show("show running-config"));
    EXPECT_EQ(0, codeIn(call("/api/v2/log/level", HttpMethod::Put, "", R"({"level":3})")));
    EXPECT_EQ(3, call("/api/v2/log/level", HttpMethod::Get)["logLevel"]["level"]);
}

TEST_F(RoutesTest, LogWhateverIsInIt) {
    const auto tail = [&](int lines) {
        return call("/api/v2/log", HttpMethod::Get, "lines=" + std::to_string(lines))["log"];
    };
    ASSERT_TRUE(devmgrLogLevelSet(LOG_LEVEL_ERROR));  // so that the requests add nothing
    writeText("/tmp/ketch.log.old", "one\ntwo");
    writeText("/tmp/ketch.log", std::string("th\0ree \xff\r\n\nfive\n", 16));
    EXPECT_EQ(json({"two", "th.ree ?", "", "five"}), tail(4));
    EXPECT_EQ(json({"five"}), tail(1));
    writeText("/tmp/ketch.log", std::string(3 << 20, 'x') + "\n" + std::string(1 << 19, '\x80') + "\nlast\n");
    EXPECT_EQ(2u, tail(2).size());
    EXPECT_EQ("last", tail(1000).back());
}

TEST_F(RoutesTest, LogInChangeAndLogOut) {
    commands("configure; username bob password writers-word level 15; exit");
    tree->admits = [](const std::string &token, const Session &session) {
        return isStillTheUser(token, session, findSwitchUser);
    };
    const auto logIn = [&](const std::string &password) {
        return call("/api/v2/session", HttpMethod::Post, "",
                    json{{"user", "bob"}, {"password", password}}.dump(), "");
    };
    EXPECT_EQ(12001, codeIn(logIn("wrong")));
    const std::string token = logIn("writers-word")["session"]["token"];
    EXPECT_EQ("rw", call("/api/v2/session", HttpMethod::Get, "", "", token)["session"]["level"]);
    EXPECT_EQ(0, codeIn(call("/api/v2/vlan/list", HttpMethod::Post, "", R"({"vlan-list":"20,30"})", token)));
    EXPECT_EQ("VLAN0020", call("/api/v2/vlan/name", HttpMethod::Get, "id=20", "", token)["vlanName"]["name"]);
    ASSERT_EQ(0, vlanInfoTableCreate());
    vlanInfoReplace(20, 1, "Stage", "Audio Dante", "#102030");
    EXPECT_EQ(
        R"([{"name": "Stage", "has": ["VLAN 20"]}])"_json,
        call("/api/v2/vlan/list", HttpMethod::Delete, "list=20%2C30", "", token)["vlanChange"]["profiles"]);
    EXPECT_EQ(1, call("/api/v2/vlan/list", HttpMethod::Get, "", "", token)["vlanList"]["vlans-in-use"]);
    commands("configure; username bob password another-word; exit");
    EXPECT_EQ("Status:403\r\n\r\n", send(route("/api/v2/session", HttpMethod::Get), "", "", token));
    const std::string second = logIn("another-word")["session"]["token"];
    EXPECT_EQ(0, codeIn(call("/api/v2/session", HttpMethod::Delete, "", "", second)));
    EXPECT_EQ(10012, codeIn(call("/api/v2/session", HttpMethod::Delete, "", "", second)));
    device.reset();
    endRequest();
    EXPECT_EQ(10020, codeIn(call("/api/v2/vlan/list", HttpMethod::Get)));
}

}  // namespace
