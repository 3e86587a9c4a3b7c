#include "store/vlan_settings.h"

#include <algorithm>

#include "common/files.h"
#include "common/ipv4.h"
#include "common/json.h"
#include "common/text.h"
#include "platform/paths.h"

namespace pavo {
namespace {

std::string addressMember(const cJSON *object, const char *key) {
    const auto text = stringMember(object, key);
    return text && Ipv4::parse(*text) ? *text : "";
}

std::optional<VlanRouting> parseRouting(const cJSON *object) {
    if (!cJSON_IsObject(object))
        return std::nullopt;
    VlanRouting routing{boolMember(object, "routing").value_or(false),
                        boolMember(object, "dhcp").value_or(false), addressMember(object, "ipAddr"),
                        addressMember(object, "ipMask")};
    if (routing.ip.empty() || routing.mask.empty())
        routing.ip = routing.mask = "";
    return routing;
}

// Nothing in a file of another program: those do not say who created the VLAN.
std::optional<VlanHistory> parseHistory(const cJSON *file) {
    const auto created = boolMember(file, "created");
    if (!created)
        return std::nullopt;
    const std::string oldName = stringMember(file, "oldName").value_or("");
    return VlanHistory{*created, isVlanName(oldName) ? oldName : "",
                       parseRouting(member(file, "oldRouting"))};
}

std::optional<std::vector<IfNum>> parsePorts(const cJSON *array) {
    if (!cJSON_IsArray(array))
        return std::nullopt;
    std::vector<IfNum> ports;
    const cJSON *item = nullptr;
    cJSON_ArrayForEach(item, array) {
        if (const auto number = integerOf(item); number && *number > 0)
            ports.emplace_back(static_cast<std::uint32_t>(*number));
    }
    return ports;
}

bool addConfig(cJSON *file, VlanId id, const VlanSettings &settings) {
    cJSON *const config = cJSON_AddObjectToObject(file, "config");
    return cJSON_AddNumberToObject(config, "vlanId", id.number()) != nullptr &&
           cJSON_AddNumberToObject(config, "vlanType", settings.vlanType) != nullptr &&
           cJSON_AddStringToObject(config, "profileType", settings.profileType.c_str()) != nullptr &&
           (!settings.ptpTc || cJSON_AddBoolToObject(config, "ptpTc", *settings.ptpTc) != nullptr) &&
           addNumbers(config, "assignedPort", settings.assignedPorts.value_or(std::vector<IfNum>{}));
}

bool addRouting(cJSON *file, const VlanRouting &routing) {
    cJSON *const object = cJSON_AddObjectToObject(file, "oldRouting");
    return cJSON_AddBoolToObject(object, "routing", routing.routing) != nullptr &&
           cJSON_AddBoolToObject(object, "dhcp", routing.dhcp) != nullptr &&
           cJSON_AddStringToObject(object, "ipAddr", routing.ip.c_str()) != nullptr &&
           cJSON_AddStringToObject(object, "ipMask", routing.mask.c_str()) != nullptr;
}

bool addHistory(cJSON *file, const VlanHistory &history) {
    return cJSON_AddBoolToObject(file, "created", history.created) != nullptr &&
           cJSON_AddStringToObject(file, "oldName", history.oldName.c_str()) != nullptr &&
           (!history.oldRouting || addRouting(file, *history.oldRouting));
}

}  // namespace

bool isVlanName(std::string_view name) {
    return !name.empty() && isUtf8(name) && std::ranges::none_of(name, [](unsigned char c) {
        return c < 0x20 || c == 0x7f || c == '"' || c == '\\';
    });
}

std::optional<VlanSettings> VlanSettings::parse(const std::string &text) {
    const JsonPtr file(cJSON_Parse(text.c_str()));
    if (file == nullptr)
        return std::nullopt;
    const cJSON *const config = member(file.get(), "config");
    const cJSON *const ptpTc = member(config, "ptpTc");
    VlanSettings settings;
    settings.vlanType = integerMember(config, "vlanType").value_or(0);
    settings.profileType = stringMember(config, "profileType").value_or("");
    // Whatever stands there states it; only true switches it on.
    if (ptpTc != nullptr)
        settings.ptpTc = cJSON_IsTrue(ptpTc) != 0;
    settings.assignedPorts = parsePorts(member(config, "assignedPort"));
    settings.history = parseHistory(file.get());
    return settings;
}

std::string VlanSettings::print(VlanId id) const {
    const JsonPtr file(cJSON_CreateObject());
    const bool complete =
        addConfig(file.get(), id, *this) && addHistory(file.get(), history.value_or(VlanHistory{}));
    return complete ? printJson(file.get()) : "";
}

std::string vlanSettingsPath(VlanId id) {
    return std::string(platform::paths::kVlanProfileConfigDir) + "/" + std::to_string(id.number());
}

std::optional<VlanSettings> readVlanSettings(VlanId id, Where where) {
    const auto text = readFile(vlanSettingsPath(id), JSON_FILE_MAX, where);
    return text ? VlanSettings::parse(*text) : std::nullopt;
}

}  // namespace pavo
