// The commands "pavoctl multicast ...". Each prints its answer or throws a pavo::Failure.
#ifndef PAVO_CTL_MULTICAST_COMMANDS_H
#define PAVO_CTL_MULTICAST_COMMANDS_H

#include <string>
#include <vector>

#include "ctl/output.h"
#include "swapi/switch.h"

namespace pavo::ctl {

void showGroups(Switch sw, const Output &output);
// Into the response cache, for the web interface.
void cacheGroups(Switch sw, const Output &output);
// Without ports, the interfaces that are not normal; otherwise sets them to "normal", "router" or "blocked".
void runMode(Switch sw, const Output &output, const std::string &ports, const std::string &mode);
// Without addresses and `clear`, the deny list; otherwise replaces it.
void runDeny(Switch sw, const Output &output, const std::vector<std::string> &addresses, bool clear);

}  // namespace pavo::ctl

#endif
