// The commands "pavoctl nice": whether Nice detection is on. They print their answer or throw a pavo::Failure; the
// switch is not needed.
#ifndef PAVO_CTL_NICE_COMMANDS_H
#define PAVO_CTL_NICE_COMMANDS_H

#include "ctl/output.h"

namespace pavo::ctl {

// For the next cycle of a daemon that runs, and for all daemons to come.
void setNice(const Output &output, bool enabled);

void showNice(const Output &output);

}  // namespace pavo::ctl

#endif
