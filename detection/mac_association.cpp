#include "detection/mac_association.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

#include "common/owners.h"
#include "common/result.h"
#include "detection/neighbour.h"
#include "platform/paths.h"
#include "swapi/cli_apply.h"
#include "swapi/swapi.h"

namespace {

constexpr std::size_t kMacLength = 17;
constexpr std::size_t kMacCopied = 18;
constexpr std::size_t kScriptSize = 128;

// Every family captures the associations into the same file.
std::mutex showFileMutex;

struct DeviceDeleter {
    void operator()(DetectedDevice *device) const { detectedDeviceFree(device); }
};
using DevicePtr = std::unique_ptr<DetectedDevice, DeviceDeleter>;

DetectedDevice *deviceAt(const DeviceList *list, std::size_t i) {
    return static_cast<DetectedDevice *>(deviceListGet(list, i));
}

void deviceDropAt(DeviceList *list, std::size_t i) {
    DevicePtr(static_cast<DetectedDevice *>(deviceListRemoveAt(list, i)));
}

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool isMac(std::string_view text) {
    if (text.size() != kMacLength)
        return false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = lower(text[i]);
        if (i % 3 == 2 ? c != ':' : !((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f')))
            return false;
    }
    return true;
}

std::int32_t scriptSend(openapiClientHandle_t *client, const MacFamily &family, const char *script,
                        bool *reached) {
    if (cliScriptRun(client, script, family.scriptFile, family.outputFile, reached) == RESULT_SUCCESS)
        return RESULT_SUCCESS;
    if (*reached)
        family.applyFailed.write(LOG_LEVEL_ERROR, __func__, __LINE__, script);
    else
        family.writeFailed.write(LOG_LEVEL_ERROR, __func__, __LINE__);
    return RESULT_FAILED;
}

bool macAccept(const MacFamily &family, const char *mac) {
    if (isMac(mac))
        return true;
    family.macRefused.write(LOG_LEVEL_ERROR, __func__, __LINE__, printable(mac).c_str());
    return false;
}

// A scan object that has what the comparison needs.
struct Sighting {
    std::uint32_t port = 0;
    const char *mac = nullptr;
    const cJSON *type = nullptr;  // null when the object has none
};

bool sightingGet(const cJSON *object, Sighting *sighting) {
    const cJSON *port = cJSON_GetObjectItemCaseSensitive(object, "portId");
    const cJSON *mac = cJSON_GetObjectItemCaseSensitive(object, "mac");
    if (!cJSON_IsNumber(port) || !cJSON_IsString(mac))
        return false;
    const cJSON *type = cJSON_GetObjectItemCaseSensitive(object, "type");
    *sighting = {static_cast<std::uint32_t>(port->valueint), mac->valuestring,
                 cJSON_IsNumber(type) ? type : nullptr};
    return true;
}

// What makes two records equal, as a key of a hash set. The text is that of a record or of the scan.
struct DeviceKey {
    std::string_view mac;
    std::uint32_t port;
    bool operator==(const DeviceKey &) const = default;
};

struct DeviceKeyHash {
    std::size_t operator()(const DeviceKey &key) const {
        return std::hash<std::string_view>{}(key.mac) ^ (std::size_t{key.port} * 0x9e3779b9u);
    }
};

using DeviceKeySet = std::unordered_set<DeviceKey, DeviceKeyHash>;

// The keys of all records. A record that moved to where an equal one was already is dropped, or the list
// would gain one in each scan that shows one MAC on two ports.
DeviceKeySet deviceKeys(DeviceList *list) {
    DeviceKeySet keys;
    keys.reserve(list->count);
    for (std::size_t i = 1; i <= list->count;) {
        const DetectedDevice *device = deviceAt(list, i);
        if (keys.insert({device->mac, device->port}).second)
            ++i;
        else
            deviceDropAt(list, i);
    }
    return keys;
}

void knownCompare(openapiClientHandle_t *client, const MacFamily &family, DeviceList *list,
                  const cJSON *scan) {
    std::unordered_map<std::string_view, std::uint32_t> portOf;
    const cJSON *object = nullptr;
    cJSON_ArrayForEach(object, scan) {
        Sighting seen;
        if (sightingGet(object, &seen))
            portOf.try_emplace(seen.mac, seen.port);  // the first sighting counts
    }

    for (std::size_t i = 1; i <= list->count;) {
        DetectedDevice *device = deviceAt(list, i);
        const auto seen = portOf.find(device->mac);
        if (seen != portOf.end()) {
            if (seen->second != device->port) {
                const std::string text =
                    family.moved.write(__FILE__, __LINE__, device->mac, device->port, seen->second);
                if (!text.empty())
                    LOG_INFORM("[%s:%d] %s\r\n", text.c_str());
                device->port = seen->second;
            }
            device->missCount = 0;
            ++i;
            continue;
        }

        ++device->missCount;
        if (device->missCount >= DEVICE_MISS_MAX && family.offline(client, device) == 0)
            deviceDropAt(list, i);
        else
            ++i;
    }
}

void newJoin(openapiClientHandle_t *client, const MacFamily &family, DeviceList *list, const cJSON *scan) {
    DeviceKeySet keys = deviceKeys(list);
    const cJSON *object = nullptr;
    cJSON_ArrayForEach(object, scan) {
        Sighting seen;
        if (!sightingGet(object, &seen) || seen.type == nullptr)
            continue;
        DetectedDevice fresh{seen.port, static_cast<std::uint32_t>(seen.type->valueint), 0, "",
                             DEVICE_CONTROL_MODE_NONE};
        std::snprintf(fresh.mac, kMacCopied + 1, "%s", seen.mac);
        if (keys.contains({fresh.mac, fresh.port}))
            continue;
        if (!family.admit(client, object, &fresh) || family.online(client, &fresh) != 0)
            continue;
        DevicePtr device(new DetectedDevice(fresh));
        if (deviceListPush(list, device.get()) == 0) {
            keys.insert({device->mac, device->port});
            static_cast<void>(device.release());
        }
    }
}

// The MAC texts of "show vlan association mac", in lower case.
class AssociationTexts {
  public:
    void add(std::string text) {
        std::transform(text.begin(), text.end(), text.begin(), lower);
        longest_ = std::max(longest_, text.size());
        texts_.insert(std::move(text));
    }

    // Whether `mac` occurs in one of the texts. Only a text longer than the MAC has to be searched, and the
    // switch normally prints none.
    bool mention(std::string mac) const {
        std::transform(mac.begin(), mac.end(), mac.begin(), lower);
        if (texts_.contains(mac))
            return true;
        return longest_ > mac.size() &&
               std::any_of(texts_.begin(), texts_.end(),
                           [&](const std::string &text) { return text.find(mac) != std::string::npos; });
    }

  private:
    std::unordered_set<std::string> texts_;
    std::size_t longest_ = 0;
};

// False when the output ends before the table begins.
bool associationTableRead(std::FILE *file, AssociationTexts *texts) {
    char line[1024];
    bool inTable = false;
    while (std::fgets(line, sizeof line, file) != nullptr) {
        char mac[sizeof line];
        int vlanId = 0;
        if (!inTable)
            inTable = std::strstr(line, "--------------") != nullptr;
        else if (std::sscanf(line, "%1023s %d", mac, &vlanId) == 2)
            texts->add(mac);
    }
    return inTable;
}

}  // namespace

cJSON *macScanAppend(cJSON *scan, std::uint32_t port, const char *mac, std::uint32_t type) {
    // Keys by reference: hundreds of these are made in each cycle.
    JsonPtr object(cJSON_CreateObject());
    if (object == nullptr || !cJSON_AddItemToObjectCS(object.get(), "portId", cJSON_CreateNumber(port)) ||
        !cJSON_AddItemToObjectCS(object.get(), "mac", cJSON_CreateString(mac)) ||
        !cJSON_AddItemToObjectCS(object.get(), "type", cJSON_CreateNumber(type))) {
        LOG_ERROR("[%s:%d] Could not allocate memory.\r\n");
        return nullptr;
    }
    cJSON *appended = object.release();
    cJSON_AddItemToArray(scan, appended);
    return appended;
}

std::int32_t macAssociationAdd(openapiClientHandle_t *client, const MacFamily &family, const char *mac,
                               std::uint32_t vlanId) {
    if (!macAccept(family, mac))
        return RESULT_FAILED;
    char script[kScriptSize];
    std::snprintf(script, sizeof script, "vlan database\nvlan association mac %s %d\nexit\n", mac,
                  static_cast<int>(vlanId));
    bool reached = false;
    return scriptSend(client, family, script, &reached);
}

std::int32_t macAssociationRemove(openapiClientHandle_t *client, const MacFamily &family, const char *mac,
                                  bool *reached) {
    bool unused = false;
    bool *reachedSwitch = reached != nullptr ? reached : &unused;
    *reachedSwitch = false;
    if (!macAccept(family, mac))
        return RESULT_FAILED;
    char script[kScriptSize];
    std::snprintf(script, sizeof script, "vlan database\nno vlan association mac %s\nexit\n", mac);
    return scriptSend(client, family, script, reachedSwitch);
}

std::int32_t macDeviceLeave(openapiClientHandle_t *client, const MacFamily &family,
                            const DetectedDevice &device) {
    bool reached = false;
    std::int32_t result = macAssociationRemove(client, family, device.mac, &reached);
    if (!reached)
        return result;
    if (result == RESULT_SUCCESS) {
        family.left.write(__FILE__, __LINE__, device.type == DEVICE_TYPE_CONTROL ? "Control" : "Audio",
                          device.mac, device.port);
    }
    if (device.controlMode == OPEN_DOT1X_AUTO) {
        result = dot1xPortControlModeSet(client, device.port, OPEN_DOT1X_AUTO);
        family.modeRestored.write(LOG_LEVEL_DEBUG, __func__, __LINE__, device.port, device.controlMode,
                                  result);
    }
    return result;
}

void macFamilyLookup(openapiClientHandle_t *client, const MacFamily &family, DeviceList *list) {
    const JsonPtr scan(cJSON_CreateArray());
    if (scan == nullptr) {
        LOG_ERROR("[%s:%d] Could not allocate memory.\r\n");
        return;
    }
    if (!family.scan(client, scan.get()))
        return;
    family.comparing.write(LOG_LEVEL_DEBUG, __func__, __LINE__);
    knownCompare(client, family, list, scan.get());
    newJoin(client, family, list, scan.get());
}

std::int32_t macFamilyRepair(openapiClientHandle_t *client, const MacFamily &family, DeviceList *list) {
    const char *path = platform::paths::kShowVlanAssociationMac;
    AssociationTexts associations;
    {
        const std::lock_guard lock(showFileMutex);
        if (cliShowExecuteToFile(client, "show vlan association mac", path) != RESULT_SUCCESS)
            return RESULT_FAILED;
        FilePtr file = fileOpen(path, "r");
        if (file == nullptr) {
            LOG_ERROR("[%s:%d] can not open file:%s\r\n", path);
            return RESULT_OPEN_FAILED;
        }
        const bool complete = associationTableRead(file.get(), &associations);
        file.reset();
        fileRemove(path);
        if (!complete)
            return 1;
    }

    for (std::size_t i = 1; i <= list->count;) {
        const DetectedDevice *device = deviceAt(list, i);
        if (associations.mention(device->mac)) {
            ++i;
        } else {
            family.associationMissing.write(LOG_LEVEL_ERROR, __func__, __LINE__, device->mac);
            deviceDropAt(list, i);
        }
    }
    return 1;
}

void macFamilyClear(openapiClientHandle_t *client, const MacFamily &family, DeviceList *list) {
    for (std::size_t i = 1; i <= list->count; ++i)
        family.offline(client, deviceAt(list, i));
    deviceListTearDown(list);
}
