// The neighbour list (web/neighbours.h) as procedures. Any thread may call them. Result codes: 0, or 10000
// when the switch could not be read to the end of its tables or the cache not be written (logged), and when
// memory ran out.
//
// The list in chunks is also the producer neighborListExChunkedPush, and the vendors behind ports are the
// producer portVendorDetectBuild, see store/producers.h. Its answer, with ports that have somebody behind
// them only:
//
//     {"ports": [{"port": "5", "portNum": 5, "portName": "0/5", "unit": 1, "deviceCount": 3,
//                 "vendors": [{"vendor": "Acme", "deviceCount": 2}], "recognized": ["harman"]}]}
//
// The first "deviceCount" is that of the port's lines in the neighbour list, the others those of each known
// vendor; vendors are in alphabetical order. "recognized" are the vendors whose devices the daemon's detection has
// seen on the port (store/recognition.h).
#ifndef PAVO_WEB_NEIGHBOURS_OPS_H
#define PAVO_WEB_NEIGHBOURS_OPS_H

#include <cstdint>

#include "platform/open_client.h"
#include "store/chunk_sink.h"
#include "web/neighbours.h"

namespace pavo {

// The rows, in the order of the list, into `sink`; rows that are too long are left out. After a failure the
// sink has some of the rows.
std::int32_t neighborRowsBuild(openapiClientHandle_t *client, RowSink &sink, NeighbourTiming &timing);

// All rows as one page, with what reading the switch has cost: *json is the caller's to free, null after a
// failure.
std::int32_t neighborPageGet(openapiClientHandle_t *client, char **json);

// All rows in chunks into the response cache, under "neighbor_ex/0" and so on; chunks beyond the last one are
// deleted, also those of other processes. When the rows cannot be built, the cache keeps what it has.
std::int32_t neighborChunksBuild(openapiClientHandle_t *client);

}  // namespace pavo

#endif
