// Audac detection: puts the audio devices behind Audac control units into the Audac audio VLAN by their MAC
// address.
//
// Control units are found by LLDP on the ports of "/tmp/audac_config"; every other MAC address learned on the
// port of a control unit is an audio device. Except for audacValidityCheck, which any thread may call, the
// operations belong to the Audac thread. Failures are logged where they happen.
#ifndef PAVO_DETECTION_AUDAC_H
#define PAVO_DETECTION_AUDAC_H

#include <cstdint>
#include <optional>
#include <source_location>
#include <vector>

#include "common/device_list.h"
#include "detection/mac_family.h"
#include "detection/neighbour.h"
#include "detection/registry.h"

namespace pavo {

// Looks every 15 seconds. Ends when the profile is gone, after all devices have left.
extern const DetectionRow audacDetection;

// The detection thread, started with the client handle; ends by pthread_exit.
void *detect_audac_thread(void *clientHandle);

// 0 when the Audac profile, its VLAN and its audio VLAN are there; 17001 without profile or VLAN; 10000 when
// the audio VLAN cannot be read, and when database or switch cannot be asked for the others.
std::int32_t audacValidityCheck(Switch sw);

// The audio VLAN of the configuration file, if there is one.
std::optional<VlanId> audacAudioVlanIdGet();

// How the neighbours of a port are read: chassis id, port id and system description.
extern const NeighbourFamily audacNeighbours;

// The audio devices now on the network (type 2). Nothing while the configuration file cannot be read.
std::optional<DeviceScan> scanAudacDevices(Switch sw, const Where &where = std::source_location::current());

// Takes over the associations of the audio VLAN that the switch has: devices that have not been seen yet.
// False when they, or the audio VLAN, cannot be read.
bool adoptAudacDevices(Switch sw, DeviceList<DetectedDevice> *devices);

// Compares the network with the list: handles joins, moves and leaves. While the configuration file cannot be
// read the list is left alone.
void audacLookup(Switch sw, DeviceList<DetectedDevice> *devices);

// Join: associates an audio device (type 2) with the audio VLAN, switches PTP off on the port of a control
// unit (type 1), does nothing for other types. 0, 10000, or the OpEN code of switching PTP off.
std::int32_t audacOnlineCli(Switch sw, const DetectedDevice &device);

// Leave: removes the association of any type, restores 802.1X control. 0, 10000, or the OpEN code of the
// latter.
std::int32_t audacOfflineCli(Switch sw, const DetectedDevice &device);

// Drops devices whose association is missing on the switch. 1; 10000 when the switch does not show its
// associations; 10016 when its output cannot be read.
std::int32_t repairAudacLink(Switch sw, DeviceList<DetectedDevice> *devices);

// Lets every device leave and empties the list.
void audacClear(Switch sw, DeviceList<DetectedDevice> *devices);

}  // namespace pavo

#endif
