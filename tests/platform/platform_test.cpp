#include <gtest/gtest.h>

#include <cstdlib>
#include <thread>
#include <vector>

#include "platform/manual_clock.h"
#include "platform/paths.h"

using namespace std::chrono_literals;

namespace platform {
namespace {

TEST(ManualClock, SleepersWakeAtTheirOwnTime) {
    const std::vector<Duration> sleeps{3s, 1s, 2s, 1s, 5s};
    std::vector<Duration> woken(sleeps.size());
    std::vector<std::thread> threads;
    for (std::size_t n = 0; n < sleeps.size(); ++n)
        threads.emplace_back([&, n] {
            sleepFor(sleeps[n]);
            woken[n] = monotonicNow();
        });
    ASSERT_TRUE(manual_clock::awaitSleepers(5));
    for (const auto &[step, left] :
         {std::pair<Duration, std::size_t>{1s - 1us, 5}, {1us, 3}, {1s, 2}, {10s, 0}}) {
        manual_clock::advance(step);
        EXPECT_EQ(manual_clock::sleepers(), left);
    }
    for (std::size_t n = 0; n < sleeps.size(); ++n) {
        threads[n].join();
        EXPECT_GE(woken[n], sleeps[n]);
    }
    EXPECT_EQ(12s, monotonicNow());
    EXPECT_EQ(12s, manual_clock::totalSlept());
}

TEST(ManualClock, AutoAdvanceAndWallTime) {
    manual_clock::setAutoAdvance(true);
    sleepFor(90s + 7us);
    sleepFor(-5s);
    EXPECT_EQ(90s + 7us, monotonicNow());
    const auto wall = wallNow();
    EXPECT_EQ(1767225600 + 90, wall.tv_sec);
    EXPECT_EQ(7000, wall.tv_nsec);
    manual_clock::reset();
    EXPECT_EQ(0s, monotonicNow());
    EXPECT_EQ(0s, manual_clock::totalSlept());
}

TEST(FsRoot, PutsTheRootInFront) {
    const std::string own = std::getenv("PAVO_ROOT");
    for (const auto &[root, expected] : {std::pair{"/srv/x", "/srv/x/tmp/a"},
                                         {"/srv/x///", "/srv/x/tmp/a"},
                                         {"/", "/tmp/a"},
                                         {"", "/tmp/a"},
                                         {"rel/", "rel/tmp/a"}}) {
        setenv("PAVO_ROOT", root, 1);
        EXPECT_EQ(expected, fsPath("/tmp/a"));
    }
    unsetenv("PAVO_ROOT");
    EXPECT_EQ("/tmp/a", fsPath("/tmp/a"));
    setenv("PAVO_ROOT", own.c_str(), 1);
    EXPECT_EQ(own + paths::kLogFile, fsPath(paths::kLogFile));
}

}  // namespace
}  // namespace platform
