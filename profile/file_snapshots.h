// What files held before a profile operation changes them, to be put back when the operation fails.
#ifndef PAVO_PROFILE_FILE_SNAPSHOTS_H
#define PAVO_PROFILE_FILE_SNAPSHOTS_H

#include <optional>
#include <source_location>
#include <string>
#include <utility>
#include <vector>

#include "common/result.h"
#include "common/where.h"

namespace pavo {

// Replaces a file of a profile. Detection watches the folders of requests and of VLAN settings and takes every
// file there for a profile's: only whole files appear in these, and a caller that is killed leaves none.
Result<> replaceProfileFile(const std::string &fixedPath, const std::string &text, const Where &where);

class FileSnapshots {
  public:
    // Remembers a file (a fixed path) as it is when it is noted first.
    void note(const std::string &fixedPath);
    // Puts all of them back; the failure of the first that could not be (logged).
    Result<> restore(Where where = std::source_location::current()) const;

  private:
    std::vector<std::pair<std::string, std::optional<std::string>>> files_;
};

}  // namespace pavo

#endif
