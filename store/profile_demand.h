// What a profile wants of the switch, as one struct: from the type table, from the template and from the name
// of its type. Everything else that speaks of a profile's features is a view of it: the feature mask, the
// VLAN pictures, the feature blocks that are switched on, the lists of the command line.
#ifndef PAVO_STORE_PROFILE_DEMAND_H
#define PAVO_STORE_PROFILE_DEMAND_H

#include <cstdint>
#include <span>
#include <string_view>

#include "store/profile_template.h"
#include "store/profile_types.h"

namespace pavo {

struct ProfileDemand {
    // From the template. Those that end in Off are set when the template switches the feature off.
    bool ptpTc = false;  // PTP transparent clock
    bool ptpBoundaryClock = false;
    bool avb = false;
    bool flowControl = false;        // switched on
    bool flowControlStated = false;  // on or off
    bool poe = false;
    bool queryInterval = false;  // of IGMP, stated
    bool mtuOff = false;
    bool stormOff = false;  // storm control; also by `rstp`
    bool qos = false;       // stated, whatever it says
    bool sonos = false;
    bool lldpOff = false;
    bool isdpOff = false;
    bool stpOff = false;

    // From the type table.
    std::int32_t mtu = 0;  // bytes; 0: the profile does not touch the MTU
    bool modeA = false;
    bool modeB = false;
    bool polyProxyQuerier = false;
    bool lightwareIgmp = false;
    std::int32_t querierInterval = 0;  // seconds; 0: no IGMP querier wanted
    bool fastLeave = false;
    bool harmanAcl = false;  // where the VLAN's role is that of type 3
    bool etcVlan = false;
    bool etcGlobal = false;
    bool rstp = false;
    bool macFilter = false;
    bool pairALow = false;
    bool pairAHigh = false;
    bool pairBLow = false;
    bool pairBHigh = false;

    // By the name of the type.
    bool telos = false;
    bool gd = false;
    bool milan = false;
    bool milanDante = false;

    bool operator==(const ProfileDemand &) const = default;
};

// Only what the template (null: none) and the name of a type say.
ProfileDemand templateDemand(std::string_view typeName, const ProfileTemplate *fromTemplate);

// What a type wants for a VLAN whose role in the profile is `vlanType`. Without a template only what the
// table and the name say; a type that is not in the table has what its template and its name say.
ProfileDemand profileDemand(std::string_view typeName, std::int32_t vlanType,
                            const ProfileTemplate *fromTemplate);

// A field of the struct with a human-readable name ("PTP", "AVB", "QoS", "querier", ...), in the order they
// are listed.
struct DemandName {
    const char *name;
    bool (*wanted)(const ProfileDemand &demand);
};
std::span<const DemandName> demandNames();

}  // namespace pavo

#endif
