// The options of "profile apply" as the request of the operation behind it.
#ifndef PAVO_CTL_REQUEST_H
#define PAVO_CTL_REQUEST_H

#include <string>
#include <vector>

namespace pavo::ctl {

struct ApplyOptions {
    std::string file, name, type, color = "#3366cc", ptp;
    std::vector<std::string> vlans;  // "20 type=3 untagged=1-4 tagged=9 assigned=5"
    bool overwrite = false, force = false;
};

// The text of the request: that of the file ("-": standard input) when one is named, else one made of the
// options. Throws CLI::ValidationError when neither is to be had.
std::string requestOf(const ApplyOptions &options);

}  // namespace pavo::ctl

#endif
