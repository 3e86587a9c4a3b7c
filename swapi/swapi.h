// Thin wrappers over single OpEN calls. They return the OpEN code of the call unless they say otherwise and
// log nothing: their callers do, in their own words. Any thread may call them.
#ifndef PAVO_SWAPI_SWAPI_H
#define PAVO_SWAPI_SWAPI_H

#include <cstdint>

#include "platform/open_client.h"

// First interface of a type (OPEN_INTF_TYPE_) and the one after `ifNum`.
std::int32_t swapiIfFirstGet(openapiClientHandle_t *client, std::uint32_t type, std::uint32_t *ifNum);
std::int32_t swapiIfNextGet(openapiClientHandle_t *client, std::uint32_t type, std::uint32_t ifNum,
                            std::uint32_t *next);

// visit(ifNum) for every interface of a type, ascending, until it returns false. Ends also when the switch
// does not advance.
template <class Visit>
void swapiIfForEach(openapiClientHandle_t *client, std::uint32_t type, Visit visit) {
    std::uint32_t ifNum = 0;
    std::int32_t result = swapiIfFirstGet(client, type, &ifNum);
    while (result == OPEN_E_NONE && visit(ifNum)) {
        std::uint32_t next = 0;
        result = swapiIfNextGet(client, type, ifNum, &next);
        if (next <= ifNum)
            return;
        ifNum = next;
    }
}

// PTP transparent clock of one port: mode 1 on, 0 off.
std::int32_t ptpTcIntfAdminModeSet(openapiClientHandle_t *client, std::uint32_t ifNum, std::uint32_t mode);

// PTP transparent clock of the whole switch, as above.
std::int32_t ptpTcAdminModeSet(openapiClientHandle_t *client, std::uint32_t mode);
std::int32_t ptpTcAdminModeGet(openapiClientHandle_t *client, std::uint32_t *mode);

// 802.1AS of the whole switch: mode 1 on, 0 off.
std::int32_t swapiDot1asModeGet(openapiClientHandle_t *client, std::uint32_t *mode);

// Bridge priority of a spanning-tree instance.
std::int32_t swapiStpMstPriorityGet(openapiClientHandle_t *client, std::uint32_t instance,
                                    std::uint32_t *priority);

// 802.1X port control mode (OPEN_DOT1X_).
std::int32_t dot1xPortControlModeSet(openapiClientHandle_t *client, std::uint32_t ifNum, std::uint32_t mode);

// The most members a LAG can have.
std::int32_t lagMaxMemberCountGet(openapiClientHandle_t *client, std::uint32_t *max);

#endif
