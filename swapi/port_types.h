// What the switch tells about ports and LAGs besides their VLANs, in the units of the calls.
#ifndef PAVO_SWAPI_PORT_TYPES_H
#define PAVO_SWAPI_PORT_TYPES_H

#include <cstdint>
#include <string>

#include "common/if_num.h"
#include "platform/open_client.h"

namespace pavo {

enum class Duplex : std::uint32_t {
    Auto = OPEN_DUPLEX_AUTO,
    Half = OPEN_DUPLEX_HALF,
    Full = OPEN_DUPLEX_FULL
};

struct LinkSpeed {
    std::uint32_t mbps = 0;  // of a setting: 0 when it is negotiated
    Duplex duplex = Duplex::Auto;

    bool operator==(const LinkSpeed &) const = default;
};

// Why the switch keeps a port down.
enum class ErrorDisable : std::uint32_t {
    None = OPEN_ERROR_DISABLE_NONE,
    LinkFlap = OPEN_ERROR_DISABLE_LINK_FLAP,
    BpduGuard = OPEN_ERROR_DISABLE_BPDU_GUARD,
    PortSecurity = OPEN_ERROR_DISABLE_PORT_SECURITY,
    StormControl = OPEN_ERROR_DISABLE_STORM_CONTROL,
    Udld = OPEN_ERROR_DISABLE_UDLD,
    Transceiver = OPEN_ERROR_DISABLE_TRANSCEIVER,
};

enum class Media : std::uint32_t { Copper = OPEN_MEDIA_COPPER, Sfp = OPEN_MEDIA_SFP };

struct PortHardware {
    Media media{};
    std::uint32_t capabilities = 0;  // mask of OPEN_CAPABILITY_

    bool can(std::uint32_t capability) const { return (capabilities & capability) != 0; }
};

// Counters since the switch was started or they were cleared.
struct TrafficCounters {
    std::uint64_t inOctets = 0, outOctets = 0, inPackets = 0, outPackets = 0;
};
struct CastCounters {
    std::uint64_t unicast = 0, multicast = 0, broadcast = 0;
};
struct ErrorCounters {
    std::uint64_t inErrors = 0, outErrors = 0, inDiscards = 0, outDiscards = 0;
};

enum class TrafficDirection : std::uint32_t { In = OPEN_TRAFFIC_IN, Out = OPEN_TRAFFIC_OUT };

// Strings as the transceiver has them, whatever bytes these are.
struct SfpInventory {
    std::string vendor, partNumber, serial;
    std::uint32_t wavelength = 0;  // nm, 0 for a cable of copper
};
struct SfpDiagnostics {
    std::int32_t temperature = 0;  // 0.001 degrees Celsius
    std::uint32_t voltage = 0;     // mV
    std::uint32_t bias = 0;        // uA
};
struct SfpPower {
    std::uint32_t tx = 0, rx = 0;  // 0.1 uW
};

// What a LAG chooses the sending member by.
enum class LagHash : std::uint32_t {
    SourceMac = OPEN_LAG_HASH_SOURCE_MAC,
    DestinationMac = OPEN_LAG_HASH_DESTINATION_MAC,
    Mac = OPEN_LAG_HASH_MAC,
    SourceIp = OPEN_LAG_HASH_SOURCE_IP,
    DestinationIp = OPEN_LAG_HASH_DESTINATION_IP,
    Ip = OPEN_LAG_HASH_IP,
};

// Whether the switch makes LAGs by itself, and what they hash.
struct AutoLag {
    bool enabled = false;
    LagHash hash{};
};

enum class MirrorDirection : std::uint32_t {
    Rx = OPEN_MIRROR_RX,
    Tx = OPEN_MIRROR_TX,
    Both = OPEN_MIRROR_BOTH
};

struct MirrorSource {
    IfNum ifNum;  // port or LAG
    MirrorDirection direction{};
};

}  // namespace pavo

#endif
