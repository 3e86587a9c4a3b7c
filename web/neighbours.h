// Who is behind which port: devices that announce themselves by LLDP, and hosts that only the forwarding
// table knows.
//
// NeighbourJoin puts together what the switch's tables say about a device; it is fed with values, so it needs
// no switch. readNeighbours feeds it from one. Neither keeps anything beyond a run.
//
// How names and addresses are matched: MAC addresses are compared as strings, capitals or not, so an address
// that a device announces in another notation ("0050-5600-1000") has neither an IP address from the ARP table
// nor a vendor. Look-ups are by hash; their results are those of going through the tables in order.
#ifndef PAVO_WEB_NEIGHBOURS_H
#define PAVO_WEB_NEIGHBOURS_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory_resource>
#include <optional>
#include <set>
#include <source_location>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "common/ipv4.h"
#include "common/mac.h"
#include "common/result.h"
#include "common/where.h"
#include "platform/clock.h"
#include "store/vendors.h"
#include "swapi/switch.h"

namespace pavo {

// Interface numbers that the list covers: 0 to 895. LAGs and what is learned on them are not in it.
inline constexpr std::size_t kNeighbourPorts = 896;

struct NeighbourPort {
    bool hasLink = false;
    SwitchportMode mode = SwitchportMode::General;
    UnitSlotPort place{};
    std::string name{};
    std::uint32_t pvid = 0;
};

// A device that LLDP has heard, as it describes itself. Strings are empty where it says nothing.
struct LldpDevice {
    NeighbourId chassis{};
    NeighbourId portId{};
    std::string systemName{};
    std::string managementAddress{};

    // Its MAC address: the chassis ID if that is one, else the port ID if that is one, else empty.
    std::string_view macText() const;
};

// An entry of the forwarding table.
struct ForwardingEntry {
    IfNum interface;
    bool learned = false;
    std::uint32_t vlan = 0;
    Mac mac{};
};

enum class NeighbourSource { Lldp, ForwardingTable };

// One line of the list. The strings belong to others: they are valid while the line is looked at.
struct NeighbourLine {
    IfNum interface;
    const NeighbourPort *port = nullptr;
    NeighbourSource source = NeighbourSource::Lldp;
    std::uint32_t vlan = 0;       // PVID of the port for a device heard by LLDP
    std::string_view hostName{};  // the name that it announces, else its vendor
    std::string_view ip{};        // the management address that it announces, else the one in the ARP table
    std::string_view mac{};
    std::string_view remotePortId{};
};

class NeighbourJoin {
  public:
    explicit NeighbourJoin(const VendorTable &vendors) : vendors_(vendors), ports_(kNeighbourPorts) {}

    // The last entry for a MAC address counts. Of longer strings, 17 characters count.
    void addArp(std::string_view mac, Ipv4 ip);
    // Ports outside the list are ignored, and the first description of a port counts.
    void addPort(IfNum ifNum, NeighbourPort port);
    bool knowsPort(IfNum ifNum) const { return port(ifNum) != nullptr; }
    const NeighbourPort *port(IfNum ifNum) const;  // null for one that is not described

    // The line of a device heard on a described port; it refers to the device's strings. From then on its MAC
    // address is no host's of the forwarding table.
    NeighbourLine lineOf(IfNum ifNum, const LldpDevice &device);
    NeighbourLine lineOf(IfNum ifNum, const LldpDevice &&device) = delete;
    // The line of a host, valid until the next one: only for a learned address, on a described port that is
    // no trunk, of no device heard.
    std::optional<NeighbourLine> lineOf(const ForwardingEntry &entry);

    std::size_t arpCount() const { return arpCount_; }
    std::size_t deviceCount() const { return deviceCount_; }

  private:
    // What the tables say about a MAC address.
    struct Known {
        std::optional<Ipv4> ip{};  // the last one in the ARP table
        bool isDevice = false;     // heard by LLDP
    };
    // Of longer strings, 17 characters count.
    Known &known(std::string_view mac);

    // Valid until the next call.
    std::string_view ipOf(const Known &known);
    std::string_view vendorOf(std::string_view mac);

    const VendorTable &vendors_;
    std::vector<std::optional<NeighbourPort>> ports_;
    std::pmr::monotonic_buffer_resource memory_;  // of thousands of addresses, which all go at once
    std::pmr::unordered_map<std::uint64_t, Known> addresses_{&memory_};
    // Anything may be announced for an address: strings that are none, in small letters.
    std::unordered_map<std::string, Known> others_;
    std::string ipText_;
    char macText_[Mac::kTextSize] = {};
    std::string lastPrefix_;  // of the last vendor looked up: tables come in the order of addresses
    std::string_view lastVendor_;
    std::size_t arpCount_ = 0;
    std::size_t deviceCount_ = 0;
};

// A line as JSON, without white space; the keys of a host come in another order than those of a device.
// Strings are escaped by cJSON's rules, and what is no UTF-8 is replaced. False, with `row` of no use, for a
// row that is longer than kNeighbourRowMax.
inline constexpr std::size_t kNeighbourRowMax = 2559;
bool printNeighbourRow(const NeighbourLine &neighbour, std::string &row);

// "port" of the row: "5", or "2/5" in another slot than 0.
std::string portText(const UnitSlotPort &place);

// What a run has cost and counted.
struct NeighbourTiming {
    platform::Duration arp{}, portTable{}, lldp{}, forwardingTable{};
    std::size_t arpCount = 0;              // entries of the ARP table
    std::size_t forwardingTableCount = 0;  // entries of the forwarding table, listed or not
    std::size_t lldpCount = 0;             // devices heard
};

// Reads the switch and visits the line of each device, then of each host, in the order of the switch's
// tables.
//
// A port whose description cannot be read in full is left out with everything behind it, and so is a device
// without its chassis or port ID (it may be among the hosts then); a link state that cannot be read counts as
// down, and a name or management address as not announced. But a table that breaks off ends the run, and so
// does a switch that cannot be reached: Failed (logged), because whoever is missing then may well be there. A
// table that the switch does not offer is an empty one.
Result<> readNeighbours(Switch sw, const VendorTable &vendors,
                        const std::function<void(const NeighbourLine &)> &visit, NeighbourTiming &timing,
                        Where where = std::source_location::current());

// The vendors behind a port.
struct PortVendors {
    IfNum interface;
    NeighbourPort port;
    std::size_t devices = 0;  // lines of the list, those of unknown vendors included
    // By name, with the number of its devices.
    std::map<std::string, std::size_t, std::less<>> vendors{};
    std::set<std::string> recognised{};  // vendors whose devices detection recognises there
};

// The ports with somebody behind them, ascending.
Result<std::vector<PortVendors>> readPortVendors(Switch sw, const VendorTable &vendors,
                                                 Where where = std::source_location::current());

}  // namespace pavo

#endif
