#include "detection/nice.h"

#include <pthread.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/files.h"
#include "common/json.h"
#include "common/log.h"
#include "common/text.h"
#include "detection/device_report.h"
#include "platform/paths.h"
#include "profile/configure.h"
#include "profile/rules.h"
#include "store/profile_types.h"
#include "store/writeback.h"

namespace pavo {
namespace {

using platform::paths::kNiceDetectConfig;

constexpr std::uint64_t kNicePrefix = 0xF8572E;
constexpr unsigned kPrefixShift = 24;
constexpr std::int32_t kConvergenceCycles = 5;

constexpr Where kCreate("createNiceProfile", __LINE__);

std::atomic<std::int32_t> running{0};

// --- whether it is wanted

struct EnabledFlag {
    std::mutex mutex;
    bool enabled = true;
    bool heldByFile = false;  // false only because the file said so
};

// Never destroyed: the thread may run until the process is gone.
EnabledFlag &flag() {
    static auto *const instance = new EnabledFlag;
    return *instance;
}

bool isOn(NiceSetting setting) {
    return setting == NiceSetting::On || setting == NiceSetting::Missing;
}

// The file is the operator's switch: who sets it to on again need not start the daemon again.
void followFile() {
    EnabledFlag &shared = flag();
    const std::lock_guard lock(shared.mutex);
    if (shared.heldByFile && isOn(readNiceSetting())) {
        shared.enabled = true;
        shared.heldByFile = false;
    }
}

// Step 1 of a cycle: whether the file lets it go on.
bool isAllowedByFile(const Where &where) {
    switch (readNiceSetting()) {
        case NiceSetting::On:
            return true;
        case NiceSetting::Off:
            logDebug(where, "[%s:%d] (Nice): Nice detection is disabled, skipping\n");
            return false;
        case NiceSetting::Unreadable:
            logError(where, "[%s:%d] (Nice): %s cannot be read, skipping\n", kNiceDetectConfig);
            return false;
        case NiceSetting::Missing:
            break;
    }
    // Never over one that an operator has written in the meantime.
    if (const auto created = createFile(kNiceDetectConfig, "1", where); created && *created)
        logDebug(where, "[%s:%d] (Nice): Created config file with default enabled\n");
    return true;
}

// --- neighbours

bool sameLetter(char a, char b) {
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    return lower(a) == lower(b);
}

bool contains(std::string_view text, std::string_view part) {
    return !std::ranges::search(text, part, sameLetter).empty();
}

// A read that failed, other than for a string that the neighbour does not announce.
bool isUnknown(const OpenResult<std::string> &text) {
    return !text && text.error() != OpenError::NotFound && text.error() != OpenError::Unavailable;
}

// One of which nothing can be read may have left the table meanwhile, and the device with it.
bool isStillThere(Switch sw, const NeighbourKey &key) {
    auto neighbours = sw.neighbours(key.port);
    return std::ranges::any_of(neighbours, [&](const NeighbourKey &other) { return other == key; });
}

// Whether the neighbour is a switch. Unknown when what could be read does not show one and the rest could not.
Presence findSwitch(Switch sw, const NeighbourKey &key, int number, std::uint32_t size, const Where &where) {
    const auto shown = [](const OpenResult<std::string> &text) { return printable(text.value_or("")); };
    const auto capabilities = sw.neighbourCapabilities(key, size);
    logDebug(where, "[%s:%d] (Nice): port %u remdev#%d sysCapEnabled rc=%d caps='%s'\n", key.port, number,
             codeOf(capabilities), shown(capabilities));
    if (capabilities && contains(*capabilities, "bridge"))
        return Presence::Present;
    const auto description = sw.neighbourText(key, NeighbourField::SystemDesc, size);
    logDebug(where, "[%s:%d] (Nice): port %u remdev#%d sysDesc rc=%d desc='%s'\n", key.port, number,
             codeOf(description), shown(description));
    if (description && contains(*description, "Managed Switch"))
        return Presence::Present;
    const bool unknown = isUnknown(capabilities) || isUnknown(description) ||
                         (!capabilities && !description && !isStillThere(sw, key));
    return unknown ? Presence::Unknown : Presence::Absent;
}

SwitchNeighbour findSwitchBehind(Switch sw, IfNum port, std::uint32_t size, const Where &where) {
    int examined = 0;
    bool allKnown = true;
    auto neighbours = sw.neighbours(port);
    for (const NeighbourKey &key : neighbours) {
        const Presence found = findSwitch(sw, key, ++examined, size, where);
        allKnown = allKnown && found != Presence::Unknown;
        if (found != Presence::Present)
            continue;
        logDebug(where, "[%s:%d] (Nice): port %u switch-neighbor check: %d remote dev(s), isSwitch=%d\n",
                 port, examined, 1);
        return SwitchNeighbour::Present;
    }
    logDebug(where, "[%s:%d] (Nice): port %u switch-neighbor check: %d remote dev(s), isSwitch=%d\n", port,
             examined, 0);
    if (const auto error = neighbours.brokenBy()) {
        logWarn(where, "[%s:%d] (Nice): the neighbours of port %u cannot be read to the end (rc=%d)\n", port,
                *error);
        allKnown = false;
    }
    return examined > 0 && allKnown ? SwitchNeighbour::Absent : SwitchNeighbour::NotConverged;
}

// --- the forwarding table

enum class Verdict {
    Elsewhere,  // no device of Nice, or not one that is plugged in here
    Unknown,    // it cannot be told where it is
    Deferred,   // LLDP has not heard who is on the port
    Here,
};

Verdict judge(Switch sw, const FdbEntry &entry, const Where &where) {
    const auto &[mac, vlan, port, learned] = entry;
    // The prefix first: that costs no call, and most entries do not have it.
    if (!isNiceAddress(mac))
        return Verdict::Elsewhere;
    const auto type = sw.interfaceType(port);
    if (!type) {
        logWarn(where, "[%s:%d] (Nice): port %d type get failed rc=%d\n", port, type.error());
        return Verdict::Unknown;
    }
    if (*type != static_cast<std::uint32_t>(IfType::Port))
        return Verdict::Elsewhere;
    const auto mode = sw.switchportMode(port);
    if (!mode) {
        logDebug(where, "[%s:%d] (Nice): port %d switchport mode get failed rc=%d\n", port, mode.error());
    } else {
        logDebug(where, "[%s:%d] (Nice): port %d switchport mode=%d (TRUNK=%d)\n", port, *mode,
                 SwitchportMode::Trunk);
        if (*mode == SwitchportMode::Trunk) {
            logInfo(where, "[%s:%d] (Nice): MAC %s on port %d is a trunk uplink, skipping\n", mac, port);
            return Verdict::Elsewhere;
        }
    }
    switch (niceIntfHasSwitchNeighbor(sw, port)) {
        case SwitchNeighbour::Present:
            logDebug(where, "[%s:%d] (Nice): MAC %s on port %d sits behind a switch uplink, skipping\n", mac,
                     port);
            return Verdict::Elsewhere;
        case SwitchNeighbour::NotConverged:
            logInfo(where, "[%s:%d] (Nice): MAC %s on port %d - LLDP not converged, deferring\n", mac, port);
            return Verdict::Deferred;
        case SwitchNeighbour::Absent:
            break;
    }
    logInfo(where, "[%s:%d] (Nice): Nice device found in FDB on port %d - MAC: %s\n", port, mac);
    return Verdict::Here;
}

// Consecutive cycles in which a device had to be deferred; the thread's own.
std::int32_t convergenceCycles = 0;
// Whether the last walk of the forwarding table was broken off; the thread's own.
bool isTableBroken = false;

// After a walk that found no device here: whether those that were deferred have been so for long enough.
bool haveWaitedEnough(int deferred, bool allKnown, const Where &where) {
    if (deferred == 0 && allKnown) {
        convergenceCycles = 0;
        logDebug(where, "[%s:%d] (Nice): No Nice devices found in FDB\n");
    }
    if (deferred == 0)
        return false;
    if (++convergenceCycles < kConvergenceCycles) {
        logInfo(where, "[%s:%d] (Nice): deferring profile creation, waiting for LLDP to converge (%d/%d)\n",
                convergenceCycles, kConvergenceCycles);
        return false;
    }
    logInfo(where,
            "[%s:%d] (Nice): LLDP did not converge after %d cycles; treating NICE MAC as directly "
            "connected\n",
            kConvergenceCycles);
    return true;
}

// What the report on devices says of one for which the profile is not made yet.
const char *reasonOf(Verdict verdict) {
    switch (verdict) {
        case Verdict::Elsewhere:
            return "it is not plugged in here: there is a trunk, a LAG or a switch in between";
        case Verdict::Deferred:
            return "LLDP has not heard yet who is on the port";
        case Verdict::Unknown:
        case Verdict::Here:
            break;
    }
    return "the switch does not tell where it is";
}

void refuse(DeviceState &device, const char *why) {
    device.kind = DeviceState::Kind::Refused;
    device.reason = why;
}

// Whether it is time for the profile; adds the devices that were looked at.
bool isDeviceHere(Switch sw, std::vector<DeviceState> &seen, const Where &where) {
    int deferred = 0;
    bool allKnown = true;
    auto table = sw.forwardingTable(where);
    for (const FdbEntry &entry : table) {
        const Verdict verdict = judge(sw, entry, where);
        if (isNiceAddress(entry.mac)) {
            seen.push_back({.family = niceDetection.name, .address = entry.mac.text(), .port = entry.port});
            if (verdict != Verdict::Here)
                refuse(seen.back(), reasonOf(verdict));
        }
        if (verdict == Verdict::Here)
            return true;
        deferred += verdict == Verdict::Deferred ? 1 : 0;
        allKnown = allKnown && verdict != Verdict::Unknown;
    }
    if (const auto error = table.brokenBy()) {
        // Not a cycle without a device, and not one that has seen all of them.
        if (!std::exchange(isTableBroken, true))
            logWarn(where, "[%s:%d] (Nice): the forwarding table cannot be read to the end (rc=%d)\n",
                    *error);
        return false;
    }
    isTableBroken = false;
    return haveWaitedEnough(deferred, allKnown, where);
}

// --- the profile

// Empty when memory runs out.
std::string requestText(const std::vector<IfNum> &ports) {
    const JsonPtr request(cJSON_CreateObject());
    cJSON *const config = cJSON_AddObjectToObject(request.get(), "profileConfig");
    const bool headed = cJSON_AddStringToObject(config, "name", "Elan OS") != nullptr &&
                        cJSON_AddStringToObject(config, "color", "#081855") != nullptr &&
                        cJSON_AddStringToObject(config, "profileType", PROFILE_TYPE_NAME_NICE) != nullptr &&
                        cJSON_AddTrueToObject(config, "ptp") != nullptr &&
                        cJSON_AddNumberToObject(config, "vlanNum", 1) != nullptr;
    JsonPtr vlan(cJSON_CreateObject());
    const bool described = cJSON_AddNumberToObject(vlan.get(), "vlanId", kDefaultVlan.number()) != nullptr &&
                           cJSON_AddNumberToObject(vlan.get(), "vlanType", 1) != nullptr;
    cJSON *const lists = cJSON_AddObjectToObject(vlan.get(), "ports");
    const bool listed = addNumbers(lists, "tagged", {}) && addNumbers(lists, "untagged", ports) &&
                        addNumbers(lists, "assignedPort", {});
    cJSON *const vlans = cJSON_AddArrayToObject(config, "vlans");
    if (!headed || !described || !listed || !cJSON_AddItemToArray(vlans, vlan.get()))
        return "";
    static_cast<void>(vlan.release());
    return printJsonLine(request.get());
}

// Nothing when the switch does not tell all of its ports: a profile without some of them would never get these.
std::optional<std::vector<IfNum>> allPorts(Switch sw) {
    std::vector<IfNum> ports;
    auto walk = sw.portsByNext();
    for (const IfNum port : walk)
        ports.push_back(port);
    if (walk.brokenBy())
        return std::nullopt;
    return ports;
}

std::int32_t createProfile(Switch sw, ApplyCondition *condition) {
    logInfo(kCreate, "[%s:%d] (Nice): Creating Nice profile on VLAN 1 (default VLAN)\n");
    const auto ports = allPorts(sw);
    const std::string request = ports ? requestText(*ports) : "";
    if (request.empty()) {
        logError(kCreate, "[%s:%d] (Nice): Failed to generate JSON payload\n");
        return codeOf(ResultCode::Failed);
    }
    logInfo(kCreate, "[%s:%d] (Nice): Calling profileConfigSet with payload\n");
    const std::int32_t result = codeOf(configureProfile(sw, request, condition));
    if (result != 0) {
        logError(kCreate, "[%s:%d] (Nice): profileConfigSet failed (result=%d)\n", result);
        return result;
    }
    logInfo(kCreate, "[%s:%d] (Nice): Nice profile created successfully\n");
    refreshProfileAnswers(sw);
    return result;
}

// The lock may be waited for for minutes: somebody else applies a profile, and an operator may switch this off.
Result<> isStillWanted(std::size_t profiles, const Where &where) {
    if (profiles > 0 || !isFactoryDefaultState())
        return refuse(ResultCode::ObjectExists, "the switch is not in factory default state any more", where);
    if (!isOn(readNiceSetting()))
        return refuse(ResultCode::Failed, "Nice detection has been switched off", where);
    return {};
}

void lookForDevices(Switch sw, std::vector<DeviceState> &seen, const Where &where) {
    if (!isAllowedByFile(where))
        return;
    if (!isFactoryDefaultState()) {
        logDebug(where, "[%s:%d] (Nice): Not in factory default state, skipping profile creation\n");
        return;
    }
    logDebug(where, "[%s:%d] (Nice): Factory default detected, scanning FDB for Nice devices\n");
    if (!isDeviceHere(sw, seen, where))
        return;
    convergenceCycles = 0;
    logInfo(where, "[%s:%d] (Nice): Creating Nice profile on VLAN 1 for all ports\n");
    if (const std::int32_t result = createProfile(sw, isStillWanted); result == 0) {
        logInfo(where, "[%s:%d] (Nice): Nice profile created successfully\n");
    } else {
        logError(where, "[%s:%d] (Nice): Failed to create Nice profile, error: %d\n", result);
        for (DeviceState &device : seen)
            refuse(device, "the profile could not be made");
    }
}

void runCycle(Switch sw, const Where &where) {
    followFile();
    if (!niceDetectEnabledGet()) {
        logDebug(where, "[%s:%d] (Nice): Nice detection is disabled, skipping scan\n");
        return;
    }
    logDebug(where, "[%s:%d] (Nice): Scanning for Nice devices...\n");
    niceDetectionLookup(sw);
}

}  // namespace

// --- operations

bool niceDetectEnabledGet() {
    EnabledFlag &shared = flag();
    const std::lock_guard lock(shared.mutex);
    return shared.enabled;
}

void niceDetectEnabledSet(bool enabled) {
    EnabledFlag &shared = flag();
    const std::lock_guard lock(shared.mutex);
    shared.enabled = enabled;
    shared.heldByFile = false;
}

void niceDetectConfigLoad() {
    const NiceSetting setting = readNiceSetting();
    if (setting == NiceSetting::Unreadable)
        logError("[%s:%d] (Nice): %s cannot be read, detection is off until it can\n", kNiceDetectConfig);
    const bool enabled = isOn(setting);
    EnabledFlag &shared = flag();
    const std::lock_guard lock(shared.mutex);
    shared.enabled = enabled;
    shared.heldByFile = !enabled;
}

NiceSetting readNiceSetting() {
    errno = 0;
    const FilePtr file = openFile(kNiceDetectConfig, "r");
    if (file == nullptr)
        return errno == ENOENT ? NiceSetting::Missing : NiceSetting::Unreadable;
    const int first = std::fgetc(file.get());
    if (std::ferror(file.get()) != 0)
        return NiceSetting::Unreadable;
    return first == '0' ? NiceSetting::Off : NiceSetting::On;
}

Result<> writeNiceSetting(bool enabled, Where where) {
    return replaceFileDurably(kNiceDetectConfig, enabled ? "1" : "0", where);
}

Presence findAppliedProfile(Where where) {
    namespace fs = std::filesystem;
    std::error_code error;
    fs::directory_iterator at(platform::fsPath(platform::paths::kVlanProfileConfigDir), error);
    if (error == std::errc::no_such_file_or_directory) {
        logDebug(where,
                 "[%s:%d] (Nice): Factory default detected - profile config directory does not exist\n");
        return Presence::Absent;
    }
    for (; !error && at != fs::directory_iterator(); at.increment(error)) {
        std::error_code gone;
        if (!at->is_regular_file(gone))
            continue;
        logDebug(where, "[%s:%d] (Nice): Found profile configuration file: %s\n",
                 printable(at->path().filename().string()));
        return Presence::Present;
    }
    if (error) {
        logError(where, "[%s:%d] (Nice): the profile config directory cannot be read: %s\n", error.message());
        return Presence::Unknown;
    }
    logDebug(where, "[%s:%d] (Nice): Factory default detected - profile config directory is empty\n");
    return Presence::Absent;
}

bool isFactoryDefaultState() {
    return findAppliedProfile(std::source_location::current()) == Presence::Absent;
}

SwitchNeighbour niceIntfHasSwitchNeighbor(Switch sw, IfNum port) {
    const Where where = std::source_location::current();
    const auto size = sw.lldpTextSize();
    if (!size) {
        logError(where, "[%s:%d] (Nice): openapiLldpMgmtStrLenGet failed (rc=%d strLen=%u)\n", size.error(),
                 std::uint32_t{0});
        return SwitchNeighbour::NotConverged;
    }
    try {
        return findSwitchBehind(sw, port, *size, where);
    } catch (const std::bad_alloc &) {
        logError(where, "[%s:%d] (Nice): Could not allocate LLDP buffer\n");
        return SwitchNeighbour::NotConverged;
    }
}

void refreshProfileAnswers(Switch sw) {
    for (const char *const answer : {"profile/list_ex", "swcfg_ports_settings", "port_vendor_detect"})
        static_cast<void>(rest_db_writeback(sw.handle(), answer));
}

std::int32_t createNiceProfile(Switch sw) {
    return createProfile(sw, nullptr);
}

bool isNiceAddress(Mac mac) {
    return mac.bits() >> kPrefixShift == kNicePrefix;
}

void niceDetectionLookup(Switch sw) {
    const Where where = std::source_location::current();
    std::vector<DeviceState> seen;
    lookForDevices(sw, seen, where);
    reportDevices(niceDetection.name, std::move(seen), where);
}

// --- the thread

constinit const DetectionRow niceDetection = {
    .name = "Nice",
    .profileType = nullptr,
    .loop = {.texts = {.started = "[%s:%d] (Nice): Nice detection thread started\n"},
             .period = std::chrono::seconds(15),
             .pause = Pause::AfterCycle,
             .cycle = runCycle},
    .entry = detect_nice_thread,
    .running = &running,
};

void *detect_nice_thread(void *clientHandle) {
    runDetection(niceDetection, clientHandle);
    pthread_exit(nullptr);
}

}  // namespace pavo
