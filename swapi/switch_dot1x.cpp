// 802.1X of the switch and of its ports.
#include "swapi/read_call.h"
#include "swapi/switch.h"

namespace pavo {

OpenResult<bool> Switch::dot1x() const {
    const auto mode = readNumber(
        [&](std::uint32_t *value) { return rpcclt_openapiDot1xSystemAuthControlModeGet(client_, value); });
    if (!mode)
        return std::unexpected(mode.error());
    return *mode == OPEN_ENABLE;
}

OpenResult<> Switch::setPortControl(IfNum port, PortControl control) const {
    return openResult(
        rpcclt_openapiDot1xPortControlModeSet(client_, port.number(), static_cast<std::uint32_t>(control)));
}

OpenResult<PortControl> Switch::portControl(IfNum port) const {
    return readNumber<PortControl>([&](std::uint32_t *mode) {
        return rpcclt_openapiDot1xPortControlModeGet(client_, port.number(), mode);
    });
}

OpenResult<std::uint32_t> Switch::portStatus(IfNum port) const {
    return readNumber([&](std::uint32_t *status) {
        return rpcclt_openapiDot1xPortStatusGet(client_, port.number(), status);
    });
}

OpenResult<bool> Switch::isPortAuthorized(IfNum port) const {
    const auto status = portStatus(port);
    if (!status)
        return std::unexpected(status.error());
    return *status == OPEN_DOT1X_PORT_AUTHORIZED;
}

OpenResult<PortReauthentication> Switch::portReauthentication(IfNum port) const {
    std::uint32_t enabled = 0, period = 0;
    const open_error_t code = rpcclt_openapiDot1xPortReauthGet(client_, port.number(), &enabled, &period);
    return openResult(code, PortReauthentication{enabled == OPEN_ENABLE, period});
}

}  // namespace pavo
