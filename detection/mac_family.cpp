#include "detection/mac_family.h"

#include <algorithm>
#include <new>
#include <string>
#include <tuple>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "common/log.h"
#include "detection/device_report.h"
#include "detection/mac_claims.h"

namespace pavo {
namespace {

using Devices = DeviceList<DetectedDevice>;

// The ports on which one scan has seen each address.
class SeenPorts {
  public:
    explicit SeenPorts(const std::vector<Sighting> &seen) {
        first_.reserve(seen.size());
        for (const Sighting &one : seen)
            if (const auto [entry, isNew] = first_.try_emplace(one.mac, one.port); !isNew)
                more_.emplace(one.mac, one.port);
    }

    bool has(Mac mac) const { return first_.contains(mac); }
    // Where the address is: on `known` when it has been seen there, else on the first port. IfNum() when it
    // has not been seen.
    IfNum find(Mac mac, IfNum known) const {
        const auto first = first_.find(mac);
        if (first == first_.end())
            return IfNum();
        const auto [begin, end] = more_.equal_range(mac);
        const bool isThere = std::any_of(begin, end, [&](const auto &one) { return one.second == known; });
        return isThere ? known : first->second;
    }

  private:
    std::unordered_map<Mac, IfNum> first_;
    std::unordered_multimap<Mac, IfNum> more_;
};

using KnownPorts = std::unordered_map<Mac, IfNum>;

// The ports of the addresses in the list. A second record of an address is dropped.
KnownPorts indexDevices(Devices *devices) {
    KnownPorts known;
    known.reserve(devices->count());
    devices->removeWhere(
        [&](const DetectedDevice &device) { return !known.try_emplace(device.mac, device.port).second; });
    return known;
}

// Devices that were taken over and have not been seen since get their port and the scan's spelling.
void recogniseAdopted(Devices *devices, const std::vector<Sighting> &seen) {
    std::unordered_map<std::uint64_t, DetectedDevice *> adopted;
    for (DetectedDevice &device : *devices)
        if (!device.port)
            adopted.emplace(device.mac.bits(), &device);
    if (adopted.empty())
        return;
    for (const Sighting &one : seen)
        if (const auto device = adopted.find(one.mac.bits()); device != adopted.end()) {
            device->second->port = one.port;
            device->second->mac = one.mac;
            device->second->type = one.type;
            adopted.erase(device);
        }
}

void followTo(IfNum port, const MacFamily &family, DetectedDevice *device, const Where &where) {
    const std::string text =
        logToSystem(std::source_location::current(), family.texts.moved, device->mac, device->port, port);
    if (!text.empty())
        logInfo(where, "[%s:%d] %s\r\n", text);
    device->port = port;
}

void compareKnown(Switch sw, const MacFamily &family, Devices *devices, const DeviceScan &scan,
                  const SeenPorts &ports, const Where &where) {
    devices->removeWhere([&](DetectedDevice &device) {
        if (const IfNum port = ports.find(device.mac, device.port)) {
            if (port != device.port && scan.covers(device.port))
                followTo(port, family, &device, where);
            device.missCount = 0;
            return false;
        }
        if (!scan.covers(device.port) || scan.unplaced.contains(device.mac))
            return false;
        if (++device.missCount == 1 && family.firstMiss != nullptr)
            family.firstMiss(sw, device, where);
        if (device.missCount < DEVICE_MISS_MAX)
            return false;
        logDebug(where, family.texts.leaving, device.mac);
        const bool hasLeft = family.leave(sw, device, where);
        if (hasLeft && family.refusals != nullptr)
            family.refusals()->tryAllAgain();
        return hasLeft;
    });
}

// --- joining

// Devices whose association has been changed and is to be looked at, all by one show command.
struct Changes {
    std::vector<DetectedDevice> joining;
    std::vector<std::pair<DetectedDevice *, VlanId>> following;  // with the VLAN that they follow to
    std::vector<DeviceState> refused;                            // for the report
    std::unordered_set<Mac> cutOff;                              // known, and refused all the same
};

// Reasons in the report.
constexpr const char *kNotTaken = "the switch has not taken its association, or the VLAN is not there";
constexpr const char *kNotShown = "the switch does not show its association";
constexpr const char *kOthers = "another family has put it into this VLAN since";

// The VLAN of each type, asked for once.
class TypeVlans {
  public:
    TypeVlans(const MacFamily &family, const Where &where) : family_(family), where_(where) {}

    std::optional<VlanId> of(std::uint32_t type) {
        if (family_.vlanOf == nullptr)
            return std::nullopt;
        const auto [entry, isNew] = vlans_.try_emplace(type);
        if (isNew)
            entry->second = family_.vlanOf(type, where_);
        return entry->second;
    }

  private:
    const MacFamily &family_;
    Where where_;
    std::unordered_map<std::uint32_t, std::optional<VlanId>> vlans_;
};

bool isDue(const MacFamily &family, Mac mac) {
    return family.refusals == nullptr || family.refusals()->isDue(mac);
}

void followVlans(Switch sw, const MacFamily &family, Devices *devices, TypeVlans *vlans, Changes *changes,
                 const Where &where) {
    for (DetectedDevice &device : *devices) {
        // One that joined while its VLAN could not be read has none: it is put there again.
        const auto vlan = vlans->of(device.type);
        if (!vlan || vlan == device.vlan || !isDue(family, device.mac))
            continue;
        const auto lock = lockAssociations();
        if (addMacAssociation(sw, family.scripts, device.mac, *vlan, where)) {
            device.claim = claimMac(device.mac, vlan);
            changes->following.emplace_back(&device, *vlan);
        }
    }
}

DeviceState refusedState(const MacFamily &family, Mac mac, IfNum port, const char *why) {
    return {.family = family.name,
            .address = mac.text(),
            .port = port,
            .kind = DeviceState::Kind::Refused,
            .reason = why};
}

void joinNew(Switch sw, const MacFamily &family, const KnownPorts &known, const DeviceScan &scan,
             TypeVlans *vlans, Changes *changes, const Where &where) {
    std::unordered_set<Mac> notNow;
    const auto refuse = [&](const Sighting &seen, const char *why) {
        changes->refused.push_back(refusedState(family, seen.mac, seen.port, why));
    };
    for (const Sighting &seen : scan.seen) {
        if (notNow.contains(seen.mac))
            continue;
        DetectedDevice device{.port = seen.port, .type = seen.type, .mac = seen.mac};
        if (const auto port = known.find(seen.mac); port != known.end()) {
            if (port->second == seen.port && family.stillThere != nullptr &&
                !family.stillThere(sw, seen, where))
                changes->cutOff.insert(seen.mac);
            continue;
        }
        if (family.admit != nullptr && !family.admit(sw, seen, &device, where)) {
            refuse(seen, family.notAdmitted);
            continue;
        }
        notNow.insert(seen.mac);
        if (!isDue(family, device.mac)) {
            refuse(seen, kNotShown);
            continue;
        }
        logDebug(where, family.texts.joining, device.mac);
        device.vlan = vlans->of(device.type);
        const auto lock = lockAssociations();
        if (family.join(sw, device, where)) {
            device.claim = claimMac(device.mac, device.vlan);
            changes->joining.push_back(device);
        } else {
            refuse(seen, kNotTaken);
        }
    }
}

void reportRefusal(const MacFamily &family, const DetectedDevice &device, VlanId vlan, const Where &where) {
    if (family.refusals == nullptr || family.refusals()->add(device.mac))
        logError(where,
                 "[%s:%d] the switch has not taken the association of MAC %s on Port 0/%d with VLAN %d; it "
                 "is tried again without further words\r\n",
                 device.mac, device.port, vlan);
}

void finishFollowing(const MacFamily &family, DetectedDevice *device, VlanId vlan, const Where &where) {
    if (const auto former = std::exchange(device->vlan, vlan)) {
        const std::string text = logToSystem(std::source_location::current(), family.texts.vlanChanged,
                                             device->mac, *former, vlan);
        if (!text.empty())
            logInfo(where, "[%s:%d] %s\r\n", text);
    }
}

// Only what the switch shows counts. When it does not say, what it has accepted has to do.
void finishChanges(Switch sw, const MacFamily &family, Devices *devices, Changes *changes,
                   const Where &where) {
    std::optional<MacAssociations> shown;
    const bool isVerifiable =
        !changes->following.empty() ||
        std::ranges::any_of(changes->joining, [](const auto &device) { return device.vlan.has_value(); });
    if (isVerifiable)
        shown = readMacAssociations(sw, where).value_or(std::nullopt);
    // Or was, and another family has changed it since.
    const auto isOthers = [](const DetectedDevice &device) {
        const auto other = findOtherClaim(device.mac, device.claim.get());
        return other && other->isInEffect;
    };
    const auto isTaken = [&](const DetectedDevice &device, VlanId vlan) {
        const bool taken = !shown || shown->hold(device.mac, vlan) || isOthers(device);
        if (taken && family.refusals != nullptr)
            family.refusals()->remove(device.mac);
        return taken;
    };
    for (const auto &[device, vlan] : changes->following)
        if (isTaken(*device, vlan))
            finishFollowing(family, device, vlan, where);
        else
            reportRefusal(family, *device, vlan, where);
    for (const DetectedDevice &device : changes->joining) {
        if (device.vlan && !isTaken(device, *device.vlan)) {
            reportRefusal(family, device, *device.vlan, where);
            changes->refused.push_back(refusedState(family, device.mac, device.port, kNotShown));
        } else {
            if (family.joined != nullptr)
                family.joined(device, where);
            static_cast<void>(devices->push(device));  // without memory it is new again at the next scan
        }
    }
}

// A device that is there, and has not what its family wants.
void reportObstacles(const MacFamily &family, const DetectedDevice &device, const Changes &changes,
                     DeviceState &state) {
    const auto refuse = [&](const char *why) {
        state.kind = DeviceState::Kind::Refused;
        state.reason = why;
    };
    if (changes.cutOff.contains(device.mac))
        refuse(family.notAdmitted);
    if (const auto other = findOtherClaim(device.mac, device.claim.get());
        other && other->isInEffect && other->vlan && other->vlan != device.vlan) {
        state.vlan = other->vlan;
        refuse(kOthers);
    }
}

void report(const MacFamily &family, const Devices &devices, Changes changes, const Where &where) {
    std::vector<DeviceState> states = std::move(changes.refused);
    for (const DetectedDevice &device : devices) {
        DeviceState state{.family = family.name,
                          .address = device.mac.text(),
                          .port = device.port,
                          .vlan = device.vlan,
                          .missed = device.missCount,
                          .missedMax = DEVICE_MISS_MAX};
        if (device.missCount >= DEVICE_MISS_MAX)
            state.kind = DeviceState::Kind::Leaving;
        else if (device.missCount > 0)
            state.kind = DeviceState::Kind::Missing;
        else if (!device.port)
            state.kind = DeviceState::Kind::Unseen;
        else
            reportObstacles(family, device, changes, state);
        states.push_back(std::move(state));
    }
    std::ranges::sort(states, {}, [](const auto &state) { return std::tie(state.port, state.address); });
    reportDevices(family.name, std::move(states), where);
}

// What another family has put the device into stays, or is put in effect again.
ScriptResult endAssociation(Switch sw, const MacFamily &family, const DetectedDevice &device,
                            const Where &where) {
    const auto lock = lockAssociations();
    const auto other = findOtherClaim(device.mac, device.claim.get());
    ScriptResult done;
    if (!other)
        done = removeMacAssociation(sw, family.scripts, device.mac, where);
    else if (!other->isInEffect && other->vlan)
        done = addMacAssociation(sw, family.scripts, device.mac, *other->vlan, where);
    if (done && device.claim != nullptr)
        device.claim->withdraw();
    return done;
}

// A port that is still to be put back under 802.1X control is known by nothing but the record.
bool isHalfLeft(const DetectedDevice &device) {
    return device.missCount >= DEVICE_MISS_MAX &&
           device.controlMode == static_cast<std::uint32_t>(PortControl::Auto);
}

}  // namespace

bool AssociationRefusals::isDue(Mac mac) {
    const auto wait = waits_.find(mac);
    if (wait == waits_.end() || wait->second.left == 0)
        return true;
    --wait->second.left;
    return false;
}

bool AssociationRefusals::add(Mac mac) {
    const auto [entry, isNews] = waits_.try_emplace(mac);
    Wait &wait = entry->second;
    wait.left = wait.pause;
    wait.pause = std::min(wait.pause * 2 + 1, DEVICE_MISS_MAX);
    return isNews;
}

void AssociationRefusals::tryAllAgain() {
    for (auto &[mac, wait] : waits_)
        wait.left = 0;
}

void updateDevices(Switch sw, const MacFamily &family, Devices *devices, Where where) {
    const auto scan = family.scan(sw, where);
    if (!scan)
        return;
    logDebug(where, family.texts.comparing);
    recogniseAdopted(devices, scan->seen);
    const SeenPorts ports(scan->seen);
    compareKnown(sw, family, devices, *scan, ports, where);
    const KnownPorts known = indexDevices(devices);
    if (family.compared != nullptr)
        family.compared(sw, *scan, *devices, where);
    if (family.refusals != nullptr && scan->isWhole)
        family.refusals()->keepOnly([&](Mac mac) { return ports.has(mac) || known.contains(mac); });
    TypeVlans vlans(family, where);
    Changes changes;
    followVlans(sw, family, devices, &vlans, &changes, where);
    joinNew(sw, family, known, *scan, &vlans, &changes, where);
    finishChanges(sw, family, devices, &changes, where);
    report(family, *devices, std::move(changes), where);
}

bool adoptDevices(Switch sw, VlanId vlan, std::uint32_t type, Devices *devices,
                  bool (*accepts)(Mac mac, std::uint32_t type), Where where) {
    const auto shown = readMacAssociations(sw, where);
    if (!shown)
        return false;
    const std::optional<MacAssociations> &table = *shown;
    if (!table)
        return true;  // nothing is associated
    std::unordered_set<std::uint64_t> known;
    for (const DetectedDevice &device : *devices)
        known.insert(device.mac.bits());
    for (const Mac mac : table->addressesIn(vlan)) {
        if (known.contains(mac.bits()) || (accepts != nullptr && !accepts(mac, type)))
            continue;
        logInfo(where, "[%s:%d] MAC %s is associated with VLAN %d from an earlier run: taken over\r\n", mac,
                vlan);
        if (!devices->push(
                {.port = {}, .type = type, .mac = mac, .vlan = vlan, .claim = claimMac(mac, vlan)}))
            return false;
    }
    return true;
}

Result<> repairDevices(Switch sw, const MacFamily &family, Devices *devices, Where where) {
    const auto shown = readMacAssociations(sw, where);
    if (!shown)
        return std::unexpected(shown.error());
    if (const auto &associations = *shown)
        devices->removeWhere([&](const DetectedDevice &device) {
            // A leave that is not through has removed the association already.
            if (associations->mention(device.mac) || isHalfLeft(device))
                return false;
            logError(where, family.texts.associationMissing, device.mac);
            return true;
        });
    return {};
}

std::int32_t repairCodeOf(const Result<> &repaired) {
    return repaired ? 1 : codeOf(repaired);
}

void clearDevices(Switch sw, const MacFamily &family, Devices *devices, Where where) {
    for (const DetectedDevice &device : *devices)
        try {
            static_cast<void>(family.leave(sw, device, where));
        } catch (const std::bad_alloc &) {
            logError(where, "[%s:%d] Could not allocate memory.\r\n");
        }
    devices->clear();
    report(family, *devices, {}, where);
}

std::int32_t codeOf(const DeviceLeave &leave) {
    if (leave.control)
        return codeOf(*leave.control);
    return codeOf(leave.association ? ResultCode::Success : ResultCode::Failed);
}

DeviceLeave removeDevice(Switch sw, const MacFamily &family, const DetectedDevice &device, Where where) {
    DeviceLeave leave{.association = endAssociation(sw, family, device, where), .control = {}};
    if (leave.association)
        logToSystem(std::source_location::current(), family.texts.left,
                    device.type == DEVICE_TYPE_CONTROL ? "Control" : "Audio", device.mac, device.port);
    else if (leave.association.error().step == ScriptFailure::Step::Write)
        return leave;
    if (device.controlMode == static_cast<std::uint32_t>(PortControl::Auto)) {
        leave.control = sw.setPortControl(device.port, PortControl::Auto);
        logDebug(where, family.texts.controlRestored, device.port, device.controlMode,
                 codeOf(*leave.control));
    }
    return leave;
}

}  // namespace pavo
