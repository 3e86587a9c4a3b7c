#include "platform/version.h"

// PAVO_VERSION is the version of the CMake project, defined for this file only: a new version recompiles one
// file, and no generated header has to be on anybody's include path.
const char *pavoVersion() {
    return PAVO_VERSION;
}
