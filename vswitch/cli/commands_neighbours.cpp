// What ports are for, as an operator states it.
#include <algorithm>

#include "vswitch/cli/command.h"

namespace vswitch::cli {
namespace {

// In the order of OPEN_SWITCHPORT_MODE_, which begins with 1.
constexpr const char *kModeWords[] = {"general", "access", "trunk"};

const char *modeWord(const Interface &interface) {
    return kModeWords[interface.switchportMode - OPEN_SWITCHPORT_MODE_GENERAL];
}

bool setMode(Context &c, std::uint32_t mode) {
    return eachInterface(c, [mode](Interface &i) {
        i.switchportMode = mode;
        return true;
    });
}

bool showSwitchport(Context &c, const Values &) {
    c.out += "Port       Mode\n---------- -------\n";
    for (const auto &[num, interface] : c.model.interfaces())
        c.out += format("%-10s %s\n", interface.name().c_str(), modeWord(interface));
    return true;
}

const Command kSwitchport[] = {
    {kInterface, "switchport mode general|access|trunk", "Say what the port is for",
     [](Context &c, const Values &v) {
         const auto word = std::ranges::find(kModeWords, v[0].text) - std::begin(kModeWords);
         return setMode(c, static_cast<std::uint32_t>(word) + OPEN_SWITCHPORT_MODE_GENERAL);
     },
     [](const Model &, const Interface *i, std::string &out) {
         if (i->switchportMode != OPEN_SWITCHPORT_MODE_GENERAL)
             out += format("switchport mode %s\n", modeWord(*i));
     }},
    {kInterface, "no switchport mode", "Let the port be for anything",
     [](Context &c, const Values &) { return setMode(c, OPEN_SWITCHPORT_MODE_GENERAL); }},
    {kAnyMode, "show interfaces switchport", "What all interfaces are for", showSwitchport},
};

}  // namespace

std::span<const Command> switchportCommands() {
    return kSwitchport;
}

}  // namespace vswitch::cli
