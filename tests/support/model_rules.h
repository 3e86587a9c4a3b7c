// The rules of the virtual switch's model (vswitch/model/model.h), as a check of what it holds.
#ifndef PAVO_TESTS_SUPPORT_MODEL_RULES_H
#define PAVO_TESTS_SUPPORT_MODEL_RULES_H

#include <string>

#include "vswitch/model/model.h"

namespace test_support {

// The VLAN in which a device's frames arrive; 0: in none.
inline vswitch::VlanId vlanOnArrival(const vswitch::Model &model, const vswitch::Device &device,
                                     const vswitch::Mac &address) {
    const auto &port = *model.interface(device.port);
    const auto forwarder = port.lag != 0 ? port.lag : device.port;
    if (device.tag != 0)
        return model.hasVlan(device.tag) && model.membership(forwarder, device.tag).participation ==
                                                OPEN_VLAN_PARTICIPATION_MODE_INCLUDE
                   ? device.tag
                   : 0;
    const auto it = model.macAssociations().find(address);
    return it != model.macAssociations().end() ? it->second : model.interface(forwarder)->pvid;
}

inline std::string brokenInterfaceRule(const vswitch::Model &m, const vswitch::Interface &i) {
    if (!m.hasVlan(i.pvid))
        return "a PVID is a VLAN";
    for (const auto &[id, membership] : i.vlans)
        if (!m.hasVlan(id) || membership == vswitch::Model::defaultMembership(id))
            return "a membership differs from the default, in a VLAN";
    bool carrier = i.carrier == vswitch::Carrier::ForcedUp;
    for (const auto &[name, d] : m.devices())
        carrier |= i.carrier == vswitch::Carrier::FollowDevices && d.port == i.num && d.behind.empty();
    carrier |= i.carrier == vswitch::Carrier::FollowDevices && i.live && i.wireUp;
    for (const auto member : i.members) {
        if (i.num != m.interface(member)->lag)
            return "a member belongs to its LAG";
        carrier |= m.interface(member)->linkUp;
    }
    if ((i.adminUp && carrier) != i.linkUp)
        return "link follows carrier";
    if (i.members.size() > m.config().lagMembersMax)
        return "a LAG has so many members";
    if (i.lag != 0 && !m.interface(i.lag)->members.contains(i.num))
        return "a LAG has its members";
    return {};
}

// Entries kept up step by step are those a fresh look would give.
inline std::string brokenDeviceRule(const vswitch::Model &m, const vswitch::Device &d) {
    std::size_t steps = 0;
    for (const auto *at = &d; !at->behind.empty(); at = &m.devices().at(at->behind))
        if (d.port != m.devices().at(at->behind).port || ++steps >= m.devices().size())
            return "a device behind another is at the same port";
    const auto &port = *m.interface(d.port);
    const bool heard =
        d.talking && port.linkUp && m.authorized(d.port) && (port.lag == 0 || m.interface(port.lag)->linkUp);
    for (const auto &address : d.macs) {
        const auto id = vlanOnArrival(m, d, address);
        if (id != 0 && heard && m.fdbRefused() == 0 && !m.fdb().contains({address, id}))
            return "what talks is learned, in VLAN " + std::to_string(id);
    }
    return {};
}

// A rule that does not hold, and where; empty when all do.
inline std::string brokenRule(const vswitch::Model &m) {
    for (const auto &[num, i] : m.interfaces())
        if (const auto broken = brokenInterfaceRule(m, i); !broken.empty())
            return i.name() + ": " + broken;
    for (const auto &[address, id] : m.macAssociations())
        if (!m.hasVlan(id))
            return address.text() + ": an association names a VLAN";
    if (m.fdb().size() > m.config().fdbCapacity)
        return "the forwarding table keeps within its capacity";
    for (const auto &[key, entry] : m.fdb()) {
        const auto &port = *m.interface(entry.port);
        if (!m.hasVlan(key.vlan) || !port.linkUp || !m.authorized(entry.port) ||
            !m.interface(entry.ifNum)->linkUp || entry.ifNum != (port.lag != 0 ? port.lag : entry.port))
            return key.mac.text() + ": an entry is in a VLAN and behind a link that may be used";
    }
    for (const auto &[port, neighbours] : m.lldp())
        if (!neighbours.empty() && !m.interface(port)->linkUp)
            return m.interface(port)->name() + ": neighbours are behind a link";
    for (const auto &[name, d] : m.devices())
        if (const auto broken = brokenDeviceRule(m, d); !broken.empty())
            return std::string(name).append(": ").append(broken);
    return {};
}

}  // namespace test_support

#endif
