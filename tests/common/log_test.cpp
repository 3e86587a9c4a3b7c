#include "common/log.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "platform/manual_clock.h"
#include "tests/support/root.h"

// --- syslog as the program calls it

namespace {

std::vector<std::string> syslogCalls;

}  // namespace

extern "C" {

void openlog(const char *identity, int, int facility) noexcept {
    syslogCalls.push_back("open " + std::string(identity) + " " + std::to_string(facility));
}

void closelog() noexcept {
    syslogCalls.emplace_back("close");
}

void vsyslog(int priority, const char *format, std::va_list arguments) {
    char text[256];
    std::vsnprintf(text, sizeof text, format, arguments);
    syslogCalls.push_back(std::to_string(priority) + " " + text);
}

}  // extern "C"

namespace {

using namespace pavo;
using namespace platform::paths;
using test_support::readFile;
using test_support::writeText;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

constexpr std::size_t kLimit = 0x100000;
constexpr int kWriters = 4;

enum class Level : int { Notice = LOG_LEVEL_NOTICE };

class LogTest : public testing::Test {
  protected:
    LogTest() {
        setenv("TZ", "UTC", 1);
        tzset();
    }
    ~LogTest() override {
        CaptureStdout();
        log(LOG_LEVEL_ERROR, "nothing is closed before the first message");
        devmgrLogClose();
        GetCapturedStdout();
    }

    static std::filesystem::path rootPath(const char *path) { return platform::fsPath(path); }
    static void log(int level, const char *text) { devmgrLog(level, "[%s:%d] %s\n", "f", 7, text); }
    static void openFile(const char *identity = "daemon") {
        devmgrLogOpen(LOG_SINK_FILE, LOG_FACILITY_USER, identity);
    }
    // Lines of writer `t`, counted from 0.
    static void logNumbers(int t, int count) {
        for (int i = 0; i < count; ++i)
            devmgrLog(LOG_LEVEL_INFO, "[%s:%d] %d-%d end\n", "f", 7, t, i);
    }
    // The first and the last number of each writer, -1 without any; between them each line is whole, and none
    // is missing.
    static std::vector<std::pair<int, int>> numbersLogged() {
        std::istringstream lines(readFile(kLogFileOld) + readFile(kLogFile));
        std::vector<std::pair<int, int>> ranges(kWriters, {-1, -1});
        for (std::string text; std::getline(lines, text);) {
            std::size_t t = 0;
            int i = 0;
            if (text[0] == '.')
                continue;
            const int read = std::sscanf(text.c_str(), "%*s %*s (INFO): daemon: [f:7] %zu-%d end", &t, &i);
            auto &[first, last] = ranges.at(t);
            EXPECT_TRUE(read == 2 && (first < 0 || i == last + 1)) << text;
            first = first < 0 ? i : first;
            last = i;
        }
        return ranges;
    }
    // What log() writes as long as the clock stands still.
    static std::string line(const std::string &level, const std::string &text,
                            const std::string &identity = "daemon") {
        return "2026-01-01 00:00:00.000 (" + level + "): " + identity + ": [f:7] " + text + "\n";
    }
};

TEST_F(LogTest, LineShowsLocalTimeLevelCallerAndMessage) {
    openFile();
    for (const auto &[ms, level] : {std::pair{3'723'042, 3}, {57, 6}, {901, 1}}) {
        platform::manual_clock::advance(std::chrono::milliseconds(ms));
        log(level, "a");
    }
    setenv("TZ", "EAST-5:30", 1);  // as it is set at the moment
    platform::manual_clock::advance(std::chrono::seconds(1));
    const auto report = [](Where where = std::source_location::current()) {
        logError(where, "[%s:%d] %s on behalf\n", std::string("text"));
    };
    const int number = __LINE__ + 1;
    [&] { logNotice("[%s:%d] %d %ld %zu%%\r\n", Level::Notice, -5L, sizeof(char)); }();
    report();
    const auto at = [&](int line) { return "daemon: [TestBody:" + std::to_string(line) + "] "; };
    EXPECT_EQ(readFile(kLogFile),
              "2026-01-01 01:02:03.042 (ERROR): daemon: [f:7] a\n"
              "2026-01-01 01:02:03.099 (INFO): daemon: [f:7] a\n"
              "2026-01-01 01:02:04.000 (): daemon: [f:7] a\n"
              "2026-01-01 06:32:05.000 (NOTICE): " +
                  at(number) + "5 -5 1%\r\n2026-01-01 06:32:05.000 (ERROR): " + at(number + 1) +
                  "text on behalf\n");
}

TEST_F(LogTest, EverySinkFormatsItsOwnArguments) {
    syslogCalls.clear();
    devmgrLogOpen(LOG_SINK_FILE | LOG_SINK_SYSLOG | LOG_SINK_STDOUT, LOG_FACILITY_USER, "daemon");
    EXPECT_TRUE(syslogCalls.empty()) << "opened with the first message";
    std::setvbuf(stdout, nullptr, _IOFBF, BUFSIZ);
    CaptureStdout();
    devmgrLog(LOG_LEVEL_NOTICE, "[%s:%d] %s %.1f\n", "f", 7, "text", 2.5);
    std::string out;
    std::getline(std::ifstream("/proc/self/fd/1"), out);
    GetCapturedStdout();
    EXPECT_EQ(out + "\n", line("NOTICE", "text 2.5")) << "there at once";
    EXPECT_EQ(readFile(kLogFile), line("NOTICE", "text 2.5"));
    log(LOG_LEVEL_DEBUG, "below the threshold");
    CaptureStdout();
    logWarn(Where("f", 8), "[%s:%d] 100%% of %s\n", "text");
    GetCapturedStdout();
    devmgrLogClose();
    EXPECT_EQ(syslogCalls, (std::vector<std::string>{"open daemon 8", "5 [f:7] text 2.5\n",
                                                     "4 [f:8] 100% of text\n", "close"}));
}

TEST_F(LogTest, LongMessagesAreNotCut) {
    openFile();
    std::string expected;
    // Up to 1023 bytes a line is put together in place.
    for (const std::size_t length : {975u, 976u, 100'000u}) {
        const std::string text(length, 'x');
        log(3, text.c_str());
        expected += line("ERROR", text);
    }
    EXPECT_EQ(readFile(kLogFile), expected);
}

TEST_F(LogTest, ThresholdFollowsTheLevelFile) {
    writeText(kLogLevelFile, "x");
    openFile();
    EXPECT_EQ(readFile(kLogLevelFile), std::string("6\0\0\0", 4));
    EXPECT_EQ(devmgrLogLevelGet(), 6);
    log(7, "dropped");
    // As another process does it, in place.
    std::fstream level(rootPath(kLogLevelFile), std::ios::in | std::ios::out);
    level << '7' << std::flush;
    log(7, "shown");
    level.seekp(0) << '0' << std::flush;
    log(3, "dropped");
    EXPECT_EQ(devmgrLogLevelGet(), 0);
    level.seekp(0) << 'q' << std::flush;
    EXPECT_EQ(devmgrLogLevelGet(), 6);
    EXPECT_EQ(readFile(kLogFile), line("DEBUG", "shown"));
}

TEST_F(LogTest, LevelFileIsEverybodysAndMayBeTruncated) {
    const mode_t before = umask(0);
    openFile(nullptr);
    umask(before);
    EXPECT_EQ(std::filesystem::status(rootPath(kLogLevelFile)).permissions(), std::filesystem::perms{0666});
    std::ofstream level(rootPath(kLogLevelFile), std::ios::trunc);  // what "echo 7 > file" does first
    EXPECT_EQ(devmgrLogLevelGet(), 6);
    EXPECT_EQ(readFile(kLogLevelFile), "");  // nothing over the digit that is to come
    level << "7\n" << std::flush;
    log(7, "a");
    EXPECT_EQ(readFile(kLogFile), line("DEBUG", "a", "common_test"));
}

TEST_F(LogTest, LinksAreNotFollowed) {
    writeText("/tmp/precious", "kept");
    for (const char *path : {kLogLevelFile, kLogFile, kLogFileOld})
        std::filesystem::create_symlink(rootPath("/tmp/precious"), rootPath(path));
    openFile();
    CaptureStdout();
    log(6, "at the default level");
    EXPECT_EQ(GetCapturedStdout(), line("INFO", "at the default level"));
    // Nor is a file cut that has another name.
    for (const char *path : {kLogLevelFile, kLogFile})
        std::filesystem::remove(rootPath(path));
    std::filesystem::create_hard_link(rootPath("/tmp/precious"), rootPath(kLogLevelFile));
    openFile();
    log(3, std::string(kLimit, 'x').c_str());
    EXPECT_FALSE(std::filesystem::is_symlink(rootPath(kLogFileOld)));
    EXPECT_EQ(readFile("/tmp/precious"), "kept");
}

TEST_F(LogTest, LineThatCrossesTheLimitStaysInTheOldFile) {
    const std::string a = line("ERROR", "a"), full(kLimit - a.size(), '.');
    writeText(kLogFileOld, "older generation");
    writeText(kLogFile, full);
    openFile();
    // Exactly at the limit is no rotation yet.
    for (const auto &[file, old] : {std::pair<std::string, std::string>{full + a, "older generation"},
                                    {"", full + a + a},
                                    {a, full + a + a}}) {
        log(3, "a");
        EXPECT_TRUE(readFile(kLogFile) == file && readFile(kLogFileOld) == old);
    }
}

TEST_F(LogTest, FilesThatCannotBeOpenedOrRenamedLoseNoLine) {
    for (const char *path : {kLogLevelFile, kLogFile})
        std::filesystem::create_directory(rootPath(path));
    openFile();
    CaptureStdout();
    log(7, "dropped at the default level");
    log(3, "a");
    EXPECT_EQ(GetCapturedStdout(), line("ERROR", "a"));

    std::filesystem::remove(rootPath(kLogFile));
    std::filesystem::create_directories(rootPath(kLogFileOld) / "inside");
    writeText(kLogFile, std::string(kLimit, '.'));
    openFile();
    log(3, "first");
    log(3, "second");
    EXPECT_TRUE(readFile(kLogFile).ends_with(line("ERROR", "first") + line("ERROR", "second")));
}

TEST_F(LogTest, AFileThatHasGoneIsLeftBehind) {
    openFile();
    log(3, "a");
    std::filesystem::rename(rootPath(kLogFile), rootPath("/tmp/moved"));  // as another process does
    log(3, "b");
    EXPECT_EQ(readFile(kLogFile), line("ERROR", "b"));
    std::filesystem::remove(rootPath(kLogFile));
    log(3, "c");
    EXPECT_EQ(readFile(kLogFile), line("ERROR", "c"));
    EXPECT_EQ(readFile("/tmp/moved"), line("ERROR", "a"));
    // What stands there now cannot be opened: the lines go on where they went.
    std::filesystem::rename(rootPath(kLogFile), rootPath("/tmp/moved"));
    std::filesystem::create_directory(rootPath(kLogFile));
    log(3, "d");
    EXPECT_EQ(readFile("/tmp/moved"), line("ERROR", "c") + line("ERROR", "d"));
}

TEST_F(LogTest, WhoeverKeepsTheFileLockedPostponesTheRotation) {
    writeText(kLogFile, std::string(kLimit, '.'));
    openFile();
    const int holder = open(rootPath(kLogFile).c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(holder, LOCK_EX), 0);
    log(3, "a");
    EXPECT_EQ(readFile(kLogFile).substr(kLimit), line("ERROR", "a"));
    close(holder);
    log(3, std::string(kLimit, 'x').c_str());
    EXPECT_GT(readFile(kLogFileOld).size(), 2 * kLimit);
    EXPECT_EQ(readFile(kLogFile), "");
}

// Each process finds the file too large by itself. What is left must be whole: the last lines of everybody,
// without a gap, and a full generation of them.
TEST_F(LogTest, ProcessesRotateOnceForAll) {
    constexpr int kLines = 30'000;
    std::vector<pid_t> children;
    for (int t = 0; t < kWriters; ++t) {
        children.push_back(fork());
        if (children.back() == 0) {
            openFile();  // a descriptor of its own
            logNumbers(t, kLines);
            std::_Exit(0);
        }
    }
    for (const pid_t child : children) {
        int status = -1;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
    }
    const auto old = readFile(kLogFileOld).size();
    EXPECT_TRUE(old > kLimit && old < kLimit + kLimit / 4) << old;
    // One that was done early may have grown out of the file.
    for (const auto &[first, last] : numbersLogged())
        EXPECT_TRUE(last == kLines - 1 || last == -1) << last;
}

TEST_F(LogTest, ClosingNeedsAMessageAndReopeningChangesSettings) {
    openFile();
    devmgrLogClose();  // nothing logged yet: still open
    log(3, "a");
    openFile("other");
    log(3, "b");
    EXPECT_EQ(readFile(kLogFile), line("ERROR", "a") + line("ERROR", "b", "other"));
    writeText(kLogLevelFile, "7");
    devmgrLogClose();
    EXPECT_EQ(devmgrLogLevelGet(), 6);
    CaptureStdout();
    log(3, "c");
    EXPECT_EQ(GetCapturedStdout(), line("ERROR", "c", "other"));
}

TEST_F(LogTest, ThreadsNeitherMixNorLoseLines) {
    constexpr int kLines = 1000;
    writeText(kLogFile, std::string(kLimit - 100'000, '.') + "\n");
    openFile();
    std::atomic<int> running{kWriters};
    std::vector<std::jthread> threads;
    for (int t = 0; t < kWriters; ++t)
        threads.emplace_back([&running, t] {
            logNumbers(t, kLines);
            --running;
        });
    while (running > 0) {
        openFile();  // a reopening in between costs no line either
        std::this_thread::yield();
    }
    for (const auto &range : numbersLogged())
        EXPECT_EQ(range, std::pair(0, kLines - 1));
}

}  // namespace
