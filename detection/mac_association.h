// MAC-based VLAN associations: the scripts that make and remove one, and what "show vlan association mac"
// says of all of them.
#ifndef PAVO_DETECTION_MAC_ASSOCIATION_H
#define PAVO_DETECTION_MAC_ASSOCIATION_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "common/mac.h"
#include "swapi/switch.h"

namespace pavo {

// The scripts of one family: its two files (fixed paths), and what it says of a script that cannot be written
// or that the switch refuses (with the script).
struct AssociationScripts {
    const char *in;
    const char *out;
    LogFormat<> writeFailed;
    LogFormat<std::string> applyFailed;
};

// Puts the address into the VLAN, or takes it out of the one that it is in. Failures are logged in the
// family's words, on behalf of `where`.
[[nodiscard]] ScriptResult addMacAssociation(Switch sw, const AssociationScripts &scripts, Mac mac,
                                             VlanId vlan, Where where = std::source_location::current());
[[nodiscard]] ScriptResult removeMacAssociation(Switch sw, const AssociationScripts &scripts, Mac mac,
                                                Where where = std::source_location::current());

// The addresses of a table of associations.
class MacAssociations {
  public:
    // From what the show command prints. Nothing when the output ends before the table begins.
    static std::optional<MacAssociations> parse(std::string_view output);

    // Whether the output ends in the middle of a line: then there is more of it.
    static bool isCutShort(std::string_view output);

    // Whether the table mentions the address, in capitals or not: as an entry or within one.
    bool mention(Mac mac) const;
    // The same, and the VLAN is not another one, as far as the table tells.
    bool hold(Mac mac, VlanId vlan) const;
    // The addresses in a VLAN, spelled as the table does, in no particular order.
    std::vector<Mac> addressesIn(VlanId vlan) const;

  private:
    struct Entry {
        Mac mac;
        std::optional<VlanId> vlan;
    };
    void add(std::string_view entry, std::string_view vlan);

    std::unordered_map<std::uint64_t, Entry> addresses_;  // by Mac::bits()
    std::vector<std::string> others_;  // entries that are more than an address, in small letters
};

// The associations that the switch shows; within the result, nothing as for parse(). Failed when the switch
// refuses, OpenFailed when its output cannot be read or is cut short; both logged on behalf of `where`.
Result<std::optional<MacAssociations>> readMacAssociations(Switch sw,
                                                           Where where = std::source_location::current());

}  // namespace pavo

#endif
