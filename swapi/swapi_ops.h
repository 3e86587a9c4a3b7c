// Thin wrappers over single OpEN calls, for callers that have numbers. They return the OpEN code of the call
// and log nothing: their callers do, in their own words. Any thread may call them.
#ifndef PAVO_SWAPI_SWAPI_OPS_H
#define PAVO_SWAPI_SWAPI_OPS_H

#include <cstdint>

#include "swapi/switch.h"

namespace pavo {

// *value as it was when the read fails.
template <class T>
std::int32_t storeNumber(const OpenResult<T> &read, std::uint32_t *value) {
    if (read)
        *value = static_cast<std::uint32_t>(*read);
    return codeOf(read);
}

// First interface of a type (OPEN_INTF_TYPE_).
inline std::int32_t swapiIfFirstGet(Switch sw, std::uint32_t type, std::uint32_t *ifNum) {
    const auto first = sw.firstInterface(static_cast<IfType>(type));
    if (first)
        *ifNum = first->number();
    return codeOf(first);
}

// PTP transparent clock of one port and of the whole switch: mode 1 on, 0 off.
inline std::int32_t ptpTcIntfAdminModeSet(Switch sw, std::uint32_t ifNum, std::uint32_t mode) {
    return codeOf(sw.setPortPtpTc(IfNum(ifNum), mode != 0));
}
inline std::int32_t ptpTcAdminModeSet(Switch sw, std::uint32_t mode) {
    return codeOf(sw.setPtpTc(mode != 0));
}

// 802.1X: control mode of a port (OPEN_DOT1X_), and whether it is authorised (OPEN_DOT1X_PORT_).
inline std::int32_t dot1xPortControlModeSet(Switch sw, std::uint32_t ifNum, std::uint32_t mode) {
    return codeOf(sw.setPortControl(IfNum(ifNum), static_cast<PortControl>(mode)));
}
inline std::int32_t swapiDot1xPortStatusGet(Switch sw, std::uint32_t ifNum, std::uint32_t *status) {
    return storeNumber(sw.portStatus(IfNum(ifNum)), status);
}

// The most members a LAG can have.
inline std::int32_t lagMaxMemberCountGet(Switch sw, std::uint32_t *max) {
    return storeNumber(sw.lagMaxMembers(), max);
}

}  // namespace pavo

#endif
