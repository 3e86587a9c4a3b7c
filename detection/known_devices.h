// Who is who in an installation: the devices that the daemon has reported after its last looks, and those in
// the forwarding table that have the address of a known manufacturer and are none of them, "unmanaged".
//
// The functions of store/detection_answers.h are here, too.
#ifndef PAVO_DETECTION_KNOWN_DEVICES_H
#define PAVO_DETECTION_KNOWN_DEVICES_H

#include <span>
#include <string>
#include <vector>

#include "store/detection_answers.h"
#include "store/device_states.h"
#include "swapi/switch.h"

namespace pavo {

struct KnownDevice {
    DeviceState known;
    std::string state;   // a word
    std::string vendor;  // registered for the address; empty when unknown
};

struct KnownDevices {
    std::vector<KnownDevice> devices;  // by port, family and address
    bool isWhole = true;               // false: the forwarding table could not be read to its end
};

// Failed without a daemon, and while it has not reported anything.
Result<KnownDevices> readKnownDevices(Switch sw);

// As devicesAnswer().
std::string printKnownDevices(std::span<const KnownDevice> devices);

}  // namespace pavo

#endif
