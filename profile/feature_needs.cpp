#include "profile/feature_needs.h"

#include <algorithm>
#include <iterator>

#include "profile/avb_ports.h"
#include "profile/blocks.h"
#include "store/profile_demand.h"
#include "store/profile_template.h"
#include "store/profile_types.h"
#include "store/vlan_settings.h"

namespace pavo {
namespace {

// --- the needs

// Needs of each VLAN. One that is gone has taken its own settings with it; the blocks that also set something
// for the whole switch count all the same.
struct VlanNeed {
    VlanSet FeatureNeeds::*vlans;
    bool (*wanted)(const ProfileDemand &demand);
    bool evenWhenGone = false;
};
constexpr VlanNeed kVlanNeeds[] = {
    {&FeatureNeeds::igmpPlus, [](const ProfileDemand &d) { return d.modeA || d.modeB; }, true},
    {&FeatureNeeds::lightwareIgmp, [](const ProfileDemand &d) { return d.lightwareIgmp; }, true},
    {&FeatureNeeds::fastLeave, [](const ProfileDemand &d) { return d.fastLeave; }},
    {&FeatureNeeds::etcVlan, [](const ProfileDemand &d) { return d.etcVlan; }},
    {&FeatureNeeds::rstp, [](const ProfileDemand &d) { return d.rstp; }},
    {&FeatureNeeds::proxyQuerier, [](const ProfileDemand &d) { return d.polyProxyQuerier; }},
};

void addQos(const ProfileDemand &demand, FeatureNeeds &needs) {
    needs.qos |= demand.qos;
    needs.qosClasses.telos |= demand.qos && demand.telos;
    needs.qosClasses.gd |= demand.qos && demand.gd;
    needs.qosClasses.ptp &= !(demand.qos && demand.milanDante);
}

void addQuerier(const ProfileDemand &demand, FeatureNeeds &needs) {
    if (demand.querierInterval != 0 && demand.queryInterval)
        needs.querierInterval = needs.querierInterval == 0
                                    ? demand.querierInterval
                                    : std::min(needs.querierInterval, demand.querierInterval);
}

void addNeeds(const ProfileRow &row, VlanId id, bool exists, FeatureNeeds &needs) {
    const auto profileTemplate = loadProfileTemplate(row.profileType);
    const auto demand =
        profileDemand(row.profileType, row.vlanType, profileTemplate ? &*profileTemplate : nullptr);
    const auto settings = readVlanSettings(id);
    needs.avb |= demand.avb;
    needs.sonos |= demand.sonos;
    // The filter is that of the template's profile; a type without one never had it.
    needs.acl |= profileTemplate && demand.harmanAcl;
    needs.etcGlobal |= demand.etcGlobal;
    needs.ptpTc |= settings && settings->ptpTc.value_or(false);
    needs.macFilterSecond |= demand.macFilter && demand.gd;
    needs.macFilterVisionary |= demand.macFilter && !demand.gd;
    addQos(demand, needs);
    addQuerier(demand, needs);
    for (const auto &need : kVlanNeeds)
        if (need.wanted(demand) && (exists || need.evenWhenGone))
            (needs.*need.vlans).insert(id);
}

// --- the difference

// Runs steps until one fails; its failure is what the change returns.
class Steps {
  public:
    template <class Step>
    void when(bool wanted, Step step) {
        if (wanted && result_)
            result_ = step();
    }
    const Result<> &result() const { return result_; }

  private:
    Result<> result_;
};

struct VlanBlock {
    VlanSet FeatureNeeds::*vlans;
    AvBlock block;
};
constexpr VlanBlock kVlanBlocks[] = {
    {&FeatureNeeds::fastLeave, AvBlock::FastLeave},
    {&FeatureNeeds::etcVlan, AvBlock::EtcVlan},
    {&FeatureNeeds::proxyQuerier, AvBlock::ProxyQuerier},
    {&FeatureNeeds::lightwareIgmp, AvBlock::LightwareIgmp},
    {&FeatureNeeds::igmpPlus, AvBlock::IgmpPlus},
};

VlanSet onlyIn(const VlanSet &a, const VlanSet &b) {
    VlanSet out;
    std::set_difference(a.begin(), a.end(), b.begin(), b.end(), std::inserter(out, out.end()));
    return out;
}

std::int32_t valueOf(VlanId id) {
    return static_cast<std::int32_t>(id.number());
}

void changeVlanBlocks(Switch sw, const FeatureNeeds &from, const FeatureNeeds &to, Steps &steps) {
    for (const auto &row : kVlanBlocks) {
        const auto gone = onlyIn(from.*row.vlans, to.*row.vlans);
        for (const VlanId id : gone)
            steps.when(true, [&] { return switchBlockOff(sw, row.block, valueOf(id)); });
        auto wanted = onlyIn(to.*row.vlans, from.*row.vlans);
        // Part of a block is for the whole switch: what stays must have it back after another VLAN's
        // deletion.
        if (!gone.empty() && !(to.*row.vlans).empty())
            wanted.insert(*(to.*row.vlans).begin());
        for (const VlanId id : wanted)
            steps.when(true, [&] { return switchBlockOn(sw, row.block, valueOf(id)); });
    }
}

// True when the policy was replaced, and with it the bindings of ports are gone.
bool changeQos(Switch sw, const FeatureNeeds &from, const FeatureNeeds &to, Steps &steps) {
    steps.when(from.qos && !to.qos, [&] { return switchQosOff(sw, QosDelete::All); });
    if (!to.qos)
        return false;
    const auto &had = from.qosClasses;
    const auto &wanted = to.qosClasses;
    const bool lessTelos = had.telos && !wanted.telos, lessGd = had.gd && !wanted.gd;
    steps.when(lessTelos, [&] { return dropQosClasses(sw, {.telos = true, .ptp = wanted.ptp}); });
    steps.when(lessGd, [&] { return dropQosClasses(sw, {.gd = true, .ptp = wanted.ptp}); });
    const bool more =
        !from.qos || (wanted.telos && !had.telos) || (wanted.gd && !had.gd) || wanted.ptp != had.ptp;
    steps.when(more, [&] { return switchQosOn(sw, wanted); });
    return more || lessTelos || lessGd;
}

void changeAvb(Switch sw, const FeatureNeeds &from, const FeatureNeeds &to, bool policyReplaced,
               Steps &steps) {
    const bool ports = (from.avb || to.avb) && !readManualTrunks().empty();
    const bool comes = to.avb && !from.avb, goes = from.avb && !to.avb, stays = from.avb && to.avb;
    steps.when(goes && ports, [&] { return switchAvbPortsOff(sw, true); });
    steps.when(goes, [&] { return switchBlockOff(sw, AvBlock::Avb, to.qos ? 1 : 0); });
    steps.when(comes, [&] { return switchBlockOff(sw, AvBlock::AvbMrp); });
    // The QoS block takes the dot1p trust with it when it goes, AVB needs it on.
    const bool trustLost = stays && from.qos && !to.qos;
    steps.when(comes || trustLost, [&] { return switchBlockOn(sw, AvBlock::Avb); });
    steps.when(ports && (comes || (stays && policyReplaced)), [&] { return switchAvbPortsOn(sw, true, 0); });
    // Switching AVB on switches the transparent clock off.
    steps.when(to.ptpTc && (!from.ptpTc || comes || trustLost), [&] { return switchPtpTc(sw, true); });
    steps.when(from.ptpTc && !to.ptpTc, [&] { return switchPtpTc(sw, false); });
}

// Lighting and RSTP both set the spanning-tree mode; what stays is set again after the other went.
void changeSpanningTree(Switch sw, const FeatureNeeds &from, const FeatureNeeds &to, Steps &steps) {
    const bool etcGone = from.etcGlobal && !to.etcGlobal;
    const bool rstpGone = !from.rstp.empty() && to.rstp.empty();
    steps.when(etcGone, [&] { return switchBlockOff(sw, AvBlock::Etc); });
    steps.when(rstpGone, [&] { return switchBlockOff(sw, AvBlock::Rstp); });
    steps.when(to.etcGlobal && (!from.etcGlobal || rstpGone),
               [&] { return switchBlockOn(sw, AvBlock::Etc); });
    const auto rstp = etcGone ? to.rstp : onlyIn(to.rstp, from.rstp);
    for (const VlanId id : rstp)
        steps.when(true, [&] { return switchBlockOn(sw, AvBlock::Rstp, valueOf(id)); });
    steps.when(from.sonos && !to.sonos, [&] { return switchBlockOff(sw, AvBlock::Sonos); });
    steps.when(to.sonos && !from.sonos, [&] { return switchBlockOn(sw, AvBlock::Sonos); });
}

}  // namespace

FeatureNeeds readFeatureNeeds(std::span<const ProfileRow> rows, const SwitchState &state,
                              const VlanSet &leaving) {
    FeatureNeeds needs;
    for (const auto &row : rows) {
        const auto id = row.vlan();
        // VLAN 1 under the default profile is the factory default.
        if (!id || (*id == kDefaultVlan && row.profileType == PROFILE_TYPE_NAME_DEFAULT))
            continue;
        const bool exists = state.hasVlan(*id);
        if (exists || leaving.contains(*id))
            addNeeds(row, *id, exists, needs);
    }
    return needs;
}

Result<> switchFeatures(Switch sw, const FeatureNeeds &from, const FeatureNeeds &to) {
    Steps steps;
    changeVlanBlocks(sw, from, to, steps);
    const bool policyReplaced = changeQos(sw, from, to, steps);
    changeAvb(sw, from, to, policyReplaced, steps);
    changeSpanningTree(sw, from, to, steps);
    steps.when(from.querierInterval != 0 && to.querierInterval == 0,
               [&] { return switchBlockOff(sw, AvBlock::Querier); });
    steps.when(to.querierInterval != 0 && from.querierInterval != to.querierInterval,
               [&] { return switchBlockOn(sw, AvBlock::Querier, to.querierInterval); });
    return steps.result();
}

Result<> dropFilters(Switch sw, const FeatureNeeds &from, const FeatureNeeds &to) {
    Steps steps;
    steps.when(from.acl && !to.acl, [&] { return switchBlockOff(sw, AvBlock::Acl); });
    const auto filters = (from.macFilterVisionary && !to.macFilterVisionary ? AV_MAC_FILTER_VISIONARY : 0) |
                         (from.macFilterSecond && !to.macFilterSecond ? AV_MAC_FILTER_SECOND : 0);
    steps.when(filters != 0, [&] { return switchBlockOff(sw, AvBlock::MacFilter, filters); });
    return steps.result();
}

}  // namespace pavo
