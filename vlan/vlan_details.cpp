#include "vlan/vlan_details.h"

#include <string_view>
#include <utility>

#include "common/json.h"
#include "common/log.h"

namespace pavo {
namespace {

// What the web interface shows as the room of the VLAN table, whatever the switch.
constexpr int kMaxVlanEntries = 4093;

// Reads values one by one and counts those that the switch does not tell.
class ValueReader {
  public:
    ValueReader(Switch sw, const Where &where) : sw_(sw), where_(where) {}
    ~ValueReader() {
        if (unread_ > 0)
            logError(where_, "[%s:%d] %u values of VLANs cannot be read (first result = %d)\n", unread_,
                     first_);
    }
    ValueReader(const ValueReader &) = delete;
    ValueReader &operator=(const ValueReader &) = delete;

    bool isWhole() const { return unread_ == 0; }

    template <class T>
    std::optional<T> value(OpenResult<T> read) {
        if (read)
            return std::optional<T>(std::move(*read));
        if (unread_++ == 0)
            first_ = read.error();
        return std::nullopt;
    }

    // The room for names is asked for once.
    std::optional<std::string> name(VlanId id) {
        if (!nameLength_)
            nameLength_ = value(sw_.vlanNameSize()).value_or(0);
        if (*nameLength_ == 0)
            return std::nullopt;
        return value(sw_.vlanName(id, *nameLength_ < UINT32_MAX ? *nameLength_ + 1 : *nameLength_));
    }

    VlanSummary summary(VlanId id) { return {id, name(id), value(sw_.staticVlan(id))}; }

    VlanInterface interface(IfNum ifNum, std::optional<std::string> shown, VlanId vlan) {
        return {std::move(shown), value(sw_.takesPart(ifNum, vlan)),
                value(sw_.configuredParticipation(ifNum, vlan)), value(sw_.tagging(ifNum, vlan))};
    }

    std::optional<std::string> portName(IfNum port) {
        const auto place = value(sw_.unitSlotPort(port));
        return place ? std::optional(formatText("%u/%u/%u", place->unit, place->slot, place->port))
                     : std::nullopt;
    }

  private:
    Switch sw_;
    Where where_;
    std::optional<std::uint32_t> nameLength_;
    unsigned unread_ = 0;
    OpenError first_{};
};

std::unexpected<Failure> reportUnlisted(const char *what, OpenError code, const Where &where) {
    logError(where, "[%s:%d] the list of %s cannot be read (result = %d)\n", what, code);
    return failed(ResultCode::Failed, std::string("the list of ") + what + " cannot be read");
}

void addNumber(std::string &out, const char *key, std::uint32_t number) {
    out += (out.back() == '{' ? "\"" : ",\"") + std::string(key) + "\":" + std::to_string(number);
}

template <class Text>
void addString(std::string &out, const char *key, const std::optional<Text> &text) {
    if (!text)
        return;
    out += (out.back() == '{' ? "\"" : ",\"") + std::string(key) + "\":\"";
    appendEscaped(out, *text);
    out += '"';
}

void addSummary(std::string &out, const VlanSummary &summary) {
    addNumber(out, "vlan-id", summary.id.number());
    addString(out, "name", summary.name);
    addString(out, "type", summary.type());
}

}  // namespace

std::optional<const char *> VlanSummary::type() const {
    if (id == kDefaultVlan)
        return "Default";
    return isStatic ? std::optional(*isStatic ? "Static" : "Dynamic") : std::nullopt;
}

std::optional<const char *> VlanInterface::currentWord() const {
    return takesPart ? std::optional(*takesPart ? "Include" : "Exclude") : std::nullopt;
}

std::optional<const char *> VlanInterface::configuredWord() const {
    if (!configured)
        return std::nullopt;
    if (*configured == Participation::Include)
        return "Include";
    return *configured == Participation::Exclude ? "Exclude" : "Autodetect";
}

std::optional<const char *> VlanInterface::taggingWord() const {
    return tagging ? std::optional(*tagging == Tagging::Tagged ? "Tagged" : "Untagged") : std::nullopt;
}

Result<VlanId> requireVlan(Switch sw, std::uint32_t vlan, Where where) {
    const auto id = VlanId::from(vlan);
    if (id) {
        const auto check = sw.checkVlan(*id);
        if (check)
            return *id;
        if (presenceOf(check) == Presence::Unknown) {
            logError(where, "[%s:%d] VLAN %u cannot be looked up (result = %d)\n", vlan, check.error());
            return failed(ResultCode::Failed,
                          "the switch does not tell whether there is VLAN " + std::to_string(vlan));
        }
    }
    logError(where, "[%s:%d] VLAN %u not found\n", vlan);
    return failed(ResultCode::Failed, "there is no VLAN " + std::to_string(vlan));
}

Result<VlanSummary> readVlanName(Switch sw, std::uint32_t vlan, Where where) {
    const auto id = requireVlan(sw, vlan, where);
    if (!id)
        return std::unexpected(id.error());
    ValueReader reader(sw, where);
    return VlanSummary{*id, reader.name(*id)};
}

Result<VlanDetails> readVlanDetails(Switch sw, std::uint32_t vlan, Where where) {
    const auto id = requireVlan(sw, vlan, where);
    if (!id)
        return std::unexpected(id.error());
    ValueReader reader(sw, where);
    VlanDetails details{reader.summary(*id), {}};
    auto ports = sw.ports();
    for (const IfNum port : ports)
        details.interfaces.push_back(reader.interface(port, reader.portName(port), *id));
    if (const auto broken = ports.brokenBy())
        return reportUnlisted("ports", *broken, where);
    auto lags = sw.lags();
    std::optional<LagNumbering> numbering;
    for (const IfNum lag : lags) {
        if (!numbering)
            numbering = LagNumbering{lag};
        details.interfaces.push_back(
            reader.interface(lag, formatText("lag %u", numbering->numberOf(lag)), *id));
    }
    if (const auto broken = lags.brokenBy())
        return reportUnlisted("LAGs", *broken, where);
    // It may have been deleted meanwhile: nothing of it can be read then, and that is no VLAN with gaps.
    if (!reader.isWhole())
        if (const auto still = requireVlan(sw, vlan, where); !still)
            return std::unexpected(still.error());
    return details;
}

Result<std::vector<VlanSummary>> readVlanSummaries(Switch sw, Where where) {
    ValueReader reader(sw, where);
    std::vector<VlanSummary> summaries;
    auto vlans = sw.vlans();
    for (const VlanId id : vlans)
        summaries.push_back(reader.summary(id));
    if (const auto broken = vlans.brokenBy())
        return reportUnlisted("VLANs", *broken, where);
    return summaries;
}

std::string printVlanName(const VlanSummary &summary) {
    std::string out = "{";
    addNumber(out, "vlan-id", summary.id.number());
    addString(out, "name", summary.name);
    return out + '}';
}

std::string printVlanDetails(const VlanDetails &details) {
    std::string out = "{";
    addSummary(out, details.summary);
    out += ",\"interfaces\":[";
    for (const VlanInterface &interface : details.interfaces) {
        out += &interface == details.interfaces.data() ? "{" : ",{";
        addString(out, "interface", interface.name);
        addString(out, "current", interface.currentWord());
        addString(out, "configured", interface.configuredWord());
        addString(out, "tagging", interface.taggingWord());
        out += '}';
    }
    return out + "]}";
}

std::string printVlanSummaries(const std::vector<VlanSummary> &summaries) {
    std::string out = formatText("{\"max-vlan-entries\":%d,\"vlans-in-use\":%zu,\"vlans\":[", kMaxVlanEntries,
                                 summaries.size());
    for (const VlanSummary &summary : summaries) {
        out += &summary == summaries.data() ? "{" : ",{";
        addSummary(out, summary);
        out += '}';
    }
    return out + "]}";
}

}  // namespace pavo
