// What all threads of the daemon have in common, with rows and families made up for the purpose.
#include <gtest/gtest.h>

#include <new>

#include "detection/audac.h"
#include "detection/mac_family.h"
#include "detection/supervisor.h"
#include "profile/detection_files.h"
#include "store/device_states.h"
#include "store/profile_types.h"
#include "tests/detection/detection_fixture.h"

namespace {

using namespace std::chrono_literals;
using namespace test_support;
namespace clk = platform::manual_clock;

// --- the loop

// What the steps of a loop were called for, in order, and what the check says next.
std::string called;
std::string answers;  // one letter for each check, the first one first
int beginFailures = 0;

Reason nextAnswer(Switch, const Where &) {
    const char answer = answers.empty() ? 'a' : answers.front();
    answers.erase(0, 1);
    if (answer == 'u')
        return {Presence::Unknown, "an answer"};
    return answer == 'p' ? Presence::Present : Presence::Absent;
}

constexpr DetectionLoop kLoop = {.texts = {.started = "[%s:%d] started\n",
                                           .lookingNow = "[%s:%d] looking\n",
                                           .skipped = "[%s:%d] skipped\n",
                                           .ended = "[%s:%d] ended\n"},
                                 .period = 7s,
                                 .check = nextAnswer,
                                 .begin =
                                     [](Switch, const Where &) {
                                         called += "begin ";
                                         return --beginFailures < 0;
                                     },
                                 .cycle = [](Switch, const Where &) { called += "cycle "; },
                                 .end = [](Switch, const Where &) { called += "end"; }};

class LoopTest : public DetectionTest {
  protected:
    std::string run(const DetectionLoop &loop, const std::string &checks) {
        called.clear();
        answers = checks;
        const auto slept = clk::totalSlept();
        runLoop(loop, &client);
        return called + " " + std::to_string((clk::totalSlept() - slept) / 7s);
    }
};

TEST_F(LoopTest, GoesByTheAnswersOfTheCheck) {
    for (const char *noReason : {"a", "u"})
        EXPECT_EQ(run(kLoop, noReason), "end 0");
    EXPECT_EQ(logged("] started\n"), 2u);
    EXPECT_EQ(logged("] ended\n"), 0u);
    EXPECT_EQ(run(kLoop, "ppuupa"), "begin cycle cycle end 5");
    EXPECT_EQ(logged("] looking\n"), 5u);
    EXPECT_EQ(logged("] skipped\n"), 2u);
    EXPECT_EQ(logged("] ended\n"), 1u);

    // What is there from an earlier run comes first, however often that takes; one line says so, and one for
    // each time that the check cannot tell.
    beginFailures = 2;
    EXPECT_EQ(run(kLoop, "pppupua"), "begin begin begin cycle cycle end 6");
    EXPECT_EQ(logged("waiting for the switch to show what it has from an earlier run"), 1u);
    EXPECT_EQ(logged("waiting for an answer; nothing is changed until then\n"), 1u + 1 + 2);

    DetectionLoop looksFirst = kLoop;
    looksFirst.pause = Pause::AfterCycle;
    EXPECT_EQ(run(looksFirst, "ppa"), "begin cycle end 1");
    // Steps and texts that are left out; a cycle that finds no memory is not the last one.
    const DetectionLoop bare = {.texts = {.started = "[%s:%d] bare\n"},
                                .period = 7s,
                                .check = nextAnswer,
                                .cycle = [](Switch, const Where &) { throw std::bad_alloc(); }};
    const auto lookedBefore = logged("] looking\n");
    EXPECT_EQ(run(bare, "pppua"), " 4");
    EXPECT_EQ(logged("Could not allocate memory.\r\n"), 2u);
    EXPECT_EQ(logged("] looking\n"), lookedBefore);
}

// --- rows of the supervisor

std::atomic<std::int32_t> workerRuns{0};

TEST_F(LoopTest, AWorkerThatIsNoFamilyMayFailToStart) {
    static int creations;
    creations = 0;
    const DetectionRow worker = {
        .name = "worker",
        .loop = {.texts = {.started = "[%s:%d] worker\n"},
                 .period = 7s,
                 .cycle = [](Switch, const Where &) {}},
        .entry = [](void *) -> void * { return nullptr; },
        .running = &workerRuns,
        .notCreated = "[%s:%d] no worker\n",
        .notRecreated = "[%s:%d] no worker again\n",
    };
    const auto create = [](pthread_t *, const pthread_attr_t *, void *(*)(void *), void *) {
        return ++creations <= 2 ? EAGAIN : 0;
    };
    const DetectionRow *const rows[] = {&worker};
    Supervisor supervisor(&client, create, rows);
    EXPECT_TRUE(supervisor.start());
    EXPECT_TRUE(supervisor.pass());
    EXPECT_EQ(workerRuns, 0);
    EXPECT_EQ(logged("] no worker\n") + logged("] no worker again\n"), 2u);
    for (int i = 0; i < 2; ++i)
        EXPECT_TRUE(supervisor.pass());  // at the second it has its thread
    EXPECT_EQ(creations, 3);
    EXPECT_EQ(workerRuns, 1);
}

// A family's own file, and the request itself for one without.
TEST(RegistryTest, FamiliesReadWhatApplyingTheirProfileWrites) {
    DetectionRow row = audacDetection;
    EXPECT_EQ(detectionConfigPath(row), "/tmp/audac_config");
    row.profileType = PROFILE_TYPE_NAME_TELOS;
    EXPECT_EQ(detectionConfigPath(row), "/tmp/pavo/pavo_ex/Telos_AllianceLivewire+_AES67");
}

// --- families by MAC address

std::optional<DeviceScan> seen;

bool call(const char *what, Mac mac) {
    called += what + mac.text().substr(15) + " ";
    return true;
}

constexpr MacFamily kFamily = {
    .name = "test",
    .scripts = {.in = "/tmp/in", .out = "/tmp/out", .writeFailed = {}, .applyFailed = {}},
    .texts = {.comparing = "[%s:%d] comparing\n"},
    .scan = [](Switch, const Where &) { return seen; },
    .admit =
        [](Switch, const Sighting &one, DetectedDevice *device, const Where &) {
            device->controlMode = one.controlMode;
            return one.controlMode != 1;
        },
    .notAdmitted = "locked out",
    .join = [](Switch, const DetectedDevice &device, const Where &) { return call("join ", device.mac); },
    .leave = [](Switch, const DetectedDevice &device, const Where &) { return call("leave ", device.mac); },
    .firstMiss = [](Switch, const DetectedDevice &device, const Where &) { call("miss ", device.mac); },
    .stillThere = [](Switch, const Sighting &one,
                     const Where &) { return call("there ", one.mac) && one.controlMode != 1; },
};

TEST_F(LoopTest, StepsOfAFamily) {
    DeviceList<DetectedDevice> list;
    const auto steps = [&](int scans = 1) {
        called.clear();
        for (int i = 0; i < scans; ++i)
            updateDevices(&client, kFamily, &list);
        return called;
    };
    // The last digits of an address, the port, and the control mode.
    const auto see = [](std::vector<std::tuple<const char *, std::uint32_t, std::uint32_t>> sightings) {
        seen.emplace();
        for (const auto &[last, port, mode] : sightings)
            seen->seen.push_back({.mac = *Mac::parse(std::string("aa:bb:cc:00:00:") + last),
                                  .port = IfNum(port),
                                  .controlMode = mode});
    };
    see({{"01", 1, 2}, {"02", 1, 1}, {"03", 2, 3}});
    EXPECT_EQ(steps(), "join 01 join 03 ");
    EXPECT_EQ(list.at(1)->controlMode, 3u);
    EXPECT_EQ(steps(), "there 01 there 03 ");
    // The report says what keeps a device that is known from its network, and comes back when it has been deleted.
    const auto reported = [] {
        std::string text;
        for (const DeviceState &state : readDeviceStates().value_or(std::vector<DeviceState>()))
            if (state.family == kFamily.name)
                text += state.address.substr(15) + " " + wordOf(state.kind) + ": " + state.reason + ", ";
        return text;
    };
    EXPECT_EQ(reported(), "01 seen: , 02 refused: locked out, 03 seen: , ");
    see({{"01", 1, 1}, {"03", 2, 3}});
    steps();
    const std::string lockedOut = "01 refused: locked out, 03 seen: , ";
    EXPECT_EQ(reported(), lockedOut);
    removeDeviceStates();
    steps();
    EXPECT_EQ(reported(), "");
    platform::manual_clock::advance(std::chrono::minutes(1));
    steps();
    EXPECT_EQ(reported(), lockedOut);
    // One that moves is still there; without words for it, it moves in silence.
    see({{"01", 4, 2}});
    EXPECT_EQ(steps(), "miss 03 there 01 ");
    EXPECT_EQ(systemLog().find("aa:bb"), std::string::npos);
    seen.reset();
    EXPECT_EQ(steps(25), "");
    EXPECT_EQ(logged("] comparing\n"), 6u);
    seen.emplace();
    EXPECT_EQ(steps(20), "miss 01 leave 03 leave 01 ");
    EXPECT_TRUE(list.empty());
}

TEST(MacAssociationsTest, TakesAnyOutput) {
    const std::string head = "MAC Address         VLAN ID\n----------------- -------\n";
    const auto mentions = [](const std::string &output) {
        const auto shown = MacAssociations::parse(output);
        return shown ? shown->mention(*Mac::parse("aa:BB:cc:00:00:01")) ? "yes" : "no" : "no table";
    };
    const std::string other = head + "11:22:33:44:55:66 7\n";
    for (const char *entry :
         {"AA:bb:CC:00:00:01 10\n", " \taa:bb:cc:00:00:01\t-1\r\n", "xaa:bb:cc:00:00:01x 5 more"})
        EXPECT_STREQ(mentions(other + entry), "yes") << entry;
    for (const char *entry : {"\n\n", "aa:bb:cc:00:00:01\n", "aa:bb:cc:00:00:01 x\n", "aa:bb:cc:00:00:0 1\n"})
        EXPECT_STREQ(mentions(other + entry), "no") << entry;
    EXPECT_STREQ(mentions(head + std::string(3000, ' ') + "aa:bb:cc:00:00:01 10\n"), "yes");
    for (const char *output : {"", "aa:bb:cc:00:00:01 10\n", "-------------\naa:bb:cc:00:00:01 10\n"})
        EXPECT_STREQ(mentions(output), "no table") << output;
    for (const char *rest : {"x", "aa:bb:cc:00:00:01 "})
        EXPECT_TRUE(MacAssociations::isCutShort(head + rest)) << rest;
    for (const char *rest : {"", "\n", "aa:bb:cc:00:00:01 10"})
        EXPECT_FALSE(MacAssociations::isCutShort(head + rest)) << rest;
    EXPECT_FALSE(MacAssociations::isCutShort(""));

    const auto table = MacAssociations::parse(head + "aa:bb:cc:00:00:01 10\nAA:bb:cc:00:00:02 11\n");
    EXPECT_EQ(table->addressesIn(VlanId{11}).at(0).text(), "AA:bb:cc:00:00:02");
    const auto address = Mac::parse("AA:BB:CC:00:00:01").value();
    EXPECT_TRUE(table->hold(address, VlanId{10}));
    EXPECT_FALSE(table->hold(address, VlanId{11}));
}

}  // namespace
