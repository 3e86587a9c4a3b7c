#include "profile/request.h"

#include <utility>

#include "common/json.h"
#include "common/text.h"

namespace pavo {
namespace {

constexpr std::size_t kAddressMax = 15;
constexpr std::size_t kShownMax = 60;  // bytes of a value in a reason

// A value of the request and where it stands; null when there is none.
struct Field {
    const cJSON *item;
    std::string path;

    Field member(const char *key) const {
        return {pavo::member(item, key), path.empty() ? key : path + "." + key};
    }
    Field element(const cJSON *element, std::size_t index) const {
        return {element, path + "[" + std::to_string(index) + "]"};
    }
};

// A value as it stands in the request, for people.
std::string show(const cJSON *item) {
    if (cJSON_IsString(item))
        return quoteText(item->valuestring);
    const auto text = printJsonLine(item);
    return wellFormed(printable(cutToBytes(text, kShownMax))) + (text.size() > kShownMax ? "..." : "");
}

// Reads values and keeps the first fault; once there is one, what is read is of no use.
class Parser {
  public:
    std::optional<RequestFault> takeFault() { return std::move(fault_); }

    void refuse(std::string reason, RequestFault::Kind kind = RequestFault::Kind::Value) {
        if (!fault_)
            fault_ = {kind, std::move(reason)};
    }
    void refuseAs(const Field &field, const char *what, RequestFault::Kind kind = RequestFault::Kind::Value) {
        if (fault_)
            return;
        const auto name = '"' + field.path + '"';
        refuse(
            field.item == nullptr ? name + " is missing" : name + ": " + show(field.item) + " is not " + what,
            kind);
    }

    ProfileConfig parse(const Field &body);

  private:
    std::string requireString(const Field &field) {
        const char *const text = cJSON_GetStringValue(field.item);
        if (text == nullptr)
            refuseAs(field, "a string", RequestFault::Kind::Parameter);
        return text != nullptr ? text : "";
    }
    // A member that is missing or no string counts as empty.
    std::string addressText(const Field &field) {
        const char *const text = cJSON_GetStringValue(field.item);
        const std::string address = text != nullptr ? text : "";
        if (address.size() > kAddressMax)
            refuseAs(field, "an IPv4 address");
        return address;
    }
    std::vector<IfNum> parsePorts(const Field &list);
    RoutingRequest parseRouting(const Field &routing);
    void parseVlan(const Field &object, ProfileRequest &request);
    void parseRequest(const Field &body, ProfileRequest &request);

    std::optional<RequestFault> fault_;
};

std::vector<IfNum> Parser::parsePorts(const Field &list) {
    std::vector<IfNum> out;
    if (list.item != nullptr && !cJSON_IsArray(list.item))
        refuseAs(list, "an array");
    const cJSON *item = nullptr;
    cJSON_ArrayForEach(item, list.item) {
        if (out.size() == PROFILE_PORTS_MAX) {
            refuse('"' + list.path + "\" has more than " + std::to_string(PROFILE_PORTS_MAX) + " ports");
            break;
        }
        const auto number = integerOf(item).value_or(0);
        if (number < 1)
            refuseAs(list.element(item, out.size()), "an interface number");
        out.emplace_back(static_cast<std::uint32_t>(number));
    }
    return out;
}

RoutingRequest Parser::parseRouting(const Field &routing) {
    RoutingRequest out;
    if (const auto method = routing.member("ipConfig"); cJSON_IsNumber(method.item)) {
        const auto number = integerOf(method.item);
        if (!number || *number < static_cast<std::int32_t>(IpConfig::Keep) ||
            *number > static_cast<std::int32_t>(IpConfig::Manual))
            refuseAs(method, "an IP configuration method (0 to 3)");
        else
            out.method = static_cast<IpConfig>(*number);
    }
    out.address = Ipv4::parse(addressText(routing.member("ipAddr")));
    out.mask = Ipv4::parse(addressText(routing.member("ipMask")));
    return out;
}

void Parser::parseVlan(const Field &object, ProfileRequest &request) {
    if (!cJSON_IsObject(object.item))
        refuseAs(object, "an object");
    const auto idField = object.member("vlanId");
    const auto id = VlanId::from(integerOf(idField.item).value_or(0));
    if (!id)
        refuseAs(idField, "a VLAN id (1 to 4094)");
    const auto typeField = object.member("vlanType");
    const auto vlanType = integerOf(typeField.item);
    if (!vlanType)
        refuseAs(typeField, "a 32-bit integer");
    const auto ports = object.member("ports");
    if (ports.item != nullptr && !cJSON_IsObject(ports.item))
        refuseAs(ports, "an object");
    const auto type = stringMember(object.item, "profileType").value_or(request.profileType);
    request.vlans.push_back({id.value_or(kDefaultVlan), vlanType.value_or(0),
                             cutToBytes(type, PROFILE_NAME_MAX), parsePorts(ports.member("untagged")),
                             parsePorts(ports.member("tagged")), parsePorts(ports.member("assignedPort")),
                             parseRouting(object.member("routing"))});
}

void Parser::parseRequest(const Field &body, ProfileRequest &request) {
    request.name = cutProfileName(requireString(body.member("name")));
    request.color = cutToBytes(requireString(body.member("color")), PROFILE_COLOR_MAX);
    request.profileType = cutToBytes(requireString(body.member("profileType")), PROFILE_NAME_MAX);
    const auto declared = integerMember(body.item, "vlanNum");
    if (!declared)
        refuseAs(body.member("vlanNum"), "a 32-bit integer", RequestFault::Kind::Parameter);
    request.declaredVlans = declared.value_or(0);
    const auto vlans = body.member("vlans");
    if (!cJSON_IsArray(vlans.item))
        refuseAs(vlans, "an array", RequestFault::Kind::Parameter);
    if (const cJSON *const ptp = member(body.item, "ptp"); ptp != nullptr)
        request.ptpTc = cJSON_IsTrue(ptp) != 0;
    const cJSON *vlan = nullptr;
    cJSON_ArrayForEach(vlan, vlans.item) {
        if (request.vlans.size() == PROFILE_VLANS_MAX) {
            refuse("\"vlans\" has more than " + std::to_string(PROFILE_VLANS_MAX) + " VLANs");
            break;
        }
        parseVlan(vlans.element(vlan, request.vlans.size()), request);
    }
}

ProfileConfig Parser::parse(const Field &body) {
    ProfileConfig config;
    parseRequest(body, config.request);
    config.overwrite = boolMember(body.item, "overwrite").value_or(false);
    config.force = boolMember(body.item, "force").value_or(false);
    if (const auto plan = body.member("plan"); plan.item != nullptr) {
        // A plan that is taken for no plan changes the switch.
        if (!cJSON_IsBool(plan.item))
            refuseAs(plan, "true or false");
        config.plan = cJSON_IsTrue(plan.item) != 0;
    }
    return config;
}

}  // namespace

std::string cutProfileName(std::string_view name) {
    return cutToBytes(name, PROFILE_NAME_MAX);
}

VlanSet ProfileRequest::ids() const {
    VlanSet ids;
    for (const auto &vlan : vlans)
        ids.insert(vlan.id);
    return ids;
}

std::expected<ProfileConfig, RequestFault> parseProfileConfig(const std::string &text) {
    using Kind = RequestFault::Kind;
    if (text.size() > PROFILE_REQUEST_MAX)
        return std::unexpected(RequestFault{
            Kind::NoJson, "the request has more than " + std::to_string(PROFILE_REQUEST_MAX) + " bytes"});
    const JsonPtr root(cJSON_Parse(text.c_str()));
    if (root == nullptr)
        return std::unexpected(RequestFault{Kind::NoJson, "the request is not JSON"});
    Parser parser;
    if (const Field body{member(root.get(), "profileConfig"), "profileConfig"}; !cJSON_IsObject(body.item))
        parser.refuseAs(body, "an object", Kind::Parameter);
    auto config = parser.parse({member(root.get(), "profileConfig"), ""});
    if (auto fault = parser.takeFault())
        return std::unexpected(std::move(*fault));
    config.document = printJson(root.get());
    return config;
}

}  // namespace pavo
