#include "web/event_ring.h"

#include <gtest/gtest.h>

namespace {

using namespace pavo;

std::string datas(const std::vector<Event> &events) {
    std::string text;
    for (const auto &event : events)
        text += event.data + "\n";
    return text;
}

TEST(EventRingTest, WhoComesBackHearsWhatWasMissed) {
    EventRing ring("run");
    EventFilter all;
    std::uint64_t cursor = ring.next();
    EXPECT_EQ("retry: 2000\nid: run-0\n\n", ring.greeting(cursor));
    ring.add(answerEvent("vlan_list"));
    ring.add({EventKind::Link, "", "{}"});
    EXPECT_EQ(
        "id: run-1\nevent: answer\ndata: {\"name\":\"vlan_list\"}\n\nid: run-2\nevent: link\ndata: {}\n\n",
        ring.read(cursor, all, 1000).text);
    EXPECT_EQ("", ring.read(cursor, all, 1000).text);
    EXPECT_EQ(2u, ring.resume("run-1"));
    EXPECT_EQ(3u, ring.resume("run-2"));
    for (const char *const id :
         {"", "run", "run-", "run-3", "run--1", "run-x", "other-1", "-1", "run-99999999999999999999"})
        EXPECT_FALSE(ring.resume(id)) << id;
    cursor = 1;
    EventFilter links;
    links.kinds = {EventKind::Link};
    EXPECT_EQ("id: run-2\nevent: link\ndata: {}\n\n", ring.read(cursor, links, 1).text) << "at least one";
    EXPECT_EQ(3u, cursor);

    // Neither many nor long ones are kept without end.
    for (std::size_t i = 0; i < EventRing::kEventsKept; ++i)
        ring.add({EventKind::Link, "", "1"});
    cursor = 1;
    EXPECT_TRUE(ring.read(cursor, all, 1).missed);
    EXPECT_FALSE(ring.read(cursor, all, 1).missed);
    EXPECT_FALSE(ring.resume("run-1"));
    EXPECT_TRUE(ring.resume("run-2"));
    for (int i = 0; i < 3; ++i)
        ring.add({EventKind::Link, "", std::string(EventRing::kBytesKept / 2, 'x')});
    cursor = 0;
    EXPECT_LT(ring.read(cursor, all, 4u << 20).text.size(), EventRing::kBytesKept + 1000);
}

TEST(EventRingTest, Filters) {
    const auto filter =
        EventFilter::parse({{"events", "answer,,link"}, {"answers", "vlan_list,profile/list_ex"}});
    ASSERT_TRUE(filter);
    EXPECT_TRUE(filter->takes(answerEvent("profile/list_ex")) && filter->takes({EventKind::Link, "", ""}));
    EXPECT_FALSE(filter->takes(answerEvent("logging")) || filter->takes({EventKind::Device, "", ""}));
    EXPECT_TRUE(EventFilter::parse({})->takes(answerEvent("neighbor_ex/0")));
    EXPECT_FALSE(EventFilter::parse({{"events", "answers"}}) || EventFilter::parse({{"answers", "x"}}));
}

TEST(EventRingTest, DevicesAndLinks) {
    const DeviceState amp{.family = "audac", .address = "00:01", .port = IfNum(5)};
    DeviceState missing = amp, moved = amp, other = amp, unseen = missing;
    missing.kind = DeviceState::Kind::Missing;
    missing.missed = 1;
    unseen = missing;
    unseen.missed = 2;
    moved.port = IfNum(6);
    other.family = "nice\n\xff";
    const auto between = [](std::vector<DeviceState> before, std::vector<DeviceState> now) {
        return datas(deviceEvents(before, now));
    };
    EXPECT_EQ("", between({missing}, {unseen})) << "another count is no news";
    EXPECT_EQ(R"({"change":"changed","old":{"family":"audac","address":"00:01","ifNum":5,"state":"seen"},)"
              R"("new":{"family":"audac","address":"00:01","ifNum":6,"state":"seen"}})"
              "\n",
              between({amp}, {moved}));
    EXPECT_EQ(
        R"({"change":"left","old":{"family":"audac","address":"00:01","ifNum":5,"state":"seen"},"new":null})"
        "\n"
        R"({"change":"joined","old":null,"new":{"family":"nice\n?","address":"00:01","ifNum":5,)"
        R"("state":"seen"}})"
        "\n",
        between({amp}, {other}));
    EXPECT_EQ("{\"ifNum\":2,\"old\":\"up\",\"new\":\"down\"}\n",
              datas(linkEvents({{IfNum(1), true}, {IfNum(2), true}}, {{IfNum(2), false}, {IfNum(3), true}})));
}

}  // namespace
