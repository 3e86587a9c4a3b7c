#include "store/device_states.h"

#include <algorithm>
#include <array>

#include "common/files.h"
#include "common/json.h"
#include "common/text.h"
#include "platform/paths.h"

namespace pavo {
namespace {

using Kind = DeviceState::Kind;

constexpr std::array kKinds = {Kind::Seen, Kind::Missing, Kind::Unseen, Kind::Leaving, Kind::Refused};

bool addText(cJSON *object, const char *key, const std::string &text) {
    return cJSON_AddStringToObject(object, key, validUtf8(text).c_str()) != nullptr;
}

bool addNumber(cJSON *object, const char *key, std::uint32_t number) {
    return cJSON_AddNumberToObject(object, key, number) != nullptr;
}

bool addDevice(cJSON *list, const DeviceState &device) {
    cJSON *const object = cJSON_CreateObject();
    if (!cJSON_AddItemToArray(list, object)) {
        cJSON_Delete(object);
        return false;
    }
    return addText(object, "family", device.family) && addText(object, "address", device.address) &&
           (!device.port || addNumber(object, "ifNum", device.port.number())) &&
           (!device.vlan || addNumber(object, "vlanId", device.vlan->number())) &&
           addText(object, "state", wordOf(device.kind)) &&
           (device.kind != Kind::Missing || (addNumber(object, "missed", device.missed) &&
                                             addNumber(object, "missedMax", device.missedMax))) &&
           (device.reason.empty() || addText(object, "reason", device.reason));
}

std::string textOf(const cJSON *object, const char *key) {
    const cJSON *const item = cJSON_GetObjectItemCaseSensitive(object, key);
    return cJSON_IsString(item) ? item->valuestring : "";
}

std::uint32_t numberOf(const cJSON *object, const char *key) {
    const cJSON *const item = cJSON_GetObjectItemCaseSensitive(object, key);
    return cJSON_IsNumber(item) && item->valueint > 0 ? static_cast<std::uint32_t>(item->valueint) : 0;
}

std::optional<DeviceState> parseDevice(const cJSON *object) {
    const std::string word = textOf(object, "state");
    const auto *const kind = std::ranges::find(kKinds, word, wordOf);
    DeviceState device{.family = textOf(object, "family"),
                       .address = textOf(object, "address"),
                       .port = IfNum(numberOf(object, "ifNum")),
                       .vlan = VlanId::from(static_cast<std::int64_t>(numberOf(object, "vlanId"))),
                       .missed = numberOf(object, "missed"),
                       .missedMax = numberOf(object, "missedMax"),
                       .reason = textOf(object, "reason")};
    if (kind == kKinds.end() || device.family.empty() || device.address.empty())
        return std::nullopt;
    device.kind = *kind;
    return device;
}

}  // namespace

const char *wordOf(DeviceState::Kind kind) {
    switch (kind) {
        case Kind::Seen:
            return "seen";
        case Kind::Missing:
            return "missing";
        case Kind::Unseen:
            return "unseen";
        case Kind::Leaving:
            return "leaving";
        case Kind::Refused:
            break;
    }
    return "refused";
}

std::string printDeviceStates(std::span<const DeviceState> devices) {
    const JsonPtr root(cJSON_CreateObject());
    cJSON *const list = cJSON_AddArrayToObject(root.get(), "devices");
    const bool isWhole = list != nullptr &&
                         std::ranges::all_of(devices, [&](const auto &one) { return addDevice(list, one); });
    return isWhole ? printJsonLine(root.get()) : "";
}

std::optional<std::vector<DeviceState>> parseDeviceStates(const std::string &text) {
    const JsonPtr root(cJSON_Parse(text.c_str()));
    const cJSON *const list = cJSON_GetObjectItemCaseSensitive(root.get(), "devices");
    if (!cJSON_IsArray(list))
        return std::nullopt;
    std::vector<DeviceState> devices;
    const cJSON *item = nullptr;
    cJSON_ArrayForEach(item, list) {
        if (auto device = parseDevice(item))
            devices.push_back(*std::move(device));
    }
    return devices;
}

Result<> writeDeviceStates(std::span<const DeviceState> devices, Where where) {
    const std::string text = printDeviceStates(devices);
    return text.empty() ? failed(ResultCode::Failed, "out of memory")
                        : replaceFile(platform::paths::kDeviceStates, text, where);
}

void removeDeviceStates() {
    removeFile(platform::paths::kDeviceStates);
}

std::optional<std::vector<DeviceState>> readDeviceStates(Where where) {
    const auto text = readFile(platform::paths::kDeviceStates, JSON_FILE_MAX, where);
    return text ? parseDeviceStates(*text) : std::nullopt;
}

}  // namespace pavo
