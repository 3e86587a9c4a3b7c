// Reading the LLDP neighbours of a port, for all device families.
#ifndef PAVO_DETECTION_NEIGHBOUR_H
#define PAVO_DETECTION_NEIGHBOUR_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <source_location>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "common/log_format.h"
#include "swapi/switch.h"

namespace pavo {

// The strings of a neighbour that have been read. They come from the network: for the log only as
// printable().
class Neighbour {
  public:
    std::optional<std::string> &operator[](NeighbourField field) {
        return texts_[static_cast<std::size_t>(field)];
    }
    const std::optional<std::string> &operator[](NeighbourField field) const {
        return texts_[static_cast<std::size_t>(field)];
    }

  private:
    std::array<std::optional<std::string>, static_cast<std::size_t>(NeighbourField::SystemName) + 1> texts_;
};

// How one family reads neighbours. A neighbour counts once its system description is read and begins with the
// prefix; so one whose later reads fail stays behind with strings missing. Formats may be left out.
struct NeighbourFamily {
    std::span<const NeighbourField> reads;  // in this order; the system description is among them
    std::string_view prefix{};              // of the description; empty: any
    LogFormat<IfNum, std::uint32_t, std::uint32_t> walkStart{};  // port, and 0, 0: before the first
    LogFormat<std::string, std::string, std::string>
        kept{};                                // description, chassis and port ID, once all are read
    LogFormat<std::string> descriptionRead{};  // before the prefix is looked at
};

struct PortNeighbours {
    std::vector<Neighbour> neighbours;
    // Failed when a read failed, which ended the walk, and InvalidPointer when memory ran out; both logged.
    // There may be more neighbours then.
    Result<> outcome;
};

// Reads port after port. For one scan: the switch is asked only once how long its strings are.
class NeighbourReader {
  public:
    NeighbourReader(Switch sw, const NeighbourFamily &family) : switch_(sw), family_(family) {}

    PortNeighbours read(IfNum port, Where where = std::source_location::current());

  private:
    Result<> walk(IfNum port, std::vector<Neighbour> &neighbours, const Where &where);
    Result<> readOne(const NeighbourKey &key, std::vector<Neighbour> &neighbours, const Where &where) const;

    Switch switch_;
    const NeighbourFamily &family_;
    std::uint32_t textSize_ = 0;  // 0: not asked yet
};

}  // namespace pavo

#endif
