#include "web/system_answers.h"

#include <array>
#include <cstdlib>
#include <ctime>
#include <iterator>

#include "platform/paths.h"
#include "swapi/switch_settings.h"
#include "vlan/ip_interfaces.h"
#include "vlan/vlan_picture.h"
#include "web/answer_builder.h"

namespace pavo {
namespace {

using Text = std::optional<std::string>;

// --- words for the switch's numbers; nothing for a number that nobody knows

constexpr Word<SensorState> kSensorStates[] = {{SensorState::Normal, "normal"},
                                               {SensorState::Warning, "warning"},
                                               {SensorState::Critical, "critical"},
                                               {SensorState::Failed, "failed"}};
constexpr Word<UnitState> kUnitStates[] = {
    {UnitState::Operational, "ok"}, {UnitState::Failed, "failed"}, {UnitState::Absent, "absent"}};
constexpr Word<SntpMode> kSntpModes[] = {
    {SntpMode::Disabled, "disabled"}, {SntpMode::Unicast, "unicast"}, {SntpMode::Broadcast, "broadcast"}};
constexpr Word<RadiusType> kRadiusTypes[] = {{RadiusType::Authentication, "auth"},
                                             {RadiusType::Accounting, "acct"}};
constexpr Word<PortControl> kControlModes[] = {{PortControl::ForceUnauthorized, "forceUnauthorized"},
                                               {PortControl::Auto, "auto"},
                                               {PortControl::ForceAuthorized, "forceAuthorized"}};
constexpr Word<IpMethod> kMethods[] = {
    {IpMethod::Other, "none"}, {IpMethod::Dhcp, "dhcp"}, {IpMethod::Manual, "static"}};
constexpr Word<std::uint32_t> kSeverities[] = {{0, "emergency"}, {1, "alert"},   {2, "critical"},
                                               {3, "error"},     {4, "warning"}, {5, "notice"},
                                               {6, "info"},      {7, "debug"}};

template <class Struct, class Field>
std::optional<Field> fieldOf(const std::optional<Struct> &whole, Field Struct::*field) {
    return whole ? std::optional<Field>((*whole).*field) : std::nullopt;
}

// --- identity

std::optional<ManagementAddress> readManagement(Switch sw, AnswerReader &reader) {
    return reader.require(underLock(
        platform::paths::kIpManagementGetLock, [&] { return readManagementAddress(sw, reader.where()); },
        reader.where()));
}

// An address that the switch shows for "none" is none.
Text addressOf(const Text &shown) {
    return shown == "0.0.0.0" ? std::nullopt : shown;
}

std::optional<const char *> methodOf(const Text &shown) {
    if (shown == "DHCP")
        return "dhcp";
    if (shown == "Manual")
        return "static";
    return shown == "None" ? std::optional("none") : std::nullopt;
}

std::optional<bool> isUp(const Text &shown) {
    return shown == "Up" || shown == "Down" ? std::optional(shown == "Up") : std::nullopt;
}

AnswerNode managementJson(const ManagementAddress &address, const char *methodKey) {
    auto out = AnswerNode::object();
    out.add("vlanId", address.vlan).add(methodKey, methodOf(address.method));
    out.add("address", addressOf(address.ip)).add("mask", addressOf(address.mask));
    out.add("gateway", addressOf(address.gateway)).add("up", isUp(address.status));
    return out;
}

Text versionText(const std::optional<ApiVersion> &api) {
    if (!api)
        return std::nullopt;
    return formatText("%u.%u.%u.%u", api->release, api->version, api->maintenance, api->build);
}

AnswerNode systemInfoJson(Switch sw, AnswerReader &reader) {
    auto out = AnswerNode::object();
    out.add("hostName", reader.value(sw.hostName(), "the host name"));
    out.add("location", reader.value(sw.location(), "the location"));
    out.add("contact", reader.value(sw.contact(), "the contact"));
    out.add("model", reader.value(sw.machineModel(), "the machine model"));
    out.add("serialNumber", reader.value(sw.serialNumber(), "the serial number"));
    if (const auto mac = reader.value(sw.burnedInMac(), "the burned-in MAC address"))
        out.add("macAddress", mac->text());
    out.add("osVersion", reader.value(sw.osVersion(), "the OS version"));
    out.add("apiVersion", versionText(reader.value(sw.apiVersion(), "the API version")));
    out.add("upTime", reader.value(sw.upTime(), "the up time"));
    if (reader.failed())
        return out;
    if (const auto management = readManagement(sw, reader))
        out.add("management", managementJson(*management, "mode"));
    return out;
}

// A table of the switch: rowOf(entry) makes a row, or nothing for an entry that is left out. `what` is the table.
template <class Table, class RowOf>
AnswerNode tableJson(Table table, AnswerReader &reader, const char *what, RowOf rowOf) {
    auto out = AnswerNode::array();
    for (const auto entry : table) {
        if (std::optional<AnswerNode> row = rowOf(entry))
            out.append(std::move(*row));
        if (reader.failed())
            break;
    }
    reader.end(table, what);
    return out;
}

// --- hardware

AnswerNode sensorsJson(Switch sw, AnswerReader &reader) {
    return tableJson(sw.sensors(), reader, "the list of temperature sensors", [&](std::uint32_t sensor) {
        const auto name = reader.value(sw.sensorName(sensor), "the name of a temperature sensor");
        const auto status = reader.value(sw.sensorStatus(sensor), "a temperature");
        const bool measures = status && status->state != SensorState::Failed;
        auto row = AnswerNode::object();
        row.add("sensor", sensor).add("name", name);
        row.add("state", wordOf(kSensorStates, fieldOf(status, &SensorStatus::state)));
        row.add("celsius", measures ? std::optional(status->celsius) : std::nullopt);
        row.add("warningAbove", fieldOf(status, &SensorStatus::warningAbove));
        row.add("criticalAbove", fieldOf(status, &SensorStatus::criticalAbove));
        return row;
    });
}

AnswerNode fansJson(Switch sw, AnswerReader &reader) {
    return tableJson(sw.fans(), reader, "the list of fans", [&](std::uint32_t fan) {
        const auto name = reader.value(sw.fanName(fan), "the name of a fan");
        const auto status = reader.value(sw.fanStatus(fan), "the state of a fan");
        auto row = AnswerNode::object();
        row.add("fan", fan).add("name", name);
        row.add("state", wordOf(kUnitStates, fieldOf(status, &FanStatus::state)));
        row.add("rpm", fieldOf(status, &FanStatus::rpm));
        return row;
    });
}

AnswerNode powerSuppliesJson(Switch sw, AnswerReader &reader) {
    return tableJson(sw.powerSupplies(), reader, "the list of power supplies", [&](std::uint32_t supply) {
        const auto name = reader.value(sw.powerSupplyName(supply), "the name of a power supply");
        const auto state = reader.value(sw.powerSupplyState(supply), "the state of a power supply");
        auto row = AnswerNode::object();
        row.add("supply", supply).add("name", name).add("state", wordOf(kUnitStates, state));
        return row;
    });
}

AnswerNode deviceHealthJson(Switch sw, AnswerReader &reader) {
    auto out = AnswerNode::object();
    out.add("temperature", sensorsJson(sw, reader));
    out.add("fans", fansJson(sw, reader));
    out.add("powerSupplies", powerSuppliesJson(sw, reader));
    if (const auto percent = reader.value(sw.cpuPercent(), "the load of the processor")) {
        auto cpu = AnswerNode::object();
        cpu.add("percent", *percent);
        out.add("cpu", std::move(cpu));
    }
    if (const auto status = reader.value(sw.memory(), "the memory")) {
        auto memory = AnswerNode::object();
        memory.add("totalKb", status->totalKb).add("freeKb", status->freeKb);
        out.add("memory", std::move(memory));
    }
    return out;
}

// --- interfaces with addresses

AnswerNode specialInterfacesJson(Switch sw, AnswerReader &reader) {
    auto out = AnswerNode::array();
    const auto management = readManagement(sw, reader);
    if (!management)
        return out;
    auto first = managementJson(*management, "method");
    first.add("type", "management");
    out.append(std::move(first));
    const auto interfaces = reader.require(readIpInterfaces(sw, reader.where()));
    if (!interfaces)
        return out;
    for (const IpInterface &interface : *interfaces) {
        auto row = AnswerNode::object();
        row.add("type", "vlan").add("vlanId", interface.vlan.number());
        row.add("method", wordOf(kMethods, std::optional(interface.method)));
        row.add("address", addressOf(interface.address)).add("mask", addressOf(interface.mask));
        row.add("up", interface.isUp);
        out.append(std::move(row));
    }
    return out;
}

// --- clock

Text localTime(const std::optional<std::uint32_t> &utc, const std::optional<TimeZone> &zone) {
    if (!utc || !zone)
        return std::nullopt;
    const std::time_t local = static_cast<std::time_t>(*utc) + std::time_t{zone->offsetMinutes} * 60;
    std::tm parts{};
    if (gmtime_r(&local, &parts) == nullptr)
        return std::nullopt;
    std::array<char, 40> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &parts);
    const int offset = std::abs(zone->offsetMinutes);
    return formatText("%s%s%02d:%02d", text.data(), zone->offsetMinutes < 0 ? "-" : "+", offset / 60,
                      offset % 60);
}

AnswerNode sntpJson(Switch sw, AnswerReader &reader) {
    auto out = AnswerNode::object();
    out.add("mode", wordOf(kSntpModes, reader.value(sw.sntpMode(), "the SNTP mode")));
    if (const auto status = reader.value(sw.sntpStatus(), "the SNTP status")) {
        out.add("synchronised", !status->server.empty());
        if (!status->server.empty())
            out.add("synchronisedTo", status->server);
        if (status->lastUpdate != 0)
            out.add("lastUpdate", status->lastUpdate);
    }
    const auto rowOf = [&](std::uint32_t number) -> std::optional<AnswerNode> {
        const auto server = reader.entry(sw.sntpServer(number), "an SNTP server");
        if (!server)
            return std::nullopt;
        auto row = AnswerNode::object();
        row.add("host", server->host).add("port", server->port).add("priority", server->priority);
        return row;
    };
    out.add("servers", tableJson(sw.sntpServers(), reader, "the list of SNTP servers", rowOf));
    return out;
}

AnswerNode deviceTimeJson(Switch sw, AnswerReader &reader) {
    const auto utc = reader.value(sw.clock(), "the clock");
    const auto zone = reader.value(sw.timeZone(), "the time zone");
    auto out = AnswerNode::object();
    out.add("utc", utc).add("time", localTime(utc, zone));
    if (zone) {
        auto zoneJson = AnswerNode::object();
        zoneJson.add("offsetMinutes", zone->offsetMinutes).add("name", zone->name);
        out.add("timeZone", std::move(zoneJson));
    }
    out.add("sntp", sntpJson(sw, reader));
    return out;
}

// --- log

void addSink(Switch sw, AnswerReader &reader, LogSink sink, const char *key, AnswerNode &out) {
    const auto status = reader.value(sw.logSink(sink), "a log setting");
    if (!status)
        return;
    auto row = AnswerNode::object();
    row.add("enabled", status->enabled).add("level", wordOf(kSeverities, std::optional(status->level)));
    out.add(key, std::move(row));
}

AnswerNode logJson(Switch sw, AnswerReader &reader) {
    auto out = AnswerNode::object();
    addSink(sw, reader, LogSink::Buffered, "buffered", out);
    addSink(sw, reader, LogSink::Console, "console", out);
    if (const auto enabled = reader.value(sw.syslog(), "the syslog setting")) {
        auto syslog = AnswerNode::object();
        syslog.add("enabled", *enabled);
        out.add("syslog", std::move(syslog));
    }
    const auto rowOf = [&](std::uint32_t number) -> std::optional<AnswerNode> {
        const auto host = reader.entry(sw.logHost(number), "a log host");
        if (!host)
            return std::nullopt;
        auto row = AnswerNode::object();
        row.add("host", host->host).add("port", host->port);
        row.add("level", wordOf(kSeverities, std::optional(host->level)));
        return row;
    };
    out.add("hosts", tableJson(sw.logHosts(), reader, "the list of log hosts", rowOf));
    return out;
}

// --- images

// More than a switch of this range has.
constexpr std::size_t kUnitsMax = 16;

AnswerNode imagesJson(Switch sw, AnswerReader &reader) {
    auto out = AnswerNode::object();
    out.add("osVersion", reader.value(sw.osVersion(), "the OS version"));
    if (reader.failed())
        return out;
    const auto images = reader.require(underLock(
        platform::paths::kBootvarLock, [&] { return readBootImages(sw, kUnitsMax, reader.where()); },
        reader.where()));
    if (!images)
        return out;
    if (images->empty())
        reader.refuse("the switch shows no boot images");
    auto rows = AnswerNode::array();
    for (const BootImage &image : *images) {
        auto row = AnswerNode::object();
        row.add("unit", image.unit).add("active", image.active).add("backup", image.backup);
        row.add("currentActive", image.currentActive).add("nextActive", image.nextActive);
        rows.append(std::move(row));
    }
    out.add("units", std::move(rows));
    return out;
}

// --- RADIUS and 802.1X

AnswerNode radiusJson(Switch sw, AnswerReader &reader) {
    auto out = AnswerNode::object();
    const auto timers = reader.value(sw.radiusTimers(), "the RADIUS timers");
    out.add("timeout", fieldOf(timers, &RadiusTimers::timeout));
    out.add("retransmit", fieldOf(timers, &RadiusTimers::retransmit));
    const auto rowOf = [&](std::uint32_t number) -> std::optional<AnswerNode> {
        const auto server = reader.entry(sw.radiusServer(number), "a RADIUS server");
        const auto name = reader.value(sw.radiusServerName(number), "the name of a RADIUS server");
        if (!server)
            return std::nullopt;
        auto row = AnswerNode::object();
        row.add("host", server->host).add("name", fieldOf(name, &RadiusServerName::name));
        row.add("type", wordOf(kRadiusTypes, std::optional(server->type)));
        row.add("port", server->port).add("priority", server->priority);
        row.add("secretSet", fieldOf(name, &RadiusServerName::isSecretSet));
        return row;
    };
    out.add("servers", tableJson(sw.radiusServers(), reader, "the list of RADIUS servers", rowOf));
    return out;
}

std::optional<const char *> stateWord(const std::optional<bool> &authorized) {
    return authorized ? std::optional(*authorized ? "authorized" : "unauthorized") : std::nullopt;
}

AnswerNode portAuthJson(Switch sw, AnswerReader &reader) {
    auto out = AnswerNode::object();
    out.add("enabled", reader.value(sw.dot1x(), "the 802.1X mode"));
    const auto rowOf = [&](IfNum port) {
        auto row = AnswerNode::object();
        row.add("port", port.number()).add("name", portCliName(port));
        row.add("controlMode",
                wordOf(kControlModes, reader.value(sw.portControl(port), "the 802.1X mode of a port")));
        row.add("state", stateWord(reader.value(sw.isPortAuthorized(port), "the 802.1X state of a port")));
        const auto again = reader.value(sw.portReauthentication(port), "the reauthentication of a port");
        row.add("reauthentication", fieldOf(again, &PortReauthentication::enabled));
        row.add("reauthPeriod", fieldOf(again, &PortReauthentication::period));
        return row;
    };
    out.add("ports", tableJson(sw.ports(), reader, "the list of ports", rowOf));
    return out;
}

// --- PTP

AnswerNode ptpJson(Switch sw, AnswerReader &reader) {
    auto out = AnswerNode::object();
    out.add("transparentClock", reader.value(sw.ptpTc(), "the PTP mode"));
    out.add("dot1as", reader.value(sw.dot1as(), "the 802.1AS mode"));
    const auto rowOf = [&](IfNum port) {
        auto row = AnswerNode::object();
        row.add("port", port.number()).add("name", portCliName(port));
        row.add("transparentClock", reader.value(sw.portPtpTc(port), "the PTP mode of a port"));
        row.add("dot1as", reader.value(sw.portDot1as(port), "the 802.1AS mode of a port"));
        return row;
    };
    out.add("ports", tableJson(sw.ports(), reader, "the list of ports", rowOf));
    return out;
}

// --- VLANs

std::uint32_t numberOf(IfNum port) {
    return port.number();
}
std::uint32_t numberOf(std::uint32_t lag) {
    return lag;
}

template <class Number>
AnswerNode numbersJson(const std::vector<Number> &numbers) {
    auto out = AnswerNode::array();
    for (const Number number : numbers)
        out.append(numberOf(number));
    return out;
}

template <class Number>
AnswerNode membersJson(const std::vector<Number> &untagged, const std::vector<Number> &tagged) {
    auto out = AnswerNode::object();
    out.add("untagged", numbersJson(untagged)).add("tagged", numbersJson(tagged));
    return out;
}

AnswerNode vlanListJson(Switch sw, AnswerReader &reader) {
    auto out = AnswerNode::array();
    const auto pictures = reader.require(readWholeVlanPictures(sw, reader.where()));
    if (!pictures)
        return out;
    for (const VlanPicture &vlan : *pictures) {
        auto row = AnswerNode::object();
        row.add("vlanId", vlan.id.number()).add("name", vlan.name).add("color", vlan.color);
        row.add("isStatic", vlan.isStatic).add("isManagement", vlan.isManagement).add("ptpTc", vlan.ptpTc);
        row.add("vlanType", vlan.vlanType).add("profileType", vlan.profileType);
        const VlanMembers &members = vlan.members;
        row.add("ports", membersJson(members.untaggedPorts, members.taggedPorts));
        row.add("lags", membersJson(members.untaggedLags, members.taggedLags));
        out.append(std::move(row));
    }
    return out;
}

}  // namespace

std::int32_t systemInfoGet(openapiClientHandle_t *client, char **json) {
    return handOut(client, json, systemInfoJson);
}

std::int32_t deviceHealthGet(openapiClientHandle_t *client, char **json) {
    return handOut(client, json, deviceHealthJson);
}

std::int32_t getSpecialInfInfo(openapiClientHandle_t *client, char **json) {
    return handOut(client, json, specialInterfacesJson);
}

std::int32_t getDeviceTime(openapiClientHandle_t *client, char *json, std::size_t size) {
    return fillIn(client, json, size, deviceTimeJson);
}

std::int32_t getLogConfigJson(openapiClientHandle_t *client, char *json, std::size_t size) {
    return fillIn(client, json, size, logJson);
}

std::int32_t getImageInfo(openapiClientHandle_t *client, char *json, std::size_t size) {
    return fillIn(client, json, size, imagesJson);
}

std::int32_t getRadiusServerJson(openapiClientHandle_t *client, char *json, std::size_t size) {
    return fillIn(client, json, size, radiusJson);
}

std::int32_t getPortAuthConfigJson(openapiClientHandle_t *client, char **json) {
    return handOut(client, json, portAuthJson);
}

std::int32_t switchPtpModeGet(openapiClientHandle_t *client, char **json) {
    return handOut(client, json, ptpJson);
}

std::int32_t switchConfigVlanList(openapiClientHandle_t *client, char **json) {
    return handOut(client, json, vlanListJson);
}

}  // namespace pavo
