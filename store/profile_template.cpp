#include "store/profile_template.h"

#include <algorithm>

#include "common/result.h"
#include "platform/paths.h"
#include "store/profile_types.h"

namespace {

constexpr std::size_t kNameMax = 255;
constexpr std::size_t kUserNameMax = 31;
constexpr std::size_t kUserPathMax = 126;

bool isPlainFileName(std::string_view name) {
    return !name.empty() && name != "." && name != ".." &&
           std::none_of(name.begin(), name.end(),
                        [](unsigned char c) { return c == '/' || c < 0x20 || c == 0x7f; });
}

std::string templatePath(std::string_view typeName, std::size_t nameMax) {
    const std::string name = profileTemplateFileName(typeName.substr(0, nameMax));
    return isPlainFileName(name) ? platform::paths::kProfileTemplateDir + name : std::string();
}

}  // namespace

std::string profileTemplateFileName(std::string_view typeName) {
    std::string name(typeName);
    std::replace(name.begin(), name.end(), ' ', '_');
    return name;
}

std::string profileTemplatePath(std::string_view typeName) {
    return templatePath(typeName, kNameMax);
}

std::string profileTemplateUserPath(std::string_view typeName) {
    return templatePath(typeName, kUserNameMax).substr(0, kUserPathMax);
}

cJSON *profileTemplateLoad(const char *typeName) {
    if (typeName == nullptr)
        return nullptr;
    const auto load = [](const std::string &path) {
        return path.empty() ? nullptr : jsonFileLoad(path.c_str());
    };
    cJSON *const found = load(profileTemplatePath(typeName));
    // A user's own template of the type goes before the shipped one.
    if (found == nullptr && std::string_view(typeName) == PROFILE_TYPE_NAME_POLY)
        return load(profileTemplatePath(PROFILE_TEMPLATE_FILE_POLY));
    return found;
}

std::string profileVlanConfigPath(std::int32_t vlanId) {
    return std::string(platform::paths::kVlanProfileConfigDir) + "/" + std::to_string(vlanId);
}
