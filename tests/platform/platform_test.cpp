#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/manual_clock.h"
#include "platform/paths.h"

using namespace std::chrono_literals;

namespace platform {
namespace {

TEST(ManualClock, SleepersWakeAtTheirOwnTime) {
    std::mutex mutex;
    std::vector<std::pair<int, Duration>> woken;
    std::vector<std::thread> threads;
    const std::vector<Duration> sleeps{3s, 1s, 2s, 1s, 5s};
    for (std::size_t n = 0; n < sleeps.size(); ++n)
        threads.emplace_back([&, n] {
            sleepFor(sleeps[n]);
            const std::lock_guard lock(mutex);
            woken.emplace_back(static_cast<int>(n), monotonicNow());
        });
    ASSERT_TRUE(manual_clock::awaitSleepers(5));
    manual_clock::advance(1s - 1us);
    EXPECT_EQ(5u, manual_clock::sleepers());
    manual_clock::advance(1us);
    EXPECT_EQ(3u, manual_clock::sleepers());
    manual_clock::advance(1s);
    EXPECT_EQ(2u, manual_clock::sleepers());
    manual_clock::advance(10s);
    for (auto &thread : threads)
        thread.join();
    EXPECT_EQ(0u, manual_clock::sleepers());
    EXPECT_EQ(12s, monotonicNow());
    EXPECT_EQ(12s, manual_clock::totalSlept());

    ASSERT_EQ(5u, woken.size());
    for (const auto &[n, when] : woken)
        EXPECT_GE(when, sleeps[static_cast<std::size_t>(n)]);
}

TEST(ManualClock, RoundsOfAPeriodicThread) {
    std::vector<Duration> ticks;
    std::thread worker([&] {
        for (int round = 0; round < 5; ++round) {
            sleepFor(15s);
            ticks.push_back(monotonicNow());
        }
    });
    for (int round = 0; round < 5; ++round) {
        ASSERT_TRUE(manual_clock::awaitSleepers(1));
        manual_clock::advance(15s);
    }
    worker.join();
    EXPECT_EQ((std::vector<Duration>{15s, 30s, 45s, 60s, 75s}), ticks);
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
    const std::pair<const char *, const char *> cases[] = {{"/srv/x", "/srv/x/tmp/a"},
                                                           {"/srv/x///", "/srv/x/tmp/a"},
                                                           {"/", "/tmp/a"},
                                                           {"", "/tmp/a"},
                                                           {"rel/", "rel/tmp/a"}};
    for (const auto &[root, expected] : cases) {
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
