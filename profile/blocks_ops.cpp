#include "profile/blocks_ops.h"

#include "profile/avb_ports.h"
#include "profile/qos_policy.h"

namespace pavo {
namespace {

// A block never stops its caller; what failed has been logged.
void ignore(const Result<> &) {}

QosClasses classesOf(std::uint64_t features) {
    return {.telos = (features & AV_QOS_TELOS) != 0,
            .gd = (features & AV_QOS_GD) != 0,
            .ptp = (features & AV_QOS_NO_PTP) == 0};
}

}  // namespace

void AvConfigGlobalAvbAdd(Switch sw) {
    ignore(switchBlockOn(sw, AvBlock::Avb));
}
void AvConfigGlobalAvbDelete(Switch sw, bool keepTrust) {
    ignore(switchBlockOff(sw, AvBlock::Avb, keepTrust ? 1 : 0));
}
void AvConfigGlobalAvbMrpPreDisable(Switch sw) {
    ignore(switchBlockOff(sw, AvBlock::AvbMrp));
}
void AvConfigGlobalSonosAdd(Switch sw) {
    ignore(switchBlockOn(sw, AvBlock::Sonos));
}
void AvConfigGlobalSonosDelete(Switch sw) {
    ignore(switchBlockOff(sw, AvBlock::Sonos));
}
void AvConfigGlobalEtcAdd(Switch sw) {
    ignore(switchBlockOn(sw, AvBlock::Etc));
}
void AvConfigGlobalEtcDelete(Switch sw) {
    ignore(switchBlockOff(sw, AvBlock::Etc));
}
void AvConfigGlobalAclDelete(Switch sw) {
    ignore(switchBlockOff(sw, AvBlock::Acl));
}
void AvConfigGlobalQuerierAdd(Switch sw, std::int32_t interval) {
    ignore(switchBlockOn(sw, AvBlock::Querier, interval));
}
void AvConfigGlobalQuerierDelete(Switch sw) {
    ignore(switchBlockOff(sw, AvBlock::Querier));
}
void AvConfigGlobalmacfilterDelete(Switch sw, std::int32_t flags) {
    ignore(switchBlockOff(sw, AvBlock::MacFilter, flags));
}
void AvConfigGlobalFastLeaveAdd(Switch sw, std::int32_t vlanId) {
    ignore(switchBlockOn(sw, AvBlock::FastLeave, vlanId));
}
void AvConfigGlobalFastLeaveDelete(Switch sw, std::int32_t vlanId) {
    ignore(switchBlockOff(sw, AvBlock::FastLeave, vlanId));
}
void AvConfigGlobalEtcVidAdd(Switch sw, std::int32_t vlanId) {
    ignore(switchBlockOn(sw, AvBlock::EtcVlan, vlanId));
}
void AvConfigGlobalEtcVidDelete(Switch sw, std::int32_t vlanId) {
    ignore(switchBlockOff(sw, AvBlock::EtcVlan, vlanId));
}
void AvConfigGlobalHpPolyAdd(Switch sw, std::int32_t vlanId) {
    ignore(switchBlockOn(sw, AvBlock::ProxyQuerier, vlanId));
}
void AvConfigGlobalHpPolyDelete(Switch sw, std::int32_t vlanId) {
    ignore(switchBlockOff(sw, AvBlock::ProxyQuerier, vlanId));
}
void AvConfigGlobalIgmpLightwareAdd(Switch sw, std::int32_t vlanId) {
    ignore(switchBlockOn(sw, AvBlock::LightwareIgmp, vlanId));
}
void AvConfigGlobalIgmpLightwareDelete(Switch sw, std::int32_t vlanId) {
    ignore(switchBlockOff(sw, AvBlock::LightwareIgmp, vlanId));
}
void AvConfigGlobalIgmpPlusAdd(Switch sw, std::int32_t vlanId) {
    ignore(switchBlockOn(sw, AvBlock::IgmpPlus, vlanId));
}
void AvConfigGlobalIgmpPlusDelete(Switch sw, std::int32_t vlanId) {
    ignore(switchBlockOff(sw, AvBlock::IgmpPlus, vlanId));
}
void AvConfigGlobalrstpAdd(Switch sw, std::int32_t vlanId) {
    ignore(switchBlockOn(sw, AvBlock::Rstp, vlanId));
}
void AvConfigGlobalrstpDelete(Switch sw) {
    ignore(switchBlockOff(sw, AvBlock::Rstp));
}

std::int32_t AvConfigGlobalPtpTcAdd(Switch sw) {
    ignore(switchPtpTc(sw, true));
    return codeOf(ResultCode::Success);
}
std::int32_t AvConfigGlobalPtpTcDelete(Switch sw) {
    ignore(switchPtpTc(sw, false));
    return codeOf(ResultCode::Success);
}

// --- QoS policy

void AvConfigGlobalQosAdd(Switch sw, std::int32_t, std::uint64_t features) {
    ignore(switchQosOn(sw, classesOf(features)));
}
void AvConfigGlobalQosDelete(Switch sw, std::int32_t mode) {
    ignore(switchQosOff(sw, (mode & 4) != 0 ? QosDelete::All : QosDelete::Policy));
}
std::int32_t AvConfigGlobalQosDeleteProfileClass(Switch sw, std::int32_t, std::uint64_t features) {
    return codeOf(dropQosClasses(sw, classesOf(features)));
}

std::int32_t AvConfigGlobalQosRebuildDynamic(std::string *script, const char *classMaps,
                                             const char *policyEntries) {
    auto rebuilt = addQosClass(*script, classMaps, policyEntries);
    if (rebuilt)
        *script = std::move(*rebuilt);
    return codeOf(rebuilt);
}

std::int32_t parsePolicyMapClasses(Switch sw, bool *telos, bool *gd) {
    const auto classes = readPolicyClasses(sw);
    *telos = classes && classes->telos;
    *gd = classes && classes->gd;
    return classes ? static_cast<std::int32_t>(classes->count) : -1;
}

// --- AVB on ports

void AvConfigGlobalAvbMrpPostEnableEx(Switch sw, bool applications, std::int32_t mtu) {
    ignore(switchAvbPortsOn(sw, applications, mtu));
}
void AvConfigAvbMrpIntfTimerPre(Switch sw, std::int32_t mtu) {
    ignore(setAvbPortTimers(sw, mtu));
}
void AvConfigAvbMrpIntfCleanup(Switch sw, bool removePolicy) {
    ignore(switchAvbPortsOff(sw, removePolicy));
}

// --- older forms

void AVAVBGlobalConfigAdd(Switch sw) {
    ignore(switchBlockOn(sw, AvBlock::OldAvb));
}
void AVAVBGlobalConfigDelete(Switch sw, bool keepTrust) {
    ignore(switchBlockOff(sw, AvBlock::OldAvb, keepTrust ? 1 : 0));
}
void AVSonosGlobalConfigAdd(Switch sw) {
    ignore(switchBlockOn(sw, AvBlock::OldSonos));
}
void AVSonosGlobalConfigDelete(Switch sw) {
    ignore(switchBlockOff(sw, AvBlock::OldSonos));
}
void AVIgmpQuerierGlobalConfigDelete(Switch sw) {
    ignore(switchBlockOff(sw, AvBlock::OldQuerier));
}
void AvGlobalConfigQosAdd(Switch sw) {
    switchOldQosOn(sw);
}
void AvGlobalConfigQosDelete(Switch sw) {
    switchOldQosOff(sw);
}
void AVPTPGlobalConfigAdd(Switch sw) {
    ignore(switchOldPtpTcOn(sw));
}
void multicastGlobalConfigSet(Switch sw, std::int32_t vlanId, std::int32_t queryInterval,
                              std::int32_t membershipInterval) {
    setMulticast(sw, vlanId, queryInterval, membershipInterval);
}

}  // namespace pavo
