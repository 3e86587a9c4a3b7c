#include "detection/profile_config.h"

#include "common/owners.h"
#include "common/result.h"

namespace {

constexpr int kVlanIdMax = 4094;

}  // namespace

std::uint32_t configVlanIdGet(const char *path, const char *key) {
    const JsonPtr config(jsonFileLoad(path));
    const cJSON *vlanId = cJSON_GetObjectItemCaseSensitive(config.get(), key);
    if (!cJSON_IsNumber(vlanId) || vlanId->valueint < 1 || vlanId->valueint > kVlanIdMax)
        return 0;
    return static_cast<std::uint32_t>(vlanId->valueint);
}

PortSet configPortSetGet(const cJSON *ports, const LogText<std::uint32_t> &added) {
    PortSet set;
    if (!cJSON_IsArray(ports))
        return set;
    const cJSON *element = nullptr;
    cJSON_ArrayForEach(element, ports) {
        if (!cJSON_IsNumber(element) || element->valueint < 1 ||
            element->valueint >= static_cast<int>(PORT_TABLE_SIZE)) {
            continue;
        }
        const auto port = static_cast<std::uint32_t>(element->valueint);
        set.set(port);
        added.write(LOG_LEVEL_DEBUG, __func__, __LINE__, port);
    }
    return set;
}
