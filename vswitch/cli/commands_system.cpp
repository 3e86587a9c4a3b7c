// Management of the switch itself: location and contact, clock, log, RADIUS, and the state
// of the hardware.
#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>

#include "vswitch/cli/command.h"

namespace vswitch::cli {
namespace {

// --- location and contact

using SystemText = std::string SystemSettings::*;

template <SystemText kField>
bool setText(Context &c, const Values &v) {
    if (!v.empty() && (v[0].text.empty() || v[0].text.size() > kSystemTextMax))
        return c.refuse("1 to 255 characters.");
    c.model.settings().*kField = v.empty() ? "" : v[0].text;
    return true;
}

template <SystemText kField>
void emitText(const char *words, const Model &model, std::string &out) {
    if (const auto &text = model.settings().*kField; !text.empty())
        out += words + quoted(text) + "\n";
}

// --- clock

// "+1", "-5:30": hours east of UTC.
std::optional<std::int32_t> offsetOf(std::string_view text) {
    const bool west = text.starts_with('-');
    if (west || text.starts_with('+'))
        text.remove_prefix(1);
    const auto colon = text.find(':');
    std::int32_t hours = 0, minutes = 0;
    const auto parse = [](std::string_view digits, std::int32_t most, std::int32_t &value) {
        const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
        return error == std::errc{} && end == digits.data() + digits.size() && value >= 0 && value <= most &&
               digits.front() != '-';
    };
    if (!parse(text.substr(0, colon), 14, hours) ||
        (colon != std::string_view::npos && !parse(text.substr(colon + 1), 59, minutes)))
        return std::nullopt;
    const std::int32_t offset = (west ? -1 : 1) * (hours * 60 + minutes);
    return offset >= kZoneMin && offset <= kZoneMax ? std::optional(offset) : std::nullopt;
}

std::string offsetText(std::int32_t minutes) {
    const auto size = static_cast<std::uint32_t>(std::abs(minutes));
    return format("%c%u:%02u", minutes < 0 ? '-' : '+', size / 60, size % 60);
}

bool setTimeZone(Context &c, const Values &v) {
    auto &clock = c.model.settings().clock;
    const auto offset = v.empty() ? std::optional(0) : offsetOf(v[0].text);
    const std::string zone = v.size() > 1 ? v[1].text : "";
    if (!offset)
        return c.refuse("An offset is hours or hours:minutes from -12 to +14.");
    const bool isName = std::ranges::all_of(zone, [](unsigned char ch) { return std::isalnum(ch) != 0; });
    if (zone.size() > kZoneNameMax || !isName)
        return c.refuse("A zone has at most 8 letters and digits.");
    clock.offsetMinutes = *offset;
    clock.zone = zone;
    return true;
}

void emitClock(const Model &model, const Interface *, std::string &out) {
    const auto &clock = model.settings().clock;
    if (!clock.zone.empty())
        out += "clock timezone " + offsetText(clock.offsetMinutes) + " zone " + clock.zone + "\n";
    else if (clock.offsetMinutes != 0)
        out += "clock timezone " + offsetText(clock.offsetMinutes) + "\n";
}

bool setSntpMode(Context &c, const Values &v) {
    c.model.settings().clock.sntp = v.empty()                ? SntpMode::Disabled
                                    : v[0].text == "unicast" ? SntpMode::Unicast
                                                             : SntpMode::Broadcast;
    c.model.pollSntp();
    return true;
}

bool addSntpServer(Context &c, const Values &v) {
    auto &servers = c.model.settings().clock.servers;
    if (!isHost(v[0].text))
        return c.refuse("A server is an address or a name.");
    SntpServer server{v[0].text};
    if (v.size() > 1)
        server.priority = v[1].number;
    if (v.size() > 2)
        server.port = v[2].number;
    const auto known = std::ranges::find(servers, server.host, &SntpServer::host);
    if (known == servers.end() && servers.size() == kSntpServersMax)
        return c.accept(OPEN_E_FULL);
    if (known != servers.end())
        *known = server;
    else
        servers.push_back(server);
    c.model.pollSntp();
    return true;
}

bool deleteSntpServer(Context &c, const Values &v) {
    const auto is = [&](const SntpServer &server) { return server.host == v[0].text; };
    if (std::erase_if(c.model.settings().clock.servers, is) == 0)
        return c.accept(OPEN_E_NOT_FOUND);
    c.model.pollSntp();
    return true;
}

void emitSntp(const Model &model, const Interface *, std::string &out) {
    const auto &clock = model.settings().clock;
    if (clock.sntp != SntpMode::Disabled)
        out += format("sntp client mode %s\n", clock.sntp == SntpMode::Unicast ? "unicast" : "broadcast");
    for (const auto &server : clock.servers)
        out += format("sntp server %s %u %u\n", server.host.c_str(), server.priority, server.port);
}

std::string timeText(std::int64_t seconds, const ClockSettings &clock) {
    const std::time_t local = seconds + std::time_t{clock.offsetMinutes} * 60;
    std::tm parts{};
    gmtime_r(&local, &parts);
    char text[40];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
    const auto zone = clock.zone.empty() ? "UTC" + offsetText(clock.offsetMinutes)
                                         : clock.zone + " (UTC" + offsetText(clock.offsetMinutes) + ")";
    return std::string(text) + " " + zone;
}

bool showClock(Context &c, const Values &) {
    const auto &clock = c.model.settings().clock;
    c.out += timeText(c.model.wallTime().tv_sec, clock) + "\n";
    c.out +=
        c.model.sntp().synchronisedTo.empty() ? "Time source is the local clock\n" : "Time source is SNTP\n";
    return true;
}

bool showSntp(Context &c, const Values &) {
    static constexpr const char *kModes[] = {"Disabled", "Unicast", "Broadcast"};
    const auto &clock = c.model.settings().clock;
    const auto &state = c.model.sntp();
    c.out += leader("Client Mode", kModes[static_cast<std::size_t>(clock.sntp)]);
    c.out += leader("Synchronized To", state.synchronisedTo.empty() ? "None" : state.synchronisedTo);
    c.out += leader("Last Update", state.lastUpdate ? timeText(*state.lastUpdate, clock) : "Never");
    c.out += "\nServer                                                            Priority  Port\n";
    c.out += std::string(64, '-') + "  --------  -----\n";
    for (const auto &server : clock.servers)
        c.out += format("%-64s  %-8u  %u\n", server.host.c_str(), server.priority, server.port);
    return true;
}

// --- log

constexpr std::array<const char *, 8> kSeverities = {"emergency", "alert",  "critical", "error",
                                                     "warning",   "notice", "info",     "debug"};

std::uint32_t severityOf(const std::string &word) {
    return static_cast<std::uint32_t>(std::ranges::find(kSeverities, word) - kSeverities.begin());
}

using SinkField = LogSink LogSettings::*;

template <SinkField kField>
bool enableSink(Context &c, const Values &v) {
    auto &sink = c.model.settings().log.*kField;
    sink = LogSink{true, v.empty() ? (LogSettings{}.*kField).level : severityOf(v[0].text)};
    return true;
}

template <SinkField kField>
bool disableSink(Context &c, const Values &) {
    c.model.settings().log.*kField = LogSink{false, (LogSettings{}.*kField).level};
    return true;
}

template <SinkField kField>
void emitSink(const char *words, const Model &model, std::string &out) {
    const auto &sink = model.settings().log.*kField;
    const auto initial = LogSettings{}.*kField;
    if (sink == initial)
        return;
    out += sink.enabled ? words : "no " + std::string(words);
    out += sink.enabled && sink.level != initial.level ? format(" %s\n", kSeverities[sink.level]) : "\n";
}

bool addLogHost(Context &c, const Values &v) {
    auto &hosts = c.model.settings().log.hosts;
    if (!isHost(v[0].text))
        return c.refuse("A log host is an address or a name.");
    LogHost host{v[0].text};
    if (v.size() > 1) {
        host.port = v[1].number;
        host.level = severityOf(v[2].text);
    }
    const auto known = std::ranges::find(hosts, host.host, &LogHost::host);
    if (known == hosts.end() && hosts.size() == kLogHostsMax)
        return c.accept(OPEN_E_FULL);
    if (known != hosts.end())
        *known = host;
    else
        hosts.push_back(host);
    return true;
}

bool deleteLogHost(Context &c, const Values &v) {
    const auto is = [&](const LogHost &host) { return host.host == v[0].text; };
    return c.accept(std::erase_if(c.model.settings().log.hosts, is) == 0 ? OPEN_E_NOT_FOUND : OPEN_E_NONE);
}

void emitLog(const Model &model, const Interface *, std::string &out) {
    emitSink<&LogSettings::buffered>("logging buffered", model, out);
    emitSink<&LogSettings::console>("logging console", model, out);
    out += model.settings().log.syslog ? "logging syslog\n" : "";
    for (const auto &host : model.settings().log.hosts)
        out += format("logging host %s %u %s\n", host.host.c_str(), host.port, kSeverities[host.level]);
}

bool showLog(Context &c, const Values &) {
    const auto &log = c.model.settings().log;
    const auto sinkText = [](const LogSink &sink) {
        return sink.enabled ? format("enabled, up to %s", kSeverities[sink.level]) : std::string("disabled");
    };
    c.out += leader("Buffered Logging", sinkText(log.buffered));
    c.out += leader("Console Logging", sinkText(log.console));
    c.out += leader("Syslog Logging", log.syslog ? "enabled" : "disabled");
    c.out += "\nHost                                                              Port   Severity\n";
    c.out += std::string(64, '-') + "  -----  ---------\n";
    for (const auto &host : log.hosts)
        c.out += format("%-64s  %-5u  %s\n", host.host.c_str(), host.port, kSeverities[host.level]);
    return true;
}

// --- RADIUS

std::uint32_t radiusTypeOf(const std::string &word) {
    return word == "auth" ? OPEN_RADIUS_AUTH : OPEN_RADIUS_ACCT;
}

const char *radiusWord(std::uint32_t type) {
    return type == OPEN_RADIUS_AUTH ? "auth" : "acct";
}

bool isPrintable(const std::string &text) {
    return std::ranges::all_of(text, [](unsigned char c) { return c >= 0x20 && c < 0x7f; });
}

bool addRadiusServer(Context &c, const Values &v) {
    const RadiusKey key{radiusTypeOf(v[0].text), v[1].text};
    auto &servers = c.model.settings().radius.servers;
    if (!isHost(key.host))
        return c.refuse("A RADIUS server is an address or a name.");
    if (v.size() > 2 && (v[2].text.size() > kRadiusNameMax || !isPrintable(v[2].text)))
        return c.refuse("A name has at most 32 printable characters.");
    if (!servers.contains(key) && servers.size() == kRadiusServersMax)
        return c.accept(OPEN_E_FULL);
    RadiusServer &server = servers[key];
    server.name = v.size() > 2 ? v[2].text : "";
    server.port = v.size() > 3 ? v[3].number : key.type == OPEN_RADIUS_AUTH ? 1812 : 1813;
    server.priority = v.size() > 4 ? v[4].number : kRadiusPriorityDefault;
    return true;
}

bool deleteRadiusServer(Context &c, const Values &v) {
    const RadiusKey key{radiusTypeOf(v[0].text), v[1].text};
    return c.accept(c.model.settings().radius.servers.erase(key) == 0 ? OPEN_E_NOT_FOUND : OPEN_E_NONE);
}

bool setSecret(Context &c, const Values &v, const std::string &secret) {
    auto &servers = c.model.settings().radius.servers;
    const auto server = servers.find({radiusTypeOf(v[0].text), v[1].text});
    if (server == servers.end())
        return c.accept(OPEN_E_NOT_FOUND);
    if (secret.size() > kRadiusKeyMax || !isPrintable(secret))
        return c.refuse("A secret has 1 to 64 printable characters.");
    server->second.secret = secret;
    return true;
}

bool setSecretInClear(Context &c, const Values &v) {
    return v[2].text.empty() ? c.refuse("A secret has 1 to 64 printable characters.")
                             : setSecret(c, v, v[2].text);
}

bool setHiddenSecret(Context &c, const Values &v) {
    const auto secret = revealSecret(v[2].text);
    return secret && !secret->empty() ? setSecret(c, v, *secret) : c.refuse("Not a hidden secret.");
}

using RadiusNumber = std::uint32_t RadiusSettings::*;

template <RadiusNumber kField>
bool setRadius(Context &c, const Values &v) {
    c.model.settings().radius.*kField = v.empty() ? RadiusSettings{}.*kField : v[0].number;
    return true;
}

void emitRadius(const Model &model, const Interface *, std::string &out) {
    const auto &radius = model.settings().radius;
    if (radius.timeout != kRadiusTimeoutDefault)
        out += format("radius server timeout %u\n", radius.timeout);
    if (radius.retransmit != kRadiusRetransmitDefault)
        out += format("radius server retransmit %u\n", radius.retransmit);
    for (const auto &[key, server] : radius.servers) {
        const auto whose = std::string(radiusWord(key.type)) + " " + key.host;
        out += "radius server host " + whose + " name " + quoted(server.name) +
               format(" port %u priority %u\n", server.port, server.priority);
        if (!server.secret.empty())
            out += "radius server key " + whose + " hidden " + hideSecret(server.secret) + "\n";
    }
}

bool showRadius(Context &c, const Values &) {
    const auto &radius = c.model.settings().radius;
    c.out += leader("Timeout Duration", std::to_string(radius.timeout));
    c.out += leader("Number of Retransmits", std::to_string(radius.retransmit));
    c.out +=
        "\nType  Host                              Name                              Port   Pri.   Key\n";
    c.out += "----  --------------------------------  --------------------------------  -----  -----  ---\n";
    for (const auto &[key, server] : radius.servers)
        c.out +=
            format("%-4s  %-32s  %-32s  %-5u  %-5u  %s\n", radiusWord(key.type), key.host.c_str(),
                   server.name.c_str(), server.port, server.priority, server.secret.empty() ? "No" : "Yes");
    return true;
}

// --- hardware

bool showEnvironment(Context &c, const Values &) {
    static constexpr const char *kSensorStates[] = {"Normal", "Warning", "Critical", "Failed"};
    static constexpr const char *kUnitStates[] = {"Operational", "Failed", "Absent"};
    const auto &health = c.model.health();
    c.out += "Sensor            Celsius  Warning  Critical  State\n";
    c.out += "----------------  -------  -------  --------  --------\n";
    for (const auto &s : health.sensors)
        c.out += format("%-16s  %-7s  %-7d  %-8d  %s\n", s.name.c_str(),
                        s.working ? std::to_string(s.celsius).c_str() : "-", s.warningAbove, s.criticalAbove,
                        kSensorStates[s.state() - OPEN_TEMP_NORMAL]);
    c.out += "\nUnit              RPM      State\n----------------  -------  -----------\n";
    const auto stateText = [](UnitState state) {
        return kUnitStates[static_cast<std::uint32_t>(state) - OPEN_UNIT_OPERATIONAL];
    };
    for (const auto &fan : health.fans)
        c.out += format("%-16s  %-7u  %s\n", fan.name.c_str(), fan.rpm, stateText(fan.state));
    for (const auto &supply : health.supplies)
        c.out += format("%-16s  %-7s  %s\n", supply.name.c_str(), "-", stateText(supply.state));
    c.out += "\n" + leader("CPU Utilization", format("%u %%", health.cpuPercent));
    c.out += leader("Memory", format("%u KB, %u KB free", health.memoryTotalKb, health.memoryFreeKb));
    return true;
}

// Sets what does not need a value of the command.
template <bool kOn>
bool setSyslog(Context &c, const Values &) {
    c.model.settings().log.syslog = kOn;
    return true;
}

const Command kManagement[] = {
    {kConfig, "snmp-server location <text>", "Say where the switch is", setText<&SystemSettings::location>,
     [](const Model &model, const Interface *, std::string &out) {
         emitText<&SystemSettings::location>("snmp-server location ", model, out);
     }},
    {kConfig, "no snmp-server location", "Remove the location", setText<&SystemSettings::location>},
    {kConfig, "snmp-server contact <text>", "Say who looks after the switch",
     setText<&SystemSettings::contact>,
     [](const Model &model, const Interface *, std::string &out) {
         emitText<&SystemSettings::contact>("snmp-server contact ", model, out);
     }},
    {kConfig, "no snmp-server contact", "Remove the contact", setText<&SystemSettings::contact>},

    {kConfig, "clock timezone <text>", "Set the offset from UTC, such as +1 or -5:30", setTimeZone,
     emitClock},
    {kConfig, "clock timezone <text> zone <text>", "Set offset and name of the time zone", setTimeZone},
    {kConfig, "no clock timezone", "Back to UTC", setTimeZone},
    {kConfig, "sntp client mode unicast|broadcast", "Set the clock by SNTP", setSntpMode, emitSntp},
    {kConfig, "no sntp client mode", "Leave the clock alone", setSntpMode},
    {kConfig, "sntp server <text>", "Ask a server for the time", addSntpServer},
    {kConfig, "sntp server <text> <int:1-3>", "Ask a server, in the order of priority", addSntpServer},
    {kConfig, "sntp server <text> <int:1-3> <int:1-65535>", "Ask a server at a UDP port", addSntpServer},
    {kConfig, "no sntp server <text>", "Do not ask a server any more", deleteSntpServer},

    {kConfig, "logging buffered", "Keep log lines in memory", enableSink<&LogSettings::buffered>, emitLog},
    {kConfig, "logging buffered emergency|alert|critical|error|warning|notice|info|debug",
     "Keep log lines up to a severity", enableSink<&LogSettings::buffered>},
    {kConfig, "no logging buffered", "Keep no log lines", disableSink<&LogSettings::buffered>},
    {kConfig, "logging console", "Print log lines on the console", enableSink<&LogSettings::console>},
    {kConfig, "logging console emergency|alert|critical|error|warning|notice|info|debug",
     "Print log lines up to a severity", enableSink<&LogSettings::console>},
    {kConfig, "no logging console", "Print no log lines", disableSink<&LogSettings::console>},
    {kConfig, "logging syslog", "Send log lines to the log hosts", setSyslog<true>},
    {kConfig, "no logging syslog", "Send no log lines", setSyslog<false>},
    {kConfig, "logging host <text>", "Add a log host", addLogHost},
    {kConfig, "logging host <text> <int:1-65535> emergency|alert|critical|error|warning|notice|info|debug",
     "Add a log host with its UDP port and severity", addLogHost},
    {kConfig, "no logging host <text>", "Remove a log host", deleteLogHost},

    {kConfig, "radius server host auth|acct <text>", "Add a RADIUS server", addRadiusServer, emitRadius},
    {kConfig, "radius server host auth|acct <text> name <text>", "Add a RADIUS server with a name",
     addRadiusServer},
    {kConfig, "radius server host auth|acct <text> name <text> port <int:1-65535>",
     "Add a RADIUS server with name and UDP port", addRadiusServer},
    {kConfig, "radius server host auth|acct <text> name <text> port <int:1-65535> priority <int:1-65535>",
     "Add a RADIUS server with name, UDP port and priority", addRadiusServer},
    {kConfig, "no radius server host auth|acct <text>", "Remove a RADIUS server", deleteRadiusServer},
    {kConfig, "radius server key auth|acct <text> <text>", "Set the secret shared with a server",
     setSecretInClear},
    {kConfig, "radius server key auth|acct <text> hidden <text>",
     "Set the secret as the running configuration has it", setHiddenSecret},
    {kConfig, "no radius server key auth|acct <text>", "Remove the secret",
     [](Context &c, const Values &v) { return setSecret(c, v, ""); }},
    {kConfig, "radius server timeout <int:1-30>", "Seconds until a request is repeated",
     setRadius<&RadiusSettings::timeout>},
    {kConfig, "no radius server timeout", "Back to the default", setRadius<&RadiusSettings::timeout>},
    {kConfig, "radius server retransmit <int:1-15>", "How often a request is repeated",
     setRadius<&RadiusSettings::retransmit>},
    {kConfig, "no radius server retransmit", "Back to the default", setRadius<&RadiusSettings::retransmit>},

    {kAnyMode, "show clock", "Time of day", showClock},
    {kAnyMode, "show sntp", "Where the time comes from", showSntp},
    {kAnyMode, "show logging", "Where log lines go", showLog},
    {kAnyMode, "show radius servers", "RADIUS servers and timers", showRadius},
    {kAnyMode, "show environment", "Temperatures, fans, power supplies, load", showEnvironment},
};

}  // namespace

std::span<const Command> managementCommands() {
    return kManagement;
}

}  // namespace vswitch::cli
