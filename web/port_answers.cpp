#include "web/port_answers.h"

#include <cmath>
#include <span>
#include <utility>

#include "web/json_members.h"

namespace pavo {
namespace {

// --- words; null for a value that has none

const char *wordOf(Duplex duplex) {
    switch (duplex) {
        case Duplex::Half:
            return "half";
        case Duplex::Full:
            return "full";
        case Duplex::Auto:
            break;
    }
    return nullptr;
}

const char *wordOf(ErrorDisable reason) {
    switch (reason) {
        case ErrorDisable::LinkFlap:
            return "link-flap";
        case ErrorDisable::BpduGuard:
            return "bpdu-guard";
        case ErrorDisable::PortSecurity:
            return "port-security";
        case ErrorDisable::StormControl:
            return "storm-control";
        case ErrorDisable::Udld:
            return "udld";
        case ErrorDisable::Transceiver:
            return "transceiver";
        case ErrorDisable::None:
            break;
    }
    return nullptr;
}

const char *wordOf(LagHash hash) {
    switch (hash) {
        case LagHash::SourceMac:
            return "source-mac";
        case LagHash::DestinationMac:
            return "destination-mac";
        case LagHash::Mac:
            return "mac";
        case LagHash::SourceIp:
            return "source-ip";
        case LagHash::DestinationIp:
            return "destination-ip";
        case LagHash::Ip:
            return "ip";
    }
    return nullptr;
}

const char *wordOf(MirrorDirection direction) {
    switch (direction) {
        case MirrorDirection::Rx:
            return "rx";
        case MirrorDirection::Tx:
            return "tx";
        case MirrorDirection::Both:
            return "both";
    }
    return nullptr;
}

const char *wordOf(Media media) {
    switch (media) {
        case Media::Copper:
            return "copper";
        case Media::Sfp:
            return "sfp";
    }
    return nullptr;
}

constexpr std::pair<std::uint32_t, double> kSpeeds[] = {
    {OPEN_CAPABILITY_10M, 10},     {OPEN_CAPABILITY_100M, 100},  {OPEN_CAPABILITY_1G, 1000},
    {OPEN_CAPABILITY_2500M, 2500}, {OPEN_CAPABILITY_5G, 5000},   {OPEN_CAPABILITY_10G, 10000},
    {OPEN_CAPABILITY_25G, 25000},  {OPEN_CAPABILITY_40G, 40000}, {OPEN_CAPABILITY_100G, 100000}};

// --- parts of an interface

void addInterfaces(JsonMembers &to, const char *key, const std::optional<std::vector<IfNum>> &ifNums) {
    if (!ifNums)
        return;
    auto rows = to.rows(key);
    for (const IfNum ifNum : *ifNums)
        rows.number(ifNum.number());
}

void addNumberRows(JsonMembers &to, const char *key, std::span<const std::uint32_t> numbers) {
    auto rows = to.rows(key);
    for (const auto number : numbers)
        rows.number(number);
}

void addVlans(JsonMembers &to, const PortSettings &settings) {
    if (!settings.taggedVlans)
        return;
    auto rows = to.rows("taggedVlans");
    for (const VlanId id : *settings.taggedVlans)
        rows.number(id.number());
}

void addSettings(JsonMembers &to, const PortSettings &settings) {
    to.text("description", settings.description);
    if (const auto &speed = settings.speed) {
        to.flag("autoNegotiation", speed->mbps == 0);
        if (speed->mbps == 0) {
            to.null("speedSet");
            to.null("duplexSet");
        } else {
            to.number("speedSet", speed->mbps);
            to.word("duplexSet", wordOf(speed->duplex));
        }
    }
    to.number("mtu", settings.mtu);
    if (settings.pvid)
        to.number("pvid", settings.pvid->number());
    addVlans(to, settings);
}

void addStatus(JsonMembers &to, const PortStatus &status) {
    to.flag("linkUp", status.link);
    if (status.speed) {
        to.number("speed", status.speed->mbps);
        to.word("duplex", wordOf(status.speed->duplex));
    } else if (status.link == false) {
        to.null("speed");
        to.null("duplex");
    }
    if (const auto reason = status.errorDisable) {
        to.flag("errorDisabled", *reason != ErrorDisable::None);
        if (*reason == ErrorDisable::None)
            to.null("errorReason");
        else
            to.word("errorReason", wordOf(*reason));
    }
}

void addCounts(JsonMembers &to, const PortCounts &counts) {
    auto counters = to.object("counters");
    if (const auto &c = counts.traffic) {
        counters.counter("inOctets", c->inOctets);
        counters.counter("outOctets", c->outOctets);
        counters.counter("inPackets", c->inPackets);
        counters.counter("outPackets", c->outPackets);
    }
    if (const auto &c = counts.in) {
        counters.counter("inUnicast", c->unicast);
        counters.counter("inMulticast", c->multicast);
        counters.counter("inBroadcast", c->broadcast);
    }
    if (const auto &c = counts.out) {
        counters.counter("outUnicast", c->unicast);
        counters.counter("outMulticast", c->multicast);
        counters.counter("outBroadcast", c->broadcast);
    }
    if (const auto &c = counts.errors) {
        counters.counter("inErrors", c->inErrors);
        counters.counter("outErrors", c->outErrors);
        counters.counter("inDiscards", c->inDiscards);
        counters.counter("outDiscards", c->outDiscards);
    }
}

void addHardware(JsonMembers &to, const PortHardware &hardware) {
    to.word("media", wordOf(hardware.media));
    auto capabilities = to.object("capabilities");
    auto speeds = capabilities.rows("speeds");
    for (const auto &[capability, mbps] : kSpeeds)
        if (hardware.can(capability))
            speeds.number(mbps);
    capabilities.flag("halfDuplex", hardware.can(OPEN_CAPABILITY_HALF_DUPLEX));
    capabilities.flag("autoNegotiation", hardware.can(OPEN_CAPABILITY_AUTONEG));
    capabilities.flag("poe", hardware.can(OPEN_CAPABILITY_POE));
}

void addPort(JsonMembers &&to, const InterfaceFacts &port) {
    to.number("ifNum", port.ifNum.number());
    if (port.place) {
        to.number("unit", port.place->unit);
        to.number("slot", port.place->slot);
        to.number("port", port.place->port);
    }
    to.text("name", port.name);
    to.flag("adminEnabled", port.enabled);
    if (port.settings)
        addSettings(to, *port.settings);
    if (port.status)
        addStatus(to, *port.status);
    if (port.lag == 0u)
        to.null("lag");
    else
        to.number("lag", port.lag);
    // Beside settings it is what they may be used for, by itself it is the whole story.
    if (port.hardware && port.settings)
        to.flag("poe", port.hardware->can(OPEN_CAPABILITY_POE));
    else if (port.hardware)
        addHardware(to, *port.hardware);
    if (port.counts)
        addCounts(to, *port.counts);
}

void addLag(JsonMembers &&to, const LagFacts &lag) {
    const auto &interface = lag.interface;
    to.number("ifNum", interface.ifNum.number());
    to.number("lag", lag.number);
    to.text("interface", interface.name);
    to.text("name", lag.name);
    to.flag("adminEnabled", interface.enabled);
    to.flag("static", lag.isStatic);
    if (lag.hash)
        to.word("hash", wordOf(*lag.hash));
    if (interface.status)
        addStatus(to, *interface.status);
    addInterfaces(to, "members", lag.members);
    addInterfaces(to, "activeMembers", lag.activeMembers);
    if (interface.settings)
        addSettings(to, *interface.settings);
    if (interface.counts)
        addCounts(to, *interface.counts);
}

// --- optics

// Milliwatts, and dBm with two decimals.
void addPower(JsonMembers &to, const char *key, const char *dbmKey, std::uint32_t tenthMicrowatts) {
    const double milliwatts = tenthMicrowatts / 10000.0;
    to.number(key, milliwatts);
    if (tenthMicrowatts == 0)
        to.null(dbmKey);
    else
        to.number(dbmKey, std::round(1000 * std::log10(milliwatts)) / 100);
}

void addMeasured(JsonMembers &to, const SfpFacts &sfp) {
    if (!sfp.measures)
        for (const auto *key :
             {"temperature", "voltage", "bias", "txPower", "txPowerDbm", "rxPower", "rxPowerDbm"})
            to.null(key);
    if (const auto &measured = sfp.diagnostics) {
        to.number("temperature", measured->temperature / 1000.0);
        to.number("voltage", measured->voltage / 1000.0);
        to.number("bias", measured->bias / 1000.0);
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

void addSfp(JsonMembers &&to, const SfpFacts &sfp) {
    addPort(JsonMembers(to), sfp.port);
    to.flag("present", sfp.present);
    if (!sfp.inventory)
        return;
    to.text("vendor", trimmed(sfp.inventory->vendor));
    to.text("partNumber", trimmed(sfp.inventory->partNumber));
    to.text("serial", trimmed(sfp.inventory->serial));
    if (sfp.inventory->wavelength == 0)
        to.null("wavelength");
    else
        to.number("wavelength", sfp.inventory->wavelength);
    addMeasured(to, sfp);
}

}  // namespace

char *printPorts(const std::vector<InterfaceFacts> &ports) {
    return printRows([&](JsonRows rows) {
        for (const auto &port : ports)
            addPort(rows.object(), port);
    });
}

char *printLags(const std::vector<LagFacts> &lags) {
    return printRows([&](JsonRows rows) {
        for (const auto &lag : lags)
            addLag(rows.object(), lag);
    });
}

char *printInterfaces(const std::vector<InterfaceFacts> &ports, const std::vector<LagFacts> &lags) {
    return printMembers([&](JsonMembers answer) {
        auto portRows = answer.rows("ports");
        for (const auto &port : ports)
            addPort(portRows.object(), port);
        auto lagRows = answer.rows("lags");
        for (const auto &lag : lags)
            addLag(lagRows.object(), lag);
    });
}

char *printAutoLag(const AutoLag &setting) {
    return printMembers([&](JsonMembers answer) {
        answer.flag("enabled", setting.enabled);
        answer.word("hash", wordOf(setting.hash));
    });
}

char *printManualTrunks(const ManualTrunks &trunks) {
    return printMembers([&](JsonMembers answer) {
        addNumberRows(answer, "physicalPort", trunks.ports);
        addNumberRows(answer, "lagPort", trunks.lags);
    });
}

char *printTrunks(const TrunkFacts &trunks) {
    return printMembers([&](JsonMembers answer) {
        answer.flag("enabled", trunks.automatic);
        auto rows = answer.rows("trunks");
        for (const auto &interface : trunks.interfaces)
            addPort(rows.object(), interface);
    });
}

char *printMirrors(const MirrorTable &table) {
    return printMembers([&](JsonMembers answer) {
        const auto addEnd = [&](JsonMembers &to, IfNum ifNum) {
            to.number("ifNum", ifNum.number());
            if (const auto it = table.names.find(ifNum); it != table.names.end())
                to.text("name", std::string_view(it->second));
        };
        answer.number("maxSessions", table.sessionMax);
        auto rows = answer.rows("sessions");
        for (const auto &session : table.sessions) {
            auto row = rows.object();
            row.number("session", session.session);
            row.flag("enabled", session.enabled);
            auto sources = row.rows("sources");
            for (const MirrorSource &source : session.sources) {
                auto member = sources.object();
                addEnd(member, source.ifNum);
                member.word("direction", wordOf(source.direction));
            }
            if (session.destination == IfNum{}) {
                row.null("destination");
            } else if (session.destination) {
                auto member = row.object("destination");
                addEnd(member, *session.destination);
            }
        }
    });
}

char *printOptics(const std::vector<SfpFacts> &places) {
    return printRows([&](JsonRows rows) {
        for (const auto &place : places)
            addSfp(rows.object(), place);
    });
}

}  // namespace pavo
