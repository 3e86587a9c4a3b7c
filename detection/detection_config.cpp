#include "detection/detection_config.h"

#include "common/json.h"

namespace pavo {
namespace {

std::optional<VlanId> vlanMember(const cJSON *object, const char *key) {
    const cJSON *const number = member(object, key);
    return cJSON_IsNumber(number) ? VlanId::from(number->valueint) : std::nullopt;
}

// Nothing that is missing; no numbers in what is no array.
std::optional<std::vector<IfNum>> portsMember(const cJSON *object, const char *key) {
    const cJSON *const array = member(object, key);
    if (array == nullptr)
        return std::nullopt;
    std::vector<IfNum> ports;
    const cJSON *element = nullptr;
    if (cJSON_IsArray(array))
        cJSON_ArrayForEach(element, array) if (cJSON_IsNumber(element))
            ports.emplace_back(static_cast<std::uint32_t>(element->valueint));
    return ports;
}

}  // namespace

std::optional<DetectionConfig> parseDetectionConfig(const std::string &text, const char *portsKey) {
    const JsonPtr config(cJSON_Parse(text.c_str()));
    if (config == nullptr)
        return std::nullopt;
    return DetectionConfig{.audioVlan = vlanMember(config.get(), "audioVlanID"),
                           .controlVlan = vlanMember(config.get(), "controlVlanID"),
                           .ports = portsMember(config.get(), portsKey)};
}

std::optional<DetectionConfig> parseAssignedPorts(const std::string &text) {
    const JsonPtr request(cJSON_Parse(text.c_str()));
    if (request == nullptr)
        return std::nullopt;
    const cJSON *const vlans = member(member(request.get(), "profileConfig"), "vlans");
    const cJSON *const first = cJSON_IsArray(vlans) ? cJSON_GetArrayItem(vlans, 0) : nullptr;
    return DetectionConfig{
        .audioVlan = {}, .controlVlan = {}, .ports = portsMember(member(first, "ports"), "assignedPort")};
}

}  // namespace pavo
