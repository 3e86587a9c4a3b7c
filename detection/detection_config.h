// What the detection threads read from the files that profile operations write for them.
#ifndef PAVO_DETECTION_DETECTION_CONFIG_H
#define PAVO_DETECTION_DETECTION_CONFIG_H

#include <optional>
#include <source_location>
#include <string>
#include <vector>

#include "common/if_num.h"
#include "common/vlan_id.h"
#include "common/where.h"

namespace pavo {

// What is in the file of one profile, as far as it is there and makes sense.
struct DetectionConfig {
    std::optional<VlanId> audioVlan;
    std::optional<VlanId> controlVlan;
    // The ports to look at, in the order of the file and with what no port has as its number; nothing when the
    // file does not speak of them.
    std::optional<std::vector<IfNum>> ports;
};

// The file of a family: where it is (a fixed path), and how its text is read. The text is nobody's promise: a
// parser takes any, and says nothing for one that is no JSON.
struct DetectionConfigFile {
    const char *path;
    std::optional<DetectionConfig> (*parse)(const std::string &text);
};

// Nothing when the file is missing, too large or does not parse.
std::optional<DetectionConfig> readDetectionConfig(const DetectionConfigFile &file,
                                                   Where where = std::source_location::current());

// The common form: {"audioVlanID": 20, "controlVlanID": 10, `portsKey`: [5, 6]}. Numbers lose their fractions;
// whatever is no number is passed over.
std::optional<DetectionConfig> parseDetectionConfig(const std::string &text, const char *portsKey);

}  // namespace pavo

#endif
