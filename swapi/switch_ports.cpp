// The calls about ports and LAGs: settings, counters, transceivers, trunks, mirroring.
#include <array>

#include "swapi/lag_members.h"
#include "swapi/read_call.h"
#include "swapi/switch.h"

namespace pavo {
namespace {

// With the terminating zero.
constexpr std::size_t kDescriptionSize = 65;
constexpr std::size_t kLagNameSize = 61;
constexpr std::size_t kSfpTextSize = 17;

}  // namespace

// --- settings and state

OpenResult<std::string> Switch::description(IfNum ifNum) const {
    return readText(kDescriptionSize, [&](open_buffdesc *text) {
        return rpcclt_openapiIfDescrGet(client_, ifNum.number(), text);
    });
}

OpenResult<std::uint32_t> Switch::mtu(IfNum ifNum) const {
    return readNumber(
        [&](std::uint32_t *mtu) { return rpcclt_openapiIfMtuGet(client_, ifNum.number(), mtu); });
}

OpenResult<LinkSpeed> Switch::speedSetting(IfNum port) const {
    std::uint32_t mbps = 0, duplex = 0;
    const open_error_t code = rpcclt_openapiIfSpeedConfigGet(client_, port.number(), &mbps, &duplex);
    return openResult(code, LinkSpeed{mbps, static_cast<Duplex>(duplex)});
}

OpenResult<LinkSpeed> Switch::linkSpeed(IfNum ifNum) const {
    std::uint32_t mbps = 0, duplex = 0;
    const open_error_t code = rpcclt_openapiIfSpeedGet(client_, ifNum.number(), &mbps, &duplex);
    return openResult(code, LinkSpeed{mbps, static_cast<Duplex>(duplex)});
}

OpenResult<ErrorDisable> Switch::errorDisable(IfNum port) const {
    return readNumber<ErrorDisable>([&](std::uint32_t *reason) {
        return rpcclt_openapiIfErrorDisableGet(client_, port.number(), reason);
    });
}

OpenResult<PortHardware> Switch::portHardware(IfNum port) const {
    std::uint32_t media = 0, capabilities = 0;
    const open_error_t code = rpcclt_openapiIfHardwareGet(client_, port.number(), &media, &capabilities);
    return openResult(code, PortHardware{static_cast<Media>(media), capabilities});
}

// --- counters

OpenResult<TrafficCounters> Switch::trafficCounters(IfNum ifNum) const {
    TrafficCounters c;
    const open_error_t code = rpcclt_openapiIfTrafficGet(client_, ifNum.number(), &c.inOctets, &c.outOctets,
                                                         &c.inPackets, &c.outPackets);
    return openResult(code, c);
}

OpenResult<CastCounters> Switch::castCounters(IfNum ifNum, TrafficDirection direction) const {
    CastCounters c;
    const open_error_t code =
        rpcclt_openapiIfCastPacketsGet(client_, ifNum.number(), static_cast<std::uint32_t>(direction),
                                       &c.unicast, &c.multicast, &c.broadcast);
    return openResult(code, c);
}

OpenResult<ErrorCounters> Switch::errorCounters(IfNum ifNum) const {
    ErrorCounters c;
    const open_error_t code = rpcclt_openapiIfErrorsGet(client_, ifNum.number(), &c.inErrors, &c.outErrors,
                                                        &c.inDiscards, &c.outDiscards);
    return openResult(code, c);
}

// --- transceivers

OpenResult<SfpInventory> Switch::sfpInventory(IfNum port) const {
    SfpInventory sfp;
    std::array<char, kSfpTextSize> vendor{}, part{}, serial{};
    open_buffdesc vendorText{kSfpTextSize, vendor.data()}, partText{kSfpTextSize, part.data()},
        serialText{kSfpTextSize, serial.data()};
    const open_error_t code = rpcclt_openapiSfpInventoryGet(client_, port.number(), &vendorText, &partText,
                                                            &serialText, &sfp.wavelength);
    const auto stringOf = [](const auto &text) {
        return std::string(text.data(), strnlen(text.data(), text.size()));
    };
    sfp.vendor = stringOf(vendor);
    sfp.partNumber = stringOf(part);
    sfp.serial = stringOf(serial);
    return openResult(code, sfp);
}

OpenResult<SfpDiagnostics> Switch::sfpDiagnostics(IfNum port) const {
    std::uint32_t temperature = 0, voltage = 0, bias = 0;
    const open_error_t code =
        rpcclt_openapiSfpDiagnosticsGet(client_, port.number(), &temperature, &voltage, &bias);
    return openResult(code, SfpDiagnostics{static_cast<std::int32_t>(temperature), voltage, bias});
}

OpenResult<SfpPower> Switch::sfpPower(IfNum port) const {
    SfpPower power;
    const open_error_t code = rpcclt_openapiSfpPowerGet(client_, port.number(), &power.tx, &power.rx);
    return openResult(code, power);
}

// --- LAGs and trunks

OpenResult<std::string> Switch::lagName(IfNum lag) const {
    return readText(kLagNameSize, [&](open_buffdesc *text) {
        return rpcclt_openapiLagNameGet(client_, lag.number(), text);
    });
}

OpenResult<bool> Switch::isLagStatic(IfNum lag) const {
    return readNumber<bool>(
        [&](std::uint32_t *mode) { return rpcclt_openapiLagStaticModeGet(client_, lag.number(), mode); });
}

OpenResult<LagHash> Switch::lagHash(IfNum lag) const {
    return readNumber<LagHash>(
        [&](std::uint32_t *mode) { return rpcclt_openapiLagHashModeGet(client_, lag.number(), mode); });
}

OpenResult<std::vector<IfNum>> Switch::activeLagMembers(IfNum lag, std::uint32_t max) const {
    return readMembers(max, [&](std::uint32_t *count, open_buffdesc *members) {
        return rpcclt_openapiLagActiveMembersGet(client_, lag.number(), count, members);
    });
}

OpenResult<AutoLag> Switch::autoLag() const {
    std::uint32_t mode = 0, hash = 0;
    const open_error_t code = rpcclt_openapiAutoLagModeGet(client_, &mode, &hash);
    return openResult(code, AutoLag{mode == OPEN_ENABLE, static_cast<LagHash>(hash)});
}

OpenResult<bool> Switch::autoTrunk() const {
    return readNumber<bool>(
        [&](std::uint32_t *mode) { return rpcclt_openapiAutoTrunkModeGet(client_, mode); });
}

// --- mirroring

OpenResult<std::uint32_t> Switch::mirrorSessionMax() const {
    return readNumber([&](std::uint32_t *max) { return rpcclt_openapiMirrorSessionMaxGet(client_, max); });
}

OpenResult<bool> Switch::isMirrorEnabled(std::uint32_t session) const {
    return readNumber<bool>(
        [&](std::uint32_t *mode) { return rpcclt_openapiMirrorModeGet(client_, session, mode); });
}

OpenResult<IfNum> Switch::mirrorDestination(std::uint32_t session) const {
    return readNumber<IfNum>(
        [&](std::uint32_t *ifNum) { return rpcclt_openapiMirrorDestinationGet(client_, session, ifNum); });
}

OpenResult<MirrorSource> Switch::MirrorStep::operator()() {
    std::uint32_t next = 0, direction = 0;
    const open_error_t code =
        rpcclt_openapiMirrorSourceNextGet(client, session, last.number(), &next, &direction);
    if (code == OPEN_E_NONE && IfNum(next) <= last)
        return std::unexpected(OpenError::Failed);
    last = IfNum(next);
    return openResult(code, MirrorSource{last, static_cast<MirrorDirection>(direction)});
}

}  // namespace pavo
