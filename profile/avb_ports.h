// 802.1AS and MRP on the ports that carry AVB streams: those that the file of manual trunks names. One thread
// at a time.
#ifndef PAVO_PROFILE_AVB_PORTS_H
#define PAVO_PROFILE_AVB_PORTS_H

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "common/if_num.h"
#include "common/result.h"
#include "profile/block_script.h"
#include "profile/settings.h"

namespace pavo {

// Numbers of ports (interfaces "0/N") and of LAGs ("lag N"), each once, in the order of the file.
struct ManualTrunks {
    std::vector<std::uint32_t> ports, lags;
};
// What the file has; nothing in it when there is no file. Failed (logged) when it cannot be read or is no
// JSON object.
Result<ManualTrunks> loadManualTrunks(Where where = std::source_location::current());

// The ports are those of "/tmp/manual_trunk_config": {"physicalPort": [1, 2], "lagPort": [1]}, numbers of
// ports (interfaces "0/N") and of LAGs ("lag N"). What is no number from 1 to 912 is passed over.
std::vector<std::string> parseManualTrunks(const std::string &text);
// Those of the file; none when it is missing.
std::vector<std::string> readManualTrunks();
// Writes that file. Failed (logged).
Result<> writeManualTrunks(std::span<const IfNum> physicalPorts, std::span<const IfNum> lagPorts,
                           Where where = std::source_location::current());

// Scripts for all of these ports, however long. An MTU of 0 leaves the ports' MTU alone. Failures have been
// logged under the name of the block's operation.
//
// 802.1AS and MRP for the switch, then policy and MRP timers for each port, with the MRP applications and
// 802.1AS there too if wanted.
Result<> switchAvbPortsOn(Switch sw, bool applications, std::int32_t mtu);
// What switching on (with the applications) and off (with the policy) write.
SettingWrites avbPortWrites(bool on);
// Only MRP timers and MTU.
Result<> setAvbPortTimers(Switch sw, std::int32_t mtu);
// Takes MRP and 802.1AS off the ports, and the policy if wanted.
Result<> switchAvbPortsOff(Switch sw, bool removePolicy);

}  // namespace pavo

#endif
