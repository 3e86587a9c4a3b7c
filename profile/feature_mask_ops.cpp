#include "profile/feature_mask_ops.h"

#include <string_view>

#include "store/vlan_settings.h"

namespace pavo {
namespace {

using Demand = ProfileDemand;

struct Row {
    std::uint32_t bit;
    bool (*wanted)(const Demand &demand);
};

constexpr Row kFeatures[] = {
    {PROFILE_FEATURE_PTP_TC, [](const Demand &d) { return d.ptpTc; }},
    {PROFILE_FEATURE_AVB, [](const Demand &d) { return d.avb; }},
    {PROFILE_FEATURE_FLOW_CONTROL, [](const Demand &d) { return d.flowControlStated; }},
    {PROFILE_FEATURE_POE, [](const Demand &d) { return d.poe; }},
    {PROFILE_FEATURE_QUERY_INTERVAL, [](const Demand &d) { return d.queryInterval; }},
    {PROFILE_FEATURE_STORM_OFF, [](const Demand &d) { return d.stormOff; }},
    {PROFILE_FEATURE_QOS, [](const Demand &d) { return d.qos; }},
    {PROFILE_FEATURE_SONOS, [](const Demand &d) { return d.sonos; }},
    {PROFILE_FEATURE_LLDP_OFF, [](const Demand &d) { return d.lldpOff; }},
    {PROFILE_FEATURE_ISDP_OFF, [](const Demand &d) { return d.isdpOff; }},
    {PROFILE_FEATURE_STP_OFF, [](const Demand &d) { return d.stpOff; }},
    {PROFILE_FEATURE_PTP_BC, [](const Demand &d) { return d.ptpBoundaryClock; }},

    {PROFILE_FEATURE_MODE_A, [](const Demand &d) { return d.modeA; }},
    {PROFILE_FEATURE_MTU, [](const Demand &d) { return d.mtu != 0; }},
    {PROFILE_FEATURE_POLY_PROXY_QUERIER, [](const Demand &d) { return d.polyProxyQuerier; }},
    {PROFILE_FEATURE_LIGHTWARE_IGMP, [](const Demand &d) { return d.lightwareIgmp; }},
    {PROFILE_FEATURE_FAST_LEAVE, [](const Demand &d) { return d.fastLeave; }},
    {PROFILE_FEATURE_QUERIER, [](const Demand &d) { return d.querierInterval != 0; }},
    {PROFILE_FEATURE_HARMAN_ACL, [](const Demand &d) { return d.harmanAcl; }},
    {PROFILE_FEATURE_ETC_VLAN, [](const Demand &d) { return d.etcVlan; }},
    {PROFILE_FEATURE_ETC_GLOBAL, [](const Demand &d) { return d.etcGlobal; }},
    {PROFILE_FEATURE_MODE_B, [](const Demand &d) { return d.modeB; }},
    {PROFILE_FEATURE_RSTP, [](const Demand &d) { return d.rstp; }},
    {PROFILE_FEATURE_MAC_FILTER, [](const Demand &d) { return d.macFilter; }},
    {PROFILE_FEATURE_PAIR_A_LOW, [](const Demand &d) { return d.pairALow; }},
    {PROFILE_FEATURE_PAIR_A_HIGH, [](const Demand &d) { return d.pairAHigh; }},
    {PROFILE_FEATURE_PAIR_B_LOW, [](const Demand &d) { return d.pairBLow; }},
};

constexpr Row kExtras[] = {
    {PROFILE_EXTRA_TELOS, [](const Demand &d) { return d.telos; }},
    {PROFILE_EXTRA_GD, [](const Demand &d) { return d.gd; }},
    {PROFILE_EXTRA_PAIR_B_HIGH, [](const Demand &d) { return d.pairBHigh; }},
    {PROFILE_EXTRA_MILAN, [](const Demand &d) { return d.milan; }},
    {PROFILE_EXTRA_MILAN_DANTE, [](const Demand &d) { return d.milanDante; }},
};

// The settings file of a VLAN states its PTP transparent clock, on or off.
bool statesPtpTc(std::int32_t vlanId) {
    const auto id = VlanId::from(vlanId);
    const auto settings = id ? readVlanSettings(*id) : std::nullopt;
    return settings && settings->ptpTc;
}

}  // namespace

ProfileFeatureMask featureMaskOf(const ProfileDemand &demand) {
    ProfileFeatureMask mask{};
    for (const auto &row : kFeatures)
        mask.features |= row.wanted(demand) ? row.bit : 0;
    for (const auto &row : kExtras)
        mask.extra = static_cast<std::uint8_t>(mask.extra | (row.wanted(demand) ? row.bit : 0));
    return mask;
}

std::int32_t profileFeatureMaskGet(Switch, std::int32_t vlanId, const char *typeName, std::int32_t vlanType,
                                   ProfileFeatureMask *mask) {
    *mask = {};
    const std::string_view type = typeName != nullptr ? typeName : "";
    const auto profileTemplate = loadProfileTemplate(type);
    if (!profileTemplate)
        return codeOf(ResultCode::Failed);
    *mask = featureMaskOf(profileDemand(type, vlanType, &*profileTemplate));
    if ((mask->features & PROFILE_FEATURE_PTP_BC) != 0)
        mask->vlanId = vlanId;
    if (statesPtpTc(vlanId))
        mask->features |=
            PROFILE_FEATURE_PTP_TC | (type == PROFILE_TYPE_NAME_UNITE ? PROFILE_FEATURE_FLOW_CONTROL : 0u);
    return codeOf(ResultCode::Success);
}

}  // namespace pavo
