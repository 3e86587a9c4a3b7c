// The switch's side of the calls about the switch as a whole: identity, hardware, clock, log, RADIUS, 802.1X.
#include <iterator>

#include "vswitch/server/calls.h"

namespace vswitch {
namespace {

// Entries of a table are numbered from 1.
open_error_t nextNumber(std::size_t entries, std::uint32_t number, std::uint32_t &next) {
    if (number >= entries)
        return OPEN_E_NOT_FOUND;
    next = number + 1;
    return OPEN_E_NONE;
}

template <class Row>
const Row *rowOf(const std::vector<Row> &rows, std::uint32_t number) {
    return number == 0 || number > rows.size() ? nullptr : &rows[number - 1];
}

template <class Row>
open_error_t nameOf(const std::vector<Row> &rows, std::uint32_t number, rpc::Filled &name) {
    const auto *row = rowOf(rows, number);
    if (row == nullptr)
        return OPEN_E_NOT_FOUND;
    name.value = row->name;
    return OPEN_E_NONE;
}

const std::pair<const RadiusKey, RadiusServer> *serverOf(const RadiusSettings &radius, std::uint32_t number) {
    if (number == 0 || number > radius.servers.size())
        return nullptr;
    return &*std::next(radius.servers.begin(), static_cast<std::ptrdiff_t>(number - 1));
}

}  // namespace

// --- identity

open_error_t Calls::rpcclt_openapiHostNameGet(rpc::Filled &name) {
    name.value = model_.system().hostName;
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiSystemLocationGet(rpc::Filled &location) {
    location.value = model_.settings().location;
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiSystemContactGet(rpc::Filled &contact) {
    contact.value = model_.settings().contact;
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiSystemSerialNumberGet(rpc::Filled &serial) {
    serial.value = model_.system().serialNumber;
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiSystemBurnedInMacAddrGet(rpc::Filled &mac) {
    mac.value = model_.system().burnedInMac.text();
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiSystemUpTimeGet(std::uint32_t &seconds) {
    seconds =
        static_cast<std::uint32_t>(std::chrono::duration_cast<std::chrono::seconds>(model_.upTime()).count());
    return OPEN_E_NONE;
}

// --- hardware

open_error_t Calls::rpcclt_openapiTempSensorNextGet(std::uint32_t sensor, std::uint32_t &next) {
    return nextNumber(model_.health().sensors.size(), sensor, next);
}

open_error_t Calls::rpcclt_openapiTempSensorNameGet(std::uint32_t sensor, rpc::Filled &name) {
    return nameOf(model_.health().sensors, sensor, name);
}

open_error_t Calls::rpcclt_openapiTempSensorStatusGet(std::uint32_t sensor, std::uint32_t &state,
                                                      std::uint32_t &celsius, std::uint32_t &warningAbove,
                                                      std::uint32_t &criticalAbove) {
    const auto *row = rowOf(model_.health().sensors, sensor);
    if (row == nullptr)
        return OPEN_E_NOT_FOUND;
    state = row->state();
    celsius = static_cast<std::uint32_t>(row->celsius);
    warningAbove = static_cast<std::uint32_t>(row->warningAbove);
    criticalAbove = static_cast<std::uint32_t>(row->criticalAbove);
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiFanNextGet(std::uint32_t fan, std::uint32_t &next) {
    return nextNumber(model_.health().fans.size(), fan, next);
}

open_error_t Calls::rpcclt_openapiFanNameGet(std::uint32_t fan, rpc::Filled &name) {
    return nameOf(model_.health().fans, fan, name);
}

open_error_t Calls::rpcclt_openapiFanStatusGet(std::uint32_t fan, std::uint32_t &state, std::uint32_t &rpm) {
    const auto *row = rowOf(model_.health().fans, fan);
    if (row == nullptr)
        return OPEN_E_NOT_FOUND;
    state = static_cast<std::uint32_t>(row->state);
    rpm = row->rpm;
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiPowerSupplyNextGet(std::uint32_t supply, std::uint32_t &next) {
    return nextNumber(model_.health().supplies.size(), supply, next);
}

open_error_t Calls::rpcclt_openapiPowerSupplyNameGet(std::uint32_t supply, rpc::Filled &name) {
    return nameOf(model_.health().supplies, supply, name);
}

open_error_t Calls::rpcclt_openapiPowerSupplyStatusGet(std::uint32_t supply, std::uint32_t &state) {
    const auto *row = rowOf(model_.health().supplies, supply);
    if (row == nullptr)
        return OPEN_E_NOT_FOUND;
    state = static_cast<std::uint32_t>(row->state);
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiCpuUtilizationGet(std::uint32_t &percent) {
    percent = model_.health().cpuPercent;
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiMemoryGet(std::uint32_t &totalKb, std::uint32_t &freeKb) {
    totalKb = model_.health().memoryTotalKb;
    freeKb = model_.health().memoryFreeKb;
    return OPEN_E_NONE;
}

// --- clock

open_error_t Calls::rpcclt_openapiClockGet(std::uint32_t &seconds) {
    seconds = static_cast<std::uint32_t>(model_.wallTime().tv_sec);
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiTimeZoneGet(std::uint32_t &offsetMinutes, rpc::Filled &name) {
    offsetMinutes = static_cast<std::uint32_t>(model_.settings().clock.offsetMinutes);
    name.value = model_.settings().clock.zone;
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiSntpModeGet(std::uint32_t &mode) {
    mode = static_cast<std::uint32_t>(model_.settings().clock.sntp);
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiSntpStatusGet(std::uint32_t &lastUpdate, rpc::Filled &server) {
    lastUpdate = static_cast<std::uint32_t>(model_.sntp().lastUpdate.value_or(0));
    server.value = model_.sntp().synchronisedTo;
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiSntpServerNextGet(std::uint32_t server, std::uint32_t &next) {
    return nextNumber(model_.settings().clock.servers.size(), server, next);
}

open_error_t Calls::rpcclt_openapiSntpServerGet(std::uint32_t server, rpc::Filled &host, std::uint32_t &port,
                                                std::uint32_t &priority) {
    const auto *row = rowOf(model_.settings().clock.servers, server);
    if (row == nullptr)
        return OPEN_E_NOT_FOUND;
    host.value = row->host;
    port = row->port;
    priority = row->priority;
    return OPEN_E_NONE;
}

// --- log

open_error_t Calls::rpcclt_openapiLogSinkGet(std::uint32_t sink, std::uint32_t &enabled,
                                             std::uint32_t &level) {
    if (sink != OPEN_LOG_BUFFERED && sink != OPEN_LOG_CONSOLE)
        return OPEN_E_PARAM;
    const auto &log = model_.settings().log;
    const LogSink &found = sink == OPEN_LOG_BUFFERED ? log.buffered : log.console;
    enabled = found.enabled ? OPEN_ENABLE : OPEN_DISABLE;
    level = found.level;
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiSyslogModeGet(std::uint32_t &enabled) {
    enabled = model_.settings().log.syslog ? OPEN_ENABLE : OPEN_DISABLE;
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiLogHostNextGet(std::uint32_t host, std::uint32_t &next) {
    return nextNumber(model_.settings().log.hosts.size(), host, next);
}

open_error_t Calls::rpcclt_openapiLogHostGet(std::uint32_t host, rpc::Filled &address, std::uint32_t &port,
                                             std::uint32_t &level) {
    const auto *row = rowOf(model_.settings().log.hosts, host);
    if (row == nullptr)
        return OPEN_E_NOT_FOUND;
    address.value = row->host;
    port = row->port;
    level = row->level;
    return OPEN_E_NONE;
}

// --- RADIUS, 802.1X, 802.1AS

open_error_t Calls::rpcclt_openapiRadiusTimersGet(std::uint32_t &timeout, std::uint32_t &retransmit) {
    timeout = model_.settings().radius.timeout;
    retransmit = model_.settings().radius.retransmit;
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiRadiusServerNextGet(std::uint32_t server, std::uint32_t &next) {
    return nextNumber(model_.settings().radius.servers.size(), server, next);
}

open_error_t Calls::rpcclt_openapiRadiusServerGet(std::uint32_t server, rpc::Filled &host,
                                                  std::uint32_t &type, std::uint32_t &port,
                                                  std::uint32_t &priority) {
    const auto *row = serverOf(model_.settings().radius, server);
    if (row == nullptr)
        return OPEN_E_NOT_FOUND;
    host.value = row->first.host;
    type = row->first.type;
    port = row->second.port;
    priority = row->second.priority;
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiRadiusServerNameGet(std::uint32_t server, rpc::Filled &name,
                                                      std::uint32_t &secretSet) {
    const auto *row = serverOf(model_.settings().radius, server);
    if (row == nullptr)
        return OPEN_E_NOT_FOUND;
    name.value = row->second.name;
    secretSet = row->second.secret.empty() ? 0 : 1;
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiDot1xSystemAuthControlModeGet(std::uint32_t &mode) {
    mode = model_.system().dot1xEnabled ? OPEN_ENABLE : OPEN_DISABLE;
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiDot1xPortStatusGet(std::uint32_t ifNum, std::uint32_t &status) {
    const auto *found = model_.interface(ifNum);
    if (found == nullptr || found->isLag())
        return OPEN_E_NOT_FOUND;
    status = model_.authorized(ifNum) ? OPEN_DOT1X_PORT_AUTHORIZED : OPEN_DOT1X_PORT_UNAUTHORIZED;
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiDot1xPortReauthGet(std::uint32_t ifNum, std::uint32_t &enabled,
                                                     std::uint32_t &period) {
    const auto *found = model_.interface(ifNum);
    if (found == nullptr || found->isLag())
        return OPEN_E_NOT_FOUND;
    enabled = found->dot1xReauthentication ? OPEN_ENABLE : OPEN_DISABLE;
    period = found->dot1xReauthPeriod;
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiDot1asIntfModeGet(std::uint32_t ifNum, std::uint32_t &mode) {
    const auto *found = model_.interface(ifNum);
    if (found == nullptr || found->isLag())
        return OPEN_E_NOT_FOUND;
    mode = found->dot1as ? OPEN_ENABLE : OPEN_DISABLE;
    return OPEN_E_NONE;
}

}  // namespace vswitch
