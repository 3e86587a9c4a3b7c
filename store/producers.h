// The answers that the response cache keeps: who produces them. A producer is an operation of the web interface;
// the cache calls it through a weak reference, so a program has those that it links and no others.
//
// Common to all: `client` is a registered handle. The result is 0 or a result code; the producer has logged why it
// failed. A producer with `char **json` sets it to new JSON text, the caller's to free with free(), or to null
// when it fails. One with `char *json` fills a buffer of `size` bytes, zeroed by the caller, with JSON text and
// its terminating zero; text that does not fit is a failure. Any thread may call them.
#ifndef PAVO_STORE_PRODUCERS_H
#define PAVO_STORE_PRODUCERS_H

#include <cstddef>
#include <cstdint>

#include "platform/open_client.h"

namespace pavo {

std::int32_t switchConfigVlanList(openapiClientHandle_t *client, char **json);

// --- ports and LAGs
std::int32_t getPhyInfAllStatusFast(openapiClientHandle_t *client, char **json);
std::int32_t getPortStatusListFast(openapiClientHandle_t *client, char **json);
std::int32_t getPortsSettings(openapiClientHandle_t *client, char **json);
std::int32_t interfacesStatusBuild(openapiClientHandle_t *client, char **json);
std::int32_t getLagInfoList(openapiClientHandle_t *client, char **json);
std::int32_t getLagInfoListEx(openapiClientHandle_t *client, char **json);
std::int32_t getAutoLagCfg(openapiClientHandle_t *client, char **json);
std::int32_t manualTrunkGet(openapiClientHandle_t *client, char **json);
std::int32_t switchTrunkModeGet(openapiClientHandle_t *client, char **json);
// `detail` is 1 for the cached answer.
std::int32_t getPortMirroring(openapiClientHandle_t *client, std::int32_t detail, char **json);
std::int32_t portHardwareInfoBuild(openapiClientHandle_t *client, char **json);
std::int32_t fiberOpticsGet(openapiClientHandle_t *client, char **json);

// --- system
std::int32_t getRadiusServerJson(openapiClientHandle_t *client, char *json, std::size_t size);
std::int32_t getPortAuthConfigJson(openapiClientHandle_t *client, char **json);
std::int32_t switchPtpModeGet(openapiClientHandle_t *client, char **json);
std::int32_t systemInfoGet(openapiClientHandle_t *client, char **json);
std::int32_t deviceHealthGet(openapiClientHandle_t *client, char **json);
std::int32_t getSpecialInfInfo(openapiClientHandle_t *client, char **json);
std::int32_t getDeviceTime(openapiClientHandle_t *client, char *json, std::size_t size);
std::int32_t getLogConfigJson(openapiClientHandle_t *client, char *json, std::size_t size);
std::int32_t getImageInfo(openapiClientHandle_t *client, char *json, std::size_t size);

// --- profiles
std::int32_t ProfileTemplateGet(openapiClientHandle_t *client, char *json, std::size_t size);
std::int32_t profileListExGet(openapiClientHandle_t *client, char **json);

// --- neighbours and multicast
std::int32_t getMulticastModeEx(openapiClientHandle_t *client, char **json);
std::int32_t getDenyList(openapiClientHandle_t *client, char **json);
// Stores its chunks in the cache by itself.
std::int32_t neighborListExChunkedPush(openapiClientHandle_t *client);
std::int32_t portVendorDetectBuild(openapiClientHandle_t *client, char **json);

}  // namespace pavo

#endif
