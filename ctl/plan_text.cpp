#include "ctl/plan_text.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "common/log_format.h"
#include "common/text.h"
#include "ctl/output.h"
#include "profile/switch_state.h"

namespace pavo::ctl {
namespace {

using Kind = ThingName::Kind;

// What a line of a group is about, in a column of its own, and what becomes of it.
struct TextLine {
    std::string subject, change;
};

constexpr const char *kDefault = "default";
constexpr std::string_view kClassMap = "class-map match-all ";
constexpr std::string_view kPolicyMap = "policy-map ";
// On unless the configuration says no: its value says that it does.
constexpr std::string_view kOnByDefault = "mvrp include factory-default-vlan";

void addPart(std::string &list, std::string_view part, std::string_view between = ", ") {
    list += (list.empty() ? "" : std::string(between)) + std::string(part);
}

// --- values

// "(5 lines)", "present": there are no words for what it is, only for whether it is there.
bool isContent(std::string_view value) {
    return value == "present" || (value.starts_with('(') && value.ends_with(" lines)"));
}

std::string arrow(const std::string &now, const std::string &then) {
    return now + " -> " + then;
}

std::string changeOf(const PlanLine &line) {
    if (isContent(line.now) || isContent(line.then))
        return !isContent(line.now) ? "new" : isContent(line.then) ? "changed" : "removed";
    if (line.now != "on" && line.then != "on")
        return arrow(line.now, line.then);
    const bool inverted = line.what.ends_with(kOnByDefault);
    return (line.then == "on") != inverted ? arrow("off", "on") : arrow("on", "off");
}

// --- the switch as a whole

std::vector<TextLine> switchLines(const std::vector<PlanLine> &plan) {
    std::vector<TextLine> lines;
    std::map<std::string, std::string> classMaps;  // names, by what becomes of them
    for (const auto &line : plan) {
        const std::string_view what = line.what;
        if (what.starts_with(kClassMap))
            addPart(classMaps[changeOf(line)], what.substr(kClassMap.size()));
        else if (what.starts_with(kPolicyMap))
            lines.push_back({"policy " + cliWords(what).at(1), changeOf(line)});
        else
            lines.push_back({line.what, changeOf(line)});
    }
    for (const auto &[change, names] : classMaps)
        lines.push_back({"class maps", formatText("%s: %s", change, names)});
    return lines;
}

// --- VLANs

// A setting without the VLAN's number, which stands in the other column.
std::string settingOfVlan(const std::string &what, VlanId id) {
    const auto number = " " + std::to_string(id.number());
    return what.ends_with(number) ? what.substr(0, what.size() - number.size()) : what;
}

std::string vlanChange(const PlanLine &line, Kind kind, VlanId id, const std::string *name) {
    switch (kind) {
        case Kind::Vlan:
            return changeOf(line) + (name != nullptr ? ", named " + *name : "");
        case Kind::VlanName:
            return "name " + changeOf(line);
        case Kind::Routing:
            return "interface " + changeOf(line);
        default:
            return settingOfVlan(line.what, id) + " " + changeOf(line);
    }
}

std::vector<TextLine> vlanLines(const std::vector<PlanLine> &plan) {
    std::map<VlanId, std::string> namesOfNew;
    for (const auto &line : plan)
        if (const auto thing = parseThingName(line.what); thing.kind == Kind::Vlan && isContent(line.then))
            for (const auto &other : plan)
                if (thing.id && other.what == vlanNameThing(*thing.id) && other.then != kDefault)
                    namesOfNew[*thing.id] = other.then;
    // Whether a VLAN is there at all comes before what is set in it.
    std::map<std::pair<bool, std::string>, std::vector<std::uint32_t>> byChange;
    for (const auto &line : plan) {
        const auto thing = parseThingName(line.what);
        const auto id = thing.id.value_or(kDefaultVlan);
        const auto name = namesOfNew.find(id);
        const bool isNew = name != namesOfNew.end();
        if (thing.kind == Kind::VlanName && isNew)
            continue;
        const auto change = vlanChange(line, thing.kind, id, isNew ? &name->second : nullptr);
        byChange[{thing.kind == Kind::Setting, change}].push_back(id.number());
    }
    std::map<std::tuple<bool, std::uint32_t, std::string>, std::string> sorted;
    for (const auto &[key, ids] : byChange)
        sorted[{key.first, std::ranges::min(ids), key.second}] = "VLAN " + rangesOf(ids);
    std::vector<TextLine> lines;
    lines.reserve(sorted.size());
    for (const auto &[key, vlans] : sorted)
        lines.push_back({vlans, std::get<2>(key)});
    return lines;
}

// --- ports

// "0/5" and "lag 2": what names have in common, and their numbers.
struct PortName {
    std::string prefix;
    std::uint32_t number = 0;

    explicit PortName(const std::string &name) {
        const auto last = name.find_last_not_of("0123456789");
        const auto digits = last == std::string::npos ? 0 : last + 1;
        prefix = name.substr(0, digits);
        number = leadingNumber(std::string_view(name).substr(digits));
        if (prefix.ends_with(' '))
            prefix.pop_back();
    }
    auto operator<=>(const PortName &) const = default;
};

struct PortChanges {
    std::optional<PlanLine> pvid, mtu;
    std::map<VlanId, PlanLine> memberships;
    std::vector<PlanLine> settings;
};

// How an interface takes part in a VLAN. "auto": it does not, unless the switch lets it by itself.
std::string roleIn(VlanId id, const std::string &value) {
    static const std::map<std::string, std::string> kWords = {
        {"include", "untagged"}, {"include tagged", "tagged"}, {"exclude", "excluded"}};
    if (value == kDefault)
        return id == kDefaultVlan ? "untagged" : "auto";
    const auto word = kWords.find(value);
    return word == kWords.end() ? value : word->second;
}

bool takesPart(const std::string &role) {
    return role == "untagged" || role == "tagged";
}

std::string membershipChange(VlanId id, const PlanLine &line) {
    const auto vlan = "VLAN " + std::to_string(id.number());
    const auto now = roleIn(id, line.now), then = roleIn(id, line.then);
    if (takesPart(now) && !takesPart(then))
        return "leaves " + vlan;
    return vlan + " " + (now == "auto" && takesPart(then) ? then : arrow(now, then));
}

// The PVID together with the two memberships that go with it, where they do; those are taken out then.
std::string pvidChange(const PlanLine &pvid, std::map<VlanId, PlanLine> &memberships) {
    const auto find = [&](const std::string &number) {
        const auto id = VlanId::from(leadingNumber(number));
        return id ? memberships.find(*id) : memberships.end();
    };
    const auto leavesUntagged = [](const auto &membership) {
        const auto &[id, line] = membership;
        return roleIn(id, line.now) == "untagged" && !takesPart(roleIn(id, line.then));
    };
    const auto left = find(pvid.now), joined = find(pvid.then);
    const bool together = left != memberships.end() && joined != memberships.end() && leavesUntagged(*left) &&
                          roleIn(joined->first, joined->second.then) == "untagged";
    if (!together)
        return "PVID " + arrow(pvid.now, pvid.then);
    memberships.erase(left);
    memberships.erase(joined);
    return "VLAN " + arrow(pvid.now, pvid.then) + " untagged";
}

std::string portChange(PortChanges changes, const std::string &interface) {
    std::string text;
    if (changes.pvid)
        addPart(text, pvidChange(*changes.pvid, changes.memberships));
    for (const auto &[id, line] : changes.memberships)
        addPart(text, membershipChange(id, line));
    if (changes.mtu)
        addPart(text, "MTU " + changeOf(*changes.mtu));
    const auto begin = ("interface " + interface + " ").size();
    for (const auto &line : changes.settings)
        addPart(text, line.what.substr(std::min(begin, line.what.size())) + " " + changeOf(line));
    return text;
}

std::string portsText(const std::vector<PortName> &ports) {
    std::map<std::string, std::vector<std::uint32_t>> byPrefix;
    for (const auto &port : ports)
        byPrefix[port.prefix].push_back(port.number);
    std::string text;
    for (const auto &[prefix, numbers] : byPrefix)
        addPart(text, rangesOf(numbers, prefix), ",");
    return text;
}

std::vector<TextLine> portLines(const std::vector<PlanLine> &plan) {
    std::map<PortName, std::pair<std::string, PortChanges>> ports;
    for (const auto &line : plan) {
        const auto thing = parseThingName(line.what);
        auto &[interface, changes] = ports[PortName(thing.interface)];
        interface = thing.interface;
        if (thing.kind == Kind::Pvid)
            changes.pvid = line;
        else if (thing.kind == Kind::Mtu)
            changes.mtu = line;
        else if (thing.kind == Kind::Membership && thing.id)
            changes.memberships[*thing.id] = line;
        else
            changes.settings.push_back(line);
    }
    std::vector<std::pair<std::string, std::vector<PortName>>> byChange;
    for (const auto &[port, value] : ports) {
        const auto change = portChange(value.second, value.first);
        auto known =
            std::ranges::find(byChange, change, &std::pair<std::string, std::vector<PortName>>::first);
        if (known == byChange.end())
            known = byChange.insert(known, {change, {}});
        known->second.push_back(port);
    }
    std::vector<TextLine> lines;
    lines.reserve(byChange.size());
    for (const auto &[change, names] : byChange)
        lines.push_back({portsText(names), change});
    return lines;
}

// --- other profiles

// What is lost, by one of the two profiles that each loss names, in the order in which they come.
std::vector<TextLine> lossesBy(const std::vector<Loss> &losses, std::string Loss::*profile) {
    std::vector<TextLine> lines;
    for (const auto &loss : losses) {
        auto known = std::ranges::find(lines, loss.*profile, &TextLine::subject);
        if (known == lines.end())
            known = lines.insert(known, {loss.*profile, ""});
        addPart(known->change, loss.what);
    }
    return lines;
}

std::vector<TextLine> takenLines(const std::vector<Loss> &taken) {
    std::vector<TextLine> lines;
    for (const auto &[loser, what] : lossesBy(taken, &Loss::loser))
        lines.push_back({"", what + " from " + quoteText(loser)});
    return lines;
}

// --- the page

constexpr std::size_t kLineMax = 100;

// A text that is too long for its column goes on in the next line, after a comma.
std::string wrapped(std::string_view text, std::size_t column) {
    const auto width = kLineMax - std::min(column, kLineMax / 2);
    std::string out;
    while (text.size() > width) {
        auto comma = text.rfind(", ", width - 1);
        if (comma == std::string_view::npos)
            comma = text.find(", ");
        if (comma == std::string_view::npos)
            break;
        out += std::string(text.substr(0, comma + 1)) + "\n" + std::string(column, ' ');
        text.remove_prefix(comma + 2);
    }
    return out + std::string(text);
}

void addGroup(std::string &text, std::size_t indent, const char *heading, std::span<const TextLine> lines) {
    if (lines.empty())
        return;
    const std::string margin(indent, ' ');
    std::size_t width = 0;
    for (const auto &line : lines)
        width = std::max(width, line.subject.size());
    const auto column = width == 0 ? 0 : width + 2;
    text += margin + heading + "\n";
    for (const auto &[subject, change] : lines)
        text += margin + "  " + printable(subject) + std::string(column - subject.size(), ' ') +
                wrapped(printable(change), indent + 2 + column) + "\n";
}

}  // namespace

std::string planText(const ProfilePlan &plan, std::size_t indent) {
    std::string text;
    addGroup(text, indent, "Switch-wide", switchLines(plan.switchWide));
    addGroup(text, indent, "VLANs", vlanLines(plan.vlans));
    addGroup(text, indent, "Ports", portLines(plan.ports));
    addGroup(text, indent, "Taken", takenLines(plan.taken));
    if (text.empty())
        text = std::string(indent, ' ') + "nothing would change\n";
    std::vector<TextLine> sentences;
    sentences.reserve(plan.notKept.size());
    for (const auto &sentence : plan.notKept)
        sentences.push_back({"", sentence});
    addGroup(text, indent, "Note", sentences);
    return text;
}

std::string lossesText(const std::vector<Loss> &losses) {
    std::string text;
    for (const auto &[taker, what] : lossesBy(losses, &Loss::taker))
        addPart(text, what + (what.contains(',') ? " are" : " is") + " with " + quoteText(taker));
    return text;
}

std::string stateText(const ProfileStatus &status) {
    std::string text;
    if (status.interrupted)
        addPart(text, "interrupted: finished or taken back by the next operation");
    if (!status.losses.empty())
        addPart(text, "incomplete: " + lossesText(status.losses), "; ");
    if (!status.repair.empty())
        addPart(text, "drifted", "; ");
    return text.empty() ? "as applied" : text;
}

}  // namespace pavo::ctl
