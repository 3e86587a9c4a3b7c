// What the switch tells about the devices at its ports, apart from the forwarding database.
#include <arpa/inet.h>

#include <optional>

#include "vswitch/server/calls.h"

namespace vswitch {
namespace {

constexpr std::uint32_t kIpv4 = 1;
constexpr std::uint32_t kIpv6 = 2;

constexpr std::uint32_t kPortUnit = 1;
constexpr std::uint32_t kLagSlot = 1;

std::string ipText(std::uint32_t address) {
    const in_addr in{htonl(address)};
    char text[INET_ADDRSTRLEN];
    return inet_ntop(AF_INET, &in, text, sizeof text);
}

std::optional<std::uint32_t> ipNumber(const std::string &text) {
    in_addr out{};
    if (inet_pton(AF_INET, text.c_str(), &out) != 1)
        return std::nullopt;
    return ntohl(out.s_addr);
}

}  // namespace

open_error_t Calls::rpcclt_openapiArpEntryNextGet(std::uint32_t &vlanId, std::uint32_t &ipAddr,
                                                  rpc::Filled &mac) {
    ArpKey after;
    if (vlanId != 0 || ipAddr != 0)
        after = {vlanId, ipText(ipAddr)};
    while (const auto next = model_.nextArp(after)) {
        after = next->first;
        // A scenario may give a device an address that is none.
        if (const auto address = ipNumber(after.ip)) {
            vlanId = after.vlan;
            ipAddr = *address;
            mac.value = next->second.text();
            return OPEN_E_NONE;
        }
    }
    return OPEN_E_NOT_FOUND;
}

open_error_t Calls::rpcclt_openapiLldpIntfRemoteDeviceMgmtAddressNextGet(std::uint32_t ifNum,
                                                                         std::uint32_t remIndex,
                                                                         std::uint32_t timeStamp,
                                                                         std::uint32_t &family,
                                                                         rpc::Filled &address) {
    const auto *found = neighbour(ifNum, remIndex, timeStamp);
    // The switch keeps one address of each neighbour.
    if (found == nullptr || found->fields.mgmtAddress.empty() || family != 0)
        return OPEN_E_NOT_FOUND;
    address.value = found->fields.mgmtAddress;
    family = address.value.find(':') == std::string::npos ? kIpv4 : kIpv6;
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiDot1qSwPortModeGet(std::uint32_t ifNum, std::uint32_t &mode) {
    const auto *found = model_.interface(ifNum);
    if (found == nullptr)
        return OPEN_E_NOT_FOUND;
    mode = found->switchportMode;
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiHashIntfUnitSlotPortGet(std::uint32_t ifNum, std::uint32_t &unit,
                                                          std::uint32_t &slot, std::uint32_t &port) {
    const auto *found = model_.interface(ifNum);
    if (found == nullptr)
        return OPEN_E_NOT_FOUND;
    unit = found->isLag() ? 0 : kPortUnit;
    slot = found->isLag() ? kLagSlot : 0;
    port = found->index;
    return OPEN_E_NONE;
}

}  // namespace vswitch
