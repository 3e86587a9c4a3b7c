#include "web/routes.h"

#include <chrono>
#include <cstddef>
#include <iterator>
#include <map>
#include <string_view>
#include <utility>

#include "web/route_handlers.h"

namespace pavo {
namespace {

using enum HttpMethod;
constexpr auto kAnyone = Access::Anyone;
constexpr auto kUser = Access::User;
constexpr auto kAdmin = Access::Administrator;

constexpr const char *kText = R"({"type": "string"})";
constexpr const char *kNumber = R"({"type": "integer", "minimum": 1})";

constexpr Parameter kProfileName[] = {{"name", kText, true, "Name of the profile"}};
constexpr Parameter kAnyProfile[] = {{"name", kText, false, "Only this profile"}};
constexpr Parameter kTemplateName[] = {{"name", kText, true, "Name of the profile type"}};
constexpr Parameter kVlan[] = {{"id", "VlanId", true, "VLAN id"}};
constexpr Parameter kVlans[] = {{"list", kText, true, "VLANs, for example 10,20-25"}};
constexpr Parameter kGroups[] = {
    {"page", kNumber, false, "Page, from 1"},
    {"size", R"({"type": "integer", "minimum": 1, "maximum": 10000})", false, "Rows of a page"},
    {"unit", R"({"type": "integer", "minimum": 0, "maximum": 64})", false,
     "Only rows of this unit; 0: of all"}};
constexpr Parameter kInterface[] = {{"ifNum", "IfNum", true, "Interface number"}};
constexpr Parameter kMac[] = {{"mac", kText, true, "MAC address, or its first three octets"}};
constexpr Parameter kLines[] = {{"lines", R"({"type": "integer", "minimum": 1, "maximum": 1000})", false,
                                 "How many lines; 100 without it"}};
constexpr Parameter kEventChoice[] = {
    {"events", kText, false, "Only these, of answer,device,link"},
    {"answers", kText, false,
     "Only changes of these answers, for example vlan_list,swcfg_port; they are kept up to date"}};
constexpr Parameter kAnswerName[] = {{"name", kText, true, "Name of the answer"}};

// Cached answers that show VLANs and their ports, and those that show profiles as well.
#define PAVO_VLAN_ANSWERS "vlan_list swcfg_port swcfg_ports_settings sw_auto_trunk_cfg sw_lag_cfg_ex "
constexpr const char *kVlanAnswers = PAVO_VLAN_ANSWERS "profile/list_ex";
constexpr const char *kProfileAnswers = PAVO_VLAN_ANSWERS
    "profile profile/list_ex port_vendor_detect sw_manual_trunk_cfg sw_ptp_cfg radius_port_config "
    "special_interface_route";
#undef PAVO_VLAN_ANSWERS

// How old an answer may be. Whatever the web interface changes is shown at once, and so are changes that the
// daemon makes; ages are for changes by others, on the command line of the switch for example.
using std::chrono::seconds;
constexpr seconds kClock{1};        // it is compared with other clocks
constexpr seconds kMeasured{5};     // counters, links, temperatures: a page of them is redrawn as often
constexpr seconds kConfigured{10};  // what somebody configures, while somebody else looks
constexpr seconds kSeldom{30};      // what is set up once
constexpr seconds kBuiltIn{60};     // hardware and flash; also what takes the switch long to tell

// A read of an answer that is cached, too.
constexpr Route cached(const char *path, const char *name, const char *key, const char *answer,
                       seconds maxAge, const char *summary) {
    return {.path = path,
            .method = Get,
            .access = kUser,
            .handle = handlers::cachedAnswer,
            .request = nullptr,
            .key = key,
            .answer = answer,
            .summary = summary,
            .parameters = {},
            .cached = name,
            .maxAge = maxAge};
}

// Path, method, access, handler, request, key and schema of the answer, summary; what follows has a name.
// clang-format off
constexpr Route kRoutes[] = {
    {"/api/v2/session", Post, kAnyone, handlers::openSession, "Credentials", "session", "NewSession",
     "Log in with a user name and password of the switch."},
    {"/api/v2/session", Get, kUser, handlers::showSession, nullptr, "session", "Session",
     "Whose session this is."},
    {"/api/v2/session", Delete, kAnyone, handlers::closeSession, nullptr, nullptr, nullptr,
     "Log out: end the session that the request carries."},
    {"/api/v2/openapi", Get, kAnyone, handlers::openApi, nullptr, nullptr, "OpenApi",
     "This document."},

    {"/api/v2/profile/types", Get, kUser, handlers::profileTypes, nullptr, "profileTypes", "ProfileType[]",
     "The profile types and what they switch on."},
    cached("/api/v2/profile/templates", "profile", "profile", "Template[]", kSeldom,
     "The templates offered on this switch."),
    {"/api/v2/profile/templates", Post, kUser, handlers::createTemplate, "TemplateRequest", nullptr, nullptr,
     "Create the template of a profile type.", {}, nullptr, "profile"},
    {"/api/v2/profile/templates", Put, kUser, handlers::editTemplate, "TemplateRequest", nullptr, nullptr,
     "Replace the template of a profile type.", {}, nullptr, "profile"},
    {"/api/v2/profile/templates", Delete, kUser, handlers::deleteTemplate, nullptr, nullptr, nullptr,
     "Delete the template of a profile type that no VLAN has.", kTemplateName, nullptr, "profile profile/list_ex"},
    cached("/api/v2/profile/list", "profile/list_ex", "profileList", "Profile[]", kConfigured,
     "The profiles in force."),
    {"/api/v2/profile/detail", Get, kUser, handlers::showProfile, nullptr, "profile", "Profile",
     "One profile with its VLANs and ports.", kProfileName},
    {"/api/v2/profile/status", Get, kUser, handlers::profileStatus, nullptr, "profileStatus", "ProfileStatus[]",
     "Whether profiles are as they were applied, and what applying them again would repair.", kAnyProfile},
    {"/api/v2/profile/plan", Post, kUser, handlers::planProfile, "ProfileRequest", "plan", "Plan",
     "What applying a profile would change; nothing is changed."},
    {"/api/v2/profile/apply", Post, kUser, handlers::applyProfile, "ProfileRequest", "plan", nullptr,
     "Apply a profile, or change it in place.", {}, nullptr, kProfileAnswers},
    {"/api/v2/profile", Delete, kUser, handlers::deleteProfile, nullptr, nullptr, nullptr,
     "Delete a profile; what it changed is what it was before.", kProfileName, nullptr, kProfileAnswers},

    {"/api/v2/vlan/list", Get, kUser, handlers::listVlans, nullptr, "vlanList", "VlanList",
     "All VLANs by name and type."},
    {"/api/v2/vlan/list", Post, kUser, handlers::createVlans, "VlanListRequest", "vlanChange", "VlanChange",
     "Create the VLANs of a list that do not exist.", {}, nullptr, kVlanAnswers},
    {"/api/v2/vlan/list", Delete, kUser, handlers::deleteVlans, nullptr, "vlanChange", "VlanChange",
     "Delete the VLANs of a list that exist.", kVlans, nullptr, kVlanAnswers},
    cached("/api/v2/vlan/ports", "vlan_list", "switchConfigVlan", "VlanPicture[]", kConfigured,
     "All VLANs with their ports, LAGs and profile types."),
    {"/api/v2/vlan/detail", Get, kUser, handlers::showVlan, nullptr, "vlanDetail", "VlanDetails",
     "One VLAN, interface by interface.", kVlan},
    {"/api/v2/vlan/profile", Get, kUser, handlers::showProfileVlan, nullptr, "switchConfigVlan", "ProfilePageVlan",
     "One VLAN with what its profile says of it.", kVlan},
    {"/api/v2/vlan/name", Get, kUser, handlers::showVlanName, nullptr, "vlanName", "VlanSummary",
     "The name of a VLAN.", kVlan},
    {"/api/v2/vlan/name", Put, kUser, handlers::nameVlan, "VlanNameRequest", "vlanChange", "VlanChange",
     "Name a VLAN.", {}, nullptr, kVlanAnswers},
    {"/api/v2/vlan/name", Post, kUser, handlers::createNamedVlan, "VlanNameRequest", "vlanChange", "VlanChange",
     "Create a static VLAN unless it exists, and name it; VLAN 1 is left alone.", {}, nullptr, kVlanAnswers},
    {"/api/v2/vlan/participation", Put, kUser, handlers::setParticipation, "ParticipationRequest", "vlanChange", "VlanChange",
     "Set the participation of all ports and LAGs in a VLAN.", {}, nullptr, kVlanAnswers},
    {"/api/v2/vlan/accept-frame", Put, kUser, handlers::setAcceptFrames, "AcceptFramesRequest", "vlanChange", "VlanChange",
     "Set which frames all ports and LAGs accept.", {}, nullptr, kVlanAnswers},
    {"/api/v2/vlan/pvid", Put, kUser, handlers::setPvid, "PvidRequest", "vlanChange", "VlanChange",
     "Set the PVID of all ports and LAGs.", {}, nullptr, kVlanAnswers},
    {"/api/v2/vlan/tagging", Put, kUser, handlers::setTagging, "TaggingRequest", "vlanChange", "VlanChange",
     "Set the tagging of all ports and LAGs in a VLAN.", {}, nullptr, kVlanAnswers},
    {"/api/v2/vlan/switchport-mode", Get, kUser, handlers::showSwitchportMode, nullptr, "switchportMode",
     "SwitchportMode", "Whether ports become trunks by themselves."},
    {"/api/v2/vlan/switchport-mode", Put, kUser, handlers::setSwitchportMode, "SwitchportMode", nullptr, nullptr,
     "Set whether ports become trunks by themselves.", {}, nullptr, "sw_auto_trunk_cfg"},

    cached("/api/v2/port/all", "swcfg_port", "switchPortConfig", "Port[]", kMeasured,
     "All ports with settings, status, counters and hardware."),
    cached("/api/v2/port/status", "swcfg_ports_status", "swcfg_ports_status", "Port[]", kMeasured,
     "The status of all ports."),
    cached("/api/v2/port/settings", "swcfg_ports_settings", "swcfg_ports_settings", "Port[]", kConfigured,
     "The settings of all ports."),
    cached("/api/v2/port/hardware", "port_hardware_info", "portHardwareInfo", "Port[]", kBuiltIn,
     "What the hardware of each port can do."),
    cached("/api/v2/port/optics", "fiberOptics", "fiberOptics", "Port[]", kConfigured,
     "The transceivers and what they measure."),
    cached("/api/v2/port/mirroring", "sw_portmirroring", "devicePortMirroring", "Mirroring", kConfigured,
     "The sessions of port mirroring."),
    cached("/api/v2/port/vendors", "port_vendor_detect", "portVendorDetect", "PortVendors", kConfigured,
     "The vendors of the devices behind each port."),
    cached("/api/v2/port/authentication", "radius_port_config", "radius_port_config", "PortAuthentication", kConfigured,
     "802.1X of the switch and its ports."),
    {"/api/v2/port/speed", Put, kUser, handlers::setPortSpeed, "PortSpeedRequest", nullptr, nullptr,
     "Set the speed of ports.", {}, nullptr, "swcfg_port swcfg_ports_settings swcfg_ports_status interfaces_status"},
    cached("/api/v2/interface/status", "interfaces_status", "interfacesStatus", "Interfaces", kMeasured,
     "Status and counters of all ports and LAGs."),
    cached("/api/v2/lag/list", "sw_lag_cfg", "switchConfigLagGroup", "Lag[]", kConfigured,
     "All LAGs with their members."),
    cached("/api/v2/lag/detail", "sw_lag_cfg_ex", "switchConfigLagGroup", "Lag[]", kMeasured,
     "All LAGs with settings and counters as well."),
    cached("/api/v2/lag/auto", "sw_auto_lag_cfg", "switchConfigAutoLag", "AutoLag", kSeldom,
     "Whether the switch makes LAGs by itself."),
    cached("/api/v2/trunk/manual", "sw_manual_trunk_cfg", "switchConfigManualTrunk", "ManualTrunks", kConfigured,
     "The ports and LAGs on which streams are reserved."),
    cached("/api/v2/trunk/auto", "sw_auto_trunk_cfg", "switchConfigAutoTrunk", "Trunks", kConfigured,
     "The ports and LAGs that carry VLANs tagged."),

    {"/api/v2/neighbour/list", Get, kUser, handlers::neighbours, nullptr, "lldpRemoteDevice", "Neighbours",
     "Who is behind which port: by LLDP, and by forwarding table."},
    {"/api/v2/device/list", Get, kUser, handlers::devices, nullptr, "devices", "Device[]",
     "The AV devices that detection knows, and those it does not look after."},
    {"/api/v2/vendor", Get, kUser, handlers::vendor, nullptr, "vendor", "Vendor",
     "The vendor of a device.", kMac},

    {"/api/v2/multicast/groups", Get, kUser, handlers::multicastGroups, nullptr, "multicastGroups", "MulticastGroups",
     "The subscribers of the groups that IGMP snooping knows, a page at a time.", kGroups},
    {"/api/v2/multicast/groups", Post, kUser, handlers::cacheMulticastGroups, nullptr, nullptr, nullptr,
     "Put the subscribers of all groups into the cache, in chunks named multicast_groups_ex/0 and so on."},
    cached("/api/v2/multicast/modes", "multicast_mode_ex", "multicastModeConfig", "MulticastModes", kConfigured,
     "The multicast mode of all interfaces that are not normal."),
    {"/api/v2/multicast/modes", Put, kUser, handlers::setMulticastModes, "MulticastModesRequest", nullptr, nullptr,
     "Set the multicast mode of interfaces.", {}, nullptr, "multicast_mode_ex"},
    {"/api/v2/multicast/router", Delete, kUser, handlers::removeMulticastRouter, nullptr, nullptr, nullptr,
     "No multicast router is behind this port or LAG any more.", kInterface, nullptr, "multicast_mode_ex"},
    cached("/api/v2/multicast/deny", "multicast_block_address", "blockAddressList", "Addresses", kConfigured,
     "The addresses denied on blocked interfaces."),
    {"/api/v2/multicast/deny", Put, kUser, handlers::setDenyList, "DenyListRequest", nullptr, nullptr,
     "Replace the addresses denied on blocked interfaces.", {}, nullptr, "multicast_block_address multicast_mode_ex"},

    {"/api/v2/nice", Get, kUser, handlers::nice, nullptr, "nice", "Nice",
     "Whether the first Nice device makes a profile, and whether there is none yet."},
    {"/api/v2/nice", Put, kUser, handlers::setNice, "NiceRequest", nullptr, nullptr,
     "Set whether the first Nice device makes a profile."},

    cached("/api/v2/system/info", "system_info", "systemInfo", "SystemInfo", kConfigured,
     "What switch this is."),
    cached("/api/v2/system/health", "device_health", "deviceHealth", "Health", kMeasured,
     "Temperatures, fans, power supplies, processor and memory."),
    cached("/api/v2/system/interfaces", "special_interface_route", "switchSpecialInterface", "IpInterface[]", kConfigured,
     "The management interface and the routing interfaces of VLANs."),
    {"/api/v2/system/management", Put, kAdmin, handlers::setManagementAddress, "ManagementRequest", nullptr, nullptr,
     "Set VLAN and address of the management interface.", {}, nullptr, "system_info special_interface_route vlan_list"},
    cached("/api/v2/system/time", "device_time", "deviceTime", "Time", kClock,
     "The clock of the switch and where it gets the time."),
    cached("/api/v2/system/logging", "logging", "loggingCfg", "Logging", kSeldom,
     "Where the switch writes its log."),
    cached("/api/v2/system/images", "imageInfo", "imageInfo", "Images", kBuiltIn,
     "The system images in flash and the next start."),
    cached("/api/v2/system/radius", "radius_config", "radiusConfig", "Radius", kSeldom,
     "The RADIUS servers."),
    cached("/api/v2/system/ptp", "sw_ptp_cfg", "switchPtpCfg", "Ptp", kConfigured,
     "PTP and 802.1AS of the switch and its ports."),

    {kEventsPath, Get, kUser, handlers::events, nullptr, nullptr, kEventStream,
     "What happens, as server-sent events: answers that have changed, devices that join and leave, links.", kEventChoice},

    {"/api/v2/log", Get, kAdmin, handlers::logTail, nullptr, "log", "LogLine[]",
     "The last lines of the log of the device manager.", kLines},
    {"/api/v2/log/level", Get, kAdmin, handlers::logLevel, nullptr, "logLevel", "LogLevel",
     "Up to which level the device manager logs."},
    {"/api/v2/log/level", Put, kAdmin, handlers::setLogLevel, "LogLevelRequest", nullptr, nullptr,
     "Set up to which level the device manager logs."},
    {"/api/v2/cache/list", Get, kUser, handlers::listCache, nullptr, "cache", "CachedAnswer[]",
     "The answers that are kept: who produces them, and what is stored."},
    {"/api/v2/cache/answer", Get, kUser, handlers::readCache, nullptr, nullptr, "Envelope",
     "One answer as it is stored.", kAnswerName},
    {"/api/v2/cache/answer", Delete, kAdmin, handlers::deleteFromCache, nullptr, nullptr, nullptr,
     "Delete a stored answer.", kAnswerName},
    {"/api/v2/cache/refresh", Post, kUser, handlers::refreshCache, "RefreshRequest", nullptr, nullptr,
     "Produce stored answers anew."},
};
// clang-format on

template <std::size_t I>
void serveNth() {
    serveRoute(kRoutes[I]);
}

template <std::size_t... I>
bool registerAll(HttpdTree &tree, std::index_sequence<I...>) {
    const auto add = [&](const Route &route, HttpdHandler handler) {
        const std::string_view path = route.path;
        const auto slash = path.rfind('/');
        return httpdAddCContent(tree, std::string(path.substr(0, slash)).c_str(), route.path + slash + 1,
                                static_cast<std::uint32_t>(route.method),
                                static_cast<std::uint32_t>(route.access), handler) == 0;
    };
    return (add(kRoutes[I], serveNth<I>) && ...);
}

}  // namespace

std::span<const Route> routes() {
    return kRoutes;
}

bool registerRoutes(HttpdTree &tree) {
    return registerAll(tree, std::make_index_sequence<std::size(kRoutes)>());
}

std::string residentPaths() {
    std::string paths = kEventsPath;
    for (const Route &route : routes())
        if (route.cached != nullptr)
            paths += "\n" + std::string(route.path);
    return paths;
}

std::string routeList() {
    std::map<std::string_view, std::string> methods;
    for (const Route &route : routes()) {
        auto &known = methods[route.path];
        known += (known.empty() ? "" : ", ") +
                 std::string(httpdMethodName(static_cast<std::uint32_t>(route.method)));
    }
    std::string list = "return {\n";
    for (const auto &[path, allowed] : methods)
        list += "    [\"" + std::string(path) + "\"] = \"" + allowed + "\",\n";
    return list + "}";
}

}  // namespace pavo
