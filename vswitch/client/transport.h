// How the client stubs reach the switch; either socket_transport.cpp or inprocess_transport.cpp is linked.
#ifndef PAVO_VSWITCH_CLIENT_TRANSPORT_H
#define PAVO_VSWITCH_CLIENT_TRANSPORT_H

#include <chrono>
#include <cstddef>
#include <string>

namespace vswitch::client {

// How long an answer is waited for, in real time: that of a connectivity check, and of anything else.
inline constexpr std::chrono::milliseconds kCheckLimit{3'000};
inline constexpr std::chrono::milliseconds kCallLimit{10'000};

// Sends one request (see rpc/wire.h) and receives its reply. False when the switch cannot be reached, hangs
// up or does not answer in time; after that calls fail at once until it does. Any thread may call it.
bool exchange(const char *request, std::size_t size, std::string &reply,
              std::chrono::milliseconds limit = kCallLimit);

// Closes the connections that exchange keeps open.
void disconnect();

}  // namespace vswitch::client

#endif
