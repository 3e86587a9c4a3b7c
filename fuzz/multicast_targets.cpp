// Targets for multicast: IGMP frames that hosts send, what the program reads of the groups that follow, and
// OpenFlow messages.
#include <algorithm>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "fuzz/support.h"
#include "fuzz/targets.h"
#include "platform/manual_clock.h"
#include "tests/support/model_rules.h"
#include "vlan/multicast.h"
#include "vswitch/dataplane/igmp_frame.h"
#include "vswitch/dataplane/openflow.h"

using namespace std::chrono_literals;

namespace fuzz {
namespace {

using namespace vswitch;

constexpr std::size_t kEthernetSize = 18;

std::uint32_t byteAt(std::string_view bytes, std::size_t at) {
    return static_cast<std::uint8_t>(bytes[at]);
}

void putChecksum(std::string &frame, std::size_t from, std::size_t size, std::size_t at) {
    frame[at] = frame[at + 1] = '\0';
    std::uint32_t sum = 0;
    for (std::size_t i = 0; i < size; ++i)
        sum += byteAt(frame, from + i) << (i % 2 == 0 ? 8 : 0);
    while (sum > 0xffff)
        sum = (sum & 0xffff) + (sum >> 16);
    frame[at] = static_cast<char>(~sum >> 8 & 0xff);
    frame[at + 1] = static_cast<char>(~sum & 0xff);
}

// The frame with both checksums put right, where it has them: changes of a byte rarely leave them so.
std::string withChecksums(std::string_view input) {
    std::string frame(input);
    if (frame.size() < kEthernetSize + 20)
        return frame;
    const std::size_t head = std::size_t{4} * (byteAt(frame, kEthernetSize) & 0xf);
    const std::size_t size = byteAt(frame, kEthernetSize + 2) << 8 | byteAt(frame, kEthernetSize + 3);
    if (head < 20 || size < head + 8 || kEthernetSize + size > frame.size())
        return frame;
    putChecksum(frame, kEthernetSize, head, kEthernetSize + 10);
    putChecksum(frame, kEthernetSize + head, size - head, kEthernetSize + head + 2);
    return frame;
}

void checkFrame(const IgmpFrame &frame, std::size_t size, IfNum interface) {
    require(frame.messages.size() <= size / 8, "no more messages than records fit in");
    for (const auto &message : frame.messages) {
        require(message.vlan == frame.vlan && frame.vlan <= 4095 && message.interface == interface,
                "a message is of its frame");
        require(message.version >= 1 && message.version <= 3, "a version of IGMP");
        require((message.kind == IgmpKind::Query) == (frame.kind == IgmpFrame::Kind::Query),
                "queries come in queries");
        require(message.group >> 28 == 0xe || (message.kind == IgmpKind::Query && message.group == 0),
                "a group is one");
    }
    if (frame.kind != IgmpFrame::Kind::Query)
        return;
    const auto &heard = frame.messages.at(0);
    const auto sent = igmpQueryFrame({.vlan = heard.vlan,
                                      .group = heard.group,
                                      .version = heard.version,
                                      .source = heard.host,
                                      .maxResponse = heard.maxResponse,
                                      .interfaces = {}},
                                     heard.mac);
    const auto again = parseIgmpFrame(sent, interface).value_or(IgmpFrame{});
    require(again.kind == IgmpFrame::Kind::Query && again.messages.size() == 1,
            "a query that is sent is one");
    const auto &message = again.messages.at(0);
    require(message.vlan == heard.vlan && message.group == heard.group && message.version == heard.version &&
                message.host == heard.host && message.mac == heard.mac &&
                (message.maxResponse == heard.maxResponse || heard.maxResponse < 100ms),
            "a query is read back");
}

// The program reads the groups as the switch has them.
void checkProgramsView(SwitchRig &rig) {
    std::multiset<std::string> known, read;
    std::string shown;
    rig.device.with([&](Server &server) {
        for (const auto &[key, subscribers] : std::as_const(server).model().igmpGroups())
            for (const auto &[subscriber, state] : subscribers)
                known.insert(std::to_string(key.vlan) + " " + ipv4Text(key.group) + " " +
                             ipv4Text(subscriber.host));
        shown = server.cli().show("show igmpsnooping group").value_or("");
    });
    pavo::forEachGroupRow(shown, [&](const pavo::GroupRow &row) {
        read.insert(std::to_string(row.vlan) + " " + std::string(row.group) + " " +
                    std::string(row.subscriber));
    });
    require(known == read, "the program reads every subscriber", shown);
}

}  // namespace

// Frames, each behind its length in two bytes, in turn on the two real ports of a switch that snoops.
void hearIgmpFrames(std::string_view input) {
    SwitchRig rig;
    rig.device.with([](Server &server) {
        server.cli().runScript(
            "vlan database\nvlan 20\nset igmp 20\nset igmp fast-leave 20\nset igmp querier election "
            "participate "
            "20\nexit\nconfigure\nip igmp snooping querier query-interval 10\ninterface 0/1-0/2\n"
            "vlan participation include 20\nvlan pvid 20\nexit\nexit\n");
        for (const IfNum port : {1u, 2u}) {
            server.model().setLive(port);
            server.model().seeCarrier(port, true);
        }
    });
    for (IfNum port = 1; input.size() >= 2; port = 3 - port) {
        const std::size_t length = byteAt(input, 0) << 8 | byteAt(input, 1);
        const auto raw = input.substr(2, length);
        input.remove_prefix(2 + raw.size());
        for (const auto &frame : {std::string(raw), withChecksums(raw)}) {
            const auto parsed = parseIgmpFrame(frame, port);
            if (!parsed)
                continue;
            require(taggedHeaderOf(frame).has_value(), "an IGMP frame has a tag");
            checkFrame(*parsed, frame.size(), port);
            rig.device.with([&](Server &server) {
                for (const auto &message : parsed->messages)
                    server.model().hearIgmp(message);
            });
        }
        platform::sleepFor(1s);
    }
    checkProgramsView(rig);
    for (int times = 0; times < 3; ++times) {
        rig.device.with([](Server &server) {
            server.tick();
            const auto broken = test_support::brokenRule(server.model());
            require(broken.empty(), "the rules of the model hold", broken);
            for (const auto &query : server.model().takeIgmpQueries()) {
                const auto sent = parseIgmpFrame(igmpQueryFrame(query, Mac{{2, 0, 0, 0, 0, 1}}), 1);
                require(sent && sent->vlan == query.vlan && sent->kind == IgmpFrame::Kind::Query,
                        "the switch's queries are queries");
            }
            for (const auto &[group, interfaces] : server.model().wireMulticast(20).groups)
                require(!interfaces.empty() && std::ranges::is_sorted(interfaces),
                        "a group has subscribers, sorted", ipv4Text(group));
        });
        platform::sleepFor(200s);
    }
    rig.device.with([](Server &server) {
        server.tick();
        require(std::as_const(server).model().igmpGroups().empty(), "who does not report again is forgotten");
    });
}

// A message, or the lines of flow entries.
void readOpenFlow(std::string_view input) {
    if (const auto packet = packetInOf(input))
        require(packet->frame.size() <= input.size() && input.contains(packet->frame),
                "a frame is part of its message");
    for (const auto line : partsOf(input, '\n', 16))
        if (const auto message = flowModOf(line))
            require(message->size() >= 8 && message->size() <= 0xffff,
                    "a message has its header and its length");
}

}  // namespace fuzz
