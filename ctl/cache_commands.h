// The commands "pavoctl cache ...". Each prints its answer or throws a pavo::Failure; only refreshing needs
// the switch.
#ifndef PAVO_CTL_CACHE_COMMANDS_H
#define PAVO_CTL_CACHE_COMMANDS_H

#include <string>
#include <vector>

#include "ctl/output.h"
#include "swapi/switch.h"

namespace pavo::ctl {

// Every answer that can be cached or is, with its producer, whether this program has that, and the size in
// the cache.
void listCache(const Output &output);

// The stored answer as it stands, which is an envelope already.
void readCache(const std::string &name);

// Produces these answers anew; without names, all whose producer is linked. Goes on after a failure and
// throws the first one in the end.
void refreshCache(Switch sw, const Output &output, const std::vector<std::string> &names);

void deleteFromCache(const Output &output, const std::string &name);

}  // namespace pavo::ctl

#endif
