// The automatic switchport mode: the switch adapts ports to what is plugged in. Any thread of any process may
// call; the callers take turns. Failures are logged on behalf of `where`.
#ifndef PAVO_VLAN_SWITCHPORT_MODE_H
#define PAVO_VLAN_SWITCHPORT_MODE_H

#include <source_location>
#include <string_view>

#include "swapi/switch.h"

namespace pavo {

// Whether a running configuration switches it on: a line that begins with "switchport mode auto", behind
// blanks. Neither "no ..." nor a description that quotes it does.
bool parseSwitchportModeAuto(std::string_view runningConfig);

// Failed; OpenFailed when the running configuration cannot be read.
Result<bool> readSwitchportModeAuto(Switch sw, Where where = std::source_location::current());
Result<> setSwitchportModeAuto(Switch sw, bool on, Where where = std::source_location::current());

}  // namespace pavo

#endif
