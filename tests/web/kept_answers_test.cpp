#include "web/kept_answers.h"

#include <array>
#include <chrono>
#include <deque>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/manual_clock.h"
#include "store/response_cache.h"
#include "tests/support/cache_fixture.h"
#include "tests/support/sqlite.h"

namespace {

using namespace pavo;
using platform::manual_clock::advance;
using std::chrono::seconds;

constexpr const char *kName = "vlan_list";
constexpr seconds kMaxAge{10};

class KeptAnswersTest : public test_support::CacheTest {
  protected:
    void SetUp() override {
        CacheTest::SetUp();
        ASSERT_EQ(0, create());
        answer = kept.find("/api/v2/vlan/ports").value();
        ASSERT_EQ(kMaxAge, kept.route(answer).maxAge);
    }

    // The text that a request gets, with "!" when it is old; "(waits)" when it has to.
    std::string ask() {
        const auto given = kept.ask(answer, [this] { ++woken; });
        return given ? textOf(*given) : "(waits)";
    }
    static std::string textOf(const KeptAnswers::Given &given) {
        return (given.isOld ? "!" : "") + *given.text;
    }
    void work() {
        SwitchClient worker("worker");
        while (!jobs.empty()) {
            const auto job = jobs.front();
            jobs.pop_front();
            kept.produce(job, worker);
        }
    }
    std::string askAndWork() {
        EXPECT_EQ("(waits)", ask());
        work();
        return ask();
    }

    std::deque<std::size_t> jobs;
    std::vector<std::string> changes;
    KeptAnswers kept{{[this](std::size_t job) { jobs.push_back(job); },
                      [this](const std::string &name) { changes.push_back(name); }}};
    std::size_t answer = 0;
    int woken = 0;
};

TEST_F(KeptAnswersTest, ProducedOnceForAllWhoWait) {
    EXPECT_EQ("(waits)", ask());
    EXPECT_EQ("(waits)", ask());
    ASSERT_EQ(1u, jobs.size());
    work();
    EXPECT_EQ(2, woken);
    const std::string text = ask();
    EXPECT_EQ(read(kName) + "\n", text);
    EXPECT_TRUE(changes.empty()) << "nobody knew it before";

    // In time while somebody looks, and not afterwards.
    advance(seconds(8));
    EXPECT_EQ(text, ask());
    kept.tick();
    EXPECT_EQ(1u, jobs.size());
    work();
    advance(kMaxAge * (KeptAnswers::kLookedAges + 1));
    kept.tick();
    EXPECT_TRUE(jobs.empty());
    kept.look(kName);
    kept.tick();
    EXPECT_EQ(1u, jobs.size());
    commands("vlan database; vlan 20; exit");
    work();
    EXPECT_EQ(std::vector<std::string>{kName}, changes);
    EXPECT_NE(text, ask());

    // Something has happened.
    advance(seconds(1));
    kept.expire(std::array{std::string_view(kName)});
    EXPECT_EQ("(waits)", ask());
    advance(seconds(1));
    work();
    EXPECT_EQ(3, woken);
    EXPECT_NE("(waits)", ask());
}

TEST_F(KeptAnswersTest, WhatOthersStoreIsShownAtOnce) {
    askAndWork();
    write(kName, "one");
    EXPECT_EQ("one\n", ask());
    // The name is told before the text is there.
    write(kName, "two");
    kept.takeNews();
    test_support::runSql(platform::paths::kResponseCache, "update restapi_db set data = 'three'");
    EXPECT_EQ("three\n", ask());
    EXPECT_EQ((std::vector<std::string>(3, kName)), changes);
    write("neighbor_ex/0", "x");
    kept.takeNews();
    EXPECT_EQ("neighbor_ex/0", changes.back());
    // A line that cannot be made out may have been this one.
    advance(KeptAnswers::kLookAgain + seconds(1));
    kept.takeNews();
    test_support::runSql(platform::paths::kResponseCache, "update restapi_db set data = 'four'");
    test_support::writeText(platform::paths::kResponseCacheDelta, "vlan_vlan_list\n");
    EXPECT_EQ("four\n", ask());
    erase(kName);
    EXPECT_EQ("(waits)", ask());
    work();

    // The next program has the texts, and does not know how old they are.
    KeptAnswers next({[](std::size_t) {}, [](const std::string &) {}});
    next.load();
    EXPECT_EQ(read(kName) + "\n", *next.give(answer).text);
    EXPECT_FALSE(next.ask(answer, [] {}));
}

TEST_F(KeptAnswersTest, ASwitchThatDoesNotAnswer) {
    const std::string text = askAndWork();
    failCall("*", 1, false, OPEN_E_RPC);
    advance(kMaxAge + seconds(1));
    EXPECT_EQ("!" + text, askAndWork());
    advance(KeptAnswers::kPause);
    EXPECT_EQ("(waits)", ask());
    advance(KeptAnswers::kOldWaitMax);
    kept.tick();
    EXPECT_EQ(3, woken) << "a call that hangs holds up nobody for ever";
    EXPECT_EQ("!" + text, ask());
    work();
    advance(KeptAnswers::kOldMax);
    EXPECT_EQ("(waits)", ask());
    advance(KeptAnswers::kOldWaitMax);
    kept.tick();
    EXPECT_EQ(3, woken) << "there is nothing to give out instead";
    work();
    EXPECT_NE(std::string::npos, ask().find("10020"));
    EXPECT_EQ(1u, logged("what was known last is given out"));
    clearFaults();
    advance(KeptAnswers::kPause);
    EXPECT_EQ(text, askAndWork());
    EXPECT_EQ(1u, logged("the switch answers again"));

    // One that answers, but not this, says so.
    advance(kMaxAge + seconds(1));
    EXPECT_EQ("(waits)", ask());
    SwitchClient worker("worker");
    failCall("rpcclt_openapiVlanNextGet", 1, false);

    kept.produce(jobs.front(), worker);
    EXPECT_NE(std::string::npos, ask().find("10000"));
    kept.close();
}

// A full disk, or a lock that cannot be had: answers are there all the same.
TEST_F(KeptAnswersTest, WithoutACache) {
    test_support::writeText(platform::paths::kApiLockDir, "");
    EXPECT_NE(std::string::npos, askAndWork().find("\"success\""));
    EXPECT_EQ("(10023)", read(kName));
    std::filesystem::remove(platform::fsPath(platform::paths::kApiLockDir));
    std::filesystem::remove(platform::fsPath(platform::paths::kResponseCache));
    kept.tick();
    advance(kMaxAge + seconds(1));
    std::string text = askAndWork();
    EXPECT_EQ(read(kName) + "\n", text);

    // What could not be stored is newer than what was, also when somebody names it.
    const std::string stored = read(kName);
    test_support::runSql(
        platform::paths::kResponseCache,
        "create trigger full before insert on restapi_db begin select raise(fail, ''); end;"
        "create trigger full2 before update on restapi_db begin select raise(fail, ''); end");
    commands("vlan database; vlan 21; exit");
    advance(kMaxAge + seconds(1));
    text = askAndWork();
    EXPECT_NE(stored + "\n", text);
    EXPECT_EQ(stored, read(kName));
    test_support::writeText(platform::paths::kResponseCacheDelta, kName + std::string("\n"));
    EXPECT_EQ(text, ask());
}

// Somebody holds the cache: nobody waits for that, and no news are lost.
TEST_F(KeptAnswersTest, ALockedCache) {
    const std::string text = askAndWork();
    sqlite3 *holder = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open(platform::fsPath(platform::paths::kResponseCache).c_str(), &holder));
    const auto hold = [&](const char *sql) { return sqlite3_exec(holder, sql, nullptr, nullptr, nullptr); };
    ASSERT_EQ(SQLITE_OK, hold("begin exclusive; update restapi_db set data = 'other'"));
    test_support::writeText(platform::paths::kResponseCacheDelta, kName + std::string("\n"));
    EXPECT_EQ("(waits)", ask());
    ASSERT_EQ(SQLITE_OK, hold("commit"));
    sqlite3_close(holder);
    advance(seconds(1));
    EXPECT_EQ("other\n", ask());
    EXPECT_EQ(std::vector<std::string>{kName}, changes);
}

}  // namespace
