// CLI names of the interfaces that a request names, asked of the switch once each. One thread.
#ifndef PAVO_PROFILE_PORT_NAMES_H
#define PAVO_PROFILE_PORT_NAMES_H

#include <map>
#include <optional>
#include <string>

#include "swapi/switch.h"

namespace pavo {

class PortNames {
  public:
    explicit PortNames(Switch sw) : sw_(sw) {}

    // NotFound when there is no such port or LAG; another code when the switch does not tell.
    OpenResult<std::string> find(IfNum ifNum);
    // The other way; nothing for a name that is no port's or LAG's. It does not ask whether there is one.
    std::optional<IfNum> ifNumOf(const std::string &name);
    // Of a port that has been found.
    std::string of(IfNum ifNum) { return find(ifNum).value_or(""); }

  private:
    Switch sw_;
    std::optional<LagNumbering> lags_;
    std::map<IfNum, std::string> names_;
};

}  // namespace pavo

#endif
