// How the client stubs reach the switch; either socket_transport.cpp or inprocess_transport.cpp is linked.
#ifndef PAVO_VSWITCH_CLIENT_TRANSPORT_H
#define PAVO_VSWITCH_CLIENT_TRANSPORT_H

#include <cstddef>
#include <string>

namespace vswitch::client {

// Sends one request (see rpc/wire.h) and receives its reply. False when the switch cannot be reached or hangs
// up. Any thread may call it.
bool exchange(const char *request, std::size_t size, std::string &reply);

// Closes the connections that exchange keeps open.
void disconnect();

}  // namespace vswitch::client

#endif
