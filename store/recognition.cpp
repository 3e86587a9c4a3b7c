#include "store/recognition.h"

#include <charconv>

#include "common/files.h"
#include "common/json.h"
#include "platform/paths.h"

namespace pavo {
namespace {

// Digits of a key.
constexpr std::size_t kKeyLength = 7;

}  // namespace

std::vector<RecognisedVendor> parseRecognition(const std::string &text) {
    std::vector<RecognisedVendor> vendors;
    const JsonPtr root(cJSON_Parse(text.c_str()));
    const cJSON *item = nullptr;
    if (!cJSON_IsObject(root.get()))
        return vendors;
    cJSON_ArrayForEach(item, root.get()) {
        const std::string_view key = item->string;
        std::uint32_t number = 0;
        const auto parsed = std::from_chars(key.data(), key.data() + key.size(), number);
        if (cJSON_IsString(item) && parsed.ec == std::errc() && parsed.ptr == key.data() + key.size())
            vendors.push_back({IfNum(number), item->valuestring});
    }
    return vendors;
}

std::string printRecognition(std::span<const RecognisedVendor> vendors) {
    const JsonPtr root(cJSON_CreateObject());
    for (const auto &[port, vendor] : vendors) {
        const std::string key = std::to_string(port.number()).substr(0, kKeyLength);
        if (cJSON_AddStringToObject(root.get(), key.c_str(), vendor.c_str()) == nullptr)
            return {};
    }
    return root != nullptr ? printJson(root.get()) : std::string();
}

std::vector<RecognisedVendor> readRecognition(Where where) {
    const auto text = readFile(platform::paths::kRecognition, JSON_FILE_MAX, where);
    return text ? parseRecognition(*text) : std::vector<RecognisedVendor>();
}

}  // namespace pavo
