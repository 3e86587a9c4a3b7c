#include "web/port_answers.h"

#include <cmath>
#include <utility>

namespace pavo {
namespace {

// --- words

constexpr Word<Duplex> kDuplexes[] = {{Duplex::Half, "half"}, {Duplex::Full, "full"}};
constexpr Word<ErrorDisable> kErrors[] = {{ErrorDisable::LinkFlap, "link-flap"},
                                          {ErrorDisable::BpduGuard, "bpdu-guard"},
                                          {ErrorDisable::PortSecurity, "port-security"},
                                          {ErrorDisable::StormControl, "storm-control"},
                                          {ErrorDisable::Udld, "udld"},
                                          {ErrorDisable::Transceiver, "transceiver"}};
constexpr Word<LagHash> kHashes[] = {
    {LagHash::SourceMac, "source-mac"}, {LagHash::DestinationMac, "destination-mac"}, {LagHash::Mac, "mac"},
    {LagHash::SourceIp, "source-ip"},   {LagHash::DestinationIp, "destination-ip"},   {LagHash::Ip, "ip"}};
constexpr Word<MirrorDirection> kDirections[] = {
    {MirrorDirection::Rx, "rx"}, {MirrorDirection::Tx, "tx"}, {MirrorDirection::Both, "both"}};
constexpr Word<Media> kMedia[] = {{Media::Copper, "copper"}, {Media::Sfp, "sfp"}};

template <class Number, std::size_t N>
std::optional<const char *> wordOf(const Word<Number> (&words)[N], Number number) {
    return wordOf(words, std::optional(number));
}

constexpr std::pair<std::uint32_t, std::uint32_t> kSpeeds[] = {
    {OPEN_CAPABILITY_10M, 10},     {OPEN_CAPABILITY_100M, 100},  {OPEN_CAPABILITY_1G, 1000},
    {OPEN_CAPABILITY_2500M, 2500}, {OPEN_CAPABILITY_5G, 5000},   {OPEN_CAPABILITY_10G, 10000},
    {OPEN_CAPABILITY_25G, 25000},  {OPEN_CAPABILITY_40G, 40000}, {OPEN_CAPABILITY_100G, 100000}};

// --- parts of an interface

// The numbers of interfaces or VLANs.
template <class Ids>
AnswerNode numbersOf(const Ids &ids) {
    auto rows = AnswerNode::array();
    for (const auto &id : ids)
        rows.append(id.number());
    return rows;
}

void addSettings(AnswerNode &to, const PortSettings &settings) {
    to.add("description", settings.description);
    if (const auto &speed = settings.speed) {
        to.add("autoNegotiation", speed->mbps == 0);
        if (speed->mbps == 0)
            to.addNull("speedSet").addNull("duplexSet");
        else
            to.add("speedSet", speed->mbps).add("duplexSet", wordOf(kDuplexes, speed->duplex));
    }
    to.add("mtu", settings.mtu);
    if (settings.pvid)
        to.add("pvid", settings.pvid->number());
    if (settings.taggedVlans)
        to.add("taggedVlans", numbersOf(*settings.taggedVlans));
}

void addStatus(AnswerNode &to, const PortStatus &status) {
    to.add("linkUp", status.link);
    if (status.speed)
        to.add("speed", status.speed->mbps).add("duplex", wordOf(kDuplexes, status.speed->duplex));
    else if (status.link == false)
        to.addNull("speed").addNull("duplex");
    if (const auto reason = status.errorDisable) {
        to.add("errorDisabled", *reason != ErrorDisable::None);
        if (*reason == ErrorDisable::None)
            to.addNull("errorReason");
        else
            to.add("errorReason", wordOf(kErrors, *reason));
    }
}

void addCounts(AnswerNode &to, const PortCounts &counts) {
    auto counters = AnswerNode::object();
    if (const auto &c = counts.traffic) {
        counters.addCounter("inOctets", c->inOctets).addCounter("outOctets", c->outOctets);
        counters.addCounter("inPackets", c->inPackets).addCounter("outPackets", c->outPackets);
    }
    if (const auto &c = counts.in)
        counters.addCounter("inUnicast", c->unicast)
            .addCounter("inMulticast", c->multicast)
            .addCounter("inBroadcast", c->broadcast);
    if (const auto &c = counts.out)
        counters.addCounter("outUnicast", c->unicast)
            .addCounter("outMulticast", c->multicast)
            .addCounter("outBroadcast", c->broadcast);
    if (const auto &c = counts.errors) {
        counters.addCounter("inErrors", c->inErrors).addCounter("outErrors", c->outErrors);
        counters.addCounter("inDiscards", c->inDiscards).addCounter("outDiscards", c->outDiscards);
    }
    to.add("counters", std::move(counters));
}

void addHardware(AnswerNode &to, const PortHardware &hardware) {
    auto speeds = AnswerNode::array();
    for (const auto &[capability, mbps] : kSpeeds)
        if (hardware.can(capability))
            speeds.append(mbps);
    auto capabilities = AnswerNode::object();
    capabilities.add("speeds", std::move(speeds));
    capabilities.add("halfDuplex", hardware.can(OPEN_CAPABILITY_HALF_DUPLEX));
    capabilities.add("autoNegotiation", hardware.can(OPEN_CAPABILITY_AUTONEG));
    capabilities.add("poe", hardware.can(OPEN_CAPABILITY_POE));
    to.add("media", wordOf(kMedia, hardware.media)).add("capabilities", std::move(capabilities));
}

AnswerNode portRow(const InterfaceFacts &port) {
    auto row = AnswerNode::object();
    row.add("ifNum", port.ifNum.number());
    if (port.place)
        row.add("unit", port.place->unit).add("slot", port.place->slot).add("port", port.place->port);
    row.add("name", port.name).add("adminEnabled", port.enabled);
    if (port.settings)
        addSettings(row, *port.settings);
    if (port.status)
        addStatus(row, *port.status);
    if (port.lag == 0u)
        row.addNull("lag");
    else
        row.add("lag", port.lag);
    // Beside settings it is what they may be used for, by itself it is the whole story.
    if (port.hardware && port.settings)
        row.add("poe", port.hardware->can(OPEN_CAPABILITY_POE));
    else if (port.hardware)
        addHardware(row, *port.hardware);
    if (port.counts)
        addCounts(row, *port.counts);
    return row;
}

AnswerNode lagRow(const LagFacts &lag) {
    const auto &interface = lag.interface;
    auto row = AnswerNode::object();
    row.add("ifNum", interface.ifNum.number()).add("lag", lag.number);
    row.add("interface", interface.name).add("name", lag.name);
    row.add("adminEnabled", interface.enabled).add("static", lag.isStatic);
    row.add("hash", wordOf(kHashes, lag.hash));
    if (interface.status)
        addStatus(row, *interface.status);
    if (lag.members)
        row.add("members", numbersOf(*lag.members));
    if (lag.activeMembers)
        row.add("activeMembers", numbersOf(*lag.activeMembers));
    if (interface.settings)
        addSettings(row, *interface.settings);
    if (interface.counts)
        addCounts(row, *interface.counts);
    return row;
}

// --- optics

// Milliwatts, and dBm with two decimals.
void addPower(AnswerNode &to, const char *key, const char *dbmKey, std::uint32_t tenthMicrowatts) {
    const double milliwatts = tenthMicrowatts / 10000.0;
    to.add(key, milliwatts);
    if (tenthMicrowatts == 0)
        to.addNull(dbmKey);
    else
        to.add(dbmKey, std::round(1000 * std::log10(milliwatts)) / 100);
}

void addMeasured(AnswerNode &to, const SfpFacts &sfp) {
    if (!sfp.measures)
        for (const auto *key :
             {"temperature", "voltage", "bias", "txPower", "txPowerDbm", "rxPower", "rxPowerDbm"})
            to.addNull(key);
    if (const auto &measured = sfp.diagnostics) {
        to.add("temperature", measured->temperature / 1000.0);
        to.add("voltage", measured->voltage / 1000.0);
        to.add("bias", measured->bias / 1000.0);
    }
    if (const auto &power = sfp.power) {
        addPower(to, "txPower", "txPowerDbm", power->tx);
        addPower(to, "rxPower", "rxPowerDbm", power->rx);
    }
}

// The strings are padded with blanks to their width.
std::string_view trimmed(std::string_view text) {
    return text.substr(0, text.find_last_not_of(' ') + 1);
}

AnswerNode sfpRow(const SfpFacts &sfp) {
    auto row = portRow(sfp.port);
    row.add("present", sfp.present);
    if (!sfp.inventory)
        return row;
    row.add("vendor", trimmed(sfp.inventory->vendor));
    row.add("partNumber", trimmed(sfp.inventory->partNumber));
    row.add("serial", trimmed(sfp.inventory->serial));
    if (sfp.inventory->wavelength == 0)
        row.addNull("wavelength");
    else
        row.add("wavelength", sfp.inventory->wavelength);
    addMeasured(row, sfp);
    return row;
}

// --- mirror sessions

AnswerNode mirrorEnd(const MirrorTable &table, IfNum ifNum) {
    auto end = AnswerNode::object();
    end.add("ifNum", ifNum.number());
    if (const auto it = table.names.find(ifNum); it != table.names.end())
        end.add("name", it->second);
    return end;
}

AnswerNode mirrorRow(const MirrorTable &table, const MirrorFacts &session) {
    auto sources = AnswerNode::array();
    for (const MirrorSource &source : session.sources)
        sources.append(std::move(
            mirrorEnd(table, source.ifNum).add("direction", wordOf(kDirections, source.direction))));
    auto row = AnswerNode::object();
    row.add("session", session.session).add("enabled", session.enabled).add("sources", std::move(sources));
    if (session.destination == IfNum{})
        row.addNull("destination");
    else if (session.destination)
        row.add("destination", mirrorEnd(table, *session.destination));
    return row;
}

template <class Items, class Row>
AnswerNode rowsOf(const Items &items, Row row) {
    auto rows = AnswerNode::array();
    for (const auto &item : items)
        rows.append(row(item));
    return rows;
}

}  // namespace

AnswerNode portsAnswer(const std::vector<InterfaceFacts> &ports) {
    return rowsOf(ports, portRow);
}

AnswerNode lagsAnswer(const std::vector<LagFacts> &lags) {
    return rowsOf(lags, lagRow);
}

AnswerNode interfacesAnswer(const std::vector<InterfaceFacts> &ports, const std::vector<LagFacts> &lags) {
    auto answer = AnswerNode::object();
    answer.add("ports", portsAnswer(ports)).add("lags", lagsAnswer(lags));
    return answer;
}

AnswerNode autoLagAnswer(const AutoLag &setting) {
    auto answer = AnswerNode::object();
    answer.add("enabled", setting.enabled).add("hash", wordOf(kHashes, setting.hash));
    return answer;
}

AnswerNode manualTrunksAnswer(const ManualTrunks &trunks) {
    const auto itself = [](std::uint32_t number) { return number; };
    auto answer = AnswerNode::object();
    answer.add("physicalPort", rowsOf(trunks.ports, itself)).add("lagPort", rowsOf(trunks.lags, itself));
    return answer;
}

AnswerNode trunksAnswer(const TrunkFacts &trunks) {
    auto answer = AnswerNode::object();
    answer.add("enabled", trunks.automatic).add("trunks", rowsOf(trunks.interfaces, portRow));
    return answer;
}

AnswerNode mirrorsAnswer(const MirrorTable &table) {
    auto answer = AnswerNode::object();
    answer.add("maxSessions", table.sessionMax);
    answer.add("sessions",
               rowsOf(table.sessions, [&](const auto &session) { return mirrorRow(table, session); }));
    return answer;
}

AnswerNode opticsAnswer(const std::vector<SfpFacts> &places) {
    return rowsOf(places, sfpRow);
}

}  // namespace pavo
