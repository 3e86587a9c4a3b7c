// Families whose devices are told by the manufacturer's prefix of their MAC addresses (oui_table.h): Harman and Telos.
// On the ports that the family's profile assigns to its first VLAN, every address with a prefix of the family's VLAN
// types, whoever the vendor, is put into the profile's VLAN of that type. The ports of audio devices (type 3) are kept
// free of denied multicast (net_block.h).
//
// A family is one row of the table in oui_family.cpp; thread and steps are made from it. The operations below belong
// to the family's thread. Failures are logged where they happen.
#ifndef PAVO_DETECTION_OUI_FAMILY_H
#define PAVO_DETECTION_OUI_FAMILY_H

#include <cstdint>
#include <optional>
#include <source_location>

#include "common/device_list.h"
#include "detection/mac_family.h"
#include "detection/registry.h"

namespace pavo {

// Look every 15 seconds (Harman) and 30 seconds (Telos). They end when the profile's control VLAN (type 2), the sign
// that there is a profile, is gone, after all devices have left.
extern const DetectionRow harmanDetection;
extern const DetectionRow telosDetection;

// The detection threads, started with the client handle; they end by pthread_exit.
void *detect_harman_thread(void *clientHandle);
void *detect_telos_thread(void *clientHandle);

// The devices now on the network. No devices when the profile's file is missing or names no ports; nothing at all
// when there is one that cannot be read.
std::optional<DeviceScan> scanHarmanDevices(Switch sw, Where where = std::source_location::current());
std::optional<DeviceScan> scanTelosDevices(Switch sw, Where where = std::source_location::current());

// Takes over the associations that the switch has in the VLANs of the family, as far as the addresses are of a
// device that belongs there: devices that have not been seen yet. False when they cannot be read.
bool adoptHarmanDevices(Switch sw, DeviceList<DetectedDevice> *devices);
bool adoptTelosDevices(Switch sw, DeviceList<DetectedDevice> *devices);

// Compare the network with the list: handle joins, moves and leaves. NET-BLOCK follows the devices.
void harmanDetectionLookup(Switch sw, DeviceList<DetectedDevice> *devices);
void telosDetectionLookup(Switch sw, DeviceList<DetectedDevice> *devices);

// Join: associate the device with the profile's VLAN of its type, and bind NET-BLOCK to the port of an audio device.
// 0; 10000 when one of the VLANs that the family needs is missing, and when the script fails. Of another type than
// the family's, a device is left alone by Harman (0) and refused by Telos (10000).
std::int32_t harmanOnlineCli(Switch sw, const DetectedDevice &device);
std::int32_t telosOnlineCli(Switch sw, const DetectedDevice &device);

// Leave: remove the association, and NET-BLOCK unless the port's other devices, or an operator, need it. 0 or 10000.
std::int32_t harmanOfflineCli(Switch sw, const DetectedDevice &device);
std::int32_t telosOfflineCli(Switch sw, const DetectedDevice &device);

// Drops devices whose association is missing on the switch. 1; 10000 when the switch does not show its associations;
// 10016 when its output cannot be read.
std::int32_t repairHarmanLink(Switch sw, DeviceList<DetectedDevice> *devices);

// Takes NET-BLOCK off the ports of families whose profile is gone, where their threads could not when they ended:
// for whoever looks after what is left behind, in any thread.
void releaseNetBlocks(Switch sw, Where where = std::source_location::current());

}  // namespace pavo

#endif
