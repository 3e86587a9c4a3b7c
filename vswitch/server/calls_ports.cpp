// Ports and LAGs: settings, counters, transceivers, trunks, mirroring.
#include "vswitch/server/calls.h"

namespace vswitch {
namespace {

constexpr std::uint32_t kAlways = OPEN_CAPABILITY_1G | OPEN_CAPABILITY_10G | OPEN_CAPABILITY_AUTONEG;
constexpr std::uint32_t kCopper = kAlways | OPEN_CAPABILITY_10M | OPEN_CAPABILITY_100M |
                                  OPEN_CAPABILITY_2500M | OPEN_CAPABILITY_5G | OPEN_CAPABILITY_HALF_DUPLEX;

// A setting that ports have and LAGs have not: NONE for a port.
open_error_t portOnly(const Interface *found) {
    if (found == nullptr)
        return OPEN_E_NOT_FOUND;
    return found->isLag() ? OPEN_E_UNAVAIL : OPEN_E_NONE;
}

open_error_t lagOnly(const Interface *found) {
    return found == nullptr || !found->isLag() ? OPEN_E_NOT_FOUND : OPEN_E_NONE;
}

// The session; null with PARAM when there is no such number, with NONE when it was never configured.
const MirrorSession *mirrorOf(const Model &model, std::uint32_t session, open_error_t &code) {
    code = session >= 1 && session <= kMirrorSessionsMax ? OPEN_E_NONE : OPEN_E_PARAM;
    const auto it = model.mirrorSessions().find(session);
    return it == model.mirrorSessions().end() ? nullptr : &it->second;
}

}  // namespace

// --- settings and state

open_error_t Calls::rpcclt_openapiIfDescrGet(std::uint32_t ifNum, rpc::Filled &descr) {
    const auto *found = model_.interface(ifNum);
    if (found == nullptr)
        return OPEN_E_NOT_FOUND;
    descr.value = found->description;
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiIfMtuGet(std::uint32_t ifNum, std::uint32_t &mtu) {
    const auto *found = model_.interface(ifNum);
    if (found == nullptr)
        return OPEN_E_NOT_FOUND;
    mtu = found->mtu;
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiIfSpeedConfigGet(std::uint32_t ifNum, std::uint32_t &speed,
                                                   std::uint32_t &duplex) {
    const auto *found = model_.interface(ifNum);
    if (const auto code = portOnly(found); code != OPEN_E_NONE)
        return code;
    const auto configured = parseSpeed(found->speed);
    speed = configured.mbps;
    duplex = configured.duplex;
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiIfSpeedGet(std::uint32_t ifNum, std::uint32_t &speed,
                                             std::uint32_t &duplex) {
    const auto link = model_.linkSpeed(ifNum);
    if (!link)
        return OPEN_E_NOT_FOUND;
    if (link->mbps == 0)
        return OPEN_E_UNAVAIL;
    speed = link->mbps;
    duplex = link->duplex;
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiIfErrorDisableGet(std::uint32_t ifNum, std::uint32_t &reason) {
    const auto *found = model_.interface(ifNum);
    if (const auto code = portOnly(found); code != OPEN_E_NONE)
        return code;
    reason = found->errorDisabled;
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiIfHardwareGet(std::uint32_t ifNum, std::uint32_t &media,
                                                std::uint32_t &capabilities) {
    const auto *found = model_.interface(ifNum);
    if (const auto code = portOnly(found); code != OPEN_E_NONE)
        return code;
    media = found->hasCage ? OPEN_MEDIA_SFP : OPEN_MEDIA_COPPER;
    capabilities = found->hasCage ? kAlways : kCopper;
    return OPEN_E_NONE;
}

// --- counters

open_error_t Calls::rpcclt_openapiIfTrafficGet(std::uint32_t ifNum, std::uint64_t &inOctets,
                                               std::uint64_t &outOctets, std::uint64_t &inPackets,
                                               std::uint64_t &outPackets) {
    if (model_.interface(ifNum) == nullptr)
        return OPEN_E_NOT_FOUND;
    const auto counters = model_.counters(ifNum);
    inOctets = counters.inOctets;
    outOctets = counters.outOctets;
    inPackets = counters.inPackets;
    outPackets = counters.outPackets;
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiIfCastPacketsGet(std::uint32_t ifNum, std::uint32_t direction,
                                                   std::uint64_t &unicast, std::uint64_t &multicast,
                                                   std::uint64_t &broadcast) {
    if (model_.interface(ifNum) == nullptr)
        return OPEN_E_NOT_FOUND;
    if (direction > OPEN_TRAFFIC_OUT)
        return OPEN_E_PARAM;
    const auto counters = model_.counters(ifNum);
    const auto &kinds = direction == OPEN_TRAFFIC_IN ? counters.in : counters.out;
    if (!kinds)
        return OPEN_E_UNAVAIL;
    unicast = kinds->unicast;
    multicast = kinds->multicast;
    broadcast = kinds->broadcast;
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiIfErrorsGet(std::uint32_t ifNum, std::uint64_t &inErrors,
                                              std::uint64_t &outErrors, std::uint64_t &inDiscards,
                                              std::uint64_t &outDiscards) {
    if (model_.interface(ifNum) == nullptr)
        return OPEN_E_NOT_FOUND;
    const auto counters = model_.counters(ifNum);
    inErrors = counters.inErrors;
    outErrors = counters.outErrors;
    inDiscards = counters.inDiscards;
    outDiscards = counters.outDiscards;
    return OPEN_E_NONE;
}

// --- transceivers

open_error_t Calls::rpcclt_openapiSfpInventoryGet(std::uint32_t ifNum, rpc::Filled &vendor,
                                                  rpc::Filled &partNumber, rpc::Filled &serial,
                                                  std::uint32_t &wavelength) {
    const auto *found = model_.interface(ifNum);
    if (found != nullptr && !found->hasCage)
        return OPEN_E_UNAVAIL;
    const auto module = model_.sfp(ifNum);
    if (!module)
        return OPEN_E_NOT_FOUND;
    vendor.value = module->vendor;
    partNumber.value = module->partNumber;
    serial.value = module->serial;
    wavelength = module->wavelength;
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiSfpDiagnosticsGet(std::uint32_t ifNum, std::uint32_t &temperature,
                                                    std::uint32_t &voltage, std::uint32_t &bias) {
    const auto *found = model_.interface(ifNum);
    const auto module = model_.sfp(ifNum);
    if (!module)
        return found != nullptr && !found->hasCage ? OPEN_E_UNAVAIL : OPEN_E_NOT_FOUND;
    if (!module->diagnostics)
        return OPEN_E_UNAVAIL;
    temperature = static_cast<std::uint32_t>(module->diagnostics->temperature);
    voltage = module->diagnostics->voltage;
    bias = module->diagnostics->bias;
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiSfpPowerGet(std::uint32_t ifNum, std::uint32_t &txPower,
                                              std::uint32_t &rxPower) {
    const auto *found = model_.interface(ifNum);
    const auto module = model_.sfp(ifNum);
    if (!module)
        return found != nullptr && !found->hasCage ? OPEN_E_UNAVAIL : OPEN_E_NOT_FOUND;
    if (!module->diagnostics)
        return OPEN_E_UNAVAIL;
    txPower = module->diagnostics->txPower;
    rxPower = module->diagnostics->rxPower;
    return OPEN_E_NONE;
}

// --- LAGs and trunks

open_error_t Calls::rpcclt_openapiLagNameGet(std::uint32_t lagIfNum, rpc::Filled &name) {
    const auto *lag = model_.interface(lagIfNum);
    if (const auto code = lagOnly(lag); code != OPEN_E_NONE)
        return code;
    name.value = lag->lagName;
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiLagStaticModeGet(std::uint32_t lagIfNum, std::uint32_t &mode) {
    const auto *lag = model_.interface(lagIfNum);
    if (const auto code = lagOnly(lag); code != OPEN_E_NONE)
        return code;
    mode = lag->lagStatic ? 1 : 0;
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiLagHashModeGet(std::uint32_t lagIfNum, std::uint32_t &mode) {
    const auto *lag = model_.interface(lagIfNum);
    if (const auto code = lagOnly(lag); code != OPEN_E_NONE)
        return code;
    mode = lag->lagHashMode;
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiLagActiveMembersGet(std::uint32_t lagIfNum, std::uint32_t &count,
                                                      rpc::Filled &members) {
    return lagPorts(lagIfNum, true, count, members);
}

open_error_t Calls::rpcclt_openapiAutoLagModeGet(std::uint32_t &mode, std::uint32_t &hashMode) {
    mode = model_.features().autoLag ? OPEN_ENABLE : OPEN_DISABLE;
    hashMode = model_.features().autoLagHashMode;
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiAutoTrunkModeGet(std::uint32_t &mode) {
    mode = model_.features().switchportModeAuto ? OPEN_ENABLE : OPEN_DISABLE;
    return OPEN_E_NONE;
}

// --- mirroring

open_error_t Calls::rpcclt_openapiMirrorSessionMaxGet(std::uint32_t &max) {
    max = kMirrorSessionsMax;
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiMirrorModeGet(std::uint32_t session, std::uint32_t &mode) {
    open_error_t code = OPEN_E_NONE;
    const auto *mirror = mirrorOf(model_, session, code);
    mode = mirror != nullptr && mirror->enabled ? OPEN_ENABLE : OPEN_DISABLE;
    return code;
}

open_error_t Calls::rpcclt_openapiMirrorDestinationGet(std::uint32_t session, std::uint32_t &ifNum) {
    open_error_t code = OPEN_E_NONE;
    const auto *mirror = mirrorOf(model_, session, code);
    if (code != OPEN_E_NONE || mirror == nullptr || mirror->destination == 0)
        return code != OPEN_E_NONE ? code : OPEN_E_NOT_FOUND;
    ifNum = mirror->destination;
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiMirrorSourceNextGet(std::uint32_t session, std::uint32_t ifNum,
                                                      std::uint32_t &next, std::uint32_t &direction) {
    open_error_t code = OPEN_E_NONE;
    const auto *mirror = mirrorOf(model_, session, code);
    if (code != OPEN_E_NONE || mirror == nullptr)
        return code != OPEN_E_NONE ? code : OPEN_E_NOT_FOUND;
    const auto it = mirror->sources.upper_bound(ifNum);
    if (it == mirror->sources.end())
        return OPEN_E_NOT_FOUND;
    next = it->first;
    direction = it->second;
    return OPEN_E_NONE;
}

}  // namespace vswitch
