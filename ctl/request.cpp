#include "ctl/request.h"

#include <CLI/CLI.hpp>
#include <fstream>
#include <iostream>
#include <sstream>
#include <stdexcept>

#include "common/json.h"
#include "ctl/output.h"

namespace pavo::ctl {
namespace {

constexpr unsigned long kPortMax = 4096;

// "1-4,7" as numbers into an array.
void addRanges(cJSON *ports, const char *key, const std::string &text) {
    cJSON *const array = cJSON_AddArrayToObject(ports, key);
    std::istringstream parts(text);
    for (std::string part; std::getline(parts, part, ',');) {
        const auto dash = part.find('-');
        const unsigned long low = std::stoul(part.substr(0, dash));
        const unsigned long high = dash == std::string::npos ? low : std::stoul(part.substr(dash + 1));
        if (low < 1 || high < low || high > kPortMax)
            throw std::invalid_argument(part);
        for (auto number = low; number <= high; ++number)
            appendNumber(array, static_cast<double>(number));
    }
}

// One --vlan option. Throws std::logic_error when it is not understood.
void fillVlan(cJSON *vlan, const std::string &option) {
    cJSON *const ports = cJSON_AddObjectToObject(vlan, "ports");
    std::istringstream words(option);
    std::string word;
    words >> word;
    cJSON_AddNumberToObject(vlan, "vlanId", std::stoi(word));
    int type = 1;
    while (words >> word) {
        const auto equals = word.find('=');
        const auto key = word.substr(0, equals);
        const auto value = equals == std::string::npos ? std::string() : word.substr(equals + 1);
        if (key == "type")
            type = std::stoi(value);
        else if (key == "profile")
            cJSON_AddStringToObject(vlan, "profileType", value.c_str());
        else if (key == "untagged" || key == "tagged")
            addRanges(ports, key.c_str(), value);
        else if (key == "assigned")
            addRanges(ports, "assignedPort", value);
        else
            throw std::invalid_argument(word);
    }
    cJSON_AddNumberToObject(vlan, "vlanType", type);
}

void addVlan(cJSON *vlans, const std::string &option) {
    try {
        fillVlan(appendObject(vlans), option);
    } catch (const std::logic_error &) {
        throw CLI::ValidationError("--vlan", "not understood: " + option);
    }
}

std::string readAll(const std::string &path) {
    std::ostringstream text;
    if (path == "-") {
        text << std::cin.rdbuf();
    } else {
        std::ifstream in(path);
        if (!in)
            throw CLI::ValidationError("cannot read " + path);
        text << in.rdbuf();
    }
    return text.str();
}

}  // namespace

std::string requestOf(const ApplyOptions &options) {
    if (!options.file.empty())
        return readAll(options.file);
    if (options.name.empty() || options.type.empty() || options.vlans.empty())
        throw CLI::ValidationError("a request file, or --name, --type and at least one --vlan are needed");
    const JsonPtr root(cJSON_CreateObject());
    cJSON *const body = cJSON_AddObjectToObject(root.get(), "profileConfig");
    cJSON_AddStringToObject(body, "name", options.name.c_str());
    cJSON_AddStringToObject(body, "color", options.color.c_str());
    cJSON_AddStringToObject(body, "profileType", options.type.c_str());
    cJSON_AddNumberToObject(body, "vlanNum", static_cast<double>(options.vlans.size()));
    cJSON *const vlans = cJSON_AddArrayToObject(body, "vlans");
    for (const auto &option : options.vlans)
        addVlan(vlans, option);
    if (!options.ptp.empty())
        cJSON_AddBoolToObject(body, "ptp", options.ptp == "on");
    if (options.overwrite)
        cJSON_AddBoolToObject(body, "overwrite", true);
    if (options.force)
        cJSON_AddBoolToObject(body, "force", true);
    return printJson(root.get());
}

}  // namespace pavo::ctl
