#include "vlan/shure_ports.h"

namespace pavo {

std::vector<IfNum> readShureNeighbourPorts(Switch sw, std::span<const std::int32_t> listed) {
    PortSet wanted;
    for (const std::int32_t number : listed)
        if (number > 0)
            wanted.insert(IfNum(static_cast<std::uint32_t>(number)));
    std::vector<IfNum> seen;
    const auto size = sw.lldpTextSize();
    if (!size)
        return seen;
    for (const IfNum port : sw.ports()) {
        if (!wanted.contains(port))
            continue;
        for (const NeighbourKey &key : sw.neighbours(port)) {
            const auto description = sw.neighbourText(key, NeighbourField::SystemDesc, *size);
            if (description && description->starts_with("Shure"))
                seen.push_back(port);
        }
    }
    return seen;
}

}  // namespace pavo
