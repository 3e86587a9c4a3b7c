// Lightware detection: bundles the uplinks of a Lightware UBEX endpoint in one LAG and gives it its VLANs.
//
// Endpoints are found by LLDP on the ports that have the profile's VLAN as PVID. The operations belong to the
// Lightware thread, except lightwareVlanIdGet, which any thread may call. Failures are logged where they
// happen.
#ifndef PAVO_DETECTION_LIGHTWARE_H
#define PAVO_DETECTION_LIGHTWARE_H

#include <cjson/cJSON.h>

#include <atomic>
#include <cstdint>

#include "common/device_list.h"
#include "detection/neighbour.h"
#include "platform/open_client.h"

// One uplink of an endpoint.
struct LightwareLink {
    std::uint32_t port;         // ifNum on which the uplink was seen
    char chassisId[20];         // the endpoint's, at most 18 characters copied
    std::uint32_t portDescNum;  // tells the endpoint's two uplinks apart
    std::uint32_t missCount;    // consecutive scans in which it was not seen
    std::uint32_t lagIfNum;     // the LAG the port was added to; 0: none
};

// For DeviceList: records come from `new LightwareLink`; equal (0) when chassis, port and port description
// are.
void lightwareLinkFree(void *record);
int lightwareLinkCompare(const void *a, const void *b);

// 1 while a Lightware thread exists. Set to 1 by the supervisor before it creates the thread and back to 0
// when that fails; set to 0 by the thread as its last act.
extern std::atomic<std::int32_t> lightwareRunning;

// The detection thread, started with the client handle. Looks every 30 seconds; ends by pthread_exit when the
// profile or its VLAN is gone, leaving the switch as it is, and at once when there is none.
void *detect_lightware_thread(void *clientHandle);

// The VLAN of the Lightware profile. 0; 17001 when there is no profile or its VLAN does not exist.
std::int32_t lightwareVlanIdGet(openapiClientHandle_t *client, std::uint32_t *vlanId);

// Appends the uplinks now on the network to `out`: {"portId", "systemDesc", "chassisId", "portDesc"}.
void lightwareListGet(openapiClientHandle_t *client, cJSON *out);

// The UBEX neighbours of one port: {"systemDesc", "chassisId", "portDesc"}. See neighbourInfoGet.
std::int32_t lldpIntfRemoteLightwareInfoGet(openapiClientHandle_t *client, const NeighbourQuery &query);

// Compares the network with the list: takes offline what is gone or has moved, brings online what is new.
void lightwareLookup(openapiClientHandle_t *client, DeviceList *list);

// Adds the uplink to its endpoint's LAG, or the first empty one, and sets the VLANs. 0, also when there is
// nothing to do; 10000 when LAGs cannot be read; 17001 without profile.
std::int32_t lightwareOnlineCli(openapiClientHandle_t *client, const DeviceList *list, LightwareLink *link);

// Undoes that. 0, or 17001 without profile.
std::int32_t lightwareOfflineCli(openapiClientHandle_t *client, const DeviceList *list,
                                 const LightwareLink *link);

#endif
