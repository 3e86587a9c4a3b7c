// Reading the LLDP neighbours of one port, for all device families.
#ifndef PAVO_DETECTION_NEIGHBOUR_H
#define PAVO_DETECTION_NEIGHBOUR_H

#include <cjson/cJSON.h>

#include <cstdint>
#include <span>
#include <string>

#include "detection/log_text.h"
#include "platform/open_client.h"

enum class NeighbourField { chassisId, portId, systemDesc, portDesc };

// What is read of a neighbour, and the key it gets in the neighbour's object.
struct NeighbourRead {
    NeighbourField field;
    const char *key;
};

// How one family reads neighbours. A neighbour's object is appended once its system description is read and
// fits the prefix; texts read before go in with it, those read after are added as they come. So a neighbour
// whose later reads fail stays behind with keys missing.
struct NeighbourFamily {
    std::span<const NeighbourRead> reads;                              // in this order
    const char *prefix = nullptr;                                      // of the description; null: any
    LogText<std::uint32_t, std::uint32_t, std::uint32_t> walkStart{};  // ifNum, remIndex, timeStamp
    LogText<const char *> descriptionRead{};                           // before the prefix is looked at
};

// One port to read, and the JSON array that receives its neighbours. Who reads many ports keeps `textSize`,
// 0 before the first, so that the switch is asked only once how long its texts are.
struct NeighbourQuery {
    std::uint32_t ifNum;
    cJSON *array;
    std::uint32_t *textSize = nullptr;
};

// 0; 10000 when a read fails, which ends the walk, and 10002 without memory (both logged). Neighbours read
// until then are in the array.
std::int32_t neighbourInfoGet(openapiClientHandle_t *client, const NeighbourQuery &query,
                              const NeighbourFamily &family);

// A text from the network as it may be logged: control characters become dots.
std::string printable(const char *text);

#endif
