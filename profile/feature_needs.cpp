#include "profile/feature_needs.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "common/log_format.h"
#include "profile/avb_ports.h"
#include "profile/blocks.h"
#include "store/profile_demand.h"
#include "store/profile_template.h"
#include "store/profile_types.h"

namespace pavo {
namespace {

// --- the needs

// Needs of each VLAN.
struct VlanNeed {
    VlanSet FeatureNeeds::*vlans;
    bool (*wanted)(const ProfileDemand &demand);
};
constexpr VlanNeed kVlanNeeds[] = {
    {&FeatureNeeds::igmpPlus, [](const ProfileDemand &d) { return d.modeA || d.modeB; }},
    {&FeatureNeeds::lightwareIgmp, [](const ProfileDemand &d) { return d.lightwareIgmp; }},
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

void addNeeds(const PlacedVlan &placed, FeatureNeeds &needs) {
    const auto &vlan = placed.vlan;
    const auto profileTemplate = loadProfileTemplate(vlan.profileType);
    const auto demand =
        profileDemand(vlan.profileType, vlan.vlanType, profileTemplate ? &*profileTemplate : nullptr);
    needs.avb |= demand.avb;
    needs.sonos |= demand.sonos;
    // The filter is that of the template's profile; a type without one never had it.
    needs.acl |= profileTemplate && demand.harmanAcl;
    needs.etcGlobal |= demand.etcGlobal;
    const auto &ptpTc = placed.profile->request.ptpTc;
    needs.ptpTc |= ptpTc.value_or(false);
    needs.ptpTcOff |= ptpTc && !*ptpTc;
    needs.macFilterSecond |= demand.macFilter && demand.gd;
    needs.macFilterVisionary |= demand.macFilter && !demand.gd;
    addQos(demand, needs);
    addQuerier(demand, needs);
    for (const auto &need : kVlanNeeds)
        if (need.wanted(demand))
            (needs.*need.vlans).insert(vlan.id);
}

// VLAN 1 under the default profile is the factory default; a partner's VLAN has the features of its owner.
bool isProfileVlan(const PlacedVlan &placed) {
    return !placed.shared &&
           (placed.vlan.id != kDefaultVlan || placed.vlan.profileType != PROFILE_TYPE_NAME_DEFAULT);
}

// --- needs that exclude each other

// What cannot be on beside something else; the profile that was applied last has its way.
struct Exclusion {
    const char *feature;
    bool (*wanted)(const FeatureNeeds &needs);
    void (*drop)(FeatureNeeds &needs);
};
constexpr Exclusion kExclusive[][2] = {
    {{kLossDot1as, [](const FeatureNeeds &n) { return n.avb; }, [](FeatureNeeds &n) { n.avb = false; }},
     {kLossPtpTc, [](const FeatureNeeds &n) { return n.ptpTc; }, [](FeatureNeeds &n) { n.ptpTc = false; }}},
    {{"spanning tree of lighting", [](const FeatureNeeds &n) { return n.etcGlobal; },
      [](FeatureNeeds &n) { n.etcGlobal = false; }},
     {"rapid per-VLAN spanning tree", [](const FeatureNeeds &n) { return !n.rstp.empty(); },
      [](FeatureNeeds &n) { n.rstp.clear(); }}},
};

// What `needs` says of the profile that was applied last and wants one of two.
std::string lastWith(const Standing &standing, bool (*wanted)(const FeatureNeeds &)) {
    std::string name;
    for (const auto &placed : standing.vlans) {
        FeatureNeeds own;
        if (isProfileVlan(placed)) {
            addNeeds(placed, own);
            if (wanted(own))
                name = placed.profile->request.name;
        }
    }
    return name;
}

std::size_t placeOf(const Standing &standing, const std::string &name) {
    std::size_t place = 0;
    for (std::size_t i = 0; i < standing.vlans.size(); ++i)
        if (standing.vlans[i].profile->request.name == name)
            place = i + 1;
    return place;
}

void exclude(const Standing &standing, FeatureNeeds &needs, std::vector<Loss> *losses) {
    for (const auto &pair : kExclusive) {
        if (!pair[0].wanted(needs) || !pair[1].wanted(needs))
            continue;
        const std::string names[] = {lastWith(standing, pair[0].wanted), lastWith(standing, pair[1].wanted)};
        // A profile that wants both gets the first.
        const bool firstStays = placeOf(standing, names[0]) >= placeOf(standing, names[1]);
        const auto &loser = pair[firstStays ? 1 : 0];
        loser.drop(needs);
        if (losses != nullptr)
            losses->push_back({names[firstStays ? 1 : 0], loser.feature, names[firstStays ? 0 : 1]});
    }
}

// --- blocks

struct VlanBlock {
    VlanSet FeatureNeeds::*vlans;
    AvBlock block;
    const char *name;
};
constexpr VlanBlock kVlanBlocks[] = {
    {&FeatureNeeds::fastLeave, AvBlock::FastLeave, "fast-leave"},
    {&FeatureNeeds::etcVlan, AvBlock::EtcVlan, "lighting VLAN"},
    {&FeatureNeeds::proxyQuerier, AvBlock::ProxyQuerier, "proxy querier"},
    {&FeatureNeeds::lightwareIgmp, AvBlock::LightwareIgmp, "Lightware IGMP"},
    {&FeatureNeeds::igmpPlus, AvBlock::IgmpPlus, "IGMP Plus"},
};

FeatureBlock blockOf(std::string name, AvBlock block, std::int32_t onValue, std::int32_t offValue) {
    return {std::move(name), blockWrites(block, true, onValue), blockWrites(block, false, offValue),
            [=](Switch sw) { return switchBlockOn(sw, block, onValue); },
            [=](Switch sw) { return switchBlockOff(sw, block, offValue); }};
}

FeatureBlock qosBlockOf(const FeatureNeeds &needs, const FeatureNeeds &other) {
    const auto wanted = needs.qosClasses;
    const auto had = other.qos ? other.qosClasses : QosClasses{};
    return {"QoS", qosWrites(wanted), qosOffWrites(),
            [=](Switch sw) -> Result<> {
                const bool lessTelos = had.telos && !wanted.telos, lessGd = had.gd && !wanted.gd;
                const bool more = !lessTelos && !lessGd;
                if (lessTelos)
                    if (auto done = dropQosClasses(sw, {.telos = true, .ptp = wanted.ptp}); !done)
                        return done;
                if (lessGd)
                    if (auto done = dropQosClasses(sw, {.gd = true, .ptp = wanted.ptp}); !done)
                        return done;
                return more || wanted.ptp != had.ptp ? switchQosOn(sw, wanted) : Result<>();
            },
            [](Switch sw) { return switchQosOff(sw, QosDelete::All); }};
}

void addAvb(const FeatureNeeds &needs, const FeatureNeeds &other, std::vector<FeatureBlock> &blocks) {
    if (!needs.avb)
        return;
    auto avb = blockOf("802.1AS and MRP", AvBlock::Avb, 0, other.qos ? 1 : 0);
    avb.switchOn = [comes = !other.avb](Switch sw) -> Result<> {
        if (comes)
            if (auto done = switchBlockOff(sw, AvBlock::AvbMrp); !done)
                return done;
        return switchBlockOn(sw, AvBlock::Avb);
    };
    blocks.push_back(std::move(avb));
    if (!readManualTrunks().empty())
        blocks.push_back({"802.1AS and MRP on ports", avbPortWrites(true), avbPortWrites(false),
                          [](Switch sw) { return switchAvbPortsOn(sw, true, 0); },
                          [](Switch sw) { return switchAvbPortsOff(sw, true); }});
}

FeatureBlock ptpBlock(bool on) {
    const std::string name = "ptp clock e2e-transparent";
    const std::optional<std::string> value = on ? std::optional<std::string>(kSettingOn) : std::nullopt;
    return {"PTP transparent clock",
            {{name, value}},
            {{name, std::nullopt}},
            [on](Switch sw) { return switchPtpTc(sw, on); },
            [](Switch sw) { return switchPtpTc(sw, false); }};
}

}  // namespace

FeatureNeeds readFeatureNeeds(const Standing &standing, std::vector<Loss> *losses) {
    FeatureNeeds needs;
    for (const auto &placed : standing.vlans)
        if (isProfileVlan(placed))
            addNeeds(placed, needs);
    exclude(standing, needs, losses);
    return needs;
}

std::vector<FeatureBlock> blocksOf(const FeatureNeeds &needs, const FeatureNeeds &other) {
    std::vector<FeatureBlock> blocks;
    for (const auto &row : kVlanBlocks)
        for (const VlanId id : needs.*row.vlans) {
            const auto number = static_cast<std::int32_t>(id.number());
            blocks.push_back(
                blockOf(formatText("%s %d", std::string(row.name), number), row.block, number, number));
        }
    if (needs.qos)
        blocks.push_back(qosBlockOf(needs, other));
    addAvb(needs, other, blocks);
    if (needs.ptpTc || needs.ptpTcOff)
        blocks.push_back(ptpBlock(needs.ptpTc));
    if (needs.etcGlobal)
        blocks.push_back(blockOf("lighting", AvBlock::Etc, 0, 0));
    for (const VlanId id : needs.rstp) {
        const auto number = static_cast<std::int32_t>(id.number());
        auto block = blockOf(formatText("RSTP %d", number), AvBlock::Rstp, number, number);
        // Off is for the whole switch: not while another VLAN needs the mode.
        if (!other.rstp.empty())
            block.off.clear();
        blocks.push_back(std::move(block));
    }
    if (needs.sonos)
        blocks.push_back(blockOf("Sonos", AvBlock::Sonos, 0, 0));
    if (needs.querierInterval != 0)
        blocks.push_back(blockOf("querier", AvBlock::Querier, needs.querierInterval, 0));
    return blocks;
}

std::vector<FilterBlock> filtersOf(const FeatureNeeds &needs) {
    std::vector<FilterBlock> filters;
    if (needs.acl)
        filters.push_back(
            {"ip access-list NET-BLOCK", [](Switch sw) { return switchBlockOff(sw, AvBlock::Acl); }});
    if (needs.macFilterVisionary)
        filters.push_back({"mac access-list extended visionaryNwAV", [](Switch sw) {
                               return switchBlockOff(sw, AvBlock::MacFilter, AV_MAC_FILTER_VISIONARY);
                           }});
    if (needs.macFilterSecond)
        filters.push_back(
            {"", [](Switch sw) { return switchBlockOff(sw, AvBlock::MacFilter, AV_MAC_FILTER_SECOND); }});
    return filters;
}

}  // namespace pavo
