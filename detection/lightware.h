// Lightware detection: bundles the uplinks of a Lightware UBEX endpoint in one LAG and gives it its VLANs.
//
// Endpoints are found by LLDP on the ports that have the profile's VLAN as PVID. The operations belong to the
// Lightware thread. Failures are logged where they happen.
//
// An uplink is online when every step has taken effect. Until then its record is kept, and what is missing is
// tried again with each scan; the same goes for taking it offline. A failure that lasts is an ERROR line for
// its first try only, as far as it is reported here.
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
#include "detection/scan_coverage.h"

namespace pavo {

// The VLAN that endpoints carry tagged; never that of a profile.
inline constexpr VlanId LIGHTWARE_TAGGED_VLAN{286};

// One uplink of an endpoint.
struct LightwareLink {
    IfNum port;                     // on which the uplink was seen
    std::string chassisId{};        // the endpoint's, at most 18 characters
    std::uint32_t portDescNum = 0;  // tells the endpoint's two uplinks apart
    std::uint32_t missCount = 0;    // consecutive scans in which it was not seen
    IfNum lag;                      // that the port belongs into; IfNum() for none
    std::string portDesc{};         // tells them apart, too: empty when the description begins with a digit
    bool isWhole = true;            // everything that brings it online has taken effect
    bool isLeaving = false;         // it is being taken offline
    // And then: whether the LAG still has to get its own settings back, has them, or has been set up for
    // another uplink meanwhile, whose it is now.
    enum class LagShare { Pending, Done, Others };
    LagShare lagShare = LagShare::Pending;

    // Taken over from an earlier run, and not seen since: whose uplink it is, nobody knows yet.
    bool isUnknown() const { return chassisId.empty(); }

    // Chassis, port and port description.
    bool operator==(const LightwareLink &other) const {
        return chassisId == other.chassisId && port == other.port && portDescNum == other.portDescNum &&
               portDesc == other.portDesc;
    }
};

// An uplink that a scan has seen, with its strings as LLDP has them.
struct LightwareSighting {
    IfNum port;
    std::string systemDesc;
    std::string chassisId;  // not empty
    std::string portDesc;
};

// What one scan has seen.
struct LightwareScan : ScanCoverage {
    Presence profile = Presence::Unknown;  // nothing is seen unless it is Present
    std::vector<LightwareSighting> seen;
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

// The uplinks now on the network.
LightwareScan scanLightwareLinks(Switch sw, Where where = std::source_location::current());

// Takes over what an earlier run has left on the switch. The members of a LAG become records when their ports
// carry our settings, or when an endpoint is seen on them and the LAG has no members but that endpoint's and
// such ports; those without an endpoint are unknown. An empty LAG with all of our settings loses them. False,
// with the list as it was, when the switch could not be asked.
bool adoptLightwareLinks(Switch sw, DeviceList<LightwareLink> *links);

// Compares the network with the list: takes offline what is gone or has moved, brings online what is new or
// not whole. An unknown uplink that is not seen is taken offline only when its port has no neighbour at all:
// one of another kind means that the LAG is not ours.
void lightwareLookup(Switch sw, DeviceList<LightwareLink> *links);

// Adds the uplink to its LAG, which is that of the endpoint's other uplink or the first empty one unless it
// has one, and sets the VLANs. Success also when there is nothing to do, and when a step has failed: then the
// link is not whole. Failed when LAGs or profile cannot be read; ConfigInvalid without profile.
Result<> lightwareOnlineCli(Switch sw, const DeviceList<LightwareLink> &links, LightwareLink *link);

// Undoes that. Success; Failed when a step has failed, and when the profile cannot be read; ConfigInvalid
// without profile.
Result<> lightwareOfflineCli(Switch sw, LightwareLink *link);

// Takes an interface out of VLAN 286: participation auto, then untagged; both steps always run and are
// logged. False when one has failed, unless there is no such VLAN.
bool ifTaggingClear(Switch sw, IfNum ifNum);

}  // namespace pavo

#endif
