#include "vswitch/server/control.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "vswitch/server/server.h"

namespace vswitch {
namespace {

using nlohmann::json;

constexpr std::size_t kSessionsMax = 64;
constexpr std::uint32_t kMacsMax = 65536;
constexpr int kNestingMax = 8;
constexpr std::uint32_t kIgmpVersion = 2;  // of hosts that do not say
constexpr std::uint64_t kUint32Max = std::numeric_limits<std::uint32_t>::max();

struct Request {
    Server &server;
    std::map<std::string, CliSession> &sessions;
    const json &body;
};

// A request that cannot be carried out; the message goes to the requester.
struct Refusal : std::runtime_error {
    using std::runtime_error::runtime_error;
};

void require(open_error_t code, const char *what) {
    if (code != OPEN_E_NONE)
        throw Refusal(std::string(what) + " (code " + std::to_string(code) + ")");
}

// An integer from 0 to `max`; never converted into another number.
std::uint64_t numberOf(const json &value, std::uint64_t max) {
    if (!value.is_number_unsigned() || value.get<std::uint64_t>() > max)
        throw Refusal("not a number from 0 to " + std::to_string(max) + ": " + value.dump());
    return value.get<std::uint64_t>();
}

std::uint32_t memberNumber(const json &body, const char *name, std::uint32_t otherwise,
                           std::uint64_t max = kUint32Max) {
    const auto it = body.find(name);
    return it == body.end() ? otherwise : static_cast<std::uint32_t>(numberOf(*it, max));
}

Mac macOf(const json &value) {
    const auto mac = Mac::parse(value.get<std::string>());
    if (!mac)
        throw Refusal("not a MAC address: " + value.get<std::string>());
    return *mac;
}

// A port number, or a name such as "0/5".
IfNum portOf(const json &body) {
    const auto &port = body.at("port");
    if (port.is_number())
        return static_cast<IfNum>(numberOf(port, kInterfacesMax));
    const auto text = port.get<std::string>();
    IfNum number = 0;
    const auto *end = text.data() + text.size();
    const auto parsed =
        text.starts_with("0/") ? std::from_chars(text.data() + 2, end, number) : std::from_chars_result{};
    if (parsed.ptr != end || parsed.ec != std::errc{})
        throw Refusal("not a port: " + text);
    return number;
}

Ipv4 groupOf(const std::string &text) {
    const auto group = parseIpv4(text);
    if (!group || *group >> 28 != 0xE)
        throw Refusal("not a multicast group: " + text);
    return *group;
}

Device deviceOf(const json &body) {
    Device device;
    device.name = body.at("name").get<std::string>();
    device.port = portOf(body);
    device.behind = body.value("behind", "");
    device.tag = memberNumber(body, "vlan", 0, kVlanMax);
    device.ip = body.value("ip", "");
    device.talking = body.value("talking", true);
    device.speed = memberNumber(body, "speed", 0);
    device.halfDuplex = body.value("halfDuplex", false);
    const auto count = memberNumber(body, "count", 1, kMacsMax);
    if (body.contains("mac")) {
        const auto first = macOf(body["mac"]);
        for (std::uint32_t n = 0; n < count; ++n)
            device.macs.push_back(first.plus(n));
    }
    if (body.contains("macs"))
        for (const auto &mac : body["macs"])
            device.macs.push_back(macOf(mac));
    if (body.contains("groups"))
        for (const auto &group : body["groups"].get<std::vector<std::string>>())
            device.groups[groupOf(group)] = kIgmpVersion;
    if (device.macs.size() > kMacsMax)
        throw Refusal("more than " + std::to_string(kMacsMax) + " addresses");
    if (body.contains("lldp")) {
        const auto &in = body["lldp"];
        LldpFields lldp;
        const auto own = device.macs.empty() ? std::string() : device.macs.front().text();
        lldp.chassisId = in.value("chassisId", own);
        lldp.chassisIdSubtype = memberNumber(in, "chassisIdSubtype", lldp.chassisIdSubtype);
        lldp.portId = in.value("portId", own);
        lldp.portIdSubtype = memberNumber(in, "portIdSubtype", lldp.portIdSubtype);
        lldp.portDesc = in.value("portDesc", "");
        lldp.systemName = in.value("systemName", device.name);
        lldp.systemDesc = in.value("systemDesc", "");
        lldp.mgmtAddress = in.value("mgmtAddress", device.ip);
        lldp.capabilities = in.value("capabilities", "");
        lldp.ttl = memberNumber(in, "ttl", lldp.ttl);
        device.lldp = std::move(lldp);
    }
    return device;
}

CliSession &sessionOf(const Request &request) {
    const auto id = request.body.value("session", "default");
    if (!request.sessions.contains(id) && request.sessions.size() >= kSessionsMax)
        request.sessions.clear();
    return request.sessions[id];
}

// --- operations

json plug(const Request &r) {
    require(r.server.model().plug(deviceOf(r.body)), "cannot plug: name or address in use, or no such port");
    return {};
}

json unplug(const Request &r) {
    require(r.server.model().unplug(r.body.at("name").get<std::string>()), "no such device");
    return {};
}

json moveDevice(const Request &r) {
    require(r.server.model().move(r.body.at("name").get<std::string>(), portOf(r.body),
                                  r.body.value("behind", "")),
            "no such device or port");
    return {};
}

json talk(const Request &r) {
    require(r.server.model().setTalking(r.body.at("name").get<std::string>(), r.body.value("on", true)),
            "no such device");
    return {};
}

// Joins or leaves `count` consecutive groups.
json igmp(const Request &r) {
    const auto action = r.body.at("action").get<std::string>();
    if (action != "join" && action != "leave")
        throw Refusal("action is join or leave");
    const auto name = r.body.at("name").get<std::string>();
    const auto first = groupOf(r.body.at("group").get<std::string>());
    const auto count = memberNumber(r.body, "count", 1, r.server.model().config().igmpGroupsMax);
    const auto version = memberNumber(r.body, "version", kIgmpVersion);
    if (count > 0 && (first + (count - 1)) >> 28 != 0xE)
        throw Refusal("not so many groups after " + ipv4Text(first));
    for (Ipv4 group = first; group < first + count; ++group)
        if (action == "join")
            require(r.server.model().joinGroup(name, group, version), "no such device, or no IGMP version");
        else
            require(r.server.model().leaveGroup(name, group), "no such device, or it has not joined");
    return {};
}

json link(const Request &r) {
    const auto state = r.body.at("state").get<std::string>();
    if (state != "up" && state != "down" && state != "auto")
        throw Refusal("state is up, down or auto");
    const auto carrier = state == "up"     ? Carrier::ForcedUp
                         : state == "down" ? Carrier::ForcedDown
                                           : Carrier::FollowDevices;
    require(r.server.model().setCarrier(portOf(r.body), carrier), "no such port");
    return {};
}

// --- hardware

constexpr const char *kUnitStates[] = {"operational", "failed", "absent"};
constexpr std::int32_t kCelsiusMin = -100, kCelsiusMax = 300;

UnitState unitStateOf(const json &body) {
    const auto state = body.at("state").get<std::string>();
    const auto *const found = std::ranges::find(kUnitStates, state);
    if (found == std::end(kUnitStates))
        throw Refusal("state is operational, failed or absent");
    return static_cast<UnitState>(found - std::begin(kUnitStates) + OPEN_UNIT_OPERATIONAL);
}

const char *unitStateText(UnitState state) {
    return kUnitStates[static_cast<std::uint32_t>(state) - OPEN_UNIT_OPERATIONAL];
}

std::uint32_t unitNumber(const json &body, const char *name) {
    return static_cast<std::uint32_t>(numberOf(body.at(name), kUint32Max));
}

void changeTemperature(Model &model, const json &body) {
    const auto sensor = unitNumber(body, "sensor");
    const bool known = sensor >= 1 && sensor <= model.health().sensors.size();
    std::int64_t celsius = known ? model.health().sensors[sensor - 1].celsius : 0;
    if (const auto given = body.find("celsius"); given != body.end()) {
        if (!given->is_number_integer() || given->get<std::int64_t>() < kCelsiusMin ||
            given->get<std::int64_t>() > kCelsiusMax)
            throw Refusal("not a temperature: " + given->dump());
        celsius = given->get<std::int64_t>();
    }
    require(model.setTemperature(sensor, static_cast<std::int32_t>(celsius), !body.value("failed", false)),
            "no such sensor");
}

void changeFan(Model &model, const json &body) {
    const auto fan = unitNumber(body, "fan");
    const auto state = unitStateOf(body);
    const bool known = fan >= 1 && fan <= model.health().fans.size();
    const auto rpm = known && model.health().fans[fan - 1].rpm > 0 ? model.health().fans[fan - 1].rpm
                                                                   : Health{}.fans.front().rpm;
    require(model.setFan(fan, state, memberNumber(body, "rpm", rpm, kFanRpmMax)), "no such fan");
}

json healthOf(const Model &model) {
    static constexpr const char *kSensorStates[] = {"normal", "warning", "critical", "failed"};
    const auto &health = model.health();
    auto sensors = json::array(), fans = json::array(), supplies = json::array();
    for (const auto &s : health.sensors)
        sensors.push_back({{"name", s.name},
                           {"celsius", s.celsius},
                           {"warningAbove", s.warningAbove},
                           {"criticalAbove", s.criticalAbove},
                           {"state", kSensorStates[s.state() - OPEN_TEMP_NORMAL]}});
    for (const auto &fan : health.fans)
        fans.push_back({{"name", fan.name}, {"rpm", fan.rpm}, {"state", unitStateText(fan.state)}});
    for (const auto &supply : health.supplies)
        supplies.push_back({{"name", supply.name}, {"state", unitStateText(supply.state)}});
    return {{"sensors", sensors},
            {"fans", fans},
            {"supplies", supplies},
            {"cpu", health.cpuPercent},
            {"memory", {{"totalKb", health.memoryTotalKb}, {"freeKb", health.memoryFreeKb}}}};
}

json health(const Request &r) {
    Model &model = r.server.model();
    Model changed = model.settled();  // all of a request or nothing
    const auto change = [&](Model &target) {
        if (const auto part = r.body.find("temperature"); part != r.body.end())
            changeTemperature(target, *part);
        if (const auto part = r.body.find("fan"); part != r.body.end())
            changeFan(target, *part);
        if (const auto part = r.body.find("power"); part != r.body.end())
            require(target.setPowerSupply(unitNumber(*part, "supply"), unitStateOf(*part)),
                    "no such power supply");
        const auto cpu = memberNumber(r.body, "cpu", target.health().cpuPercent, 100);
        const auto memory = r.body.value("memory", json::object());
        require(target.setLoad(cpu, memberNumber(memory, "totalKb", target.health().memoryTotalKb),
                               memberNumber(memory, "freeKb", target.health().memoryFreeKb)),
                "more memory free than there is");
    };
    change(changed);
    change(model);
    return healthOf(model);
}

json supplicant(const Request &r) {
    auto &model = r.server.model();
    const auto port = portOf(r.body);
    const auto *found = model.interface(port);
    require(r.body.value("later", false) ? model.rejectSupplicant(port)
                                         : model.setSupplicant(port, r.body.value("accepted", true)),
            found != nullptr && found->live ? "the devices of a live port authenticate themselves"
                                            : "no such port, or no link on it");
    return {};
}

// An integer of 32 bits with a sign.
std::int32_t signedNumberOf(const json &value) {
    if (!value.is_number_integer() || value.get<std::int64_t>() != value.get<std::int32_t>())
        throw Refusal("not a number of 32 bits: " + value.dump());
    return value.get<std::int32_t>();
}

json sfp(const Request &r) {
    std::optional<SfpModule> module;
    if (!r.body.value("remove", false)) {
        module.emplace();
        module->vendor = r.body.value("vendor", "");
        module->partNumber = r.body.value("part", "");
        module->serial = r.body.value("serial", "");
        module->wavelength = memberNumber(r.body, "wavelength", 0);
        const auto &body = r.body;
        if (body.contains("temperature") || body.contains("txPower") || body.contains("rxPower")) {
            SfpDiagnostics measured;
            if (body.contains("temperature"))
                measured.temperature = signedNumberOf(body["temperature"]);
            measured.voltage = memberNumber(body, "voltage", 3300);
            measured.bias = memberNumber(body, "bias", 6000);
            measured.txPower = memberNumber(body, "txPower", 5000);
            measured.rxPower = memberNumber(body, "rxPower", 5000);
            module->diagnostics = measured;
        }
    }
    require(r.server.model().setSfp(portOf(r.body), std::move(module)), "no port with a cage");
    return {};
}

json errorDisable(const Request &r) {
    const auto reason = errorReasonOf(r.body.at("reason").get<std::string>());
    if (!reason)
        throw Refusal("no such reason: " + r.body["reason"].get<std::string>());
    require(r.server.model().setErrorDisabled(portOf(r.body), *reason), "no such port");
    return {};
}

json addErrors(const Request &r) {
    constexpr auto kMost = std::numeric_limits<std::uint64_t>::max();
    PortCounters more;
    const std::pair<const char *, std::uint64_t PortCounters::*> kinds[] = {
        {"inErrors", &PortCounters::inErrors},
        {"outErrors", &PortCounters::outErrors},
        {"inDiscards", &PortCounters::inDiscards},
        {"outDiscards", &PortCounters::outDiscards}};
    for (const auto &[name, field] : kinds)
        if (const auto it = r.body.find(name); it != r.body.end())
            more.*field = numberOf(*it, kMost);
    require(r.server.model().addErrors(portOf(r.body), more), "no simulated port");
    return {};
}

json cliLine(const Request &r) {
    auto &session = sessionOf(r);
    const auto output = r.server.cli().run(session, r.body.value("line", ""));
    return {{"output", output}, {"prompt", r.server.cli().prompt(session)}};
}

json cliHelp(const Request &r) {
    return {{"output", r.server.cli().help(sessionOf(r), r.body.value("line", ""))}};
}

json execLines(const Request &r) {
    CliSession session;
    std::string output;
    for (const auto &line : r.body.at("lines").get<std::vector<std::string>>())
        output += r.server.cli().run(session, line);
    return {{"output", output}};
}

json latency(const Request &r) {
    if (r.body.contains("ms"))
        r.server.model().setLatency(std::chrono::milliseconds(memberNumber(r.body, "ms", 0)));
    return {
        {"ms", std::chrono::duration_cast<std::chrono::milliseconds>(r.server.model().latency()).count()}};
}

json addFault(const Request &r) {
    Fault fault;
    fault.call = r.body.value("call", "*");
    fault.nth = std::max(1u, memberNumber(r.body, "nth", 1));
    if (const auto code = r.body.find("code"); code != r.body.end()) {
        if (!code->is_number_integer() || code->get<open_error_t>() != code->get<std::int64_t>())
            throw Refusal("not a code: " + code->dump());
        fault.code = code->get<open_error_t>();
    }
    fault.once = r.body.value("once", false);
    fault.process = r.body.value("process", "");
    if (const auto kill = r.body.find("kill"); kill != r.body.end()) {
        const auto when = kill->get<std::string>();
        if (when != "before" && when != "after")
            throw Refusal("kill is before or after: " + when);
        fault.kill = when == "before" ? KillCaller::Before : KillCaller::After;
    }
    r.server.addFault(std::move(fault));
    return {};
}

json faults(const Request &r) {
    if (r.body.value("clear", false))
        r.server.clearFaults();
    auto rows = json::array();
    for (const auto &f : r.server.faults()) {
        json row = {{"call", f.call}, {"nth", f.nth}, {"once", f.once}, {"seen", f.seen}};
        if (f.kill == KillCaller::No)
            row["code"] = f.code;
        else
            row["kill"] = f.kill == KillCaller::Before ? "before" : "after";
        if (!f.process.empty())
            row["process"] = f.process;
        rows.push_back(std::move(row));
    }
    return {{"faults", rows}};
}

json counters(const Request &r) {
    auto &server = r.server;
    json out = {{"calls", server.callCounts()},
                {"total", server.callTotal()},
                {"unknownCommands", server.cli().unknownCommands()},
                {"refusedCommands", server.cli().refusedCommands()},
                {"fdbRefused", server.model().fdbRefused()},
                {"igmpRefused", server.model().igmpRefused()}};
    if (r.body.value("reset", false))
        server.resetCounts();
    return out;
}

json dataPlane(const Request &r) {
    const auto *plane = r.server.dataPlane();
    if (plane == nullptr)
        return {{"driver", "scenario"}, {"settled", true}};
    const auto status = plane->status();
    auto processes = json::array();
    for (const auto &process : status.processes)
        processes.push_back({{"name", process.name}, {"pid", process.pid}, {"starts", process.starts}});
    return {{"driver", status.driver},
            {"ports", plane->ports()},
            {"settled", r.server.settled()},
            {"processes", processes},
            {"flows", status.flows},
            {"flowChanges", status.flowChanges},
            {"lastFlowChanges", status.lastFlowChanges},
            {"lastPushMs", status.lastPushMs}};
}

json timeOf(const std::timespec &wall) {
    return static_cast<double>(wall.tv_sec) + static_cast<double>(wall.tv_nsec) / 1e9;
}

json events(const Request &r) {
    const auto &all = r.server.model().events();
    const auto asked = r.body.find("since");
    const auto since =
        asked == r.body.end() ? 0 : numberOf(*asked, std::numeric_limits<std::uint64_t>::max());
    auto rows = json::array();
    for (const auto &event : all)
        if (event.number > since)
            rows.push_back({{"number", event.number},
                            {"time", timeOf(event.wall)},
                            {"kind", event.kind},
                            {"text", event.text}});
    return {{"events", rows}, {"last", all.empty() ? since : all.back().number}};
}

// --- tables

std::string nameOf(const Model &model, IfNum ifNum) {
    const auto *interface = model.interface(ifNum);
    return interface != nullptr ? interface->name() : "";
}

json interfaceRow(const Model &model, const Interface &i) {
    json tagged = json::array(), included = json::array();
    for (const auto &[id, m] : i.vlans) {
        if (m.participation == OPEN_VLAN_PARTICIPATION_MODE_INCLUDE)
            included.push_back(id);
        if (m.tagged)
            tagged.push_back(id);
    }
    return {{"ifNum", i.num},
            {"name", i.name()},
            {"admin", i.adminUp},
            {"link", i.linkUp},
            {"pvid", i.pvid},
            {"tagged", tagged},
            {"included", included},
            {"lag", nameOf(model, i.lag)},
            {"live", i.live},
            {"speed", i.speed},
            {"mtu", i.mtu},
            {"dot1x", i.dot1xControlMode},
            {"authorized", model.authorized(i.num)},
            {"ptpTc", i.ptpTcEnabled}};
}

json counterRows(const Model &model) {
    auto rows = json::array();
    for (const auto &[num, i] : model.interfaces()) {
        const auto n = model.counters(num);
        rows.push_back({{"name", i.name()},
                        {"inOctets", n.inOctets},
                        {"outOctets", n.outOctets},
                        {"inPackets", n.inPackets},
                        {"outPackets", n.outPackets},
                        {"inErrors", n.inErrors},
                        {"outErrors", n.outErrors},
                        {"inDiscards", n.inDiscards},
                        {"outDiscards", n.outDiscards}});
    }
    return rows;
}

json sfpRows(const Model &model) {
    auto rows = json::array();
    for (const auto &[num, i] : model.interfaces())
        if (const auto module = model.sfp(num))
            rows.push_back({{"port", i.name()},
                            {"vendor", module->vendor},
                            {"part", module->partNumber},
                            {"serial", module->serial},
                            {"wavelength", module->wavelength}});
    return rows;
}

json portRows(const Model &model) {
    auto rows = json::array();
    for (const auto &[num, i] : model.interfaces())
        if (!i.isLag())
            rows.push_back(interfaceRow(model, i));
    return rows;
}

json lagRows(const Model &model) {
    auto rows = json::array();
    for (const auto &[num, i] : model.interfaces())
        if (i.isLag()) {
            auto row = interfaceRow(model, i);
            row["members"] = i.members;
            row["static"] = i.lagStatic;
            row["lagName"] = i.lagName;
            rows.push_back(std::move(row));
        }
    return rows;
}

json vlanRows(const Model &model) {
    auto rows = json::array();
    for (const auto &[id, vlan] : model.vlans())
        rows.push_back({{"id", id}, {"name", vlan.name}, {"static", vlan.isStatic}});
    return rows;
}

json associationRows(const Model &model) {
    auto rows = json::array();
    for (const auto &[mac, id] : model.macAssociations())
        rows.push_back({{"mac", mac.text()}, {"vlan", id}});
    return rows;
}

json fdbRows(const Model &model) {
    auto rows = json::array();
    for (const auto &[key, entry] : model.fdb())
        rows.push_back({{"mac", key.mac.text()},
                        {"vlan", key.vlan},
                        {"interface", nameOf(model, entry.ifNum)},
                        {"port", entry.port},
                        {"learned", entry.type == OPEN_FDB_ADDR_LEARNED}});
    return rows;
}

json lldpRows(const Model &model) {
    auto rows = json::array();
    for (const auto &[port, neighbours] : model.lldp())
        for (const auto &[index, n] : neighbours)
            rows.push_back({{"port", port},
                            {"remIndex", index},
                            {"chassisId", n.fields.chassisId},
                            {"portId", n.fields.portId},
                            {"portDesc", n.fields.portDesc},
                            {"systemName", n.fields.systemName},
                            {"systemDesc", n.fields.systemDesc},
                            {"mgmtAddress", n.fields.mgmtAddress},
                            {"capabilities", n.fields.capabilities}});
    return rows;
}

json arpRows(const Model &model) {
    auto rows = json::array();
    for (const auto &[key, mac] : model.arp())
        rows.push_back({{"ip", key.ip}, {"mac", mac.text()}, {"vlan", key.vlan}});
    return rows;
}

json igmpRows(const Model &model) {
    auto rows = json::array();
    for (const auto &[key, subscribers] : model.igmpGroups())
        for (const auto &[host, subscriber] : subscribers)
            rows.push_back({{"vlan", key.vlan},
                            {"group", ipv4Text(key.group)},
                            {"interface", nameOf(model, host.interface)},
                            {"host", ipv4Text(host.host)},
                            {"mac", subscriber.mac.text()},
                            {"version", subscriber.version}});
    return rows;
}

json deviceRows(const Model &model) {
    auto rows = json::array();
    for (const auto &[name, d] : model.devices()) {
        auto macs = json::array();
        for (const auto &mac : d.macs)
            macs.push_back(mac.text());
        rows.push_back(
            {{"name", name}, {"port", d.port}, {"behind", d.behind}, {"macs", macs}, {"talking", d.talking}});
    }
    return rows;
}

json logRows(const Model &model) {
    auto rows = json::array();
    for (const auto &line : model.logLines())
        rows.push_back({{"number", line.number},
                        {"time", timeOf(line.wall)},
                        {"severity", line.severity},
                        {"component", line.component},
                        {"place", line.place},
                        {"text", line.text}});
    return rows;
}

constexpr std::pair<const char *, json (*)(const Model &)> kTables[] = {
    {"ports", portRows}, {"lags", lagRows},         {"vlans", vlanRows}, {"associations", associationRows},
    {"fdb", fdbRows},    {"lldp", lldpRows},        {"arp", arpRows},    {"devices", deviceRows},
    {"igmp", igmpRows},  {"counters", counterRows}, {"sfp", sfpRows},    {"log", logRows}};

json tableOf(const Request &r) {
    const auto name = r.body.at("name").get<std::string>();
    for (const auto &[known, rows] : kTables)
        if (name == known)
            return {{"rows", rows(r.server.model())}};
    throw Refusal("no such table: " + name);
}

constexpr std::pair<const char *, json (*)(const Request &)> kOperations[] = {{"plug", plug},
                                                                              {"unplug", unplug},
                                                                              {"move", moveDevice},
                                                                              {"talk", talk},
                                                                              {"igmp", igmp},
                                                                              {"health", health},
                                                                              {"supplicant", supplicant},
                                                                              {"link", link},
                                                                              {"cli", cliLine},
                                                                              {"help", cliHelp},
                                                                              {"exec", execLines},
                                                                              {"latency", latency},
                                                                              {"fault", addFault},
                                                                              {"faults", faults},
                                                                              {"table", tableOf},
                                                                              {"events", events},
                                                                              {"counters", counters},
                                                                              {"dataplane", dataPlane},
                                                                              {"sfp", sfp},
                                                                              {"errdisable", errorDisable},
                                                                              {"errors", addErrors}};

json answer(Server &server, std::map<std::string, CliSession> &sessions, const std::string &text) {
    const auto body = json::parse(text, [](int depth, json::parse_event_t, json &) {
        return depth <= kNestingMax ? true : throw Refusal("nested too deeply");
    });
    const auto op = body.at("op").get<std::string>();
    for (const auto &[name, run] : kOperations)
        if (op == name) {
            auto out = run({server, sessions, body});
            out["ok"] = true;
            return out;
        }
    throw Refusal("no such operation: " + op);
}

}  // namespace

std::string runControl(Server &server, std::map<std::string, CliSession> &sessions, const std::string &text) {
    json out;
    try {
        out = answer(server, sessions, text);
    } catch (const std::exception &e) {
        out = {{"ok", false}, {"error", e.what()}};
    }
    // Strings from devices may hold bytes that are not UTF-8.
    return out.dump(-1, ' ', false, json::error_handler_t::replace);
}

}  // namespace vswitch
