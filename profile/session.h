// What a profile operation begins with: the record, the switch, the database. Opening it for a change first
// sets right what an interruption or a loss left behind.
#ifndef PAVO_PROFILE_SESSION_H
#define PAVO_PROFILE_SESSION_H

#include <source_location>
#include <string>
#include <vector>

#include "common/result.h"
#include "profile/port_names.h"
#include "profile/record.h"
#include "profile/switch_state.h"
#include "store/profile_db.h"
#include "store/profile_lock.h"
#include "swapi/switch.h"

namespace pavo {

// From the running configuration, one show capture. Failed when the switch refuses it, OpenFailed when its
// output is unreadable (logged).
Result<SwitchState> readSwitchState(Switch sw, Where where = std::source_location::current());

struct ProfileSession {
    Switch sw;
    Where where;
    ProfileRecord record;
    SwitchState observed;
    std::vector<ProfileRow> rows;  // ascending
    PortNames ports;

    // For a change. A database that is missing or damaged is made again from the record and the settings
    // files; a change that was interrupted is finished or, if that fails, taken back; profiles that the
    // record does not know (another program wrote their rows) are taken into it. Failed (logged, with a
    // reason) when the switch, the database or the record cannot be read: then nothing is known, and nothing
    // is changed.
    static Result<ProfileSession> open(Switch sw, const ProfileLock &held,
                                       Where where = std::source_location::current());
    // Only to look: nothing is changed, an interrupted change stays in `record.pending`.
    static Result<ProfileSession> look(Switch sw, Where where = std::source_location::current());
};

// Sets right what an interruption, a reboot or a loss left behind, as every change does before it begins: for
// the daemon at start. Takes the profile lock. Failures have been logged.
Result<> recoverProfiles(Switch sw, Where where = std::source_location::current());

// Whether the settings file of a VLAN is gone although a profile has the VLAN, by record and database; false while
// that cannot be told.
bool areVlanSettingsLost(Where where = std::source_location::current());

// Whether the database is there and can be read, or cannot be told because it is locked.
bool isProfileDbUsable(Where where = std::source_location::current());

}  // namespace pavo

#endif
