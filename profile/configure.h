// The two entries of profile operations: a request as JSON comes in, the switch is configured for it. They
// take the profile lock and run on the caller's thread. Log lines name the operations, whoever calls.
#ifndef PAVO_PROFILE_CONFIGURE_H
#define PAVO_PROFILE_CONFIGURE_H

#include <optional>
#include <string>

#include "common/result.h"
#include "profile/plan.h"
#include "profile/request.h"
#include "swapi/switch.h"

namespace pavo {

// Applies the profile that a request describes ({"profileConfig": {...}}). InvalidArgument for a request that
// does not parse (see profile/request.h); otherwise as applyProfile. A failed request leaves switch, database
// and files as they were. With "plan": true nothing is changed, and the answer is the plan.
//
// Failures have been logged. One that is about the request has a human-readable reason that names the field.
//
// For callers that act on their own: a `condition` that does not hold any more refuses the request.
Result<std::optional<ProfilePlan>> configureProfile(Switch sw, const std::string &requestText,
                                                    ApplyCondition *condition = nullptr);

// Deletes the profile that a request names ({"name": "..."}); a name that is too long finds the profile whose
// name was cut from it. InvalidArgument for a request that is no JSON or has no name, and for "Default";
// otherwise as removeProfile. Failures as above.
Result<> deleteProfile(Switch sw, const std::string &requestText);

}  // namespace pavo

#endif
