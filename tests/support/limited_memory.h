// Memory for so many allocations of cJSON, for as long as it lives.
#ifndef PAVO_TESTS_SUPPORT_LIMITED_MEMORY_H
#define PAVO_TESTS_SUPPORT_LIMITED_MEMORY_H

#include <cstdlib>

#include "common/json.h"

namespace test_support {

class LimitedMemory {
  public:
    explicit LimitedMemory(long allocations) {
        left = allocations;
        cJSON_Hooks hooks{allocate, std::free};
        cJSON_InitHooks(&hooks);
    }
    LimitedMemory(const LimitedMemory &) = delete;
    LimitedMemory &operator=(const LimitedMemory &) = delete;
    ~LimitedMemory() { cJSON_InitHooks(nullptr); }

    // Whether an allocation has failed.
    static bool isUsedUp() { return left < 0; }

  private:
    static void *allocate(std::size_t size) {
        left = left > 0 ? left - 1 : -1;
        return left < 0 ? nullptr : std::malloc(size);
    }
    inline static long left = 0;
};

}  // namespace test_support

#endif
