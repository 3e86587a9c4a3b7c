// Live ports: what a data plane saw on the wire enters the tables.
#include <algorithm>

#include "vswitch/model/model.h"

namespace vswitch {

open_error_t Model::setLive(IfNum port) {
    auto *interface = edit(port);
    if (interface == nullptr || interface->isLag())
        return OPEN_E_PARAM;
    if (!devicesAt(port).empty())
        return OPEN_E_FAIL;
    interface->live = true;
    interface->counting = {};
    interface->counting.wire.in = interface->counting.wire.out = std::nullopt;
    refreshLink(port);
    return OPEN_E_NONE;
}

void Model::seeCarrier(IfNum port, bool up) {
    auto *interface = edit(port);
    if (interface == nullptr || !interface->live)
        return;
    interface->wireUp = up;
    refreshLink(port);
}

void Model::seeWire(IfNum port, const PortCounters &counters, std::uint32_t mbps) {
    auto *interface = edit(port);
    if (interface == nullptr || !interface->live)
        return;
    // Counters that went back are those of another network interface of that name.
    auto &counting = interface->counting;
    if (counters.inPackets < counting.wire.inPackets || counters.outPackets < counting.wire.outPackets)
        counting.cleared = {};
    counting.wire = counters;
    interface->wireSpeed = mbps;
}

void Model::seeAddresses(const std::vector<SeenAddress> &seen) {
    // An entry names a port: for a LAG, the first live member with link.
    std::map<FdbKey, std::pair<IfNum, Duration>> wanted;
    for (const auto &address : seen) {
        if (interface(address.interface) == nullptr || !hasVlan(address.vlan))
            continue;
        for (const auto port : portsOf(address.interface))
            if (interfaces_.at(port).live && forwarding(port)) {
                wanted[{address.mac, address.vlan}] = {port, now_ - address.age};
                break;
            }
    }
    std::erase_if(fdb_, [&](const auto &item) {
        return item.second.type == OPEN_FDB_ADDR_LEARNED && interfaces_.at(item.second.port).live &&
               !wanted.contains(item.first);
    });
    for (const auto &[key, place] : wanted)
        if (install(key.mac, key.vlan, place.first))
            if (auto &entry = fdb_[key]; entry.type == OPEN_FDB_ADDR_LEARNED)
                entry.lastSeen = place.second;
}

void Model::seeNeighbours(const std::vector<SeenNeighbour> &seen) {
    std::set<const LldpNeighbour *> present;
    for (const auto &[port, received] : seen) {
        const auto *interface = this->interface(port);
        if (interface == nullptr || !interface->live || !interface->linkUp)
            continue;
        auto fields = received;
        fields.cutTexts();
        auto &here = lldp_[port];
        auto known = std::find_if(here.begin(), here.end(), [&](const auto &item) {
            const auto &other = item.second.fields;
            return other.chassisId == fields.chassisId && other.chassisIdSubtype == fields.chassisIdSubtype &&
                   other.portId == fields.portId && other.portIdSubtype == fields.portIdSubtype;
        });
        if (known == here.end()) {
            newNeighbour(port, fields, fields.systemName.empty() ? fields.chassisId : fields.systemName);
            known = std::prev(here.end());
        }
        known->second.fields = std::move(fields);
        known->second.lastHeard = now_;
        present.insert(&known->second);
    }
    for (auto &[port, here] : lldp_)
        if (interfaces_.at(port).live)
            std::erase_if(here, [&](const auto &item) {
                if (present.contains(&item.second))
                    return false;
                event("lldp", "neighbour " + item.second.device + " expired");
                return true;
            });
}

void Model::seeArp(std::map<ArpKey, Mac> seen) {
    std::erase_if(seen, [&](const auto &item) { return !hasVlan(item.first.vlan); });
    arpSeen_ = std::move(seen);
}

// The VLAN in which a device's address is known; 0 when it is not.
VlanId Model::arpVlan(const Device &device) const {
    const bool heard =
        device.talking && !device.ip.empty() && !device.macs.empty() && forwarding(device.port);
    return heard ? classify(device, device.macs.front()) : 0;
}

std::map<ArpKey, Mac> Model::arp() const {
    auto all = arpSeen_;
    for (const auto &[name, device] : devices_)
        if (const auto vlan = arpVlan(device); vlan != 0)
            all[{vlan, device.ip}] = device.macs.front();
    return all;
}

std::optional<std::pair<ArpKey, Mac>> Model::nextArp(const ArpKey &after) const {
    std::optional<std::pair<ArpKey, Mac>> next;
    if (const auto seen = arpSeen_.upper_bound(after); seen != arpSeen_.end())
        next = *seen;
    for (auto it = ipOwners_.lower_bound(after.ip); it != ipOwners_.end(); ++it) {
        if (next && next->first.ip < it->first)
            break;
        for (const auto *device : it->second)
            if (const ArpKey key{arpVlan(*device), device->ip};
                key.vlan != 0 && key > after && (!next || key <= next->first))
                next = {key, device->macs.front()};
    }
    return next;
}

}  // namespace vswitch
