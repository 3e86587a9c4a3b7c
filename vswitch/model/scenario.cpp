// The devices that a scenario plugs into simulated ports: what the switch would learn and hear from them.
#include <algorithm>

#include "vswitch/model/model.h"

namespace vswitch {

// --- learning

// The VLAN in which a frame of the device arrives; 0 when the switch drops it.
VlanId Model::classify(const Device &device, const Mac &mac) const {
    const auto forwarder = forwarderOf(device.port);
    if (device.tag != 0) {
        const bool member = hasVlan(device.tag) && membership(forwarder, device.tag).participation ==
                                                       OPEN_VLAN_PARTICIPATION_MODE_INCLUDE;
        return member ? device.tag : 0;
    }
    if (const auto it = associations_.find(mac); it != associations_.end())
        return it->second;
    return interfaces_.at(forwarder).pvid;
}

const std::vector<const Device *> &Model::devicesAt(IfNum port) const {
    static const std::vector<const Device *> none;
    const auto it = devicesAt_.find(port);
    return it == devicesAt_.end() ? none : it->second;
}

// Only the device at the port itself is heard: LLDP does not pass through a device.
bool Model::audible(const Device &device) const {
    return device.lldp && device.behind.empty() && device.talking && interfaces_.at(device.port).linkUp;
}

void Model::learnDevice(const Device &device) {
    for (const auto &mac : device.macs)
        learnMac(device, mac);
    hear(device);
}

void Model::learnMac(const Device &device, const Mac &mac) {
    if (!device.talking || !forwarding(device.port))
        return;
    if (const auto vlan = classify(device, mac); vlan != 0)
        unlearned_ |= !install(mac, vlan, device.port);
}

void Model::relearnPort(IfNum port) {
    flushPort(port);
    for (const auto *device : devicesAt(port))
        learnDevice(*device);
}

void Model::relearnInterface(IfNum ifNum) {
    for (const auto port : portsOf(ifNum))
        relearnPort(port);
}

// Participation matters only for frames that arrive tagged.
void Model::relearnTagged(IfNum ifNum, VlanId id) {
    for (const auto port : portsOf(ifNum))
        for (const auto *device : devicesAt(port))
            if (device->tag == id)
                for (const auto &mac : device->macs)
                    relearnMac(mac);
}

void Model::relearnMac(const Mac &mac) {
    for (auto it = fdb_.lower_bound({mac, 0}); it != fdb_.end() && it->first.mac == mac;)
        it = it->second.type == OPEN_FDB_ADDR_LEARNED ? fdb_.erase(it) : std::next(it);
    if (const auto owner = macOwner_.find(mac); owner != macOwner_.end())
        learnMac(*owner->second, mac);
}

void Model::relearnAll() {
    for (const auto &[name, device] : devices_)
        learnDevice(device);
}

// --- LLDP and devices

void Model::hear(const Device &device) {
    if (!device.lldp || !audible(device))
        return;
    auto &neighbours = lldp_[device.port];
    for (auto &[index, neighbour] : neighbours)
        if (neighbour.device == device.name) {
            neighbour.fields = *device.lldp;
            neighbour.lastHeard = now_;
            return;
        }
    newNeighbour(device.port, *device.lldp, device.name);
}

LldpNeighbour &Model::newNeighbour(IfNum port, const LldpFields &fields, const std::string &device) {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(upTime()).count();
    event("lldp", "neighbour " + device + " on " + interfaces_.at(port).name());
    return lldp_[port]
        .emplace(nextRemIndex_++,
                 LldpNeighbour{static_cast<std::uint32_t>(seconds) + 1, fields, device, now_})
        .first->second;
}

// True when a device may be plugged in behind `other` at `port`; not behind itself or one that moves along.
bool Model::mayStandBehind(const std::string &other, IfNum port,
                           const std::vector<const Device *> &moved) const {
    const auto it = devices_.find(other);
    return it != devices_.end() && it->second.port == port &&
           std::find(moved.begin(), moved.end(), &it->second) == moved.end();
}

// The device and everything behind it, nearest first.
std::vector<const Device *> Model::withFollowers(const Device &device) const {
    std::vector<const Device *> found{&device};
    for (std::size_t i = 0; i < found.size(); ++i)
        for (const auto *other : devicesAt(device.port))
            if (other->behind == found[i]->name)
                found.push_back(other);
    return found;
}

open_error_t Model::plug(Device device) {
    const auto *port = interface(device.port);
    if (device.name.empty() || port == nullptr || port->isLag() || port->live || device.tag > kVlanMax ||
        (!device.behind.empty() && !mayStandBehind(device.behind, device.port, {})))
        return OPEN_E_PARAM;
    if (devices_.contains(device.name) ||
        std::any_of(device.macs.begin(), device.macs.end(),
                    [&](const Mac &mac) { return macOwner_.contains(mac); }))
        return OPEN_E_FAIL;
    if (device.lldp)
        device.lldp->cutTexts();
    countUpToNow(device.port);
    event("device", device.name + " plugged into " + port->name());
    auto name = device.name;
    const auto &stored = devices_.emplace(std::move(name), std::move(device)).first->second;
    for (const auto &mac : stored.macs)
        macOwner_[mac] = &stored;
    if (!stored.ip.empty()) {
        auto &owners = ipOwners_[stored.ip];
        owners.insert(std::ranges::upper_bound(owners, stored.name, {}, &Device::name), &stored);
    }
    devicesAt_[stored.port].push_back(&stored);
    const bool hadLink = port->linkUp;
    refreshLink(stored.port);
    if (hadLink) {
        learnDevice(stored);
        reportGroups(stored);
    }
    return OPEN_E_NONE;
}

open_error_t Model::unplug(const std::string &name) {
    const auto it = devices_.find(name);
    if (it == devices_.end())
        return OPEN_E_NOT_FOUND;
    const auto port = it->second.port;
    countUpToNow(port);
    auto &here = devicesAt_[port];
    for (const auto *device : withFollowers(it->second)) {
        event("device", device->name + " unplugged");
        for (const auto &mac : device->macs)
            macOwner_.erase(mac);
        if (const auto owners = ipOwners_.find(device->ip); owners != ipOwners_.end())
            if (std::erase(owners->second, device); owners->second.empty())
                ipOwners_.erase(owners);
        std::erase(here, device);
        devices_.erase(devices_.find(device->name));
    }
    refreshLink(port);
    return OPEN_E_NONE;
}

open_error_t Model::move(const std::string &name, IfNum port, const std::string &behind) {
    const auto it = devices_.find(name);
    if (it == devices_.end())
        return OPEN_E_NOT_FOUND;
    const auto *target = interface(port);
    const auto moved = withFollowers(it->second);
    if (target == nullptr || target->isLag() || target->live ||
        (!behind.empty() && !mayStandBehind(behind, port, moved)))
        return OPEN_E_PARAM;
    const auto from = it->second.port;
    countUpToNow(from);
    countUpToNow(port);
    it->second.behind = behind;
    for (const auto *device : moved) {
        std::erase(devicesAt_[from], device);
        devicesAt_[port].push_back(device);
        devices_.at(device->name).port = port;
        event("device", device->name + " moved to " + target->name());
    }
    // It is no longer heard where it was; its followers never were.
    if (const auto heard = lldp_.find(from); heard != lldp_.end() && (from != port || !behind.empty()))
        std::erase_if(heard->second, [&](const auto &item) { return item.second.device == name; });
    refreshLink(from);
    refreshLink(port);
    // What was learned about them elsewhere is outdated by their first frame on the new port.
    for (const auto *device : moved) {
        for (const auto &mac : device->macs)
            relearnMac(mac);
        hear(*device);
        reportGroups(*device);
    }
    return OPEN_E_NONE;
}

open_error_t Model::setTalking(const std::string &name, bool talking) {
    const auto it = devices_.find(name);
    if (it == devices_.end())
        return OPEN_E_NOT_FOUND;
    // Bring the entries up to date first: silence counts from this moment.
    age();
    countUpToNow(it->second.port);
    it->second.talking = talking;
    event("device", name + (talking ? " talks" : " is silent"));
    learnDevice(it->second);
    reportGroups(it->second);
    return OPEN_E_NONE;
}

}  // namespace vswitch
