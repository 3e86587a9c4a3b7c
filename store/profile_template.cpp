#include "store/profile_template.h"

#include <algorithm>

#include "common/files.h"
#include "common/json.h"
#include "platform/paths.h"
#include "store/profile_types.h"

namespace pavo {
namespace {

constexpr std::size_t kNameMax = 255;
constexpr std::size_t kUserNameMax = 31;
constexpr std::size_t kUserPathMax = 126;

bool isPlainFileName(std::string_view name) {
    return !name.empty() && name != "." && name != ".." &&
           std::ranges::none_of(name, [](unsigned char c) { return c == '/' || c < 0x20 || c == 0x7f; });
}

std::string templatePath(std::string_view typeName, std::size_t nameMax) {
    const std::string name = profileTemplateFileName(typeName.substr(0, nameMax));
    return isPlainFileName(name) ? platform::paths::kProfileTemplateDir + name : std::string();
}

struct KeyName {
    TemplateKey key;
    const char *name;
    const char *object = nullptr;  // of which it is a member; null: of the template itself
};

constexpr KeyName kKeyNames[] = {
    {.key = TemplateKey::Ptp, .name = "PTP"},
    {.key = TemplateKey::PtpBoundaryClock, .name = "PTP-BC"},
    {.key = TemplateKey::Avb, .name = "AVB"},
    {.key = TemplateKey::FlowControl, .name = "flowControl"},
    {.key = TemplateKey::Sonos, .name = "Sonos"},
    {.key = TemplateKey::Storm, .name = "storm"},
    {.key = TemplateKey::Stp, .name = "STP"},
    {.key = TemplateKey::Lldp, .name = "LLDP"},
    {.key = TemplateKey::Isdp, .name = "ISDP"},
    {.key = TemplateKey::Poe, .name = "poe"},
    {.key = TemplateKey::Qos, .name = "qos"},
    {.key = TemplateKey::Mtu, .name = "MTU"},
    {.key = TemplateKey::QueryInterval, .name = "queryInterval", .object = "multicast"},
};

TemplateValue valueOf(const cJSON *item) {
    if (item == nullptr)
        return TemplateValue::Missing;
    if (cJSON_IsBool(item))
        return cJSON_IsTrue(item) ? TemplateValue::True : TemplateValue::False;
    return TemplateValue::Other;
}

}  // namespace

std::string profileTemplateFileName(std::string_view typeName) {
    std::string name(typeName);
    std::ranges::replace(name, ' ', '_');
    return name;
}

std::string profileTemplatePath(std::string_view typeName) {
    return templatePath(typeName, kNameMax);
}

std::vector<std::string> profileTemplateCandidates(std::string_view typeName) {
    std::vector<std::string> paths;
    if (std::string path = profileTemplatePath(typeName); !path.empty())
        paths.push_back(std::move(path));
    // A user's own template of the type goes before the shipped one.
    if (typeName == PROFILE_TYPE_NAME_POLY)
        paths.push_back(profileTemplatePath(PROFILE_TEMPLATE_FILE_POLY));
    return paths;
}

std::string profileTemplateUserPath(std::string_view typeName) {
    return templatePath(typeName, kUserNameMax).substr(0, kUserPathMax);
}

std::string profileExFilePath(std::string_view typeName) {
    const std::string name = profileTemplateFileName(typeName);
    return isPlainFileName(name) ? std::string(platform::paths::kPavoExDir) + "/" + name : std::string();
}

std::optional<ProfileTemplate> ProfileTemplate::parse(const std::string &text) {
    const JsonPtr json(cJSON_Parse(text.c_str()));
    if (json == nullptr)
        return std::nullopt;
    ProfileTemplate out;
    for (const KeyName &row : kKeyNames) {
        const cJSON *const object = row.object != nullptr ? member(json.get(), row.object) : json.get();
        out.values_[static_cast<std::size_t>(row.key)] = valueOf(member(object, row.name));
    }
    return out;
}

std::optional<ProfileTemplate> loadProfileTemplate(std::string_view typeName, Where where) {
    for (const std::string &path : profileTemplateCandidates(typeName))
        if (const auto text = readFile(path, JSON_FILE_MAX, where))
            if (auto parsed = ProfileTemplate::parse(*text))
                return parsed;
    return std::nullopt;
}

const ProfileTemplate *ProfileTemplateCache::find(const std::string &typeName) {
    auto known = templates_.find(typeName);
    if (known == templates_.end()) {
        if (templates_.size() >= namesMax_)
            return nullptr;
        known = templates_.emplace(typeName, loadProfileTemplate(typeName)).first;
    }
    const std::optional<ProfileTemplate> &found = known->second;
    return found ? &*found : nullptr;
}

}  // namespace pavo
