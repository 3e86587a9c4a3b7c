// The version of the programs; all that are built from one tree have the same.
#ifndef PAVO_PLATFORM_VERSION_H
#define PAVO_PLATFORM_VERSION_H

// "MAJOR.MINOR.PATCH", static and terminated. Any thread may call it.
const char *pavoVersion();

#endif
