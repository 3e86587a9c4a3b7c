#include "swapi/swapi.h"

std::int32_t swapiIfFirstGet(openapiClientHandle_t *client, std::uint32_t type, std::uint32_t *ifNum) {
    return rpcclt_openapiIfFirstGet(client, type, ifNum);
}

std::int32_t swapiIfNextGet(openapiClientHandle_t *client, std::uint32_t type, std::uint32_t ifNum,
                            std::uint32_t *next) {
    return rpcclt_openapiIfNextGet(client, type, ifNum, next);
}

std::int32_t ptpTcIntfAdminModeSet(openapiClientHandle_t *client, std::uint32_t ifNum, std::uint32_t mode) {
    return rpcclt_openapiPtpTcIntfAdminModeSet(client, ifNum, mode);
}

std::int32_t ptpTcAdminModeSet(openapiClientHandle_t *client, std::uint32_t mode) {
    return rpcclt_openapiPtpTcAdminModeSet(client, mode);
}

std::int32_t ptpTcAdminModeGet(openapiClientHandle_t *client, std::uint32_t *mode) {
    return rpcclt_openapiPtpTcAdminModeGet(client, mode);
}

std::int32_t swapiDot1asModeGet(openapiClientHandle_t *client, std::uint32_t *mode) {
    return rpcclt_openapiDot1asModeGet(client, mode);
}

std::int32_t swapiStpMstPriorityGet(openapiClientHandle_t *client, std::uint32_t instance,
                                    std::uint32_t *priority) {
    return rpcclt_openapiStpMstBridgePriorityGet(client, instance, priority);
}

std::int32_t dot1xPortControlModeSet(openapiClientHandle_t *client, std::uint32_t ifNum, std::uint32_t mode) {
    return rpcclt_openapiDot1xPortControlModeSet(client, ifNum, mode);
}

std::int32_t lagMaxMemberCountGet(openapiClientHandle_t *client, std::uint32_t *max) {
    return rpcclt_openapiLagMaxMemberCountGet(client, max);
}
