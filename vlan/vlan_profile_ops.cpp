// Profile features of VLANs as bits.
#include <span>
#include <vector>

#include "common/log.h"
#include "common/text.h"
#include "platform/paths.h"
#include "store/profile_db.h"
#include "vlan/show_vlan.h"
#include "vlan/vlan_info_ops.h"
#include "vlan/vlan_profile.h"
#include "vlan/vlan_records.h"

namespace pavo {
namespace {

using Demand = ProfileDemand;
using Attributes = ProfileTypeAttributes;

// Which bits of a row the quick scan sets.
enum class Quick { None, Feature, Both };

struct DemandBit {
    std::uint32_t bit;
    Quick quick;
    bool Demand::*feature;
    bool Demand::*specified = nullptr;  // null: sets no specified bit
};

constexpr DemandBit kDemandBits[] = {
    {VLAN_PROFILE_PTP, Quick::Feature, &Demand::ptpTc},
    {VLAN_PROFILE_AVB, Quick::Both, &Demand::avb, &Demand::avb},
    {VLAN_PROFILE_FLOW_CONTROL, Quick::Both, &Demand::flowControl, &Demand::flowControlStated},
    {VLAN_PROFILE_POE, Quick::None, &Demand::poe, &Demand::poe},
    {VLAN_PROFILE_QUERY_INTERVAL, Quick::None, &Demand::queryInterval, &Demand::queryInterval},
    {VLAN_PROFILE_MTU, Quick::None, &Demand::mtuOff},
    {VLAN_PROFILE_STORM_OFF, Quick::None, &Demand::stormOff, &Demand::stormOff},
    {VLAN_PROFILE_QOS, Quick::None, &Demand::qos, &Demand::qos},
    {VLAN_PROFILE_SONOS, Quick::Feature, &Demand::sonos, &Demand::sonos},
    {VLAN_PROFILE_LLDP_OFF, Quick::None, &Demand::lldpOff, &Demand::lldpOff},
    {VLAN_PROFILE_ISDP_OFF, Quick::None, &Demand::isdpOff, &Demand::isdpOff},
    {VLAN_PROFILE_STP_OFF, Quick::None, &Demand::stpOff, &Demand::stpOff},
    {VLAN_PROFILE_PTP_BC, Quick::Both, &Demand::ptpBoundaryClock, &Demand::ptpBoundaryClock},
};

// The specified bits of the parameters, in the order of the entry.
constexpr struct {
    std::uint32_t bit;
    std::int32_t Attributes::*attribute;
} kParameterBits[] = {
    {VLAN_PROFILE_MTU, &Attributes::mtu},   {1u << 4, &Attributes::modeA},
    {1u << 15, &Attributes::modeB},         {1u << 16, &Attributes::polyProxyQuerier},
    {1u << 17, &Attributes::lightwareIgmp}, {1u << 18, &Attributes::querierInterval},
    {1u << 19, &Attributes::fastLeave},     {1u << 20, &Attributes::harmanAcl},
    {1u << 21, &Attributes::etcVlan},       {1u << 22, &Attributes::etcGlobal},
    {1u << 23, &Attributes::rstp},          {1u << 24, &Attributes::macFilter},
    {1u << 25, &Attributes::pairA},         {1u << 26, &Attributes::pairB},
};

enum class View { Full, Quick };

void fillBits(VLAN_PROFILE_INFO_T &record, const VlanProfile &profile, View view) {
    std::uint32_t features = 0;
    for (const DemandBit &row : kDemandBits) {
        if ((view == View::Full || row.quick != Quick::None) && profile.demand.*row.feature)
            features |= row.bit;
        if ((view == View::Full || row.quick == Quick::Both) && row.specified != nullptr &&
            profile.demand.*row.specified)
            record.specified |= row.bit;
    }
    for (const auto &row : kParameterBits)
        if (profile.attributes.*row.attribute != 0)
            record.specified |= row.bit;
    record.features = static_cast<std::uint16_t>(features);
    if (profile.demand.milan)
        record.avbKind = VLAN_AVB_MILAN;
    if (profile.demand.milanDante)
        record.avbKind = VLAN_AVB_MILAN_DANTE;
}

// Into a fresh record.
void fill(VLAN_PROFILE_INFO_T &record, const VlanProfile &profile, View view) {
    record.profileType = profile.vlanType;
    record.parameters = profile.attributes;
    if (!profile.profileType.empty()) {
        copyText(record.profileName, profile.profileType);
        copyText(record.templatePath, platform::paths::kProfileTemplateDir + profile.profileType);
    }
    fillBits(record, profile, view);
    if (profile.ptpTc) {
        record.specified |= VLAN_PROFILE_PTP;
        record.ptpTc = *profile.ptpTc ? VLAN_PROFILE_PTP_TC_ON : VLAN_PROFILE_PTP_TC_OFF;
    }
}

// 0; 10002 (logged) when memory runs out.
std::int32_t addRecord(VLAN_PROFILE_LIST_T &list, std::uint32_t vlanId, const Where &where) {
    if (appendRecord(list, vlanId, makeRecord<VLAN_PROFILE_INFO_T>()) != nullptr)
        return codeOf(ResultCode::Success);
    logError(where, "[%s:%d] Failed to allocate VLAN_PROFILE_INFO_T for VLAN %u\r\n", vlanId);
    return codeOf(ResultCode::InvalidPointer);
}

}  // namespace

std::int32_t vlanProfileDetailGet(Switch, std::uint32_t vlanId, VLAN_PROFILE_INFO_T *profile) {
    profile->vlanId = vlanId;
    const auto row = readProfileRow(static_cast<std::int32_t>(vlanId)).value_or(std::nullopt);
    if (row)
        copyText(profile->profileName, row->profileType);
    else
        logError("[%s:%d] Vlan %d get info from sqlite failed\r\n", static_cast<int>(vlanId));
    return codeOf(ResultCode::Success);
}

std::int32_t vlanListProfileInfoGetEX(Switch sw, VLAN_PROFILE_LIST_T *list) {
    const Where where = std::source_location::current();
    std::vector<VlanId> ids;
    for (const VlanId id : sw.vlans()) {
        ids.push_back(id);
        if (const std::int32_t result = addRecord(*list, id.number(), where); result != 0)
            return result;
    }
    const auto profiles = readVlanProfiles(ids, where);
    if (!profiles)
        return codeOf(profiles);
    for (std::size_t i = 0; i < ids.size(); ++i)
        fill(*list->ids[i], (*profiles)[i], View::Full);
    return codeOf(ResultCode::Success);
}

std::int32_t vlanListProfileCreateEX(Switch sw, VLAN_PROFILE_LIST_T **list) {
    *list = makeRecord<VLAN_PROFILE_LIST_T>().release();
    if (*list != nullptr)
        return vlanListProfileInfoGetEX(sw, *list);
    logError("[%s:%d] Failed to allocate VLAN_PROFILE_LIST_T\r\n");
    return codeOf(ResultCode::InvalidPointer);
}

std::int32_t vlanListProfileCreateFastEX(Switch sw, VLAN_PROFILE_LIST_T **list) {
    const Where where = std::source_location::current();
    *list = makeRecord<VLAN_PROFILE_LIST_T>().release();
    if (*list == nullptr) {
        logError("[%s:%d] Memory error\r\n");
        return codeOf(ResultCode::InvalidPointer);
    }
    const auto shown = sw.show("show vlan", platform::paths::kVlanShowProfileFast, where, kCannotOpenCapture);
    if (!shown)
        return codeOf(ResultCode::Failed);
    const std::vector<std::uint32_t> numbers = parseShowVlan(*shown, VLAN_TABLE_SIZE);
    const std::vector<VlanProfile> profiles = scanVlanProfiles(numbers, where);
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        if (const std::int32_t result = addRecord(**list, numbers[i], where); result != 0)
            return result;
        fill(*(*list)->ids[i], profiles[i], View::Quick);
    }
    return codeOf(ResultCode::Success);
}

}  // namespace pavo
