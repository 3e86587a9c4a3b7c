// Reading a switch state and leading the switch to another one. They run on the caller's thread; one change
// at a time (see profile/profile_lock.h).
#ifndef PAVO_PROFILE_SWITCH_CHANGE_H
#define PAVO_PROFILE_SWITCH_CHANGE_H

#include <source_location>

#include "common/result.h"
#include "profile/switch_state.h"

namespace pavo {

// From the running configuration, one show capture. Failed when the switch refuses it, OpenFailed when its
// output is unreadable (logged).
Result<SwitchState> readSwitchState(Switch sw, Where where = std::source_location::current());

// Leads the switch from `from` to `to` with one script and reads back until it is there, within the budget of
// swapi/poll.h. Failed when the script is refused, the switch cannot be read, or does not get there (logged).
Result<> changeSwitch(Switch sw, const SwitchState &from, const SwitchState &to,
                      Where where = std::source_location::current());

// Takes back a change from `before` to `wanted` that may have happened in part; the rest of the switch is
// left alone. As above.
Result<> restoreSwitch(Switch sw, const SwitchState &before, const SwitchState &wanted,
                       Where where = std::source_location::current());

}  // namespace pavo

#endif
