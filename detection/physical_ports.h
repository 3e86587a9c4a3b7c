// Which interfaces are physical ports, for the time of one scan: each is asked about once, unless the switch
// fails to answer.
#ifndef PAVO_DETECTION_PHYSICAL_PORTS_H
#define PAVO_DETECTION_PHYSICAL_PORTS_H

#include <unordered_map>

#include "swapi/switch.h"

namespace pavo {

class PhysicalPorts {
  public:
    explicit PhysicalPorts(Switch sw) : switch_(sw) {}

    // False also when the switch does not answer.
    bool contains(IfNum ifNum) {
        if (const auto known = answers_.find(ifNum); known != answers_.end())
            return known->second;
        const auto type = switch_.interfaceType(ifNum);
        return type && (answers_[ifNum] = *type == static_cast<std::uint32_t>(IfType::Port));
    }

  private:
    Switch switch_;
    std::unordered_map<IfNum, bool> answers_;
};

}  // namespace pavo

#endif
