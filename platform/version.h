// The version of the program, the same for everything that is built from one tree.
#ifndef PAVO_PLATFORM_VERSION_H
#define PAVO_PLATFORM_VERSION_H

// "MAJOR.MINOR.PATCH", static and terminated. Any thread may call it.
const char *pavoVersion();

#endif
