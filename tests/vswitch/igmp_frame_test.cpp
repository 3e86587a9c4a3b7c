// IGMP as frames, and the OpenFlow messages that bring them up.
#include "vswitch/dataplane/igmp_frame.h"

#include <gtest/gtest.h>

#include "vswitch/dataplane/openflow.h"

using namespace std::chrono_literals;

namespace vswitch {
namespace {

std::string bytes(std::string_view hex) {
    std::string out;
    for (std::size_t at = 0; at + 1 < hex.size(); at += 2)
        out += static_cast<char>(std::stoi(std::string(hex.substr(at, 2)), nullptr, 16));
    return out;
}

std::uint32_t sumOf(const std::string &data) {
    std::uint32_t sum = 0;
    for (std::size_t at = 0; at + 1 < data.size(); at += 2)
        sum += static_cast<std::uint32_t>(static_cast<std::uint8_t>(data[at]) << 8 |
                                          static_cast<std::uint8_t>(data[at + 1]));
    sum = (sum & 0xffff) + (sum >> 16);
    return ~(sum + (sum >> 16)) & 0xffff;
}

void setSum(std::string &data, std::size_t at) {
    data.replace(at, 2, 2, '\0');
    const auto sum = sumOf(data);
    data[at] = static_cast<char>(sum >> 8);
    data[at + 1] = static_cast<char>(sum & 0xff);
}

// From 02:00:00:00:00:07, 10.0.0.7, in VLAN 20; `options` and `igmp` as hexadecimal digits.
std::string frameOf(const std::string &igmpHex, const std::string &options = "94040000") {
    auto igmp = bytes(igmpHex);
    setSum(igmp, 2);
    auto head = bytes("4" + std::to_string(5 + options.size() / 8) +
                      "c0000000000000010200000a000007e0000016" + options);
    const auto size = head.size() + igmp.size();
    head[2] = static_cast<char>(size >> 8);
    head[3] = static_cast<char>(size & 0xff);
    setSum(head, 10);
    auto frame = bytes(
                     "01005e000016"
                     "020000000007"
                     "8100a014"
                     "0800") +
                 head + igmp;
    frame.resize(std::max<std::size_t>(frame.size(), 64), '\0');
    return frame;
}

// "report 3 239.1.2.3", one after the other; "-" for what is not to be forwarded.
std::string readOf(const std::string &frame) {
    const auto read = parseIgmpFrame(frame, 5);
    if (!read)
        return "-";
    constexpr const char *kKinds[] = {"members:", "query:", "other:"},
                         *kNames[] = {"report", "leave", "query"};
    std::string out = kKinds[static_cast<int>(read->kind)];
    for (const auto &message : read->messages) {
        out += std::string(" ") + kNames[static_cast<int>(message.kind)] + std::to_string(message.version) +
               " " + ipv4Text(message.group);
        EXPECT_TRUE(message.vlan == 20 && message.interface == 5 && message.host == 0x0a000007 &&
                    message.mac.text() == "02:00:00:00:00:07");
    }
    return out;
}

TEST(IgmpFrameTest, WhatHostsAndRoutersSay) {
    const std::pair<const char *, const char *> cases[] = {
        {"12000000ef010203", "members: report1 239.1.2.3"},
        {"16000000ef010203", "members: report2 239.1.2.3"},
        {"17000000ef010203", "members: leave2 239.1.2.3"},
        {"1164000000000000", "query: query2 0.0.0.0"},
        {"1100000000000000", "query: query1 0.0.0.0"},
        {"110a0000ef010203", "query: query2 239.1.2.3"},
        {"116400000000000002 7d0000", "query: query3 0.0.0.0"},
        {"130000000a000001", "other:"},
        // Version 3: joined and left, as whole groups.
        {"220000000000000204000000ef01020303000000ef010204", "members: report3 239.1.2.3 leave3 239.1.2.4"},
        // With sources: wanted, blocked; what is in effect, nothing included; auxiliary data is skipped.
        {"220000000000000105000001ef0102030a000001", "members: report3 239.1.2.3"},
        {"220000000000000106000001ef0102030a000001", "members:"},
        {"220000000000000202010000ef0102030000000001000000ef010204", "members: report3 239.1.2.3"},
        {"2200000000000000", "members:"},
        // No group, and less than announced.
        {"160000000a010203", "-"},
        {"110a00000a010203", "-"},
        {"220000000000000304000000ef010203", "-"},
        {"220000000000000104000009ef010203", "-"},
        {"220000000000000104ff0000ef010203", "-"},
        {"22000000000000010400000000000000", "-"},
        {"160000", "-"}};
    for (const auto &[igmp, expected] : cases) {
        std::string digits(igmp);
        std::erase(digits, ' ');
        EXPECT_EQ(expected, readOf(frameOf(digits))) << igmp;
        EXPECT_EQ(expected, readOf(frameOf(digits, ""))) << igmp;
        EXPECT_EQ(expected, readOf(frameOf(digits, "9404000001010101"))) << igmp;
    }
    EXPECT_EQ(31744ms * 100,
              parseIgmpFrame(frameOf("11ff00000000000002000000"), 5).value().messages[0].maxResponse);
}

TEST(IgmpFrameTest, DamagedFramesSayNothing) {
    const auto good = frameOf("220000000000000204000000ef01020303000000ef010204");
    for (std::size_t length = 0; length < good.size(); ++length)
        EXPECT_EQ("-", readOf(good.substr(0, length))) << length;
    // Every bit of the packet is under one of the checksums; those of the addresses before it are not.
    for (std::size_t at = 18; at < good.size(); ++at)
        for (int bit = 0; bit < 8; ++bit) {
            auto damaged = good;
            damaged[at] = static_cast<char>(damaged[at] ^ 1 << bit);
            EXPECT_EQ("-", readOf(damaged)) << at << " " << bit;
        }
    auto untagged = good;
    untagged.erase(12, 4);
    EXPECT_EQ("-", readOf(untagged));
}

TEST(IgmpFrameTest, QueriesAreUnderstood) {
    for (const std::uint32_t version : {1u, 2u, 3u})
        for (const Ipv4 group : {0u, 0xef010203u})
            for (const auto response : {100ms, 1000ms, 10000ms, 25000ms}) {
                IgmpQuery query{20, group, version, 0x0a000001, response, {}};
                const auto frame = igmpQueryFrame(query, Mac{{2, 0, 0, 0, 0, 1}});
                const auto read = parseIgmpFrame(frame, 5).value();
                EXPECT_TRUE(read.kind == IgmpFrame::Kind::Query && read.vlan == 20 && frame.size() >= 64);
                const auto &heard = read.messages.at(0);
                EXPECT_TRUE(heard.version == version && heard.group == group && heard.host == 0x0a000001);
                EXPECT_EQ(group == 0 ? "01:00:5E:00:00:01" : groupMacText(group),
                          taggedHeaderOf(frame).value().destination.text());
                // A version 1 host has no choice; long times of version 3 are rounded.
                if (version > 1)
                    EXPECT_LE(heard.maxResponse, response);
                if (version == 2 || (version == 3 && response < 12800ms))
                    EXPECT_EQ(response, heard.maxResponse);
            }
}

TEST(OpenFlowTest, FramesThatComeUp) {
    const auto message = bytes(
        "050a004c00000000"
        "ffffffff0010010300000000000000ff"
        "0001001480000004000000070001020400000009"
        "00000000"
        "0000"
        "ffffffffffff020000000007810000140800"
        "010203040506");
    const auto in = packetInOf(message).value();
    EXPECT_TRUE(in.table == 3 && in.port == 7 && in.interface == 9);
    EXPECT_EQ(bytes("ffffffffffff020000000007810000140800010203040506"), in.frame);
    EXPECT_EQ(20u, taggedHeaderOf(in.frame).value().vlan);
    for (std::size_t length = 0; length < 50; ++length)
        EXPECT_FALSE(packetInOf(message.substr(0, length))) << length;
}

}  // namespace
}  // namespace vswitch
