// The blocks that are one script: a row each, with a rule of its own where it has one.
#include <cstdio>
#include <iterator>

#include "common/log.h"
#include "common/result.h"
#include "profile/block_script.h"
#include "profile/blocks.h"
#include "swapi/swapi.h"
#include "swapi/vlan_membership.h"

namespace {

constexpr std::uint32_t kSonosPriority = 28672;

struct Row {
    AvBlock block;
    const char *name;
    const char *suffix;
    const char *script;  // every %d is the value
    const char *failure = nullptr;
    std::int32_t (*rule)(openapiClientHandle_t *client, const Row &row, std::int32_t value) = nullptr;

    BlockScript texts() const { return {name, suffix, failure, AV_BLOCK_SCRIPT_SIZE}; }
};

std::string filled(const char *script, std::int32_t value) {
    return scriptFilled(script, "%d", std::to_string(value));
}

std::int32_t runScript(openapiClientHandle_t *client, const Row &row, std::int32_t value) {
    return blockScriptRun(client, row.texts(), filled(row.script, value));
}

// --- rules

std::int32_t runOnOurPriority(openapiClientHandle_t *client, const Row &row, std::int32_t value) {
    std::uint32_t priority = 0;
    if (const auto result = swapiStpMstPriorityGet(client, 0, &priority); result != OPEN_E_NONE) {
        devmgrLog(LOG_LEVEL_ERROR, "[%s:%d] Bad return code trying to get MST priority. (result = %d)\n",
                  row.name, __LINE__, result);
        return RESULT_FAILED;
    }
    return priority == kSonosPriority ? runScript(client, row, value) : RESULT_SUCCESS;
}

std::int32_t runOnFlags(openapiClientHandle_t *client, const Row &row, std::int32_t flags) {
    if ((flags & AV_MAC_FILTER_VISIONARY) != 0)
        return runScript(client, row, 0);
    // The second filter has nothing on the switch yet; its run is an empty script.
    return (flags & AV_MAC_FILTER_SECOND) != 0 ? blockScriptRun(client, row.texts(), "") : RESULT_SUCCESS;
}

// The script names the VLAN in the VLAN database, which creates it.
std::int32_t runAndDropVlan(openapiClientHandle_t *client, const Row &row, std::int32_t value) {
    const auto vlanId = static_cast<std::uint32_t>(value);
    const auto block = row.texts();
    const auto before = openapiVlanCreatedCheck(client, vlanId);
    if (before != OPEN_E_NONE && before != OPEN_E_NOT_FOUND) {
        // A VLAN of which nothing is known is not deleted.
        devmgrLog(LOG_LEVEL_ERROR, "[%s:%d] vlan %d check error :%d \r\n", row.name, __LINE__, value, before);
        return RESULT_FAILED;
    }
    auto result = blockScriptWrite(block, filled(row.script, value));
    if (result == RESULT_SUCCESS)
        result = blockScriptApply(client, block);
    if (before == OPEN_E_NOT_FOUND && openapiVlanCreatedCheck(client, vlanId) == OPEN_E_NONE) {
        const auto deleted = vlanDeleteAndVerify(client, vlanId);
        if (deleted != RESULT_SUCCESS) {
            devmgrLog(LOG_LEVEL_ERROR, "[%s:%d] vlan %d delete error :%d \r\n", row.name, __LINE__, value,
                      deleted);
            return deleted;
        }
        devmgrLog(LOG_LEVEL_INFO, "[%s:%d] vlan %d delete success\r\n", row.name, __LINE__, value);
    }
    blockFilesRemove(row.suffix);
    return result;
}

std::int32_t runRstpAdd(openapiClientHandle_t *client, const Row &row, std::int32_t vlanId) {
    bool written = false;
    const auto result = blockScriptRun(client, row.texts(), filled(row.script, vlanId), &written);
    if (!written)
        return result;
    const auto second = avBlockRun(client, AvBlock::RstpFloodAdd, vlanId);
    return result != RESULT_SUCCESS ? result : second;
}

// --- rows

constexpr const char *kAvbAdd =
    "config\nno ptp clock e2e-transparent\nno mvrp\nno mvrp include factory-default-vlan\n"
    "classofservice trust dot1p\ndot1as\nmvrp\nmvrp periodic state machine\nmmrp\n"
    "mmrp periodic state machine\nmsrp\nexit\n";
constexpr const char *kAvbDelete =
    "config\nno dot1as\nno mvrp\nno mmrp\nno msrp\nmvrp include factory-default-vlan\n"
    "no classofservice trust\nexit\n";
constexpr const char *kAvbDeleteKeepTrust =
    "config\nno dot1as\nno mvrp\nno mmrp\nno msrp\nmvrp include factory-default-vlan\nexit\n";
constexpr const char *kAvbDeleteFailed = "[%s:%d] Apply cli for delete AVB failed. (result = %d)\n";
constexpr const char *kSonosAdd = "config\nspanning-tree mst priority 0 28672\nexit\n";
constexpr const char *kSonosDelete = "config\nno spanning-tree mst priority 0\nexit\n";
constexpr const char *kSonosFailed = "[%s:%d] Apply cli for add sonos failed. (result = %d)\n";
constexpr const char *kOldSonosFailed = "[%s:%d] Apply cli for add Sonos failed. (result = %d)\n";
constexpr const char *kQuerierDelete = "config\nno ip igmp snooping querier query-interval\nexit\n";
constexpr const char *kQuerierFailed = "[%s:%d] Apply cli for delete igmp querier failed. (result = %d)\n";
constexpr const char *kTreeModeDelete = "config\nno spanning-tree mode\nexit\n";

constexpr Row kRows[] = {
    {AvBlock::AvbAdd, "AvConfigGlobalAvbAdd", "global_avb_add", kAvbAdd,
     "[%s:%d] Apply cli for add AVB failed. (result = %d)\n"},
    {AvBlock::AvbDelete, "AvConfigGlobalAvbDelete", "global_avb_delete", kAvbDelete, kAvbDeleteFailed},
    {AvBlock::AvbDeleteKeepTrust, "AvConfigGlobalAvbDelete", "global_avb_delete", kAvbDeleteKeepTrust,
     kAvbDeleteFailed},
    {AvBlock::AvbMrpPreDisable, "AvConfigGlobalAvbMrpPreDisable", "global_avb_mrp_pre",
     "config\nno mvrp\nno mmrp\nno msrp\nexit\n",
     "[%s:%d] Apply cli for AVB MRP pre-config failed. (result = %d)\n"},
    {AvBlock::SonosAdd, "AvConfigGlobalSonosAdd", "global_sonos_add", kSonosAdd, kSonosFailed},
    {AvBlock::SonosDelete, "AvConfigGlobalSonosDelete", "global_sonos_delete", kSonosDelete, kSonosFailed,
     runOnOurPriority},
    {AvBlock::EtcAdd, "AvConfigGlobalEtcAdd", "global_etc_add",
     "config\nset igmp querier version 2\nset igmp querier timer expiry 180\nspanning-tree mode "
     "rstp\nexit\n"},
    {AvBlock::EtcDelete, "AvConfigGlobalEtcDelete", "global_etc_delete",
     "config\nno set igmp querier version\nno set igmp querier timer expiry\nno spanning-tree mode\nexit\n"},
    {AvBlock::RstpDelete, "AvConfigGlobalrstpDelete", "global_rstp_delete", kTreeModeDelete},
    {AvBlock::AclDelete, "AvConfigGlobalAclDelete", "global_acl_delete",
     "config\nno ip access-list NET-BLOCK\nexit\n"},
    {AvBlock::QuerierAdd, "AvConfigGlobalQuerierAdd", "global_querier_add",
     "config\nip igmp snooping querier query-interval %d\nexit\n", kQuerierFailed},
    {AvBlock::QuerierDelete, "AvConfigGlobalQuerierDelete", "global_querier_delete", kQuerierDelete,
     kQuerierFailed},
    {AvBlock::MacFilterDelete, "AvConfigGlobalmacfilterDelete", "global_macfilter_delete",
     "config\nno mac access-list extended visionaryNwAV\nexit\n",
     "[%s:%d] Apply STP global config failed.\r\n", runOnFlags},

    {AvBlock::FastLeaveAdd, "AvConfigGlobalFastLeaveAdd", "global_fast-leave_add",
     "config\nvlan database\nset igmp fast-leave %d\nexit\nexit\n"},
    {AvBlock::FastLeaveDelete, "AvConfigGlobalFastLeaveDelete", "global_fast-leave_delete",
     "config\nvlan database\nno set igmp fast-leave %d\nexit\nexit\n"},
    {AvBlock::EtcVidAdd, "AvConfigGlobalEtcVidAdd", "global_etc_vid_add",
     "vlan database\nset igmp querier election participate %d\nset igmp maxresponse %d 10\n"
     "set igmp groupmembership-interval %d 60\nexit\n"},
    {AvBlock::EtcVidDelete, "AvConfigGlobalEtcVidDelete", "global_etc_vid_delete",
     "vlan database\nno set igmp querier election participate %d\nno set igmp groupmembership-interval %d\n"
     "no set igmp maxresponse %d\nexit\n"},
    {AvBlock::HpPolyAdd, "AvConfigGlobalHpPolyAdd", "global_igmp_proxy_querier_add",
     "vlan database\nset igmp proxy-querier %d\nset mld proxy-querier %d\nexit\n"},
    {AvBlock::HpPolyDelete, "AvConfigGlobalHpPolyDelete", "global_igmp_proxy_querier_delete",
     "vlan database\nno set igmp proxy-querier %d\nno set mld proxy-querier %d\nexit\n"},
    {AvBlock::IgmpLightwareAdd, "AvConfigGlobalIgmpLightwareAdd", "global_igmp_lightware_add",
     "config\nvlan database\nset igmp maxresponse %d 10\nset igmp groupmembership-interval %d 260\n"
     "set igmp mcrtrexpiretime %d 0\nexit\nexit\n"},
    {AvBlock::IgmpLightwareDelete, "AvConfigGlobalIgmpLightwareDelete", "global_igmp_lightware_delete",
     "config\nvlan database\nno set igmp maxresponse %d\nno set igmp groupmembership-interval %d\n"
     "no set igmp mcrtrexpiretime %d\nexit\nexit\n",
     "[%s:%d] Apply multicast global config failed.\r\n", runAndDropVlan},
    {AvBlock::IgmpPlusAdd, "AvConfigGlobalIgmpPlusAdd", "global_igmp_add",
     "config\nigmp-plus %d\nipv6 mld snooping\nvlan database\nset mld %d\nexit\nexit\n"},
    {AvBlock::IgmpPlusDelete, "AvConfigGlobalIgmpPlusDelete", "global_igmp_delete",
     "config\nno igmp-plus %d\nno ipv6 mld snooping\nvlan database\nno set mld %d\nexit\nexit\n", nullptr,
     runAndDropVlan},
    {AvBlock::RstpAdd, "AvConfigGlobalrstpAdd", "global_rstp_add",
     "config\nspanning-tree mode rapid-pvst\nspanning-tree vlan %d hello-time 9\n"
     "spanning-tree vlan %d forward-time 30\nspanning-tree vlan %d max-age 22\nexit\n",
     "[%s:%d] Apply STP global config failed.\r\n", runRstpAdd},
    {AvBlock::RstpFloodAdd, "AvConfigGlobalrstpAdd", "global_no_igmp_flood_add",
     "vlan database\nno set igmp flood-report %d\nno set igmp exclude-mrouter-intf %d\nexit\n",
     "[%s:%d] Apply IGMP global config failed.\r\n"},

    {AvBlock::OldAvbAdd, "AVAVBGlobalConfigAdd", "AVB_add", kAvbAdd, kAvbDeleteFailed},
    {AvBlock::OldAvbDelete, "AVAVBGlobalConfigDelete", "AVB_delete", kAvbDelete, kAvbDeleteFailed},
    {AvBlock::OldAvbDeleteKeepTrust, "AVAVBGlobalConfigDelete", "AVB_delete", kAvbDeleteKeepTrust,
     kAvbDeleteFailed},
    {AvBlock::OldSonosAdd, "AVSonosGlobalConfigAdd", "Sonos_add", kSonosAdd, kOldSonosFailed},
    {AvBlock::OldSonosDelete, "AVSonosGlobalConfigDelete", "Sonos_delete", kSonosDelete, kOldSonosFailed,
     runOnOurPriority},
    {AvBlock::OldQuerierDelete, "AVIgmpQuerierGlobalConfigDelete", "igmp_querier_delete", kQuerierDelete,
     kQuerierFailed},
};

constexpr bool rowsInOrder() {
    for (std::size_t i = 0; i < std::size(kRows); ++i)
        if (kRows[i].block != static_cast<AvBlock>(i))
            return false;
    return std::size(kRows) == static_cast<std::size_t>(AvBlock::Count);
}
static_assert(rowsInOrder());

// What the clock is set through; `name` and `failure` differ for the older form.
std::int32_t ptpTcSet(openapiClientHandle_t *client, bool enable, FeatureQuery supported, const char *name,
                      const char *failure) {
    std::int32_t hasDot1as = 0;
    if (enable && supported(client, FEATURE_DOT1AS, &hasDot1as) == RESULT_SUCCESS && hasDot1as != 0) {
        std::uint32_t dot1as = OPEN_DISABLE;
        if (const auto result = swapiDot1asModeGet(client, &dot1as); result != OPEN_E_NONE) {
            devmgrLog(LOG_LEVEL_ERROR, "[%s:%d] Bad return code trying to get 802.1AS mode. (result = %d)\n",
                      name, __LINE__, result);
            return RESULT_FAILED;
        }
        if (dot1as == OPEN_ENABLE)
            return RESULT_SUCCESS;  // the two cannot be on together
    }
    const auto result = ptpTcAdminModeSet(client, enable ? OPEN_ENABLE : OPEN_DISABLE);
    if (result == OPEN_E_NONE)
        return RESULT_SUCCESS;
    devmgrLog(LOG_LEVEL_ERROR, failure, name, __LINE__, result);
    return RESULT_FAILED;
}

}  // namespace

std::int32_t avBlockRun(openapiClientHandle_t *client, AvBlock block, std::int32_t value) {
    const auto &row = kRows[static_cast<std::size_t>(block)];
    return (row.rule != nullptr ? row.rule : runScript)(client, row, value);
}

void AvConfigGlobalAvbAdd(openapiClientHandle_t *client) {
    avBlockRun(client, AvBlock::AvbAdd);
}
void AvConfigGlobalAvbDelete(openapiClientHandle_t *client, bool keepTrust) {
    avBlockRun(client, keepTrust ? AvBlock::AvbDeleteKeepTrust : AvBlock::AvbDelete);
}
void AvConfigGlobalAvbMrpPreDisable(openapiClientHandle_t *client) {
    avBlockRun(client, AvBlock::AvbMrpPreDisable);
}
void AvConfigGlobalSonosAdd(openapiClientHandle_t *client) {
    avBlockRun(client, AvBlock::SonosAdd);
}
void AvConfigGlobalSonosDelete(openapiClientHandle_t *client) {
    avBlockRun(client, AvBlock::SonosDelete);
}
void AvConfigGlobalEtcAdd(openapiClientHandle_t *client) {
    avBlockRun(client, AvBlock::EtcAdd);
}
void AvConfigGlobalEtcDelete(openapiClientHandle_t *client) {
    avBlockRun(client, AvBlock::EtcDelete);
}
void AvConfigGlobalrstpDelete(openapiClientHandle_t *client) {
    avBlockRun(client, AvBlock::RstpDelete);
}
void AvConfigGlobalAclDelete(openapiClientHandle_t *client) {
    avBlockRun(client, AvBlock::AclDelete);
}
void AvConfigGlobalQuerierAdd(openapiClientHandle_t *client, std::int32_t interval) {
    avBlockRun(client, AvBlock::QuerierAdd, interval);
}
void AvConfigGlobalQuerierDelete(openapiClientHandle_t *client) {
    avBlockRun(client, AvBlock::QuerierDelete);
}
void AvConfigGlobalmacfilterDelete(openapiClientHandle_t *client, std::int32_t flags) {
    avBlockRun(client, AvBlock::MacFilterDelete, flags);
}
void AvConfigGlobalFastLeaveAdd(openapiClientHandle_t *client, std::int32_t vlanId) {
    avBlockRun(client, AvBlock::FastLeaveAdd, vlanId);
}
void AvConfigGlobalFastLeaveDelete(openapiClientHandle_t *client, std::int32_t vlanId) {
    avBlockRun(client, AvBlock::FastLeaveDelete, vlanId);
}
void AvConfigGlobalEtcVidAdd(openapiClientHandle_t *client, std::int32_t vlanId) {
    avBlockRun(client, AvBlock::EtcVidAdd, vlanId);
}
void AvConfigGlobalEtcVidDelete(openapiClientHandle_t *client, std::int32_t vlanId) {
    avBlockRun(client, AvBlock::EtcVidDelete, vlanId);
}
void AvConfigGlobalHpPolyAdd(openapiClientHandle_t *client, std::int32_t vlanId) {
    avBlockRun(client, AvBlock::HpPolyAdd, vlanId);
}
void AvConfigGlobalHpPolyDelete(openapiClientHandle_t *client, std::int32_t vlanId) {
    avBlockRun(client, AvBlock::HpPolyDelete, vlanId);
}
void AvConfigGlobalIgmpLightwareAdd(openapiClientHandle_t *client, std::int32_t vlanId) {
    avBlockRun(client, AvBlock::IgmpLightwareAdd, vlanId);
}
void AvConfigGlobalIgmpLightwareDelete(openapiClientHandle_t *client, std::int32_t vlanId) {
    avBlockRun(client, AvBlock::IgmpLightwareDelete, vlanId);
}
void AvConfigGlobalIgmpPlusAdd(openapiClientHandle_t *client, std::int32_t vlanId) {
    avBlockRun(client, AvBlock::IgmpPlusAdd, vlanId);
}
void AvConfigGlobalIgmpPlusDelete(openapiClientHandle_t *client, std::int32_t vlanId) {
    avBlockRun(client, AvBlock::IgmpPlusDelete, vlanId);
}
void AvConfigGlobalrstpAdd(openapiClientHandle_t *client, std::int32_t vlanId) {
    avBlockRun(client, AvBlock::RstpAdd, vlanId);
}

std::int32_t avBlockPtpTcSet(openapiClientHandle_t *client, bool enable, FeatureQuery supported) {
    return enable ? ptpTcSet(client, true, supported, "AvConfigGlobalPtpTcAdd",
                             "[%s:%d] Apply ptp tc to enable failed. (result = %d)\n")
                  : ptpTcSet(client, false, supported, "AvConfigGlobalPtpTcDelete",
                             "[%s:%d] Apply ptp tc to disable failed. (result = %d)\n");
}
std::int32_t AvConfigGlobalPtpTcAdd(openapiClientHandle_t *client) {
    avBlockPtpTcSet(client, true);
    return RESULT_SUCCESS;
}
std::int32_t AvConfigGlobalPtpTcDelete(openapiClientHandle_t *client) {
    avBlockPtpTcSet(client, false);
    return RESULT_SUCCESS;
}

void AVAVBGlobalConfigAdd(openapiClientHandle_t *client) {
    avBlockRun(client, AvBlock::OldAvbAdd);
}
void AVAVBGlobalConfigDelete(openapiClientHandle_t *client, bool keepTrust) {
    avBlockRun(client, keepTrust ? AvBlock::OldAvbDeleteKeepTrust : AvBlock::OldAvbDelete);
}
void AVSonosGlobalConfigAdd(openapiClientHandle_t *client) {
    avBlockRun(client, AvBlock::OldSonosAdd);
}
void AVSonosGlobalConfigDelete(openapiClientHandle_t *client) {
    avBlockRun(client, AvBlock::OldSonosDelete);
}
void AVIgmpQuerierGlobalConfigDelete(openapiClientHandle_t *client) {
    avBlockRun(client, AvBlock::OldQuerierDelete);
}
void AVPTPGlobalConfigAdd(openapiClientHandle_t *client) {
    ptpTcSet(client, true, featureSupportedGet, "AVPTPGlobalConfigAdd",
             "[%s:%d] Apply PTP to enable failed. (result = %d)\n");
}

void multicastGlobalConfigSet(openapiClientHandle_t *client, std::int32_t vlanId, std::int32_t queryInterval,
                              std::int32_t membershipInterval) {
    constexpr BlockScript kBlock{"multicastGlobalConfigSet", "multicast_global",
                                 "[%s:%d] Apply multicast global config failed.\r\n", AV_BLOCK_SCRIPT_SIZE};
    blockScriptRun(client, kBlock, filled("config\nigmp-plus %d\nexit\n", vlanId));
    if (queryInterval > 0)
        blockScriptRun(client, kBlock,
                       filled("config\nip igmp snooping querier query-interval %d\nexit\n", queryInterval));
    if (membershipInterval > 0) {
        char script[128];
        std::snprintf(
            script, sizeof script,
            "vlan database\nset igmp maxresponse %d 10\nset igmp groupmembership-interval %d %d\nexit\n",
            vlanId, vlanId, membershipInterval);
        blockScriptRun(client, kBlock, script);
    }
}
