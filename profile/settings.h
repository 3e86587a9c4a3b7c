// Switch-wide and per-VLAN settings that feature blocks change, as data: each setting has a name, the words
// of its command, and a value. Scripts and the running configuration are in the same language and are read by
// the same parser, so what a script writes and what the switch shows can be compared. Pure functions; any
// thread.
#ifndef PAVO_PROFILE_SETTINGS_H
#define PAVO_PROFILE_SETTINGS_H

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/vlan_id.h"

namespace pavo {

// By name: "spanning-tree mode", "set igmp fast-leave 20", "class-map CLASS_VIDEO", "interface 0/5 mvrp".
// What stands at its default is absent. A setting without a value has kSettingOn; a map or list has its
// lines.
using Settings = std::map<std::string, std::string>;
inline constexpr const char *kSettingOn = "on";

// What a script writes: a value, or nothing where it puts the default back. The last line about a setting
// decides.
using SettingWrites = std::map<std::string, std::optional<std::string>>;

// The words of a line; "..." is one word, in which a backslash stands before what is meant literally.
std::vector<std::string> cliWords(std::string_view line);

// Lines about anything else are passed over.
SettingWrites parseSettingWrites(std::string_view script);
// From the text of "show running-config".
Settings parseSettings(std::string_view runningConfig);

// The VLAN that a setting is about, and goes with; nothing for all others.
std::optional<VlanId> vlanOfSetting(const std::string &name);

// The script that leads from one to the other, empty when there is nothing to do. Maps and policies that name
// each other go and come in the order that the switch asks for.
std::string settingsScript(const Settings &from, const Settings &to);

}  // namespace pavo

#endif
