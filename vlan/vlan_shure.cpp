// The ports of a Shure installation: those its configuration lists, and those on which LLDP sees a device.
#include <bitset>

#include "platform/paths.h"
#include "swapi/swapi.h"
#include "vlan/vlan_records.h"

namespace {

// Profile types of the VLANs of the Shure ecosystem.
constexpr std::uint32_t kControlVlan = 2, kAudioVlan = 3;
constexpr std::string_view kShureDescription = "Shure";
constexpr std::uint32_t kTextSizeMax = 64u << 10;

using PortSet = std::bitset<768>;

std::int32_t devicePortsGet(cJSON *array, PortSet *marked) {
    const JsonPtr config(jsonFileLoad(platform::paths::kShureConfig));
    const cJSON *port = nullptr;
    cJSON_ArrayForEach(port, cJSON_GetObjectItemCaseSensitive(config.get(), "shureDevicePort")) {
        if (!cJSON_IsNumber(port))
            continue;
        if (!jsonNumberAppend(array, port->valueint))
            return RESULT_INVALID_POINTER;
        if (port->valueint >= 0 && static_cast<std::size_t>(port->valueint) < marked->size())
            marked->set(static_cast<std::size_t>(port->valueint));
    }
    return RESULT_SUCCESS;
}

// Appends the port once for every Shure device that LLDP sees on it. `text` has room for a description.
std::int32_t learnedPortAppend(openapiClientHandle_t *client, std::uint32_t port, std::string &text,
                               cJSON *array) {
    std::uint32_t index = 0, stamp = 0;
    for (;;) {
        const auto last = std::pair(index, stamp);
        if (rpcclt_openapiLldpIntfRemoteDeviceNextGet(client, port, &index, &stamp) != OPEN_E_NONE ||
            last == std::pair(index, stamp))
            return RESULT_SUCCESS;
        open_buffdesc description{static_cast<std::uint32_t>(text.size()), text.data()};
        if (rpcclt_openapiLldpIntfRemoteDeviceSystemDescGet(client, port, index, stamp, &description) ==
                OPEN_E_NONE &&
            text.starts_with(kShureDescription) && !jsonNumberAppend(array, port))
            return RESULT_INVALID_POINTER;
    }
}

}  // namespace

std::int32_t vlanShureArraysGet(openapiClientHandle_t *client, VLAN_INFO_T *info) {
    if (info->profileType != kControlVlan && info->profileType != kAudioVlan)
        return RESULT_SUCCESS;
    PortSet marked;
    std::int32_t result = devicePortsGet(info->shureDevicePorts, &marked);
    std::uint32_t length = 0;
    if (result != RESULT_SUCCESS || info->profileType != kAudioVlan ||
        rpcclt_openapiLldpMgmtStrLenGet(client, &length) != OPEN_E_NONE)
        return result;
    std::string text(std::min(length, kTextSizeMax), '\0');
    swapiIfForEach(client, OPEN_INTF_TYPE_PHY, [&](std::uint32_t port) {
        if (port < marked.size() && marked.test(port))
            result = learnedPortAppend(client, port, text, info->shureLearnPorts);
        return result == RESULT_SUCCESS;
    });
    return result;
}
