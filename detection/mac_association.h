// What the families have in common that put a device into a VLAN by its MAC address: the scripts that make
// and remove the association, the comparison of a scan with the list of known devices, and the repair of
// associations that somebody removed on the switch. What differs between families is in a table, `MacFamily`.
//
// A scan is a JSON array of objects with at least "portId" (number, ifNum), "mac" (text) and "type" (number).
// Lists hold DetectedDevice records from `new`, freed by detectedDeviceFree and compared by
// detectedDeviceCompare, and belong to the family's thread.
#ifndef PAVO_DETECTION_MAC_ASSOCIATION_H
#define PAVO_DETECTION_MAC_ASSOCIATION_H

#include <cjson/cJSON.h>

#include <cstdint>

#include "common/device_list.h"
#include "detection/log_text.h"
#include "platform/open_client.h"

// Classes of device in DetectedDevice::type of the families with control units.
inline constexpr std::uint32_t DEVICE_TYPE_CONTROL = 1;
inline constexpr std::uint32_t DEVICE_TYPE_AUDIO = 2;

// Scans that a device may be missing from before it leaves.
inline constexpr std::uint32_t DEVICE_MISS_MAX = 20;

// One family. Texts and steps marked optional may be left out.
struct MacFamily {
    // Scripts.
    const char *scriptFile;
    const char *outputFile;
    LogText<> writeFailed;
    LogText<const char *> applyFailed;  // script
    LogText<const char *> macRefused;   // MAC text

    // Leave and repair.
    SystemText<const char *, const char *, std::uint32_t> left{};        // optional; class, MAC, port
    LogText<std::uint32_t, std::uint32_t, std::int32_t> modeRestored{};  // optional; port, mode, result
    LogText<const char *> associationMissing{};                          // MAC

    // Lookup.
    LogText<> comparing;
    SystemText<const char *, std::uint32_t, std::uint32_t> moved{};  // optional; MAC, old port, new port

    // Fills the scan. False when it cannot be known at the moment what to look for: nothing is compared then.
    bool (*scan)(openapiClientHandle_t *client, cJSON *out);
    // A device that is not in the list and will be joined if this says so. `found` is its scan object.
    bool (*admit)(openapiClientHandle_t *client, const cJSON *found, DetectedDevice *device);
    // 0 when the device is joined, and will be kept in the list; 0 when it has left, and will be dropped.
    std::int32_t (*online)(openapiClientHandle_t *client, DetectedDevice *device);
    std::int32_t (*offline)(openapiClientHandle_t *client, DetectedDevice *device);
};

// Appends {"portId", "mac", "type"} to a scan; the object, for keys of the family's own, or null without
// memory.
cJSON *macScanAppend(cJSON *scan, std::uint32_t port, const char *mac, std::uint32_t type);

// Sends the script that puts `mac` into a VLAN, or takes it out of its VLAN. 0, or 10000 (logged in the
// family's words). A text that is no MAC address is refused before it reaches a script. `reached` (may be
// null) tells whether the script got as far as the switch.
std::int32_t macAssociationAdd(openapiClientHandle_t *client, const MacFamily &family, const char *mac,
                               std::uint32_t vlanId);
std::int32_t macAssociationRemove(openapiClientHandle_t *client, const MacFamily &family, const char *mac,
                                  bool *reached);

// The leave of a device: removes its association, reports it to the system log and puts a port that was under
// 802.1X control when the device joined back there. 0, 10000, or the OpEN code of the last step.
std::int32_t macDeviceLeave(openapiClientHandle_t *client, const MacFamily &family,
                            const DetectedDevice &device);

// Compares one scan with the list: joins what is new, follows what moved, counts what is missing and lets it
// leave.
void macFamilyLookup(openapiClientHandle_t *client, const MacFamily &family, DeviceList *list);

// Drops the devices whose association is missing on the switch, so that the next lookup joins them afresh. 1;
// 10000 when the switch does not show its associations; 10016 when the output cannot be read.
std::int32_t macFamilyRepair(openapiClientHandle_t *client, const MacFamily &family, DeviceList *list);

// Lets every device leave, whatever comes of it, and empties the list.
void macFamilyClear(openapiClientHandle_t *client, const MacFamily &family, DeviceList *list);

#endif
