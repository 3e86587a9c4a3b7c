// 802.1X on real ports as text and bytes: what hostapd is told, what it answers, and the one EAPOL frame that
// the switch sends itself. Pure functions.
#ifndef PAVO_VSWITCH_DATAPLANE_EAP_H
#define PAVO_VSWITCH_DATAPLANE_EAP_H

#include <optional>
#include <string>
#include <string_view>

#include "vswitch/dataplane/data_plane.h"

namespace vswitch {

// The configuration file of a port, and the users that it refers to by `usersFile`. With RADIUS servers the
// file of users is not looked at; with neither, nobody is accepted. The reauthentication period is in real
// seconds, 0 for never.
std::string hostapdConfig(const WirePort &port, const WireAccess &access, const std::string &systemName,
                          std::uint32_t reauthSeconds, const std::string &usersFile);
std::string hostapdUsers(const WireAccess &access);

// One supplicant in an answer to STA-FIRST or STA-NEXT; nothing when there is none (any more). Only what hostapd
// says before the name that the supplicant gave itself is believed.
struct Station {
    std::string mac;  // as hostapd writes it, for the next STA-NEXT
    bool authorized = false;
    std::string user;  // printable, cut to kIasNameMax
};
std::optional<Station> stationOf(std::string_view answer);

// "IFNAME=eth0 <3>CTRL-EVENT-EAP-FAILURE ...": what hostapd says unasked.
struct HostapdEvent {
    std::string netdev;
    bool failed = false;  // somebody's authentication
};
std::optional<HostapdEvent> hostapdEventOf(std::string_view message);

// A request for the identity of whoever is there, from the port's own address to the group address of port
// access entities.
std::string identityRequest(const Mac &source);

}  // namespace vswitch

#endif
