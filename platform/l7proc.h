// The platform process library: what every process on the switch has to call.
#ifndef PAVO_PLATFORM_L7PROC_H
#define PAVO_PLATFORM_L7PROC_H

#include "platform/open_client.h"

#ifdef __cplusplus
extern "C" {
#endif

// Registers the process with the crash logger under `name` (may be null), with its OpEN client handle.
void l7proc_crashlog_register(const char *name, openapiClientHandle_t *client);

// Writes one line to the switch's system log. `severity` is a syslog severity (3 error ... 6 informational),
// `file` and `line` are the place of the call. Any thread may call it.
void l7proc_logf(int severity, const char *file, int line, const char *format, ...)
    __attribute__((format(printf, 4, 5)));

#ifdef __cplusplus
}
#endif

#endif
