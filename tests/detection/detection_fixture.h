// What the tests of all device families need on top of the switch: a profile database and a view of the
// switch.
#ifndef PAVO_TESTS_DETECTION_DETECTION_FIXTURE_H
#define PAVO_TESTS_DETECTION_DETECTION_FIXTURE_H

#include <pthread.h>

#include <functional>

#include "common/device_list.h"
#include "store/profile_db.h"
#include "tests/support/switch_fixture.h"

namespace test_support {

class DetectionTest : public SwitchTest {
  protected:
    void SetUp() override {
        SwitchTest::SetUp();
        ASSERT_EQ(vlanInfoTableCreate(), 0);
    }

    template <class Action>
    auto model(Action action) {
        return device->with([&](vswitch::Server &server) { return action(server.model()); });
    }
    void vlanCreate(vswitch::VlanId id) {
        model([&](vswitch::Model &m) { EXPECT_EQ(m.createVlan(id), OPEN_E_NONE); });
    }

    // A profile's VLAN, in the database and on the switch.
    void profileAdd(int vlan, const char *type) {
        vlanCreate(static_cast<vswitch::VlanId>(vlan));
        ASSERT_EQ(vlanInfoReplace(vlan, 1, "test", type, "#112233"), 0);
    }
    static void profileRemove(int vlan) { ASSERT_EQ(vlanInfoDeleteById(vlan), 0); }

    // Several faults at once: every call from the first to the `count`th fails.
    void failFirst(const std::string &call, std::uint64_t count) {
        for (std::uint64_t n = 1; n <= count; ++n)
            failCall(call, n);
    }

    std::size_t systemLogged(const std::string &part) { return occurrences(systemLog(), part); }

    // ERROR lines that something writes.
    static std::size_t errorsOf(const std::function<void()> &action) {
        const std::size_t before = logged("(ERROR)");
        action();
        return logged("(ERROR)") - before;
    }

    // Whether every line of the log is one that the log made: a text from the network started none.
    static bool logLinesIntact() {
        std::istringstream lines(log());
        for (std::string line; std::getline(lines, line);)
            if (!line.starts_with("2026-01-01 "))
                return false;
        return true;
    }

    // Text of `length` bytes of all that could upset a log, a script or a parser.
    static std::string hostileText(std::size_t length) {
        static const std::string kBytes = "'\"%s%n\n\r\\;\x7f\x80\xff`$(x)\t";
        std::string out;
        for (std::size_t i = 0; i < length; ++i)
            out += kBytes[(i * 7 + length) % kBytes.size()];
        return out;
    }
};

template <class Record>
Record *recordAt(const DeviceList &list, std::size_t i) {
    return static_cast<Record *>(deviceListGet(&list, i));
}

}  // namespace test_support

#endif
