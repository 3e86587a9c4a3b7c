#include "web/schemas.h"

namespace pavo {
namespace {

// A member that is not required is left out while the switch does not tell its value.
constexpr const char *kSchemas = R"json({
"Envelope": {"type": "object", "required": ["resp"], "properties": {"resp": {"$ref": "#/components/schemas/Resp"}}},
"Resp": {"type": "object", "required": ["respCode", "respMsg", "status"], "additionalProperties": false, "properties": {
    "respCode": {"type": "integer", "description": "0, or why the request failed"},
    "respMsg": {"type": "string"},
    "status": {"enum": ["success", "fail"]}}},

"VlanId": {"type": "integer", "minimum": 1, "maximum": 4094},
"IfNum": {"type": "integer", "minimum": 1, "description": "interface number"},
"Numbers": {"type": "array", "items": {"type": "integer", "minimum": 0}},
"Counter": {"type": "string", "pattern": "^[0-9]+$", "description": "64 bits, in decimal digits"},
"Members": {"type": "object", "required": ["untagged", "tagged"], "properties": {
    "untagged": {"$ref": "#/components/schemas/Numbers"}, "tagged": {"$ref": "#/components/schemas/Numbers"}}},

"Credentials": {"type": "object", "required": ["user", "password"], "properties": {
    "user": {"type": "string", "minLength": 1, "maxLength": 64},
    "password": {"type": "string", "format": "password"}}},
"Session": {"type": "object", "required": ["user", "level"], "properties": {
    "user": {"type": "string"},
    "level": {"enum": ["ro", "rw", "admin"], "description": "may read; may change as well; may do everything"}}},
"NewSession": {"allOf": [{"$ref": "#/components/schemas/Session"}], "type": "object",
    "required": ["token", "idleSeconds"], "properties": {
    "token": {"type": "string", "pattern": "^[0-9a-f]{64}$", "description": "for the header Session"},
    "idleSeconds": {"type": "integer", "description": "without a request after which the session ends"}}},
"OpenApi": {"type": "object", "required": ["openapi", "info", "paths"], "properties": {
    "openapi": {"type": "string"}, "info": {"type": "object"}, "paths": {"type": "object"}}},

"ProfileType": {"type": "object", "required": ["name", "mtu", "features"], "properties": {
    "name": {"type": "string"}, "mtu": {"type": "integer", "description": "0: as it is"},
    "features": {"type": "integer", "minimum": 0, "description": "mask of what it switches on"}}},
"Template": {"type": "object", "required": ["name"], "properties": {
    "name": {"type": "string", "minLength": 1}, "description": {"type": "string"}}},
"TemplateRequest": {"type": "object", "required": ["profile"], "properties": {
    "profile": {"$ref": "#/components/schemas/Template"}}},
"Loss": {"type": "object", "required": ["what", "to"], "properties": {
    "what": {"type": "string"}, "to": {"type": "string", "description": "the profile that has it"}}},
"ProfileVlan": {"type": "object", "required": ["vlanId", "vlanType", "profileType", "exists"], "properties": {
    "vlanId": {"$ref": "#/components/schemas/VlanId"}, "vlanType": {"type": "integer"},
    "profileType": {"type": "string"}, "exists": {"type": "boolean"}, "vlanName": {"type": "string"},
    "ports": {"$ref": "#/components/schemas/Members"}, "lags": {"$ref": "#/components/schemas/Members"},
    "ptpTc": {"type": "boolean"}, "assignedPort": {"$ref": "#/components/schemas/Numbers"}}},
"Profile": {"type": "object", "required": ["name", "profileType", "color", "vlans"], "properties": {
    "name": {"type": "string"}, "profileType": {"type": "string"}, "color": {"type": "string"},
    "vlans": {"type": "array", "items": {"$ref": "#/components/schemas/ProfileVlan"}},
    "incomplete": {"type": "array", "items": {"$ref": "#/components/schemas/Loss"}}}},
"PlanLine": {"type": "object", "required": ["what", "now", "then"], "properties": {
    "what": {"type": "string"}, "now": {"type": "string"}, "then": {"type": "string"}}},
"PlanLines": {"type": "array", "items": {"$ref": "#/components/schemas/PlanLine"}},
"Plan": {"type": "object", "required": ["profile", "changes", "switch", "vlans", "ports", "taken", "notKept"],
    "properties": {
    "profile": {"type": "string"}, "changes": {"type": "boolean"},
    "switch": {"$ref": "#/components/schemas/PlanLines"}, "vlans": {"$ref": "#/components/schemas/PlanLines"},
    "ports": {"$ref": "#/components/schemas/PlanLines"},
    "taken": {"type": "array", "items": {"type": "object", "required": ["what", "from", "to"], "properties": {
        "what": {"type": "string"}, "from": {"type": "string"}, "to": {"type": "string"}}}},
    "notKept": {"type": "array", "items": {"type": "string"}}}},
"ProfileStatus": {"type": "object", "required": ["name", "asApplied", "interrupted", "losses", "repair"],
    "properties": {
    "name": {"type": "string"}, "asApplied": {"type": "boolean"}, "interrupted": {"type": "boolean"},
    "losses": {"type": "array", "items": {"$ref": "#/components/schemas/Loss"}},
    "repair": {"$ref": "#/components/schemas/Plan"}}},
"ProfileRequest": {"type": "object", "required": ["profileConfig"], "properties": {"profileConfig": {
    "type": "object", "required": ["name", "color", "profileType", "vlanNum", "vlans"], "properties": {
    "name": {"type": "string", "minLength": 1, "maxLength": 255},
    "color": {"type": "string", "description": "#rrggbb"},
    "profileType": {"type": "string", "description": "see /api/v2/profile/types"},
    "vlanNum": {"type": "integer", "description": "number of VLANs"},
    "vlans": {"type": "array", "maxItems": 4, "items": {"type": "object", "required": ["vlanId", "vlanType"],
        "properties": {
        "vlanId": {"$ref": "#/components/schemas/VlanId"},
        "vlanType": {"type": "integer", "description": "role, for example 2 control, 3 audio"},
        "profileType": {"type": "string"},
        "ports": {"type": "object", "properties": {
            "untagged": {"$ref": "#/components/schemas/Numbers"}, "tagged": {"$ref": "#/components/schemas/Numbers"},
            "assignedPort": {"$ref": "#/components/schemas/Numbers"}}},
        "routing": {"type": "object", "properties": {
            "ipConfig": {"enum": [0, 1, 2, 3], "description": "as it is, none, DHCP, ipAddr with ipMask"},
            "ipAddr": {"type": "string"}, "ipMask": {"type": "string"}}}}}},
    "ptp": {"type": "boolean", "description": "PTP transparent clock"},
    "overwrite": {"type": "boolean", "description": "take VLANs and ports from other profiles"},
    "force": {"type": "boolean", "description": "adapt the type to what the switch supports"},
    "plan": {"type": "boolean", "description": "only tell what would change"}}}}},

"VlanSummary": {"type": "object", "required": ["vlan-id"], "properties": {
    "vlan-id": {"$ref": "#/components/schemas/VlanId"}, "name": {"type": "string"},
    "type": {"enum": ["Default", "Static", "Dynamic"]}}},
"VlanList": {"type": "object", "required": ["max-vlan-entries", "vlans-in-use", "vlans"], "properties": {
    "max-vlan-entries": {"type": "integer"}, "vlans-in-use": {"type": "integer"},
    "vlans": {"type": "array", "items": {"$ref": "#/components/schemas/VlanSummary"}}}},
"VlanListRequest": {"type": "object", "required": ["vlan-list"], "properties": {
    "vlan-list": {"type": "string", "minLength": 1, "description": "10,20-25"}}},
"VlanDetails": {"allOf": [{"$ref": "#/components/schemas/VlanSummary"}], "type": "object",
    "required": ["interfaces"], "properties": {
    "interfaces": {"type": "array", "items": {"type": "object", "properties": {
        "interface": {"type": "string", "description": "1/0/5, lag 2"},
        "current": {"enum": ["Include", "Exclude"]},
        "configured": {"enum": ["Include", "Exclude", "Autodetect"]},
        "tagging": {"enum": ["Tagged", "Untagged"]}}}}}},
"VlanChange": {"type": "object", "required": ["profiles"], "properties": {
    "vlans": {"type": "array", "description": "the VLANs that have been created or deleted",
        "items": {"$ref": "#/components/schemas/VlanId"}},
    "interfaces": {"type": "integer", "description": "of all ports and LAGs: how many there are"},
    "refused": {"type": "integer", "description": "how many of them the switch did not change"},
    "pending": {"type": "boolean", "description": "the switch has accepted the change, but does not show it yet"},
    "profiles": {"type": "array", "description": "whose VLANs and interfaces have been changed",
        "items": {"type": "object", "required": ["name", "has"], "properties": {
            "name": {"type": "string"},
            "has": {"type": "array", "items": {"type": "string", "description": "VLAN 20, 0/5, lag 2"}}}}}}},
"VlanNameRequest": {"type": "object", "required": ["vlan-id", "name"], "properties": {
    "vlan-id": {"$ref": "#/components/schemas/VlanId"}, "name": {"type": "string"}}},
"ParticipationRequest": {"type": "object", "required": ["mode", "vlan-id"], "properties": {
    "mode": {"enum": ["include", "auto", "exclude"]}, "vlan-id": {"$ref": "#/components/schemas/VlanId"}}},
"AcceptFramesRequest": {"type": "object", "required": ["accept-frame"], "properties": {
    "accept-frame": {"enum": ["all", "vlanonly", "admituntaggedonly"]}}},
"PvidRequest": {"type": "object", "required": ["pvid"], "properties": {
    "pvid": {"$ref": "#/components/schemas/VlanId"}}},
"TaggingRequest": {"type": "object", "required": ["vlan-id", "tagging"], "properties": {
    "vlan-id": {"$ref": "#/components/schemas/VlanId"}, "tagging": {"enum": ["tagged", "untagged"]}}},
"SwitchportMode": {"type": "object", "required": ["mode"], "properties": {"mode": {"enum": ["enable", "disable"]}}},
"ProfilePageVlan": {"type": "object", "required": ["vlanId", "name", "color", "profileName", "vlanType", "isStatic",
    "assignedUntagPort", "assignedtagPort", "assignedTagLag", "assignedUnTagLag", "assignedShureLearnPort",
    "shureDevicePort", "profileType"], "properties": {
    "vlanId": {"$ref": "#/components/schemas/VlanId"}, "name": {"type": "string"}, "color": {"type": "string"},
    "profileName": {"type": "string"}, "vlanType": {"type": "integer"}, "isStatic": {"type": "boolean"},
    "assignedUntagPort": {"$ref": "#/components/schemas/Numbers"},
    "assignedtagPort": {"$ref": "#/components/schemas/Numbers"},
    "assignedTagLag": {"$ref": "#/components/schemas/Numbers"},
    "assignedUnTagLag": {"$ref": "#/components/schemas/Numbers"},
    "assignedShureLearnPort": {"$ref": "#/components/schemas/Numbers"},
    "shureDevicePort": {"$ref": "#/components/schemas/Numbers"},
    "profileType": {"type": "string"}, "assignedPort": {"$ref": "#/components/schemas/Numbers"}}},
"VlanPicture": {"type": "object", "required": ["vlanId"], "properties": {
    "vlanId": {"$ref": "#/components/schemas/VlanId"}, "name": {"type": "string"}, "color": {"type": "string"},
    "isStatic": {"type": "boolean"}, "isManagement": {"type": "boolean"}, "ptpTc": {"type": "boolean"},
    "vlanType": {"type": "integer"}, "profileType": {"type": "string"},
    "ports": {"$ref": "#/components/schemas/Members"}, "lags": {"$ref": "#/components/schemas/Members"}}},

"Port": {"type": "object", "required": ["ifNum"], "properties": {
    "ifNum": {"$ref": "#/components/schemas/IfNum"}, "unit": {"type": "integer"}, "slot": {"type": "integer"},
    "port": {"type": "integer"}, "name": {"type": "string"}, "adminEnabled": {"type": "boolean"},
    "description": {"type": "string"}, "autoNegotiation": {"type": "boolean"},
    "speedSet": {"type": ["integer", "null"]}, "duplexSet": {"enum": ["half", "full", null]},
    "mtu": {"type": "integer"}, "pvid": {"type": "integer"},
    "taggedVlans": {"$ref": "#/components/schemas/Numbers"}, "lag": {"type": ["integer", "null"]},
    "poe": {"type": "boolean"}, "linkUp": {"type": "boolean"},
    "speed": {"type": ["integer", "null"], "description": "Mbit/s"}, "duplex": {"enum": ["half", "full", null]},
    "errorDisabled": {"type": "boolean"}, "errorReason": {"type": ["string", "null"]},
    "counters": {"type": "object", "additionalProperties": {"$ref": "#/components/schemas/Counter"}},
    "media": {"enum": ["copper", "sfp"]},
    "capabilities": {"type": "object", "properties": {
        "speeds": {"$ref": "#/components/schemas/Numbers"}, "halfDuplex": {"type": "boolean"},
        "autoNegotiation": {"type": "boolean"}, "poe": {"type": "boolean"}}}}},
"Lag": {"type": "object", "required": ["ifNum", "lag"], "properties": {
    "ifNum": {"$ref": "#/components/schemas/IfNum"}, "lag": {"type": "integer", "minimum": 1},
    "adminEnabled": {"type": "boolean"}, "interface": {"type": "string"}, "name": {"type": "string"},
    "static": {"type": "boolean"}, "hash": {"type": "string"}, "linkUp": {"type": "boolean"},
    "speed": {"type": ["integer", "null"]}, "duplex": {"enum": ["half", "full", null]},
    "members": {"$ref": "#/components/schemas/Numbers"}, "activeMembers": {"$ref": "#/components/schemas/Numbers"},
    "description": {"type": "string"}, "mtu": {"type": "integer"}, "pvid": {"type": "integer"},
    "taggedVlans": {"$ref": "#/components/schemas/Numbers"},
    "counters": {"type": "object", "additionalProperties": {"$ref": "#/components/schemas/Counter"}}}},
"Interfaces": {"type": "object", "required": ["ports", "lags"], "properties": {
    "ports": {"type": "array", "items": {"$ref": "#/components/schemas/Port"}},
    "lags": {"type": "array", "items": {"$ref": "#/components/schemas/Lag"}}}},
"AutoLag": {"type": "object", "properties": {"enabled": {"type": "boolean"}, "hash": {"type": "string"}}},
"ManualTrunks": {"type": "object", "required": ["physicalPort", "lagPort"], "properties": {
    "physicalPort": {"$ref": "#/components/schemas/Numbers"}, "lagPort": {"$ref": "#/components/schemas/Numbers"}}},
"Trunks": {"type": "object", "required": ["trunks"], "properties": {"enabled": {"type": "boolean"},
    "trunks": {"type": "array", "items": {"type": "object", "properties": {
        "taggedVlans": {"$ref": "#/components/schemas/Numbers"}}}}}},
"Mirroring": {"type": "object", "required": ["sessions"], "properties": {"maxSessions": {"type": "integer"},
    "sessions": {"type": "array", "items": {"type": "object", "required": ["session"], "properties": {
        "session": {"type": "integer"}, "enabled": {"type": "boolean"},
        "sources": {"type": "array", "items": {"type": "object", "required": ["ifNum"], "properties": {
            "ifNum": {"$ref": "#/components/schemas/IfNum"}, "name": {"type": "string"},
            "direction": {"enum": ["rx", "tx", "both"]}}}},
        "destination": {"type": ["object", "null"]}}}}}},
"PortVendors": {"type": "object", "required": ["ports"], "properties": {"ports": {"type": "array", "items": {
    "type": "object", "required": ["port", "portNum", "portName", "unit", "deviceCount", "vendors"], "properties": {
    "port": {"type": "string"}, "portNum": {"type": "integer"}, "portName": {"type": "string"},
    "unit": {"type": "integer"}, "deviceCount": {"type": "integer"},
    "vendors": {"type": "array", "items": {"type": "object", "required": ["vendor", "deviceCount"], "properties": {
        "vendor": {"type": "string"}, "deviceCount": {"type": "integer"}}}},
    "recognized": {"type": "array", "items": {"type": "string"}}}}}}},
"PortAuthentication": {"type": "object", "properties": {"enabled": {"type": "boolean"},
    "ports": {"type": "array", "items": {"type": "object", "required": ["port"], "properties": {
        "port": {"$ref": "#/components/schemas/IfNum"}, "name": {"type": "string"},
        "controlMode": {"enum": ["auto", "forceAuthorized", "forceUnauthorized"]},
        "state": {"enum": ["authorized", "unauthorized"]}, "reauthentication": {"type": "boolean"},
        "reauthPeriod": {"type": "integer"}}}}}},
"PortSpeedRequest": {"type": "object", "required": ["ports", "speed"], "properties": {
    "ports": {"type": "array", "minItems": 1, "items": {"$ref": "#/components/schemas/IfNum"}},
    "speed": {"type": "string", "minLength": 1, "description": "Auto, 100 Full, 10 Half"}}},

"Neighbours": {"type": "object", "required": ["rows", "indexPage", "pageSize", "total", "_timing"], "properties": {
    "rows": {"type": "array", "items": {"type": "object", "required": ["port", "portNum", "portName", "unit", "vlanId",
        "hostName", "hostIpAddress", "hostMacAddress", "remotePortId", "source"], "properties": {
        "port": {"type": "string"}, "portNum": {"type": "integer"}, "portName": {"type": "string"},
        "unit": {"type": "integer"}, "vlanId": {"type": "integer"}, "hostName": {"type": "string"},
        "hostIpAddress": {"type": "string"}, "hostMacAddress": {"type": "string"},
        "remotePortId": {"type": "string"}, "source": {"enum": ["lldp", "arp"]}}}},
    "indexPage": {"type": "integer"}, "pageSize": {"type": "integer"}, "total": {"type": "integer"},
    "_timing": {"type": "object"}}},
"Device": {"type": "object", "required": ["family", "address", "state"], "properties": {
    "family": {"type": "string"}, "address": {"type": "string"}, "vendor": {"type": "string"},
    "ifNum": {"$ref": "#/components/schemas/IfNum"}, "vlanId": {"$ref": "#/components/schemas/VlanId"},
    "state": {"enum": ["seen", "missing", "unseen", "leaving", "refused", "unmanaged"]},
    "missed": {"type": "integer"}, "missedMax": {"type": "integer"}, "reason": {"type": "string"}}},
"Vendor": {"type": "object", "required": ["prefix", "vendor"], "properties": {
    "prefix": {"type": "string"}, "vendor": {"type": "string"}}},

"MulticastGroups": {"type": "object", "required": ["indexPage", "pageSize", "total", "rows"], "properties": {
    "indexPage": {"type": "integer"}, "pageSize": {"type": "integer"}, "total": {"type": "integer"},
    "rows": {"type": "array", "items": {"type": "object", "required": ["port", "vlanId", "multicastAddress"],
        "properties": {
        "unit": {"type": "integer"}, "port": {"type": "string"}, "vlanId": {"type": "integer"},
        "subscriberAddress": {"type": "string"}, "subscriberMacAddress": {"type": "string"},
        "multicastAddress": {"type": "string"}, "multicastMacAddress": {"type": "string"},
        "type": {"type": "string"}, "timeout": {"type": ["integer", "null"]}}}}}},
"ModeEntries": {"type": "array", "items": {"type": "object", "required": ["portNum", "multicastMode"], "properties": {
    "portNum": {"type": "integer", "minimum": 1},
    "multicastMode": {"enum": [0, 1, 2], "description": "normal, with a multicast router, blocked"}}}},
"MulticastModes": {"type": "object", "properties": {
    "physicalPort": {"$ref": "#/components/schemas/ModeEntries"},
    "lagPort": {"$ref": "#/components/schemas/ModeEntries"}}},
"MulticastModesRequest": {"type": "object", "required": ["multicastModeConfig"], "properties": {
    "multicastModeConfig": {"$ref": "#/components/schemas/MulticastModes"}}},
"Addresses": {"type": "array", "items": {"type": "string"}},
"DenyListRequest": {"type": "object", "required": ["blockAddressList"], "properties": {
    "blockAddressList": {"$ref": "#/components/schemas/Addresses"}}},
"Nice": {"type": "object", "required": ["enabled", "factoryDefault"], "properties": {
    "enabled": {"type": "boolean"}, "factoryDefault": {"type": "boolean"}}},
"NiceRequest": {"type": "object", "required": ["enabled"], "properties": {"enabled": {"type": "boolean"}}},

"SystemInfo": {"type": "object", "properties": {
    "hostName": {"type": "string"}, "location": {"type": "string"}, "contact": {"type": "string"},
    "model": {"type": "string"}, "serialNumber": {"type": "string"}, "macAddress": {"type": "string"},
    "osVersion": {"type": "string"}, "apiVersion": {"type": "string"}, "upTime": {"type": "integer"},
    "management": {"type": "object", "properties": {"vlanId": {"$ref": "#/components/schemas/VlanId"},
        "mode": {"enum": ["dhcp", "static"]}, "address": {"type": "string"}, "mask": {"type": "string"},
        "gateway": {"type": "string"}, "up": {"type": "boolean"}}}}},
"Health": {"type": "object", "properties": {
    "temperature": {"type": "array", "items": {"type": "object"}}, "fans": {"type": "array", "items": {"type": "object"}},
    "powerSupplies": {"type": "array", "items": {"type": "object"}},
    "cpu": {"type": "object", "properties": {"percent": {"type": "number"}}},
    "memory": {"type": "object", "properties": {"totalKb": {"type": "integer"}, "freeKb": {"type": "integer"}}}}},
"IpInterface": {"type": "object", "required": ["type"], "properties": {
    "type": {"enum": ["management", "vlan"]}, "vlanId": {"$ref": "#/components/schemas/VlanId"},
    "method": {"enum": ["static", "dhcp", "none"]}, "address": {"type": "string"}, "mask": {"type": "string"},
    "gateway": {"type": "string"}, "up": {"type": "boolean"}}},
"Time": {"type": "object", "properties": {"utc": {"type": "integer"}, "time": {"type": "string"},
    "timeZone": {"type": "object"}, "sntp": {"type": "object"}}},
"Logging": {"type": "object", "properties": {"buffered": {"type": "object"}, "console": {"type": "object"},
    "syslog": {"type": "object"}, "hosts": {"type": "array", "items": {"type": "object"}}}},
"Images": {"type": "object", "properties": {"osVersion": {"type": "string"},
    "units": {"type": "array", "items": {"type": "object"}}}},
"Radius": {"type": "object", "properties": {"timeout": {"type": "integer"}, "retransmit": {"type": "integer"},
    "servers": {"type": "array", "items": {"type": "object"}}}},
"Ptp": {"type": "object", "properties": {"transparentClock": {"type": "boolean"}, "dot1as": {"type": "boolean"},
    "ports": {"type": "array", "items": {"type": "object"}}}},
"ManagementRequest": {"type": "object", "required": ["vlanId", "mode"], "properties": {
    "vlanId": {"$ref": "#/components/schemas/VlanId"}, "mode": {"enum": ["dhcp", "static"]},
    "address": {"type": "string"}, "mask": {"type": "string"}, "gateway": {"type": "string"}}},

"LogLine": {"type": "string"},
"LogLevel": {"type": "object", "required": ["level"], "properties": {
    "level": {"type": "integer", "description": "3 errors, 4 warnings, 5 notices, 6 information, 7 debugging"}}},
"LogLevelRequest": {"type": "object", "required": ["level"], "properties": {
    "level": {"enum": [3, 4, 5, 6, 7], "description": "see LogLevel; errors are always logged"}}},
"CachedAnswer": {"type": "object", "required": ["name"], "properties": {"name": {"type": "string"},
    "producer": {"type": "string"}, "isLinked": {"type": "boolean"}, "size": {"type": "integer"}}},
"RefreshRequest": {"type": "object", "properties": {"names": {"type": "array", "items": {"type": "string"},
    "description": "all without it"}}}
})json";

}  // namespace

JsonPtr parseSchemas() {
    return JsonPtr(cJSON_Parse(kSchemas));
}

}  // namespace pavo
