// Who has joined, left and moved between two looks.
#include "ctl/neighbour_changes.h"

#include <gtest/gtest.h>

namespace {

using namespace pavo;
using namespace pavo::ctl;

SeenNeighbour at(std::uint32_t port, const std::string &mac, std::uint32_t vlan = 1) {
    return {IfNum(port), "0/" + std::to_string(port), vlan, false, "", "", "", mac, ""};
}

std::string textOf(const std::vector<NeighbourChange> &changes) {
    std::string text;
    for (const auto &change : changes) {
        text += text.empty() ? "" : "; ";
        text += change.kind == NeighbourChange::Kind::Joined ? "+" : "";
        text += change.kind == NeighbourChange::Kind::Left ? "-" : "";
        text += change.kind == NeighbourChange::Kind::Named ? "=" : "";
        text += change.neighbour.mac + change.neighbour.name + "@" + change.neighbour.portName;
        text += change.from.empty() ? "" : "<" + change.from;
    }
    return text;
}

TEST(NeighbourChangesTest, JoinedLeftMovedNamed) {
    using List = std::vector<SeenNeighbour>;
    auto anonymous = at(4, ""), movedAnonymous = at(5, ""), renamed = at(1, "a");
    anonymous.name = movedAnonymous.name = "desk";
    renamed.name = "new name";
    renamed.byLldp = true;
    const struct {
        List before, after;
        std::string changes;
    } cases[] = {{{}, {at(2, "b"), at(1, "a")}, "+a@0/1; +b@0/2"},
                 {{at(1, "a"), at(2, "b")}, {at(2, "b")}, "-a@0/1"},
                 {{at(1, "a")}, {at(7, "A")}, "A@0/7<0/1"},
                 // One address in several VLANs is one device, and a switch may be at several ports.
                 {{at(1, "a")}, {at(1, "a"), at(1, "a", 20)}, ""},
                 {{at(1, "a"), at(1, "a", 20)}, {at(2, "a"), at(2, "a", 20)}, "a@0/2<0/1"},
                 {{at(1, "a"), at(2, "a")}, {at(2, "a"), at(3, "a")}, "a@0/3<0/1"},
                 {{at(1, "a")}, {at(1, "a"), at(3, "a")}, "+a@0/3"},
                 {{at(1, "a"), at(3, "a")}, {at(2, "a")}, "a@0/2<0/1; -a@0/3"},
                 {{anonymous}, {movedAnonymous}, "desk@0/5<0/4"},
                 {{at(1, "a")}, {renamed}, "=anew name@0/1"},
                 {{renamed}, {at(1, "a")}, ""}};
    for (const auto &[before, after, changes] : cases)
        EXPECT_EQ(changes, textOf(changesOf(before, after)));
}

}  // namespace
