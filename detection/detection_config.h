// What the detection threads read from the files that profile operations write for them.
#ifndef PAVO_DETECTION_DETECTION_CONFIG_H
#define PAVO_DETECTION_DETECTION_CONFIG_H

#include <optional>
#include <string>
#include <vector>

#include "common/if_num.h"
#include "common/vlan_id.h"

namespace pavo {

// What is in the file of one profile, as far as it is there and makes sense.
struct DetectionConfig {
    std::optional<VlanId> audioVlan;
    std::optional<VlanId> controlVlan;
    // The ports to look at, in the order of the file, including numbers that no port has; nothing when
    // the file does not speak of them.
    std::optional<std::vector<IfNum>> ports;
};

// Reads the text of a family's file. The contents are untrusted: a parser takes any, and gives nothing for a
// text that is no JSON.
using ParseDetectionConfig = std::optional<DetectionConfig>(const std::string &text);

// The common form: {"audioVlanID": 20, "controlVlanID": 10, `portsKey`: [5, 6]}. Numbers lose their
// fractions; whatever is no number is passed over.
std::optional<DetectionConfig> parseDetectionConfig(const std::string &text, const char *portsKey);

// An apply request as it is kept for a profile type: the ports assigned to its first VLAN. Nothing is read but
// these.
std::optional<DetectionConfig> parseAssignedPorts(const std::string &text);

}  // namespace pavo

#endif
