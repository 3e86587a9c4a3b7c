#include "common/device_list.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using namespace pavo;

DetectedDevice device(std::uint32_t port, const char *mac = "00:11:22:33:44:aa") {
    DetectedDevice out;
    out.port = IfNum(port);
    out.mac = Mac::parse(mac).value();
    return out;
}

std::vector<std::uint32_t> portsOf(DeviceList<DetectedDevice> &list) {
    std::vector<std::uint32_t> ports;
    for (std::size_t i = 1; i <= list.count(); ++i)
        ports.push_back(list.at(i)->port.number());
    return ports;
}

TEST(DeviceList, EqualMeansMacAndPort) {
    DetectedDevice same = device(1);
    same.type = 9;
    EXPECT_EQ(device(1), same);
    for (const auto &other : {device(2), device(1, "00:11:22:33:44:AA")})
        EXPECT_FALSE(device(1) == other);
}

TEST(DeviceList, PositionsCountFromTheHead) {
    DeviceList<DetectedDevice> list;
    for (const std::uint32_t port : {3u, 2u, 1u, 2u})
        ASSERT_TRUE(list.push(device(port)));
    EXPECT_EQ(portsOf(list), (std::vector<std::uint32_t>{2, 1, 2, 3}));
    EXPECT_EQ(list.at(0), nullptr);
    EXPECT_EQ(list.at(5), nullptr);

    EXPECT_EQ(list.find(device(3)), list.at(4));
    EXPECT_EQ(list.find(device(4)), nullptr);
    EXPECT_TRUE(list.remove(device(2)));
    EXPECT_FALSE(list.remove(device(4)));
    EXPECT_EQ(portsOf(list), (std::vector<std::uint32_t>{1, 2, 3}));
    list.clear();
    EXPECT_TRUE(list.empty() && list.at(1) == nullptr);
}

TEST(DeviceList, RemovingOnTheWayAsksEveryRecordOnce) {
    for (const auto &[gone, left] : std::vector<std::pair<std::string, std::vector<std::uint32_t>>>{
             {"", {1, 2, 3}}, {"1", {2, 3}}, {"3", {1, 2}}, {"12", {3}}, {"123", {}}}) {
        DeviceList<DetectedDevice> list;
        for (const std::uint32_t port : {3u, 2u, 1u})
            ASSERT_TRUE(list.push(device(port)));
        std::string asked;
        list.removeWhere([&](const DetectedDevice &record) {
            asked += std::to_string(record.port.number());
            return gone.find(asked.back()) != std::string::npos;
        });
        EXPECT_EQ(asked, "123");
        EXPECT_EQ(portsOf(list), left) << gone;
    }
}

}  // namespace
