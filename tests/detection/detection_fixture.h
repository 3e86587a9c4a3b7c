// What the tests of all device families need on top of the switch: a profile database, time for a thread, and views of
// switch, devices and logs.
#ifndef PAVO_TESTS_DETECTION_DETECTION_FIXTURE_H
#define PAVO_TESTS_DETECTION_DETECTION_FIXTURE_H

#include <pthread.h>

#include <functional>
#include <numeric>
#include <regex>
#include <set>

#include "common/device_list.h"
#include "common/json.h"
#include "store/profile_db.h"
#include "tests/support/switch_fixture.h"

namespace test_support {

// The call with which every script reaches the switch.
constexpr const char *kApply = "rpcclt_openapiTxtCfgApply";

class DetectionTest : public SwitchTest {
  protected:
    void SetUp() override {
        SwitchTest::SetUp();
        // Made once: creating it flushes the whole machine's disks.
        static std::string database;
        if (database.empty()) {
            ensureProfileDb();
            database = readFile(platform::paths::kProfileDb);
        }
        writeText(platform::paths::kProfileDb, database);
    }
    // The thread of a family; from now on the test moves the clock.
    void start(void *(*entry)(void *)) {
        platform::manual_clock::setAutoAdvance(false);
        ASSERT_EQ(pthread_create(&thread, nullptr, entry, &client), 0);
    }
    void join() { EXPECT_EQ(pthread_join(thread, nullptr), 0); }
    // The thread sleeps, wakes up and sleeps again, so many times.
    static void passPeriods(int count, platform::Duration period) {
        ASSERT_TRUE(platform::manual_clock::awaitSleepers(1));
        for (int i = 0; i < count; ++i) {
            platform::manual_clock::advance(period);
            ASSERT_TRUE(platform::manual_clock::awaitSleepers(1));
        }
    }

    void vlanCreate(vswitch::VlanId id) {
        model([&](vswitch::Model &m) { EXPECT_EQ(m.createVlan(id), OPEN_E_NONE); });
    }

    // Unplugged, and forgotten by the switch at once.
    void unplugForgotten(const std::string &name) {
        ASSERT_EQ(unplug(name), OPEN_E_NONE);
        model([](vswitch::Model &m) { m.clearFdb(); });
    }
    void removeAssociation(const std::string &mac) {
        commands("vlan database; no vlan association mac " + mac);
    }

    // Who is in which VLAN, by the last octet of the address: "01=30 02=40 ", but "01 " in the usual one.
    std::string associations(vswitch::VlanId usual = 0) {
        std::string out;
        for (const auto &[mac, vlan] : model([](vswitch::Model &m) { return m.macAssociations(); }))
            out += mac.text().substr(15) + (vlan == usual ? " " : "=" + std::to_string(vlan) + " ");
        return out;
    }
    // Who is known on which port with how many misses: " 01@5 02@6/19".
    static std::string known(std::initializer_list<const DeviceList<DetectedDevice> *> lists) {
        std::multiset<std::string> all;
        for (const auto *list : lists)
            for (const DetectedDevice &one : *list)
                all.insert(" " + one.mac.text().substr(15) + "@" + std::to_string(one.port.number()) +
                           (one.missCount != 0 ? "/" + std::to_string(one.missCount) : ""));
        return std::accumulate(all.begin(), all.end(), std::string());
    }
    // The array that an operation fills.
    static std::string jsonOf(const std::function<void(cJSON *)> &fill) {
        const JsonPtr out(cJSON_CreateArray());
        fill(out.get());
        return printJsonLine(out.get());
    }

    // A profile's VLAN in the database.
    static void profileStore(int vlan, const char *type, int role = 1) {
        ASSERT_TRUE(replaceProfileRow(
            {.id = vlan, .vlanType = role, .profileName = "test", .profileType = type, .color = "#112233"}));
    }
    static void profileRemove(int vlan) { ASSERT_TRUE(deleteProfileRow(vlan)); }

    std::size_t systemLogged(const std::string &part) { return occurrences(systemLog(), part); }

    // An action writes so many ERROR lines, and each of the texts for the first time.
    static void expectErrors(std::size_t count, const std::vector<std::string> &texts,
                             const std::function<void()> &action) {
        const std::size_t before = logged("(ERROR)");
        action();
        EXPECT_EQ(logged("(ERROR)") - before, count);
        for (const auto &text : texts)
            EXPECT_EQ(logged(text), 1u) << text;
    }

    // Fails each call that `action` makes, alone or with all after it.
    void failEachCall(bool once, const std::function<void()> &prepare, const std::function<void()> &action,
                      const std::function<void()> &check) {
        bool struck = true;
        for (std::uint64_t n = 1; struck && !HasFatalFailure(); ++n) {
            SCOPED_TRACE(testing::Message() << "call " << n << (once ? " fails" : " and all after it fail"));
            prepare();
            failCall("*", n, once);
            action();
            struck = callsSeen() >= n;
            clearFaults();
            check();
        }
    }
    // Alone, and then with all after it.
    template <class Prepare, class Act, class Check>
    void withEachCallFailing(Prepare prepare, Act act, Check check) {
        for (const bool once : {true, false})
            failEachCall(once, prepare, [&] { act(once); }, check);
    }

    // Whether every line of the log is one that the log made: a text from the network started none.
    static bool logLinesIntact() {
        return occurrences(log(), "\n2026-01-01 ") + 1 == occurrences(log(), "\n");
    }

    // Text of `length` bytes of all that could upset a log, a script or a parser.
    static std::string hostileText(std::size_t length) {
        static const std::string kBytes = "'\"%s%n\n\r\\;\x7f\x80\xff`$(x)\t";
        std::string out;
        for (std::size_t i = 0; i < length; ++i)
            out += kBytes[(i * 7 + length) % kBytes.size()];
        return out;
    }

    // The functions that the lines of the log name, in alphabetical order.
    static std::string functionsLogged() {
        static const std::regex kPlace(R"(\): test: \[([^\]]*):[0-9]+\] )");
        const std::string text = log();
        std::set<std::string> names;
        for (std::sregex_iterator at(text.begin(), text.end(), kPlace), end; at != end; ++at)
            names.insert((*at)[1]);
        return std::accumulate(
            names.begin(), names.end(), std::string(),
            [](const std::string &all, const std::string &name) { return all + name + " "; });
    }

    pthread_t thread{};
};

}  // namespace test_support

#endif
