#include "store/shure_config.h"

#include "common/files.h"
#include "common/json.h"
#include "platform/paths.h"

namespace pavo {

std::vector<std::int32_t> parseShureDevicePorts(const std::string &text) {
    const JsonPtr config(cJSON_Parse(text.c_str()));
    std::vector<std::int32_t> ports;
    const cJSON *port = nullptr;
    cJSON_ArrayForEach(port, member(config.get(), "shureDevicePort")) {
        if (cJSON_IsNumber(port))
            ports.push_back(port->valueint);
    }
    return ports;
}

std::vector<std::int32_t> readShureDevicePorts() {
    return parseShureDevicePorts(readFile(platform::paths::kShureConfig, JSON_FILE_MAX).value_or(""));
}

}  // namespace pavo
