// The commands "pavoctl profile ...". Each prints its answer or throws a pavo::Failure.
#ifndef PAVO_CTL_PROFILE_COMMANDS_H
#define PAVO_CTL_PROFILE_COMMANDS_H

#include <string>

#include "ctl/output.h"
#include "ctl/request.h"
#include "swapi/switch.h"

namespace pavo::ctl {

void showTypes(const Output &output);
void showTemplates(Switch sw, const Output &output);
void listProfiles(Switch sw, const Output &output);
void showProfile(Switch sw, const Output &output, const std::string &name);
// "applied", or the plan where that is asked for.
void applyProfile(Switch sw, const Output &output, const ApplyOptions &options);
// Of all profiles, or of the one of that name; whether they are all as they were applied.
bool showStatus(Switch sw, const Output &output, const std::string &name);
void deleteProfile(Switch sw, const Output &output, const std::string &name);

}  // namespace pavo::ctl

#endif
