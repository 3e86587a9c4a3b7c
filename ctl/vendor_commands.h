// The command "pavoctl vendor". Prints its answer or throws a pavo::Failure; the switch is not needed.
#ifndef PAVO_CTL_VENDOR_COMMANDS_H
#define PAVO_CTL_VENDOR_COMMANDS_H

#include <string>

#include "ctl/output.h"

namespace pavo::ctl {

// The vendor of the device with this address: three or six two-digit groups, joined by colons or hyphens.
void showVendor(const Output &output, const std::string &address);

}  // namespace pavo::ctl

#endif
