#include "common/response_ops.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <cstring>
#include <future>
#include <string>

#include "common/files.h"
#include "common/json.h"
#include "common/log.h"
#include "common/result.h"
#include "platform/manual_clock.h"
#include "tests/support/limited_memory.h"
#include "tests/support/root.h"

namespace {

using namespace pavo;
using test_support::LimitedMemory;
using test_support::readFile;
using test_support::writeText;

constexpr const char *kFile = "/tmp/result_test.json";

class ResultTest : public testing::Test {
  protected:
    ResultTest() { devmgrLogOpen(LOG_SINK_FILE, LOG_FACILITY_USER, "test"); }
    ~ResultTest() override { devmgrLogClose(); }

    static std::string log() { return readFile(platform::paths::kLogFile); }
    static bool logged(const std::string &part) { return log().find(part) != std::string::npos; }
};

TEST_F(ResultTest, DataThenRespOrTheFailureAlone) {
    char out[256] = {};
    ASSERT_EQ(responseJsonStr(0, "vlan", "{\"id\":5}", out), 0);
    EXPECT_STREQ(out,
                 "{\n\t\"vlan\":\t{\n\t\t\"id\":\t5\n\t},\n\t\"resp\":\t{\n\t\t\"respCode\":\t0,\n"
                 "\t\t\"respMsg\":\t\"Success\",\n\t\t\"status\":\t\"success\"\n\t}\n}");

    const auto failure = [](const std::string &code, const std::string &message) {
        return "{\n\t\"resp\":\t{\n\t\t\"respCode\":\t" + code + ",\n\t\t\"respMsg\":\t\"" + message +
               "\",\n\t\t\"status\":\t\"fail\"\n\t}\n}";
    };
    std::memset(out, '#', sizeof out);
    ASSERT_EQ(responseJsonStr(12345, "vlan", "{}", out), 0);
    const auto unknown = failure("12345", "Error code unknown");
    EXPECT_EQ(unknown + '#', std::string(out, unknown.size() + 1)) << "no terminating zero is written";
    EXPECT_EQ(messageOf({ResultCode::NotExist, ""}), "Object not exist");
    EXPECT_EQ(failureEnvelope({ResultCode::InvalidArgument, "\"name\": 3\xc3 is not a string"}),
              failure("10003", R"(Invalid argument: \"name\": 3? is not a string)"));
}

TEST_F(ResultTest, UnparsableDataGivesNoText) {
    char out[8] = {};
    EXPECT_EQ(responseJsonStr(0, "vlan", "{\"id\":", out), -1);
    EXPECT_EQ(responseJsonStr(0, "vlan", nullptr, out), -1);
    EXPECT_STREQ(out, "");

    char *text = strdup("before");
    EXPECT_EQ(responseJsonRreallocStr(0, "vlan", "{\"id\":", &text), 10000);
    EXPECT_STREQ(text, "before");
    EXPECT_TRUE(logged("[MEM] Failed to parse data JSON\n"));

    // A key without data is an answer without data; data may be the text that is replaced.
    EXPECT_EQ(responseJsonRreallocStr(0, "vlan", nullptr, &text), 0);
    EXPECT_EQ(std::strstr(text, "vlan"), nullptr);
    EXPECT_EQ(responseJsonRreallocStr(0, "rows", text, &text), 0);
    EXPECT_EQ(std::string(text).find("{\n\t\"rows\":\t{\n\t\t\"resp\":"), 0u);
    std::free(text);
}

TEST_F(ResultTest, EveryFailingAllocationGivesNoText) {
    bool isEnough = false;
    for (int allocations = 0; !isEnough; ++allocations) {
        ASSERT_LT(allocations, 100);
        char *text = nullptr;
        char out[256] = {};
        const auto limited = [&](auto call) {
            const LimitedMemory memory(allocations);
            return call();
        };
        const int code = limited([&] { return responseJsonStr(0, "vlan", "{\"name\":\"x\"}", out); });
        const auto reallocCode =
            limited([&] { return responseJsonRreallocStr(0, "vlan", "{\"name\":\"x\"}", &text); });
        const TextPtr owner(text);
        isEnough = code == 0;
        EXPECT_EQ(code, isEnough ? 0 : -1);
        ASSERT_EQ(reallocCode, isEnough ? 0 : 10000);
        EXPECT_STREQ(out, isEnough ? text : "");
        EXPECT_EQ(text != nullptr, isEnough);
    }
    for (const char *what : {"create root object", "create resp object", "parse data JSON", "print JSON"})
        EXPECT_TRUE(logged(std::string("[MEM] Failed to ") + what)) << what;
    const LimitedMemory memory(2);
    EXPECT_EQ(failureEnvelope({}), "");
    EXPECT_TRUE(logged("package response str error\r\n"));
}

TEST_F(ResultTest, ParametersAreBoundedAndEachIsOfItsKind) {
    const JsonPtr obj(cJSON_Parse("{\"name\":\"abcdef\",\"id\":-5,\"big\":1e300,\"none\":null}"));
    char dst[8] = "#######";
    EXPECT_EQ(getStrAndCpyTo(obj.get(), "name", dst, 4), 0);
    std::int32_t value = 0;
    EXPECT_EQ(getIntAndCpyTo(obj.get(), "big", &value), 0);
    for (const char *key : {"missing", "id", "none"})
        EXPECT_EQ(getStrAndCpyTo(obj.get(), key, dst, 8), 10003) << key;
    for (const char *key : {"missing", "name"})
        EXPECT_EQ(getIntAndCpyTo(obj.get(), key, &value), 10003);
    EXPECT_STREQ(dst, "abcd###");
    EXPECT_EQ(value, INT32_MAX);
    EXPECT_TRUE(logged("missing param error :{\n\t\"name\":\t\"abcdef\""));
    EXPECT_EQ(test_support::occurrences(log(), "param error"), 5u);
}

TEST_F(ResultTest, FilesAreReplacedWholeOrNotAtAll) {
    constexpr const char *kInside = "/tmp/new/folder/file";
    for (const char *text : {"first", "second"})
        ASSERT_TRUE(replaceFile(kInside, text));
    {
        const test_support::FullDisk full(1 << 16);
        EXPECT_EQ(codeOf(replaceFile(kInside, std::string(100'000, 'x'))), 10000);
    }
    EXPECT_EQ(readFile(kInside), "second");
    EXPECT_TRUE(logged("Write file error.../tmp/new/folder/file.new"));
    // Nothing that is written beside it stays behind.
    EXPECT_FALSE(test_support::exists("/tmp/new/folder/file.new"));
}

TEST_F(ResultTest, LinksAndPipesInTheirPlaceAreNotUsed) {
    const auto link = [](const char *target, const char *name) {
        std::filesystem::create_symlink(platform::fsPath(target), platform::fsPath(name));
    };
    std::filesystem::create_directories(platform::fsPath("/usr/share"));
    writeText("/tmp/precious", "kept");
    link("/tmp/precious", "/tmp/file.new");
    EXPECT_EQ(codeOf(replaceFile("/tmp/file", "text")), 10000);
    EXPECT_TRUE(logged("Open dir error.../tmp/file.new"));
    link("/tmp/precious", "/tmp/link");
    for (const char *mode : {"w", "a", "r", "r+", "a+"})
        EXPECT_EQ(openFile("/tmp/link", mode), nullptr) << mode;
    EXPECT_EQ(pavo::readFile("/tmp/link"), std::nullopt);
    EXPECT_EQ(readFile("/tmp/precious"), "kept");
    // Where only the installation puts files, a link is its own business, as long as nothing is written.
    link("/tmp/precious", "/usr/share/link");
    EXPECT_EQ(pavo::readFile("/usr/share/link"), "kept");
    EXPECT_NE(openFile("/usr/share/link", "r"), nullptr);
    EXPECT_EQ(openFile("/usr/share/link", "w"), nullptr);
    ASSERT_EQ(mkfifo(platform::fsPath("/tmp/pipe").c_str(), 0600), 0);
    for (const char *mode : {"w", "a", "r"})
        EXPECT_EQ(openFile("/tmp/pipe", mode), nullptr) << mode;
}

TEST_F(ResultTest, ALockIsWaitedForAsLongAsTheLimit) {
    constexpr const char *kLock = "/tmp/test.lock";
    EXPECT_TRUE(FileLock(kLock).held());
    EXPECT_TRUE(test_support::exists(kLock));
    const auto wait = [](platform::Duration most) {
        const FileLock lock(kLock, FileLock::Afterwards::Remove, most, Where("join", 7));
        return std::pair(lock.state(), lock.timedOut());
    };
    const std::pair tooLate(FileLock::State::NotLocked, true);
    FileLock holder(kLock, FileLock::Afterwards::Remove);
    ASSERT_TRUE(holder.held());
    EXPECT_EQ(wait({}), tooLate);
    EXPECT_EQ(log(), "") << "nobody has waited";

    auto waiter = std::async(std::launch::async, wait, std::chrono::minutes(1));
    const auto passUntil = [&](auto condition) {
        for (int i = 0; i < 2000 && !condition(); ++i) {
            platform::manual_clock::advance(std::chrono::milliseconds(700));
            waiter.wait_for(std::chrono::milliseconds(3));
        }
    };
    passUntil([&] { return !log().empty(); });
    EXPECT_TRUE(logged("(WARN): test: [join:7] waiting for the lock /tmp/test.lock, for at most 60 s\n"));
    passUntil([&] { return waiter.wait_for(std::chrono::seconds(0)) == std::future_status::ready; });
    EXPECT_EQ(waiter.get(), tooLate);
    EXPECT_TRUE(test_support::exists(kLock)) << "it is the holder's";
    EXPECT_EQ(test_support::occurrences(log(), "\n"), 1u) << log();

    waiter = std::async(std::launch::async, wait, std::chrono::minutes(1));
    passUntil([&] { return test_support::occurrences(log(), "\n") == 2; });
    holder.release();
    EXPECT_EQ(waiter.get(), std::pair(FileLock::State::Held, false));
    EXPECT_FALSE(test_support::exists(kLock)) << "taken along, as the caller wanted";
    std::filesystem::create_symlink("/tmp/elsewhere", platform::fsPath(kLock));
    EXPECT_EQ(FileLock(kLock).state(), FileLock::State::NotOpened);
}

TEST_F(ResultTest, JsonComesFromWholeRegularFilesOnly) {
    const std::string path = platform::fsPath(kFile), filled(JSON_FILE_MAX - 2, ' ');
    const auto load = [] { return JsonPtr(jsonFileLoad(kFile)); };
    EXPECT_EQ(load(), nullptr);
    for (const auto &[text, isWhole] : {std::pair<std::string, bool>{"", false},
                                        {"{\"a\":", false},
                                        {"nothing", false},
                                        {"{\"a\":[1,2]}", true},
                                        {"[" + filled + "]", true}}) {
        writeText(kFile, text);
        EXPECT_EQ(load() != nullptr, isWhole) << text.substr(0, 20);
    }
    EXPECT_EQ(log(), "");
    writeText(kFile, "[ " + filled + "]");
    EXPECT_EQ(load(), nullptr);
    EXPECT_TRUE(logged(std::string("file too large:") + kFile + "\r\n"));

    std::filesystem::remove(path);
    std::filesystem::create_directory(path);
    EXPECT_EQ(load(), nullptr);
}

}  // namespace
