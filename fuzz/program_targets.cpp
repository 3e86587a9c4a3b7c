// Targets for what the program parses by pure functions.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "common/ipv4.h"
#include "common/mac.h"
#include "common/text.h"
#include "detection/detection_config.h"
#include "detection/mac_association.h"
#include "detection/net_block.h"
#include "fuzz/support.h"
#include "fuzz/targets.h"
#include "platform/paths.h"
#include "profile/avb_ports.h"
#include "profile/qos_policy.h"
#include "profile/record.h"
#include "profile/request.h"
#include "profile/settings.h"
#include "profile/switch_script.h"
#include "profile/switch_state.h"
#include "store/profile_demand.h"
#include "store/profile_template.h"
#include "store/recognition.h"
#include "store/shure_config.h"
#include "store/vlan_settings.h"
#include "swapi/switch_settings.h"
#include "swapi/telnet.h"
#include "vlan/ip_interfaces.h"
#include "vlan/multicast.h"
#include "vlan/show_vlan.h"
#include "vlan/switchport_mode.h"
#include "vlan/vlan_list.h"

namespace fuzz {
namespace {

using namespace pavo;

bool isPrintable(std::string_view text) {
    return isUtf8(text) && printable(text) == text;
}

// Whether no command line can be more than one, or other words than it says.
bool isPlain(std::string_view text) {
    return text.find_first_of("\"\\") == std::string_view::npos;
}

// --- show captures

void readShowVlan(std::string_view shown) {
    constexpr std::size_t kMost = 20;
    const auto numbers = parseShowVlan(shown, kMost);
    require(numbers.size() <= kMost, "no more rows than asked for");
    std::string printed;
    for (const auto number : numbers) {
        require(number >= 1 && number <= 4096, "a row begins with a number from 1 to 4096");
        printed += std::to_string(number) + " x Static\n";
    }
    require(parseShowVlan(printed, kMost) == numbers, "rows are read back", printed);
}

void readIpInterfaceBrief(std::string_view shown) {
    const auto interfaces = parseIpInterfaces(shown);
    std::string printed;
    for (const auto &row : interfaces)
        printed += "vlan " + std::to_string(row.vlan.number()) +
                   (!row.isUp   ? " x "
                    : *row.isUp ? " Up "
                                : " Down ") +
                   row.address + " " + row.mask + " x " +
                   (row.method == IpMethod::Dhcp     ? "DHCP"
                    : row.method == IpMethod::Manual ? "Manual"
                                                     : "x") +
                   "\n";
    require(parseIpInterfaces(printed) == interfaces, "rows are read back", printed);
}

std::string printBootImages(const std::vector<BootImage> &images) {
    std::string out(14, '\n');
    for (const auto &image : images)
        out += std::to_string(image.unit) + " " + image.active + " " + image.backup + " " +
               image.currentActive + " " + image.nextActive + "\n";
    return out;
}

void readBootvar(std::string_view shown) {
    constexpr std::size_t kMost = 4;
    const auto images = parseBootImages(shown, kMost);
    require(images.size() <= kMost, "no more rows than asked for");
    const auto printed = printBootImages(images);
    require(printBootImages(parseBootImages(printed, kMost)) == printed, "rows are read back", printed);
}

void readIpManagement(std::string_view shown) {
    const auto address = parseManagementAddress(shown);
    std::string printed;
    const auto line = [&](std::string label, std::size_t width, const std::optional<std::string> &value) {
        label.resize(width, '.');
        if (value)
            printed += label + *value + "\n";
    };
    line("IP Address", 47, address.ip);
    line("Subnet Mask", 47, address.mask);
    line("Method", 47, address.method);
    line("Default Gateway", 47, address.gateway);
    line("IPv4 Management Interface", 52,
         address.vlan ? std::optional(std::to_string(*address.vlan)) : std::nullopt);
    const auto again = parseManagementAddress(printed);
    require(again.vlan == address.vlan && again.method == address.method && again.ip == address.ip &&
                again.mask == address.mask && again.gateway == address.gateway,
            "lines are read back", printed);
    // Whatever the switch shows, and a page sends back, is one address in one line.
    const auto script =
        staticAddressScript(VlanId::from(address.vlan.value_or(1)).value_or(kDefaultVlan),
                            address.ip.value_or(""), address.mask.value_or(""), address.gateway.value_or(""));
    require(!script || std::ranges::count(*script, '\n') == 4, "a script has no lines but its own");
}

void readAssociations(std::string_view shown) {
    const auto table = MacAssociations::parse(shown);
    if (!MacAssociations::isCutShort(shown) && table)
        require(MacAssociations::parse(std::string(shown) + "\n").has_value(),
                "the end of a line adds to it");
    if (!table)
        return;
    constexpr VlanId kVlan(20);
    for (const Mac mac : table->addressesIn(kVlan)) {
        require(table->hold(mac, kVlan) && table->mention(mac), "what is listed is there", mac.text());
        require(shown.find(mac.text()) != std::string_view::npos, "addresses are spelled as in the table");
    }
    for (std::size_t at = 0; at + 17 <= shown.size() && at < 4096; ++at)
        if (const auto mac = Mac::parse(shown.substr(at, 17)))
            require(table->mention(*mac) || !table->hold(*mac, kVlan), "what is held is mentioned");
}

void readPolicyMap(std::string_view shown) {
    const auto classes = parsePolicyClasses(shown);
    require((!classes.telos && !classes.gd) || classes.count > 0 || shown.contains("CLASS_"),
            "a class that is found is counted");
}

void readGroups(std::string_view shown) {
    GroupRowRoom room{};
    forEachGroupRow(shown, [&](const GroupRow &row) {
        require(row.subscriber.size() <= 15 && row.subscriberMac.size() <= 17 && row.group.size() <= 15 &&
                    row.groupMac.size() <= 17 && row.type.size() <= 7,
                "strings of a row keep within their widths");
        const std::string printed(printGroupRow(row, room));
        require(isStrictJson(printed), "a row parses in a strict parser", printed);
    });
    for (const auto &address : parseDenyList(shown))
        require(address.size() == 20 || (address.size() < 20 && address.ends_with("/8")),
                "an address is cut to its room", address);
}

// --- configuration

// Scripts are made of what was read; what they write is what is wanted.
void checkSettings(const Settings &settings) {
    require(settingsScript(settings, settings).empty(), "there is nothing to do from a state to itself");
    const auto script = settingsScript({}, settings);
    for (const auto &[name, value] : parseSettings(script))
        require(settings.contains(name) && settings.at(name) == value, "a script writes what is wanted",
                script);
}

void checkThings(const Things &things) {
    for (const auto &[name, value] : things) {
        parseThingName(name);
        isFilter(name);
    }
    const auto state = stateOf(things);
    switchScript({}, state);
    switchScript(state, {});
    settingsScript(state.settings, {});
    settingsScript({}, state.settings);
}

// What the script makes of an empty switch is the state, for interfaces whose names are names.
void checkScript(const SwitchState &state) {
    const auto script = switchScript({}, state);
    const auto made = parseSwitchState(script);
    auto vlans = state.vlans;
    if (const auto first = vlans.find(kDefaultVlan); first != vlans.end() && first->second.empty())
        vlans.erase(first);
    require(made.vlans == vlans, "a script creates the VLANs and names them", script);
    for (const auto &[name, interface] : state.interfaces)
        if (name.find_first_not_of("0123456789/", name.starts_with("lag ") ? 4 : 0) == std::string::npos &&
            !name.ends_with(' ') && !name.empty()) {
            const auto it = made.interfaces.find(name);
            require(it != made.interfaces.end() && it->second == interface, "a script sets up the interfaces",
                    script);
        }
}

// --- files

void readRecord(const std::string &text) {
    const auto record = ProfileRecord::parse(text);
    if (!record)
        return;
    const auto printed = record->print();
    const auto again = ProfileRecord::parse(printed);
    require(again && *again == *record, "a record is read back", printed);
    Things before, want, shown;
    for (const auto &[name, thing] : record->things) {
        putThing(before, name, thing.before);
        putThing(want, name, thing.want);
        putThing(shown, name, thing.shown);
    }
    for (const auto *things : {&before, &want, &shown})
        checkThings(*things);
    const auto from = stateOf(before), to = stateOf(want);
    switchScript(from, to);
    settingsScript(from.settings, to.settings);
}

void readVlanSettingsFile(const std::string &text) {
    const auto settings = VlanSettings::parse(text);
    if (!settings)
        return;
    const auto printed = settings->print(VlanId(20));
    const auto history = settings->history.value_or(VlanHistory{});
    const auto first = VlanSettings::parse(printed);
    require(first && first->vlanType == settings->vlanType && first->profileType == settings->profileType &&
                first->ptpTc == settings->ptpTc &&
                first->assignedPorts == settings->assignedPorts.value_or(std::vector<IfNum>{}) &&
                first->history == history,
            "settings are read back", printed);
    require(history.oldName.empty() || isVlanName(history.oldName),
            "a name that goes into a script may be one", history.oldName);
}

void readDetectionFiles(const std::string &text) {
    for (const char *key : {"audacDevicePort", "shureDevicePort"})
        parseDetectionConfig(text, key);
    parseShureDevicePorts(text);
    parseAssignedPorts(text);
    parseRecognition(text);
    const auto blocked = parseNetBlockPorts(text);
    require(parseNetBlockPorts(printNetBlockPorts(blocked)) == blocked, "ports are read back", text);
    std::set<std::string> names;
    for (const auto &name : parseManualTrunks(text)) {
        const bool port = name.starts_with("0/"), lag = name.starts_with("lag ");
        require((port || lag) && wholeNumber(name.substr(port ? 2 : 4)).value_or(0) > 0,
                "the name of an interface", name);
        require(names.insert(name).second, "each interface once", name);
    }
}

}  // namespace

// However a server's text is cut into packets, it is the same text, and hides the same secret.
void readTelnetReply(std::string_view input) {
    TelnetFilter whole, cut;
    std::string wholeAnswer, cutAnswer, pieces;
    const auto text = whole.take(input, wholeAnswer);
    for (const char &c : input)
        pieces += cut.take({&c, 1}, cutAnswer);
    require(text == pieces && wholeAnswer == cutAnswer, "packets do not matter", pieces);
    require(text.size() + wholeAnswer.size() <= input.size() && !text.contains('\0'), "nothing is made up");
    for (std::size_t at = 0; at < wholeAnswer.size(); at += 3)
        require(wholeAnswer[at] == '\xff' && (wholeAnswer[at + 1] == '\xfc' || wholeAnswer[at + 1] == '\xfe'),
                "options are refused");
    const auto secret = text.substr(0, std::min<std::size_t>(text.find('*'), 6));
    SecretMask inOne(secret), inPieces(secret);
    std::string shown;
    for (const char &c : text)
        shown += inPieces.take({&c, 1});
    for (const auto &masked : {inOne.take(text), shown})
        require(secret.empty() ? masked == text : !masked.contains(secret), "a secret is hidden", masked);
    const auto stage = loginStageOf(text);
    require(stage == LoginStage::Invalid || text.find_first_of(":>#") != std::string::npos ||
                text.contains("configure"),
            "a prompt is known by what it ends in", text);
}

void readStrings(std::string_view input) {
    if (const auto mac = Mac::parse(input))
        require(mac->text() == input, "an address is printed as it was written");
    if (const auto ip = Ipv4::parse(input))
        require(ip->text() == input && Ipv4::parse(ip->text()) == ip,
                "an address is printed as it was written");
    if (const auto number = wholeNumber(input))
        require(wholeNumber(std::to_string(*number)) == number, "a number is read back");
    leadingNumber(input);
    require(parseVlanList(input).size() <= kVlanListMax, "a list of VLANs has an end");
    const auto sound = wellFormed(input);
    require(isUtf8(sound) && sound.size() <= input.size() && wellFormed(sound) == sound, "well-formed UTF-8");
    require(isUtf8(input) == (sound == input), "only what is not well-formed changes");
    const auto shown = printable(input);
    require(shown.size() <= input.size() && printable(shown) == shown && isPrintable(wellFormed(shown)),
            "each control character becomes a dot");
    require(isPrintable(quoteText(input)), "what is quoted can be shown", quoteText(input));
    for (const std::size_t most : {0u, 1u, 7u, 31u, 60u, 255u}) {
        const auto cut = cutToBytes(input, most);
        require(cut.size() <= most && input.starts_with(cut), "a string is cut to its room");
        require(!isUtf8(input) || isUtf8(cut), "no character is cut in half");
    }
    char field[8];
    copyText(field, input);
    require(field[sizeof field - 1] == '\0' && input.starts_with(std::string_view(field).substr(0, 7)),
            "a fixed field is terminated");
    std::size_t bytes = 0;
    forEachLine(input, 16, [&](std::string_view line) {
        require(line.size() <= 16 && !line.contains('\n'), "lines come in pieces of that length");
        bytes += line.size();
        return true;
    });
    require(bytes == input.size() - static_cast<std::size_t>(std::ranges::count(input, '\n')),
            "no byte of a line is lost");
    const std::string name(input);
    for (const auto &path : {profileTemplatePath(name), profileTemplateUserPath(name)})
        require(path.empty() ||
                    (path.rfind('/') + 1 == std::string_view(platform::paths::kProfileTemplateDir).size() &&
                     !path.ends_with("/..") && !path.contains('\0')),
                "a name stays in its folder", path);
    cliWords(input);
    vlanOfSetting(name);
    parseThingName(name);
}

void readShowCaptures(std::string_view input) {
    readShowVlan(input);
    readIpInterfaceBrief(input);
    readBootvar(input);
    readIpManagement(input);
    readAssociations(input);
    readPolicyMap(input);
    readGroups(input);
}

void readRunningConfig(std::string_view input) {
    const auto state = parseSwitchState(input);
    parseSwitchportModeAuto(input);
    require(switchScript(state, state).empty(), "there is nothing to do from a state to itself");
    require(parseSettings(input) == state.settings, "settings are those of the configuration");
    if (isPlain(input))
        checkSettings(state.settings);
    const auto things = thingsOf(state);
    require(thingsOf(stateOf(things)) == things, "things are read back");
    checkThings(things);
    checkScript(state);
}

void readStoredFiles(std::string_view input) {
    const std::string text(input);
    readRecord(text);
    readVlanSettingsFile(text);
    readDetectionFiles(text);
    if (const auto parsed = ProfileTemplate::parse(text))
        templateDemand("Data", &*parsed);
}

void readProfileRequest(std::string_view input) {
    const auto config = parseProfileConfig(std::string(input));
    if (!config) {
        require(!config.error().reason.empty() && isPrintable(config.error().reason),
                "a reason can be shown to people", config.error().reason);
        return;
    }
    const auto &request = config->request;
    require(request.name.size() <= PROFILE_NAME_MAX && request.profileType.size() <= PROFILE_NAME_MAX &&
                request.color.size() <= PROFILE_COLOR_MAX && request.vlans.size() <= PROFILE_VLANS_MAX,
            "a request keeps within its widths");
    for (const auto &vlan : request.vlans)
        for (const auto *list : {&vlan.untagged, &vlan.tagged, &vlan.assigned})
            require(list->size() <= PROFILE_PORTS_MAX &&
                        std::ranges::all_of(*list, [](IfNum port) { return static_cast<bool>(port); }),
                    "port lists keep within their widths");
    const auto again = parseProfileConfig(config->document);
    require(again && again->request == request && again->overwrite == config->overwrite &&
                again->force == config->force && again->plan == config->plan,
            "the document of a request is that request", config->document);
    ProfileRecord record;
    record.profiles.push_back({request, config->document});
    const auto printed = record.print();
    const auto recorded = ProfileRecord::parse(printed);
    require(recorded && *recorded == record, "a request is recorded as it is", printed);
}

}  // namespace fuzz
