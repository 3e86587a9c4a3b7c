#include "common/device_list.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

namespace {

struct DeviceListTest : testing::Test {
    DeviceList list;

    DeviceListTest() {
        deviceListInit(&list, detectedDeviceFree, detectedDevicePrint, detectedDeviceCompare);
    }
    ~DeviceListTest() override { deviceListTearDown(&list); }

    static DetectedDevice device(std::uint32_t port, const char *mac) {
        DetectedDevice out{};
        out.port = port;
        std::strncpy(out.mac, mac, 18);
        return out;
    }
    void push(std::uint32_t port) {
        ASSERT_EQ(deviceListPush(&list, new DetectedDevice(device(port, "aa"))), 0);
    }
    static std::uint32_t portOf(const void *record) {
        return static_cast<const DetectedDevice *>(record)->port;
    }
};

TEST_F(DeviceListTest, EqualMeansMacAndPort) {
    const DetectedDevice a = device(1, "00:11:22:33:44:aa");
    DetectedDevice same = a;
    same.type = 9;
    EXPECT_EQ(detectedDeviceCompare(&a, &same), 0);
    for (const auto &other : {device(2, a.mac), device(1, "00:11:22:33:44:AA")})
        EXPECT_NE(detectedDeviceCompare(&a, &other), 0);
}

// The cursor must never show: whatever is done in whatever order, the list answers like a plain sequence.
TEST_F(DeviceListTest, BehavesLikeASequence) {
    std::mt19937 random(1);
    std::vector<std::uint32_t> model;
    for (int step = 0; step < 20'000; ++step) {
        const std::size_t i = random() % 12;
        switch (random() % 6) {
            case 0:
            case 1:
                if (model.size() < 10) {
                    const auto port = static_cast<std::uint32_t>(random() % 16);
                    push(port);
                    model.insert(model.begin(), port);
                }
                break;
            case 2: {
                const DetectedDevice key = device(static_cast<std::uint32_t>(i), "aa");
                const auto at = std::find(model.begin(), model.end(), key.port);
                EXPECT_EQ(deviceListFind(&list, &key) != nullptr, at != model.end());
                void *const removed = deviceListRemove(&list, &key);
                ASSERT_EQ(removed != nullptr, at != model.end());
                if (at != model.end())
                    model.erase(at);
                detectedDeviceFree(removed);
                break;
            }
            case 3: {
                void *const removed = deviceListRemoveAt(&list, i);
                ASSERT_EQ(removed != nullptr, i >= 1 && i <= model.size());
                if (removed != nullptr) {
                    EXPECT_EQ(portOf(removed), model[i - 1]);
                    model.erase(model.begin() + static_cast<std::ptrdiff_t>(i) - 1);
                }
                detectedDeviceFree(removed);
                break;
            }
            default: {
                const void *const record = deviceListGet(&list, i);
                ASSERT_EQ(record != nullptr, i >= 1 && i <= model.size());
                if (record != nullptr)
                    EXPECT_EQ(portOf(record), model[i - 1]);
            }
        }
        ASSERT_EQ(list.count, model.size());
        ASSERT_EQ(list.head == nullptr, model.empty());
        if (!model.empty())
            ASSERT_EQ(portOf(list.tail->data), model.back());
    }
}

}  // namespace
