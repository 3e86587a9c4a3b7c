// The switch as the program sees it: the one place that makes OpEN calls.
//
// A Switch is a view on a client handle, and as cheap to copy: the handle outlives it. Any thread may use it.
// Reads and settings return the code of the OpEN call and log nothing; their callers do, in their own words.
// What takes a `where` reports its failures itself, on behalf of the operation that `where` names.
//
// Time limits: a connectivity check is answered within 3 seconds of real time and any other call within 10,
// or it fails with Unreachable. From then on every call of the process fails at once until the switch answers
// again. So whatever an operation consists of, a switch that hangs holds it up for 10 seconds at most, in
// addition to the pauses that it makes for a switch that does answer (swapi/poll.h). The client library of
// the virtual switch keeps these limits; with a switch maker's library they are that library's.
#ifndef PAVO_SWAPI_SWITCH_H
#define PAVO_SWAPI_SWITCH_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <expected>
#include <optional>
#include <source_location>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "common/if_num.h"
#include "common/ipv4.h"
#include "common/log_format.h"
#include "common/mac.h"
#include "common/result.h"
#include "common/vlan_id.h"
#include "common/where.h"
#include "platform/open_client.h"
#include "swapi/open_result.h"
#include "swapi/port_types.h"
#include "swapi/system_types.h"
#include "swapi/walk.h"

namespace pavo {

enum class IfType : std::uint32_t { Port = OPEN_INTF_TYPE_PHY, Lag = OPEN_INTF_TYPE_LAG };

enum class Participation : std::uint32_t {
    Include = OPEN_VLAN_PARTICIPATION_MODE_INCLUDE,  // a static member
    Exclude = OPEN_VLAN_PARTICIPATION_MODE_EXCLUDE,
    Auto = OPEN_VLAN_PARTICIPATION_MODE_AUTO,  // the switch decides
};

enum class Tagging : std::uint32_t { Untagged = 0, Tagged = 1 };

// Which frames an interface accepts.
enum class AcceptFrames : std::uint32_t {
    All = OPEN_VLAN_ACCEPT_ALL,
    VlanOnly = OPEN_VLAN_ACCEPT_VLAN_ONLY,
    UntaggedOnly = OPEN_VLAN_ACCEPT_UNTAGGED_ONLY,
};

enum class AdminState : std::uint32_t { Disabled = OPEN_DISABLE, Enabled = OPEN_ENABLE };

// 802.1X port control.
enum class PortControl : std::uint32_t {
    ForceUnauthorized = OPEN_DOT1X_FORCE_UNAUTHORIZED,
    Auto = OPEN_DOT1X_AUTO,
    ForceAuthorized = OPEN_DOT1X_FORCE_AUTHORIZED,
    None = OPEN_DOT1X_NA,  // port control does not apply
};

struct ApiVersion {
    std::uint32_t release = 0;
    std::uint32_t version = 0;
    std::uint32_t maintenance = 0;
    std::uint32_t build = 0;
};

// An address in the forwarding table.
struct FdbEntry {
    Mac mac;
    std::optional<VlanId> vlan;
    IfNum port;            // port or LAG it was learned on
    bool learned = false;  // false for a static entry
};

// A neighbour that LLDP has heard, by the key of its table.
struct NeighbourKey {
    IfNum port;
    std::uint32_t remIndex = 0;
    std::uint32_t timeStamp = 0;

    bool operator==(const NeighbourKey &) const = default;
};

enum class NeighbourField { ChassisId, PortId, SystemDesc, PortDesc, SystemName };

// What identifies a neighbour or its port; which kind of string it is depends on the subtype, as on the wire.
struct NeighbourId {
    static constexpr std::uint32_t kChassisMac = 4;
    static constexpr std::uint32_t kPortMac = 3;

    std::uint32_t subtype = 0;
    std::string text;
};

// An address in the ARP table; the MAC address is spelled as the switch spells it.
struct ArpEntry {
    std::uint32_t vlan = 0;
    Ipv4 ip;
    std::string mac;
};

// What a port is for.
enum class SwitchportMode : std::uint32_t {
    General = OPEN_SWITCHPORT_MODE_GENERAL,
    Access = OPEN_SWITCHPORT_MODE_ACCESS,
    Trunk = OPEN_SWITCHPORT_MODE_TRUNK,  // another switch is behind it
};

// Where an interface is, see openapiHashIntfUnitSlotPortGet.
struct UnitSlotPort {
    std::uint32_t unit = 0;
    std::uint32_t slot = 0;
    std::uint32_t port = 0;

    bool operator==(const UnitSlotPort &) const = default;
};

// The numbers of LAGs: 1 for the first LAG interface, and so on.
struct LagNumbering {
    IfNum first;

    std::uint32_t numberOf(IfNum lag) const { return lag.number() - first.number() + 1; }
    IfNum interfaceOf(std::uint32_t number) const { return IfNum(first.number() + number - 1); }
};

// An IPv4 access list, and in which direction it filters.
struct AccessListId {
    std::uint32_t number = 0;
};
enum class Direction : std::uint32_t { Inbound = OPEN_ACL_INBOUND, Outbound = OPEN_ACL_OUTBOUND };

// The two files of a CLI script (fixed paths): what is applied, and what the CLI prints.
struct ScriptFiles {
    std::string in;
    std::string out;

    // "pavo_in_" and "pavo_out_" followed by the tag, in the folder for scripts.
    static ScriptFiles forTag(const std::string &tag);
};

// The step at which a script failed.
struct ScriptFailure {
    enum class Step { Write, Apply };
    Step step;
    ResultCode code;
};
using ScriptResult = std::expected<void, ScriptFailure>;

inline constexpr LogFormat<std::string> kCannotOpenFile = "[%s:%d] can not open file:%s\r\n";

class Switch {
  public:
    // Implicit: whoever has a handle has a switch.
    Switch(openapiClientHandle_t *client) : client_(client) {}

    openapiClientHandle_t *handle() const { return client_; }

    // --- system

    OpenResult<> checkConnectivity() const;
    OpenResult<std::string> osVersion() const;
    OpenResult<ApiVersion> apiVersion() const;
    OpenResult<std::string> machineModel() const;

    // --- configuration by CLI

    // Writes the script, applies it and deletes both files, whatever comes of it; the files are also deleted
    // before. Failures are logged. What the CLI printed is not looked at.
    [[nodiscard]] ScriptResult apply(std::string_view script, const ScriptFiles &files,
                                     Where where = std::source_location::current()) const;
    // Only the second of these steps, for a script that is in its file.
    Result<> applyFile(const std::string &in, const std::string &out,
                       Where where = std::source_location::current()) const;
    // The same through the switch OS's second apply entry.
    Result<> applyFileNdc(const std::string &in, const std::string &out,
                          Where where = std::source_location::current()) const;

    // What a show command prints. It is captured into `file` (a fixed path), which is deleted before and
    // after; captures into one file wait for each other within the process. Failed when the switch refuses,
    // OpenFailed (with the message `cannotOpen`) when the output cannot be read.
    Result<std::string> show(std::string_view command, const std::string &file,
                             Where where = std::source_location::current(),
                             LogFormat<std::string> cannotOpen = kCannotOpenFile) const;
    // Only the capture. Commands are cut to 254 characters and paths to 95, as the switch has room for.
    Result<> captureShow(std::string_view command, const std::string &file,
                         Where where = std::source_location::current()) const;
    // The same, uncut and without a word in the log.
    OpenResult<> tryCaptureShow(const std::string &command, const std::string &file) const;

    // --- interfaces, ascending

    auto ports() const { return Walk(IfStep{client_, IfType::Port, IfNum{}, true}); }
    // The same by the walk's next call alone.
    auto portsByNext() const { return Walk(IfStep{client_, IfType::Port, IfNum{}, false}); }
    auto lags() const { return Walk(IfStep{client_, IfType::Lag, IfNum{}, true}); }
    // LAGs by the walk's next call alone, which asks once less.
    auto lagsByNext() const { return Walk(IfStep{client_, IfType::Lag, IfNum{}, false}); }
    OpenResult<IfNum> firstInterface(IfType type) const;
    OpenResult<std::uint32_t> interfaceType(IfNum ifNum) const;
    OpenResult<AdminState> adminState(IfNum ifNum) const;

    OpenResult<LagNumbering> lagNumbering() const;
    OpenResult<std::uint32_t> lagMaxMembers() const;
    // In ascending order; `max` is lagMaxMembers().
    OpenResult<std::vector<IfNum>> lagMembers(IfNum lag, std::uint32_t max) const;
    OpenResult<> addLagPort(IfNum lag, IfNum port) const;
    OpenResult<> deleteLagPort(IfNum lag, IfNum port) const;
    OpenResult<> setLagStatic(IfNum lag, bool isStatic) const;

    // --- what the switch has learned

    // In the order of MAC address, then VLAN. An entry whose address is no MAC address is passed over
    // (logged).
    auto forwardingTable(Where where = std::source_location::current()) const {
        return Walk(FdbStep(client_, where));
    }

    auto lldpInterfaces() const { return Walk(LldpIfStep{client_, IfNum{}}); }
    auto neighbours(IfNum port) const { return Walk(NeighbourStep{client_, NeighbourKey{port, 0, 0}}); }
    // Room that the strings of neighbours need; Failed when the switch names a size that no string has.
    OpenResult<std::uint32_t> lldpTextSize() const;
    // `size` is lldpTextSize().
    OpenResult<std::string> neighbourText(const NeighbourKey &key, NeighbourField field,
                                          std::uint32_t size) const;
    // The capabilities that it has enabled, by name: "bridge, router".
    OpenResult<std::string> neighbourCapabilities(const NeighbourKey &key, std::uint32_t size) const;

    // --- VLANs

    auto vlans() const { return Walk(VlanStep{client_, 0}); }
    OpenResult<> checkVlan(VlanId id) const;
    Presence vlanPresence(VlanId id) const { return presenceOf(checkVlan(id)); }
    // False also when the switch does not answer.
    bool isStaticVlan(VlanId id) const;
    OpenResult<std::uint32_t> vlanNameSize() const;
    // `size` is vlanNameSize().
    OpenResult<std::string> vlanName(VlanId id, std::uint32_t size) const;
    OpenResult<> createVlan(VlanId id) const;
    OpenResult<> deleteVlan(VlanId id) const;
    // In a buffer of `size` bytes, terminated when there is room; what does not fit is cut.
    OpenResult<> setVlanName(VlanId id, std::string_view name, std::uint32_t size) const;

    // Failed for a number that is no VLAN's; the second form gives it all the same.
    OpenResult<VlanId> pvid(IfNum ifNum) const;
    OpenResult<std::uint32_t> pvidNumber(IfNum ifNum) const;
    OpenResult<Tagging> tagging(IfNum ifNum, VlanId id) const;
    // What is in effect at present.
    OpenResult<Participation> participation(IfNum ifNum, VlanId id) const;
    OpenResult<Participation> configuredParticipation(IfNum ifNum, VlanId id) const;
    OpenResult<bool> takesPart(IfNum ifNum, VlanId id) const;  // at present
    // Ascending.
    OpenResult<std::vector<VlanId>> taggedVlans(IfNum ifNum) const;
    // The same as the call writes it: 16-bit numbers, as many as fit.
    OpenResult<> taggedVlans(IfNum ifNum, open_buffdesc *list) const;
    // These are accepted at once and show when they have taken effect; see swapi/vlan_membership.h.
    OpenResult<> setPvid(IfNum ifNum, VlanId id) const;
    OpenResult<> setTagging(IfNum ifNum, VlanId id, Tagging tagging) const;
    OpenResult<> setParticipation(IfNum ifNum, VlanId id, Participation participation) const;
    OpenResult<> setAcceptFrames(IfNum ifNum, AcceptFrames frames) const;  // at once

    // --- 802.1X

    OpenResult<bool> dot1x() const;  // of the whole switch
    OpenResult<> setPortControl(IfNum port, PortControl control) const;
    OpenResult<PortControl> portControl(IfNum port) const;
    OpenResult<std::uint32_t> portStatus(
        IfNum port) const;  // OPEN_DOT1X_PORT_, or a number of the switch's own
    OpenResult<bool> isPortAuthorized(IfNum port) const;
    OpenResult<PortReauthentication> portReauthentication(IfNum port) const;

    // --- PTP, spanning tree

    OpenResult<> setPtpTc(bool on) const;
    OpenResult<bool> ptpTc() const;
    OpenResult<> setPortPtpTc(IfNum port, bool on) const;
    OpenResult<bool> dot1as() const;
    OpenResult<std::uint32_t> mstPriority(std::uint32_t instance) const;

    // --- ports and LAGs: settings, counters, optics, trunks, mirroring

    OpenResult<std::string> description(IfNum ifNum) const;
    OpenResult<std::uint32_t> mtu(IfNum ifNum) const;  // largest frame in bytes
    OpenResult<LinkSpeed> speedSetting(IfNum port) const;
    // NotFound without link, Unavailable when the link does not tell.
    OpenResult<LinkSpeed> linkSpeed(IfNum ifNum) const;
    OpenResult<ErrorDisable> errorDisable(IfNum port) const;
    OpenResult<PortHardware> portHardware(IfNum port) const;

    OpenResult<TrafficCounters> trafficCounters(IfNum ifNum) const;
    // Unavailable where packets are counted together.
    OpenResult<CastCounters> castCounters(IfNum ifNum, TrafficDirection direction) const;
    OpenResult<ErrorCounters> errorCounters(IfNum ifNum) const;

    // Each NotFound without a transceiver, Unavailable for a port that takes none; the last two also when it
    // does not measure.
    OpenResult<SfpInventory> sfpInventory(IfNum port) const;
    OpenResult<SfpDiagnostics> sfpDiagnostics(IfNum port) const;
    OpenResult<SfpPower> sfpPower(IfNum port) const;

    OpenResult<std::string> lagName(IfNum lag) const;
    OpenResult<bool> isLagStatic(IfNum lag) const;
    OpenResult<LagHash> lagHash(IfNum lag) const;
    // The members that carry traffic, as lagMembers.
    OpenResult<std::vector<IfNum>> activeLagMembers(IfNum lag, std::uint32_t max) const;
    OpenResult<AutoLag> autoLag() const;
    OpenResult<bool> autoTrunk() const;

    // Mirror sessions are numbered from 1 to this.
    OpenResult<std::uint32_t> mirrorSessionMax() const;
    OpenResult<bool> isMirrorEnabled(std::uint32_t session) const;
    OpenResult<IfNum> mirrorDestination(std::uint32_t session) const;  // NotFound: none
    auto mirrorSources(std::uint32_t session) const { return Walk(MirrorStep{client_, session, IfNum{}}); }

    // --- system: identity, health, time, log, images, RADIUS, PTP

    OpenResult<std::string> hostName() const;
    OpenResult<std::string> location() const;
    OpenResult<std::string> contact() const;
    OpenResult<std::string> serialNumber() const;
    OpenResult<Mac> burnedInMac() const;
    // Seconds.
    OpenResult<std::uint32_t> upTime() const;

    // Tables of numbered entries, ascending.
    auto sensors() const { return Walk(NumberStep{client_, rpcclt_openapiTempSensorNextGet, 0}); }
    auto fans() const { return Walk(NumberStep{client_, rpcclt_openapiFanNextGet, 0}); }
    auto powerSupplies() const { return Walk(NumberStep{client_, rpcclt_openapiPowerSupplyNextGet, 0}); }
    auto sntpServers() const { return Walk(NumberStep{client_, rpcclt_openapiSntpServerNextGet, 0}); }
    auto logHosts() const { return Walk(NumberStep{client_, rpcclt_openapiLogHostNextGet, 0}); }
    auto radiusServers() const { return Walk(NumberStep{client_, rpcclt_openapiRadiusServerNextGet, 0}); }

    OpenResult<std::string> sensorName(std::uint32_t sensor) const;
    OpenResult<SensorStatus> sensorStatus(std::uint32_t sensor) const;
    OpenResult<std::string> fanName(std::uint32_t fan) const;
    OpenResult<FanStatus> fanStatus(std::uint32_t fan) const;
    OpenResult<std::string> powerSupplyName(std::uint32_t supply) const;
    OpenResult<UnitState> powerSupplyState(std::uint32_t supply) const;
    OpenResult<std::uint32_t> cpuPercent() const;
    OpenResult<MemoryStatus> memory() const;

    // Seconds since 1970-01-01 UTC by the switch's clock.
    OpenResult<std::uint32_t> clock() const;
    OpenResult<TimeZone> timeZone() const;
    OpenResult<SntpMode> sntpMode() const;
    OpenResult<SntpStatus> sntpStatus() const;
    OpenResult<SntpServer> sntpServer(std::uint32_t number) const;

    OpenResult<LogSinkStatus> logSink(LogSink sink) const;
    OpenResult<bool> syslog() const;  // the log hosts get lines
    OpenResult<LogHost> logHost(std::uint32_t number) const;

    OpenResult<RadiusTimers> radiusTimers() const;
    OpenResult<RadiusServer> radiusServer(std::uint32_t number) const;
    OpenResult<RadiusServerName> radiusServerName(std::uint32_t number) const;

    OpenResult<bool> portPtpTc(IfNum port) const;
    OpenResult<bool> portDot1as(IfNum port) const;
    // As isStaticVlan, for those who have to tell "no" from "no answer".
    OpenResult<bool> staticVlan(VlanId id) const;

    // --- neighbours: ARP, LLDP management addresses, switch-port mode

    auto arpTable() const { return Walk(ArpStep{client_}); }
    OpenResult<std::string> interfaceName(IfNum ifNum) const;
    OpenResult<bool> hasLink(IfNum ifNum) const;
    OpenResult<SwitchportMode> switchportMode(IfNum ifNum) const;
    OpenResult<UnitSlotPort> unitSlotPort(IfNum ifNum) const;
    // `field` is ChassisId or PortId, `size` is lldpTextSize() here and below.
    OpenResult<NeighbourId> neighbourId(const NeighbourKey &key, NeighbourField field,
                                        std::uint32_t size) const;
    // The first management address that it announces; NotFound without any.
    OpenResult<std::string> managementAddress(const NeighbourKey &key, std::uint32_t size) const;

    // --- multicast: access lists, IGMP snooping

    // NoAccessList when there is none of that name.
    OpenResult<AccessListId> accessList(const std::string &name) const;
    OpenResult<AccessListId> createAccessList(const std::string &name) const;
    // The rules by their numbers, in the order in which they are tried.
    auto accessRules(AccessListId list) const { return Walk(RuleStep{client_, list}); }
    OpenResult<> deleteLastRule(AccessListId list) const;
    // Interfaces that the list is bound to.
    OpenResult<std::vector<IfNum>> boundInterfaces(AccessListId list, Direction direction) const;
    OpenResult<> bindAccessList(AccessListId list, IfNum ifNum, Direction direction) const;
    // NotFound when it is not bound there.
    OpenResult<> unbindAccessList(AccessListId list, IfNum ifNum, Direction direction) const;
    // Interfaces on which a multicast router has been configured, ascending.
    auto routerInterfaces() const { return Walk(RouterStep{client_, IfNum{}}); }

    // --- users of the command line

    // Room that a name and a password need, with the terminating zero.
    OpenResult<std::uint32_t> userNameSize() const;
    OpenResult<std::uint32_t> passwordSize() const;
    // NotFound without such a user. `size` is passwordSize(); the password is in clear text.
    OpenResult<std::string> userPassword(const std::string &name, std::uint32_t size) const;
    OpenResult<std::uint32_t> userLevel(const std::string &name) const;  // OPEN_USER_LEVEL_

  private:
    struct RuleStep {
        openapiClientHandle_t *client;
        AccessListId list;
        std::uint32_t last = 0;
        bool first = true;
        OpenResult<std::uint32_t> operator()();
    };
    struct RouterStep {
        openapiClientHandle_t *client;
        IfNum last;
        OpenResult<IfNum> operator()();
    };
    struct IfStep {
        openapiClientHandle_t *client;
        IfType type;
        IfNum last;
        bool askFirst;  // begin with the call for the first interface
        OpenResult<IfNum> operator()();
    };
    struct NumberStep {
        openapiClientHandle_t *client;
        open_error_t (*next)(openapiClientHandle_t *, std::uint32_t, std::uint32_t *);
        std::uint32_t last;
        OpenResult<std::uint32_t> operator()();
    };
    struct LldpIfStep {
        openapiClientHandle_t *client;
        IfNum last;
        OpenResult<IfNum> operator()();
    };
    struct MirrorStep {
        openapiClientHandle_t *client;
        std::uint32_t session;
        IfNum last;
        OpenResult<MirrorSource> operator()();
    };
    struct NeighbourStep {
        openapiClientHandle_t *client;
        NeighbourKey last;
        CircleWatch<std::pair<std::uint32_t, std::uint32_t>> circle{};
        OpenResult<NeighbourKey> operator()();
    };
    struct ArpStep {
        openapiClientHandle_t *client;
        std::uint32_t vlan = 0;
        std::uint32_t ip = 0;
        CircleWatch<std::pair<std::uint32_t, std::uint32_t>> circle{};
        OpenResult<ArpEntry> operator()();
    };
    struct VlanStep {
        openapiClientHandle_t *client;
        std::uint32_t last;
        OpenResult<VlanId> operator()();
    };
    class FdbStep {
      public:
        FdbStep(openapiClientHandle_t *client, const Where &where) : client_(client), where_(where) {}
        OpenResult<FdbEntry> operator()();

      private:
        openapiClientHandle_t *client_;
        Where where_;
        std::pair<std::array<char, 100>, std::uint32_t> last_{};  // address, zeros after it, and VLAN
        CircleWatch<decltype(last_)> circle_{};
    };

    openapiClientHandle_t *client_;
};

// The name of an interface in CLI scripts: "0/5", "lag 2".
std::string portCliName(IfNum port);
std::string lagCliName(std::uint32_t lagNumber);

}  // namespace pavo

#endif
