// What a switch has besides forwarding: its place and contact, clock, log settings, RADIUS servers, and the
// health of its hardware. Plain data; the rules are those of Model.
#ifndef PAVO_VSWITCH_MODEL_SYSTEM_H
#define PAVO_VSWITCH_MODEL_SYSTEM_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "vswitch/model/types.h"
#include "vswitch/model/users.h"

namespace vswitch {

inline constexpr std::size_t kSystemTextMax = 255;  // location and contact
inline constexpr std::size_t kHostMax = 64;         // address or DNS name of a server
inline constexpr std::size_t kZoneNameMax = 8;
inline constexpr std::int32_t kZoneMin = -12 * 60, kZoneMax = 14 * 60;  // minutes

// An address or a DNS name: letters, digits, '.', '-', '_' and ':', 1 to kHostMax of them.
bool isHost(std::string_view text);

// --- clock

enum class SntpMode : std::uint32_t {
    Disabled = OPEN_SNTP_DISABLED,
    Unicast = OPEN_SNTP_UNICAST,
    Broadcast = OPEN_SNTP_BROADCAST
};
inline constexpr std::size_t kSntpServersMax = 3;
inline constexpr std::uint32_t kSntpPort = 123;
inline constexpr Duration kSntpPollInterval = std::chrono::seconds(64);

struct SntpServer {
    std::string host;
    std::uint32_t priority = 1;  // 1 to 3, asked in this order
    std::uint32_t port = kSntpPort;
};

// What came of the last poll.
struct SntpState {
    std::string synchronisedTo;              // host; empty: nobody answered
    std::optional<std::int64_t> lastUpdate;  // seconds since 1970-01-01 UTC of the last answer
};

struct ClockSettings {
    std::int32_t offsetMinutes = 0;  // east of UTC
    std::string zone;                // name, empty by default
    SntpMode sntp = SntpMode::Disabled;
    std::vector<SntpServer> servers;  // in the order in which they were configured
};

// --- log

// Severities as of syslog: 0 emergency to 7 debug.
inline constexpr std::uint32_t kSeverityMax = 7;

// A destination of log lines takes those up to its level.
struct LogSink {
    bool enabled = false;
    std::uint32_t level = 0;

    bool takes(int severity) const { return enabled && static_cast<std::uint32_t>(severity) <= level; }
    bool operator==(const LogSink &) const = default;
};

inline constexpr std::size_t kLogHostsMax = 8;
inline constexpr std::uint32_t kSyslogPort = 514;

struct LogHost {
    std::string host;
    std::uint32_t port = kSyslogPort, level = 2;
};

inline constexpr LogSink kBufferedDefault{true, kSeverityMax}, kConsoleDefault{false, 1};

struct LogSettings {
    LogSink buffered = kBufferedDefault, console = kConsoleDefault;
    bool syslog = false;  // the hosts get lines
    std::vector<LogHost> hosts;
};

// --- RADIUS

inline constexpr std::size_t kRadiusServersMax = 32;
inline constexpr std::size_t kRadiusNameMax = 32, kRadiusKeyMax = 64;
inline constexpr std::uint32_t kRadiusTimeoutDefault = 5, kRadiusRetransmitDefault = 4;
inline constexpr std::uint32_t kRadiusPriorityDefault = 8;

struct RadiusKey {
    std::uint32_t type = OPEN_RADIUS_AUTH;  // or OPEN_RADIUS_ACCT
    std::string host;
    auto operator<=>(const RadiusKey &) const = default;
};

struct RadiusServer {
    std::string name;
    std::uint32_t port = 0;
    std::uint32_t priority = kRadiusPriorityDefault;  // 1 is asked first
    std::string secret;                               // empty: none
};

struct RadiusSettings {
    std::map<RadiusKey, RadiusServer> servers;
    std::uint32_t timeout = kRadiusTimeoutDefault;        // seconds until a request is repeated
    std::uint32_t retransmit = kRadiusRetransmitDefault;  // number of repetitions
};

// A secret as it stands in a configuration, hexadecimal. Whoever has the configuration can work it out; it
// keeps secrets off screens and out of logs.
std::string hideSecret(std::string_view secret);
std::optional<std::string> revealSecret(std::string_view hidden);  // nothing for malformed text

struct SystemSettings {
    std::string location, contact;
    ClockSettings clock;
    LogSettings log;
    RadiusSettings radius;
    Dot1xSettings dot1x;
    Users users = factoryUsers();
};

// --- hardware

enum class UnitState : std::uint32_t {
    Operational = OPEN_UNIT_OPERATIONAL,
    Failed = OPEN_UNIT_FAILED,
    Absent = OPEN_UNIT_ABSENT
};

struct TemperatureSensor {
    std::string name;
    std::int32_t celsius = 0;
    std::int32_t warningAbove = 0, criticalAbove = 0;
    bool working = true;

    std::uint32_t state() const;  // OPEN_TEMP_
};

struct Fan {
    std::string name;
    UnitState state = UnitState::Operational;
    std::uint32_t rpm = 0;  // 0 unless operational
};

struct PowerSupply {
    std::string name;
    UnitState state = UnitState::Operational;
};

inline constexpr std::uint32_t kFanRpmMax = 20000;

// Numbers of sensors, fans and power supplies count from 1.
struct Health {
    std::vector<TemperatureSensor> sensors{{"MAC", 52, 85, 95}, {"PHY", 47, 80, 90}, {"CPU", 44, 75, 85}};
    std::vector<Fan> fans{{"Fan 1", UnitState::Operational, 4200}, {"Fan 2", UnitState::Operational, 4200}};
    std::vector<PowerSupply> supplies{{"Power supply 1", UnitState::Operational},
                                      {"Power supply 2", UnitState::Operational}};
    std::uint32_t cpuPercent = 7;
    std::uint32_t memoryTotalKb = 1'048'576, memoryFreeKb = 655'360;
};

}  // namespace vswitch

#endif
