#include "ctl/request.h"

#include <CLI/CLI.hpp>
#include <cstddef>
#include <fstream>
#include <iostream>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "common/json.h"
#include "common/text.h"
#include "ctl/output.h"
#include "ctl/port_list.h"
#include "profile/request.h"

namespace pavo::ctl {
namespace {

// Thrown by what reads one --vlan option.
struct Misunderstood : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct PortKey {
    std::string_view word;
    const char *json;
};
constexpr PortKey kPortKeys[] = {
    {"untagged", "untagged"}, {"tagged", "tagged"}, {"assigned", "assignedPort"}};

// "KEY=VALUE" of a --vlan option.
struct Setting {
    std::string key, value;
};

void fillSetting(cJSON *vlan, cJSON *ports, const Setting &setting, const Interfaces &interfaces) {
    const auto &[key, value] = setting;
    if (key == "type") {
        const auto type = wholeNumber(value);
        if (!type)
            throw Misunderstood("type: " + quoteText(value) + " is not a number");
        cJSON_AddNumberToObject(vlan, "vlanType", static_cast<double>(*type));
        return;
    }
    if (key == "profile") {
        cJSON_AddStringToObject(vlan, "profileType", value.c_str());
        return;
    }
    for (const auto &[word, json] : kPortKeys)
        if (key == word) {
            const auto found = interfaces.find(value);
            if (!found)
                throw Misunderstood(key + ": " + found.error());
            addNumbers(ports, json, *found);
            return;
        }
    throw Misunderstood(quoteText(key) + " is not one of type, profile, untagged, tagged, assigned");
}

void fillVlan(cJSON *vlan, const std::string &option, const Interfaces &interfaces) {
    cJSON *const ports = cJSON_AddObjectToObject(vlan, "ports");
    std::istringstream words(option);
    std::string word;
    words >> word;
    const auto id = VlanId::from(wholeNumber(word).value_or(0));
    if (!id)
        throw Misunderstood(quoteText(word) + " is not a VLAN id (1 to 4094)");
    cJSON_AddNumberToObject(vlan, "vlanId", id->number());
    std::set<std::string> seen;
    while (words >> word) {
        const auto equals = word.find('=');
        const Setting setting{word.substr(0, equals),
                              equals == std::string::npos ? "" : word.substr(equals + 1)};
        if (!seen.insert(setting.key).second)
            throw Misunderstood(quoteText(setting.key) + " is there twice");
        fillSetting(vlan, ports, setting, interfaces);
    }
    if (!seen.contains("type"))
        cJSON_AddNumberToObject(vlan, "vlanType", 1);
}

void addVlan(cJSON *vlans, const std::string &option, const Interfaces &interfaces) {
    try {
        fillVlan(appendObject(vlans), option, interfaces);
    } catch (const Misunderstood &misunderstood) {
        throw CLI::ValidationError("--vlan", quoteText(option) + ": " + misunderstood.what());
    }
}

// What the operation would cut without a word is refused here, where somebody can still choose.
void checkWidth(const char *option, const std::string &text, std::size_t most) {
    if (text.size() > most)
        throw CLI::ValidationError(option, quoteText(text) + " has " + std::to_string(text.size()) +
                                               " bytes; at most " + std::to_string(most) + " are kept");
}

std::string readAll(const std::string &path) {
    std::ostringstream text;
    if (path == "-") {
        text << std::cin.rdbuf();
        return text.str();
    }
    std::ifstream in(path);
    if (!in)
        throw CLI::ValidationError("cannot read " + path);
    text << in.rdbuf();
    return text.str();
}

void setFlags(cJSON *body, const ApplyOptions &options) {
    for (const auto &[key, isSet] :
         {std::pair("overwrite", options.overwrite), {"force", options.force}, {"plan", options.plan}})
        if (isSet) {
            // A key can be there twice, and the first one counts.
            while (member(body, key) != nullptr)
                cJSON_DeleteItemFromObjectCaseSensitive(body, key);
            cJSON_AddBoolToObject(body, key, true);
        }
}

std::string requestOfFile(const ApplyOptions &options) {
    auto text = readAll(options.file);
    const JsonPtr root(text.size() <= PROFILE_REQUEST_MAX ? cJSON_Parse(text.c_str()) : nullptr);
    cJSON *const body = cJSON_GetObjectItemCaseSensitive(root.get(), "profileConfig");
    if (!cJSON_IsObject(body))
        return text;
    setFlags(body, options);
    return printJson(root.get());
}

std::string requestOfOptions(Switch sw, const ApplyOptions &options) {
    if (options.name.empty() || options.type.empty() || options.vlans.empty())
        throw CLI::ValidationError("a request file, or --name, --type and at least one --vlan are needed");
    checkWidth("--name", options.name, PROFILE_NAME_MAX);
    checkWidth("--type", options.type, PROFILE_NAME_MAX);
    checkWidth("--color", options.color, PROFILE_COLOR_MAX);
    const auto interfaces = require(Interfaces::read(sw));
    const JsonPtr root(cJSON_CreateObject());
    cJSON *const body = cJSON_AddObjectToObject(root.get(), "profileConfig");
    cJSON_AddStringToObject(body, "name", options.name.c_str());
    cJSON_AddStringToObject(body, "color", options.color.c_str());
    cJSON_AddStringToObject(body, "profileType", options.type.c_str());
    cJSON_AddNumberToObject(body, "vlanNum", static_cast<double>(options.vlans.size()));
    cJSON *const vlans = cJSON_AddArrayToObject(body, "vlans");
    for (const auto &option : options.vlans)
        addVlan(vlans, option, interfaces);
    if (!options.ptp.empty())
        cJSON_AddBoolToObject(body, "ptp", options.ptp == "on");
    setFlags(body, options);
    return printJson(root.get());
}

}  // namespace

std::string requestOf(Switch sw, const ApplyOptions &options) {
    return options.file.empty() ? requestOfOptions(sw, options) : requestOfFile(options);
}

}  // namespace pavo::ctl
