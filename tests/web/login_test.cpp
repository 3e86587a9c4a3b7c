// Logging in, and how long a session lasts.
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>
#include <vector>

#include "tests/web/requests_fixture.h"
#include "web/login.h"
#include "web/request.h"

namespace {

using namespace pavo;
using namespace test_support;

class LoginTest : public RequestTest {
  protected:
    // The code of a login; the token in `token`.
    ResultCode login(const std::string &user, const std::string &password,
                     const std::string &address = "10.0.0.1") {
        auto done = logIn({user, password, address}, find);
        if (!done)
            return done.error().code;
        last = *std::move(done);
        return ResultCode::Success;
    }
    static bool isOpen(const std::string &token) {
        return checkSession(token, {Access::User, HttpMethod::Get, SessionUse::Poll}).has_value();
    }
    static int filesOfSessions() {
        int files = 0;
        for (const auto &entry :
             std::filesystem::directory_iterator(platform::fsPath(platform::paths::kSessionDir)))
            files += entry.path().filename().string().starts_with(".") ? 0 : 1;
        return files;
    }
    static void wait(int seconds) { platform::manual_clock::advance(std::chrono::seconds(seconds)); }

    std::map<std::string, SwitchUser> users{{"admin", {UserLevel::Administrator, "secret word"}},
                                            {"eve", {UserLevel::ReadOnly, "reader's word"}}};
    bool isReachable = true;
    FindUser find = [this](const std::string &name) -> Result<std::optional<SwitchUser>> {
        if (!isReachable)
            return failed(ResultCode::Unreachable);
        const auto found = users.find(name);
        return found != users.end() ? std::optional(found->second) : std::nullopt;
    };
    Login last;
};

TEST_F(LoginTest, OpensASession) {
    ASSERT_EQ(ResultCode::Success, login("admin", "secret word"));
    const std::string first = last.token;
    EXPECT_EQ(64u, first.size());
    EXPECT_EQ("admin\n100000\n" + first, session(first));
    struct stat info{};
    ASSERT_EQ(0, stat(platform::fsPath(path(first)).c_str(), &info));
    EXPECT_EQ(0600u, info.st_mode & 07777);
    ASSERT_EQ(0, stat(platform::fsPath(platform::paths::kSessionDir).c_str(), &info));
    EXPECT_EQ(0700u, info.st_mode & 07777);
    ASSERT_EQ(ResultCode::Success, login("eve", "reader's word"));
    EXPECT_NE(first, last.token);
    EXPECT_EQ("eve\n100000\nro\n" + last.token, session(last.token));
    EXPECT_TRUE(endSession(first));
    EXPECT_FALSE(endSession(first));
    EXPECT_FALSE(isOpen(first));
    // What has expired goes, with what a login that was killed has left.
    writeSession("killed.user", "");
    writeSession("killed.new", "");
    wait(7201);
    ASSERT_EQ(ResultCode::Success, login("admin", "secret word"));
    EXPECT_EQ(2, filesOfSessions()) << "the session and its mark";
    // One user cannot use up all sessions.
    const std::string admins = last.token;
    ASSERT_EQ(ResultCode::Success, login("eve", "reader's word"));
    const std::string oldest = last.token;
    for (std::size_t i = 0; i < kSessionsOfUserMax; ++i) {
        wait(1);
        ASSERT_EQ(ResultCode::Success, login("eve", "reader's word"));
    }
    EXPECT_TRUE(isOpen(last.token) && isOpen(admins));
    EXPECT_FALSE(isOpen(oldest));
    EXPECT_EQ(0u, logged("secret word") + logged("reader's word"));
}

TEST_F(LoginTest, WrongPasswordsHaveToWait) {
    for (const std::string &password : {std::string(), std::string("secret wor"), std::string("secret wordx"),
                                        std::string("secret word\0", 12), std::string(5000, 's')})
        EXPECT_EQ(ResultCode::WrongPassword, login("admin", password));
    EXPECT_EQ(ResultCode::LockedOut, login("admin", "secret word")) << "not even the right one";
    EXPECT_EQ(ResultCode::LockedOut, login("admin", "secret word", "10.0.0.2")) << "from anywhere";
    EXPECT_EQ(ResultCode::LockedOut, login("eve", "reader's word")) << "nor another user from there";
    EXPECT_EQ(ResultCode::Success, login("eve", "reader's word", "10.0.0.2"));
    // The pauses that follow: one wrong password as soon as each is over.
    for (const int pause : {10, 20, 40, 80, 160, 320, 320}) {
        wait(pause / 2);
        EXPECT_EQ(ResultCode::Success, login("admin", "secret word", "10.0.0.2")) << "the user's own is over";
        wait(pause - pause / 2 - 1);
        EXPECT_EQ("1 seconds are left", logIn({"admin", "secret word", "10.0.0.1"}, find).error().reason);
        wait(1);
        EXPECT_EQ(ResultCode::WrongPassword, login("admin", "guess")) << pause;
    }
    wait(320);
    isReachable = false;
    EXPECT_EQ(ResultCode::Unreachable, login("admin", "secret word"));
    isReachable = true;
    EXPECT_EQ(ResultCode::Success, login("admin", "secret word")) << "that did not count";
    EXPECT_EQ(ResultCode::WrongPassword, login("admin", "guess", "10.0.0.3")) << "from the beginning";
    // The addresses of one IPv6 network are one; users that do not exist count as well.
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(ResultCode::WrongPassword,
                  login("nobody" + std::to_string(i), "", "2001:db8:0:1:" + std::to_string(i) + "::"));
    EXPECT_EQ(ResultCode::LockedOut, login("eve", "reader's word", "2001:db8::1:0:0:0:5"));
    EXPECT_EQ(ResultCode::Success, login("eve", "reader's word", "2001:db8:0:2::1"));
    writeSession(".failures", "{\"user eve\":{\"count\":9e99,\"last\":\"x\"},[");
    EXPECT_EQ(ResultCode::Success, login("eve", "reader's word", "10.0.0.9"))
        << "what is damaged counts for nothing";
    EXPECT_EQ(ResultCode::InvalidArgument, login("eve\nadmin", "x"));
    EXPECT_EQ(ResultCode::InvalidArgument, login(std::string(65, 'e'), "x"));
    users["new"] = {UserLevel::ReadOnly, ""};
    EXPECT_EQ(ResultCode::WrongPassword, login("new", "", "10.0.0.8")) << "no password is none";
}

// Each attempt begins before the one in front of it has been told the password.
TEST_F(LoginTest, ManyAtOnceGainNothing) {
    int wrong = 0;
    FindUser slow = [&](const std::string &name) {
        wrong += logIn({"admin", "guess", "10.0.0.1"}, slow).error().code == ResultCode::WrongPassword;
        return find(name);
    };
    EXPECT_EQ(ResultCode::WrongPassword, logIn({"admin", "guess", "10.0.0.1"}, slow).error().code);
    EXPECT_EQ(4, wrong);
}

TEST_F(LoginTest, AFullDisk) {
    ASSERT_EQ(ResultCode::Success, login("eve", "reader's word"));
    const std::string before = session(last.token);
    wait(10);
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit whole{};
    ASSERT_EQ(0, getrlimit(RLIMIT_FSIZE, &whole));
    const rlimit none{2, whole.rlim_max};
    ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &none));
    const bool isServed =
        checkSession(last.token, {Access::User, HttpMethod::Get, SessionUse::Extend}).has_value();
    const auto opened = openSession(last.session, "mark");
    const ResultCode code = login("eve", "reader's word");
    ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &whole));
    EXPECT_TRUE(isServed);
    EXPECT_FALSE(opened);
    EXPECT_EQ(ResultCode::Failed, code);
    EXPECT_EQ(before, session(last.token));
    EXPECT_EQ(2, filesOfSessions());
    EXPECT_TRUE(isOpen(last.token));
}

TEST_F(LoginTest, ASessionEndsWithItsUser) {
    const auto isLeft = [&](auto change) {
        EXPECT_EQ(ResultCode::Success, login("eve", users.at("eve").password));
        const auto before = users;
        change();
        const bool left = isStillTheUser(last.token, last.session, find);
        EXPECT_EQ(left, isOpen(last.token));
        users = before;
        isReachable = true;
        return left;
    };
    EXPECT_TRUE(isLeft([] {}));
    EXPECT_TRUE(isLeft([&] { isReachable = false; })) << "unknown is not changed";
    EXPECT_FALSE(isLeft([&] { users.at("eve").password = "another word"; }));
    EXPECT_FALSE(isLeft([&] { users.at("eve").level = UserLevel::ReadWrite; }));
    EXPECT_FALSE(isLeft([&] { users.erase("eve"); }));
}

TEST_F(LoginTest, UsersAreThoseOfTheSwitch) {
    commands(
        "configure; username eve password readers-word level 1; username bob password writers-word level 15; "
        "username off password blocked-word level 0; exit");
    const auto levelOf = [](const std::string &name, const std::string &password) -> std::string {
        const auto user = findSwitchUser(name);
        return !user || !*user ? "none" : (*user)->password == password ? wordOf((*user)->level) : "password";
    };
    EXPECT_EQ("admin", levelOf("admin", "switch1234"));
    EXPECT_EQ("ro", levelOf("eve", "readers-word"));
    EXPECT_EQ("rw", levelOf("bob", "writers-word"));
    EXPECT_EQ("none", levelOf("off", "blocked-word"));
    EXPECT_EQ("none", levelOf("nobody", ""));
    failCall("rpcclt_openapiUserPasswordGet");
    EXPECT_FALSE(findSwitchUser("eve"));
    EXPECT_EQ(1u, logged("the users of the switch cannot be read (result = "));
    endRequest();
}

}  // namespace
