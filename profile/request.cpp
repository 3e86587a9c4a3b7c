#include "profile/request.h"

#include <algorithm>
#include <utility>

#include "common/json.h"

namespace pavo {
namespace {

constexpr std::size_t kAddressMax = 15;

using Fault = std::optional<RequestFault>;

std::optional<std::vector<IfNum>> parsePorts(const cJSON *ports, const char *key) {
    std::vector<IfNum> out;
    const cJSON *const list = member(ports, key);
    if (list != nullptr && !cJSON_IsArray(list))
        return std::nullopt;
    const cJSON *item = nullptr;
    cJSON_ArrayForEach(item, list) {
        const auto number = integerOf(item);
        if (out.size() == PROFILE_PORTS_MAX || !number || *number < 1)
            return std::nullopt;
        out.emplace_back(static_cast<std::uint32_t>(*number));
    }
    return out;
}

// Nothing for a method or an address that cannot be one by its type or length.
std::optional<RoutingRequest> parseRouting(const cJSON *object) {
    RoutingRequest routing;
    if (const cJSON *const method = member(object, "ipConfig"); cJSON_IsNumber(method)) {
        const auto number = integerOf(method);
        if (!number)
            return std::nullopt;
        routing.method = static_cast<IpConfig>(*number);
    }
    const auto address = stringMember(object, "ipAddr").value_or("");
    const auto mask = stringMember(object, "ipMask").value_or("");
    if (address.size() > kAddressMax || mask.size() > kAddressMax)
        return std::nullopt;
    routing.address = Ipv4::parse(address);
    routing.mask = Ipv4::parse(mask);
    return routing;
}

Fault parseVlan(const cJSON *object, ProfileRequest &request) {
    const auto number = integerMember(object, "vlanId");
    const auto vlanType = integerMember(object, "vlanType");
    const cJSON *const ports = member(object, "ports");
    if (!number || !vlanType || (ports != nullptr && !cJSON_IsObject(ports)))
        return RequestFault::Parameter;
    auto untagged = parsePorts(ports, "untagged");
    auto tagged = parsePorts(ports, "tagged");
    auto assigned = parsePorts(ports, "assignedPort");
    auto routing = parseRouting(member(object, "routing"));
    if (!untagged || !tagged || !assigned || !routing)
        return RequestFault::Parameter;
    const auto id = VlanId::from(*number);
    if (!id)
        return RequestFault::VlanId;
    auto type = stringMember(object, "profileType").value_or(request.profileType);
    type.resize(std::min(type.size(), PROFILE_NAME_MAX));
    request.vlans.push_back({*id, *vlanType, std::move(type), std::move(*untagged), std::move(*tagged),
                             std::move(*assigned), *routing});
    return std::nullopt;
}

Fault parseRequest(const cJSON *body, ProfileRequest &request) {
    const auto name = stringMember(body, "name");
    const auto color = stringMember(body, "color");
    const auto type = stringMember(body, "profileType");
    const auto declared = integerMember(body, "vlanNum");
    const cJSON *const vlans = member(body, "vlans");
    if (!name || !color || !type || !declared || !cJSON_IsArray(vlans))
        return RequestFault::Parameter;
    request.name = name->substr(0, PROFILE_NAME_MAX);
    request.color = color->substr(0, PROFILE_COLOR_MAX);
    request.profileType = type->substr(0, PROFILE_NAME_MAX);
    request.declaredVlans = *declared;
    if (const cJSON *const ptp = member(body, "ptp"); ptp != nullptr)
        request.ptpTc = cJSON_IsTrue(ptp) != 0;
    const cJSON *vlan = nullptr;
    cJSON_ArrayForEach(vlan, vlans) {
        if (request.vlans.size() == PROFILE_VLANS_MAX)
            return RequestFault::Parameter;
        if (const Fault fault = parseVlan(vlan, request))
            return fault;
    }
    return std::nullopt;
}

}  // namespace

VlanSet ProfileRequest::ids() const {
    VlanSet ids;
    for (const auto &vlan : vlans)
        ids.insert(vlan.id);
    return ids;
}

std::expected<ProfileConfig, RequestFault> parseProfileConfig(const std::string &text) {
    const JsonPtr root(text.size() <= PROFILE_REQUEST_MAX ? cJSON_Parse(text.c_str()) : nullptr);
    if (root == nullptr)
        return std::unexpected(RequestFault::NoJson);
    const cJSON *const body = member(root.get(), "profileConfig");
    ProfileConfig config;
    if (!cJSON_IsObject(body))
        return std::unexpected(RequestFault::Parameter);
    if (const Fault fault = parseRequest(body, config.request))
        return std::unexpected(*fault);
    config.overwrite = boolMember(body, "overwrite").value_or(false);
    config.force = boolMember(body, "force").value_or(false);
    config.document = printJson(root.get());
    return config;
}

}  // namespace pavo
