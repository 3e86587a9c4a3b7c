#include "swapi/swapi.h"

std::int32_t ptpTcIntfAdminModeSet(openapiClientHandle_t *client, std::uint32_t ifNum, std::uint32_t mode) {
    return rpcclt_openapiPtpTcIntfAdminModeSet(client, ifNum, mode);
}

std::int32_t dot1xPortControlModeSet(openapiClientHandle_t *client, std::uint32_t ifNum, std::uint32_t mode) {
    return rpcclt_openapiDot1xPortControlModeSet(client, ifNum, mode);
}

std::int32_t lagMaxMemberCountGet(openapiClientHandle_t *client, std::uint32_t *max) {
    return rpcclt_openapiLagMaxMemberCountGet(client, max);
}
