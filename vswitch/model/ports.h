// What a port has besides its VLANs: speed, error state, a transceiver, counters. Plain data.
#ifndef PAVO_VSWITCH_MODEL_PORTS_H
#define PAVO_VSWITCH_MODEL_PORTS_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/clock.h"
#include "platform/open_client.h"

namespace vswitch {

// Of a setting or of a link; `duplex` is one of OPEN_DUPLEX_.
struct PortSpeed {
    std::uint32_t mbps = 0;  // 0: negotiated
    std::uint32_t duplex = OPEN_DUPLEX_AUTO;

    bool operator==(const PortSpeed &) const = default;
};

// "auto", or a speed and a duplex mode as in "10G full-duplex".
PortSpeed parseSpeed(std::string_view text);

// The words of operators for OPEN_ERROR_DISABLE_; nothing for other words and numbers.
std::optional<std::uint32_t> errorReasonOf(std::string_view word);
const char *errorReasonWord(std::uint32_t reason);

// Since the switch was started or they were cleared.
struct PortCounters {
    std::uint64_t inOctets = 0, outOctets = 0, inPackets = 0, outPackets = 0;
    // Of the packets; nothing where they are counted together, on live ports.
    struct Kinds {
        std::uint64_t unicast = 0, multicast = 0, broadcast = 0;
    };
    std::optional<Kinds> in = Kinds{}, out = Kinds{};
    std::uint64_t inErrors = 0, outErrors = 0, inDiscards = 0, outDiscards = 0;

    // Counters wrap around, as those of hardware do.
    PortCounters &operator+=(const PortCounters &other);
    PortCounters &operator-=(const PortCounters &other);
};

// How long things went on at a simulated port; its traffic is a function of these times.
struct PortActivity {
    platform::Duration linked{};      // it had link
    platform::Duration talking{};     // summed over the devices that talked
    platform::Duration announcing{};  // summed over those that sent LLDP frames
};

// A device that talks exchanges ten frames of 256 octets a second with the rest of the network and broadcasts
// one of 64 octets every ten seconds; LLDP frames of 200 octets go every 30 seconds in both directions.
PortCounters trafficOf(const PortActivity &activity);

struct PortCounting {
    PortActivity activity;
    platform::Duration upTo{};  // the switch's time that `activity` includes
    PortCounters wire;          // of a live port, as last seen; of others, what an operator has added
    PortCounters cleared;       // what the counters had when they were cleared
};

// The strings of a transceiver hold up to 16 bytes.
inline constexpr std::size_t kSfpTextMax = 16;

struct SfpDiagnostics {
    std::int32_t temperature = 0;  // 0.001 degrees Celsius
    std::uint32_t voltage = 0;     // mV
    std::uint32_t bias = 0;        // uA
    std::uint32_t txPower = 0;     // 0.1 uW
    std::uint32_t rxPower = 0;     // 0.1 uW
};

struct SfpModule {
    std::string vendor, partNumber, serial;
    std::uint32_t wavelength = 0;  // nm; 0: no light, a cable of copper
    std::optional<SfpDiagnostics> diagnostics{};

    void cutTexts();  // to kSfpTextMax each
};

}  // namespace vswitch

#endif
