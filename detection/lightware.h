// Lightware detection: bundles the uplinks of a Lightware UBEX endpoint in one LAG and gives it its VLANs.
//
// Endpoints are found by LLDP on the ports that have the profile's VLAN as PVID. The operations belong to the
// Lightware thread. Failures are logged where they happen.
#ifndef PAVO_DETECTION_LIGHTWARE_H
#define PAVO_DETECTION_LIGHTWARE_H

#include <atomic>
#include <cstdint>
#include <source_location>
#include <string>
#include <vector>

#include "common/device_list.h"
#include "detection/neighbour.h"
#include "detection/registry.h"

namespace pavo {

// The VLAN that endpoints carry tagged; never that of a profile.
inline constexpr VlanId LIGHTWARE_TAGGED_VLAN{286};

// One uplink of an endpoint.
struct LightwareLink {
    IfNum port;                     // on which the uplink was seen
    std::string chassisId;          // the endpoint's, at most 18 characters
    std::uint32_t portDescNum = 0;  // tells the endpoint's two uplinks apart
    std::uint32_t missCount = 0;    // consecutive scans in which it was not seen
    IfNum lag;                      // to which the port was added; IfNum() for none

    // Chassis, port and port description.
    bool operator==(const LightwareLink &other) const {
        return chassisId == other.chassisId && port == other.port && portDescNum == other.portDescNum;
    }
};

// An uplink that a scan has seen, with its strings as LLDP has them.
struct LightwareSighting {
    IfNum port;
    std::string systemDesc;
    std::string chassisId;  // not empty
    std::string portDesc;
};

// Looks every 30 seconds. Ends when the profile or its VLAN is gone, and leaves the switch as it is.
extern const DetectionRow lightwareDetection;

// 1 while a Lightware thread exists. Set to 1 by the supervisor before it creates the thread and back to 0
// when that fails; set to 0 by the thread as its last act.
extern std::atomic<std::int32_t> lightwareRunning;

// The detection thread, started with the client handle; ends by pthread_exit.
void *detect_lightware_thread(void *clientHandle);

// How the neighbours of a port are read: the system description, which begins with "UBEX", chassis id and
// port description.
extern const NeighbourFamily lightwareNeighbours;

// The uplinks now on the network; none without a profile.
std::vector<LightwareSighting> scanLightwareLinks(Switch sw, Where where = std::source_location::current());

// Compares the network with the list: takes offline what is gone or has moved, brings online what is new.
void lightwareLookup(Switch sw, DeviceList<LightwareLink> *links);

// Adds the uplink to its endpoint's LAG, or the first empty one, and sets the VLANs. Success also when there
// is nothing to do; Failed when LAGs cannot be read; ConfigInvalid without profile.
Result<> lightwareOnlineCli(Switch sw, const DeviceList<LightwareLink> &links, LightwareLink *link);

// Undoes that. Success, or ConfigInvalid without profile.
Result<> lightwareOfflineCli(Switch sw, const LightwareLink &link);

// Takes an interface out of VLAN 286: participation auto, then untagged; both steps always run and are
// logged.
void ifTaggingClear(Switch sw, IfNum ifNum);

}  // namespace pavo

#endif
