// The platform process library: what every process of the switch owes to it.
#ifndef PAVO_PLATFORM_L7PROC_H
#define PAVO_PLATFORM_L7PROC_H

#include "platform/open_client.h"

#ifdef __cplusplus
extern "C" {
#endif

// Makes the process known to the crash logger under `name` (may be null), with the handle it registers by.
void l7proc_crashlog_register(const char *name, openapiClientHandle_t *client);

// Writes one line to the switch's system log. `severity` is the syslog one (3 error ... 6 informational),
// `file` and `line` are the place of the call. Any thread may call it.
void l7proc_logf(int severity, const char *file, int line, const char *format, ...)
    __attribute__((format(printf, 4, 5)));

#ifdef __cplusplus
}
#endif

#endif
