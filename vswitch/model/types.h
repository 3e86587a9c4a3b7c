// The plain data of the virtual switch.
#ifndef PAVO_VSWITCH_MODEL_TYPES_H
#define PAVO_VSWITCH_MODEL_TYPES_H

#include <array>
#include <compare>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "platform/clock.h"
#include "platform/open_client.h"
#include "vswitch/model/dot1x.h"
#include "vswitch/model/ports.h"

namespace vswitch {

using platform::Duration;
using IfNum = std::uint32_t;
using VlanId = std::uint32_t;

inline constexpr VlanId kDefaultVlan = 1;
inline constexpr VlanId kVlanMax = 4094;
inline constexpr std::size_t kVlanNameMax = 32;
inline constexpr std::uint32_t kInterfacesMax = 896;
inline constexpr std::uint32_t kMtuMin = 1500, kMtuMax = 12288, kMtuDefault = 1518;
inline constexpr std::uint32_t kReauthPeriodDefault = 3600;
// LLDP strings hold up to 255 bytes on the wire.
inline constexpr std::size_t kLldpTextMax = 255;

struct Mac {
    std::array<std::uint8_t, 6> bytes{};

    auto operator<=>(const Mac &) const = default;
    static std::optional<Mac> parse(std::string_view text);  // six hexadecimal groups, ':' or '-' between
    std::string text() const;                                // upper case, ':' between
    Mac plus(std::uint32_t n) const;                         // the n-th address after this one
};

struct ModelConfig {
    std::uint32_t physicalPorts = 48;
    std::uint32_t lags = 24;
    std::uint32_t lagMembersMax = 8;
    // The last so many ports have a cage for a transceiver; at most every other one.
    std::uint32_t sfpPorts = 24;
    std::uint32_t defaultMtu = kMtuDefault;  // what the running configuration leaves out
    std::size_t fdbCapacity = 16384;
    std::size_t macAssociationsMax = 16384;
    std::size_t igmpGroupsMax = 10000, igmpSubscribersMax = 65536;
    bool igmpShowsChannels = false;  // "show igmpsnooping group" calls a LAG "ch1" instead of "lag 1"
    std::size_t logCapacity = 4096;
    std::string hostName = "avswitch";
    std::string machineModel = "AVM4848-24X";
    std::string osVersion = "8.6.3.1";
    std::string burnedInMac = "02:50:56:00:10:00";
    std::string serialNumber = "VS0000001";
};

struct SystemInfo {
    std::string hostName, machineModel, osVersion, serialNumber;
    Mac burnedInMac;
    std::array<std::uint32_t, 4> apiVersion{1, 25, 0, 1};
    std::string activeImage, backupImage, nextActive = "active";
    Duration fdbAgeTime = std::chrono::seconds(300);
    bool dot1xEnabled = false;
    bool ptpTransparentClock = false;
    // Management address.
    VlanId mgmtVlan = 1;
    bool mgmtDhcp = true;
    std::string mgmtIp = "0.0.0.0", mgmtMask = "0.0.0.0", mgmtGateway = "0.0.0.0";
};

// How an interface participates in one VLAN; VLANs that an interface does not mention have the default.
struct Membership {
    std::uint32_t participation = OPEN_VLAN_PARTICIPATION_MODE_AUTO;
    bool tagged = false;

    bool operator==(const Membership &) const = default;
};

enum class AcceptFrames { All, VlanOnly, AdminUntaggedOnly };
// What decides whether a port has link: the devices plugged into it, or an operator.
enum class Carrier { FollowDevices, ForcedUp, ForcedDown };

// Maximum number of access lists in one direction of an interface.
inline constexpr std::size_t kAccessGroupsMax = 16;
inline constexpr std::size_t kAccessListsMax = 100, kAccessRulesMax = 1023;
// Names of access lists, class maps and policy maps: letters, digits, '_', '-' and '.'.
inline constexpr std::size_t kObjectNameMax = 31;
bool objectNameValid(std::string_view name);

// An IPv4 access list bound to an interface.
struct AccessGroup {
    std::uint32_t direction = OPEN_ACL_INBOUND, sequence = 1;
    std::string list;

    bool operator==(const AccessGroup &) const = default;
};

inline constexpr std::uint32_t kLagHashModeDefault = OPEN_LAG_HASH_MAC;

struct Interface {
    IfNum num = 0;
    std::uint32_t type = OPEN_INTF_TYPE_PHY;
    std::uint32_t index = 0;  // port number, or LAG number from 1
    bool adminUp = true;
    bool linkUp = false;
    Carrier carrier = Carrier::FollowDevices;
    // A port that a data plane forwards for: it has link when the wire has, and no device can be plugged in.
    bool live = false, wireUp = false;
    std::string description;
    std::string speed = "auto";
    std::uint32_t errorDisabled = OPEN_ERROR_DISABLE_NONE;  // why the switch keeps the port down
    bool hasCage = false;                                   // for a transceiver
    std::optional<SfpModule> sfp;                           // that somebody has put in
    std::uint32_t wireSpeed = 0;                            // live: Mbit/s of the wire, 0 when not known
    PortCounting counting;
    std::uint32_t mtu = kMtuDefault;  // largest frame in bytes

    VlanId pvid = kDefaultVlan;
    std::map<VlanId, Membership> vlans;  // only what differs from the default
    AcceptFrames acceptFrames = AcceptFrames::All;
    std::uint32_t switchportMode = OPEN_SWITCHPORT_MODE_GENERAL;

    std::uint32_t dot1xControlMode = OPEN_DOT1X_AUTO;
    bool dot1xReauthentication = false;
    std::uint32_t dot1xReauthPeriod = kReauthPeriodDefault;  // seconds
    Dot1xState dot1x;
    bool ptpTcEnabled = true;

    // 802.1AS and the MRP applications; timers in centiseconds.
    bool dot1as = false, mvrp = false, mmrp = false, msrp = false;
    std::uint32_t mrpJoinTime = 20, mrpLeaveTime = 100, mrpLeaveAllTime = 1000;

    bool igmpMrouter = false;  // a multicast router is behind it

    std::vector<AccessGroup> accessGroups;  // in the order of direction and sequence

    IfNum lag = 0;  // physical port: the LAG it is a member of

    // LAG only.
    std::string lagName;
    std::set<IfNum> members;
    bool lagStatic = true;
    std::uint32_t lagHashMode = kLagHashModeDefault;  // OPEN_LAG_HASH_

    bool isLag() const { return type == OPEN_INTF_TYPE_LAG; }
    std::string name() const;  // "0/1", "lag 1"
};

// Multicast and spanning-tree settings of one VLAN; times in seconds, absent while the default applies.
struct VlanFeatures {
    // IGMP Plus is snooping with a querier, and drops what nobody has asked for.
    bool igmpSnooping = false, igmpPlus = false, fastLeave = false, floodReport = false,
         excludeMrouter = false, querierElection = false, proxyQuerier = false, dropUnknown = false;
    bool mldSnooping = false, mldProxyQuerier = false;
    std::optional<std::uint32_t> maxResponse, membershipInterval, mrouterExpiry;
    std::optional<std::uint32_t> helloTime, forwardTime, maxAge;  // only while the switch runs PVST
};

struct Vlan {
    VlanId id = 0;
    std::string name;
    bool isStatic = true;
    VlanFeatures features{};
};

enum class SpanningTreeMode { Stp, Rstp, Mst, Pvst, RapidPvst };
inline constexpr std::uint32_t kMstPriorityDefault = 32768;

// Switch-wide settings that AV features consist of; numbers are absent while the default applies.
struct SwitchFeatures {
    bool dot1as = false;
    bool mvrp = false, mmrp = false, msrp = false;
    bool mvrpPeriodic = false, mmrpPeriodic = false;
    bool mvrpDefaultVlan = true;  // MVRP declares VLAN 1, too

    SpanningTreeMode spanningTreeMode = SpanningTreeMode::Mst;
    std::uint32_t mstPriority = kMstPriorityDefault;  // of instance 0

    bool mldSnooping = false;
    std::optional<std::uint32_t> querierVersion, querierExpiry, queryInterval;
    bool switchportModeAuto = false;

    bool autoLag = false;
    std::uint32_t autoLagHashMode = kLagHashModeDefault;  // of the LAGs that it makes
};

// Copies what passes some interfaces to a port at which somebody listens.
inline constexpr std::uint32_t kMirrorSessionsMax = 4;
struct MirrorSession {
    std::map<IfNum, std::uint32_t> sources;  // ports and LAGs, with OPEN_MIRROR_
    IfNum destination = 0;                   // a port; 0: none yet
    bool enabled = false;
};

// One line of an access list; an address is "any", or an address and the bits of it that may differ.
struct AccessRule {
    bool permit = false;
    std::string source, destination;
};
// A list without lines filters nothing; with some, what no line matches is dropped.
using AccessLists = std::map<std::string, std::vector<AccessRule>>;

// A neighbour's IPv4 address as seen in its ARP frames.
struct ArpKey {
    VlanId vlan = 0;
    std::string ip;
    // By address first.
    auto operator<=>(const ArpKey &other) const {
        return std::tie(ip, vlan) <=> std::tie(other.ip, other.vlan);
    }
    bool operator==(const ArpKey &) const = default;
};

enum class AddressMethod { None, Manual, Dhcp };

// Routes between a VLAN and the others; an address from DHCP never arrives here.
struct RoutingInterface {
    AddressMethod method = AddressMethod::None;
    std::string ip = "0.0.0.0", mask = "0.0.0.0";
};

struct FdbKey {
    Mac mac;
    VlanId vlan = 0;
    auto operator<=>(const FdbKey &) const = default;
};

struct FdbEntry {
    IfNum ifNum = 0;  // the interface that forwards: the port, or the LAG it is in
    IfNum port = 0;   // the physical port of a learned entry, else as ifNum
    std::uint32_t type = OPEN_FDB_ADDR_LEARNED;
    Duration lastSeen{};
};

struct LldpFields {
    std::uint32_t chassisIdSubtype = 4;  // MAC address
    std::string chassisId;
    std::uint32_t portIdSubtype = 3;  // MAC address
    std::string portId;
    std::string portDesc, systemName, systemDesc, mgmtAddress;
    std::string capabilities;  // that are enabled: "bridge, router"
    std::uint32_t ttl = 120;

    void cutTexts();  // to kLldpTextMax each
};

struct LldpNeighbour {
    std::uint32_t timeStamp = 0;  // uptime in seconds when it was first heard, from 1
    LldpFields fields;
    std::string device;
    Duration lastHeard{};
};

// What a data plane saw on a live port.
struct SeenAddress {
    Mac mac;
    VlanId vlan = 0;
    IfNum interface = 0;  // port or LAG
    Duration age{};       // since its last frame, on the switch's clock
};
struct SeenNeighbour {
    IfNum port = 0;
    LldpFields fields;
};
struct SeenSupplicant {
    IfNum port = 0;
    std::uint64_t round = 0;  // in which it was seen, see Dot1xState
    bool authenticated = false;
    bool failed = false;    // since the last time, somebody has tried in vain
    std::string mac, user;  // who it is, when authenticated
};

// A device of the outside world and where it is plugged in.
struct Device {
    std::string name;
    IfNum port = 0;
    std::string behind;  // the device whose pass-through port it uses; empty: at the switch port itself
    std::vector<Mac> macs;
    VlanId tag = 0;  // sends frames tagged with this VLAN; 0: untagged
    std::string ip;
    std::optional<LldpFields> lldp;
    bool talking = true;
    std::map<std::uint32_t, std::uint32_t> groups{};  // IPv4 multicast groups joined, and the IGMP version
    std::uint32_t speed = 0;  // the fastest it can do, in Mbit/s; 0: whatever the port can
    bool halfDuplex = false;  // cannot do better
};

struct LogLine {
    std::uint64_t number = 0;
    std::timespec wall{};
    int severity = 6;
    std::string component;  // process or subsystem
    std::string place;      // source file and line
    std::string text;
};

struct Event {
    std::uint64_t number = 0;
    std::timespec wall{};
    std::string kind;  // "link", "vlan", "fdb", "lldp", "device", "log", ...
    std::string text;
};

}  // namespace vswitch

#endif
