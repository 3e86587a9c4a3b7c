#include "detection/audac.h"

#include <pthread.h>
#include <strings.h>

#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <memory>

#include "common/owners.h"
#include "common/result.h"
#include "detection/mac_association.h"
#include "detection/profile_config.h"
#include "detection/switch_walks.h"
#include "platform/clock.h"
#include "platform/l7proc.h"
#include "platform/paths.h"
#include "store/profile_db.h"
#include "store/profile_types.h"
#include "swapi/swapi.h"

namespace {

using platform::paths::kAudacConfig;

constexpr std::chrono::seconds kPeriod{15};
constexpr const char *kProfileType = PROFILE_TYPE_NAME_AUDAC;
constexpr std::int32_t kExcludedVlan = 1;

DeviceList audacList;

bool scanFill(openapiClientHandle_t *client, cJSON *out);
bool admit(openapiClientHandle_t *client, const cJSON *found, DetectedDevice *device);

constexpr MacFamily kFamily = {
    .scriptFile = platform::paths::kAudacIn,
    .outputFile = platform::paths::kAudacOut,
    .writeFailed = "[%s:%d] AudacLookup write file failed.\r\n",
    .applyFailed = "[%s:%d] AudacLookup cli apply failed. (%s)\r\n",
    .macRefused = "[%s:%d] AudacLookup: '%s' is no MAC address, no script sent.\r\n",
    .left = "AUDAC device Leave (%s MAC: %s) on Port 0/%d.",
    .modeRestored = "[%s:%d] AudacLookup: set port %d control mode to %d (result=%d)\r\n",
    .associationMissing =
        "[%s:%d] AudacLookup check (mac: %s) in the linked list, but not in the VLAN association mac.\r\n",
    .comparing = "[%s:%d] AudacLookup comparison with linked list.\r\n",
    .moved = "AUDAC device (MAC: %s) from Port 0/%d change to Port 0/%d.",
    .scan = scanFill,
    .admit = admit,
    .online = audacOnlineCli,
    .offline = audacOfflineCli,
};

constexpr NeighbourRead kNeighbourReads[] = {
    {NeighbourField::chassisId, "chassisID"},
    {NeighbourField::portId, "portId"},
    {NeighbourField::systemDesc, "systemDesc"},
};

constexpr NeighbourFamily kNeighbours = {
    .reads = kNeighbourReads,
    .walkStart =
        "[%s:%d] AudacLookup call openapiLldpIntfRemoteDeviceNextGet.(ifNum: %d, remIndex: %d, "
        "timeStamp: %d)\r\n",
    .descriptionRead = "[%s:%d] AudacLookup get system Description: %s\r\n",
};

// What one scan knows about the ports, by ifNum.
struct PortTables {
    PortSet isAudacPort;
    PortSet controlFound;
    char controlChassisId[PORT_TABLE_SIZE][18];
};

// The first Audac control unit among a port's neighbours.
const cJSON *controlFind(const cJSON *neighbours) {
    const cJSON *neighbour = nullptr;
    cJSON_ArrayForEach(neighbour, neighbours) {
        const cJSON *desc = cJSON_GetObjectItemCaseSensitive(neighbour, "systemDesc");
        if (cJSON_IsString(desc) && strcasestr(desc->valuestring, "Audac") != nullptr)
            return neighbour;
    }
    return nullptr;
}

void controlNote(const cJSON *control, std::uint32_t ifNum, PortTables *tables) {
    tables->controlFound.set(ifNum);
    char *chassisId = tables->controlChassisId[ifNum];
    const cJSON *chassis = cJSON_GetObjectItemCaseSensitive(control, "chassisID");
    if (cJSON_IsString(chassis))
        std::snprintf(chassisId, sizeof tables->controlChassisId[ifNum], "%s", chassis->valuestring);
    const cJSON *desc = cJSON_GetObjectItemCaseSensitive(control, "systemDesc");
    LOG_TRACE("[%s:%d] AudacLookup: Found Audac control on port %d, chassisID=%s, systemDesc='%s'\r\n", ifNum,
              printable(chassisId).c_str(), printable(desc->valuestring).c_str());
}

void controlsScan(openapiClientHandle_t *client, PortTables *tables) {
    LOG_TRACE("[%s:%d] AudacLookup: Step 1 - scanning LLDP for Audac control devices.\r\n");
    std::uint32_t textSize = 0;
    lldpIntfForEach(client, [&](std::uint32_t ifNum) {
        if (ifNum >= PORT_TABLE_SIZE || !tables->isAudacPort[ifNum])
            return true;
        const JsonPtr neighbours(cJSON_CreateArray());
        if (neighbours == nullptr) {
            LOG_ERROR("[%s:%d] Could not allocate memory.\r\n");
            return false;
        }
        lldpIntfRemoteAudacInfoGet(client, {ifNum, neighbours.get(), &textSize});
        const cJSON *control = controlFind(neighbours.get());
        if (control != nullptr)
            controlNote(control, ifNum, tables);
        else
            LOG_TRACE("[%s:%d] AudacLookup: No Audac control LLDP on port %d, skip.\r\n", ifNum);
        return true;
    });
}

void audioDevicesScan(openapiClientHandle_t *client, const PortTables &tables, cJSON *out) {
    LOG_TRACE("[%s:%d] AudacLookup: Step 2 - scanning FDB for audio device MACs.\r\n");
    PhysicalPorts physical(client);
    fdbForEach(client, [&](const char *mac, std::uint32_t ifNum) {
        // The marks first: they cost nothing, and most entries are on other ports.
        if (ifNum >= PORT_TABLE_SIZE || !tables.isAudacPort[ifNum] || !tables.controlFound[ifNum] ||
            !physical.contains(ifNum)) {
            return;
        }
        if (strcasecmp(mac, tables.controlChassisId[ifNum]) == 0) {
            LOG_TRACE("[%s:%d] AudacLookup: FDB MAC %s on port %d matches control, skip.\r\n", mac, ifNum);
            return;
        }
        if (std::strcmp(mac, "00:00:00:00:00:00") == 0)
            return;
        LOG_TRACE("[%s:%d] AudacLookup: FDB MAC %s on port %d is audio device candidate.\r\n", mac, ifNum);
        macScanAppend(out, ifNum, mac, DEVICE_TYPE_AUDIO);
    });
}

bool scanFill(openapiClientHandle_t *client, cJSON *out) {
    PortTables tables{};
    LOG_TRACE("[%s:%d] AudacLookup: audacListGet reading config from '%s'\r\n", kAudacConfig);
    {
        const JsonPtr config(jsonFileLoad(kAudacConfig));
        if (config == nullptr) {
            LOG_TRACE("[%s:%d] AudacLookup: Failed to read config file '%s'\r\n", kAudacConfig);
            return false;
        }
        const cJSON *ports = cJSON_GetObjectItemCaseSensitive(config.get(), "audacDevicePort");
        if (ports == nullptr) {
            LOG_TRACE("[%s:%d] AudacLookup: 'audacDevicePort' not found in config file\r\n");
            return true;
        }
        tables.isAudacPort =
            configPortSetGet(ports, "[%s:%d] AudacLookup: Added port %d to AUDAC port list\r\n");
    }
    controlsScan(client, &tables);
    audioDevicesScan(client, tables, out);
    return true;
}

bool admit(openapiClientHandle_t *, const cJSON *, DetectedDevice *device) {
    LOG_TRACE("[%s:%d] AudacLookup: detection AUDAC Audio device(mac=%s) online\r\n", device->mac);
    return true;
}

std::int32_t audioOnline(openapiClientHandle_t *client, const DetectedDevice &device) {
    const std::uint32_t audioVlan = audacAudioVlanIdGet();
    if (audioVlan == 0) {
        LOG_ERROR("[%s:%d] AudacLookup get audio vlan failed. (audioVlan:%d)\r\n", audioVlan);
        return RESULT_FAILED;
    }
    const std::int32_t result = macAssociationAdd(client, kFamily, device.mac, audioVlan);
    if (result == RESULT_SUCCESS) {
        l7proc_logf(LOG_LEVEL_NOTICE, __FILE__, __LINE__, "AUDAC Audio device Join (MAC: %s) on Port 0/%d.",
                    device.mac, device.port);
        LOG_INFORM("[%s:%d] AudacLookup: Added VLAN association MAC %s to VLAN %d\r\n", device.mac,
                   audioVlan);
    }
    return result;
}

std::int32_t controlOnline(openapiClientHandle_t *client, const DetectedDevice &device) {
    LOG_INFORM("[%s:%d] AudacLookup: Detected AUDAC Control device (MAC: %s) on Port %d, disabling PTP\r\n",
               device.mac, device.port);
    const std::int32_t result = ptpTcIntfAdminModeSet(client, device.port, OPEN_DISABLE);
    if (result != 0) {
        LOG_ERROR("[%s:%d] AudacLookup: Failed to disable PTP on port %d (result=%d)\r\n", device.port,
                  result);
        return result;
    }
    l7proc_logf(LOG_LEVEL_NOTICE, __FILE__, __LINE__,
                "AUDAC Control device Join (MAC: %s) on Port 0/%d, PTP disabled.", device.mac, device.port);
    return RESULT_SUCCESS;
}

}  // namespace

std::uint32_t audacAudioVlanIdGet() {
    return configVlanIdGet(kAudacConfig, "audioVlanID");
}

std::int32_t audacValidityCheck(openapiClientHandle_t *client) {
    LOG_TRACE("[%s:%d] AudacLookup: audacValidityCheck called, searching for profileType='%s'\r\n",
              kProfileType);
    const std::int32_t vlanId = vlanInfoSelectHasofProfileType(client, kProfileType, kExcludedVlan);
    if (vlanId == 0) {
        LOG_TRACE(
            "[%s:%d] AudacLookup: vlanInfoSelectHasofProfileType returned 0 - no AUDAC profile found in "
            "DB\r\n");
        return RESULT_CONFIG_INVALID;
    }
    LOG_TRACE("[%s:%d] AudacLookup: found AUDAC profile, vlanId=%d\r\n", vlanId);

    const open_error_t created = openapiVlanCreatedCheck(client, static_cast<std::uint32_t>(vlanId));
    if (created != OPEN_E_NONE) {
        LOG_TRACE("[%s:%d] AudacLookup: VLAN %d not created (rc=%d)\r\n", vlanId, created);
        return RESULT_CONFIG_INVALID;
    }

    const std::uint32_t audioVlan = audacAudioVlanIdGet();
    LOG_TRACE("[%s:%d] AudacLookup: audacAudioVlanIdGet returned audioVlan=%d (from %s)\r\n", audioVlan,
              kAudacConfig);
    if (audioVlan == 0) {
        LOG_TRACE("[%s:%d] AudacLookup: audioVlan is 0 - config file missing or invalid\r\n");
        return RESULT_FAILED;
    }
    LOG_TRACE("[%s:%d] AudacLookup: validity check PASSED, audioVlan=%d\r\n", audioVlan);
    return RESULT_SUCCESS;
}

void audacListGet(openapiClientHandle_t *client, cJSON *out) {
    scanFill(client, out);
}

std::int32_t lldpIntfRemoteAudacInfoGet(openapiClientHandle_t *client, const NeighbourQuery &query) {
    return neighbourInfoGet(client, query, kNeighbours);
}

void audacLookup(openapiClientHandle_t *client, DeviceList *list) {
    macFamilyLookup(client, kFamily, list);
}

std::int32_t audacOnlineCli(openapiClientHandle_t *client, DetectedDevice *record) {
    switch (record->type) {
        case DEVICE_TYPE_AUDIO:
            return audioOnline(client, *record);
        case DEVICE_TYPE_CONTROL:
            return controlOnline(client, *record);
        default:
            return RESULT_SUCCESS;
    }
}

std::int32_t audacOfflineCli(openapiClientHandle_t *client, DetectedDevice *record) {
    return macDeviceLeave(client, kFamily, *record);
}

std::int32_t repairAudacLink(openapiClientHandle_t *client, DeviceList *list) {
    return macFamilyRepair(client, kFamily, list);
}

void audacClear(openapiClientHandle_t *client, DeviceList *list) {
    LOG_TRACE("[%s:%d] AudacLookup found AUDAC profile delete, clear all AUDAC.\r\n");
    macFamilyClear(client, kFamily, list);
}

void *detect_audac_thread(void *clientHandle) {
    auto *client = static_cast<openapiClientHandle_t *>(clientHandle);
    LOG_INFORM("[%s:%d] AudacLookup Init success!\r\n");
    if (audacValidityCheck(client) == RESULT_SUCCESS) {
        deviceListInit(&audacList, detectedDeviceFree, detectedDevicePrint, detectedDeviceCompare);
        for (;;) {
            platform::sleepFor(kPeriod);
            LOG_TRACE("[%s:%d] AudacLookup wake up and start scanning LLDP table.\r\n");
            const std::int32_t validity = audacValidityCheck(client);
            if (validity == RESULT_SUCCESS) {
                repairAudacLink(client, &audacList);
                audacLookup(client, &audacList);
            } else if (validity == RESULT_CONFIG_INVALID) {
                LOG_TRACE("[%s:%d] User already delete AUDAC profile, AudacLookup exit!\r\n");
                break;
            } else {
                LOG_TRACE("[%s:%d] AUDAC Profile not already created, do nothing.\r\n");
            }
        }
    }
    macFamilyClear(client, kFamily, &audacList);
    pthread_exit(nullptr);
}
