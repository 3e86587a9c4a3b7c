// The options of "profile apply" as the request of the operation behind it.
#ifndef PAVO_CTL_REQUEST_H
#define PAVO_CTL_REQUEST_H

#include <string>
#include <vector>

#include "swapi/switch.h"

namespace pavo::ctl {

struct ApplyOptions {
    std::string file, name, type, color = "#3366cc", ptp;
    std::vector<std::string> vlans;  // "20 type=3 untagged=1-4,lag2 tagged=9 assigned=5"
    bool overwrite = false, force = false, plan = false;
};

// The text of the request: that of the file ("-": standard input) when one is named, with the flags that are
// set put into it, else one made of the options. A file whose content is no request comes as it is.
//
// Throws CLI::ValidationError, which names the option and what is wrong in it; or a pavo::Failure when the
// switch does not tell its interfaces.
std::string requestOf(Switch sw, const ApplyOptions &options);

}  // namespace pavo::ctl

#endif
