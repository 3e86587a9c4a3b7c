// The feature blocks as operations. They return nothing unless they say otherwise; failures are logged.
// Blocks of the same kind share file names, so callers run one at a time.
#ifndef PAVO_PROFILE_BLOCKS_OPS_H
#define PAVO_PROFILE_BLOCKS_OPS_H

#include <cstdint>
#include <string>

#include "profile/blocks.h"

namespace pavo {

// 802.1AS and the MRP applications; the PTP transparent clock goes off. keepTrust: the QoS block is still in
// use and relies on the dot1p trust.
void AvConfigGlobalAvbAdd(Switch sw);
void AvConfigGlobalAvbDelete(Switch sw, bool keepTrust);
void AvConfigGlobalAvbMrpPreDisable(Switch sw);

// Spanning-tree priority 28672. Deleting leaves a priority alone that someone else has changed since.
void AvConfigGlobalSonosAdd(Switch sw);
void AvConfigGlobalSonosDelete(Switch sw);

void AvConfigGlobalEtcAdd(Switch sw);
void AvConfigGlobalEtcDelete(Switch sw);
void AvConfigGlobalAclDelete(Switch sw);
void AvConfigGlobalQuerierAdd(Switch sw, std::int32_t interval);
void AvConfigGlobalQuerierDelete(Switch sw);
// Removes the Visionary MAC filter when its flag (AV_MAC_FILTER_) is set; nothing without flags.
void AvConfigGlobalmacfilterDelete(Switch sw, std::int32_t flags);

// Per VLAN. The switch creates the VLAN when it is not there; IgmpLightwareDelete and IgmpPlusDelete take it
// away again (when that fails, their two files stay).
void AvConfigGlobalFastLeaveAdd(Switch sw, std::int32_t vlanId);
void AvConfigGlobalFastLeaveDelete(Switch sw, std::int32_t vlanId);
void AvConfigGlobalEtcVidAdd(Switch sw, std::int32_t vlanId);
void AvConfigGlobalEtcVidDelete(Switch sw, std::int32_t vlanId);
void AvConfigGlobalHpPolyAdd(Switch sw, std::int32_t vlanId);
void AvConfigGlobalHpPolyDelete(Switch sw, std::int32_t vlanId);
void AvConfigGlobalIgmpLightwareAdd(Switch sw, std::int32_t vlanId);
void AvConfigGlobalIgmpLightwareDelete(Switch sw, std::int32_t vlanId);
void AvConfigGlobalIgmpPlusAdd(Switch sw, std::int32_t vlanId);
void AvConfigGlobalIgmpPlusDelete(Switch sw, std::int32_t vlanId);

// Rapid PVST with the VLAN's timers; deleting goes back to the default protocol for the whole switch.
void AvConfigGlobalrstpAdd(Switch sw, std::int32_t vlanId);
void AvConfigGlobalrstpDelete(Switch sw);

// PTP transparent clock. Switching on does nothing while 802.1AS is on, on a switch that has it. Always 0.
std::int32_t AvConfigGlobalPtpTcAdd(Switch sw);
std::int32_t AvConfigGlobalPtpTcDelete(Switch sw);

// --- QoS policy

// What the 64-bit feature set says about QoS.
inline constexpr std::uint64_t AV_QOS_TELOS = std::uint64_t{1} << 32;
inline constexpr std::uint64_t AV_QOS_GD = std::uint64_t{1} << 33;
inline constexpr std::uint64_t AV_QOS_NO_PTP = std::uint64_t{1} << 38;

// Replaces the policy by the base policy with the classes wanted and those that are there: Telos when it is
// there, G&D when both are.
void AvConfigGlobalQosAdd(Switch sw, std::int32_t ignored, std::uint64_t features);

// Deletes policy and classes; with bit 4 of the mode also trust and queue settings.
inline constexpr std::int32_t AV_QOS_DELETE_POLICY = 3;
inline constexpr std::int32_t AV_QOS_DELETE_ALL = 7;
void AvConfigGlobalQosDelete(Switch sw, std::int32_t mode);

// Drops the Telos class (AV_QOS_TELOS) or else the G&D classes (AV_QOS_GD) and rebuilds the policy with what
// else is there; without any class on the switch everything goes. The result of the last write or apply.
std::int32_t AvConfigGlobalQosDeleteProfileClass(Switch sw, std::int32_t ignored, std::uint64_t features);

// Puts class maps in front of the policy of `script` and entries at its beginning; cut to
// AV_QOS_SCRIPT_SIZE - 1 characters. 10000 (logged), with the script as it was, when it has no such policy.
std::int32_t AvConfigGlobalQosRebuildDynamic(std::string *script, const char *classMaps,
                                             const char *policyEntries);

// Lines of "show policy-map" that name a class, and whether Telos and G&D classes are among them; -1 (logged)
// when it cannot be read.
std::int32_t parsePolicyMapClasses(Switch sw, bool *telos, bool *gd);

// --- AVB on ports, see profile/avb_ports.h

void AvConfigGlobalAvbMrpPostEnableEx(Switch sw, bool applications, std::int32_t mtu);
void AvConfigAvbMrpIntfTimerPre(Switch sw, std::int32_t mtu);
void AvConfigAvbMrpIntfCleanup(Switch sw, bool removePolicy);

// --- older forms

void AVAVBGlobalConfigAdd(Switch sw);
void AVAVBGlobalConfigDelete(Switch sw, bool keepTrust);
void AVSonosGlobalConfigAdd(Switch sw);
void AVSonosGlobalConfigDelete(Switch sw);
void AVIgmpQuerierGlobalConfigDelete(Switch sw);
// The base policy with the PTP classes, without looking at what is there; and all of it away.
void AvGlobalConfigQosAdd(Switch sw);
void AvGlobalConfigQosDelete(Switch sw);
void AVPTPGlobalConfigAdd(Switch sw);
// IGMP Plus on a VLAN, the query interval and the group membership interval, each one script; an interval of
// 0 is left alone.
void multicastGlobalConfigSet(Switch sw, std::int32_t vlanId, std::int32_t queryInterval,
                              std::int32_t membershipInterval);

}  // namespace pavo

#endif
