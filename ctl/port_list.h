// Ports and LAGs as they are written on the command line: "1-4,7,lag2,lag5-6".
#ifndef PAVO_CTL_PORT_LIST_H
#define PAVO_CTL_PORT_LIST_H

#include <cstdint>
#include <expected>
#include <map>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "common/result.h"
#include "swapi/switch.h"

namespace pavo::ctl {

// The interfaces that a list may name.
class Interfaces {
  public:
    // Asks the switch. Failed when it does not tell all of them.
    static Result<Interfaces> read(Switch sw);

    // The interface numbers of a list, in its order; or, for people, which part of the list is none. A number
    // is that of a physical port: LAGs have interface numbers too, but are named by their own.
    std::expected<std::vector<IfNum>, std::string> find(std::string_view list) const;

  private:
    std::expected<void, std::string> add(std::string_view item, std::vector<IfNum> &found) const;

    std::map<std::uint32_t, IfNum> ports_, lags_;  // by the number that people use
};

// The other way round, ascending; "-" for none.
std::string portListOf(std::span<const IfNum> ports, std::span<const std::uint32_t> lags);

}  // namespace pavo::ctl

#endif
