// Nice detection: sets a factory-fresh switch up for a Nice home-management installation.
//
// As long as no profile is applied, the thread looks every 15 seconds for a MAC address of Nice on an access port,
// with no other switch in between. When there is one, it applies the profile "Elan OS" to VLAN 1 with every port
// untagged, and has nothing to do from then on. LLDP tells whether a port leads to a switch; a port without any
// neighbour is waited for, as LLDP may not have heard it yet: four cycles, after which the device counts as plugged in
// here.
//
// Two switches control it: a flag in memory, and the enable file, which is read in every cycle.
#ifndef PAVO_DETECTION_NICE_H
#define PAVO_DETECTION_NICE_H

#include <cstdint>
#include <source_location>

#include "detection/registry.h"
#include "swapi/switch.h"

namespace pavo {

extern const DetectionRow niceDetection;

// The thread, started with the client handle. It does not end by itself.
void *detect_nice_thread(void *clientHandle);

// --- whether it is wanted; any thread may call these

// The flag in memory, true at first.
bool niceDetectEnabledGet();
void niceDetectEnabledSet(bool enabled);

// Sets the flag by the enable file: false when that begins with '0' or cannot be read, true for any other and for
// none. A flag that is false only for that reason becomes true again with the first cycle that finds the file
// changed; one that was set to false stays.
void niceDetectConfigLoad();

// What the enable file says.
enum class NiceSetting { On, Off, Missing, Unreadable };
NiceSetting readNiceSetting();

// Replaces the enable file; the daemon goes by it from its next cycle on. Failed (logged) with the old one in place.
Result<> writeNiceSetting(bool enabled, Where where = std::source_location::current());

// --- one cycle

// Whether a profile is applied: there is a settings file of some VLAN. Unknown: they cannot be looked at (logged).
Presence findAppliedProfile(Where where = std::source_location::current());
// Whether none is, for certain.
bool isFactoryDefaultState();

// One cycle: the enable file, the factory-default state, the forwarding table; creates the profile when it is time.
// For the detection thread.
void niceDetectionLookup(Switch sw);

// Whether the address begins with the prefix of Nice.
bool isNiceAddress(Mac mac);

enum class SwitchNeighbour {
    Present,
    Absent,        // and there is at least one other neighbour
    NotConverged,  // no neighbour yet; or LLDP could not be read (logged)
};
// Whether one of the LLDP neighbours of the port is a switch: its enabled capabilities have "bridge" or its system
// description has "Managed Switch" in it, in any letter case.
SwitchNeighbour niceIntfHasSwitchNeighbor(Switch sw, IfNum port);

// Writes the cached answers back that show which profiles there are.
void refreshProfileAnswers(Switch sw);

// Applies the profile and writes the cached answers back that show it. 0, the result of profileConfigSet, or 10000
// when the request cannot be made because memory runs out or the switch does not tell all of its ports.
std::int32_t createNiceProfile(Switch sw);

}  // namespace pavo

#endif
