#include "web/port_facts.h"

#include <algorithm>
#include <utility>

#include "common/log.h"

namespace pavo {
namespace {

// More sessions than any switch has.
constexpr std::uint32_t kSessionsMax = 64;

// Makes absent values of failed reads. One line of the log tells of all of them, or of what made the reading
// fail.
class Reading {
  public:
    Reading(Switch sw, const Where &where) : sw_(sw), where_(where) {}
    Reading(const Reading &) = delete;
    Reading &operator=(const Reading &) = delete;
    ~Reading() {
        if (failures_ > 0)
            logWarn(where_,
                    "[%s:%d] %u values could not be read, first the %s of interface or session %d (result = "
                    "%d)\n",
                    failures_, std::string(firstWhat_), firstIfNum_, firstError_);
    }

    Switch sw() const { return sw_; }

    // That something is not there, or not offered, is no failure.
    template <class T>
    std::optional<T> value(OpenResult<T> read, const char *what, IfNum ifNum) {
        if (read)
            return std::move(*read);
        if (read.error() != OpenError::NotFound && read.error() != OpenError::Unavailable)
            count(read.error(), what, ifNum);
        return std::nullopt;
    }
    [[nodiscard]] std::unexpected<Failure> fail(const std::string &what, OpenError code) {
        failures_ = 0;
        logError(where_, "[%s:%d] %s cannot be read (result = %d)\n", what, code);
        return failed(ResultCode::Failed, what + " cannot be read");
    }
    void count(OpenError error, const char *what, IfNum ifNum) {
        if (failures_++ > 0)
            return;
        firstError_ = error;
        firstWhat_ = what;
        firstIfNum_ = ifNum;
    }

  private:
    Switch sw_;
    const Where &where_;
    std::uint32_t failures_ = 0;
    OpenError firstError_{};
    const char *firstWhat_ = "";
    IfNum firstIfNum_;
};

PortSettings readSettings(Reading &reading, IfNum ifNum) {
    const Switch sw = reading.sw();
    return {reading.value(sw.description(ifNum), "description", ifNum),
            reading.value(sw.speedSetting(ifNum), "speed setting", ifNum),
            reading.value(sw.mtu(ifNum), "MTU", ifNum), reading.value(sw.pvid(ifNum), "PVID", ifNum),
            reading.value(sw.taggedVlans(ifNum), "tagged VLANs", ifNum)};
}

PortStatus readStatus(Reading &reading, IfNum ifNum) {
    const Switch sw = reading.sw();
    return {reading.value(sw.hasLink(ifNum), "link state", ifNum),
            reading.value(sw.linkSpeed(ifNum), "link speed", ifNum),
            reading.value(sw.errorDisable(ifNum), "error state", ifNum)};
}

PortCounts readCounts(Reading &reading, IfNum ifNum) {
    const Switch sw = reading.sw();
    return {reading.value(sw.trafficCounters(ifNum), "counters", ifNum),
            reading.value(sw.castCounters(ifNum, TrafficDirection::In), "counters", ifNum),
            reading.value(sw.castCounters(ifNum, TrafficDirection::Out), "counters", ifNum),
            reading.value(sw.errorCounters(ifNum), "error counters", ifNum)};
}

InterfaceFacts readInterface(Reading &reading, IfNum ifNum, const FactsWanted &wanted) {
    const Switch sw = reading.sw();
    InterfaceFacts facts{.ifNum = ifNum,
                         .place = reading.value(sw.unitSlotPort(ifNum), "place", ifNum),
                         .name = reading.value(sw.interfaceName(ifNum), "name", ifNum)};
    if (const auto state = reading.value(sw.adminState(ifNum), "administrative state", ifNum))
        facts.enabled = *state == AdminState::Enabled;
    if (wanted.settings)
        facts.settings = readSettings(reading, ifNum);
    if (wanted.status)
        facts.status = readStatus(reading, ifNum);
    if (wanted.counts)
        facts.counts = readCounts(reading, ifNum);
    if (wanted.hardware)
        facts.hardware = reading.value(sw.portHardware(ifNum), "hardware", ifNum);
    return facts;
}

// visit(lag, its number, its members or nothing) for every LAG.
template <class Visit>
Result<> eachLag(Reading &reading, Visit visit) {
    auto lags = reading.sw().lags();
    std::optional<LagNumbering> numbering;
    std::optional<std::uint32_t> max;
    for (const IfNum lag : lags) {
        if (!numbering) {
            numbering = LagNumbering{lag};
            max = reading.value(reading.sw().lagMaxMembers(), "number of members", lag);
        }
        const auto members =
            max ? reading.value(reading.sw().lagMembers(lag, *max), "list of members", lag) : std::nullopt;
        visit(lag, numbering->numberOf(lag), members, max);
    }
    if (const auto broken = lags.brokenBy())
        return reading.fail("the list of LAGs", *broken);
    return {};
}

// The LAG of each port that is in one.
struct LagMembership {
    std::map<IfNum, std::uint32_t> numbers;
    bool complete = true;

    std::optional<std::uint32_t> lagOf(IfNum port) const {
        const auto it = numbers.find(port);
        if (it != numbers.end())
            return it->second;
        return complete ? std::optional<std::uint32_t>(0) : std::nullopt;
    }
};

Result<LagMembership> readMembership(Reading &reading) {
    LagMembership membership;
    const auto read = eachLag(
        reading, [&](IfNum, std::uint32_t number, const std::optional<std::vector<IfNum>> &members, auto) {
            membership.complete = membership.complete && members;
            for (const IfNum port : members.value_or(std::vector<IfNum>{}))
                membership.numbers[port] = number;
        });
    if (!read)
        return std::unexpected(read.error());
    return membership;
}

// visit(port) for every port.
template <class Visit>
Result<> eachPort(Reading &reading, Visit visit) {
    auto ports = reading.sw().ports();
    for (const IfNum port : ports)
        visit(port);
    if (const auto broken = ports.brokenBy())
        return reading.fail("the list of ports", *broken);
    return {};
}

bool isCopper(Switch sw, IfNum port) {
    const auto hardware = sw.portHardware(port);
    return hardware && hardware->media == Media::Copper;
}

Result<MirrorFacts> readMirror(Reading &reading, std::uint32_t session) {
    const Switch sw = reading.sw();
    MirrorFacts facts{
        .session = session,
        .enabled = reading.value(sw.isMirrorEnabled(session), "mirror session", IfNum(session))};
    const auto destination = sw.mirrorDestination(session);
    if (destination)
        facts.destination = *destination;
    else if (destination.error() == OpenError::NotFound)
        facts.destination = IfNum{};
    else
        reading.count(destination.error(), "mirror session", IfNum(session));
    auto sources = sw.mirrorSources(session);
    for (const MirrorSource &source : sources)
        facts.sources.push_back(source);
    if (const auto broken = sources.brokenBy())
        return reading.fail("the list of mirrored ports", *broken);
    return facts;
}

}  // namespace

Result<std::vector<InterfaceFacts>> readPortFacts(Switch sw, FactsWanted wanted, Where where) {
    Reading reading(sw, where);
    LagMembership membership;
    if (wanted.lag) {
        auto read = readMembership(reading);
        if (!read)
            return std::unexpected(read.error());
        membership = std::move(*read);
    }
    std::vector<InterfaceFacts> all;
    const auto read = eachPort(reading, [&](IfNum port) {
        all.push_back(readInterface(reading, port, wanted));
        if (wanted.lag)
            all.back().lag = membership.lagOf(port);
    });
    if (!read)
        return std::unexpected(read.error());
    return all;
}

Result<std::vector<LagFacts>> readLagFacts(Switch sw, FactsWanted wanted, Where where) {
    Reading reading(sw, where);
    std::vector<LagFacts> all;
    const auto read = eachLag(
        reading, [&](IfNum lag, std::uint32_t number, const std::optional<std::vector<IfNum>> &members,
                     const std::optional<std::uint32_t> &max) {
            LagFacts facts{.interface = readInterface(reading, lag, wanted),
                           .number = number,
                           .name = reading.value(sw.lagName(lag), "name", lag),
                           .isStatic = reading.value(sw.isLagStatic(lag), "mode", lag),
                           .hash = reading.value(sw.lagHash(lag), "hash mode", lag),
                           .members = members};
            if (max)
                facts.activeMembers =
                    reading.value(sw.activeLagMembers(lag, *max), "list of active members", lag);
            all.push_back(std::move(facts));
        });
    if (!read)
        return std::unexpected(read.error());
    return all;
}

Result<std::vector<SfpFacts>> readSfpFacts(Switch sw, Where where) {
    Reading reading(sw, where);
    std::vector<SfpFacts> all;
    const auto read = eachPort(reading, [&](IfNum port) {
        const auto inventory = sw.sfpInventory(port);
        const auto known = reading.value(inventory, "transceiver", port);
        // That a port takes none may be known from its hardware, too.
        const bool empty = !known && inventory.error() == OpenError::NotFound;
        if (!known && !empty && (inventory.error() == OpenError::Unavailable || isCopper(sw, port)))
            return;
        SfpFacts facts{.port = readInterface(reading, port, {})};
        if (known) {
            facts.present = true;
            facts.inventory = known;
            const auto diagnostics = sw.sfpDiagnostics(port);
            facts.measures = diagnostics || diagnostics.error() != OpenError::Unavailable;
            facts.diagnostics = reading.value(diagnostics, "diagnostics", port);
            facts.power = reading.value(sw.sfpPower(port), "optical power", port);
        } else if (empty) {
            facts.present = false;
        }
        all.push_back(std::move(facts));
    });
    if (!read)
        return std::unexpected(read.error());
    return all;
}

Result<TrunkFacts> readTrunkFacts(Switch sw, Where where) {
    Reading reading(sw, where);
    const auto automatic = sw.autoTrunk();
    if (!automatic)
        return reading.fail("the trunk mode", automatic.error());
    TrunkFacts trunks{.automatic = *automatic};
    const auto membership = readMembership(reading);
    if (!membership)
        return std::unexpected(membership.error());
    // Where membership is not known, a port that is in a LAG could pass for a trunk.
    if (!membership->complete)
        return reading.fail("the members of a LAG", OpenError::Failed);
    std::optional<OpenError> unread;
    const auto add = [&](IfNum ifNum) {
        auto tagged = sw.taggedVlans(ifNum);
        if (!tagged)
            unread = tagged.error();
        if (!tagged || tagged->empty())
            return;
        trunks.interfaces.push_back(readInterface(reading, ifNum, {}));
        trunks.interfaces.back().settings = PortSettings{.taggedVlans = std::move(*tagged)};
    };
    auto ports = sw.ports();
    for (const IfNum port : ports)
        // The VLANs of a LAG apply to its members.
        if (membership->lagOf(port) == 0u)
            add(port);
    auto lags = sw.lags();
    for (const IfNum lag : lags)
        add(lag);
    if (const auto broken = ports.brokenBy() ? ports.brokenBy() : lags.brokenBy() ? lags.brokenBy() : unread)
        return reading.fail("the list of trunks", *broken);
    return trunks;
}

Result<MirrorTable> readMirrorTable(Switch sw, bool withNames, Where where) {
    Reading reading(sw, where);
    const auto max = sw.mirrorSessionMax();
    if (!max)
        return reading.fail("the number of mirror sessions", max.error());
    MirrorTable table{.sessionMax = std::min(*max, kSessionsMax), .sessions = {}, .names = {}};
    const auto addName = [&](IfNum ifNum) {
        if (withNames && ifNum && !table.names.contains(ifNum))
            if (auto name = reading.value(sw.interfaceName(ifNum), "name", ifNum))
                table.names[ifNum] = std::move(*name);
    };
    for (std::uint32_t session = 1; session <= table.sessionMax; ++session) {
        auto facts = readMirror(reading, session);
        if (!facts)
            return std::unexpected(facts.error());
        const bool unused = !facts->enabled.value_or(false) && !facts->destination.value_or(IfNum{}) &&
                            facts->sources.empty();
        if (unused)
            continue;
        addName(facts->destination.value_or(IfNum{}));
        for (const MirrorSource &source : facts->sources)
            addName(source.ifNum);
        table.sessions.push_back(std::move(*facts));
    }
    return table;
}

Result<AutoLag> readAutoLag(Switch sw, Where where) {
    Reading reading(sw, where);
    const auto setting = sw.autoLag();
    if (!setting)
        return reading.fail("the auto-LAG setting", setting.error());
    return *setting;
}

}  // namespace pavo
