#include "common/result.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string>

#include "common/log.h"
#include "common/owners.h"
#include "platform/paths.h"

namespace {

struct CodeMessage {
    std::int32_t code;
    const char *text;
};

// Searched from the front.
constexpr CodeMessage kMessages[] = {
    {0, "Success"},
    {999, "unknown fail"},
    {10000, "General Failed"},
    {10001, "system error"},
    {10002, "Invalid Pointer"},
    {10027, "Disable PTP Mode"},
    {10003, "Invalid argument"},
    {10004, "Not implemented"},
    {10005, "Out of memory"},
    {10006, "Buffer error"},
    {10007, "Permission denied"},
    {10008, "Timed out"},
    {10009, "Object not init"},
    {10010, "Object init failed"},
    {10011, "Object exist"},
    {10012, "Object not exist"},
    {10015, "Device or resource empty"},
    {10016, "Device or resource open failed"},
    {10017, "Device or resource read failed"},
    {10018, "Device or resource write failed"},
    {10019, "Device or resource delete failed"},
    {10020, "Network is unreachable"},
    {10021, "Illegal request"},
    {10022, "Invalid weibo user"},
    {10023, "Request api not found"},
    {10024, "HTTP method is not suported for this request"},
    {10025, "Upload file error"},
    {10026, "upgrade file error"},
    {12001, "User name or password is incorrect"},
    {12002, "Change default password"},
    {12003, "User lockout when login fail more than 5 time, please try again in 5 minutes"},
    {13103, "Add Interface IP error"},
    {13101, "Create Vlan error"},
    {14101,
     "This Template is being used by a Network Profile. Please delete the associated Network Profile first"},
    {14102, "Profile type was duplicated"},
    {14103, "The AVB profile template should be only configured on one vlan"},
    {14104,
     "Unable to set 802.1AS Status with Enable,PTP TC is enable. Disable PTP TC to enable 802.1AS Status"},
    {14105,
     "Unable to set PTP TC with Enable,802.1AS Status is enable. Disable 802.1AS Status to enable PTP TC"},
    {14106, "The Shure profile template should be only configured on one vlan"},
    {14107, "The profile name is already in use. Please enter a different name."},
    {14108, "The current device does not support this profile"},
    {14109, "The SMPTE profile template should be only configured on one vlan"},
    {15001, "Setting LAG Name is failed. Please check if it is a duplicate name"},
    {16001, "The maximum of 100 Time Ranges is already configured"},
    {17001, "The configuration is invalid"},
    {18001,
     "IP Address/Netmask entered conflicts with the configured IP Address/Netmask of a router interface"},
    {20001, "Invalid physical mode for this port."},
    {11000, ""},
    {17002, "Unsupported Feature"},
    {17003, "PTP Boundary Clock API is not supported on this model"},
    {26001, "Kernel upgrade required, please upload ONIE file"},
    {-200, "Maximum user accounts reached"},
    {-201, "Invalid user name, does not meet policy"},
    {-202, "Invalid password, does not meet policy"},
    {-203, "Invalid user type"},
    {-204, "Invalid user, user does not exist"},
    {-205, "User account already exist"},
    {-206, "Should not modify user type of admin account"},
    {-207, "Request failed, not a privileged user"},
    {-208, "Can not create/delete admin account"},
    {-300, "Failed to set configuration on the device"},
    {-301, "Failed to get configuration from the device"},
    {-302, "Invalid REST API request"},
    {-7, "Failed to allocate memory"},
};

// Adds `item` to `obj`, which owns it from then on. False when memory runs out.
bool adopt(cJSON *obj, const char *key, JsonPtr item) {
    if (!cJSON_AddItemToObject(obj, key, item.get()))
        return false;
    static_cast<void>(item.release());
    return true;
}

enum class Envelope { Built, NoRoot, NoResp, NoData };

// The answer as an object; `data` under `key` when the code is 0 and a key is given.
Envelope envelopeBuild(std::int32_t code, const char *key, const char *data, JsonPtr &root) {
    root.reset(cJSON_CreateObject());
    if (root == nullptr)
        return Envelope::NoRoot;
    JsonPtr resp(cJSON_CreateObject());
    if (resp == nullptr || cJSON_AddNumberToObject(resp.get(), "respCode", code) == nullptr ||
        cJSON_AddStringToObject(resp.get(), "respMsg", getErrMsg(code)) == nullptr ||
        cJSON_AddStringToObject(resp.get(), "status", code == RESULT_SUCCESS ? "success" : "fail") == nullptr)
        return Envelope::NoResp;
    if (code == RESULT_SUCCESS && key != nullptr) {
        JsonPtr parsed(cJSON_Parse(data));
        if (parsed == nullptr || !adopt(root.get(), key, std::move(parsed)))
            return Envelope::NoData;
    }
    return adopt(root.get(), "resp", std::move(resp)) ? Envelope::Built : Envelope::NoResp;
}

std::int32_t missingParameter(const cJSON *obj, const char *key) {
    const TextPtr request(cJSON_Print(obj));
    LOG_ERROR("[%s:%d] %s param error :%s\r\n", key, request != nullptr ? request.get() : "");
    return RESULT_INVALID_ARGUMENT;
}

}  // namespace

const char *getErrMsg(std::int32_t code) {
    const auto *const row = std::find_if(std::begin(kMessages), std::end(kMessages),
                                         [code](const CodeMessage &message) { return message.code == code; });
    return row != std::end(kMessages) ? row->text : "Error code unknown";
}

int responseJsonStr(std::int32_t code, const char *key, const char *data, char *out) {
    JsonPtr root;
    if (envelopeBuild(code, key, data, root) != Envelope::Built)
        return -1;
    const TextPtr text(cJSON_Print(root.get()));
    if (text == nullptr) {
        LOG_ERROR("[%s:%d] package response str error\r\n");
        return -1;
    }
    std::memcpy(out, text.get(), std::strlen(text.get()));
    return 0;
}

std::int32_t responseJsonRreallocStr(std::int32_t code, const char *key, const char *data, char **out) {
    JsonPtr root;
    switch (envelopeBuild(code, data != nullptr ? key : nullptr, data, root)) {
        case Envelope::NoRoot:
            LOG_ERROR("[%s:%d] [MEM] Failed to create root object\n");
            return RESULT_FAILED;
        case Envelope::NoResp:
            LOG_ERROR("[%s:%d] [MEM] Failed to create resp object\n");
            return RESULT_FAILED;
        case Envelope::NoData:
            LOG_ERROR("[%s:%d] [MEM] Failed to parse data JSON\n");
            return RESULT_FAILED;
        case Envelope::Built:
            break;
    }
    char *const text = cJSON_Print(root.get());
    if (text == nullptr) {
        LOG_ERROR("[%s:%d] [MEM] Failed to print JSON\n");
        return RESULT_FAILED;
    }
    std::free(*out);
    *out = text;
    return RESULT_SUCCESS;
}

std::int32_t responseJsonToStr(const cJSON *obj, char **out) {
    *out = cJSON_Print(obj);
    if (*out == nullptr) {
        LOG_ERROR("[%s:%d] Response error\r\n");
        return RESULT_FAILED;
    }
    return RESULT_SUCCESS;
}

std::int32_t getStrAndCpyTo(const cJSON *obj, const char *key, char *dst, std::size_t cap) {
    const char *const text = cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(obj, key));
    if (text == nullptr)
        return missingParameter(obj, key);
    std::strncpy(dst, text, cap);
    return RESULT_SUCCESS;
}

std::int32_t getIntAndCpyTo(const cJSON *obj, const char *key, std::int32_t *value) {
    const cJSON *const item = cJSON_GetObjectItemCaseSensitive(obj, key);
    if (!cJSON_IsNumber(item))
        return missingParameter(obj, key);
    *value = item->valueint;
    return RESULT_SUCCESS;
}

cJSON *jsonFileLoad(const char *path) {
    // Not to block: a FIFO in the place of the file would hold up the caller for ever.
    const int fd = open(platform::fsPath(path).c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return nullptr;
    const FilePtr file(fdopen(fd, "r"));
    if (file == nullptr) {
        close(fd);
        return nullptr;
    }
    struct stat info{};
    if (fstat(fd, &info) != 0 || !S_ISREG(info.st_mode) || info.st_size <= 0)
        return nullptr;
    if (static_cast<std::size_t>(info.st_size) > JSON_FILE_MAX) {
        LOG_ERROR("[%s:%d] file too large:%s\r\n", path);
        return nullptr;
    }
    std::string text(static_cast<std::size_t>(info.st_size), '\0');
    text.resize(std::fread(text.data(), 1, text.size(), file.get()));
    return cJSON_Parse(text.c_str());
}
