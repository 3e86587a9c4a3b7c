// VLANs as the switch has them, and one VLAN interface by interface. Nothing is changed. Any thread may call
// these functions; failures are logged on behalf of the operation that `where` names.
#ifndef PAVO_VLAN_VLAN_DETAILS_H
#define PAVO_VLAN_VLAN_DETAILS_H

#include <cstdint>
#include <optional>
#include <source_location>
#include <string>
#include <vector>

#include "common/result.h"
#include "common/where.h"
#include "swapi/switch.h"

namespace pavo {

// A value that the switch does not tell is absent; how many of them is one line of the log.
struct VlanSummary {
    VlanId id;
    std::optional<std::string> name{};
    std::optional<bool> isStatic{};

    // "Default" for VLAN 1, else "Static" or "Dynamic".
    std::optional<const char *> type() const;
};

// An interface as a VLAN has it.
struct VlanInterface {
    std::optional<std::string> name{};  // "1/0/5" (unit, slot, port), "lag 2"
    std::optional<bool> takesPart{};    // at present
    std::optional<Participation> configured{};
    std::optional<Tagging> tagging{};

    // "Include" and "Exclude"; the latter also "Autodetect"; "Tagged" and "Untagged".
    std::optional<const char *> currentWord() const;
    std::optional<const char *> configuredWord() const;
    std::optional<const char *> taggingWord() const;
};

struct VlanDetails {
    VlanSummary summary;
    std::vector<VlanInterface> interfaces;  // ports, then LAGs
};

// Whether a VLAN is there. Failed (logged) when it is not, with a number that is no VLAN's, and when the
// switch does not tell.
Result<VlanId> requireVlan(Switch sw, std::uint32_t vlan, Where where = std::source_location::current());

// The name of a VLAN that is there; nothing when it cannot be read.
Result<VlanSummary> readVlanName(Switch sw, std::uint32_t vlan,
                                 Where where = std::source_location::current());

// Failed when the VLAN is not there, or the interfaces cannot all be listed.
Result<VlanDetails> readVlanDetails(Switch sw, std::uint32_t vlan,
                                    Where where = std::source_location::current());

// Ascending. Failed when they cannot all be listed: a list with a gap would look as if one had gone.
Result<std::vector<VlanSummary>> readVlanSummaries(Switch sw, Where where = std::source_location::current());

// --- as JSON, in one line; what is absent is left out

// {"vlan-id":20,"name":"stage"}
std::string printVlanName(const VlanSummary &summary);
// {"vlan-id":20,"name":"stage","type":"Static","interfaces":[{"interface":"1/0/1","current":"Include",
//  "configured":"Autodetect","tagging":"Tagged"}, ...]}
std::string printVlanDetails(const VlanDetails &details);
// {"max-vlan-entries":4093,"vlans-in-use":1,"vlans":[{"vlan-id":1,"name":"default","type":"Default"}]}
std::string printVlanSummaries(const std::vector<VlanSummary> &summaries);

}  // namespace pavo

#endif
