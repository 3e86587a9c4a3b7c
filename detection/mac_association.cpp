#include "detection/mac_association.h"

#include <algorithm>
#include <cstddef>

#include "common/log.h"
#include "common/text.h"
#include "platform/paths.h"

namespace pavo {
namespace {

constexpr std::size_t kLineMax = 1023;
constexpr std::string_view kTableRuler = "--------------";
constexpr std::string_view kBlanks = " \t\r\v\f";

ScriptResult applyScript(Switch sw, const AssociationScripts &scripts, const std::string &script,
                         const Where &where) {
    const auto result = sw.apply(script, {scripts.in, scripts.out}, where);
    if (!result && result.error().step == ScriptFailure::Step::Write)
        logError(where, scripts.writeFailed);
    else if (!result)
        logError(where, scripts.applyFailed, script);
    return result;
}

std::string inSmallLetters(std::string_view text) {
    std::string out(text);
    for (char &c : out)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    return out;
}

// Cuts the first word off a line.
std::string_view takeWord(std::string_view *line) {
    line->remove_prefix(std::min(line->find_first_not_of(kBlanks), line->size()));
    const std::string_view word = line->substr(0, line->find_first_of(kBlanks));
    line->remove_prefix(word.size());
    return word;
}

bool beginsWithNumber(std::string_view word) {
    if (word.starts_with('-') || word.starts_with('+'))
        word.remove_prefix(1);
    return !word.empty() && word[0] >= '0' && word[0] <= '9';
}

}  // namespace

ScriptResult addMacAssociation(Switch sw, const AssociationScripts &scripts, Mac mac, VlanId vlan,
                               Where where) {
    return applyScript(sw, scripts,
                       formatText("vlan database\nvlan association mac %s %d\nexit\n", mac, vlan), where);
}

ScriptResult removeMacAssociation(Switch sw, const AssociationScripts &scripts, Mac mac, Where where) {
    return applyScript(sw, scripts, formatText("vlan database\nno vlan association mac %s\nexit\n", mac),
                       where);
}

std::optional<MacAssociations> MacAssociations::parse(std::string_view output) {
    MacAssociations associations;
    bool inTable = false;
    forEachLine(output, kLineMax, [&](std::string_view line) {
        if (!inTable) {
            inTable = line.find(kTableRuler) != std::string_view::npos;
        } else {
            const std::string_view entry = takeWord(&line);
            const std::string_view vlan = takeWord(&line);
            if (beginsWithNumber(vlan))
                associations.add(entry, vlan);
        }
        return true;
    });
    return inTable ? std::optional(std::move(associations)) : std::nullopt;
}

// A last line without its end, unless an entry is whole in it.
bool MacAssociations::isCutShort(std::string_view output) {
    if (output.empty() || output.ends_with('\n'))
        return false;
    std::string_view last = output.substr(output.rfind('\n') + 1);
    takeWord(&last);
    return !beginsWithNumber(takeWord(&last));
}

void MacAssociations::add(std::string_view entry, std::string_view vlan) {
    if (const auto mac = Mac::parse(entry))
        addresses_.insert_or_assign(mac->bits(), Entry{*mac, VlanId::from(leadingNumber(vlan))});
    else
        others_.push_back(inSmallLetters(entry));
}

bool MacAssociations::mention(Mac mac) const {
    if (addresses_.contains(mac.bits()))
        return true;
    const std::string text = inSmallLetters(mac.text());
    return std::ranges::any_of(
        others_, [&](const std::string &other) { return other.find(text) != std::string::npos; });
}

bool MacAssociations::hold(Mac mac, VlanId vlan) const {
    const auto entry = addresses_.find(mac.bits());
    return entry == addresses_.end() ? mention(mac) : entry->second.vlan.value_or(vlan) == vlan;
}

std::vector<Mac> MacAssociations::addressesIn(VlanId vlan) const {
    std::vector<Mac> found;
    for (const auto &[bits, entry] : addresses_)
        if (entry.vlan == vlan)
            found.push_back(entry.mac);
    return found;
}

Result<std::optional<MacAssociations>> readMacAssociations(Switch sw, Where where) {
    const auto output = sw.show("show vlan association mac", platform::paths::kShowVlanAssociationMac, where);
    if (!output)
        return std::unexpected(output.error());
    if (MacAssociations::isCutShort(*output)) {
        logError(where, "[%s:%d] the output of 'show vlan association mac' is cut short\r\n");
        return failed(ResultCode::OpenFailed, "the output of a show command is cut short");
    }
    return MacAssociations::parse(*output);
}

}  // namespace pavo
