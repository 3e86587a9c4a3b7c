// What applying a profile would change, and how profiles stand beside the switch, in words. Pure functions.
#ifndef PAVO_CTL_PLAN_TEXT_H
#define PAVO_CTL_PLAN_TEXT_H

#include <cstddef>
#include <string>

#include "profile/apply.h"
#include "profile/plan.h"

namespace pavo::ctl {

// Lines that end with a line feed, without control characters, each with `indent` blanks in front: a heading for
// each group that has something, and below it one line per change. What is the same for several ports or VLANs is
// one line; changes of a port are together:
//
//     VLANs
//       VLAN 20  new, named "Stage"
//     Ports
//       0/1-4,lag2  VLAN 1 -> 20 untagged, MTU default -> 9198
//     Taken
//       VLAN 20, port 2 from "Hall"
//
// Long ones go on in the next line. "nothing would change" when nothing would.
std::string planText(const ProfilePlan &plan, std::size_t indent = 0);

// "as applied"; or "interrupted: ...", "incomplete: ...", "drifted", with semicolons between them. What differs
// is in planText(status.repair).
std::string stateText(const ProfileStatus &status);

// "VLAN 20, port 2 are with "Hall"": what a profile goes without, by profile that has it.
std::string lossesText(const std::vector<Loss> &losses);

}  // namespace pavo::ctl

#endif
