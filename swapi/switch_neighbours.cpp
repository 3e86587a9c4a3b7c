// The calls about devices at ports, apart from the forwarding table.
#include <algorithm>
#include <array>
#include <cstring>

#include "swapi/switch.h"

namespace pavo {
namespace {

constexpr std::size_t kNameSize = 61;
constexpr std::size_t kMacSize = 100;

open_buffdesc descriptorOf(std::string &text) {
    return {static_cast<std::uint32_t>(text.size()), text.data()};
}

void cutAtTerminator(std::string &text) {
    text.resize(strnlen(text.data(), text.size()));
}

}  // namespace

OpenResult<ArpEntry> Switch::ArpStep::operator()() {
    std::array<char, kMacSize> mac{};
    open_buffdesc text{static_cast<std::uint32_t>(mac.size()), mac.data()};
    if (const open_error_t code = rpcclt_openapiArpEntryNextGet(client, &vlan, &ip, &text);
        code != OPEN_E_NONE)
        return std::unexpected(static_cast<OpenError>(code));
    if (circle.comesRound({vlan, ip}))
        return std::unexpected(OpenError::Failed);
    return ArpEntry{vlan, Ipv4::fromNumber(ip), std::string(mac.data(), strnlen(mac.data(), mac.size()))};
}

OpenResult<std::string> Switch::interfaceName(IfNum ifNum) const {
    std::string name(kNameSize, '\0');
    open_buffdesc text = descriptorOf(name);
    if (const open_error_t code = openapiIfNameGet(client_, ifNum.number(), &text); code != OPEN_E_NONE)
        return std::unexpected(static_cast<OpenError>(code));
    cutAtTerminator(name);
    return name;
}

OpenResult<bool> Switch::hasLink(IfNum ifNum) const {
    std::uint32_t state = OPEN_LINK_DOWN;
    const open_error_t code = openapiIfLinkStateGet(client_, ifNum.number(), &state);
    return openResult(code, state == OPEN_LINK_UP);
}

OpenResult<SwitchportMode> Switch::switchportMode(IfNum ifNum) const {
    std::uint32_t mode = 0;
    const open_error_t code = rpcclt_openapiDot1qSwPortModeGet(client_, ifNum.number(), &mode);
    return openResult(code, static_cast<SwitchportMode>(mode));
}

OpenResult<UnitSlotPort> Switch::unitSlotPort(IfNum ifNum) const {
    UnitSlotPort place;
    const open_error_t code =
        rpcclt_openapiHashIntfUnitSlotPortGet(client_, ifNum.number(), &place.unit, &place.slot, &place.port);
    return openResult(code, place);
}

OpenResult<NeighbourId> Switch::neighbourId(const NeighbourKey &key, NeighbourField field,
                                            std::uint32_t size) const {
    NeighbourId id{0, std::string(size, '\0')};
    open_buffdesc text = descriptorOf(id.text);
    const auto read = field == NeighbourField::PortId ? rpcclt_openapiLldpIntfRemoteDevicePortIdGet
                                                      : rpcclt_openapiLldpIntfRemoteDeviceChassisIdGet;
    if (const open_error_t code =
            read(client_, key.port.number(), key.remIndex, key.timeStamp, &id.subtype, &text);
        code != OPEN_E_NONE)
        return std::unexpected(static_cast<OpenError>(code));
    cutAtTerminator(id.text);
    return id;
}

OpenResult<std::string> Switch::managementAddress(const NeighbourKey &key, std::uint32_t size) const {
    std::string address(size, '\0');
    open_buffdesc text = descriptorOf(address);
    std::uint32_t family = 0;
    if (const open_error_t code = rpcclt_openapiLldpIntfRemoteDeviceMgmtAddressNextGet(
            client_, key.port.number(), key.remIndex, key.timeStamp, &family, &text);
        code != OPEN_E_NONE)
        return std::unexpected(static_cast<OpenError>(code));
    cutAtTerminator(address);
    return address;
}

}  // namespace pavo
