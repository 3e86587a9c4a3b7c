#include "detection/shure.h"

#include <pthread.h>

#include <chrono>
#include <map>
#include <set>
#include <utility>

#include "common/files.h"
#include "common/json.h"
#include "common/log.h"
#include "common/text.h"
#include "platform/paths.h"
#include "store/profile_types.h"
#include "vlan/profile_vlan.h"

namespace pavo {
namespace {

using Devices = DeviceList<DetectedDevice>;

constexpr const char *kProfileType = PROFILE_TYPE_NAME_SHURE_SPLIT;

constexpr AssociationScripts kScripts = {.in = platform::paths::kShureIn,
                                         .out = platform::paths::kShureOut,
                                         .writeFailed = "[%s:%d] ShureLookup write file failed.\r\n",
                                         .applyFailed = "[%s:%d] ShureLookup cli apply failed. (%s)\r\n"};

// The operations that lines of the log name also where the thread itself does their work.
constexpr Where kOnline("shureOnlineCli", __LINE__);
constexpr Where kOffline("shureOfflineCli", __LINE__);
constexpr Where kPortSet("shureDot1xPortSet", __LINE__);

constexpr NeighbourField kNeighbourReads[] = {NeighbourField::ChassisId, NeighbourField::PortId,
                                              NeighbourField::SystemDesc};

// A port that is, or may be, forced authorised and is to go back to automatic mode.
struct ForcedPort {
    Mac mac;                 // on whose account; zero: an earlier run's
    bool byUs = true;        // false: it was when the device came
    bool hasFailed = false;  // going back has, which is in the log
};

// What the thread knows. Never destroyed: the thread may run until the process is gone.
struct Knowledge {
    Devices devices;
    AssociationRefusals refusals;
    // 802.1X on the whole switch: whether it was on when its mode was last read, with the ports set; and
    // what this cycle has read.
    bool dot1xWasOn = false;
    std::optional<bool> dot1x;
    // Ports that are forced authorised on account of a device; they outlive its record, which repair may
    // drop.
    std::map<IfNum, ForcedPort> forced;
    // Those of them in the file that are ours.
    std::vector<IfNum> written;
};

Knowledge &known() {
    static auto *const knowledge = new Knowledge;
    return *knowledge;
}

AssociationRefusals *refusals() {
    return &known().refusals;
}

std::optional<VlanId> audioVlan() {
    const auto config = readDetectionConfig(shureDetection);
    return config ? config->audioVlan : std::nullopt;
}

// --- the ports that are forced authorised, in a file

// A daemon that is killed while the profile is deleted would leave them open to everybody.
constexpr const char *kPortsKey = "ports";

// Before a port is forced, and when it has gone back. What fails is logged, and costs no device its network.
void writeForcedPorts(const Where &where) {
    std::vector<IfNum> ports;
    for (const auto &[port, why] : known().forced)
        if (why.byUs)
            ports.push_back(port);
    if (ports == known().written)
        return;
    const JsonPtr root(cJSON_CreateObject());
    if (ports.empty())
        removeFile(platform::paths::kShurePorts);
    else if (!addNumbers(root.get(), kPortsKey, ports) ||
             !replaceFileDurably(platform::paths::kShurePorts, printJsonLine(root.get()), where))
        return;
    known().written = std::move(ports);
}

// Those of an earlier run are ours, too.
void readForcedPorts(const Where &where) {
    const auto text = readFile(platform::paths::kShurePorts, JSON_FILE_MAX, where);
    const auto file = parseDetectionConfig(text.value_or(""), kPortsKey);
    known().written = file ? file->ports.value_or(std::vector<IfNum>()) : std::vector<IfNum>();
    for (const IfNum port : known().written)
        known().forced.try_emplace(port);
}

// --- 802.1X

void reportPortNotSet(IfNum port, OpenError error, const Where &where) {
    logError(where,
             "[%s:%d] ShureLookup: Bad return code trying to set port(%d) control mode (result = %d)\n", port,
             error);
}

// The last result; nothing when the configuration file cannot be read.
std::optional<OpenResult<>> setPortsAutomatic(Switch sw, const Where &where) {
    const auto config = readDetectionConfig(shureDetection, where);
    if (!config)
        return std::nullopt;
    OpenResult<> last;
    for (const IfNum port : config->ports.value_or(std::vector<IfNum>())) {
        last = sw.setPortControl(port, PortControl::Auto);
        if (!last) {
            reportPortNotSet(port, last.error(), where);
            known().forced[port].hasFailed = true;
        }
    }
    return last;
}

void readDot1x(Switch sw, const Where &where) {
    const auto mode = sw.dot1x();
    if (!mode) {
        logError(where, "[%s:%d] ShureLookup: the 802.1X mode of the switch cannot be read (result = %d)\r\n",
                 mode.error());
        known().dot1x.reset();
        return;
    }
    known().dot1x = *mode;
    known().dot1xWasOn = *mode && (known().dot1xWasOn || setPortsAutomatic(sw, kPortSet));
}

// A port that does not go back is tried again, see releasePorts().
void putBack(Switch sw, IfNum port, const Where &where) {
    std::map<IfNum, ForcedPort> &forced = known().forced;
    const auto done = sw.setPortControl(port, PortControl::Auto);
    if (done)
        forced.erase(port);
    else if (!std::exchange(forced[port].hasFailed, true))
        reportPortNotSet(port, done.error(), where);
    logDebug(where, "[%s:%d] ShureLookup: set port %d control mode to %d (result = %d)\n", port,
             static_cast<std::uint32_t>(PortControl::Auto), codeOf(done));
}

// The same, unless the port has another mode now, or is none.
void release(Switch sw, IfNum port, const Where &where) {
    const auto mode = sw.portControl(port);
    if (mode ? *mode != PortControl::ForceAuthorized : mode.error() == OpenError::NotFound)
        known().forced.erase(port);
    else
        putBack(sw, port, where);
}

// Automatic mode for ports whose device has moved away, or has been dropped from the list and is not there,
// and for those that have not gone back before. Before anybody joins: who comes to such a port has to
// authenticate.
void releasePorts(Switch sw, const DeviceScan &scan, const Devices &devices, const Where &where) {
    std::map<IfNum, ForcedPort> &forced = known().forced;
    if (forced.empty())
        return;
    std::set<IfNum> held;
    for (const DetectedDevice &device : devices)
        if (device.missCount == 0)
            held.insert(device.port);
    for (const Sighting &seen : scan.seen)
        if (const auto port = forced.find(seen.port); port != forced.end() && port->second.mac == seen.mac)
            held.insert(seen.port);
    std::vector<IfNum> free;
    for (auto &[port, why] : forced)
        if (held.contains(port))
            why.hasFailed = false;
        else if (scan.covers(port))
            free.push_back(port);
    for (const IfNum port : free)
        release(sw, port, where);
}

// Whether the port is authorised on account of a device that is gone.
bool isToGoBack(IfNum port) {
    const auto found = known().forced.find(port);
    return found != known().forced.end() && found->second.hasFailed;
}

void releaseOurPorts(Switch sw, const Where &where) {
    for (const auto &[port, why] : std::exchange(known().forced, {}))
        if (why.byUs)
            release(sw, port, where);
    writeForcedPorts(where);  // what has not gone back is left to the next run
    known().forced.clear();
}

// --- scanning

// The address of a neighbour's audio interface, if it has one: the port ID, unless that is the chassis.
std::optional<Mac> audioInterfaceOf(const Neighbour &neighbour, IfNum port, const Where &where) {
    const std::string portId = neighbour[NeighbourField::PortId].value_or("");
    const auto mac = Mac::parse(portId);
    if (!mac) {
        if (!portId.empty())
            logDebug(where, "[%s:%d] ShureLookup: port ID '%s' on port %d is no MAC address, skip.\r\n",
                     printable(portId), port);
        return std::nullopt;
    }
    const auto chassis = Mac::parse(neighbour[NeighbourField::ChassisId].value_or(""));
    if (mac->isZero() || (chassis && chassis->sameAddress(*mac)))
        return std::nullopt;
    return mac;
}

void addDevices(const std::vector<Neighbour> &neighbours, IfNum port, PortControl mode, ShureScan *scan,
                const Where &where) {
    for (const Neighbour &neighbour : neighbours) {
        const auto mac = audioInterfaceOf(neighbour, port, where);
        if (!mac)
            continue;
        scan->descriptions.push_back(neighbour[NeighbourField::SystemDesc].value_or(""));
        scan->devices.seen.push_back({.mac = *mac,
                                      .port = port,
                                      .type = DEVICE_TYPE_AUDIO,
                                      .controlMode = static_cast<std::uint32_t>(mode)});
    }
}

// --- joining and leaving

// The VLAN that the device has been put into; none for a type that has none.
Result<std::optional<VlanId>> associate(Switch sw, const DetectedDevice &device, const Where &where) {
    const auto vlan = device.vlan ? device.vlan : audioVlan();
    if (vlan && device.type == DEVICE_TYPE_AUDIO) {
        if (!addMacAssociation(sw, kScripts, device.mac, *vlan, where))
            return failed(ResultCode::Failed);
        return vlan;
    }
    removeFile(kScripts.in);
    removeFile(kScripts.out);
    if (vlan)
        return std::nullopt;
    logError(where, "[%s:%d] ShureLookup get control/audio vlan failed. (audioVlan:%d)\r\n", 0);
    return failed(ResultCode::Failed);
}

void reportJoined(const DetectedDevice &device, const Where &) {
    constexpr const char *kClass = "Audio";
    if (device.type == DEVICE_TYPE_AUDIO)
        logToSystem(std::source_location::current(), "Shure device Join (%s MAC: %s) on Port 0/%d.", kClass,
                    device.mac, device.port);
}

bool join(Switch sw, const DetectedDevice &device, const Where &) {
    return associate(sw, device, kOnline).has_value();
}

std::optional<VlanId> findVlan(std::uint32_t type, const Where &) {
    return type == DEVICE_TYPE_AUDIO ? audioVlan() : std::nullopt;
}

bool forcePort(Switch sw, IfNum port, Mac mac, const LogFormat<IfNum, std::uint32_t, std::int32_t> &text,
               const Where &where) {
    // Also when the switch does not say that it has done so: it may have.
    known().forced.insert_or_assign(port, ForcedPort{.mac = mac});
    writeForcedPorts(where);
    const auto done = sw.setPortControl(port, PortControl::ForceAuthorized);
    logDebug(where, text, port, static_cast<std::uint32_t>(PortControl::ForceAuthorized), codeOf(done));
    return done.has_value();
}

// Without 802.1X everybody; with it, who is on a port that is authorised; nobody while that is not known.
bool admit(Switch sw, const Sighting &seen, DetectedDevice *device, const Where &where) {
    constexpr std::uint32_t kStatusUnknown = 3;
    const std::optional<bool> dot1x = known().dot1x;
    if (!dot1x)
        return false;
    logDebug(where, "[%s:%d] ShureLookup: dot1xAdminMode=%d\r\n", *dot1x ? 1 : 0);
    if (!*dot1x)
        return true;
    const std::uint32_t status = sw.portStatus(seen.port).value_or(kStatusUnknown);
    logDebug(where, "[%s:%d] ShureLookup: Port %d dot1x status is %d\r\n", seen.port, status);
    if (status != OPEN_DOT1X_PORT_AUTHORIZED || isToGoBack(seen.port)) {
        logDebug(where, "[%s:%d] ShureLookup: port %d is unauthorized, not onboard!\r\n", seen.port);
        return false;
    }
    device->controlMode = seen.controlMode;
    logDebug(where, "[%s:%d] ShureLookup: port %d control mode is %d\r\n", seen.port, seen.controlMode);
    switch (static_cast<PortControl>(seen.controlMode)) {
        case PortControl::Auto:
            return forcePort(sw, seen.port, seen.mac,
                             "[%s:%d] ShureLookup: set port %d control mode to %d. (result=%d)\r\n", where);
        case PortControl::ForceAuthorized:
            known().forced.try_emplace(seen.port, ForcedPort{.mac = seen.mac, .byUs = false});
            return true;
        case PortControl::ForceUnauthorized:
        case PortControl::None:
            break;
    }
    return false;
}

// False when the port lets nobody through.
bool forceAgain(Switch sw, const Sighting &seen, const Where &where) {
    const auto mode = static_cast<PortControl>(seen.controlMode);
    if (!known().dot1x.value_or(false) || mode == PortControl::ForceAuthorized)
        return true;
    if (mode != PortControl::Auto || !sw.isPortAuthorized(seen.port).value_or(false))
        return false;
    forcePort(sw, seen.port, seen.mac,
              "[%s:%d] ShureLookup: set port %d control mode to %d again. (result=%d)\r\n", where);
    return true;
}

// --- the family

// Unlike the operation, which goes by the last step, this is no success while the association is still
// there: nobody would remove it later.
bool leave(Switch sw, const DetectedDevice &device, const Where &);

constexpr MacFamily kFamily = {
    .name = "shure",
    .scripts = kScripts,
    .texts = {.comparing = "[%s:%d] ShureLookup comparison with linked list.\r\n",
              .associationMissing = "[%s:%d] ShureLookup check (mac: %s) in the linked list, but not in the "
                                    "VLAN association mac.\r\n",
              .controlRestored = "[%s:%d] ShureLookup: set port %d control mode to %d (result=%d)\r\n",
              .moved = "Shure device (MAC: %s) from Port 0/%d change to Port 0/%d.",
              .left = "Shure device Leave (%s MAC: %s) on Port 0/%d.",
              .vlanChanged = "Shure device (MAC: %s) from VLAN %d change to VLAN %d."},
    .refusals = refusals,
    .scan = [](Switch sw, const Where &where) -> std::optional<DeviceScan> {
        auto scan = scanShureDevices(sw, where);
        return scan ? std::optional(std::move(scan->devices)) : std::nullopt;
    },
    .vlanOf = findVlan,
    .admit = admit,
    .notAdmitted = "802.1X has not authorized its port, or cannot be read",
    .join = join,
    .leave = leave,
    .joined = reportJoined,
    .firstMiss =
        [](Switch sw, const DetectedDevice &device, const Where &where) {
            if (device.port)  // one that was taken over may have none
                putBack(sw, device.port, where);
        },
    .compared = releasePorts,
    .stillThere = forceAgain,
};

bool leave(Switch sw, const DetectedDevice &device, const Where &) {
    const DeviceLeave left = removeDevice(sw, kFamily, device, kOffline);
    return left.association && (!left.control || *left.control);
}

// --- the thread

Reason checkProfile(Switch sw, const Where &where) {
    const ProfileVlan profile = findVlanOfProfileType(sw, kProfileType, kDefaultVlan, where);
    if (profile.presence != Presence::Present)
        return {profile.presence, profile.awaited};
    if (const auto created = sw.checkVlan(profile.vlan); !created)
        return presenceOf(created);
    const auto config = readDetectionConfig(shureDetection, where);
    if (!config || !config->audioVlan || !config->controlVlan)
        return {Presence::Unknown, "a configuration file with the audio and the control VLAN"};
    return Presence::Present;
}

bool takeOver(Switch sw, const Where &where) {
    known().dot1xWasOn = false;
    known().forced.clear();
    readForcedPorts(where);
    readDot1x(sw, where);
    return adoptShureDevices(sw, &known().devices);
}

void runCycle(Switch sw, const Where &where) {
    repairShureLink(sw, &known().devices);
    lldplookup(sw, &known().devices);
    writeForcedPorts(where);
}

void takeOut(Switch sw, const Where &where) {
    clearDevices(sw, kFamily, &known().devices, where);
    // What an earlier run has forced goes back only for a profile that is known to be gone.
    if (known().forced.empty() && checkProfile(sw, where).presence == Presence::Absent)
        readForcedPorts(where);
    releaseOurPorts(sw, where);
}

std::atomic<std::int32_t> running{0};

}  // namespace

constinit const NeighbourFamily shureNeighbours = {
    .reads = kNeighbourReads,
    .prefix = "Shure",
    .walkStart =
        "[%s:%d] ShureLookup call openapiLldpIntfRemoteDeviceNextGet.(ifNum: %d, remIndex: %d, "
        "timeStamp: %d)\r\n",
    .kept = "[%s:%d] ShureLookup detected 'shure device'. (systemName: %s, chassisID: %s, portID: %s)\r\n",
    .descriptionRead = "[%s:%d] ShureLookup get system Description: %s\r\n",
};

constinit const DetectionRow shureDetection = {
    .name = "shure",
    .profileType = kProfileType,
    .parseConfig = [](const std::string &text) { return parseDetectionConfig(text, "shureDevicePort"); },
    .loop = {.texts = {.started = "[%s:%d] ShureLookup Init success!\r\n",
                       .lookingNow = "[%s:%d] ShureLookup wake up and start scanning lldp table.\r\n",
                       .skipped = "[%s:%d] Shure Profile not already created, do nothing.\r\n",
                       .ended = "[%s:%d] User already delete shure profile, ShureLookup exit!\r\n"},
             .period = std::chrono::seconds(15),
             .check = checkProfile,
             .begin = takeOver,
             .cycle = runCycle,
             .end = takeOut},
    .entry = detect_shure_thread,
    .running = &running,
};

void *detect_shure_thread(void *clientHandle) {
    runDetection(shureDetection, clientHandle);
    pthread_exit(nullptr);
}

std::int32_t shureValidityCheck(Switch sw) {
    return checkCodeOf(checkProfile(sw, std::source_location::current()).presence);
}

std::int32_t shureDot1xPortSet(Switch sw) {
    const auto last = setPortsAutomatic(sw, kPortSet);
    return last ? codeOf(*last) : codeOf(ResultCode::Failed);
}

std::optional<ShureScan> scanShureDevices(Switch sw, const Where &where) {
    const auto config = readDetectionConfig(shureDetection, where);
    if (!config)
        return std::nullopt;
    ShureScan scan;
    if (!config->ports)
        return scan;
    PortSet ports;
    for (const IfNum port : *config->ports)
        ports.insert(port);
    logDebug(where, "[%s:%d] ShureLookup call openapiLldpIntfNextGet.\r\n");
    NeighbourReader reader(sw, shureNeighbours);
    auto interfaces = sw.lldpInterfaces();
    for (const IfNum port : interfaces) {
        const bool isShurePort = ports.contains(port);
        logDebug(where, "[%s:%d] Next interface number: %d, Shure port boolean value: %d\r\n", port,
                 isShurePort ? 1 : 0);
        if (!isShurePort)
            continue;
        const auto mode = sw.portControl(port);
        if (!mode) {
            logError(where, "[%s:%d] Bad return code trying to set port(%d) control mode (result = %d)\n",
                     port, mode.error());
            return ShureScan();
        }
        logDebug(where, "[%s:%d] ShureLookup get lldp remote info. (port: %d)\r\n", port);
        const PortNeighbours read = reader.read(port, where);
        addDevices(read.neighbours, port, *mode, &scan, where);
        if (!read.outcome)
            scan.devices.unread.insert(port);
    }
    if (const auto error = interfaces.brokenBy()) {
        scan.devices.isWhole = false;
        logWarn(where, "[%s:%d] ShureLookup: the LLDP interfaces cannot be read to the end (result = %d)\r\n",
                *error);
    }
    return scan;
}

bool adoptShureDevices(Switch sw, Devices *devices) {
    const auto vlan = audioVlan();
    return vlan && adoptDevices(sw, *vlan, DEVICE_TYPE_AUDIO, devices);
}

void lldplookup(Switch sw, Devices *devices) {
    readDot1x(sw, std::source_location::current());
    updateDevices(sw, kFamily, devices);
}

std::int32_t shureOnlineCli(Switch sw, const DetectedDevice &device) {
    const auto vlan = associate(sw, device, std::source_location::current());
    if (vlan)
        reportJoined(device, std::source_location::current());
    return codeOf(vlan);
}

std::int32_t shureOfflineCli(Switch sw, const DetectedDevice &device) {
    return codeOf(removeDevice(sw, kFamily, device));
}

std::int32_t repairShureLink(Switch sw, Devices *devices) {
    return repairCodeOf(repairDevices(sw, kFamily, devices));
}

void shureClear(Switch sw, Devices *devices) {
    logDebug("[%s:%d] ShureLookup found shure profile delete, clear all shure.\r\n");
    clearDevices(sw, kFamily, devices);
    releaseOurPorts(sw, std::source_location::current());
}

}  // namespace pavo
