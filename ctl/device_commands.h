// The command "pavoctl devices": who is who in an installation. It prints its answer or throws a pavo::Failure.
#ifndef PAVO_CTL_DEVICE_COMMANDS_H
#define PAVO_CTL_DEVICE_COMMANDS_H

#include "ctl/output.h"
#include "swapi/switch.h"

namespace pavo::ctl {

// The devices that the daemon knows, as it has reported them after its last looks, and those in the forwarding table
// that have the address of a known manufacturer and are none of them: "unmanaged". While the table cannot be read to
// its end, a note on standard error says so. Failed without a daemon, and while it has not reported anything.
void showDevices(Switch sw, const Output &output);

}  // namespace pavo::ctl

#endif
