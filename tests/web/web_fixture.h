// Answers about a virtual switch, in a parser that takes nothing but JSON in UTF-8.
#ifndef PAVO_TESTS_WEB_WEB_FIXTURE_H
#define PAVO_TESTS_WEB_WEB_FIXTURE_H

#include <algorithm>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>

#include "common/json.h"
#include "tests/support/limited_memory.h"
#include "tests/support/switch_fixture.h"

namespace test_support {

using nlohmann::json;
using Producer = std::function<std::int32_t(openapiClientHandle_t *, char **)>;

// Whether everything that `part` says, `whole` says, too.
inline bool saysNoMore(const json &part, const json &whole) {
    if (part.is_object() && whole.is_object())
        return std::all_of(part.items().begin(), part.items().end(), [&](const auto &item) {
            return whole.contains(item.key()) && saysNoMore(item.value(), whole[item.key()]);
        });
    if (!part.is_array() || !whole.is_array() || part.empty() || !part[0].is_object())
        return part == whole;
    return std::equal(part.begin(), part.end(), whole.begin(), whole.end(), saysNoMore);
}

class WebTest : public SwitchTest {
  protected:
    // What an operation hands out, with its result in `result`.
    std::string text(const Producer &producer) {
        char *out = nullptr;
        result = producer(&client, &out);
        const TextPtr owner(out);
        EXPECT_EQ(result == 0, out != nullptr);
        return out != nullptr ? out : "";
    }
    json answer(const Producer &producer) {
        const auto printed = text(producer);
        return result == 0 ? json::parse(printed) : json();
    }

    // Runs the operation with each of its calls failing in turn. There is no answer then, or one that says
    // less and nothing wrong, and the log says it once; a refused capture also that there is nothing to open.
    // There is none from a switch that is gone.
    struct Sweep {
        int failures = 0, partial = 0;
    };
    Sweep failEachCall(const std::string &name, const Producer &producer) {
        const auto place = "[" + name + ":";
        const auto whole = answer(producer);
        EXPECT_EQ(0, result) << name << log();
        Sweep seen;
        std::uint64_t nth = 0;
        for (bool struck = true; struck;) {
            SCOPED_TRACE(name + " call " + std::to_string(++nth));
            failCall("*", nth, true, nth % 2 == 0 ? OPEN_E_FAIL : OPEN_E_RPC);
            const auto lines = logged(place);
            const auto got = answer(producer);
            struck = callsSeen() >= nth;
            clearFaults();
            const auto said = logged(place) - lines;
            const bool capture = said == 2 && logged("Execute show cmd") > 0;
            EXPECT_TRUE(said == (struck ? 1 : 0) || (struck && capture)) << said;
            if (result != 0)
                EXPECT_TRUE(struck && got.is_null() && result == (capture ? 10016 : 10000)) << result;
            else
                EXPECT_TRUE(struck || got == whole);
            EXPECT_TRUE(got.is_null() || saysNoMore(got, whole)) << got.dump(1) << whole.dump(1);
            seen.failures += result != 0 ? 1 : 0;
            seen.partial += result == 0 && got != whole ? 1 : 0;
        }
        const auto lines = logged(place);
        failCall("*", 1, false, OPEN_E_RPC);
        EXPECT_EQ(answer(producer).is_null(), nth > 1) << name;
        EXPECT_LE(logged(place) - lines, 2u) << name;
        clearFaults();
        return seen;
    }
    // The same with ever more memory; how often it was not enough. A file that cannot be read for want of it is
    // a plain failure.
    long failEachAllocation(const Producer &producer) {
        long n = 0;
        for (bool enough = false; !enough; ++n) {
            const LimitedMemory memory(n);
            answer(producer);
            enough = !memory.isUsedUp();
            EXPECT_TRUE(enough ? result == 0 : result == 10002 || result == 10000) << n << " " << result;
        }
        return n;
    }

    std::int32_t result = -1;
};

}  // namespace test_support

#endif
