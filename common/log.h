// The log of the daemon and of the management library: time-stamped lines to a size-limited file with one
// older generation, to syslog and to standard output, filtered by a threshold that other processes can change
// at run time through a shared one-digit file.
//
// Any thread may log. The facility never reports errors to its callers: a log file that cannot be opened
// sends its lines to standard output, an unusable level file leaves the threshold at 6.
#ifndef PAVO_COMMON_LOG_H
#define PAVO_COMMON_LOG_H

#include <cstdint>

// Syslog priorities as used by devmgrLog.
inline constexpr int LOG_LEVEL_ERROR = 3;
inline constexpr int LOG_LEVEL_WARN = 4;
inline constexpr int LOG_LEVEL_NOTICE = 5;
inline constexpr int LOG_LEVEL_INFO = 6;
inline constexpr int LOG_LEVEL_DEBUG = 7;

// Sinks of devmgrLogOpen, to be combined.
inline constexpr std::int32_t LOG_SINK_FILE = 1;
inline constexpr std::int32_t LOG_SINK_SYSLOG = 2;
inline constexpr std::int32_t LOG_SINK_STDOUT = 4;

inline constexpr std::int32_t LOG_FACILITY_USER = 8;

// Chooses sinks, syslog facility and the identity shown in every line (null: the process name), maps the
// level file and opens the log file when the file sink is chosen. Opening while started closes first.
void devmgrLogOpen(std::int32_t sinks, std::int32_t facility, const char *identity);

// Writes one message when `level` is at or below the threshold. Every format begins "[%s:%d] " with the
// calling function and the source line as its arguments, and carries its own line end. Use the DEVMGR_LOG
// macros.
void devmgrLog(int level, const char *format, ...) __attribute__((format(printf, 2, 3)));

// Closes what devmgrLogOpen and the first message opened; nothing when no message was logged since opening.
void devmgrLogClose();

// The threshold in force, 0 to 9; 6 when unset.
int devmgrLogLevelGet();

// One message with the calling function and line in front: LOG_ERROR("[%s:%d] no %s\n", name). A macro,
// because
// __func__ and __LINE__ must be those of the caller.
#define DEVMGR_LOG(level, format, ...) devmgrLog(level, format, __func__, __LINE__ __VA_OPT__(, ) __VA_ARGS__)
#define LOG_ERROR(...) DEVMGR_LOG(LOG_LEVEL_ERROR, __VA_ARGS__)
#define LOG_WARN(...) DEVMGR_LOG(LOG_LEVEL_WARN, __VA_ARGS__)
#define LOG_NOTE(...) DEVMGR_LOG(LOG_LEVEL_NOTICE, __VA_ARGS__)
#define LOG_INFORM(...) DEVMGR_LOG(LOG_LEVEL_INFO, __VA_ARGS__)
#define LOG_TRACE(...) DEVMGR_LOG(LOG_LEVEL_DEBUG, __VA_ARGS__)

#endif
