#include "platform/version.h"

// PAVO_VERSION is the version of the CMake project, defined for this file alone: a new version recompiles one
// file, and there is no generated header that an include path must find.
const char *pavoVersion() {
    return PAVO_VERSION;
}
