#include "store/delta_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "platform/manual_clock.h"
#include "tests/support/cache_fixture.h"

namespace {

using namespace pavo;
using platform::paths::kResponseCacheDelta;
using Names = std::set<std::string>;

class DeltaFileTest : public test_support::CacheTest {
  protected:
    static std::string path() { return platform::fsPath(kResponseCacheDelta); }
    static void append(const std::string &text) {
        const int fd = open(path().c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
        EXPECT_EQ(static_cast<ssize_t>(text.size()), ::write(fd, text.data(), text.size()));
        close(fd);
    }
    static auto size() { return std::filesystem::file_size(path()); }

    DeltaFile file;
};

TEST_F(DeltaFileTest, LinesInPiecesOfAnySize) {
    const std::string longest(DeltaLines::kNameMax, 'n');
    struct {
        std::string text;
        Names names;
        bool everything;
        std::size_t unfinished;
    } cases[] = {
        {"vlan_list\n\nprofile/list_ex\nvlan_list\n", {"vlan_list", "profile/list_ex"}, false, 0},
        {"vlan_list\npro", {"vlan_list"}, false, 3},
        {longest + "\n" + longest + "n\n", {longest}, true, 0},
        {"vlan\x01list\nlogging\n", {"logging"}, true, 0},
        {std::string("vlan\0list\n", 10), {}, true, 0},
        {"\xff\n", {}, true, 0},
        {std::string(1 << 20, 'x'), {}, false, 1 << 20},
    };
    for (std::size_t i = 0; i <= DeltaLines::kNamesMax; ++i)
        cases[5].text += "name " + std::to_string(i) + "\n";
    for (const auto &[text, names, everything, unfinished] : cases)
        for (const std::size_t piece : {text.size(), std::size_t{1}, std::size_t{7}}) {
            DeltaLines lines;
            for (std::size_t at = 0; at < text.size(); at += piece)
                lines.take(std::string_view(text).substr(at, piece));
            EXPECT_EQ(unfinished, lines.unfinished());
            const auto news = lines.news();
            EXPECT_EQ(names, news.names);
            EXPECT_EQ(everything, news.everything);
            EXPECT_TRUE(lines.news().empty());
            lines.cutShort();
            EXPECT_EQ(unfinished > 0, lines.news().everything);
        }
}

TEST_F(DeltaFileTest, WhatIsReadIsNotReadAgain) {
    EXPECT_FALSE(file.hasNews());
    EXPECT_TRUE(file.take().empty());
    ASSERT_EQ(0, create());
    write("vlan_list", "1");
    EXPECT_TRUE(file.hasNews());
    EXPECT_EQ((Names{"vlan_list"}), file.take().names);
    EXPECT_EQ(0u, size());
    EXPECT_FALSE(file.hasNews());

    // Somebody has it open: it is not emptied, but gives back what it takes.
    const int other = open(path().c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    const std::string many(8192, '\n');
    append(many + "logging\n");
    EXPECT_EQ((Names{"logging"}), file.take().names);
    EXPECT_EQ(many.size() + 8, size());
    struct stat info{};
    ASSERT_EQ(0, stat(path().c_str(), &info));
    EXPECT_LE(info.st_blocks * 512, 4096);
    EXPECT_TRUE(file.take().empty());
    EXPECT_EQ(4, ::write(other, "ptp\n", 4));
    EXPECT_EQ((Names{"logging", "ptp"}), DeltaFile().take().names) << "by the next program";
    close(other);
    EXPECT_EQ((Names{"ptp"}), file.take().names);
    EXPECT_EQ(0u, size());

    // The rest of a line that was begun is waited for, but not for ever.
    append("vlan_");
    EXPECT_TRUE(file.take().empty());
    append("list\nprof");
    EXPECT_EQ((Names{"vlan_list"}), file.take().names);
    EXPECT_TRUE(file.take().empty());
    platform::manual_clock::advance(DeltaFile::kLineWait);
    EXPECT_TRUE(file.take().everything);
    EXPECT_EQ(0u, size());

    // Replaced, or something else in its place.
    append("a\n");
    EXPECT_EQ((Names{"a"}), file.take().names);
    std::filesystem::remove(path());
    append("b\n");
    EXPECT_EQ((Names{"b"}), file.take().names);
    test_support::writeText("/tmp/elsewhere", "c\n");
    for (const bool isLink : {true, false}) {
        std::filesystem::remove(path());
        if (isLink)
            std::filesystem::create_symlink(platform::fsPath("/tmp/elsewhere"), path());
        else
            std::filesystem::create_directory(path());
        const auto lines = logged("cannot be read");
        EXPECT_FALSE(file.hasNews());
        EXPECT_TRUE(file.take().empty() && file.take().empty());
        EXPECT_EQ(lines + 1, logged("cannot be read"));
    }
    EXPECT_EQ("c\n", test_support::readFile("/tmp/elsewhere"));
}

// What others append with their own means, while readers come and go.
TEST_F(DeltaFileTest, NoLineOfManyWritersIsLost) {
    constexpr int kWriters = 4, kLines = 50, kRounds = 10;
    ASSERT_EQ(0, create());
    for (int round = 0; round < kRounds; ++round) {
        Names written, read;
        std::vector<pid_t> writers;
        for (int writer = 0; writer < kWriters; ++writer) {
            const std::string start = std::to_string(round) + " " + std::to_string(writer) + " ";
            for (int i = 0; i < kLines; ++i)
                written.insert(start + std::to_string(i));
            if (const pid_t child = fork(); child != 0) {
                writers.push_back(child);
                continue;
            }
            for (int i = 0; i < kLines; ++i)
                if (writer == 0)
                    write((start + std::to_string(i)).c_str(), "text");
                else
                    append(start + std::to_string(i) + "\n");
            _exit(0);
        }
        auto reader = std::make_unique<DeltaFile>();
        const auto take = [&] {
            const auto news = reader->take();
            EXPECT_FALSE(news.everything);
            read.insert(news.names.begin(), news.names.end());
        };
        while (!writers.empty()) {
            for (int i = 0; i < 20; ++i)
                take();
            reader = std::make_unique<DeltaFile>();
            std::erase_if(writers, [](pid_t child) { return waitpid(child, nullptr, WNOHANG) == child; });
        }
        take();
        EXPECT_EQ(written, read);
        EXPECT_EQ(0u, size());
    }
    EXPECT_EQ(0u, logged("ERROR"));
}

}  // namespace
