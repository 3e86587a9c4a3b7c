// Every fixed path of the program, by name, and the root in front of them.
#ifndef PAVO_PLATFORM_PATHS_H
#define PAVO_PLATFORM_PATHS_H

#include <string>
#include <string_view>

namespace platform {

// The real location of a fixed path. Messages and OpEN arguments always hold the fixed path; this is applied
// at the last moment, when a file is opened, renamed or deleted. In a virtual switch build the environment
// variable PAVO_ROOT, when set, is put in front; in a vendor build the path is returned unchanged.
std::string fsPath(std::string_view fixedPath);

namespace paths {

inline constexpr const char *kLogFile = "/tmp/ketch.log";
inline constexpr const char *kLogFileOld = "/tmp/ketch.log.old";
inline constexpr const char *kLogLevelFile = "/tmp/devmgr_log_level";
// Held by the daemon for as long as it runs.
inline constexpr const char *kDaemonLock = "/tmp/pavo_detection.lock";
inline constexpr const char *kProcSelfStatus = "/proc/self/status";  // never under the root

inline constexpr const char *kProfileDb = "/tmp/vlanInfo.db";
// Held while the profile database is being created.
inline constexpr const char *kProfileDbLock = "/tmp/vlanInfo.db.lock";

inline constexpr const char *kScriptDir = "/mnt/application/pavo/tmp/";
inline constexpr const char *kBootvarShow = "/mnt/application/pavo/tmp/pavo_out_show_bootvar";
inline constexpr const char *kIpManagementShow = "/mnt/application/pavo/tmp/pavo_out_show_ip_management";
inline constexpr const char *kIpManagementIn = "/mnt/application/pavo/tmp/pavo_in_ip_management_vlan";
inline constexpr const char *kIpManagementOut = "/mnt/application/pavo/tmp/pavo_out_ip_management_vlan";
inline constexpr const char *kSpeedIn = "/mnt/application/pavo/tmp/pavo_in_speed";
inline constexpr const char *kSpeedOut = "/mnt/application/pavo/tmp/pavo_out_speed";

inline constexpr const char *kBootvarLock = "/tmp/bootvarGet.lock";
inline constexpr const char *kIpManagementGetLock = "/tmp/managementPortIPv4ParametersGet.lock";
inline constexpr const char *kIpManagementSetLock = "/tmp/managementPortIPv4ParametersSet.lock";
inline constexpr const char *kSpeedLock = "/tmp/multipleIfSpeedSet.lock";

inline constexpr const char *kAudacConfig = "/tmp/audac_config";
inline constexpr const char *kAudacIn = "/mnt/application/pavo/tmp/audac_in";
inline constexpr const char *kAudacOut = "/mnt/application/pavo/tmp/audac_out";
inline constexpr const char *kShowVlanAssociationMac =
    "/mnt/application/pavo/tmp/show_vlan_association_mac_out";
inline constexpr const char *kHarmanIn = "/mnt/application/pavo/tmp/harman_in";
inline constexpr const char *kHarmanOut = "/mnt/application/pavo/tmp/harman_out";
inline constexpr const char *kTelosIn = "/mnt/application/pavo/tmp/telos_in";
inline constexpr const char *kTelosOut = "/mnt/application/pavo/tmp/telos_out";
// For which devices the daemon has bound NET-BLOCK to which ports: kept beside the switch's saved configuration.
inline constexpr const char *kNetBlockPorts = "/mnt/application/pavo/net_block_ports.json";
// Which ports the daemon has forced authorised for Shure devices.
inline constexpr const char *kShurePorts = "/mnt/application/pavo/shure_ports.json";
// Whom the daemon knows, see store/device_states.h: in a folder of its own, which nobody else can write to.
inline constexpr const char *kDeviceStates = "/run/pavo/devices.json";
// The vendors that detection recognises, by port.
inline constexpr const char *kRecognition = "/mnt/application/pavo/tmp/recognition.json";

// '0' as its first character switches Nice detection off, see detection/nice.h.
inline constexpr const char *kNiceDetectConfig = "/mnt/application/pavo/tmp/nice_detect_config";

inline constexpr const char *kShureConfig = "/tmp/shure_config";
inline constexpr const char *kShureIn = "/mnt/application/pavo/tmp/shure_in";
inline constexpr const char *kShureOut = "/mnt/application/pavo/tmp/shure_out";
inline constexpr const char *kVlanShowProfileFast = "/tmp/vlan_show_profile_fast.txt";
// Single commands and what comes of them.
inline constexpr const char *kCommandIn = "/mnt/application/pavo/tmp/pavo_cmd_in_file.txt";
inline constexpr const char *kCommandOut = "/mnt/application/pavo/tmp/pavo_cmd_out_file.txt";
// Held while these two are in use.
inline constexpr const char *kCommandLock = "/tmp/pavo_cmd_file.lock";
// A printf format: concurrent callers each have a number of their own.
inline constexpr const char *kIpInterfaceBriefShow =
    "/mnt/application/pavo/tmp/pavo_out_show_ip_interface_brief_%d";

// Profile templates, one file per type; note the slash at the end.
inline constexpr const char *kProfileTemplateDir = "/usr/local/appmgr/usr/share/pavo/profileTemplate/";
// One settings file per VLAN of a profile, named by the VLAN id.
inline constexpr const char *kVlanProfileConfigDir = "/tmp/vlan_profile_config";
// The ports on which AVB stream reservation is configured, see profile/avb_ports.h.
inline constexpr const char *kManualTrunkConfig = "/tmp/manual_trunk_config";
// A printf format for the process id.
inline constexpr const char *kPolicyMapShow = "/mnt/application/pavo/tmp/show_policy_map_%d";
// Held by profile operations that change something.
inline constexpr const char *kProfileLock = "/tmp/profileConfig.lock";
// What profiles did to the switch, see profile/record.h: beside the switch's saved configuration, not in /tmp.
inline constexpr const char *kProfileRecord = "/mnt/application/pavo/profile_record.json";
// One apply request per profile type.
inline constexpr const char *kPavoExDir = "/tmp/pavo/pavo_ex";

// --- response cache, vendors and host names
inline constexpr const char *kResponseCache = "/tmp/restapi_db";
// Names of the answers that have changed, one per line; its reader empties it.
inline constexpr const char *kResponseCacheDelta = "/tmp/rest_db_api_delta.txt";
// Process and thread of the web server that are told about changes.
inline constexpr const char *kWebServerPid = "/tmp/resourse_pid.txt";
inline constexpr const char *kApiLockDir = "/tmp/api_lock";
inline constexpr const char *kVendorDb = "/usr/local/appmgr/usr/share/pavo/oui/oui.db";
// Shared with the switch's DHCP server.
inline constexpr const char *kHostDb = "/mnt/fastpath/dhcpReservation.db";

// --- web interface
// One file for each session, named by its token; see web/sessions.h.
inline constexpr const char *kSessionDir = "/tmp/session";
// Held by pavo_webd for as long as it runs.
inline constexpr const char *kResidentLock = "/tmp/pavo_webd.lock";

// --- ports and LAGs: settings, counters, optics, trunks, mirroring

// --- system: identity, health, time, log, images, RADIUS, PTP

// --- neighbours: ARP, LLDP management addresses, switch-port mode

// --- VLANs

// Held by whoever reads or changes the automatic switchport mode: its files have fixed names.
inline constexpr const char *kSwitchportModeLock = "/tmp/switchportModeAuto.lock";

// --- multicast: access lists, IGMP snooping

// printf formats: concurrent callers each have a number of their own.
inline constexpr const char *kMulticastGroupsShow =
    "/mnt/application/pavo/tmp/pavo_out_show_igmpsnooping_group_ex_%d";
inline constexpr const char *kDenyListShow =
    "/mnt/application/pavo/tmp/pavo_out_show_ip_access-list_NET-BLOCK_%d";
inline constexpr const char *kSetMulticastModeIn = "/mnt/application/pavo/tmp/pavo_in_set_multicast_mode";
inline constexpr const char *kSetMulticastModeOut = "/mnt/application/pavo/tmp/pavo_out_set_multicast_mode";
// The rules of NET-BLOCK while they are being replaced; beside the switch's saved configuration, not in /tmp.
inline constexpr const char *kDenyListRules = "/mnt/application/pavo/deny_list_rules";
// Held by whoever changes multicast modes or the deny list.
inline constexpr const char *kMulticastLock = "/tmp/multicastConfig.lock";

}  // namespace paths
}  // namespace platform

#endif
