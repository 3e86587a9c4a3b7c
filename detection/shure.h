// Shure detection: puts Shure devices into the audio VLAN of a split installation by their MAC address, and
// ties that to 802.1X where the switch has it on.
//
// Devices are found by LLDP on the ports of "/tmp/shure_config"; the port ID that a device sends is the MAC
// address of its audio interface. With 802.1X, the ports are held in automatic mode (2). A device joins once
// its port is authorised, and the port is forced authorised (3) then; it goes back to automatic mode when
// the device is missing or has moved away. Except for shureValidityCheck, which any thread may call, the
// operations belong to the Shure thread. Failures are logged where they happen.
#ifndef PAVO_DETECTION_SHURE_H
#define PAVO_DETECTION_SHURE_H

#include <cstdint>
#include <optional>
#include <source_location>
#include <string>
#include <vector>

#include "common/device_list.h"
#include "detection/mac_family.h"
#include "detection/neighbour.h"
#include "detection/registry.h"

namespace pavo {

// Looks every 15 seconds. Ends when the profile is gone, after all devices have left.
extern const DetectionRow shureDetection;

// The detection thread, started with the client handle; ends by pthread_exit.
void *detect_shure_thread(void *clientHandle);

// 0 when the Shure profile, its VLAN, and the audio and the control VLAN of the configuration file are
// there; 17001 without profile or VLAN; 10000 when the file does not name both, and when database or switch
// cannot be asked.
std::int32_t shureValidityCheck(Switch sw);

// Puts the ports of the configuration file into automatic mode, as far as the switch takes that (failures
// are logged; the scans try again as long as the port is forced authorised). The OpEN code of the last one,
// 0 without ports; 10000 when the file cannot be read.
std::int32_t shureDot1xPortSet(Switch sw);

// How the neighbours of a port are read: those whose system description begins with "Shure", with chassis
// and port ID.
extern const NeighbourFamily shureNeighbours;

// What one scan has seen.
struct ShureScan {
    DeviceScan devices;                     // with the 802.1X mode of their ports
    std::vector<std::string> descriptions;  // one for each sighting, as LLDP has it
};

// The Shure devices now on the network (type 2). Nothing while the configuration file cannot be read. When
// the 802.1X mode of one of the ports cannot be read, the scan has seen nobody, and everybody is missing
// once. What LLDP does not tell is unknown, as in every family.
std::optional<ShureScan> scanShureDevices(Switch sw, const Where &where = std::source_location::current());

// Takes over the associations of the audio VLAN that the switch has: devices that have not been seen yet.
// False when they, or the audio VLAN, cannot be read.
bool adoptShureDevices(Switch sw, DeviceList<DetectedDevice> *devices);

// Compares the network with the list: handles joins, moves and leaves, and 802.1X that has been switched on.
// While the configuration file cannot be read the list is left alone; while the 802.1X mode of the switch
// cannot be read, nobody joins.
void lldplookup(Switch sw, DeviceList<DetectedDevice> *devices);

// Join: associates a device of type 2 with the audio VLAN; does nothing for other types. 0, or 10000, also
// for any type while the audio VLAN cannot be read.
std::int32_t shureOnlineCli(Switch sw, const DetectedDevice &device);

// Leave: removes the association of any type, restores automatic mode when it was the port's before. 0,
// 10000, or the OpEN code of the latter.
std::int32_t shureOfflineCli(Switch sw, const DetectedDevice &device);

// Drops devices whose association is missing on the switch. 1; 10000 when the switch does not show its
// associations; 10016 when its output cannot be read.
std::int32_t repairShureLink(Switch sw, DeviceList<DetectedDevice> *devices);

// Lets every device leave and empties the list.
void shureClear(Switch sw, DeviceList<DetectedDevice> *devices);

}  // namespace pavo

#endif
