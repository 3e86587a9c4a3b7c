#include "ctl/neighbour_changes.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <tuple>

namespace pavo::ctl {
namespace {

using Identity = std::tuple<std::string, std::string, std::string>;

Identity identityOf(const SeenNeighbour &neighbour) {
    if (neighbour.mac.empty())
        return {"", neighbour.name, neighbour.remotePortId};
    std::string mac = neighbour.mac;
    std::ranges::transform(mac, mac.begin(), [](unsigned char c) { return std::tolower(c); });
    return {mac, "", ""};
}

// Where each device is, with one of its lines there.
using Places = std::map<Identity, std::map<IfNum, const SeenNeighbour *>>;

Places placesOf(const std::vector<SeenNeighbour> &neighbours) {
    Places places;
    for (const auto &neighbour : neighbours)
        places[identityOf(neighbour)].try_emplace(neighbour.interface, &neighbour);
    return places;
}

std::vector<const SeenNeighbour *> missingFrom(const std::map<IfNum, const SeenNeighbour *> &places,
                                               const std::map<IfNum, const SeenNeighbour *> &others) {
    std::vector<const SeenNeighbour *> missing;
    for (const auto &[interface, neighbour] : places)
        if (!others.contains(interface))
            missing.push_back(neighbour);
    return missing;
}

}  // namespace

std::vector<NeighbourChange> changesOf(const std::vector<SeenNeighbour> &before,
                                       const std::vector<SeenNeighbour> &after) {
    using enum NeighbourChange::Kind;
    Places old = placesOf(before);
    Places now = placesOf(after);
    for (const auto &[identity, places] : old)
        now.try_emplace(identity);
    std::vector<NeighbourChange> changes;
    for (const auto &[identity, places] : now) {
        const auto gone = missingFrom(old[identity], places);
        const auto come = missingFrom(places, old[identity]);
        const std::size_t moved = std::min(gone.size(), come.size());
        for (std::size_t i = 0; i < moved; ++i)
            changes.push_back({Moved, *come[i], gone[i]->portName});
        for (std::size_t i = moved; i < come.size(); ++i)
            changes.push_back({Joined, *come[i]});
        for (std::size_t i = moved; i < gone.size(); ++i)
            changes.push_back({Left, *gone[i]});
    }
    for (const auto &[identity, places] : now)
        for (const auto &[interface, neighbour] : places)
            if (const auto known = old[identity].find(interface); known != old[identity].end() &&
                                                                  !neighbour->name.empty() &&
                                                                  neighbour->name != known->second->name)
                changes.push_back({Named, *neighbour});
    std::ranges::stable_sort(changes, {}, [](const auto &change) { return change.neighbour.interface; });
    return changes;
}

}  // namespace pavo::ctl
