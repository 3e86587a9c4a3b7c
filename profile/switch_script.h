// The difference of two switch states as a CLI script, so that a change touches only what differs, costs one
// apply however many ports it concerns, and is rolled back by applying the difference the other way. Pure
// functions; any thread may call them.
#ifndef PAVO_PROFILE_SWITCH_SCRIPT_H
#define PAVO_PROFILE_SWITCH_SCRIPT_H

#include <set>
#include <string>

#include "profile/switch_state.h"

namespace pavo {

// The script that leads from one state to the other; empty when there is nothing to do. Names that do not
// belong into a script are the caller's to keep out.
std::string switchScript(const SwitchState &from, const SwitchState &to);

// What a change concerns; other parts of the switch may be changed by others at the same time.
struct Touched {
    std::set<std::string> interfaces;
    VlanSet vlans, routing;

    static Touched by(const SwitchState &from, const SwitchState &to);
    // The part of a state that the change concerns.
    SwitchState part(SwitchState state) const;
};

}  // namespace pavo

#endif
