// pavoctl: the management operations on the command line.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "common/log.h"
#include "common/owners.h"
#include "common/result.h"
#include "platform/open_client.h"
#include "platform/paths.h"
#include "profile/apply.h"
#include "profile/request.h"
#include "profile/templates.h"
#include "store/profile_types.h"
#include "vlan/vlan_info.h"

namespace {

constexpr int kExitFailed = 1, kExitUsage = 2, kExitNoSwitch = 3;

// A result code that ends the command.
struct Failure {
    std::int32_t code;
    std::string detail;
};

void require(std::int32_t code, const std::string &detail = "") {
    if (code != RESULT_SUCCESS)
        throw Failure{code, detail};
}

// --- output

struct Output {
    bool json = false;
    bool color = isatty(STDOUT_FILENO) != 0;

    std::string paint(const char *code, const std::string &text) const {
        return color ? "\033[" + std::string(code) + "m" + text + "\033[0m" : text;
    }
};

using Row = std::vector<std::string>;

// Columns as characters, not bytes; what could move the cursor of a terminal is shown as '.'.
std::string printable(std::string text) {
    for (auto &c : text)
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f)
            c = '.';
    return text;
}

std::size_t width(const std::string &text) {
    return static_cast<std::size_t>(std::count_if(
        text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xc0) != 0x80; }));
}

void printTable(const Output &output, const Row &head, const std::vector<Row> &rows) {
    std::vector<std::size_t> widths;
    for (std::size_t i = 0; i < head.size(); ++i) {
        widths.push_back(width(head[i]));
        for (const auto &row : rows)
            widths[i] = std::max(widths[i], width(row[i]));
    }
    const auto line = [&](const Row &row) {
        std::string out;
        for (std::size_t i = 0; i < row.size(); ++i)
            out += printable(row[i]) +
                   (i + 1 < row.size() ? std::string(widths[i] - width(row[i]) + 2, ' ') : "");
        return out;
    };
    std::puts(output.paint("1", line(head)).c_str());
    for (const auto &row : rows)
        std::puts(line(row).c_str());
}

// The envelope of an answer, for machines.
void printEnvelope(std::int32_t code, const char *key, const char *data) {
    char *text = nullptr;
    if (responseJsonRreallocStr(code, key, data, &text) == RESULT_SUCCESS)
        std::puts(TextPtr(text).get());
}

// --- JSON access

std::string textOf(const cJSON *object, const char *key) {
    const cJSON *item = cJSON_GetObjectItemCaseSensitive(object, key);
    if (cJSON_IsString(item))
        return item->valuestring;
    if (cJSON_IsNumber(item))
        return std::to_string(item->valueint);
    if (cJSON_IsBool(item))
        return cJSON_IsTrue(item) ? "yes" : "no";
    return "";
}

// "1-4,7" of an array of numbers in any order.
std::string rangesOf(const cJSON *array) {
    std::vector<int> numbers;
    const cJSON *item = nullptr;
    cJSON_ArrayForEach(item, array) {
        numbers.push_back(item->valueint);
    }
    std::sort(numbers.begin(), numbers.end());
    std::string out;
    for (std::size_t i = 0; i < numbers.size();) {
        std::size_t last = i;
        while (last + 1 < numbers.size() && numbers[last + 1] == numbers[last] + 1)
            ++last;
        out += (out.empty() ? "" : ",") + std::to_string(numbers[i]);
        if (last > i)
            out += "-" + std::to_string(numbers[last]);
        i = last + 1;
    }
    return out.empty() ? "-" : out;
}

std::string rangesOf(const cJSON *object, const char *group, const char *key) {
    return rangesOf(cJSON_GetObjectItemCaseSensitive(cJSON_GetObjectItemCaseSensitive(object, group), key));
}

// --- requests

// Profile operations are for one caller at a time, across processes.
std::unique_ptr<FileLock> operationLock() {
    auto lock = std::make_unique<FileLock>(platform::paths::kProfileLock);
    if (!lock->held())
        throw Failure{RESULT_FAILED, "cannot lock " + platform::fsPath(platform::paths::kProfileLock)};
    return lock;
}

// "1-4,7" as numbers into an array.
void addNumbers(cJSON *ports, const char *key, const std::string &text) {
    cJSON *array = cJSON_AddArrayToObject(ports, key);
    std::istringstream parts(text);
    for (std::string part; std::getline(parts, part, ',');) {
        std::size_t used = 0;
        const auto dash = part.find('-');
        const unsigned long low = std::stoul(part.substr(0, dash), &used);
        const unsigned long high = dash == std::string::npos ? low : std::stoul(part.substr(dash + 1));
        if (low < 1 || high < low || high > 4096)
            throw std::invalid_argument(part);
        for (auto n = low; n <= high; ++n)
            cJSON_AddItemToArray(array, cJSON_CreateNumber(static_cast<double>(n)));
    }
}

// One --vlan option: "20 type=3 untagged=1-4 tagged=9 assigned=5".
void addVlan(cJSON *vlans, const std::string &option) {
    cJSON *vlan = cJSON_CreateObject();
    cJSON_AddItemToArray(vlans, vlan);
    cJSON *ports = cJSON_AddObjectToObject(vlan, "ports");
    std::istringstream words(option);
    std::string word;
    words >> word;
    try {
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
                addNumbers(ports, key.c_str(), value);
            else if (key == "assigned")
                addNumbers(ports, "assignedPort", value);
            else
                throw std::invalid_argument(word);
        }
        cJSON_AddNumberToObject(vlan, "vlanType", type);
    } catch (const std::logic_error &) {
        throw CLI::ValidationError("--vlan", "not understood: " + option);
    }
}

struct ApplyOptions {
    std::string file, name, type, color = "#3366cc", ptp;
    std::vector<std::string> vlans;
    bool overwrite = false, force = false;
};

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

std::string requestOf(const ApplyOptions &options) {
    if (!options.file.empty())
        return readAll(options.file);
    if (options.name.empty() || options.type.empty() || options.vlans.empty())
        throw CLI::ValidationError("a request file, or --name, --type and at least one --vlan are needed");
    const JsonPtr root(cJSON_CreateObject());
    cJSON *body = cJSON_AddObjectToObject(root.get(), "profileConfig");
    cJSON_AddStringToObject(body, "name", options.name.c_str());
    cJSON_AddStringToObject(body, "color", options.color.c_str());
    cJSON_AddStringToObject(body, "profileType", options.type.c_str());
    cJSON_AddNumberToObject(body, "vlanNum", static_cast<double>(options.vlans.size()));
    cJSON *vlans = cJSON_AddArrayToObject(body, "vlans");
    for (const auto &option : options.vlans)
        addVlan(vlans, option);
    if (!options.ptp.empty())
        cJSON_AddBoolToObject(body, "ptp", options.ptp == "on");
    if (options.overwrite)
        cJSON_AddBoolToObject(body, "overwrite", true);
    if (options.force)
        cJSON_AddBoolToObject(body, "force", true);
    const TextPtr text(cJSON_Print(root.get()));
    return text.get();
}

// --- commands

void profileTypes(openapiClientHandle_t *client, const Output &output) {
    std::vector<Row> rows;
    const JsonPtr answer(cJSON_CreateArray());
    for (const auto &entry : profileTypeTable()) {
        ProfileFeatureMask mask{};
        profileFeatureMaskGet(client, 0, entry.name, 0, &mask);
        const auto has = [&](std::uint32_t bit) { return (mask.features & bit) != 0; };
        const auto &a = entry.attributes;
        std::string features;
        const auto add = [&](bool present, const char *name) {
            if (present)
                features += (features.empty() ? "" : " ") + std::string(name);
        };
        add(has(PROFILE_FEATURE_PTP_TC), "PTP");
        add(has(PROFILE_FEATURE_AVB), "AVB");
        add(has(PROFILE_FEATURE_QOS), "QoS");
        add(a.querierInterval != 0, "querier");
        add(a.fastLeave != 0, "fast-leave");
        add(has(PROFILE_FEATURE_SONOS), "Sonos");
        add(a.rstp != 0, "RSTP");
        add(a.etcGlobal != 0, "lighting");
        add(a.lightwareIgmp != 0, "Lightware-IGMP");
        add(a.polyProxyQuerier != 0, "proxy-querier");
        rows.push_back({entry.name, a.mtu != 0 ? std::to_string(a.mtu) : "-", features});
        cJSON *object = cJSON_CreateObject();
        cJSON_AddItemToArray(answer.get(), object);
        cJSON_AddStringToObject(object, "name", entry.name);
        cJSON_AddNumberToObject(object, "mtu", a.mtu);
        cJSON_AddNumberToObject(object, "features", mask.features);
    }
    if (output.json)
        printEnvelope(RESULT_SUCCESS, "profileTypes", TextPtr(cJSON_Print(answer.get())).get());
    else
        printTable(output, {"TYPE", "MTU", "FEATURES"}, rows);
}

void profileTemplates(openapiClientHandle_t *client, const Output &output) {
    const auto text = std::make_unique<char[]>(PROFILE_TEMPLATE_LIST_SIZE);
    require(ProfileTemplateGet(client, nullptr, text.get()));
    const JsonPtr list(cJSON_Parse(text.get()));
    if (output.json) {
        printEnvelope(RESULT_SUCCESS, "profile", list != nullptr ? text.get() : "[]");
        return;
    }
    std::vector<Row> rows;
    const cJSON *item = nullptr;
    cJSON_ArrayForEach(item, list.get()) {
        rows.push_back({textOf(item, "name"), textOf(item, "description")});
    }
    printTable(output, {"TEMPLATE", "DESCRIPTION"}, rows);
}

JsonPtr profileList(openapiClientHandle_t *client, const Output &output, bool print) {
    char *out = nullptr;
    require(profileListExGet(client, &out), "the profiles cannot be read");
    const TextPtr text(out);
    if (print && output.json)
        printEnvelope(RESULT_SUCCESS, "profileList", text.get());
    return JsonPtr(cJSON_Parse(text.get()));
}

void listProfiles(openapiClientHandle_t *client, const Output &output) {
    const auto list = profileList(client, output, true);
    if (output.json)
        return;
    std::vector<Row> rows;
    const cJSON *profile = nullptr;
    cJSON_ArrayForEach(profile, list.get()) {
        std::string ids;
        const cJSON *vlan = nullptr;
        cJSON_ArrayForEach(vlan, cJSON_GetObjectItemCaseSensitive(profile, "vlans")) {
            ids += (ids.empty() ? "" : ",") + textOf(vlan, "vlanId");
        }
        rows.push_back(
            {textOf(profile, "name"), textOf(profile, "profileType"), ids, textOf(profile, "color")});
    }
    printTable(output, {"PROFILE", "TYPE", "VLANS", "COLOUR"}, rows);
}

void showProfile(openapiClientHandle_t *client, const Output &output, const std::string &name) {
    const auto list = profileList(client, output, false);
    const cJSON *profile = nullptr;
    cJSON_ArrayForEach(profile, list.get()) {
        if (textOf(profile, "name") == name)
            break;
    }
    if (profile == nullptr)
        throw Failure{RESULT_NOT_EXIST, name};
    if (output.json) {
        printEnvelope(RESULT_SUCCESS, "profile", TextPtr(cJSON_Print(profile)).get());
        return;
    }
    std::printf("%s  %s\n", output.paint("1", printable(name)).c_str(),
                printable(textOf(profile, "profileType")).c_str());
    std::vector<Row> rows;
    const cJSON *vlan = nullptr;
    cJSON_ArrayForEach(vlan, cJSON_GetObjectItemCaseSensitive(profile, "vlans")) {
        const bool exists = textOf(vlan, "exists") == "yes";
        rows.push_back({textOf(vlan, "vlanId"), textOf(vlan, "vlanType"), textOf(vlan, "profileType"),
                        exists ? rangesOf(vlan, "ports", "untagged") : "(not on the switch)",
                        rangesOf(vlan, "ports", "tagged"), rangesOf(vlan, "lags", "untagged"),
                        textOf(vlan, "ptpTc")});
    }
    printTable(output, {"VLAN", "ROLE", "TYPE", "UNTAGGED", "TAGGED", "LAGS", "PTP"}, rows);
}

void applyProfile(openapiClientHandle_t *client, const Output &output, const ApplyOptions &options) {
    const auto request = requestOf(options);
    const auto lock = operationLock();
    require(profileConfigSet(client, request.c_str()));
    if (output.json)
        printEnvelope(RESULT_SUCCESS, nullptr, nullptr);
    else
        std::puts(output.paint("32", "applied").c_str());
}

void deleteProfile(openapiClientHandle_t *client, const Output &output, const std::string &name) {
    const JsonPtr request(cJSON_CreateObject());
    cJSON_AddStringToObject(request.get(), "name", name.c_str());
    const TextPtr text(cJSON_Print(request.get()));
    const auto lock = operationLock();
    require(profileDelete(client, text.get()));
    if (output.json)
        printEnvelope(RESULT_SUCCESS, nullptr, nullptr);
    else
        std::puts(output.paint("32", "deleted").c_str());
}

cJSON *vlanObject(const VLAN_INFO_T &vlan) {
    cJSON *object = cJSON_CreateObject();
    cJSON_AddNumberToObject(object, "vlanId", vlan.vlanId);
    cJSON_AddStringToObject(object, "name", vlan.name);
    cJSON_AddStringToObject(object, "profileName", vlan.profile.profileName);
    cJSON_AddStringToObject(object, "color", vlan.color);
    cJSON_AddBoolToObject(object, "isStatic", vlan.isStatic != 0);
    cJSON_AddBoolToObject(object, "isMgmtVlan", vlan.isMgmtVlan != 0);
    const std::pair<const char *, const cJSON *> arrays[] = {{"untagPorts", vlan.untagPorts},
                                                             {"tagPorts", vlan.tagPorts},
                                                             {"untagLags", vlan.untagLags},
                                                             {"tagLags", vlan.tagLags}};
    for (const auto &[key, array] : arrays)
        cJSON_AddItemToObject(object, key, cJSON_Duplicate(array, 1));
    return object;
}

void vlans(openapiClientHandle_t *client, const Output &output, std::uint32_t only) {
    VLAN_INFOX_LIST_T *made = nullptr;
    require(vlanListAllInfoCreateEX(client, &made), "the VLANs cannot be read");
    const std::unique_ptr<VLAN_INFOX_LIST_T, void (*)(VLAN_INFOX_LIST_T *)> list(made, vlanListInfoFreeEX);
    const JsonPtr answer(cJSON_CreateArray());
    std::vector<Row> rows;
    for (std::uint32_t i = 0; i < list->count; ++i) {
        const auto &vlan = *list->ids[i];
        if (only != 0 && vlan.vlanId != only)
            continue;
        cJSON_AddItemToArray(answer.get(), vlanObject(vlan));
        rows.push_back({std::to_string(vlan.vlanId), vlan.name, vlan.profile.profileName,
                        rangesOf(vlan.untagPorts), rangesOf(vlan.tagPorts), rangesOf(vlan.untagLags),
                        rangesOf(vlan.tagLags), vlan.isMgmtVlan != 0 ? "management" : ""});
    }
    if (only != 0 && rows.empty())
        throw Failure{RESULT_NOT_EXIST, "VLAN " + std::to_string(only)};
    if (output.json)
        printEnvelope(RESULT_SUCCESS, "vlans", TextPtr(cJSON_Print(answer.get())).get());
    else
        printTable(output, {"VLAN", "NAME", "PROFILE", "UNTAGGED", "TAGGED", "LAGS", "TAGGED LAGS", ""},
                   rows);
}

// --- main

class Client {
  public:
    Client() {
        const auto name = "pavoctl_" + std::to_string(getpid());
        if (openapiClientRegister(name.c_str(), &handle_) != OPEN_E_NONE ||
            rpcclt_openapiConnectivityCheck(&handle_) != OPEN_E_NONE)
            throw Failure{RESULT_FAILED, "no switch"};
    }
    ~Client() { openapiClientTearDown(&handle_); }
    Client(const Client &) = delete;
    Client &operator=(const Client &) = delete;
    openapiClientHandle_t *get() { return &handle_; }

  private:
    openapiClientHandle_t handle_{};
};

int run(int argc, char **argv) {
    CLI::App app{"pavoctl - AV profiles and VLANs of the switch"};
    app.require_subcommand(1);
    app.footer(
        "Exit status: 0 done, 1 refused or failed (with the result code and its message), 2 wrong usage,\n"
        "3 the switch cannot be reached.\n\n"
        "A first profile:\n"
        "  pavoctl profile types\n"
        "  pavoctl profile apply --name Stage --type \"Audio Dante\" --vlan \"20 untagged=1-8 tagged=48\"\n"
        "  pavoctl profile show Stage");
    Output output;
    app.add_flag("--json", output.json, "Answers for machines: the JSON envelope of the web interface");

    auto *profile = app.add_subcommand("profile", "AV profiles");
    profile->require_subcommand(1);
    auto *types = profile->add_subcommand("types", "The profile types and what they switch on");
    auto *templates = profile->add_subcommand("templates", "The templates offered on this switch");
    auto *list = profile->add_subcommand("list", "The profiles in force");
    std::string name;
    auto *show = profile->add_subcommand("show", "One profile with its VLANs and ports");
    show->add_option("name", name)->required();
    auto *remove = profile->add_subcommand("delete", "Delete a profile; its ports fall back to VLAN 1");
    remove->add_option("name", name)->required();
    auto *apply = profile->add_subcommand("apply", "Apply a profile, or change it in place");
    ApplyOptions options;
    apply->add_option("file", options.file,
                      "Request as JSON ({\"profileConfig\": ...}); '-' reads standard input");
    apply->add_option("--name", options.name, "Profile name");
    apply->add_option("--type", options.type, "Profile type, see 'profile types'");
    apply->add_option("--color", options.color, "Display colour")->capture_default_str();
    apply->add_option("--ptp", options.ptp, "PTP transparent clock")->check(CLI::IsMember({"on", "off"}));
    apply->add_option("--vlan", options.vlans,
                      "One VLAN (up to four): \"ID type=ROLE untagged=PORTS tagged=PORTS assigned=PORTS\",\n"
                      "PORTS as 1-4,7 by interface number, ROLE for example 2 control, 3 audio");
    apply->add_flag("--overwrite", options.overwrite, "Replace conflicting configuration");
    apply->add_flag("--force", options.force, "Adapt the type to what the switch supports");

    auto *vlan = app.add_subcommand("vlan", "VLANs");
    vlan->require_subcommand(1);
    auto *vlanList = vlan->add_subcommand("list", "All VLANs with their ports");
    std::uint32_t id = 0;
    auto *vlanShow = vlan->add_subcommand("show", "One VLAN");
    vlanShow->add_option("id", id)->required()->check(CLI::Range(1, 4094));

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &e) {
        const int status = app.exit(e);
        return status == 0 ? 0 : kExitUsage;
    }

    std::unique_ptr<Client> client;
    try {
        client = std::make_unique<Client>();
    } catch (const Failure &) {
        std::fputs("pavoctl: the switch cannot be reached\n", stderr);
        return kExitNoSwitch;
    }
    try {
        if (*types)
            profileTypes(client->get(), output);
        else if (*templates)
            profileTemplates(client->get(), output);
        else if (*list)
            listProfiles(client->get(), output);
        else if (*show)
            showProfile(client->get(), output, name);
        else if (*remove)
            deleteProfile(client->get(), output, name);
        else if (*apply)
            applyProfile(client->get(), output, options);
        else if (*vlanList || *vlanShow)
            vlans(client->get(), output, id);
    } catch (const CLI::Error &e) {
        std::fprintf(stderr, "pavoctl: %s\n", e.what());
        return kExitUsage;
    } catch (const Failure &failure) {
        if (output.json)
            printEnvelope(failure.code, nullptr, nullptr);
        std::fprintf(stderr, "pavoctl: %d: %s%s%s\n", failure.code, getErrMsg(failure.code),
                     failure.detail.empty() ? "" : ": ", printable(failure.detail).c_str());
        return kExitFailed;
    }
    return 0;
}

}  // namespace

int main(int argc, char **argv) {
    // What goes wrong inside is in the log file beside the daemon's lines.
    devmgrLogOpen(LOG_SINK_FILE, LOG_FACILITY_USER, "pavoctl");
    const int status = run(argc, argv);
    devmgrLogClose();
    return status;
}
