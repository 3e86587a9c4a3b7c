#include "detection/oui_family.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <span>
#include <unordered_map>
#include <vector>

#include "common/files.h"
#include "common/log.h"
#include "detection/net_block.h"
#include "detection/oui_table.h"
#include "detection/physical_ports.h"
#include "platform/paths.h"
#include "profile/request.h"
#include "store/profile_db.h"
#include "store/profile_types.h"
#include "vlan/profile_vlan.h"

namespace pavo {
namespace {

namespace paths = platform::paths;
using Devices = DeviceList<DetectedDevice>;

constexpr std::int32_t kVideo = 4;  // VLAN type
// No cycle waits for others who change multicast settings: the next one does what is left.
constexpr std::chrono::seconds kCycleWait{0};

// --- the families

// What devices of other types than the family's get.
enum class OtherTypes { LeftAlone, Refused };

// A family.
struct OuiFamily {
    const char *name;  // also in the file of NET-BLOCK's ports
    const char *profileType;
    std::span<const std::int32_t> vlanTypes;  // of its devices; nobody joins before the profile has them all
    OtherTypes otherTypes;
    std::chrono::seconds period;
    LogFormat<> noVlan;
    AssociationScripts scripts;
    MacFamilyTexts texts;  // with `associationMissing`, associations that are removed by hand are made again
    LoopTexts loop;
    // As lines of the log name the operations where the thread does their work.
    Where thread, lookup, online, offline, repair;
    const DetectionRow *row;
};

constexpr std::int32_t kHarmanTypes[] = {VLAN_TYPE_AUDIO, kVideo};
constexpr OuiFamily kHarman = {
    .name = "harman",
    .profileType = PROFILE_TYPE_NAME_HARMAN,
    .vlanTypes = kHarmanTypes,
    .otherTypes = OtherTypes::LeftAlone,
    .period = std::chrono::seconds(15),
    .noVlan = "[%s:%d] harmanDetection get video/audio vlan failed.\r\n",
    .scripts = {.in = paths::kHarmanIn,
                .out = paths::kHarmanOut,
                .writeFailed = "[%s:%d] harmanDetection write file failed.\r\n",
                .applyFailed = "[%s:%d] harmanDetection cli apply failed. (%s)\r\n"},
    .texts = {.comparing = "[%s:%d] HarmanLookup comparison with linked list.\r\n",
              .joining = "[%s:%d] HarmanLookup: detection harman device(mac=%s) online\r\n",
              .leaving = "[%s:%d] HarmanLookup: detection harman device(mac=%s) offline\r\n",
              .associationMissing = "[%s:%d] HarmanLookup check (mac: %s) in the linked list, but not in the "
                                    "VLAN association mac.\r\n"},
    .loop = {.started = "[%s:%d] HarmanLookup Init success!\r\n",
             .lookingNow = "[%s:%d] HarmanLookup wake up and start scanning arp table.\r\n",
             .ended = "[%s:%d] HarmanLookup exit! User already delete harman profile\r\n"},
    .thread = Where("detect_harman_thread", __LINE__),
    .lookup = Where("harmanDetectionLookup", __LINE__),
    .online = Where("harmanOnlineCli", __LINE__),
    .offline = Where("harmanOfflineCli", __LINE__),
    .repair = Where("repairHarmanLink", __LINE__),
    .row = &harmanDetection,
};

constexpr std::int32_t kTelosTypes[] = {VLAN_TYPE_AUDIO};
constexpr OuiFamily kTelos = {
    .name = "telos",
    .profileType = PROFILE_TYPE_NAME_TELOS,
    .vlanTypes = kTelosTypes,
    .otherTypes = OtherTypes::Refused,
    .period = std::chrono::seconds(30),
    .noVlan = "[%s:%d] telosDetection get audio vlan failed or invalid device type.\r\n",
    .scripts = {.in = paths::kTelosIn,
                .out = paths::kTelosOut,
                .writeFailed = "[%s:%d] telosDetection write file failed.\r\n",
                .applyFailed = "[%s:%d] telosDetection cli apply failed. (%s)\r\n"},
    .texts = {.comparing = "[%s:%d] TelosLookup comparison with linked list.\r\n",
              .joining = "[%s:%d] TelosLookup: detection telos device(mac=%s) online\r\n",
              .leaving = "[%s:%d] TelosLookup: detection telos device(mac=%s) offline\r\n"},
    .loop = {.started = "[%s:%d] TelosLookup Init success!\r\n",
             .lookingNow = "[%s:%d] TelosLookup wake up and start scanning arp table.\r\n",
             .ended = "[%s:%d] TelosLookup exit! User already deleted telos profile\r\n"},
    .thread = Where("detect_telos_thread", __LINE__),
    .lookup = Where("telosDetectionLookup", __LINE__),
    .online = Where("telosOnlineCli", __LINE__),
    .offline = Where("telosOfflineCli", __LINE__),
    .repair = Where("", __LINE__),
    .row = &telosDetection,
};

bool isOfFamily(const OuiFamily &family, std::int32_t vlanType) {
    return std::ranges::find(family.vlanTypes, vlanType) != family.vlanTypes.end();
}

bool isAudio(const DetectedDevice &device) {
    return device.type == static_cast<std::uint32_t>(VLAN_TYPE_AUDIO);
}

// --- scanning

// The ports on which devices are looked for: physical ones that are no trunks. Each is asked about once.
class DevicePorts {
  public:
    explicit DevicePorts(Switch sw) : switch_(sw), physical_(sw) {}

    Presence find(IfNum port) {
        const auto [entry, isNew] = answers_.try_emplace(port, Presence::Unknown);
        if (isNew)
            entry->second = ask(port);
        return entry->second;
    }

  private:
    Presence ask(IfNum port) {
        if (const Presence isPhysical = physical_.find(port); isPhysical != Presence::Present)
            return isPhysical;
        const auto mode = switch_.switchportMode(port);
        if (!mode)
            return Presence::Unknown;
        return *mode == SwitchportMode::Trunk ? Presence::Absent : Presence::Present;
    }

    Switch switch_;
    PhysicalPorts physical_;
    std::unordered_map<IfNum, Presence> answers_;
};

// Nothing when there is a file that cannot be read.
std::optional<PortSet> readAssignedPorts(const OuiFamily &family, const Where &where) {
    PortSet ports;
    const auto config = readDetectionConfig(*family.row, where);
    if (const auto path = detectionConfigPath(*family.row); !config && fileExists(path)) {
        logWarn(where, "[%s:%d] %s detection: no device joins or leaves while '%s' cannot be read\r\n",
                family.name, path);
        return std::nullopt;
    }
    if (config && config->ports)
        for (const IfNum port : *config->ports)
            ports.insert(port);
    return ports;
}

std::optional<DeviceScan> scanDevices(Switch sw, const OuiFamily &family, const Where &where) {
    const auto ports = readAssignedPorts(family, where);
    if (!ports)
        return std::nullopt;
    DeviceScan scan;
    if (ports->empty())
        return scan;
    DevicePorts devicePorts(sw);
    auto table = sw.forwardingTable(where);
    for (const auto &[mac, vlan, port, learned] : table) {
        // What costs no call comes first.
        if (!ports->contains(port))
            continue;
        const OuiRow *const oui = findOui(mac);
        if (oui == nullptr || !isOfFamily(family, oui->vlanType))
            continue;
        if (const Presence isDevicePort = devicePorts.find(port); isDevicePort == Presence::Present) {
            scan.seen.push_back(
                {.mac = mac, .port = port, .type = static_cast<std::uint32_t>(oui->vlanType)});
        } else if (isDevicePort == Presence::Unknown) {
            scan.unread.insert(port);
            scan.unplaced.insert(mac);
        }
    }
    if (const auto error = table.brokenBy()) {
        scan.isWhole = false;
        logWarn(where,
                "[%s:%d] %s detection: the forwarding table cannot be read to the end (result = %d)\r\n",
                family.name, *error);
    }
    return scan;
}

// --- joining and leaving

std::optional<VlanId> vlanOfType(const OuiFamily &family, std::uint32_t type, const Where &where) {
    if (!isOfFamily(family, static_cast<std::int32_t>(type)))
        return std::nullopt;
    const auto ids = readIdsOfTypeAndRole(family.profileType, static_cast<std::int32_t>(type), where);
    return ids && !ids->empty() ? VlanId::from(ids->front()) : std::nullopt;
}

Result<> associate(Switch sw, const OuiFamily &family, const DetectedDevice &device, const Where &where) {
    std::optional<VlanId> vlan;
    bool isComplete = true;
    for (const std::int32_t type : family.vlanTypes) {
        const ProfileVlan found = findVlanOfRole(sw, family.profileType, type, where);
        isComplete = isComplete && found.presence == Presence::Present;
        if (static_cast<std::uint32_t>(type) == device.type)
            vlan = found.vlan;
    }
    if (isComplete && vlan)
        return addMacAssociation(sw, family.scripts, device.mac, *vlan, where) ? Result<>()
                                                                               : failed(ResultCode::Failed);
    for (const char *const left : {family.scripts.in, family.scripts.out})
        removeFile(left);
    if (isComplete && family.otherTypes == OtherTypes::LeftAlone)
        return {};
    logError(where, family.noVlan);
    return failed(ResultCode::Failed);
}

bool adopt(Switch sw, const OuiFamily &family, Devices *devices, const Where &where) {
    const auto accepts = [](Mac mac, std::uint32_t type) {
        const OuiRow *const oui = findOui(mac);
        return oui != nullptr && static_cast<std::uint32_t>(oui->vlanType) == type;
    };
    for (const std::int32_t type : family.vlanTypes) {
        const ProfileVlan vlan = findVlanOfRole(sw, family.profileType, type, where);
        if (vlan.presence == Presence::Unknown ||
            (vlan.presence == Presence::Present &&
             !adoptDevices(sw, vlan.vlan, static_cast<std::uint32_t>(type), devices, accepts, where)))
            return false;
    }
    return true;
}

using DevicePlaces = std::unordered_map<Mac, IfNum>;

DevicePlaces placesOf(const Devices &devices) {
    DevicePlaces places;
    for (const DetectedDevice &device : devices)
        places.emplace(device.mac, device.port);
    return places;
}

// NET-BLOCK where the devices of the list are, and nowhere else for this family. `settled` are the places for which
// that has been done already.
void settleBlocks(Switch sw, const OuiFamily &family, const Devices &devices, DevicePlaces *settled,
                  platform::Duration most, const Where &where) {
    std::vector<NetBlockNeed> needs;
    for (const DetectedDevice &device : devices)
        if (isAudio(device)) {
            const auto place = settled->find(device.mac);
            const bool isNew = device.port && (place == settled->end() || place->second != device.port);
            needs.push_back({.mac = device.mac, .port = device.port, .isNew = isNew});
        }
    if (settleNetBlock(sw, family.name, needs, most, where))
        *settled = placesOf(devices);
}

// --- what is made from a row

template <const OuiFamily &kRow>
struct Made {
    // What the thread knows. Never destroyed: it may run until the process is gone.
    static Devices *known() {
        static auto *const devices = new Devices;
        return devices;
    }
    static DevicePlaces *settled() {
        static auto *const places = new DevicePlaces;
        return places;
    }
    static AssociationRefusals *refusals() {
        static auto *const instance = new AssociationRefusals;
        return instance;
    }

    static std::optional<DeviceScan> scan(Switch sw, const Where &where) {
        return scanDevices(sw, kRow, where);
    }
    static std::optional<VlanId> vlanOf(std::uint32_t type, const Where &where) {
        return vlanOfType(kRow, type, where);
    }
    static bool join(Switch sw, const DetectedDevice &device, const Where &) {
        return associate(sw, kRow, device, kRow.online).has_value();
    }
    static bool leave(Switch sw, const DetectedDevice &device, const Where &) {
        return removeDevice(sw, family, device, kRow.offline).association.has_value();
    }
    static constexpr MacFamily family = {.name = kRow.name,
                                         .scripts = kRow.scripts,
                                         .texts = kRow.texts,
                                         .refusals = refusals,
                                         .scan = scan,
                                         .vlanOf = vlanOf,
                                         .join = join,
                                         .leave = leave};

    static void lookUp(Switch sw, Devices *devices, const Where &where) {
        // Whoever is not in the list any more is new when he joins.
        const DevicePlaces known = placesOf(*devices);
        std::erase_if(*settled(), [&](const auto &place) {
            const auto device = known.find(place.first);
            return device == known.end() || device->second != place.second;
        });
        updateDevices(sw, family, devices, where);
        settleBlocks(sw, kRow, *devices, settled(), kCycleWait, where);
    }

    static Reason check(Switch sw, const Where &where) {
        const ProfileVlan found = findVlanOfRole(sw, kRow.profileType, VLAN_TYPE_CONTROL, where);
        return {found.presence, found.awaited};
    }
    static bool begin(Switch sw, const Where &where) { return adopt(sw, kRow, known(), where); }
    static void cycle(Switch sw, const Where &) {
        if (kRow.texts.associationMissing.text() != nullptr)
            static_cast<void>(repairDevices(sw, family, known(), kRow.repair));
        lookUp(sw, known(), kRow.lookup);
    }
    static void end(Switch sw, const Where &where) {
        const bool hadDevices = !known()->empty();
        clearDevices(sw, family, known(), where);
        // What an earlier run has bound is given up only for a profile that is known to be gone.
        if (hadDevices || check(sw, where).presence == Presence::Absent)
            settleBlocks(sw, kRow, *known(), settled(), FileLock::kWaitMax, where);
    }
    static constexpr DetectionLoop loop = {.texts = kRow.loop,
                                           .period = kRow.period,
                                           .check = check,
                                           .begin = begin,
                                           .cycle = cycle,
                                           .end = end};

    static inline std::atomic<std::int32_t> running{0};

    static void *runThread(void *clientHandle) {
        runDetection(*kRow.row, clientHandle, kRow.thread);
        pthread_exit(nullptr);
    }
};

using Harman = Made<kHarman>;
using Telos = Made<kTelos>;

std::int32_t goOnline(Switch sw, const OuiFamily &family, const DetectedDevice &device, const Where &where) {
    const auto done = associate(sw, family, device, where);
    if (done && isAudio(device))
        addNetBlockNeed(sw, family.name, {device.mac, device.port}, where);
    return codeOf(done);
}

template <const OuiFamily &kRow>
std::int32_t goOffline(Switch sw, const DetectedDevice &device, const Where &where) {
    const DeviceLeave left = removeDevice(sw, Made<kRow>::family, device, where);
    if (left.association && isAudio(device))
        removeNetBlockNeed(sw, kRow.name, device.mac, where);
    return codeOf(left);
}

}  // namespace

constinit const DetectionRow harmanDetection = {
    .name = kHarman.name,
    .profileType = kHarman.profileType,
    .parseConfig = parseAssignedPorts,
    .loop = Harman::loop,
    .entry = detect_harman_thread,
    .running = &Harman::running,
};

constinit const DetectionRow telosDetection = {
    .name = kTelos.name,
    .profileType = kTelos.profileType,
    .parseConfig = parseAssignedPorts,
    .loop = Telos::loop,
    .entry = detect_telos_thread,
    .running = &Telos::running,
};

void *detect_harman_thread(void *clientHandle) {
    return Harman::runThread(clientHandle);
}
void *detect_telos_thread(void *clientHandle) {
    return Telos::runThread(clientHandle);
}

std::optional<DeviceScan> scanHarmanDevices(Switch sw, Where where) {
    return scanDevices(sw, kHarman, where);
}
std::optional<DeviceScan> scanTelosDevices(Switch sw, Where where) {
    return scanDevices(sw, kTelos, where);
}

bool adoptHarmanDevices(Switch sw, Devices *devices) {
    return adopt(sw, kHarman, devices, std::source_location::current());
}
bool adoptTelosDevices(Switch sw, Devices *devices) {
    return adopt(sw, kTelos, devices, std::source_location::current());
}

void harmanDetectionLookup(Switch sw, Devices *devices) {
    Harman::lookUp(sw, devices, std::source_location::current());
}
void telosDetectionLookup(Switch sw, Devices *devices) {
    Telos::lookUp(sw, devices, std::source_location::current());
}

std::int32_t harmanOnlineCli(Switch sw, const DetectedDevice &device) {
    return goOnline(sw, kHarman, device, std::source_location::current());
}
std::int32_t telosOnlineCli(Switch sw, const DetectedDevice &device) {
    return goOnline(sw, kTelos, device, std::source_location::current());
}

std::int32_t harmanOfflineCli(Switch sw, const DetectedDevice &device) {
    return goOffline<kHarman>(sw, device, std::source_location::current());
}
std::int32_t telosOfflineCli(Switch sw, const DetectedDevice &device) {
    return goOffline<kTelos>(sw, device, std::source_location::current());
}

void releaseNetBlocks(Switch sw, Where where) {
    for (const OuiFamily *family : {&kHarman, &kTelos})
        if (fileExists(paths::kNetBlockPorts) &&
            findVlanOfRole(sw, family->profileType, VLAN_TYPE_CONTROL, where).presence == Presence::Absent)
            static_cast<void>(settleNetBlock(sw, family->name, {}, kCycleWait, where));
}

std::int32_t repairHarmanLink(Switch sw, Devices *devices) {
    return repairCodeOf(repairDevices(sw, Harman::family, devices));
}

}  // namespace pavo
