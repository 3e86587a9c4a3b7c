// The supervision of real detection threads on the clock of the test.
#include "detection/supervisor.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <thread>

#include "detection/audac.h"
#include "detection/lightware.h"
#include "platform/paths.h"
#include "tests/detection/detection_fixture.h"

namespace {

using namespace std::chrono_literals;
using namespace test_support;
namespace clk = platform::manual_clock;
namespace paths = platform::paths;

// Creates threads for the supervisor that a test can wait for.
struct Threads {
    static inline std::vector<pthread_t> created;
    static inline std::size_t failing;  // the first creation that fails, from 1
    static inline bool attributesGood;

    static int create(pthread_t *id, const pthread_attr_t *attributes, void *(*entry)(void *), void *arg) {
        int state = 0;
        std::size_t size = 0;
        pthread_attr_getdetachstate(attributes, &state);
        pthread_attr_getstacksize(attributes, &size);
        attributesGood = attributesGood && state == PTHREAD_CREATE_DETACHED && size == 0x200000;
        if (created.size() + 1 >= failing)
            return EAGAIN;
        const int result = pthread_create(id, nullptr, entry, arg);
        created.push_back(*id);
        return result;
    }
    static void join(std::size_t number) { EXPECT_EQ(pthread_join(created.at(number - 1), nullptr), 0); }
};

class SupervisorTest : public DetectionTest {
  protected:
    static constexpr const char *kAudac = "AUDAC Audio and Control Network";
    static constexpr const char *kLightware = "AVoIP Lightware AV network";

    void SetUp() override {
        DetectionTest::SetUp();
        Threads::created.clear();
        Threads::failing = SIZE_MAX;
        Threads::attributesGood = true;
        lightwareRunning = 0;
        writeText(paths::kAudacConfig, R"({"audioVlanID":100,"audacDevicePort":[5]})");
        vlanCreate(286);
    }
    void TearDown() override {
        EXPECT_EQ(clk::sleepers(), 0u) << "a thread was left behind";
        EXPECT_TRUE(Threads::attributesGood);
        DetectionTest::TearDown();
    }
    // A profile's VLAN, in the database and on the switch.
    void profileAdd(int vlan, const char *type) {
        vlanCreate(static_cast<vswitch::VlanId>(vlan));
        profileStore(vlan, type);
    }
    // Time passes until `sleepers` threads wait for more.
    static void pass(platform::Duration time, std::size_t sleepers) {
        clk::advance(time);
        ASSERT_TRUE(clk::awaitSleepers(sleepers));
    }
    void expectStopped() {
        supervisor.stop();
        EXPECT_EQ(systemLogged("Stopping System API application"), 1u);
        EXPECT_NE(openapiClientTearDown(&client), OPEN_E_NONE);
    }
    // Without the workers, which never end.
    static constexpr const DetectionRow *kFamilies[] = {&audacDetection, &lightwareDetection};
    Supervisor supervisor{&client, Threads::create, kFamilies};
};

TEST_F(SupervisorTest, RestartsThreadsWhoseProfileIsBack) {
    clk::setAutoAdvance(false);
    profileAdd(50, kAudac);
    profileAdd(300, kLightware);
    ASSERT_TRUE(supervisor.start());
    std::thread main([&] { supervisor.run(); });
    ASSERT_TRUE(clk::awaitSleepers(3));

    // Audac's ends at 15 s. The passes at 30 s and 60 s find no profile, that at 90 s no configuration.
    profileRemove(50);
    pass(15s, 2);
    Threads::join(1);
    pass(15s, 2);
    pass(30s, 2);
    EXPECT_EQ(logged("(ERROR)") + logged("(WARN)"), 0u);
    profileAdd(50, kAudac);
    const auto config = readFile(paths::kAudacConfig);
    writeText(paths::kAudacConfig, "{}");
    pass(30s, 2);
    EXPECT_EQ(Threads::created.size(), 2u);
    writeText(paths::kAudacConfig, config);
    pass(30s, 3);
    EXPECT_EQ(Threads::created.size(), 3u);

    // Lightware's ends at 150 s; VLAN 286 does not bring it back, nor does a VLAN that the switch lacks.
    profileRemove(300);
    for (const int vlan : {286, 301})
        profileStore(vlan, kLightware);
    EXPECT_EQ(lightwareRunning, 1);
    pass(15s, 3);
    pass(15s, 2);
    Threads::join(2);
    EXPECT_EQ(lightwareRunning, 0);
    pass(30s, 2);
    EXPECT_EQ(Threads::created.size(), 3u);
    vlanCreate(301);
    pass(30s, 2);
    EXPECT_EQ(lightwareRunning, 0);  // first a second's pause
    pass(1s, 3);
    EXPECT_EQ(lightwareRunning, 1);
    EXPECT_EQ(Threads::created.size(), 4u);

    // The end: both profiles go, and the thread that should come back cannot be made.
    profileRemove(50);
    profileRemove(301);
    pass(14s, 2);
    Threads::join(3);
    pass(16s, 1);
    Threads::join(4);
    EXPECT_EQ(lightwareRunning, 0);
    Threads::failing = 5;
    profileAdd(50, kAudac);
    clk::advance(30s);
    main.join();
    EXPECT_EQ(logged("(ERROR)"), 1u);
    EXPECT_EQ(logged("Fatal error unable to recreate detect audac thread!"), 1u);
    // Neither can Lightware's.
    clk::setAutoAdvance(true);
    profileRemove(50);
    profileStore(301, kLightware);
    expectErrors(1, {"Fatal error unable to recreate detect lightware thread!"},
                 [&] { EXPECT_FALSE(supervisor.pass()); });
    EXPECT_EQ(lightwareRunning, 0);
    expectStopped();
}

TEST_F(SupervisorTest, EndsWhenAThreadCannotBeCreated) {
    clk::setAutoAdvance(false);
    const auto refused = [&] { EXPECT_FALSE(supervisor.start()); };
    Threads::failing = 1;
    expectErrors(1, {"Fatal error unable to create detect audac thread!"}, refused);
    EXPECT_TRUE(Threads::created.empty());

    // Without Lightware's the process ends although Audac's is running.
    profileAdd(50, kAudac);
    Threads::failing = 2;
    expectErrors(1, {"Fatal error unable to create detect lightware thread!"}, refused);
    EXPECT_EQ(lightwareRunning, 0);
    ASSERT_TRUE(clk::awaitSleepers(1));
    expectStopped();
    profileRemove(50);  // a switch that is not there any more would not end it
    clk::advance(15s);
    Threads::join(1);
}

}  // namespace
