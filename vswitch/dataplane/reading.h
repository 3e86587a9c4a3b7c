// Parsers for the output of the tools of Open vSwitch and lldpd. Strings come from the network: what is not
// as expected is left out, never guessed.
#ifndef PAVO_VSWITCH_DATAPLANE_READING_H
#define PAVO_VSWITCH_DATAPLANE_READING_H

#include <map>
#include <string>
#include <vector>

#include "vswitch/dataplane/data_plane.h"

namespace vswitch {

struct LearnedRows {
    std::vector<SeenAddress> addresses;  // age in real time
    std::map<ArpKey, Mac> arp;
    std::map<ArpKey, IfNum> arpInterfaces;  // port or LAG behind which it was seen
};

// The learned flow entries in the output of "ovs-ofctl dump-flows".
LearnedRows learnedRowsOf(const std::string &dump);

// The neighbours in the output of "lldpcli -f json0 show neighbors details" on the ports of the map; nothing
// when it is not such a document.
std::optional<std::vector<SeenNeighbour>> neighboursOf(const std::string &document, const PortMap &ports);

}  // namespace vswitch

#endif
