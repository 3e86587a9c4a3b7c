// The worker that keeps the profile database: one that is damaged or gone while the daemon runs is made again from
// the record of profiles, so that detection does not wait for it for ever. And what an interrupted change of the
// deny list has deleted is brought back.
#ifndef PAVO_DETECTION_PROFILE_KEEPER_H
#define PAVO_DETECTION_PROFILE_KEEPER_H

#include "detection/registry.h"

namespace pavo {

// Looks every 30 seconds; a database that is only locked is left alone.
extern const DetectionRow profileKeeper;

// The thread, started with the client handle; ends by pthread_exit.
void *keep_profiles_thread(void *clientHandle);

}  // namespace pavo

#endif
