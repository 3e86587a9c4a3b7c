// The worker that keeps what detection reads of profiles: a profile database that is damaged or gone, and settings
// files that are gone, are made again from the record of profiles, so that detection does not wait for the one for
// ever, and takes no switch for a factory-fresh one because it lacks the other. What an interrupted change of the
// deny list has deleted is brought back, and NET-BLOCK taken off ports where a family that has ended had to leave it.
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
