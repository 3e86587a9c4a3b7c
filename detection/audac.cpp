#include "detection/audac.h"

#include <pthread.h>

#include <algorithm>
#include <chrono>
#include <string_view>
#include <unordered_map>

#include "common/log.h"
#include "common/text.h"
#include "detection/physical_ports.h"
#include "platform/paths.h"
#include "store/profile_types.h"
#include "vlan/profile_vlan.h"

namespace pavo {
namespace {

constexpr const char *kProfileType = PROFILE_TYPE_NAME_AUDAC;
constexpr std::size_t kChassisIdKept = 17;

constexpr AssociationScripts kScripts = {.in = platform::paths::kAudacIn,
                                         .out = platform::paths::kAudacOut,
                                         .writeFailed = "[%s:%d] AudacLookup write file failed.\r\n",
                                         .applyFailed = "[%s:%d] AudacLookup cli apply failed. (%s)\r\n"};

// The operations that lines of the log name also where the thread itself does their work.
constexpr Where kOnline("audacOnlineCli", __LINE__);
constexpr Where kValidityCheck("audacValidityCheck", __LINE__);

constexpr NeighbourField kNeighbourReads[] = {NeighbourField::ChassisId, NeighbourField::PortId,
                                              NeighbourField::SystemDesc};

// What the thread knows. Never destroyed: the thread may run until the process is gone.
DeviceList<DetectedDevice> *knownDevices() {
    static auto *const devices = new DeviceList<DetectedDevice>;
    return devices;
}

// --- scanning

// The control unit of each port that has one, by its chassis id: nothing when that is no MAC address.
using ControlUnits = std::unordered_map<IfNum, std::optional<Mac>>;

bool isControlUnit(const Neighbour &neighbour) {
    constexpr std::string_view kMark = "audac";
    const auto sameLetter = [](char a, char b) { return (a >= 'A' && a <= 'Z' ? a - 'A' + 'a' : a) == b; };
    const auto &description = neighbour[NeighbourField::SystemDesc];
    return description && !std::ranges::search(*description, kMark, sameLetter).empty();
}

// What a walk did not get to may be there all the same.
void noteBroken(const std::optional<OpenError> &error, const char *table, DeviceScan *scan,
                const Where &where) {
    if (!error)
        return;
    scan->isWhole = false;
    logWarn(where, "[%s:%d] AudacLookup: the %s cannot be read to the end (result = %d)\r\n", table, *error);
}

// A port that could not be read, and on which none was found until then, is noted in the scan.
ControlUnits findControlUnits(Switch sw, const PortSet &ports, DeviceScan *scan, const Where &where) {
    logDebug(where, "[%s:%d] AudacLookup: Step 1 - scanning LLDP for Audac control devices.\r\n");
    ControlUnits controls;
    NeighbourReader reader(sw, audacNeighbours);
    auto interfaces = sw.lldpInterfaces();
    for (const IfNum port : interfaces) {
        if (!ports.contains(port))
            continue;
        const PortNeighbours read = reader.read(port, where);
        const std::vector<Neighbour> &neighbours = read.neighbours;
        const auto control = std::ranges::find_if(neighbours, isControlUnit);
        if (control == neighbours.end() && !read.outcome) {
            scan->unread.insert(port);
            continue;
        }
        if (control == neighbours.end()) {
            logDebug(where, "[%s:%d] AudacLookup: No Audac control LLDP on port %d, skip.\r\n", port);
            continue;
        }
        const std::string chassisId =
            (*control)[NeighbourField::ChassisId].value_or("").substr(0, kChassisIdKept);
        controls.emplace(port, Mac::parse(chassisId));
        logDebug(where,
                 "[%s:%d] AudacLookup: Found Audac control on port %d, chassisID=%s, systemDesc='%s'\r\n",
                 port, printable(chassisId), printable((*control)[NeighbourField::SystemDesc].value_or("")));
    }
    noteBroken(interfaces.brokenBy(), "LLDP interfaces", scan, where);
    return controls;
}

void findAudioDevices(Switch sw, const ControlUnits &controls, DeviceScan *scan, const Where &where) {
    logDebug(where, "[%s:%d] AudacLookup: Step 2 - scanning FDB for audio device MACs.\r\n");
    PhysicalPorts physical(sw);
    auto table = sw.forwardingTable(where);
    for (const auto &[mac, vlan, port, learned] : table) {
        // The control units first: that costs no call, and most entries are on other ports.
        const auto control = controls.find(port);
        if (control == controls.end())
            continue;
        if (const Presence isPhysical = physical.find(port); isPhysical != Presence::Present) {
            if (isPhysical == Presence::Unknown)
                scan->unread.insert(port);
            continue;
        }
        if (const std::optional<Mac> &unit = control->second; unit && unit->sameAddress(mac)) {
            logDebug(where, "[%s:%d] AudacLookup: FDB MAC %s on port %d matches control, skip.\r\n", mac,
                     port);
            continue;
        }
        if (mac.isZero())
            continue;
        logDebug(where, "[%s:%d] AudacLookup: FDB MAC %s on port %d is audio device candidate.\r\n", mac,
                 port);
        scan->seen.push_back({.mac = mac, .port = port, .type = DEVICE_TYPE_AUDIO});
    }
    noteBroken(table.brokenBy(), "forwarding table", scan, where);
}

// --- joining

// The VLAN that the device has been put into.
Result<VlanId> associate(Switch sw, const DetectedDevice &device, const Where &where) {
    const auto vlan = device.vlan ? device.vlan : audacAudioVlanIdGet();
    if (!vlan) {
        logError(where, "[%s:%d] AudacLookup get audio vlan failed. (audioVlan:%d)\r\n", 0);
        return failed(ResultCode::Failed);
    }
    if (!addMacAssociation(sw, kScripts, device.mac, *vlan, where))
        return failed(ResultCode::Failed);
    return *vlan;
}

void reportJoin(const DetectedDevice &device, VlanId vlan, const Where &where) {
    logToSystem(std::source_location::current(), "AUDAC Audio device Join (MAC: %s) on Port 0/%d.",
                device.mac, device.port);
    logInfo(where, "[%s:%d] AudacLookup: Added VLAN association MAC %s to VLAN %d\r\n", device.mac, vlan);
}

OpenResult<> joinControlUnit(Switch sw, const DetectedDevice &device, const Where &where) {
    logInfo(where,
            "[%s:%d] AudacLookup: Detected AUDAC Control device (MAC: %s) on Port %d, disabling PTP\r\n",
            device.mac, device.port);
    const auto result = sw.setPortPtpTc(device.port, false);
    if (result)
        logToSystem(std::source_location::current(),
                    "AUDAC Control device Join (MAC: %s) on Port 0/%d, PTP disabled.", device.mac,
                    device.port);
    else
        logError(where, "[%s:%d] AudacLookup: Failed to disable PTP on port %d (result=%d)\r\n", device.port,
                 result.error());
    return result;
}

// --- the family

std::optional<VlanId> findVlan(std::uint32_t type, const Where &) {
    return type == DEVICE_TYPE_AUDIO ? audacAudioVlanIdGet() : std::nullopt;
}

bool join(Switch sw, const DetectedDevice &device, const Where &) {
    switch (device.type) {
        case DEVICE_TYPE_AUDIO:
            return associate(sw, device, kOnline).has_value();
        case DEVICE_TYPE_CONTROL:
            return joinControlUnit(sw, device, kOnline).has_value();
        default:
            return true;
    }
}

void reportJoined(const DetectedDevice &device, const Where &) {
    if (device.type == DEVICE_TYPE_AUDIO && device.vlan)
        reportJoin(device, *device.vlan, kOnline);
}

// Never destroyed, like the devices.
AssociationRefusals *refusals() {
    static auto *const instance = new AssociationRefusals;
    return instance;
}

constexpr MacFamily kFamily = {
    .name = "audac",
    .scripts = kScripts,
    .texts = {.comparing = "[%s:%d] AudacLookup comparison with linked list.\r\n",
              .joining = "[%s:%d] AudacLookup: detection AUDAC Audio device(mac=%s) online\r\n",
              .associationMissing = "[%s:%d] AudacLookup check (mac: %s) in the linked list, but not in the "
                                    "VLAN association mac.\r\n",
              .controlRestored = "[%s:%d] AudacLookup: set port %d control mode to %d (result=%d)\r\n",
              .moved = "AUDAC device (MAC: %s) from Port 0/%d change to Port 0/%d.",
              .left = "AUDAC device Leave (%s MAC: %s) on Port 0/%d.",
              .vlanChanged = "AUDAC device (MAC: %s) from VLAN %d change to VLAN %d."},
    .refusals = refusals,
    .scan = scanAudacDevices,
    .vlanOf = findVlan,
    .join = join,
    .leave = [](Switch sw, const DetectedDevice &device,
                const Where &) { return audacOfflineCli(sw, device) == 0; },
    .joined = reportJoined,
};

// --- the thread

// Whether profile, VLAN and audio VLAN are there; lines name the operation that asks the same.
Reason checkProfile(Switch sw, const Where &) {
    const Where where = kValidityCheck;
    logDebug(where, "[%s:%d] AudacLookup: audacValidityCheck called, searching for profileType='%s'\r\n",
             kProfileType);
    const ProfileVlan profile = findVlanOfProfileType(sw, kProfileType, kDefaultVlan, where);
    if (profile.presence == Presence::Unknown)
        return {profile.presence, profile.awaited};
    if (profile.presence == Presence::Absent) {
        logDebug(where,
                 "[%s:%d] AudacLookup: vlanInfoSelectHasofProfileType returned 0 - no AUDAC profile found in "
                 "DB\r\n");
        return profile.presence;
    }
    logDebug(where, "[%s:%d] AudacLookup: found AUDAC profile, vlanId=%d\r\n", profile.vlan);

    if (const auto created = sw.checkVlan(profile.vlan); !created) {
        logDebug(where, "[%s:%d] AudacLookup: VLAN %d not created (rc=%d)\r\n", profile.vlan,
                 created.error());
        return presenceOf(created);
    }

    const auto audioVlan = audacAudioVlanIdGet();
    const std::uint32_t shown = audioVlan ? audioVlan->number() : 0;
    logDebug(where, "[%s:%d] AudacLookup: audacAudioVlanIdGet returned audioVlan=%d (from %s)\r\n", shown,
             detectionConfigPath(audacDetection));
    if (!audioVlan) {
        logDebug(where, "[%s:%d] AudacLookup: audioVlan is 0 - config file missing or invalid\r\n");
        return {Presence::Unknown, "a configuration file with the audio VLAN"};
    }
    logDebug(where, "[%s:%d] AudacLookup: validity check PASSED, audioVlan=%d\r\n", shown);
    return Presence::Present;
}

bool takeOver(Switch sw, const Where &) {
    return adoptAudacDevices(sw, knownDevices());
}

void runCycle(Switch sw, const Where &) {
    repairAudacLink(sw, knownDevices());
    audacLookup(sw, knownDevices());
}

void takeOut(Switch sw, const Where &where) {
    clearDevices(sw, kFamily, knownDevices(), where);
}

std::atomic<std::int32_t> running{0};

}  // namespace

constinit const NeighbourFamily audacNeighbours = {
    .reads = kNeighbourReads,
    .walkStart =
        "[%s:%d] AudacLookup call openapiLldpIntfRemoteDeviceNextGet.(ifNum: %d, remIndex: %d, "
        "timeStamp: %d)\r\n",
    .descriptionRead = "[%s:%d] AudacLookup get system Description: %s\r\n",
};

constinit const DetectionRow audacDetection = {
    .name = "audac",
    .profileType = kProfileType,
    .parseConfig = [](const std::string &text) { return parseDetectionConfig(text, "audacDevicePort"); },
    .loop = {.texts = {.started = "[%s:%d] AudacLookup Init success!\r\n",
                       .lookingNow = "[%s:%d] AudacLookup wake up and start scanning LLDP table.\r\n",
                       .skipped = "[%s:%d] AUDAC Profile not already created, do nothing.\r\n",
                       .ended = "[%s:%d] User already delete AUDAC profile, AudacLookup exit!\r\n"},
             .period = std::chrono::seconds(15),
             .check = checkProfile,
             .begin = takeOver,
             .cycle = runCycle,
             .end = takeOut},
    .entry = detect_audac_thread,
    .running = &running,
    .onStartFailure = StartFailure::Fatal,
    .notCreated = "[%s:%d] Fatal error unable to create detect audac thread!",
    .notRecreated = "[%s:%d] Fatal error unable to recreate detect audac thread!",
};

void *detect_audac_thread(void *clientHandle) {
    runDetection(audacDetection, clientHandle);
    pthread_exit(nullptr);
}

std::optional<VlanId> audacAudioVlanIdGet() {
    const auto config = readDetectionConfig(audacDetection);
    return config ? config->audioVlan : std::nullopt;
}

std::int32_t audacValidityCheck(Switch sw) {
    return checkCodeOf(checkProfile(sw, kValidityCheck).presence);
}

std::optional<DeviceScan> scanAudacDevices(Switch sw, const Where &where) {
    logDebug(where, "[%s:%d] AudacLookup: audacListGet reading config from '%s'\r\n",
             detectionConfigPath(audacDetection));
    const auto config = readDetectionConfig(audacDetection, where);
    if (!config) {
        logDebug(where, "[%s:%d] AudacLookup: Failed to read config file '%s'\r\n",
                 detectionConfigPath(audacDetection));
        return std::nullopt;
    }
    if (!config->ports) {
        logDebug(where, "[%s:%d] AudacLookup: 'audacDevicePort' not found in config file\r\n");
        return DeviceScan();
    }
    PortSet ports;
    for (const IfNum port : *config->ports)
        if (ports.insert(port))
            logDebug(where, "[%s:%d] AudacLookup: Added port %d to AUDAC port list\r\n", port);
    DeviceScan scan;
    const ControlUnits controls = findControlUnits(sw, ports, &scan, where);
    findAudioDevices(sw, controls, &scan, where);
    return scan;
}

bool adoptAudacDevices(Switch sw, DeviceList<DetectedDevice> *devices) {
    const auto vlan = audacAudioVlanIdGet();
    return vlan && adoptDevices(sw, *vlan, DEVICE_TYPE_AUDIO, devices);
}

void audacLookup(Switch sw, DeviceList<DetectedDevice> *devices) {
    updateDevices(sw, kFamily, devices);
}

std::int32_t audacOnlineCli(Switch sw, const DetectedDevice &device) {
    switch (device.type) {
        case DEVICE_TYPE_AUDIO: {
            const auto vlan = associate(sw, device, std::source_location::current());
            if (vlan)
                reportJoin(device, *vlan, std::source_location::current());
            return codeOf(vlan);
        }
        case DEVICE_TYPE_CONTROL:
            return codeOf(joinControlUnit(sw, device, std::source_location::current()));
        default:
            return codeOf(ResultCode::Success);
    }
}

std::int32_t audacOfflineCli(Switch sw, const DetectedDevice &device) {
    return codeOf(removeDevice(sw, kFamily, device));
}

std::int32_t repairAudacLink(Switch sw, DeviceList<DetectedDevice> *devices) {
    return repairCodeOf(repairDevices(sw, kFamily, devices));
}

void audacClear(Switch sw, DeviceList<DetectedDevice> *devices) {
    logDebug("[%s:%d] AudacLookup found AUDAC profile delete, clear all AUDAC.\r\n");
    clearDevices(sw, kFamily, devices);
}

}  // namespace pavo
