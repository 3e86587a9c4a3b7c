// Ports, LAGs and mirror sessions as the switch describes them, read for the pages of the web interface.
//
// What could not be read is absent; that it does not apply (a port in no LAG, a cage without a transceiver)
// is a value. A walk that does not reach its end, and a value without which nothing is left to tell, make a
// reading Failed (logged). Other failed reads are counted, and one line of the log tells of them.
#ifndef PAVO_WEB_PORT_FACTS_H
#define PAVO_WEB_PORT_FACTS_H

#include <cstdint>
#include <map>
#include <optional>
#include <source_location>
#include <string>
#include <vector>

#include "common/result.h"
#include "common/vlan_id.h"
#include "common/where.h"
#include "swapi/switch.h"

namespace pavo {

struct PortSettings {
    std::optional<std::string> description{};
    std::optional<LinkSpeed> speed{};
    std::optional<std::uint32_t> mtu{};
    std::optional<VlanId> pvid{};
    std::optional<std::vector<VlanId>> taggedVlans{};
};

struct PortStatus {
    std::optional<bool> link{};
    std::optional<LinkSpeed> speed{};  // of the link
    std::optional<ErrorDisable> errorDisable{};
};

struct PortCounts {
    std::optional<TrafficCounters> traffic{};
    std::optional<CastCounters> in{}, out{};
    std::optional<ErrorCounters> errors{};
};

// A port or a LAG.
struct InterfaceFacts {
    IfNum ifNum;
    std::optional<UnitSlotPort> place{};
    std::optional<std::string> name{};
    std::optional<bool> enabled{};  // administratively
    // Each only when it was asked for.
    std::optional<PortSettings> settings{};
    std::optional<PortStatus> status{};
    std::optional<PortCounts> counts{};
    std::optional<PortHardware> hardware{};

    std::optional<std::uint32_t> lag{};  // number of the LAG that a port is in, 0 for none
};

struct LagFacts {
    InterfaceFacts interface;
    std::uint32_t number = 0;  // from 1
    std::optional<std::string> name{};
    std::optional<bool> isStatic{};
    std::optional<LagHash> hash{};
    std::optional<std::vector<IfNum>> members{}, activeMembers{};
};

// The place of a transceiver.
struct SfpFacts {
    InterfaceFacts port;
    std::optional<bool> present{};
    std::optional<SfpInventory> inventory{};
    bool measures = false;  // false: what follows does not apply
    std::optional<SfpDiagnostics> diagnostics{};
    std::optional<SfpPower> power{};
};

struct MirrorFacts {
    std::uint32_t session = 0;
    std::optional<bool> enabled{};
    std::optional<IfNum> destination{};  // 0 for none
    std::vector<MirrorSource> sources{};
};

// What is read of each interface; names, place and administrative state are always.
struct FactsWanted {
    bool settings = false, status = false, counts = false, hardware = false;
    bool lag = false;  // membership of ports
};

// In ascending order of interface numbers.
Result<std::vector<InterfaceFacts>> readPortFacts(Switch sw, FactsWanted wanted,
                                                  Where where = std::source_location::current());
Result<std::vector<LagFacts>> readLagFacts(Switch sw, FactsWanted wanted,
                                           Where where = std::source_location::current());
// The ports that take transceivers.
Result<std::vector<SfpFacts>> readSfpFacts(Switch sw, Where where = std::source_location::current());

struct TrunkFacts {
    bool automatic = false;                    // the switch makes trunks by itself
    std::vector<InterfaceFacts> interfaces{};  // that carry VLANs tagged: ports in no LAG, and LAGs
};
Result<TrunkFacts> readTrunkFacts(Switch sw, Where where = std::source_location::current());

struct MirrorTable {
    std::uint32_t sessionMax = 0;
    std::vector<MirrorFacts> sessions;   // those that are configured
    std::map<IfNum, std::string> names;  // of the interfaces in them, if wanted
};
Result<MirrorTable> readMirrorTable(Switch sw, bool withNames, Where where = std::source_location::current());

Result<AutoLag> readAutoLag(Switch sw, Where where = std::source_location::current());

}  // namespace pavo

#endif
