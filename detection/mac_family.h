// What the families have in common that put a device into a VLAN by its MAC address: comparing a scan with
// the devices that are known, letting a device leave, repairing associations that somebody removed on the
// switch. What differs between families is in a table, MacFamily.
//
// Lists of devices belong to the family's thread. Failures are logged here, on behalf of the operation that
// `where` names, or by the steps of the family.
#ifndef PAVO_DETECTION_MAC_FAMILY_H
#define PAVO_DETECTION_MAC_FAMILY_H

#include <cstdint>
#include <optional>
#include <source_location>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "common/device_list.h"
#include "detection/mac_association.h"
#include "detection/scan_coverage.h"
#include "detection/system_log.h"
#include "swapi/switch.h"

namespace pavo {

// Classes of device (DetectedDevice::type) in the families with control units.
inline constexpr std::uint32_t DEVICE_TYPE_CONTROL = 1;
inline constexpr std::uint32_t DEVICE_TYPE_AUDIO = 2;

// Scans that a device may be missing from before it leaves.
inline constexpr std::uint32_t DEVICE_MISS_MAX = 20;

// A device that a scan has seen.
struct Sighting {
    Mac mac;
    IfNum port;
    std::uint32_t type = 0;  // as in DetectedDevice
    // 802.1X control of the port at the time, where the family asks for it.
    std::uint32_t controlMode = DEVICE_CONTROL_MODE_NONE;
};

// What one scan has seen.
struct DeviceScan : ScanCoverage {
    std::vector<Sighting> seen;
    // Seen on a port of which it could not be found out whether devices are looked for there.
    std::unordered_set<Mac> unplaced{};
};

// Addresses whose association the switch applied and yet does not show, for one when its table is full. Each
// is news once, and tried again at growing intervals, or as soon as something has left.
class AssociationRefusals {
  public:
    // Whether the address is to be tried in this scan, as one that has not been refused always is.
    bool isDue(Mac mac);
    // After a try. True when the refusal is news.
    bool add(Mac mac);
    void remove(Mac mac) { waits_.erase(mac); }
    void tryAllAgain();
    // Forgets the addresses that `isThere(mac)` does not know.
    template <class IsThere>
    void keepOnly(IsThere isThere) {
        std::erase_if(waits_, [&](const auto &wait) { return !isThere(wait.first); });
    }

  private:
    struct Wait {
        std::uint32_t pause = 0;  // scans between two tries
        std::uint32_t left = 0;
    };
    std::unordered_map<Mac, Wait> waits_;
};

// The log formats of a family. Those it does not have are left out.
struct MacFamilyTexts {
    LogFormat<> comparing;
    LogFormat<Mac> joining{};             // a new device, before it joins
    LogFormat<Mac> leaving{};             // a device that is missing for good, before it leaves
    LogFormat<Mac> associationMissing{};  // on the switch
    LogFormat<IfNum, std::uint32_t, std::int32_t> controlRestored{};  // port, mode, OpEN code

    // For the switch's system log.
    SystemFormat<Mac, IfNum, IfNum> moved{};          // from port, to port; also in the log
    SystemFormat<const char *, Mac, IfNum> left{};    // "Control" or "Audio"
    SystemFormat<Mac, VlanId, VlanId> vlanChanged{};  // from VLAN, to VLAN; also in the log
};

// One family. Steps marked optional may be left out; their own log lines name `where`.
struct MacFamily {
    const char *name;  // in the report on devices
    AssociationScripts scripts;
    MacFamilyTexts texts;

    // Those of the family's addresses that the switch refuses; of its thread. Optional: each try is news.
    AssociationRefusals *(*refusals)() = nullptr;

    // The devices that are there now. Nothing when it cannot be known at the moment what to look for: nobody
    // is compared then.
    std::optional<DeviceScan> (*scan)(Switch sw, const Where &where);

    // The VLAN that devices of a type belong into at present; nothing for a type that has none, and while it
    // cannot be read. With it, devices follow when it changes, and a join counts only when the switch shows
    // the association. Optional.
    std::optional<VlanId> (*vlanOf)(std::uint32_t type, const Where &where) = nullptr;

    // Whether a device that is not in the list is to join now, and what is to be kept of it. Optional; comes
    // with the reason that the report on devices gives for one that is not.
    bool (*admit)(Switch sw, const Sighting &seen, DetectedDevice *device, const Where &where) = nullptr;
    const char *notAdmitted = "";
    // True when the switch has taken what makes the device join, or leave. What failed is tried again with
    // the next scan.
    bool (*join)(Switch sw, const DetectedDevice &device, const Where &where);
    bool (*leave)(Switch sw, const DetectedDevice &device, const Where &where);
    // Reports a device that has joined and is in the list from now on. Optional.
    void (*joined)(const DetectedDevice &device, const Where &where) = nullptr;

    // A device that was there at the last scan is missing. Optional.
    void (*firstMiss)(Switch sw, const DetectedDevice &device, const Where &where) = nullptr;
    // The list has been compared with the scan, and nobody has joined yet. Optional.
    void (*compared)(Switch sw, const DeviceScan &scan, const DeviceList<DetectedDevice> &devices,
                     const Where &where) = nullptr;
    // A device of the list is still where it was. False when it has no network there: the report says so, with
    // `notAdmitted`. Optional.
    bool (*stillThere)(Switch sw, const Sighting &seen, const Where &where) = nullptr;
};

// Compares one scan with the list: joins what is new, follows what moved and a VLAN that has changed, counts
// what is missing and lets it leave. Reports (device_report.h) who is there then, and why who is not. What the
// scan could not see is neither missing nor moved, and an address that is seen on several ports stays on the
// one where it is known. Takes a time that is linear in scan and list.
void updateDevices(Switch sw, const MacFamily &family, DeviceList<DetectedDevice> *devices,
                   Where where = std::source_location::current());

// Puts the addresses that the switch has in a VLAN, and the list has not, into the list as devices of that
// type that have not been seen yet: they are told apart by the address alone, however it is spelled, are
// taken over without a word when a scan sees them, and leave like others when none does. Addresses that the
// family does not accept are somebody else's; null: it accepts all. False when the switch could not be asked
// (logged).
bool adoptDevices(Switch sw, VlanId vlan, std::uint32_t type, DeviceList<DetectedDevice> *devices,
                  bool (*accepts)(Mac mac, std::uint32_t type) = nullptr,
                  Where where = std::source_location::current());

// Drops the devices whose association is missing on the switch, so that the next update joins them afresh.
// Failed when the switch does not show its associations, OpenFailed when its output cannot be read.
Result<> repairDevices(Switch sw, const MacFamily &family, DeviceList<DetectedDevice> *devices,
                       Where where = std::source_location::current());

// What the repair operations return for it: 1 for a success, or the code of the failure.
std::int32_t repairCodeOf(const Result<> &repaired);

// Lets every device leave, whatever comes of it, and empties the list. A leave that runs out of memory is
// passed over (logged).
void clearDevices(Switch sw, const MacFamily &family, DeviceList<DetectedDevice> *devices,
                  Where where = std::source_location::current());

// Outcome of a leave: the association is removed by a script, the port's control set by an OpEN call.
struct [[nodiscard]] DeviceLeave {
    ScriptResult association;
    std::optional<OpenResult<>> control;  // when the port had to be put back under 802.1X control
};

// What an operation returns for it: the code of the last step.
std::int32_t codeOf(const DeviceLeave &leave);

// Removes the association of a device, reports that to the system log, and puts a port that was under 802.1X
// control when the device joined back there, unless the script did not even get to the switch. A device that
// another family has put into a VLAN, too, stays in that one, or gets back there when it was there before.
DeviceLeave removeDevice(Switch sw, const MacFamily &family, const DetectedDevice &device,
                         Where where = std::source_location::current());

}  // namespace pavo

#endif
