// Profiles applied to and taken off a virtual switch, with the operations behind their JSON.
#ifndef PAVO_TESTS_SUPPORT_PROFILE_FIXTURE_H
#define PAVO_TESTS_SUPPORT_PROFILE_FIXTURE_H

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "common/json.h"
#include "profile/apply_ops.h"
#include "profile/detection_files.h"
#include "profile/list_ops.h"
#include "profile/session.h"
#include "store/profile_db_ops.h"
#include "tests/support/switch_fixture.h"

namespace test_support {

namespace fs = std::filesystem;
using platform::paths::kAudacConfig;
using platform::paths::kShureConfig;

inline std::string vlanJson(int id, int role, const std::string &untagged, const std::string &tagged = "",
                            const std::string &more = "") {
    return R"({"vlanId": )" + std::to_string(id) + R"(, "vlanType": )" + std::to_string(role) +
           R"(, "ports": {"untagged": [)" + untagged + R"(], "tagged": [)" + tagged + "]" + more + "}}";
}

inline std::string requestJson(const std::string &name, const std::string &type,
                               const std::vector<std::string> &vlans, const std::string &more = "") {
    std::string list;
    for (const auto &vlan : vlans)
        list += (list.empty() ? "" : ", ") + vlan;
    return R"({"profileConfig": {"name": ")" + name + R"(", "color": "#081855", "profileType": ")" + type +
           R"(", "vlanNum": )" + std::to_string(vlans.size()) + R"(, "vlans": [)" + list + "]" + more + "}}";
}

class ProfileTest : public SwitchTest {
  protected:
    // The configuration without its heading, which tells the time.
    std::string config() {
        const auto text = show("show running-config");
        return text.substr(text.find(" secs\"\n"));
    }
    bool has(const std::string &part) { return config().find(part) != std::string::npos; }
    // Lines of the configuration, one below the other.
    void expectConfigured(const std::string &lines) {
        std::istringstream in(lines);
        for (std::string line; std::getline(in, line);)
            EXPECT_TRUE(has("\n" + line + "\n")) << line;
    }
    // What an operator types: "configure; mtu 2000; end".
    std::string enter(const std::string &commands) {
        std::vector<std::string> lines;
        std::istringstream in(commands);
        for (std::string line; std::getline(in >> std::ws, line, ';');)
            lines.push_back(line);
        return cli(lines);
    }
    // Acts with its first such call failing, with its second, and so on; at last, as number 0, with none.
    template <class Act, class Check>
    void failEach(const std::string &call, Act act, Check check, bool once = true,
                  open_error_t code = OPEN_E_FAIL) {
        bool struck = true;
        for (std::uint64_t n = 1; struck && !HasFatalFailure(); ++n) {
            failCall(call, n, once, code);
            const auto result = act();
            struck = callsSeen() >= n;
            EXPECT_TRUE(struck || n > 1) << "there was nothing to fail";
            clearFaults();
            check(result, struck ? n : 0);
        }
    }
};

class ApplyTest : public ProfileTest {
  protected:
    void SetUp() override {
        SwitchTest::SetUp();
        const fs::path templates = platform::fsPath(platform::paths::kProfileTemplateDir);
        fs::create_directories(templates);
        fs::copy(fs::path(PAVO_DATA_DIR) / "profileTemplate", templates, fs::copy_options::recursive);
        // Made once: creating it flushes the whole machine's disks.
        static std::string database;
        if (database.empty()) {
            ASSERT_EQ(0, vlanInfoTableCreate());
            database = readFile(platform::paths::kProfileDb);
        }
        writeText(platform::paths::kProfileDb, database);
    }

    void TearDown() override {
        for (const char *const helper : {"[operator", "[refuse:", "[run:", "[applyBlockScript:"})
            EXPECT_EQ(0u, logged(helper)) << "lines name the operation that failed";
        device->with([](vswitch::Server &server) { EXPECT_EQ(0u, server.cli().unknownCommands()); });
        SwitchTest::TearDown();
    }

    // Everything a request may change: switch, database, files.
    std::string everything() {
        std::ostringstream out;
        char *list = nullptr;
        EXPECT_EQ(0, profileListExGet(&client, &list));
        out << config() << TextPtr(list).get() << '\n';
        for (const auto *folder : {platform::paths::kVlanProfileConfigDir, platform::paths::kPavoExDir})
            if (const fs::path path = platform::fsPath(folder); fs::exists(path))
                for (const auto &entry : fs::directory_iterator(path))
                    out << entry.path().filename() << '\n';
        for (const auto *file : {kAudacConfig, kShureConfig})
            out << file << ": " << (exists(file) ? readFile(file) : "none") << '\n';
        return out.str();
    }
    SwitchState state() { return readSwitchState(&client).value(); }

    std::int32_t apply(const std::string &request) { return profileConfigSet(&client, request.c_str()); }
    std::int32_t apply(const std::string &name, const std::string &type,
                       const std::vector<std::string> &vlans, const std::string &more = "") {
        return apply(requestJson(name, type, vlans, more));
    }
    std::int32_t remove(const std::string &name) {
        return profileDelete(&client, (R"({"name": ")" + name + R"("})").c_str());
    }
    // The same where nothing else than success is thinkable.
    void applied(const std::string &name, const std::string &type, const std::vector<std::string> &vlans,
                 const std::string &more = "") {
        ASSERT_EQ(0, apply(name, type, vlans, more)) << name << " " << type << "\n" << log();
    }
    void removed(const std::string &name) { ASSERT_EQ(0, remove(name)) << name << "\n" << log(); }
    void setLatency(platform::Duration time) {
        device->with([&](vswitch::Server &server) { server.model().setLatency(time); });
    }
};

}  // namespace test_support

#endif
