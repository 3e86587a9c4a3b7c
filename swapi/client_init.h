// What every client of the switch OS does first: registering, and asking which switch it runs on.
#ifndef PAVO_SWAPI_CLIENT_INIT_H
#define PAVO_SWAPI_CLIENT_INIT_H

#include <cstdint>

#include "swapi/switch.h"

namespace pavo {

// Registers the process as client "NAME_PID" (null: "common.c" for NAME) and waits until the switch OS
// answers: at most seven checks, 3 seconds apart. Versions are read for the log only. 0; -1 when the
// registration fails or the switch OS does not answer.
std::int32_t initHandler(const char *name, openapiClientHandle_t *client);

// Ends the registration, as the last thing that is done with the handle.
void closeHandler(openapiClientHandle_t *client);

// 0 when the switch's machine model is that of `modelId`, our own short name of a model; 1 when it is not; -1
// when the machine model cannot be read.
std::int32_t get_device_model_mapping(Switch sw, const char *modelId);

}  // namespace pavo

#endif
