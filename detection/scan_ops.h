// What the scans see, as JSON. The daemon's threads work with the values themselves; these operations are for
// whoever wants to look at them: strings of devices are well-formed UTF-8 there, with '?' for a byte that is
// part of no character. Any thread may call them.
#ifndef PAVO_DETECTION_SCAN_OPS_H
#define PAVO_DETECTION_SCAN_OPS_H

#include <cjson/cJSON.h>

#include <cstdint>
#include <span>

#include "detection/mac_family.h"
#include "detection/neighbour.h"
#include "swapi/switch.h"

namespace pavo {

// Appends the audio devices behind Audac control units to `out`: {"portId", "mac", "type": 2}.
void audacListGet(Switch sw, cJSON *out);

// Append the devices on the ports of the Harman or Telos profile to `out`: {"portId", "mac", "type"}.
void harmanListGet(Switch sw, cJSON *out);
void telosListGet(Switch sw, cJSON *out);

// Appends the uplinks of Lightware endpoints to `out`: {"portId", "systemDesc", "chassisId", "portDesc"}.
void lightwareListGet(Switch sw, cJSON *out);

// Appends the Shure devices on the ports of the installation to `out`: {"portId", "controlMode",
// "systemDesc", "mac", "type": 2}. Nothing when the 802.1X mode of one of the ports cannot be read.
void shureListGet(Switch sw, cJSON *out);

// One port to read, and the JSON array that receives its neighbours.
struct NeighbourQuery {
    IfNum ifNum;
    cJSON *array;
};

// Append the LLDP neighbours of one port: for Audac {"systemDesc", "chassisID", "portId"}, for Shure the same
// of its devices, for Lightware those that are UBEX endpoints {"systemDesc", "chassisId", "portDesc"}. 0; 10000 when a read fails, which
// ends the walk, and 10002 without memory (both logged). Neighbours read until then are in the array; the
// last one may lack its chassisId or portDesc.
std::int32_t lldpIntfRemoteAudacInfoGet(Switch sw, const NeighbourQuery &query);
std::int32_t lldpIntfRemoteLightwareInfoGet(Switch sw, const NeighbourQuery &query);
std::int32_t lldpIntfRemoteShureInfoGet(Switch sw, const NeighbourQuery &query);

// All LLDP neighbours of one port in the same way: {"systemDesc", "chassisID", "portId", "systemName"}.
std::int32_t lldpIntfRemoteDeviceInfoGet(Switch sw, const NeighbourQuery &query);

// What vendor recognition knows (detection/recognition.h). Append {"MAC Address", "IfIndex", "vendor"} for each
// device of a known vendor; for each port with link, ascending, an array of its neighbours as above.
void recognisedVendorsGet(cJSON *out);
void recognisedNeighboursGet(cJSON *out);

// --- for the operations of a family

struct FieldKey {
    NeighbourField field;
    const char *key;
};

// Appends the neighbours of one port as the family reads them, with the keys given. What the operation
// returns.
Result<> appendNeighbours(Switch sw, const NeighbourQuery &query, const NeighbourFamily &family,
                          std::span<const FieldKey> keys, const Where &where);

// Appends {"portId", "mac", "type"} for each sighting.
void appendSightings(cJSON *array, std::span<const Sighting> sightings, const Where &where);

}  // namespace pavo

#endif
