// 802.1X: who may use a port. Plain data; the rules are those of Model (dot1x.cpp).
//
// A port is controlled while 802.1X is on and the port is in no LAG. A controlled port passes frames when it
// is authorized: always in mode force-authorized, never in force-unauthorized, and in mode auto from a
// successful authentication until
//  - its link goes down, its mode changes, it joins or leaves a LAG, or 802.1X is switched on or off;
//  - the supplicant logs off;
//  - reauthentication is on, its period is over, and the supplicant does not authenticate again.
// An unauthorized port learns and forwards nothing, in either direction. EAPOL and LLDP are between
// neighbours and pass all the same.
//
// On simulated ports supplicants are what an operator says they are: one that is accepted authenticates
// whenever the switch asks, which it does as soon as time passes after a reset. On live ports the data plane
// has a real exchange with whoever is there.
#ifndef PAVO_VSWITCH_MODEL_DOT1X_H
#define PAVO_VSWITCH_MODEL_DOT1X_H

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "platform/clock.h"

namespace vswitch {

// Of one port.
struct Dot1xState {
    bool authenticated = false;
    platform::Duration since{};  // the last authentication or reset
    std::uint64_t round = 0;     // number of resets: what was seen in an earlier round does not count
    bool answers = false;        // simulated port: somebody is there who would be accepted
    std::string mac, user;       // live port: who has authenticated
};

// Where credentials are checked: by the users of this switch, or by its RADIUS servers.
enum class Dot1xMethod { Ias, Radius };

inline constexpr std::size_t kIasUsersMax = 64, kIasNameMax = 64, kIasPasswordMax = 64;
// Letters, digits, '.', '-', '_' and '@', 1 to kIasNameMax of them.
bool isIasName(std::string_view text);

struct Dot1xSettings {
    Dot1xMethod method = Dot1xMethod::Ias;
    std::map<std::string, std::string> users;  // name and password
};

}  // namespace vswitch

#endif
