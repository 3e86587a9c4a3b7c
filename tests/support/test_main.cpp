// The main of every test program: a private root folder that goes away in the end, and the manual clock at
// zero.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "platform/manual_clock.h"
#include "tests/support/root.h"

namespace {

namespace fs = std::filesystem;

// Every test starts with an empty root and with time at zero.
class FreshState : public testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo &) override {
        test_support::clearRoot();
        platform::manual_clock::reset();
    }
};

}  // namespace

namespace test_support {

void clearRoot() {
    const fs::path root = std::getenv("PAVO_ROOT");
    for (const auto &entry : fs::directory_iterator(root))
        fs::remove_all(entry.path());
    fs::create_directories(root / "tmp");
    fs::create_directories(root / "mnt/application/pavo/tmp");
}

}  // namespace test_support

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    auto pattern = (fs::current_path() / "root-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
        std::perror("mkdtemp");
        return 2;
    }
    setenv("PAVO_ROOT", pattern.c_str(), 1);
    testing::UnitTest::GetInstance()->listeners().Append(new FreshState);
    const int result = RUN_ALL_TESTS();
    fs::remove_all(pattern);
    return result;
}
