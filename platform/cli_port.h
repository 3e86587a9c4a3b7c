// Where the switch OS offers its command line: a TCP port of the loopback address.
#ifndef PAVO_PLATFORM_CLI_PORT_H
#define PAVO_PLATFORM_CLI_PORT_H

#include <cstdint>

namespace platform {

inline constexpr std::uint16_t kCliPort = 60000;

// kCliPort. In a virtual switch build the environment variable PAVO_CLI_PORT, when set, names another
// one, for the switch and its clients alike; 0, which nobody listens on, when it is no port number.
std::uint16_t cliPort();

}  // namespace platform

#endif
