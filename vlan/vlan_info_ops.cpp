// Base info and port assignment of VLANs, and full details of them put together.
#include "vlan/vlan_info_ops.h"

#include <algorithm>
#include <span>
#include <utility>

#include "common/json.h"
#include "common/log.h"
#include "common/text.h"
#include "store/profile_db.h"
#include "store/shure_config.h"
#include "vlan/ip_interfaces.h"
#include "vlan/shure_ports.h"
#include "vlan/vlan_members.h"
#include "vlan/vlan_picture.h"
#include "vlan/vlan_records.h"

namespace pavo {
namespace {

// Of a profile name in the record of a single VLAN.
constexpr std::size_t kProfileNameMax = 63;
// Roles of the VLANs of the Shure ecosystem.
constexpr std::uint32_t kShureControl = 2;
constexpr std::uint32_t kShureAudio = 3;

constexpr std::int32_t kSuccess = codeOf(ResultCode::Success);
constexpr std::int32_t kFailed = codeOf(ResultCode::Failed);
constexpr std::int32_t kNoMemory = codeOf(ResultCode::InvalidPointer);

void fillBase(VLAN_INFO_T &info, const VlanPicture &picture) {
    info.vlanId = info.profile.vlanId = picture.id.number();
    info.exists = 1;
    copyText(info.name, picture.name);
    copyText(info.color, picture.color);
    info.isMgmtVlan = picture.isManagement ? 1 : 0;
    info.isStatic = picture.isStatic ? 1 : 0;
    info.ptpTc = !picture.ptpTc ? VLAN_PTP_TC_UNKNOWN : *picture.ptpTc ? VLAN_PTP_TC_ON : VLAN_PTP_TC_OFF;
    info.profileType = info.profile.profileType = picture.vlanType;
    copyText(info.profile.profileName, picture.profileType);
}

double numberOf(double number) {
    return number;
}
double numberOf(IfNum ifNum) {
    return ifNum.number();
}

// 0; 10002 (logged) when memory runs out.
template <class Number>
std::int32_t appendAll(cJSON *array, const std::vector<Number> &numbers, const Where &where) {
    if (std::ranges::all_of(numbers, [&](Number number) { return appendNumber(array, numberOf(number)); }))
        return kSuccess;
    logError(where, "[%s:%d] Failed to allocate memory\r\n");
    return kNoMemory;
}

std::int32_t appendPorts(cJSON *tagged, cJSON *untagged, const VlanMembers &members, const Where &where) {
    const std::int32_t result = appendAll(tagged, members.taggedPorts, where);
    return result == kSuccess ? appendAll(untagged, members.untaggedPorts, where) : result;
}

std::int32_t appendLags(cJSON *tagged, cJSON *untagged, const VlanMembers &members, const Where &where) {
    const std::int32_t result = appendAll(tagged, members.taggedLags, where);
    return result == kSuccess ? appendAll(untagged, members.untaggedLags, where) : result;
}

// False (logged) when memory runs out.
bool addPortRecord(VLAN_PORT_LIST_T &list, std::uint32_t vlanId, const Where &where) {
    if (appendRecord(list, vlanId, makeRecordWithArrays<VLAN_PORT_ASS_T>()) != nullptr)
        return true;
    logError(where, "[%s:%d] Failed to allocate VLAN_PORT_ASS_T for VLAN %u\r\n", vlanId);
    return false;
}

// Puts every port and LAG into the records of its VLANs.
std::int32_t fillPortRecords(Switch sw, LagNumbering numbering, const VLAN_PORT_LIST_T &list,
                             const Where &where) {
    MemberCollector collector(MemberCollector::Strays::InFirstSlot);
    for (const VLAN_PORT_ASS_T *const record : std::span(list.ids, list.count))
        collector.addSlot(VlanId::from(record->vlanId));
    collector.collectPorts(sw, where);
    collector.collectLags(sw, numbering, where);
    std::int32_t result = kSuccess;
    for (std::uint32_t i = 0; i < list.count && result == kSuccess; ++i) {
        const VLAN_PORT_ASS_T &record = *list.ids[i];
        result = appendPorts(record.tagPorts, record.untagPorts, collector.slot(i), where);
        if (result == kSuccess)
            result = appendLags(record.tagLags, record.untagLags, collector.slot(i), where);
    }
    return result;
}

// In the order of vlanPortArrays().
constexpr std::array<LogFormat<std::uint32_t>, 6> kCannotDuplicate = {
    "[%s:%d] Failed to duplicate tagPorts for VLAN %d\r\n",
    "[%s:%d] Failed to duplicate untagPorts for VLAN %d\r\n",
    "[%s:%d] Failed to duplicate tagLags for VLAN %d\r\n",
    "[%s:%d] Failed to duplicate untagLags for VLAN %d\r\n",
    "[%s:%d] Failed to duplicate shureDevicePorts for VLAN %d\r\n",
    "[%s:%d] Failed to duplicate shureLearnPorts for VLAN %d\r\n"};

// All six arrays or none.
bool copyArrays(VLAN_INFO_T &info, VLAN_PORT_ASS_T &ports, const Where &where) {
    const auto from = vlanPortArrays(ports);
    const auto to = vlanPortArrays(info);
    std::array<JsonPtr, from.size()> copies;
    for (std::size_t i = 0; i < copies.size(); ++i) {
        copies[i].reset(cJSON_Duplicate(*from[i], true));
        if (copies[i] == nullptr) {
            logError(where, kCannotDuplicate[i], info.vlanId);
            return false;
        }
    }
    for (std::size_t i = 0; i < copies.size(); ++i)
        *to[i] = copies[i].release();
    return true;
}

// The Shure arrays of a VLAN of that ecosystem.
std::int32_t fillShureArrays(Switch sw, const VLAN_INFO_T &info, const Where &where) {
    if (info.profileType != kShureControl && info.profileType != kShureAudio)
        return kSuccess;
    const std::vector<std::int32_t> listed = readShureDevicePorts();
    const std::int32_t result = appendAll(info.shureDevicePorts, listed, where);
    if (result != kSuccess || info.profileType != kShureAudio)
        return result;
    return appendAll(info.shureLearnPorts, readShureNeighbourPorts(sw, listed), where);
}

}  // namespace

// --- one VLAN

std::int32_t vlanBaseInfoGet(Switch sw, std::uint32_t vlanId, VLAN_INFO_T *info) {
    info->vlanId = vlanId;
    info->exists = 0;
    const auto id = VlanId::from(vlanId);
    if (!id)
        return kSuccess;
    VlanPicture unread;  // of a VLAN that is there but could not be read
    unread.id = *id;
    const auto base = readVlanBase(sw, *id);
    std::optional<VlanPicture> picture = base.value_or(unread);
    if (!picture)
        return kSuccess;
    picture->profileType.resize(std::min(picture->profileType.size(), kProfileNameMax));
    fillBase(*info, *picture);
    return codeOf(base);
}

std::int32_t vlanAssInfoGet(Switch sw, std::uint32_t vlanId, cJSON *tagPorts, cJSON *untagPorts,
                            cJSON *tagLags, cJSON *untagLags) {
    const Where where = std::source_location::current();
    MemberCollector collector(MemberCollector::Strays::Dropped);
    collector.addSlot(VlanId::from(vlanId));
    collector.collectPorts(sw, where);
    const std::int32_t result = appendPorts(tagPorts, untagPorts, collector.slot(0), where);
    if (result != kSuccess)
        return result;
    const auto numbering = readLagNumbering(sw, where);
    if (!numbering)
        return codeOf(numbering);
    collector.collectLags(sw, *numbering, where);
    return appendLags(tagLags, untagLags, collector.slot(0), where);
}

std::int32_t vlanAllInfoGet(Switch sw, std::uint32_t vlanId, bool withShure, VLAN_INFO_T *info) {
    if (vlanBaseInfoGet(sw, vlanId, info) != kSuccess) {
        logError("[%s:%d] Failed to get VLAN %u base info\r\n", vlanId);
        return kFailed;
    }
    if (vlanAssInfoGet(sw, vlanId, info->tagPorts, info->untagPorts, info->tagLags, info->untagLags) !=
        kSuccess) {
        logError("[%s:%d] Failed to get VLAN %u port assigned info\r\n", vlanId);
        return kFailed;
    }
    if (vlanProfileDetailGet(sw, vlanId, &info->profile) != kSuccess) {
        logError("[%s:%d] Failed to get VLAN %u profile info\r\n", vlanId);
        return kFailed;
    }
    return withShure ? fillShureArrays(sw, *info, std::source_location::current()) : kSuccess;
}

std::int32_t vlanAllInfoCreate(Switch sw, std::uint32_t vlanId, bool withShure, VLAN_INFO_T **info) {
    *info = makeRecordWithArrays<VLAN_INFO_T>().release();
    if (*info != nullptr)
        return vlanAllInfoGet(sw, vlanId, withShure, *info);
    logError("[%s:%d] Failed to allocate VLAN_INFO_T for VLAN %u\r\n", vlanId);
    return kNoMemory;
}

std::int32_t lagMembersJsonArrayGet(Switch sw, std::uint32_t lagIfNum, cJSON *array) {
    const auto members = readLagMembers(sw, IfNum(lagIfNum));
    return members ? appendAll(array, *members, std::source_location::current()) : codeOf(members);
}

// --- every VLAN

std::int32_t vlanListPortAssGet(Switch sw, VLAN_PORT_LIST_T *list) {
    const Where where = std::source_location::current();
    const auto numbering = readLagNumbering(sw, where);
    if (!numbering)
        return codeOf(numbering);
    for (const VlanId id : sw.vlans())
        if (!addPortRecord(*list, id.number(), where))
            return kNoMemory;
    return fillPortRecords(sw, *numbering, *list, where);
}

std::int32_t vlanListPortAssGetFromVlanList(Switch sw, VLAN_PORT_LIST_T *list,
                                            const VLAN_INFOX_LIST_T *viList) {
    const Where where = std::source_location::current();
    const auto numbering = readLagNumbering(sw, where);
    if (!numbering)
        return codeOf(numbering);
    for (std::uint32_t i = 0; i < viList->count; ++i) {
        if (viList->ids[i] == nullptr) {
            logError("[%s:%d] viList->ids[%u] is NULL - data corruption\r\n", i);
            return kNoMemory;
        }
        if (!addPortRecord(*list, viList->ids[i]->vlanId, where))
            return kNoMemory;
    }
    return fillPortRecords(sw, *numbering, *list, where);
}

std::int32_t vlanListPortAssCreate(Switch sw, VLAN_PORT_LIST_T **list) {
    *list = makeRecord<VLAN_PORT_LIST_T>().release();
    if (*list != nullptr)
        return vlanListPortAssGet(sw, *list);
    logError("[%s:%d] Failed to allocate VLAN_PORT_LIST_T\r\n");
    return kNoMemory;
}

std::int32_t vlanListBaseInfoGetEX(Switch sw, VLAN_INFOX_LIST_T *list) {
    for (const VlanPicture &picture : readVlanBases(sw)) {
        VLAN_INFO_T *const info = appendRecord(*list, picture.id.number(), makeRecord<VLAN_INFO_T>());
        if (info == nullptr) {
            logError("[%s:%d] Failed to allocate VLAN_INFO_T for VLAN %u\r\n", picture.id);
            return kNoMemory;
        }
        fillBase(*info, picture);
    }
    return kSuccess;
}

std::int32_t vlanListBaseInfoCreateEX(Switch sw, VLAN_INFOX_LIST_T **list) {
    *list = makeRecord<VLAN_INFOX_LIST_T>().release();
    if (*list != nullptr)
        return vlanListBaseInfoGetEX(sw, *list);
    logError("[%s:%d] Failed to allocate VLAN_INFOX_LIST_T\r\n");
    return kNoMemory;
}

std::int32_t vlanListAllInfoGetEX(Switch sw, VLAN_INFOX_LIST_T *list) {
    const Where where = std::source_location::current();
    if (const std::int32_t result = vlanListBaseInfoGetEX(sw, list); result != kSuccess)
        return result;
    const auto ports = makeRecord<VLAN_PORT_LIST_T>();
    if (ports == nullptr) {
        logError("[%s:%d] Failed to allocate VLAN_PORT_LIST_T\r\n");
        return kNoMemory;
    }
    if (const std::int32_t result = vlanListPortAssGetFromVlanList(sw, ports.get(), list); result != kSuccess)
        return result;
    for (VLAN_INFO_T *const info : std::span(list->ids, list->count))
        if (!copyArrays(*info, *ports->ids[ports->position[info->vlanId]], where))
            return kFailed;
    return kSuccess;
}

std::int32_t vlanListAllInfoCreateEX(Switch sw, VLAN_INFOX_LIST_T **list) {
    *list = nullptr;
    auto created = makeRecord<VLAN_INFOX_LIST_T>();
    if (created == nullptr) {
        logError("[%s:%d] Failed to allocate VLAN_INFOX_LIST_T\r\n");
        return kNoMemory;
    }
    const std::int32_t result = vlanListAllInfoGetEX(sw, created.get());
    if (result == kSuccess)
        *list = created.release();
    return result;
}

std::int32_t vlanListRoutingInfoGet(Switch sw, VLAN_ROUTING_INFO_T *table) {
    std::fill_n(table, VLAN_TABLE_SIZE, VLAN_ROUTING_INFO_T{});
    const auto interfaces = readIpInterfaces(sw);
    if (!interfaces)
        return codeOf(interfaces);
    for (const IpInterface &interface : *interfaces) {
        VLAN_ROUTING_INFO_T &routing = table[interface.vlan.number()];
        routing.vlanId = interface.vlan.number();
        routing.ipConfig = static_cast<std::uint32_t>(interface.method);
        copyText(routing.ipAddr, interface.address);
        copyText(routing.ipMask, interface.mask);
    }
    return kSuccess;
}

}  // namespace pavo
