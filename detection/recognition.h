// Vendor recognition: a worker that finds out which vendors' devices (oui_table.h) are behind which ports, and who
// announces himself by LLDP there, and writes the former into a file for the web interface (store/recognition.h).
//
// A port or table that cannot be read keeps what was known of it. Failures are logged.
#ifndef PAVO_DETECTION_RECOGNITION_H
#define PAVO_DETECTION_RECOGNITION_H

#include <map>
#include <source_location>
#include <vector>

#include "detection/neighbour.h"
#include "detection/registry.h"

namespace pavo {

// Looks at once and then every 15 seconds.
extern const DetectionRow vendorRecognition;

// The thread, started with the client handle; ends by pthread_exit.
void *recognise_vendors_thread(void *clientHandle);

// How the neighbours of a port are read.
extern const NeighbourFamily recognitionNeighbours;

// One look. Readers wait until it is done.
void recogniseVendors(Switch sw, Where where = std::source_location::current());

// What is known; any thread may ask. Devices of known vendors, in the order of the forwarding table.
struct RecognisedDevice {
    Mac mac;
    IfNum port;
    const char *vendor;
};
std::vector<RecognisedDevice> recognisedDevices();
// The neighbours of each port that has link.
using PortNeighbourTable = std::map<IfNum, std::vector<Neighbour>>;
PortNeighbourTable recognisedNeighbours();

}  // namespace pavo

#endif
