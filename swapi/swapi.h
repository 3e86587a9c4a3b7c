// Thin wrappers over single OpEN calls. They return the OpEN code of the call unless they say otherwise and
// log nothing: their callers do, in their own words. Any thread may call them.
#ifndef PAVO_SWAPI_SWAPI_H
#define PAVO_SWAPI_SWAPI_H

#include <cstdint>

#include "platform/open_client.h"

// PTP transparent clock of one port: mode 1 on, 0 off.
std::int32_t ptpTcIntfAdminModeSet(openapiClientHandle_t *client, std::uint32_t ifNum, std::uint32_t mode);

// 802.1X port control mode (OPEN_DOT1X_).
std::int32_t dot1xPortControlModeSet(openapiClientHandle_t *client, std::uint32_t ifNum, std::uint32_t mode);

// The most members a LAG can have.
std::int32_t lagMaxMemberCountGet(openapiClientHandle_t *client, std::uint32_t *max);

#endif
