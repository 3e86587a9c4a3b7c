#include "vswitch/dataplane/port_counters.h"

#include <array>
#include <fstream>
#include <sstream>

namespace vswitch {
namespace {

// The columns of a line behind the name.
enum Column { RxBytes, RxPackets, RxErrors, RxDropped, TxBytes = 8, TxPackets, TxErrors, TxDropped, Columns };

// In Mbit/s; 0 when the kernel does not know it.
std::uint32_t readSpeed(const std::string &netdev) {
    std::ifstream in("/sys/class/net/" + netdev + "/speed");
    long speed = 0;
    return in >> speed && speed > 0 ? static_cast<std::uint32_t>(speed) : 0;
}

}  // namespace

std::map<std::string, PortCounters, std::less<>> parseNetDev(std::string_view text) {
    std::map<std::string, PortCounters, std::less<>> all;
    std::istringstream lines{std::string(text)};
    for (std::string line; std::getline(lines, line);) {
        const auto colon = line.find(':');
        const auto begin = line.find_first_not_of(' ');
        if (colon == std::string::npos || begin >= colon)
            continue;
        std::istringstream numbers(line.substr(colon + 1));
        std::array<std::uint64_t, Columns> columns{};
        std::size_t read = 0;
        while (read < columns.size() && numbers >> columns[read])
            ++read;
        if (read < columns.size())
            continue;
        PortCounters counters;
        counters.in = counters.out = std::nullopt;
        counters.inOctets = columns[RxBytes];
        counters.inPackets = columns[RxPackets];
        counters.inErrors = columns[RxErrors];
        counters.inDiscards = columns[RxDropped];
        counters.outOctets = columns[TxBytes];
        counters.outPackets = columns[TxPackets];
        counters.outErrors = columns[TxErrors];
        counters.outDiscards = columns[TxDropped];
        all.emplace(line.substr(begin, colon - begin), counters);
    }
    return all;
}

void seeWires(Model &model, const PortMap &ports) {
    std::ifstream in("/proc/net/dev");
    std::ostringstream text;
    text << in.rdbuf();
    const auto counted = parseNetDev(text.view());
    for (const auto &[port, netdev] : ports)
        if (const auto it = counted.find(netdev); it != counted.end())
            model.seeWire(port, it->second, readSpeed(netdev));
}

}  // namespace vswitch
