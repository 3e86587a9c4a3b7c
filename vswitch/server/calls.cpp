#include "vswitch/server/calls.h"

#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>

#include "platform/paths.h"

namespace vswitch {
namespace {

// A script larger than this is not a configuration.
constexpr std::streamsize kScriptMax = 4 << 20;

bool writeWhole(const std::string &fixedPath, const std::string &text) {
    const auto path = platform::fsPath(fixedPath);
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out)
        return false;
    out << text;
    out.close();
    if (out)
        return true;
    std::remove(path.c_str());
    return false;
}

// Paths come from clients: they must be absolute, without "..", and mean the same to the file system as here.
bool pathAcceptable(const std::string &path) {
    return path.size() > 1 && path.front() == '/' && path.find("/../") == std::string::npos &&
           !path.ends_with("/..") && path.find('\0') == std::string::npos;
}

}  // namespace

// --- system

open_error_t Calls::rpcclt_openapiConnectivityCheck() {
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiNetworkOSVersionGet(rpc::Filled &version) {
    version.value = model_.system().osVersion;
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiApiVersionGet(std::uint32_t &release, std::uint32_t &version,
                                                std::uint32_t &maintenance, std::uint32_t &build) {
    const auto &api = model_.system().apiVersion;
    release = api[0];
    version = api[1];
    maintenance = api[2];
    build = api[3];
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiSystemRegMachineModelGet(rpc::Filled &model) {
    model.value = model_.system().machineModel;
    return OPEN_E_NONE;
}

// --- configuration by text

open_error_t Calls::applyScript(const std::string &input, const std::string &output) {
    if (!pathAcceptable(input) || !pathAcceptable(output))
        return OPEN_E_PARAM;
    std::ifstream in(platform::fsPath(input), std::ios::binary | std::ios::ate);
    if (!in || in.tellg() < 0 || in.tellg() > kScriptMax)
        return OPEN_E_FAIL;
    in.seekg(0);
    std::ostringstream script;
    script << in.rdbuf();
    // A script is not run at all when its output cannot be written.
    if (!writeWhole(output, ""))
        return OPEN_E_FAIL;
    const auto printed = cli_.runScript(script.str());
    writeWhole(output, printed);
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiTxtCfgApply(const std::string &input, const std::string &output) {
    return applyScript(input, output);
}

open_error_t Calls::rpcclt_openapiTxtCfgNDCApply(const std::string &input, const std::string &output) {
    return applyScript(input, output);
}

open_error_t Calls::rpcclt_openapiCliShowExecuteToFile(const std::string &command, const std::string &file) {
    if (!pathAcceptable(file))
        return OPEN_E_PARAM;
    const auto output = cli_.show(command);
    if (!output || !writeWhole(file, *output))
        return OPEN_E_FAIL;
    return OPEN_E_NONE;
}

// --- interfaces

open_error_t Calls::nextInterface(std::uint32_t type, IfNum after, IfNum &next) const {
    const auto &all = model_.interfaces();
    for (auto it = all.upper_bound(after); it != all.end(); ++it)
        if (it->second.type == type) {
            next = it->first;
            return OPEN_E_NONE;
        }
    return OPEN_E_NOT_FOUND;
}

open_error_t Calls::rpcclt_openapiIfFirstGet(std::uint32_t type, std::uint32_t &ifNum) {
    return nextInterface(type, 0, ifNum);
}

open_error_t Calls::rpcclt_openapiIfNextGet(std::uint32_t type, std::uint32_t ifNum, std::uint32_t &next) {
    return nextInterface(type, ifNum, next);
}

open_error_t Calls::openapiIfTypeGet(std::uint32_t ifNum, std::uint32_t &type) {
    const auto *found = model_.interface(ifNum);
    if (found == nullptr)
        return OPEN_E_NOT_FOUND;
    type = found->type;
    return OPEN_E_NONE;
}

open_error_t Calls::openapiIfNameGet(std::uint32_t ifNum, rpc::Filled &name) {
    const auto *found = model_.interface(ifNum);
    if (found == nullptr)
        return OPEN_E_NOT_FOUND;
    name.value = found->name();
    return OPEN_E_NONE;
}

open_error_t Calls::openapiIfAdminStateGet(std::uint32_t ifNum, std::uint32_t &state) {
    const auto *found = model_.interface(ifNum);
    if (found == nullptr)
        return OPEN_E_NOT_FOUND;
    state = found->adminUp ? OPEN_ENABLE : OPEN_DISABLE;
    return OPEN_E_NONE;
}

open_error_t Calls::openapiIfLinkStateGet(std::uint32_t ifNum, std::uint32_t &state) {
    const auto *found = model_.interface(ifNum);
    if (found == nullptr)
        return OPEN_E_NOT_FOUND;
    state = found->linkUp ? OPEN_LINK_UP : OPEN_LINK_DOWN;
    return OPEN_E_NONE;
}

// --- forwarding database

open_error_t Calls::rpcclt_openapiFdbEntryNextGet(rpc::Filled &mac, std::uint32_t &vlanId,
                                                  std::uint32_t &ifNum, std::uint32_t &entryType) {
    FdbKey key;
    if (!mac.value.empty()) {
        const auto parsed = Mac::parse(mac.value);
        if (!parsed)
            return OPEN_E_PARAM;
        key = {*parsed, vlanId};
    }
    const auto it = model_.fdb().upper_bound(key);
    if (it == model_.fdb().end())
        return OPEN_E_NOT_FOUND;
    mac.value = it->first.mac.text();
    vlanId = it->first.vlan;
    ifNum = it->second.ifNum;
    entryType = it->second.type;
    return OPEN_E_NONE;
}

// --- LLDP

open_error_t Calls::rpcclt_openapiLldpIntfNextGet(std::uint32_t ifNum, std::uint32_t &next) {
    return nextInterface(OPEN_INTF_TYPE_PHY, ifNum, next);
}

open_error_t Calls::rpcclt_openapiLldpMgmtStrLenGet(std::uint32_t &len) {
    len = kLldpTextMax + 1;
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiLldpIntfRemoteDeviceNextGet(std::uint32_t ifNum, std::uint32_t &remIndex,
                                                              std::uint32_t &timeStamp) {
    const auto port = model_.lldp().find(ifNum);
    if (port == model_.lldp().end())
        return OPEN_E_NOT_FOUND;
    const auto it = port->second.upper_bound(remIndex);
    if (it == port->second.end())
        return OPEN_E_NOT_FOUND;
    remIndex = it->first;
    timeStamp = it->second.timeStamp;
    return OPEN_E_NONE;
}

const LldpNeighbour *Calls::neighbour(IfNum ifNum, std::uint32_t remIndex, std::uint32_t timeStamp) const {
    const auto port = model_.lldp().find(ifNum);
    if (port == model_.lldp().end())
        return nullptr;
    const auto it = port->second.find(remIndex);
    return it != port->second.end() && it->second.timeStamp == timeStamp ? &it->second : nullptr;
}

open_error_t Calls::lldpText(IfNum ifNum, std::uint32_t remIndex, std::uint32_t timeStamp,
                             std::string LldpFields::*field, rpc::Filled &out) const {
    const auto *found = neighbour(ifNum, remIndex, timeStamp);
    if (found == nullptr)
        return OPEN_E_NOT_FOUND;
    out.value = found->fields.*field;
    return OPEN_E_NONE;
}

open_error_t Calls::lldpId(IfNum ifNum, std::uint32_t remIndex, std::uint32_t timeStamp,
                           std::uint32_t LldpFields::*subtypeField, std::string LldpFields::*field,
                           std::uint32_t &subtype, rpc::Filled &out) const {
    const auto *found = neighbour(ifNum, remIndex, timeStamp);
    if (found == nullptr)
        return OPEN_E_NOT_FOUND;
    subtype = found->fields.*subtypeField;
    out.value = found->fields.*field;
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiLldpIntfRemoteDeviceChassisIdGet(std::uint32_t ifNum,
                                                                   std::uint32_t remIndex,
                                                                   std::uint32_t timeStamp,
                                                                   std::uint32_t &subtype, rpc::Filled &id) {
    return lldpId(ifNum, remIndex, timeStamp, &LldpFields::chassisIdSubtype, &LldpFields::chassisId, subtype,
                  id);
}

open_error_t Calls::rpcclt_openapiLldpIntfRemoteDevicePortIdGet(std::uint32_t ifNum, std::uint32_t remIndex,
                                                                std::uint32_t timeStamp,
                                                                std::uint32_t &subtype, rpc::Filled &id) {
    return lldpId(ifNum, remIndex, timeStamp, &LldpFields::portIdSubtype, &LldpFields::portId, subtype, id);
}

open_error_t Calls::rpcclt_openapiLldpIntfRemoteDeviceSystemNameGet(std::uint32_t ifNum,
                                                                    std::uint32_t remIndex,
                                                                    std::uint32_t timeStamp,
                                                                    rpc::Filled &text) {
    return lldpText(ifNum, remIndex, timeStamp, &LldpFields::systemName, text);
}

open_error_t Calls::rpcclt_openapiLldpIntfRemoteDeviceSystemDescGet(std::uint32_t ifNum,
                                                                    std::uint32_t remIndex,
                                                                    std::uint32_t timeStamp,
                                                                    rpc::Filled &text) {
    return lldpText(ifNum, remIndex, timeStamp, &LldpFields::systemDesc, text);
}

open_error_t Calls::rpcclt_openapiLldpIntfRemoteDevicePortDescGet(std::uint32_t ifNum, std::uint32_t remIndex,
                                                                  std::uint32_t timeStamp,
                                                                  rpc::Filled &text) {
    return lldpText(ifNum, remIndex, timeStamp, &LldpFields::portDesc, text);
}

open_error_t Calls::rpcclt_openapiLldpIntfRemoteDeviceSysCapEnabledGet(std::uint32_t ifNum,
                                                                       std::uint32_t remIndex,
                                                                       std::uint32_t timeStamp,
                                                                       rpc::Filled &text) {
    return lldpText(ifNum, remIndex, timeStamp, &LldpFields::capabilities, text);
}

// --- VLANs

open_error_t Calls::openapiVlanCreatedCheck(std::uint32_t vlanId) {
    return model_.hasVlan(vlanId) ? OPEN_E_NONE : OPEN_E_NOT_FOUND;
}

open_error_t Calls::rpcclt_openapiVlanNextGet(std::uint32_t vlanId, std::uint32_t &next) {
    const auto it = model_.vlans().upper_bound(vlanId);
    if (it == model_.vlans().end())
        return OPEN_E_NOT_FOUND;
    next = it->first;
    return OPEN_E_NONE;
}

open_error_t Calls::openapiVlanIsStatic(std::uint32_t vlanId) {
    const auto it = model_.vlans().find(vlanId);
    return it != model_.vlans().end() && it->second.isStatic ? 1 : 0;
}

open_error_t Calls::rpcclt_openapiVlanNameLenGet(std::uint32_t &len) {
    len = kVlanNameMax + 1;
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiVlanNameGet(std::uint32_t vlanId, rpc::Filled &name) {
    const auto it = model_.vlans().find(vlanId);
    if (it == model_.vlans().end())
        return OPEN_E_NOT_FOUND;
    name.value = it->second.name;
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiVlanNameSet(std::uint32_t vlanId, const std::string &name) {
    return model_.nameVlan(vlanId, name);
}

open_error_t Calls::rpcclt_openapiVlanCreate(std::uint32_t vlanId) {
    return model_.createVlan(vlanId);
}

open_error_t Calls::rpcclt_openapiVlanDelete(std::uint32_t vlanId) {
    return model_.deleteVlan(vlanId);
}

open_error_t Calls::rpcclt_openapiVlanIfPvidSet(std::uint32_t ifNum, std::uint32_t vlanId) {
    return model_.setPvid(ifNum, vlanId);
}

open_error_t Calls::openapiVlanIfPvidGet(std::uint32_t ifNum, std::uint32_t &vlanId) {
    const auto *found = model_.interface(ifNum);
    if (found == nullptr)
        return OPEN_E_NOT_FOUND;
    vlanId = found->pvid;
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiVlanIfTaggingSet(std::uint32_t ifNum, std::uint32_t vlanId,
                                                   std::uint32_t tagging) {
    return tagging > 1 ? OPEN_E_PARAM : model_.setTagging(ifNum, vlanId, tagging == 1);
}

open_error_t Calls::openapiVlanIfTaggingGet(std::uint32_t ifNum, std::uint32_t vlanId,
                                            std::uint32_t &tagging) {
    if (model_.interface(ifNum) == nullptr || !model_.hasVlan(vlanId))
        return OPEN_E_NOT_FOUND;
    tagging = model_.membership(ifNum, vlanId).tagged ? 1 : 0;
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiVlanIfParticipationSet(std::uint32_t vlanId, std::uint32_t ifNum,
                                                         std::uint32_t mode) {
    return model_.setParticipation(ifNum, vlanId, mode);
}

open_error_t Calls::rpcclt_openapiVlanIfCurrentParticipationGet(std::uint32_t vlanId, std::uint32_t ifNum,
                                                                std::uint32_t &mode) {
    if (model_.interface(ifNum) == nullptr || !model_.hasVlan(vlanId))
        return OPEN_E_NOT_FOUND;
    mode = model_.membership(ifNum, vlanId).participation;
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiVlanIfParticipationGet(std::uint32_t vlanId, std::uint32_t ifNum,
                                                         std::uint32_t &mode) {
    return rpcclt_openapiVlanIfCurrentParticipationGet(vlanId, ifNum, mode);
}

open_error_t Calls::openapiVlanIfParticipationStatusGet(std::uint32_t vlanId, std::uint32_t ifNum,
                                                        std::uint32_t &takesPart) {
    std::uint32_t mode = 0;
    const auto result = rpcclt_openapiVlanIfCurrentParticipationGet(vlanId, ifNum, mode);
    takesPart = mode == OPEN_VLAN_PARTICIPATION_MODE_INCLUDE ? 1 : 0;
    return result;
}

open_error_t Calls::rpcclt_openapiVlanIfAcceptFrameTypeSet(std::uint32_t ifNum, std::uint32_t frames) {
    auto *const found = model_.edit(ifNum);
    if (found == nullptr || frames < OPEN_VLAN_ACCEPT_ALL || frames > OPEN_VLAN_ACCEPT_UNTAGGED_ONLY)
        return OPEN_E_PARAM;
    found->acceptFrames = static_cast<AcceptFrames>(frames - OPEN_VLAN_ACCEPT_ALL);
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiDot1qSwPortTaggedVlanListGet(std::uint32_t ifNum, rpc::Filled &list) {
    const auto *found = model_.interface(ifNum);
    if (found == nullptr)
        return OPEN_E_NOT_FOUND;
    for (const auto &[id, membership] : found->vlans) {
        if (membership.participation != OPEN_VLAN_PARTICIPATION_MODE_INCLUDE || !membership.tagged)
            continue;
        const auto value = static_cast<std::uint16_t>(id);
        if (list.value.size() + sizeof value > list.room)
            break;
        list.value.append(reinterpret_cast<const char *>(&value), sizeof value);
    }
    return OPEN_E_NONE;
}

// --- link aggregation

open_error_t Calls::rpcclt_openapiLagMaxMemberCountGet(std::uint32_t &max) {
    max = model_.config().lagMembersMax;
    return OPEN_E_NONE;
}

open_error_t Calls::lagPorts(IfNum lagIfNum, bool onlyActive, std::uint32_t &count,
                             rpc::Filled &members) const {
    const auto *lag = model_.interface(lagIfNum);
    if (lag == nullptr || !lag->isLag())
        return OPEN_E_NOT_FOUND;
    const auto room = count;
    count = 0;
    for (const std::uint32_t member : lag->members) {
        if (onlyActive && !(lag->adminUp && model_.interface(member)->linkUp))
            continue;
        if (count == room || members.value.size() + sizeof member > members.room)
            break;
        members.value.append(reinterpret_cast<const char *>(&member), sizeof member);
        ++count;
    }
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiLagMembersGet(std::uint32_t lagIfNum, std::uint32_t &count,
                                                rpc::Filled &members) {
    return lagPorts(lagIfNum, false, count, members);
}

open_error_t Calls::rpcclt_openapiLagPortAdd(std::uint32_t lagIfNum, std::uint32_t ifNum) {
    return model_.lagAdd(lagIfNum, ifNum);
}

open_error_t Calls::rpcclt_openapiLagPortDelete(std::uint32_t lagIfNum, std::uint32_t ifNum) {
    return model_.lagRemove(lagIfNum, ifNum);
}

open_error_t Calls::rpcclt_openapiLagStaticModeSet(std::uint32_t lagIfNum, std::uint32_t mode) {
    return mode > 1 ? OPEN_E_PARAM : model_.setLagStatic(lagIfNum, mode == 1);
}

// --- 802.1X and PTP

open_error_t Calls::rpcclt_openapiDot1xPortControlModeSet(std::uint32_t ifNum, std::uint32_t mode) {
    return model_.setPortControl(ifNum, mode);
}

open_error_t Calls::rpcclt_openapiDot1xPortControlModeGet(std::uint32_t ifNum, std::uint32_t &mode) {
    const auto *found = model_.interface(ifNum);
    if (found == nullptr)
        return OPEN_E_NOT_FOUND;
    mode = found->isLag() ? static_cast<std::uint32_t>(OPEN_DOT1X_NA) : found->dot1xControlMode;
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiPtpTcAdminModeSet(std::uint32_t mode) {
    if (mode > OPEN_ENABLE)
        return OPEN_E_PARAM;
    model_.system().ptpTransparentClock = mode == OPEN_ENABLE;
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiPtpTcAdminModeGet(std::uint32_t &mode) {
    mode = model_.system().ptpTransparentClock ? OPEN_ENABLE : OPEN_DISABLE;
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiDot1asModeGet(std::uint32_t &mode) {
    mode = model_.features().dot1as ? OPEN_ENABLE : OPEN_DISABLE;
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiStpMstBridgePriorityGet(std::uint32_t instance, std::uint32_t &priority) {
    if (instance != 0)
        return OPEN_E_NOT_FOUND;
    priority = model_.features().mstPriority;
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiPtpTcIntfAdminModeSet(std::uint32_t ifNum, std::uint32_t mode) {
    auto *found = model_.edit(ifNum);
    if (found == nullptr || found->isLag() || mode > OPEN_ENABLE)
        return OPEN_E_PARAM;
    found->ptpTcEnabled = mode == OPEN_ENABLE;
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiPtpTcIntfAdminModeGet(std::uint32_t ifNum, std::uint32_t &mode) {
    const auto *found = model_.interface(ifNum);
    if (found == nullptr || found->isLag())
        return OPEN_E_NOT_FOUND;
    mode = found->ptpTcEnabled ? OPEN_ENABLE : OPEN_DISABLE;
    return OPEN_E_NONE;
}

}  // namespace vswitch
