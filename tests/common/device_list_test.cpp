#include "common/device_list.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace pavo;

DetectedDevice device(std::uint32_t port, const char *mac = "00:11:22:33:44:aa") {
    DetectedDevice out;
    out.port = IfNum(port);
    out.mac = Mac::parse(mac).value();
    return out;
}

DeviceList<DetectedDevice> listOf(std::initializer_list<std::uint32_t> ports) {
    DeviceList<DetectedDevice> list;
    for (const std::uint32_t port : ports)
        EXPECT_TRUE(list.push(device(port)));
    return list;
}

std::string portsOf(const DeviceList<DetectedDevice> &list) {
    std::string ports;
    for (const DetectedDevice &one : list)
        ports += std::to_string(one.port.number());
    return ports;
}

TEST(DeviceList, PositionsCountFromTheHead) {
    auto list = listOf({3, 2, 1, 2});
    EXPECT_EQ(portsOf(list), "2123");
    EXPECT_TRUE(list.at(0) == nullptr && list.at(5) == nullptr);
    // Equal are port and address, in its spelling; not the type.
    DetectedDevice same = device(3);
    same.type = 9;
    EXPECT_EQ(list.find(same), list.at(4));
    for (const auto &other : {device(4), device(3, "00:11:22:33:44:AA")})
        EXPECT_EQ(list.find(other), nullptr);
}

TEST(DeviceList, RemovingOnTheWayAsksEveryRecordOnce) {
    for (const auto &[gone, left] : {std::pair<std::string, const char *>{"", "123"},
                                     {"1", "23"},
                                     {"3", "12"},
                                     {"12", "3"},
                                     {"123", ""}}) {
        auto list = listOf({3, 2, 1});
        std::string asked;
        list.removeWhere([&](const DetectedDevice &record) {
            asked += std::to_string(record.port.number());
            return gone.find(asked.back()) != std::string::npos;
        });
        EXPECT_EQ(asked, "123");
        EXPECT_EQ(portsOf(list), left) << gone;
    }
    auto list = listOf({3, 2, 1, 2});
    EXPECT_TRUE(list.remove(device(2)));
    EXPECT_FALSE(list.remove(device(4)));
    EXPECT_EQ(portsOf(list), "123");
    list.clear();
    EXPECT_TRUE(list.empty() && list.at(1) == nullptr);
}

}  // namespace
