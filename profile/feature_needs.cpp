#include "profile/feature_needs.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "common/owners.h"
#include "common/result.h"
#include "profile/blocks.h"
#include "profile/templates.h"
#include "store/profile_template.h"
#include "store/profile_types.h"

namespace {

using VlanIds = std::set<std::uint32_t>;

bool ptpTcWanted(std::int32_t vlanId) {
    const JsonPtr file(jsonFileLoad(profileVlanConfigPath(vlanId).c_str()));
    const cJSON *config = cJSON_GetObjectItemCaseSensitive(file.get(), "config");
    return cJSON_IsTrue(cJSON_GetObjectItemCaseSensitive(config, "ptpTc")) != 0;
}

// A VLAN that is gone has taken its own settings with it; the blocks that also set something for the whole
// switch count.
void addNeeds(openapiClientHandle_t *client, const VlanInfoRow &row, bool exists, FeatureNeeds *needs) {
    ProfileFeatureMask mask{};
    ProfileTypeAttributes attributes{};
    // A type without a template still has what the table says.
    profileFeatureMaskGet(client, row.id, row.profileType, row.vlanType, &mask);
    profileTypeAttrGet(row.profileType, &attributes);
    const auto has = [&](std::uint32_t bit) { return (mask.features & bit) != 0; };
    const auto id = static_cast<std::uint32_t>(row.id);
    const auto perVlan = [&](bool wanted, VlanIds *ids) {
        if (wanted)
            ids->insert(id);
    };

    needs->avb |= has(PROFILE_FEATURE_AVB);
    needs->sonos |= has(PROFILE_FEATURE_SONOS);
    needs->acl |= has(PROFILE_FEATURE_HARMAN_ACL);
    needs->etcGlobal |= attributes.etcGlobal != 0;
    needs->ptpTc |= ptpTcWanted(row.id);
    if (has(PROFILE_FEATURE_QOS)) {
        needs->qos = true;
        needs->qosTelos |= (mask.extra & PROFILE_EXTRA_TELOS) != 0;
        needs->qosGd |= (mask.extra & PROFILE_EXTRA_GD) != 0;
        needs->qosNoPtp |= (mask.extra & PROFILE_EXTRA_MILAN_DANTE) != 0;
    }
    if (has(PROFILE_FEATURE_QUERIER) && has(PROFILE_FEATURE_QUERY_INTERVAL))
        needs->querierInterval = needs->querierInterval == 0
                                     ? attributes.querierInterval
                                     : std::min(needs->querierInterval, attributes.querierInterval);
    if (attributes.macFilter != 0) {
        if (std::strcmp(row.profileType, PROFILE_TYPE_NAME_GD) == 0)
            needs->macFilterSecond = true;
        else
            needs->macFilterVisionary = true;
    }
    perVlan(attributes.modeA != 0 || attributes.modeB != 0, &needs->igmpPlus);
    perVlan(exists && attributes.fastLeave != 0, &needs->fastLeave);
    perVlan(exists && attributes.etcVlan != 0, &needs->etcVlan);
    perVlan(exists && attributes.rstp != 0, &needs->rstp);
    perVlan(attributes.lightwareIgmp != 0, &needs->lightwareIgmp);
    perVlan(exists && attributes.polyProxyQuerier != 0, &needs->proxyQuerier);
}

std::uint64_t qosFeatures(const FeatureNeeds &needs) {
    return (needs.qosTelos ? AV_QOS_TELOS : 0) | (needs.qosGd ? AV_QOS_GD : 0) |
           (needs.qosNoPtp ? AV_QOS_NO_PTP : 0);
}

// Runs steps until one fails; its code is what the change returns.
class Steps {
  public:
    template <class Step>
    void when(bool wanted, Step step) {
        if (wanted && result_ == RESULT_SUCCESS)
            result_ = step();
    }
    std::int32_t result() const { return result_; }

  private:
    std::int32_t result_ = RESULT_SUCCESS;
};

struct VlanBlock {
    VlanIds FeatureNeeds::*needs;
    AvBlock add, remove;
};
constexpr VlanBlock kVlanBlocks[] = {
    {&FeatureNeeds::fastLeave, AvBlock::FastLeaveAdd, AvBlock::FastLeaveDelete},
    {&FeatureNeeds::etcVlan, AvBlock::EtcVidAdd, AvBlock::EtcVidDelete},
    {&FeatureNeeds::proxyQuerier, AvBlock::HpPolyAdd, AvBlock::HpPolyDelete},
    {&FeatureNeeds::lightwareIgmp, AvBlock::IgmpLightwareAdd, AvBlock::IgmpLightwareDelete},
    {&FeatureNeeds::igmpPlus, AvBlock::IgmpPlusAdd, AvBlock::IgmpPlusDelete},
};

VlanIds onlyIn(const VlanIds &a, const VlanIds &b) {
    VlanIds out;
    std::set_difference(a.begin(), a.end(), b.begin(), b.end(), std::inserter(out, out.end()));
    return out;
}

void changeVlanBlocks(openapiClientHandle_t *client, const FeatureNeeds &from, const FeatureNeeds &to,
                      Steps *steps) {
    for (const auto &block : kVlanBlocks) {
        const auto gone = onlyIn(from.*block.needs, to.*block.needs);
        for (const auto id : gone)
            steps->when(true,
                        [&] { return avBlockRun(client, block.remove, static_cast<std::int32_t>(id)); });
        auto wanted = onlyIn(to.*block.needs, from.*block.needs);
        // Part of a block is for the whole switch: what stays must have it back after another VLAN's
        // deletion.
        if (!gone.empty() && !(to.*block.needs).empty())
            wanted.insert(*(to.*block.needs).begin());
        for (const auto id : wanted)
            steps->when(true, [&] { return avBlockRun(client, block.add, static_cast<std::int32_t>(id)); });
    }
}

// True when the policy was replaced, and with it the bindings of ports are gone.
bool changeQos(openapiClientHandle_t *client, const FeatureNeeds &from, const FeatureNeeds &to,
               Steps *steps) {
    steps->when(from.qos && !to.qos, [&] { return avBlockQosDelete(client, AV_QOS_DELETE_ALL); });
    if (!to.qos)
        return false;
    const bool lessTelos = from.qosTelos && !to.qosTelos, lessGd = from.qosGd && !to.qosGd;
    const auto rest = qosFeatures(to) & AV_QOS_NO_PTP;
    steps->when(lessTelos,
                [&] { return AvConfigGlobalQosDeleteProfileClass(client, 0, rest | AV_QOS_TELOS); });
    steps->when(lessGd, [&] { return AvConfigGlobalQosDeleteProfileClass(client, 0, rest | AV_QOS_GD); });
    const bool more = !from.qos || (to.qosTelos && !from.qosTelos) || (to.qosGd && !from.qosGd) ||
                      to.qosNoPtp != from.qosNoPtp;
    steps->when(more, [&] { return avBlockQosAdd(client, qosFeatures(to)); });
    return more || lessTelos || lessGd;
}

void changeAvb(openapiClientHandle_t *client, const FeatureNeeds &from, const FeatureNeeds &to,
               bool policyReplaced, Steps *steps) {
    const bool ports = (from.avb || to.avb) && !manualTrunkInterfacesGet().empty();
    const bool comes = to.avb && !from.avb, goes = from.avb && !to.avb, stays = from.avb && to.avb;
    steps->when(goes && ports, [&] { return avBlockMrpCleanup(client, true); });
    steps->when(
        goes, [&] { return avBlockRun(client, to.qos ? AvBlock::AvbDeleteKeepTrust : AvBlock::AvbDelete); });
    steps->when(comes, [&] { return avBlockRun(client, AvBlock::AvbMrpPreDisable); });
    // The QoS block takes the dot1p trust with it when it goes, AVB needs it on.
    const bool trustLost = stays && from.qos && !to.qos;
    steps->when(comes || trustLost, [&] { return avBlockRun(client, AvBlock::AvbAdd); });
    steps->when(ports && (comes || (stays && policyReplaced)),
                [&] { return avBlockMrpPostEnable(client, true, 0); });
    // Switching AVB on switches the transparent clock off.
    steps->when(to.ptpTc && (!from.ptpTc || comes || trustLost),
                [&] { return avBlockPtpTcSet(client, true); });
    steps->when(from.ptpTc && !to.ptpTc, [&] { return avBlockPtpTcSet(client, false); });
}

// Lighting and RSTP both set the spanning-tree mode; what stays is set again after the other went.
void changeSpanningTree(openapiClientHandle_t *client, const FeatureNeeds &from, const FeatureNeeds &to,
                        Steps *steps) {
    const bool etcGone = from.etcGlobal && !to.etcGlobal;
    const bool rstpGone = !from.rstp.empty() && to.rstp.empty();
    steps->when(etcGone, [&] { return avBlockRun(client, AvBlock::EtcDelete); });
    steps->when(rstpGone, [&] { return avBlockRun(client, AvBlock::RstpDelete); });
    steps->when(to.etcGlobal && (!from.etcGlobal || rstpGone),
                [&] { return avBlockRun(client, AvBlock::EtcAdd); });
    const auto rstp = etcGone ? to.rstp : onlyIn(to.rstp, from.rstp);
    for (const auto id : rstp)
        steps->when(true,
                    [&] { return avBlockRun(client, AvBlock::RstpAdd, static_cast<std::int32_t>(id)); });
    steps->when(from.sonos && !to.sonos, [&] { return avBlockRun(client, AvBlock::SonosDelete); });
    steps->when(to.sonos && !from.sonos, [&] { return avBlockRun(client, AvBlock::SonosAdd); });
}

}  // namespace

FeatureNeeds featureNeedsGet(openapiClientHandle_t *client, std::span<const VlanInfoRow> rows,
                             const SwitchState &state, const std::set<std::int32_t> &leaving) {
    FeatureNeeds needs;
    for (const auto &row : rows) {
        // VLAN 1 under the default profile is the switch as it comes.
        const bool factory = row.id == 1 && std::strcmp(row.profileType, PROFILE_TYPE_NAME_DEFAULT) == 0;
        const bool exists = state.hasVlan(static_cast<std::uint32_t>(row.id));
        if (!factory && (exists || leaving.contains(row.id)))
            addNeeds(client, row, exists, &needs);
    }
    return needs;
}

std::int32_t featureNeedsChange(openapiClientHandle_t *client, const FeatureNeeds &from,
                                const FeatureNeeds &to) {
    Steps steps;
    changeVlanBlocks(client, from, to, &steps);
    const bool policyReplaced = changeQos(client, from, to, &steps);
    changeAvb(client, from, to, policyReplaced, &steps);
    changeSpanningTree(client, from, to, &steps);
    steps.when(from.querierInterval != 0 && to.querierInterval == 0,
               [&] { return avBlockRun(client, AvBlock::QuerierDelete); });
    steps.when(to.querierInterval != 0 && from.querierInterval != to.querierInterval,
               [&] { return avBlockRun(client, AvBlock::QuerierAdd, to.querierInterval); });
    return steps.result();
}

std::int32_t featureNeedsRemoveFilters(openapiClientHandle_t *client, const FeatureNeeds &from,
                                       const FeatureNeeds &to) {
    Steps steps;
    steps.when(from.acl && !to.acl, [&] { return avBlockRun(client, AvBlock::AclDelete); });
    const auto macFilter = (from.macFilterVisionary && !to.macFilterVisionary ? AV_MAC_FILTER_VISIONARY : 0) |
                           (from.macFilterSecond && !to.macFilterSecond ? AV_MAC_FILTER_SECOND : 0);
    steps.when(macFilter != 0, [&] { return avBlockRun(client, AvBlock::MacFilterDelete, macFilter); });
    return steps.result();
}
