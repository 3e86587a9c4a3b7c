// The switch as a whole: identity, hardware, clock, log, RADIUS, 802.1X, 802.1AS.
#include "swapi/read_call.h"
#include "swapi/switch.h"

namespace pavo {
namespace {

constexpr std::size_t kTextSize = 256;
constexpr std::size_t kNameSize = 65;

}  // namespace

OpenResult<std::uint32_t> Switch::NumberStep::operator()() {
    std::uint32_t found = 0;
    const open_error_t code = next(client, last, &found);
    if (code == OPEN_E_NONE && found <= last)
        return std::unexpected(OpenError::Failed);
    last = found;
    return openResult(code, found);
}

// --- identity

OpenResult<std::string> Switch::hostName() const {
    return readText(kTextSize, [&](open_buffdesc *text) { return rpcclt_openapiHostNameGet(client_, text); });
}

OpenResult<std::string> Switch::location() const {
    return readText(kTextSize,
                    [&](open_buffdesc *text) { return rpcclt_openapiSystemLocationGet(client_, text); });
}

OpenResult<std::string> Switch::contact() const {
    return readText(kTextSize,
                    [&](open_buffdesc *text) { return rpcclt_openapiSystemContactGet(client_, text); });
}

OpenResult<std::string> Switch::serialNumber() const {
    return readText(kTextSize,
                    [&](open_buffdesc *text) { return rpcclt_openapiSystemSerialNumberGet(client_, text); });
}

OpenResult<Mac> Switch::burnedInMac() const {
    const auto text = readText(
        kTextSize, [&](open_buffdesc *mac) { return rpcclt_openapiSystemBurnedInMacAddrGet(client_, mac); });
    if (!text)
        return std::unexpected(text.error());
    const auto mac = Mac::parse(*text);
    return mac ? OpenResult<Mac>(*mac) : std::unexpected(OpenError::Failed);
}

OpenResult<std::uint32_t> Switch::upTime() const {
    return readNumber(
        [&](std::uint32_t *seconds) { return rpcclt_openapiSystemUpTimeGet(client_, seconds); });
}

// --- hardware

OpenResult<std::string> Switch::sensorName(std::uint32_t sensor) const {
    return readText(kNameSize, [&](open_buffdesc *name) {
        return rpcclt_openapiTempSensorNameGet(client_, sensor, name);
    });
}

OpenResult<SensorStatus> Switch::sensorStatus(std::uint32_t sensor) const {
    std::uint32_t state = 0, celsius = 0, warning = 0, critical = 0;
    const open_error_t code =
        rpcclt_openapiTempSensorStatusGet(client_, sensor, &state, &celsius, &warning, &critical);
    return openResult(code,
                      SensorStatus{static_cast<SensorState>(state), static_cast<std::int32_t>(celsius),
                                   static_cast<std::int32_t>(warning), static_cast<std::int32_t>(critical)});
}

OpenResult<std::string> Switch::fanName(std::uint32_t fan) const {
    return readText(kNameSize,
                    [&](open_buffdesc *name) { return rpcclt_openapiFanNameGet(client_, fan, name); });
}

OpenResult<FanStatus> Switch::fanStatus(std::uint32_t fan) const {
    std::uint32_t state = 0, rpm = 0;
    const open_error_t code = rpcclt_openapiFanStatusGet(client_, fan, &state, &rpm);
    return openResult(code, FanStatus{static_cast<UnitState>(state), rpm});
}

OpenResult<std::string> Switch::powerSupplyName(std::uint32_t supply) const {
    return readText(kNameSize, [&](open_buffdesc *name) {
        return rpcclt_openapiPowerSupplyNameGet(client_, supply, name);
    });
}

OpenResult<UnitState> Switch::powerSupplyState(std::uint32_t supply) const {
    return readNumber<UnitState>(
        [&](std::uint32_t *state) { return rpcclt_openapiPowerSupplyStatusGet(client_, supply, state); });
}

OpenResult<std::uint32_t> Switch::cpuPercent() const {
    return readNumber(
        [&](std::uint32_t *percent) { return rpcclt_openapiCpuUtilizationGet(client_, percent); });
}

OpenResult<MemoryStatus> Switch::memory() const {
    MemoryStatus memory;
    const open_error_t code = rpcclt_openapiMemoryGet(client_, &memory.totalKb, &memory.freeKb);
    return openResult(code, memory);
}

// --- clock

OpenResult<std::uint32_t> Switch::clock() const {
    return readNumber([&](std::uint32_t *seconds) { return rpcclt_openapiClockGet(client_, seconds); });
}

OpenResult<TimeZone> Switch::timeZone() const {
    std::uint32_t offset = 0;
    auto name = readText(
        kNameSize, [&](open_buffdesc *text) { return rpcclt_openapiTimeZoneGet(client_, &offset, text); });
    if (!name)
        return std::unexpected(name.error());
    return TimeZone{static_cast<std::int32_t>(offset), std::move(*name)};
}

OpenResult<SntpMode> Switch::sntpMode() const {
    return readNumber<SntpMode>(
        [&](std::uint32_t *mode) { return rpcclt_openapiSntpModeGet(client_, mode); });
}

OpenResult<SntpStatus> Switch::sntpStatus() const {
    std::uint32_t lastUpdate = 0;
    auto server = readText(kTextSize + 1, [&](open_buffdesc *text) {
        return rpcclt_openapiSntpStatusGet(client_, &lastUpdate, text);
    });
    if (!server)
        return std::unexpected(server.error());
    return SntpStatus{std::move(*server), lastUpdate};
}

OpenResult<SntpServer> Switch::sntpServer(std::uint32_t number) const {
    SntpServer server;
    auto host = readText(kTextSize + 1, [&](open_buffdesc *text) {
        return rpcclt_openapiSntpServerGet(client_, number, text, &server.port, &server.priority);
    });
    if (!host)
        return std::unexpected(host.error());
    server.host = std::move(*host);
    return server;
}

// --- log

OpenResult<LogSinkStatus> Switch::logSink(LogSink sink) const {
    std::uint32_t enabled = 0, level = 0;
    const open_error_t code =
        rpcclt_openapiLogSinkGet(client_, static_cast<std::uint32_t>(sink), &enabled, &level);
    return openResult(code, LogSinkStatus{enabled == OPEN_ENABLE, level});
}

OpenResult<bool> Switch::syslog() const {
    return readNumber<bool>(
        [&](std::uint32_t *enabled) { return rpcclt_openapiSyslogModeGet(client_, enabled); });
}

OpenResult<LogHost> Switch::logHost(std::uint32_t number) const {
    LogHost host;
    auto address = readText(kTextSize + 1, [&](open_buffdesc *text) {
        return rpcclt_openapiLogHostGet(client_, number, text, &host.port, &host.level);
    });
    if (!address)
        return std::unexpected(address.error());
    host.host = std::move(*address);
    return host;
}

// --- RADIUS, 802.1X, PTP, 802.1AS

OpenResult<RadiusTimers> Switch::radiusTimers() const {
    RadiusTimers timers;
    const open_error_t code = rpcclt_openapiRadiusTimersGet(client_, &timers.timeout, &timers.retransmit);
    return openResult(code, timers);
}

OpenResult<RadiusServer> Switch::radiusServer(std::uint32_t number) const {
    RadiusServer server;
    std::uint32_t type = 0;
    auto host = readText(kTextSize + 1, [&](open_buffdesc *text) {
        return rpcclt_openapiRadiusServerGet(client_, number, text, &type, &server.port, &server.priority);
    });
    if (!host)
        return std::unexpected(host.error());
    server.host = std::move(*host);
    server.type = static_cast<RadiusType>(type);
    return server;
}

OpenResult<RadiusServerName> Switch::radiusServerName(std::uint32_t number) const {
    std::uint32_t secretSet = 0;
    auto name = readText(kNameSize, [&](open_buffdesc *text) {
        return rpcclt_openapiRadiusServerNameGet(client_, number, text, &secretSet);
    });
    if (!name)
        return std::unexpected(name.error());
    return RadiusServerName{std::move(*name), secretSet != 0};
}

OpenResult<bool> Switch::portPtpTc(IfNum port) const {
    return readNumber<bool>([&](std::uint32_t *mode) {
        return rpcclt_openapiPtpTcIntfAdminModeGet(client_, port.number(), mode);
    });
}

OpenResult<bool> Switch::portDot1as(IfNum port) const {
    return readNumber<bool>(
        [&](std::uint32_t *mode) { return rpcclt_openapiDot1asIntfModeGet(client_, port.number(), mode); });
}

OpenResult<bool> Switch::staticVlan(VlanId id) const {
    const open_error_t answer = openapiVlanIsStatic(client_, id.number());
    return answer >= 0 ? OpenResult<bool>(answer > 0) : std::unexpected(static_cast<OpenError>(answer));
}

}  // namespace pavo
