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

    // Unknown when the switch does not answer.
    Presence find(IfNum ifNum) {
        if (const auto known = answers_.find(ifNum); known != answers_.end())
            return known->second;
        const auto type = switch_.interfaceType(ifNum);
        if (!type)
            return Presence::Unknown;
        const bool isPort = *type == static_cast<std::uint32_t>(IfType::Port);
        return answers_[ifNum] = isPort ? Presence::Present : Presence::Absent;
    }

  private:
    Switch switch_;
    std::unordered_map<IfNum, Presence> answers_;
};

}  // namespace pavo

#endif
