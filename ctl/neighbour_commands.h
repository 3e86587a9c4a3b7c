// The command "pavoctl neighbours". It prints its answer or throws a pavo::Failure.
#ifndef PAVO_CTL_NEIGHBOUR_COMMANDS_H
#define PAVO_CTL_NEIGHBOUR_COMMANDS_H

#include <cstdint>

#include "ctl/output.h"
#include "swapi/switch.h"

namespace pavo::ctl {

struct FollowOptions {
    bool follow = false;
    std::uint32_t seconds = 5;  // between two looks
};

// A table by port, or the page of the web interface in its envelope. Followed, it goes on until its output is
// closed or cannot be written: a line for each change (one JSON object per line for machines), and while the
// switch cannot be read, a note on standard error; nobody has left then.
void showNeighbours(Switch sw, const Output &output, const FollowOptions &options);

}  // namespace pavo::ctl

#endif
