// The two entries of profile operations: a request as JSON comes in, the switch is configured for it. They
// take the profile lock and run on the caller's thread. Log lines name the operations, whoever calls.
#ifndef PAVO_PROFILE_CONFIGURE_H
#define PAVO_PROFILE_CONFIGURE_H

#include <string>

#include "common/result.h"
#include "swapi/switch.h"

namespace pavo {

// Applies the profile that a request describes ({"profileConfig": {...}}). InvalidArgument for a request that
// does not parse (see profile/request.h); otherwise as applyProfile. A failed request leaves switch, database
// and files as they were.
//
// Failures have been logged. They have a human-readable reason only when the lock cannot be taken; the log
// has the details of everything else.
Result<> configureProfile(Switch sw, const std::string &requestText);

// Deletes the profile that a request names ({"name": "..."}). InvalidArgument for a request that is no JSON
// or has no name, and for "Default"; otherwise as removeProfile. Failures as above.
Result<> deleteProfile(Switch sw, const std::string &requestText);

}  // namespace pavo

#endif
