#include "profile/blocks.h"

#include <cstddef>
#include <iterator>
#include <string>

#include "common/log.h"
#include "swapi/vlan_membership.h"

namespace pavo {
namespace {

constexpr std::uint32_t kSonosPriority = 28672;

// One direction of a block.
struct Side {
    BlockScript block = {};
    const char *script = nullptr;  // every %d is the value; null: there is nothing to do
    Result<> (*rule)(Switch sw, const Side &side, std::int32_t value) = nullptr;
};

struct Row {
    AvBlock block;
    Side on, off;
};

std::string filled(const char *script, std::int32_t value) {
    return fillScript(script, "%d", std::to_string(value));
}

Result<> runScript(Switch sw, const Side &side, std::int32_t value) {
    return toResult(runBlockScript(sw, side.block, filled(side.script, value)));
}

Result<> run(Switch sw, const Side &side, std::int32_t value) {
    if (side.script == nullptr)
        return {};
    return (side.rule != nullptr ? side.rule : runScript)(sw, side, value);
}

// --- rules

Result<> runOnOurPriority(Switch sw, const Side &side, std::int32_t value) {
    const auto priority = sw.mstPriority(0);
    if (priority)
        return *priority == kSonosPriority ? runScript(sw, side, value) : Result<>();
    logError(side.block.where(), "[%s:%d] Bad return code trying to get MST priority. (result = %d)\n",
             priority.error());
    return failed(ResultCode::Failed);
}

Result<> runOnFlags(Switch sw, const Side &side, std::int32_t flags) {
    if ((flags & AV_MAC_FILTER_VISIONARY) != 0)
        return runScript(sw, side, 0);
    // The second filter has nothing on the switch yet; its run is an empty script.
    return (flags & AV_MAC_FILTER_SECOND) != 0 ? toResult(runBlockScript(sw, side.block, "")) : Result<>();
}

constexpr const char *kAvbOffKeepTrust =
    "config\nno dot1as\nno mvrp\nno mmrp\nno msrp\nmvrp include factory-default-vlan\nexit\n";

Result<> runAvbOff(Switch sw, const Side &side, std::int32_t keepTrust) {
    return toResult(runBlockScript(sw, side.block, keepTrust != 0 ? kAvbOffKeepTrust : side.script));
}

// The script names the VLAN in the VLAN database, which creates it.
Result<> runAndDropVlan(Switch sw, const Side &side, std::int32_t value) {
    const auto where = side.block.where();
    const auto id = VlanId::from(value);
    const auto before = id ? sw.checkVlan(*id) : OpenResult<>(std::unexpected(OpenError::Parameter));
    if (presenceOf(before) == Presence::Unknown) {
        // A VLAN of which nothing is known is not deleted.
        logError(where, "[%s:%d] vlan %d check error :%d \r\n", value, before.error());
        return failed(ResultCode::Failed);
    }
    auto result = writeBlockScript(side.block, filled(side.script, value));
    if (result)
        result = applyBlockScript(sw, side.block);
    if (!before && sw.checkVlan(*id)) {
        if (const auto deleted = deleteVlanAndVerify(sw, *id, where); !deleted) {
            logError(where, "[%s:%d] vlan %d delete error :%d \r\n", value, deleted.error().code);
            return failed(deleted.error().code);
        }
        logInfo(where, "[%s:%d] vlan %d delete success\r\n", value);
    }
    removeBlockFiles(side.block);
    return toResult(result);
}

constexpr Side kRstpFlood = {
    {"AvConfigGlobalrstpAdd", "global_no_igmp_flood_add", "[%s:%d] Apply IGMP global config failed.\r\n"},
    "vlan database\nno set igmp flood-report %d\nno set igmp exclude-mrouter-intf %d\nexit\n"};

// Two scripts, the second also when the switch refused the first.
Result<> runRstpOn(Switch sw, const Side &side, std::int32_t vlanId) {
    const auto first = runBlockScript(sw, side.block, filled(side.script, vlanId));
    if (!wasWritten(first))
        return toResult(first);
    const auto second = runScript(sw, kRstpFlood, vlanId);
    return first ? second : toResult(first);
}

// --- rows

constexpr const char *kAvbOn =
    "config\nno ptp clock e2e-transparent\nno mvrp\nno mvrp include factory-default-vlan\n"
    "classofservice trust dot1p\ndot1as\nmvrp\nmvrp periodic state machine\nmmrp\n"
    "mmrp periodic state machine\nmsrp\nexit\n";
constexpr const char *kAvbOff =
    "config\nno dot1as\nno mvrp\nno mmrp\nno msrp\nmvrp include factory-default-vlan\n"
    "no classofservice trust\nexit\n";
constexpr const char *kAvbOffFailed = "[%s:%d] Apply cli for delete AVB failed. (result = %d)\n";
constexpr const char *kSonosOn = "config\nspanning-tree mst priority 0 28672\nexit\n";
constexpr const char *kSonosOff = "config\nno spanning-tree mst priority 0\nexit\n";
constexpr const char *kSonosFailed = "[%s:%d] Apply cli for add sonos failed. (result = %d)\n";
constexpr const char *kOldSonosFailed = "[%s:%d] Apply cli for add Sonos failed. (result = %d)\n";
constexpr const char *kQuerierOff = "config\nno ip igmp snooping querier query-interval\nexit\n";
constexpr const char *kQuerierFailed = "[%s:%d] Apply cli for delete igmp querier failed. (result = %d)\n";
constexpr const char *kTreeFailed = "[%s:%d] Apply STP global config failed.\r\n";
constexpr const char *kMulticastFailed = "[%s:%d] Apply multicast global config failed.\r\n";

constexpr Row kRows[] = {
    {.block = AvBlock::Avb,
     .on = {{"AvConfigGlobalAvbAdd", "global_avb_add",
             "[%s:%d] Apply cli for add AVB failed. (result = %d)\n"},
            kAvbOn},
     .off = {{"AvConfigGlobalAvbDelete", "global_avb_delete", kAvbOffFailed}, kAvbOff, runAvbOff}},
    {.block = AvBlock::AvbMrp,
     .on = {},
     .off = {{"AvConfigGlobalAvbMrpPreDisable", "global_avb_mrp_pre",
              "[%s:%d] Apply cli for AVB MRP pre-config failed. (result = %d)\n"},
             "config\nno mvrp\nno mmrp\nno msrp\nexit\n"}},
    {.block = AvBlock::Sonos,
     .on = {{"AvConfigGlobalSonosAdd", "global_sonos_add", kSonosFailed}, kSonosOn},
     .off = {{"AvConfigGlobalSonosDelete", "global_sonos_delete", kSonosFailed},
             kSonosOff,
             runOnOurPriority}},
    {.block = AvBlock::Etc,
     .on = {{"AvConfigGlobalEtcAdd", "global_etc_add"},
            "config\nset igmp querier version 2\nset igmp querier timer expiry 180\n"
            "spanning-tree mode rstp\nexit\n"},
     .off = {{"AvConfigGlobalEtcDelete", "global_etc_delete"},
             "config\nno set igmp querier version\nno set igmp querier timer expiry\n"
             "no spanning-tree mode\nexit\n"}},
    {.block = AvBlock::Rstp,
     .on = {{"AvConfigGlobalrstpAdd", "global_rstp_add", kTreeFailed},
            "config\nspanning-tree mode rapid-pvst\nspanning-tree vlan %d hello-time 9\n"
            "spanning-tree vlan %d forward-time 30\nspanning-tree vlan %d max-age 22\nexit\n",
            runRstpOn},
     .off = {{"AvConfigGlobalrstpDelete", "global_rstp_delete"}, "config\nno spanning-tree mode\nexit\n"}},
    {.block = AvBlock::Acl,
     .on = {},
     .off = {{"AvConfigGlobalAclDelete", "global_acl_delete"},
             "config\nno ip access-list NET-BLOCK\nexit\n"}},
    {.block = AvBlock::Querier,
     .on = {{"AvConfigGlobalQuerierAdd", "global_querier_add", kQuerierFailed},
            "config\nip igmp snooping querier query-interval %d\nexit\n"},
     .off = {{"AvConfigGlobalQuerierDelete", "global_querier_delete", kQuerierFailed}, kQuerierOff}},
    {.block = AvBlock::MacFilter,
     .on = {},
     .off = {{"AvConfigGlobalmacfilterDelete", "global_macfilter_delete", kTreeFailed},
             "config\nno mac access-list extended visionaryNwAV\nexit\n",
             runOnFlags}},

    {.block = AvBlock::FastLeave,
     .on = {{"AvConfigGlobalFastLeaveAdd", "global_fast-leave_add"},
            "config\nvlan database\nset igmp fast-leave %d\nexit\nexit\n"},
     .off = {{"AvConfigGlobalFastLeaveDelete", "global_fast-leave_delete"},
             "config\nvlan database\nno set igmp fast-leave %d\nexit\nexit\n"}},
    {.block = AvBlock::EtcVlan,
     .on = {{"AvConfigGlobalEtcVidAdd", "global_etc_vid_add"},
            "vlan database\nset igmp querier election participate %d\nset igmp maxresponse %d 10\n"
            "set igmp groupmembership-interval %d 60\nexit\n"},
     .off = {{"AvConfigGlobalEtcVidDelete", "global_etc_vid_delete"},
             "vlan database\nno set igmp querier election participate %d\n"
             "no set igmp groupmembership-interval %d\nno set igmp maxresponse %d\nexit\n"}},
    {.block = AvBlock::ProxyQuerier,
     .on = {{"AvConfigGlobalHpPolyAdd", "global_igmp_proxy_querier_add"},
            "vlan database\nset igmp proxy-querier %d\nset mld proxy-querier %d\nexit\n"},
     .off = {{"AvConfigGlobalHpPolyDelete", "global_igmp_proxy_querier_delete"},
             "vlan database\nno set igmp proxy-querier %d\nno set mld proxy-querier %d\nexit\n"}},
    {.block = AvBlock::LightwareIgmp,
     .on = {{"AvConfigGlobalIgmpLightwareAdd", "global_igmp_lightware_add"},
            "config\nvlan database\nset igmp maxresponse %d 10\nset igmp groupmembership-interval %d 260\n"
            "set igmp mcrtrexpiretime %d 0\nexit\nexit\n"},
     .off = {{"AvConfigGlobalIgmpLightwareDelete", "global_igmp_lightware_delete", kMulticastFailed},
             "config\nvlan database\nno set igmp maxresponse %d\nno set igmp groupmembership-interval %d\n"
             "no set igmp mcrtrexpiretime %d\nexit\nexit\n",
             runAndDropVlan}},
    {.block = AvBlock::IgmpPlus,
     .on = {{"AvConfigGlobalIgmpPlusAdd", "global_igmp_add"},
            "config\nigmp-plus %d\nipv6 mld snooping\nvlan database\nset mld %d\nexit\nexit\n"},
     .off = {{"AvConfigGlobalIgmpPlusDelete", "global_igmp_delete"},
             "config\nno igmp-plus %d\nno ipv6 mld snooping\nvlan database\nno set mld %d\nexit\nexit\n",
             runAndDropVlan}},

    {.block = AvBlock::OldAvb,
     .on = {{"AVAVBGlobalConfigAdd", "AVB_add", kAvbOffFailed}, kAvbOn},
     .off = {{"AVAVBGlobalConfigDelete", "AVB_delete", kAvbOffFailed}, kAvbOff, runAvbOff}},
    {.block = AvBlock::OldSonos,
     .on = {{"AVSonosGlobalConfigAdd", "Sonos_add", kOldSonosFailed}, kSonosOn},
     .off = {{"AVSonosGlobalConfigDelete", "Sonos_delete", kOldSonosFailed}, kSonosOff, runOnOurPriority}},
    {.block = AvBlock::OldQuerier,
     .on = {},
     .off = {{"AVIgmpQuerierGlobalConfigDelete", "igmp_querier_delete", kQuerierFailed}, kQuerierOff}},
};

constexpr bool rowsInOrder() {
    for (std::size_t i = 0; i < std::size(kRows); ++i)
        if (kRows[i].block != static_cast<AvBlock>(i))
            return false;
    return std::size(kRows) == static_cast<std::size_t>(AvBlock::Count);
}
static_assert(rowsInOrder());

const Row &rowOf(AvBlock block) {
    return kRows[static_cast<std::size_t>(block)];
}

// --- PTP

Result<> setPtpTc(Switch sw, bool on, FeatureQuery supported, const Where &where,
                  LogFormat<OpenError> failure) {
    std::int32_t hasDot1as = 0;
    if (on && supported(sw, FEATURE_DOT1AS, &hasDot1as) == codeOf(ResultCode::Success) && hasDot1as != 0) {
        const auto dot1as = sw.dot1as();
        if (!dot1as) {
            logError(where, "[%s:%d] Bad return code trying to get 802.1AS mode. (result = %d)\n",
                     dot1as.error());
            return failed(ResultCode::Failed);
        }
        if (*dot1as)
            return {};  // the two cannot be on together
    }
    if (const auto set = sw.setPtpTc(on); !set) {
        logError(where, failure, set.error());
        return failed(ResultCode::Failed);
    }
    return {};
}

}  // namespace

Result<> switchBlockOn(Switch sw, AvBlock block, std::int32_t value) {
    return run(sw, rowOf(block).on, value);
}

Result<> switchBlockOff(Switch sw, AvBlock block, std::int32_t value) {
    return run(sw, rowOf(block).off, value);
}

SettingWrites blockWrites(AvBlock block, bool on, std::int32_t value) {
    const Row &row = rowOf(block);
    const Side &side = on ? row.on : row.off;
    std::string script = side.script != nullptr ? filled(side.script, value) : "";
    if (side.rule == runRstpOn)
        script += filled(kRstpFlood.script, value);
    if (side.rule == runAvbOff && value != 0)
        script = kAvbOffKeepTrust;
    return parseSettingWrites(script);
}

Result<> switchPtpTc(Switch sw, bool on, FeatureQuery supported) {
    return on ? setPtpTc(sw, true, supported, Where("AvConfigGlobalPtpTcAdd", __LINE__),
                         "[%s:%d] Apply ptp tc to enable failed. (result = %d)\n")
              : setPtpTc(sw, false, supported, Where("AvConfigGlobalPtpTcDelete", __LINE__),
                         "[%s:%d] Apply ptp tc to disable failed. (result = %d)\n");
}

Result<> switchOldPtpTcOn(Switch sw) {
    return setPtpTc(sw, true, featureSupportedGet, Where("AVPTPGlobalConfigAdd", __LINE__),
                    "[%s:%d] Apply PTP to enable failed. (result = %d)\n");
}

void setMulticast(Switch sw, std::int32_t vlanId, std::int32_t queryInterval,
                  std::int32_t membershipInterval) {
    constexpr BlockScript kBlock{"multicastGlobalConfigSet", "multicast_global", kMulticastFailed};
    const auto runOne = [&](const std::string &script) {
        static_cast<void>(runBlockScript(sw, kBlock, script));
    };
    runOne(filled("config\nigmp-plus %d\nexit\n", vlanId));
    if (queryInterval > 0)
        runOne(filled("config\nip igmp snooping querier query-interval %d\nexit\n", queryInterval));
    if (membershipInterval > 0)
        runOne(
            formatText("vlan database\nset igmp maxresponse %d 10\n"
                       "set igmp groupmembership-interval %d %d\nexit\n",
                       vlanId, vlanId, membershipInterval));
}

}  // namespace pavo
