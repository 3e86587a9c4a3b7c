// The log of the daemon and of the management library: time-stamped lines to a size-limited file with one
// older generation, to syslog and to standard output, filtered by a threshold that other processes can change
// at run time through a shared one-digit file.
//
// Any thread may log, and any number of processes into the same file: the one that finds it too large rotates
// it, the others go on in the new one. The facility never reports errors to its callers: a log file that
// cannot be opened sends its lines to standard output, an unusable level file leaves the threshold at 6. No
// link is followed to either. The time is that of the time zone which is set at the moment of the message.
// What others do to the two files is seen by the next message; in a burst (more than 32 messages within one
// tick of the system's clock, a few milliseconds) by every 64th and with the next tick.
#ifndef PAVO_COMMON_LOG_H
#define PAVO_COMMON_LOG_H

#include <cstdint>
#include <source_location>
#include <type_traits>

#include "common/log_format.h"
#include "common/where.h"

namespace pavo {

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

// Chooses sinks, syslog facility and the identity shown in every line (null: the process name), opens the
// level file and opens the log file when the file sink is chosen. Opening while started closes first.
void devmgrLogOpen(std::int32_t sinks, std::int32_t facility, const char *identity);

// Writes one message when `level` is at or below the threshold. Every format begins "[%s:%d] " with the
// calling function and the source line as its arguments, and carries its own line end. Use logError() and its
// companions below.
void devmgrLog(int level, const char *format, ...) __attribute__((format(printf, 2, 3)));

// Closes what devmgrLogOpen and the first message opened; nothing when no message was logged since opening.
void devmgrLogClose();

// The threshold in force, 0 to 9; 6 when unset.
int devmgrLogLevelGet();
// Sets it for every process that logs; false for another number, and when the level file cannot be written.
bool devmgrLogLevelSet(int level);

// --- typed messages
//
// logError("[%s:%d] no port %u\n", port): the function and line in front are those of the caller. The format
// is checked against the arguments when it is compiled. Arguments are numbers, enumerations, strings and the
// values of the field. With a Where in front, the line names that place instead: for helpers that report on
// behalf of their caller.

// The same as devmgrLog for a format without "[%s:%d] " in front.
void writeLogLine(int level, const Where &where, const char *format, ...)
    __attribute__((format(printf, 3, 4)));

template <class... Args>
struct LogMessage {
    consteval LogMessage(const char *text, std::source_location at = std::source_location::current())
        : format(text), where(at) {}

    LogFormat<Args...> format;
    Where where;
};

template <class... Args>
void logAt(int level, const Where &where, std::type_identity_t<LogFormat<Args...>> format,
           const Args &...args) {
    // Values that have to be spelled out are so only for a line that is written.
    if constexpr ((HasLogForm<Args> || ...))
        if (level > devmgrLogLevelGet())
            return;
    if (format.text() != nullptr)
        writeLogLine(level, where, format.text() + LogFormat<Args...>::kPlaceSize,
                     LogArgument<Args>(args).value()...);
}

template <class... Args>
void logError(std::type_identity_t<LogMessage<Args...>> message, const Args &...args) {
    logAt<Args...>(LOG_LEVEL_ERROR, message.where, message.format, args...);
}
template <class... Args>
void logError(const Where &where, std::type_identity_t<LogFormat<Args...>> format, const Args &...args) {
    logAt<Args...>(LOG_LEVEL_ERROR, where, format, args...);
}

template <class... Args>
void logWarn(std::type_identity_t<LogMessage<Args...>> message, const Args &...args) {
    logAt<Args...>(LOG_LEVEL_WARN, message.where, message.format, args...);
}
template <class... Args>
void logWarn(const Where &where, std::type_identity_t<LogFormat<Args...>> format, const Args &...args) {
    logAt<Args...>(LOG_LEVEL_WARN, where, format, args...);
}

template <class... Args>
void logNotice(std::type_identity_t<LogMessage<Args...>> message, const Args &...args) {
    logAt<Args...>(LOG_LEVEL_NOTICE, message.where, message.format, args...);
}

template <class... Args>
void logInfo(std::type_identity_t<LogMessage<Args...>> message, const Args &...args) {
    logAt<Args...>(LOG_LEVEL_INFO, message.where, message.format, args...);
}
template <class... Args>
void logInfo(const Where &where, std::type_identity_t<LogFormat<Args...>> format, const Args &...args) {
    logAt<Args...>(LOG_LEVEL_INFO, where, format, args...);
}

template <class... Args>
void logDebug(std::type_identity_t<LogMessage<Args...>> message, const Args &...args) {
    logAt<Args...>(LOG_LEVEL_DEBUG, message.where, message.format, args...);
}
template <class... Args>
void logDebug(const Where &where, std::type_identity_t<LogFormat<Args...>> format, const Args &...args) {
    logAt<Args...>(LOG_LEVEL_DEBUG, where, format, args...);
}

}  // namespace pavo

#endif
