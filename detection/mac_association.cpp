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
            if (beginsWithNumber(takeWord(&line)))
                associations.add(entry);
        }
        return true;
    });
    return inTable ? std::optional(std::move(associations)) : std::nullopt;
}

void MacAssociations::add(std::string_view entry) {
    if (const auto mac = Mac::parse(entry))
        addresses_.insert(mac->bits());
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

Result<std::optional<MacAssociations>> readMacAssociations(Switch sw, Where where) {
    const auto output = sw.show("show vlan association mac", platform::paths::kShowVlanAssociationMac, where);
    if (!output)
        return std::unexpected(output.error());
    return MacAssociations::parse(*output);
}

}  // namespace pavo
