// The switch-wide features that profiles switch on and off. Each is a block: a CLI script that adds it and
// one that deletes it. Blocks of the same kind share file names, so callers run one at a time.
//
// The operations AvConfigGlobal... and AV... return nothing unless they say otherwise; failures are logged.
// The avBlock... forms do the same and return 0, or the result code of what failed first (10000; 10003 never
// occurs with a valid client), for callers that have to know.
#ifndef PAVO_PROFILE_BLOCKS_H
#define PAVO_PROFILE_BLOCKS_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "platform/open_client.h"
#include "swapi/features.h"

// Room for a block's script, with the terminating zero; a script that does not fit is refused, never cut.
inline constexpr std::size_t AV_BLOCK_SCRIPT_SIZE = 1024;
inline constexpr std::size_t AV_QOS_SCRIPT_SIZE = 3072;

// --- blocks that are one script

// In the order of the table in blocks_table.cpp.
enum class AvBlock : std::uint8_t {
    AvbAdd,
    AvbDelete,
    AvbDeleteKeepTrust,
    AvbMrpPreDisable,
    SonosAdd,
    SonosDelete,
    EtcAdd,
    EtcDelete,
    RstpDelete,
    AclDelete,
    QuerierAdd,  // value: query interval in seconds
    QuerierDelete,
    MacFilterDelete,  // value: AV_MAC_FILTER_ flags
    // Value: VLAN id.
    FastLeaveAdd,
    FastLeaveDelete,
    EtcVidAdd,
    EtcVidDelete,
    HpPolyAdd,
    HpPolyDelete,
    IgmpLightwareAdd,
    IgmpLightwareDelete,
    IgmpPlusAdd,
    IgmpPlusDelete,
    RstpAdd,
    RstpFloodAdd,  // the second half of RstpAdd, which runs it
    // Older forms.
    OldAvbAdd,
    OldAvbDelete,
    OldAvbDeleteKeepTrust,
    OldSonosAdd,
    OldSonosDelete,
    OldQuerierDelete,
    Count
};
std::int32_t avBlockRun(openapiClientHandle_t *client, AvBlock block, std::int32_t value = 0);

// 802.1AS and the MRP applications; the PTP transparent clock goes off. keepTrust: the QoS block is still in
// use and relies on the dot1p trust.
void AvConfigGlobalAvbAdd(openapiClientHandle_t *client);
void AvConfigGlobalAvbDelete(openapiClientHandle_t *client, bool keepTrust);
void AvConfigGlobalAvbMrpPreDisable(openapiClientHandle_t *client);

// Spanning-tree priority 28672. Deleting leaves a priority alone that is another by now.
void AvConfigGlobalSonosAdd(openapiClientHandle_t *client);
void AvConfigGlobalSonosDelete(openapiClientHandle_t *client);

void AvConfigGlobalEtcAdd(openapiClientHandle_t *client);
void AvConfigGlobalEtcDelete(openapiClientHandle_t *client);

void AvConfigGlobalAclDelete(openapiClientHandle_t *client);

void AvConfigGlobalQuerierAdd(openapiClientHandle_t *client, std::int32_t interval);
void AvConfigGlobalQuerierDelete(openapiClientHandle_t *client);

// Removes the Visionary MAC filter when its flag is set; nothing without flags.
inline constexpr std::int32_t AV_MAC_FILTER_VISIONARY = 1;
inline constexpr std::int32_t AV_MAC_FILTER_SECOND = 2;
void AvConfigGlobalmacfilterDelete(openapiClientHandle_t *client, std::int32_t flags);

// Per VLAN. The switch creates the VLAN when it is not there; IgmpLightwareDelete and IgmpPlusDelete take it
// away again (when that fails, their two files stay).
void AvConfigGlobalFastLeaveAdd(openapiClientHandle_t *client, std::int32_t vlanId);
void AvConfigGlobalFastLeaveDelete(openapiClientHandle_t *client, std::int32_t vlanId);
void AvConfigGlobalEtcVidAdd(openapiClientHandle_t *client, std::int32_t vlanId);
void AvConfigGlobalEtcVidDelete(openapiClientHandle_t *client, std::int32_t vlanId);
void AvConfigGlobalHpPolyAdd(openapiClientHandle_t *client, std::int32_t vlanId);
void AvConfigGlobalHpPolyDelete(openapiClientHandle_t *client, std::int32_t vlanId);
void AvConfigGlobalIgmpLightwareAdd(openapiClientHandle_t *client, std::int32_t vlanId);
void AvConfigGlobalIgmpLightwareDelete(openapiClientHandle_t *client, std::int32_t vlanId);
void AvConfigGlobalIgmpPlusAdd(openapiClientHandle_t *client, std::int32_t vlanId);
void AvConfigGlobalIgmpPlusDelete(openapiClientHandle_t *client, std::int32_t vlanId);

// Rapid PVST with the VLAN's timers; deleting goes back to the default protocol for the whole switch.
void AvConfigGlobalrstpAdd(openapiClientHandle_t *client, std::int32_t vlanId);
void AvConfigGlobalrstpDelete(openapiClientHandle_t *client);

// --- PTP transparent clock

// Switching on does nothing while 802.1AS is on, on a switch that has it. `supported` asks for that.
using FeatureQuery = std::int32_t (*)(openapiClientHandle_t *client, const char *name,
                                      std::int32_t *supported);
std::int32_t avBlockPtpTcSet(openapiClientHandle_t *client, bool enable,
                             FeatureQuery supported = featureSupportedGet);
// Always 0.
std::int32_t AvConfigGlobalPtpTcAdd(openapiClientHandle_t *client);
std::int32_t AvConfigGlobalPtpTcDelete(openapiClientHandle_t *client);

// --- QoS policy

// What the 64-bit feature set says about QoS.
inline constexpr std::uint64_t AV_QOS_TELOS = std::uint64_t{1} << 32;
inline constexpr std::uint64_t AV_QOS_GD = std::uint64_t{1} << 33;
inline constexpr std::uint64_t AV_QOS_NO_PTP = std::uint64_t{1} << 38;

// Replaces the policy by the base policy with the classes wanted and those that are there: Telos when it is
// there, G&D when both are.
std::int32_t avBlockQosAdd(openapiClientHandle_t *client, std::uint64_t features);
void AvConfigGlobalQosAdd(openapiClientHandle_t *client, std::int32_t ignored, std::uint64_t features);

// Deletes policy and classes; with bit 4 of the mode also trust and queue settings.
inline constexpr std::int32_t AV_QOS_DELETE_POLICY = 3;
inline constexpr std::int32_t AV_QOS_DELETE_ALL = 7;
std::int32_t avBlockQosDelete(openapiClientHandle_t *client, std::int32_t mode);
void AvConfigGlobalQosDelete(openapiClientHandle_t *client, std::int32_t mode);

// Drops the Telos class (AV_QOS_TELOS) or else the G&D classes (AV_QOS_GD) and rebuilds the policy with what
// else is there; without any class on the switch everything goes. The result of the last write or apply.
std::int32_t AvConfigGlobalQosDeleteProfileClass(openapiClientHandle_t *client, std::int32_t ignored,
                                                 std::uint64_t features);

// Puts class maps in front of the policy of `script` and entries at its beginning; cut to
// AV_QOS_SCRIPT_SIZE - 1 characters. 10000 (logged), with the script as it was, when it has no such policy.
std::int32_t AvConfigGlobalQosRebuildDynamic(std::string *script, const char *classMaps,
                                             const char *policyEntries);

// Lines of "show policy-map" that name a class, and whether Telos and G&D classes are among them; -1 (logged)
// when it cannot be read.
std::int32_t parsePolicyMapClasses(openapiClientHandle_t *client, bool *telos, bool *gd);

// --- AVB on ports

// The ports are those of "/tmp/manual_trunk_config": {"physicalPort": [1, 2], "lagPort": [1]}, numbers of
// ports (interfaces "0/N") and of LAGs ("lag N"). What is no number from 1 to 912 is passed over, as is a
// missing file. A script holds all ports, however long it gets.
std::vector<std::string> manualTrunkInterfacesGet();
// Writes that file; 0 or 10000.
std::int32_t manualTrunkConfigSet(std::span<const std::uint32_t> physicalPorts,
                                  std::span<const std::uint32_t> lagPorts);

// 802.1AS and MRP for the switch, then policy and MRP timers for each port, with the MRP applications and
// 802.1AS there too if wanted. An MTU of 0 leaves the ports' MTU alone.
std::int32_t avBlockMrpPostEnable(openapiClientHandle_t *client, bool applications, std::int32_t mtu);
void AvConfigGlobalAvbMrpPostEnableEx(openapiClientHandle_t *client, bool applications, std::int32_t mtu);

// Only MRP timers and MTU.
std::int32_t avBlockMrpTimerPre(openapiClientHandle_t *client, std::int32_t mtu);
void AvConfigAvbMrpIntfTimerPre(openapiClientHandle_t *client, std::int32_t mtu);

// Takes MRP and 802.1AS off the ports, and the policy if wanted.
std::int32_t avBlockMrpCleanup(openapiClientHandle_t *client, bool removePolicy);
void AvConfigAvbMrpIntfCleanup(openapiClientHandle_t *client, bool removePolicy);

// --- older forms

void AVAVBGlobalConfigAdd(openapiClientHandle_t *client);
void AVAVBGlobalConfigDelete(openapiClientHandle_t *client, bool keepTrust);
void AVSonosGlobalConfigAdd(openapiClientHandle_t *client);
void AVSonosGlobalConfigDelete(openapiClientHandle_t *client);
void AVIgmpQuerierGlobalConfigDelete(openapiClientHandle_t *client);
// The base policy with the PTP classes, without looking at what is there; and all of it away.
void AvGlobalConfigQosAdd(openapiClientHandle_t *client);
void AvGlobalConfigQosDelete(openapiClientHandle_t *client);
void AVPTPGlobalConfigAdd(openapiClientHandle_t *client);
// IGMP Plus on a VLAN, the query interval and the group membership interval, each one script; an interval of
// 0 is left alone.
void multicastGlobalConfigSet(openapiClientHandle_t *client, std::int32_t vlanId, std::int32_t queryInterval,
                              std::int32_t membershipInterval);

#endif
