// What the switch tells about itself as a whole, in the words of its calls (platform/open_client.h).
#ifndef PAVO_SWAPI_SYSTEM_TYPES_H
#define PAVO_SWAPI_SYSTEM_TYPES_H

#include <cstdint>
#include <string>

#include "platform/open_client.h"

namespace pavo {

enum class SensorState : std::uint32_t {
    Normal = OPEN_TEMP_NORMAL,
    Warning = OPEN_TEMP_WARNING,
    Critical = OPEN_TEMP_CRITICAL,
    Failed = OPEN_TEMP_FAILED,  // it measures nothing: the temperature means nothing
};

// Of a fan or a power supply.
enum class UnitState : std::uint32_t {
    Operational = OPEN_UNIT_OPERATIONAL,
    Failed = OPEN_UNIT_FAILED,
    Absent = OPEN_UNIT_ABSENT,
};

// Degrees Celsius.
struct SensorStatus {
    SensorState state = SensorState::Normal;
    std::int32_t celsius = 0;
    std::int32_t warningAbove = 0;
    std::int32_t criticalAbove = 0;
};

struct FanStatus {
    UnitState state = UnitState::Operational;
    std::uint32_t rpm = 0;
};

struct MemoryStatus {
    std::uint32_t totalKb = 0;
    std::uint32_t freeKb = 0;
};

struct TimeZone {
    std::int32_t offsetMinutes = 0;  // east of UTC
    std::string name;
};

enum class SntpMode : std::uint32_t {
    Disabled = OPEN_SNTP_DISABLED,
    Unicast = OPEN_SNTP_UNICAST,
    Broadcast = OPEN_SNTP_BROADCAST,
};

struct SntpStatus {
    std::string server;            // that the clock is synchronised to; empty for none
    std::uint32_t lastUpdate = 0;  // seconds since 1970-01-01 UTC; 0 for never
};

struct SntpServer {
    std::string host;
    std::uint32_t port = 0;
    std::uint32_t priority = 0;
};

enum class LogSink : std::uint32_t { Buffered = OPEN_LOG_BUFFERED, Console = OPEN_LOG_CONSOLE };

struct LogSinkStatus {
    bool enabled = false;
    std::uint32_t level = 0;  // severity as of syslog
};

struct LogHost {
    std::string host;
    std::uint32_t port = 0;
    std::uint32_t level = 0;
};

enum class RadiusType : std::uint32_t { Authentication = OPEN_RADIUS_AUTH, Accounting = OPEN_RADIUS_ACCT };

struct RadiusTimers {
    std::uint32_t timeout = 0;  // seconds
    std::uint32_t retransmit = 0;
};

struct RadiusServer {
    std::string host;
    RadiusType type = RadiusType::Authentication;
    std::uint32_t port = 0;
    std::uint32_t priority = 0;
};

// What is not in the row above.
struct RadiusServerName {
    std::string name;
    bool isSecretSet = false;
};

struct PortReauthentication {
    bool enabled = false;
    std::uint32_t period = 0;  // seconds
};

}  // namespace pavo

#endif
