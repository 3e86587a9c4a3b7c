#include "profile/templates.h"

#include <cjson/cJSON.h>
#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "common/log.h"
#include "common/owners.h"
#include "common/result.h"
#include "platform/paths.h"
#include "store/profile_db.h"
#include "store/profile_template.h"
#include "store/profile_types.h"
#include "swapi/cli_apply.h"
#include "swapi/features.h"

namespace {

// --- feature mask

constexpr std::int32_t kHarmanAclVlanType = 3;

enum class Sets { True, False, Present };

struct TemplateBit {
    const char *key;
    Sets sets;  // which value of the key
    std::uint32_t bit;
};

constexpr TemplateBit kTemplateBits[] = {
    {"PTP", Sets::True, PROFILE_FEATURE_PTP_TC},
    {"PTP-BC", Sets::True, PROFILE_FEATURE_PTP_BC},
    {"AVB", Sets::True, PROFILE_FEATURE_AVB},
    {"flowControl", Sets::Present, PROFILE_FEATURE_FLOW_CONTROL},
    {"Sonos", Sets::True, PROFILE_FEATURE_SONOS},
    {"storm", Sets::False, PROFILE_FEATURE_STORM_OFF},
    {"STP", Sets::False, PROFILE_FEATURE_STP_OFF},
    {"LLDP", Sets::False, PROFILE_FEATURE_LLDP_OFF},
    {"ISDP", Sets::False, PROFILE_FEATURE_ISDP_OFF},
    {"poe", Sets::True, PROFILE_FEATURE_POE},
    {"qos", Sets::Present, PROFILE_FEATURE_QOS},
};

struct TypeFlag {
    const char *typeName;
    std::uint8_t flag;
};

constexpr TypeFlag kTypeFlags[] = {
    {PROFILE_TYPE_NAME_MILAN, PROFILE_EXTRA_MILAN},
    {PROFILE_TYPE_NAME_MILAN_DANTE, PROFILE_EXTRA_MILAN_DANTE},
    {PROFILE_TYPE_NAME_TELOS, PROFILE_EXTRA_TELOS},
    {PROFILE_TYPE_NAME_GD, PROFILE_EXTRA_GD},
};

struct AttributeBit {
    std::int32_t ProfileTypeAttributes::*attribute;
    std::uint32_t bit;
};

constexpr AttributeBit kAttributeBits[] = {
    {&ProfileTypeAttributes::mtu, PROFILE_FEATURE_MTU},
    {&ProfileTypeAttributes::modeA, PROFILE_FEATURE_MODE_A},
    {&ProfileTypeAttributes::modeB, PROFILE_FEATURE_MODE_B},
    {&ProfileTypeAttributes::polyProxyQuerier, PROFILE_FEATURE_POLY_PROXY_QUERIER},
    {&ProfileTypeAttributes::lightwareIgmp, PROFILE_FEATURE_LIGHTWARE_IGMP},
    {&ProfileTypeAttributes::querierInterval, PROFILE_FEATURE_QUERIER},
    {&ProfileTypeAttributes::fastLeave, PROFILE_FEATURE_FAST_LEAVE},
    {&ProfileTypeAttributes::etcVlan, PROFILE_FEATURE_ETC_VLAN},
    {&ProfileTypeAttributes::etcGlobal, PROFILE_FEATURE_ETC_GLOBAL},
    {&ProfileTypeAttributes::rstp, PROFILE_FEATURE_RSTP | PROFILE_FEATURE_STORM_OFF},
    {&ProfileTypeAttributes::macFilter, PROFILE_FEATURE_MAC_FILTER},
};

const cJSON *member(const cJSON *obj, const char *key) {
    return cJSON_GetObjectItemCaseSensitive(obj, key);
}

std::uint32_t templateFeatures(const cJSON *tmpl) {
    std::uint32_t features = 0;
    for (const auto &row : kTemplateBits) {
        const cJSON *const value = member(tmpl, row.key);
        if (row.sets == Sets::Present ? value != nullptr
            : row.sets == Sets::True  ? cJSON_IsTrue(value)
                                      : cJSON_IsFalse(value))
            features |= row.bit;
    }
    if (member(member(tmpl, "multicast"), "queryInterval") != nullptr)
        features |= PROFILE_FEATURE_QUERY_INTERVAL;
    return features;
}

bool lowHalf(std::int32_t pair) {
    return (static_cast<std::uint32_t>(pair) & 0xffffu) != 0;
}

bool highHalf(std::int32_t pair) {
    return static_cast<std::uint32_t>(pair) >> 16 != 0;
}

void attributesAdd(const ProfileTypeAttributes &attributes, std::int32_t vlanType, ProfileFeatureMask *mask) {
    const auto add = [mask](bool wanted, std::uint32_t bit) { mask->features |= wanted ? bit : 0; };
    for (const auto &row : kAttributeBits)
        add(attributes.*row.attribute != 0, row.bit);
    add(attributes.harmanAcl == 1 && vlanType == kHarmanAclVlanType, PROFILE_FEATURE_HARMAN_ACL);
    add(lowHalf(attributes.pairA), PROFILE_FEATURE_PAIR_A_LOW);
    add(highHalf(attributes.pairA), PROFILE_FEATURE_PAIR_A_HIGH);
    add(lowHalf(attributes.pairB), PROFILE_FEATURE_PAIR_B_LOW);
    if (highHalf(attributes.pairB))
        mask->extra |= PROFILE_EXTRA_PAIR_B_HIGH;
}

// The settings file of a VLAN states its PTP transparent clock, on or off.
bool vlanStatesPtpTc(std::int32_t vlanId) {
    const JsonPtr settings(jsonFileLoad(profileVlanConfigPath(vlanId).c_str()));
    return member(member(settings.get(), "config"), "ptpTc") != nullptr;
}

// --- listing

constexpr std::size_t kListMax = PROFILE_TEMPLATE_LIST_SIZE - 1;  // without the terminating zero
constexpr std::size_t kListPathSize = 512;

// The entries of a directory in alphabetical order.
class DirListing {
  public:
    explicit DirListing(const char *fixedPath)
        : count_(scandir(platform::fsPath(fixedPath).c_str(), &entries_, nullptr, alphasort)) {}
    DirListing(const DirListing &) = delete;
    DirListing &operator=(const DirListing &) = delete;
    ~DirListing() {
        for (int i = 0; i < count_; ++i)
            std::free(entries_[i]);
        std::free(entries_);
    }

    int count() const { return count_; }  // negative when the directory cannot be read
    const char *name(int i) const { return entries_[i]->d_name; }

  private:
    dirent **entries_ = nullptr;
    int count_;
};

class Offer {
  public:
    explicit Offer(openapiClientHandle_t *client) {
        std::int32_t supported = 0;
        avb_ = featureSupportedGet(client, FEATURE_DOT1AS, &supported) == RESULT_SUCCESS && supported != 0;
        char model[MACHINE_MODEL_SIZE];
        machineModelGet(client, model);
        smpte_ = smpteModelSupported(std::string_view(model));
        poly_ = polyModelSupported(model);
    }

    bool has(std::string_view file) const {
        if (file == "." || file == "..")
            return false;
        if (file == "Audio_Video_AVB" || file == "Audio_Video_AVB_MILAN" ||
            file == "Audio_Video_AVB_MILAN_with_Dante_PTPv1_PTPv2_or_AES67")
            return avb_;
        if (file == "Audio_Video_SMPTE")
            return smpte_;
        return file != PROFILE_TEMPLATE_FILE_POLY || poly_;
    }

  private:
    bool avb_;
    bool smpte_;
    bool poly_;
};

// The beginning of a file as text, as far as the buffer goes. Empty when it cannot be opened or has nothing
// to read; a pipe among the templates does not hold up the caller.
template <std::size_t N>
std::string_view fileRead(const char *fixedPath, char (&buffer)[N]) {
    const int fd = open(platform::fsPath(fixedPath).c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return {};
    std::size_t length = 0;
    ssize_t got = 0;
    while (length < N - 1 && (got = read(fd, buffer + length, N - 1 - length)) > 0)
        length += static_cast<std::size_t>(got);
    close(fd);
    return {buffer, strnlen(buffer, length)};
}

// --- create, edit, delete

bool fileExists(const std::string &fixedPath) {
    return access(platform::fsPath(fixedPath).c_str(), F_OK) == 0;
}

std::int32_t parameterError(const char *request) {
    LOG_WARN("[%s:%d] profile param error :%s\r\n", request);
    return RESULT_INVALID_ARGUMENT;
}

std::int32_t nonExistent(const char *what) {
    LOG_WARN("[%s:%d] %s non-existent\n\r", what);
    return RESULT_FAILED;
}

enum class Store { Create, Edit };

std::int32_t templateStore(Store how, openapiClientHandle_t *client, const char *request) {
    LOG_TRACE("[%s:%d] profile set %s\r\n", request != nullptr ? request : "");
    if (client == nullptr || request == nullptr) {
        LOG_ERROR("[%s:%d] param is null \r\n");
        return RESULT_INVALID_ARGUMENT;
    }
    const JsonPtr root(cJSON_Parse(request));
    if (root == nullptr) {
        if (how == Store::Create)
            LOG_ERROR("[%s:%d] profile  load json error\r\n");
        else
            LOG_ERROR("[%s:%d] profile load json error\r\n");
        return RESULT_INVALID_POINTER;
    }
    const cJSON *const profile = member(root.get(), "profile");
    const char *const name = cJSON_GetStringValue(member(profile, "name"));
    if (!cJSON_IsObject(profile) || name == nullptr)
        return parameterError(request);

    const std::string path = profileTemplateUserPath(name);
    if (how == Store::Create) {
        if (path.empty())
            return parameterError(request);
        if (fileExists(path)) {
            LOG_ERROR("[%s:%d] %s Already exists\n\r", path.c_str());
            return RESULT_TYPE_DUPLICATED;
        }
    } else if (path.empty() || !fileExists(path)) {
        return nonExistent(path.empty() ? name : path.c_str());
    }
    const TextPtr text(cJSON_PrintUnformatted(profile));
    const std::int32_t result = writeToFile(path.c_str(), text.get());
    if (result == RESULT_SUCCESS)
        LOG_TRACE("[%s:%d] %s %s\n\r", path.c_str(), text.get());
    return result;
}

// The VLANs of a profile type. Names are compared here and not by SQLite: one that comes with a request never
// becomes part of a statement.
std::vector<std::int32_t> vlansOfType(const char *typeName) {
    const std::unique_ptr<VlanInfoRowList, decltype(&vlanInfoRowListFree)> all(vlanInfoRowListCreate(),
                                                                               vlanInfoRowListFree);
    std::vector<std::int32_t> ids;
    const int count = vlanInfoSelectAll(all.get());
    for (int i = 0; i < count; ++i)
        if (std::strcmp(all->rows[i].profileType, typeName) == 0)
            ids.push_back(all->rows[i].id);
    return ids;
}

open_error_t vlanCheck(openapiClientHandle_t *client, std::int32_t vlanId) {
    return openapiVlanCreatedCheck(client, static_cast<std::uint32_t>(vlanId));
}

std::int32_t existingCount(openapiClientHandle_t *client, const std::vector<std::int32_t> &vlanIds) {
    return static_cast<std::int32_t>(std::count_if(vlanIds.begin(), vlanIds.end(), [client](std::int32_t id) {
        return vlanCheck(client, id) == OPEN_E_NONE;
    }));
}

void orphanRemove(std::int32_t vlanId, const char *typeName) {
    LOG_INFORM("[%s:%d] Cleaning up orphaned VLAN %d entry (profile: %s)\r\n", vlanId, typeName);
    vlanInfoDeleteById(vlanId);
    const std::string path = profileVlanConfigPath(vlanId);
    if (fileExists(path)) {
        fileRemove(path.c_str());
        LOG_INFORM("[%s:%d] Removed orphaned config file: %s\r\n", path.c_str());
    }
}

}  // namespace

std::int32_t profileFeatureMaskGet(openapiClientHandle_t *, std::int32_t vlanId, const char *typeName,
                                   std::int32_t vlanType, ProfileFeatureMask *mask) {
    *mask = {};
    {
        const JsonPtr tmpl(profileTemplateLoad(typeName));
        if (tmpl == nullptr)
            return RESULT_FAILED;
        mask->features = templateFeatures(tmpl.get());
    }
    if ((mask->features & PROFILE_FEATURE_PTP_BC) != 0)
        mask->vlanId = vlanId;
    const std::string_view type(typeName);
    for (const auto &row : kTypeFlags)
        if (type == row.typeName)
            mask->extra |= row.flag;
    if (ProfileTypeAttributes attributes{}; profileTypeAttrGet(typeName, &attributes) == RESULT_SUCCESS)
        attributesAdd(attributes, vlanType, mask);
    if (vlanId != 0 && vlanStatesPtpTc(vlanId)) {
        mask->features |= PROFILE_FEATURE_PTP_TC;
        if (type == PROFILE_TYPE_NAME_UNITE)
            mask->features |= PROFILE_FEATURE_FLOW_CONTROL;
    }
    return RESULT_SUCCESS;
}

std::int32_t ProfileTemplateGet(openapiClientHandle_t *client, const char *, char *out) {
    const Offer offer(client);
    const DirListing files(platform::paths::kProfileTemplateDir);
    if (files.count() < 0) {
        LOG_ERROR("[%s:%d] Open dir error...\r\n");
        std::strcpy(out, "[]");
        return RESULT_SUCCESS;
    }
    std::size_t length = 0;
    for (int i = 0; i < files.count(); ++i) {
        if (!offer.has(files.name(i)))
            continue;
        char path[kListPathSize];
        char buffer[PROFILE_TEMPLATE_LIST_SIZE];
        std::snprintf(path, sizeof path, "%s%s", platform::paths::kProfileTemplateDir, files.name(i));
        const std::string_view content = fileRead(path, buffer);
        if (content.empty()) {
            LOG_ERROR("[%s:%d] ProfileTemplateGet: Failed to open file %s\n", path);
            continue;
        }
        if (length + content.size() + 3 > kListMax) {
            LOG_ERROR("[%s:%d] ProfileTemplateGet: Response buffer full, skipping remaining profiles\n");
            break;
        }
        out[length++] = ',';
        std::memcpy(out + length, content.data(), content.size());
        length += content.size();
    }
    // The first separator makes room for the bracket; the check above has left room for the last one.
    out[length] = ']';
    out[length + 1] = '\0';
    out[0] = '[';
    return RESULT_SUCCESS;
}

std::int32_t ProfileTemplateCreate(openapiClientHandle_t *client, const char *request) {
    return templateStore(Store::Create, client, request);
}

std::int32_t ProfileTemplateEdit(openapiClientHandle_t *client, const char *request) {
    return templateStore(Store::Edit, client, request);
}

std::int32_t ProfileTemplateDelete(openapiClientHandle_t *client, const char *request) {
    const JsonPtr root(cJSON_Parse(request));
    if (root == nullptr) {
        LOG_ERROR("[%s:%d] profile load json error\r\n");
        return RESULT_INVALID_POINTER;
    }
    const char *const name = cJSON_GetStringValue(member(root.get(), "name"));
    if (name == nullptr)
        return parameterError(request);
    const std::string path = profileTemplateUserPath(name);
    if (path.empty() || !fileExists(path))
        return nonExistent(path.empty() ? name : path.c_str());

    const std::vector<std::int32_t> vlanIds = vlansOfType(name);
    if (existingCount(client, vlanIds) >= 1)
        return RESULT_TEMPLATE_IN_USE;
    for (const std::int32_t id : vlanIds) {
        // A switch that does not answer may well have the VLAN.
        const open_error_t check = vlanCheck(client, id);
        if (check != OPEN_E_NONE && check != OPEN_E_RPC)
            orphanRemove(id, name);
    }
    if (unlink(platform::fsPath(path).c_str()) != 0) {
        LOG_ERROR("[%s:%d] Remove file error...%s: %s\r\n", path.c_str(), std::strerror(errno));
        return RESULT_FAILED;
    }
    return RESULT_SUCCESS;
}

std::int32_t ProfileAssignedCount(openapiClientHandle_t *client, const char *typeName) {
    return typeName != nullptr ? existingCount(client, vlansOfType(typeName)) : 0;
}
