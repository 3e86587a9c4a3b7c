// Audac detection: puts the audio devices behind Audac control units into the Audac audio VLAN by their MAC
// address.
//
// Control units are found by LLDP on the ports of "/tmp/audac_config"; every other MAC address learned on the
// port of a control unit is an audio device. Except for audacValidityCheck, which any thread may call, the
// operations belong to the Audac thread. Failures are logged where they happen.
#ifndef PAVO_DETECTION_AUDAC_H
#define PAVO_DETECTION_AUDAC_H

#include <cjson/cJSON.h>

#include <cstdint>

#include "common/device_list.h"
#include "detection/neighbour.h"
#include "platform/open_client.h"

// The detection thread, started with the client handle. Looks every 15 seconds; lets all devices leave and
// ends by pthread_exit when the profile is gone, at once when there is none.
void *detect_audac_thread(void *clientHandle);

// 0 when the Audac profile, its VLAN and its audio VLAN are there; 17001 without profile or VLAN; 10000 when
// the audio VLAN cannot be read.
std::int32_t audacValidityCheck(openapiClientHandle_t *client);

// The audio VLAN of the configuration file; 0 when there is none.
std::uint32_t audacAudioVlanIdGet();

// Appends the audio devices now on the network to `out`: {"portId", "mac", "type": 2}.
void audacListGet(openapiClientHandle_t *client, cJSON *out);

// The LLDP neighbours of one port: {"systemDesc", "chassisID", "portId"}. See neighbourInfoGet.
std::int32_t lldpIntfRemoteAudacInfoGet(openapiClientHandle_t *client, const NeighbourQuery &query);

// Compares the network with the list: joins, follows and lets leave. While the configuration file cannot be
// read the list is left alone.
void audacLookup(openapiClientHandle_t *client, DeviceList *list);

// Join: associates an audio device (type 2) with the audio VLAN, switches PTP off on the port of a control
// unit (type 1), does nothing for other types. 0 or an error code.
std::int32_t audacOnlineCli(openapiClientHandle_t *client, DetectedDevice *record);

// Leave: removes the association of any type, restores 802.1X control. 0 or an error code.
std::int32_t audacOfflineCli(openapiClientHandle_t *client, DetectedDevice *record);

// Drops devices whose association is missing on the switch. 1, 10000 or 10016; see macFamilyRepair.
std::int32_t repairAudacLink(openapiClientHandle_t *client, DeviceList *list);

// Lets every device leave and empties the list.
void audacClear(openapiClientHandle_t *client, DeviceList *list);

#endif
