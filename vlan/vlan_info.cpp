// Base info of VLANs, and everything known of them put together.
#include "vlan/vlan_info.h"

#include <cstring>
#include <vector>

#include "store/profile_db.h"
#include "swapi/switch_settings.h"
#include "vlan/vlan_records.h"

namespace {

constexpr std::uint32_t kDefaultVlan = 1;
// Of a profile name in the record of a single VLAN, with the terminating zero.
constexpr std::size_t kProfileNameSize = 64;

std::int32_t nameLengthGet(openapiClientHandle_t *client, std::uint32_t *length) {
    const open_error_t result = rpcclt_openapiVlanNameLenGet(client, length);
    if (result == OPEN_E_NONE)
        return RESULT_SUCCESS;
    LOG_ERROR("[%s:%d] Bad return code trying to get VLAN Name Length. (result = %d)\r\n", result);
    return RESULT_FAILED;
}

// The switch's name of a VLAN, empty when it has none. 0, or 10002.
std::int32_t switchNameGet(openapiClientHandle_t *client, std::uint32_t vlanId, std::uint32_t length,
                           std::string *name) {
    const std::unique_ptr<char[]> buffer(new (std::nothrow) char[std::size_t{length} + 1]());
    if (buffer == nullptr) {
        LOG_ERROR("[%s:%d] Could not allocate memory.\r\n");
        return RESULT_INVALID_POINTER;
    }
    open_buffdesc text{length, buffer.get()};
    if (rpcclt_openapiVlanNameGet(client, vlanId, &text) == OPEN_E_NONE)
        *name = buffer.get();
    return RESULT_SUCCESS;
}

std::uint8_t isStaticGet(openapiClientHandle_t *client, std::uint32_t vlanId) {
    return openapiVlanIsStatic(client, vlanId) > 0 ? 1 : 0;
}

// What holds for a VLAN on the switch as long as no profile says otherwise.
void defaultsSet(VLAN_INFO_T &info) {
    info.exists = 1;
    info.ptpTc = VLAN_PTP_TC_UNKNOWN;
    info.profileType = info.profile.profileType = VLAN_PROFILE_TYPE_DEFAULT;
    info.profile.vlanId = info.vlanId;
    textCopy(info.color, VLAN_COLOR_DEFAULT);
    textCopy(info.profile.profileName, VLAN_PROFILE_NAME_DEFAULT);
}

void profileSet(VLAN_INFO_T &info, const VlanInfoRow &row) {
    info.profileType = info.profile.profileType = static_cast<std::uint32_t>(row.vlanType);
    textCopy(info.name, row.profileName);
    textCopy(info.color, row.color);
    textCopy(info.profile.profileName, row.profileType);
}

// VLAN 1 always has an entry; whoever finds it missing puts it there.
void defaultVlanSeed(const VLAN_INFO_T &info) {
    vlanInfoReplace(static_cast<std::int32_t>(kDefaultVlan), static_cast<std::int32_t>(info.profileType),
                    VLAN_PROFILE_NAME_DEFAULT, VLAN_PROFILE_NAME_DEFAULT, VLAN_COLOR_DEFAULT);
}

// Names of VLANs that no profile knows, as the switch has them.
class SwitchNames {
  public:
    explicit SwitchNames(openapiClientHandle_t *client) : client_(client) {}

    std::string of(std::uint32_t vlanId) {
        if (!length_ && nameLengthGet(client_, &length_.emplace(0)) != RESULT_SUCCESS)
            length_ = 0;
        std::string name;
        if (*length_ > 0)
            switchNameGet(client_, vlanId, *length_, &name);
        return name.empty() ? "VLAN" + std::to_string(vlanId) : name;
    }

  private:
    openapiClientHandle_t *client_;
    std::optional<std::uint32_t> length_;
};

void unlistedNamesSet(openapiClientHandle_t *client, const std::vector<VLAN_INFO_T *> &unlisted) {
    SwitchNames names(client);
    for (VLAN_INFO_T *const info : unlisted) {
        if (info->vlanId == kDefaultVlan) {
            textCopy(info->name, VLAN_PROFILE_NAME_DEFAULT);
            defaultVlanSeed(*info);
        } else {
            textCopy(info->name, names.of(info->vlanId));
        }
    }
}

// Names, colours and profiles from the profile database: what its copy does not have is looked up once more,
// as it may have come since or the copy may not have been had.
void profilesSet(openapiClientHandle_t *client, const VLAN_INFOX_LIST_T &list) {
    const VlanInfoCache cache;
    std::vector<VLAN_INFO_T *> unlisted;
    std::vector<std::uint32_t> ids;
    for (std::uint32_t i = 0; i < list.count; ++i) {
        VLAN_INFO_T &info = *list.ids[i];
        if (const VlanInfoRow *const row = cache.find(info.vlanId)) {
            profileSet(info, *row);
        } else {
            unlisted.push_back(&info);
            ids.push_back(info.vlanId);
        }
    }
    if (unlisted.empty())
        return;
    vlanInfoSelectByIds(ids, [&](std::size_t i, const VlanInfoRow &row) {
        if (unlisted[i] != nullptr)
            profileSet(*unlisted[i], row);
        unlisted[i] = nullptr;
    });
    std::erase(unlisted, nullptr);
    unlistedNamesSet(client, unlisted);
}

std::int16_t ptpTcFind(const VLAN_INFO_T &info, TemplateCache &templates) {
    const auto state = [](bool on) { return on ? VLAN_PTP_TC_ON : VLAN_PTP_TC_OFF; };
    if (const auto setting = vlanSettingsPtpTc(info.vlanId))
        return state(*setting);
    if (info.profile.profileName[0] == '\0')
        return VLAN_PTP_TC_UNKNOWN;
    const cJSON *const ptp =
        cJSON_GetObjectItemCaseSensitive(templates.find(info.profile.profileName), "PTP");
    return ptp != nullptr ? state(cJSON_IsTrue(ptp) != 0) : VLAN_PTP_TC_UNKNOWN;
}

void duplicateErrorLog(std::size_t array, std::uint32_t vlanId) {
    const int id = static_cast<int>(vlanId);
    switch (array) {
        case 0:
            LOG_ERROR("[%s:%d] Failed to duplicate tagPorts for VLAN %d\r\n", id);
            break;
        case 1:
            LOG_ERROR("[%s:%d] Failed to duplicate untagPorts for VLAN %d\r\n", id);
            break;
        case 2:
            LOG_ERROR("[%s:%d] Failed to duplicate tagLags for VLAN %d\r\n", id);
            break;
        case 3:
            LOG_ERROR("[%s:%d] Failed to duplicate untagLags for VLAN %d\r\n", id);
            break;
        case 4:
            LOG_ERROR("[%s:%d] Failed to duplicate shureDevicePorts for VLAN %d\r\n", id);
            break;
        default:
            LOG_ERROR("[%s:%d] Failed to duplicate shureLearnPorts for VLAN %d\r\n", id);
            break;
    }
}

// All six arrays or none.
bool portArraysCopy(VLAN_INFO_T &info, VLAN_PORT_ASS_T &ports) {
    const auto from = vlanPortArrays(ports);
    const auto to = vlanPortArrays(info);
    std::array<JsonPtr, from.size()> copies;
    for (std::size_t i = 0; i < copies.size(); ++i) {
        copies[i].reset(cJSON_Duplicate(*from[i], true));
        if (copies[i] == nullptr) {
            duplicateErrorLog(i, info.vlanId);
            return false;
        }
    }
    for (std::size_t i = 0; i < copies.size(); ++i)
        *to[i] = copies[i].release();
    return true;
}

}  // namespace

std::int32_t vlanBaseInfoGet(openapiClientHandle_t *client, std::uint32_t vlanId, VLAN_INFO_T *info) {
    info->vlanId = vlanId;
    info->exists = 0;
    if (openapiVlanCreatedCheck(client, vlanId) != OPEN_E_NONE)
        return RESULT_SUCCESS;
    defaultsSet(*info);
    std::uint32_t length = 0;
    if (const std::int32_t result = nameLengthGet(client, &length); result != RESULT_SUCCESS)
        return result;
    info->isStatic = isStaticGet(client, vlanId);
    // The switch's name is only read: the display name is that of the profile.
    std::string switchName;
    if (const std::int32_t result = switchNameGet(client, vlanId, length, &switchName);
        result != RESULT_SUCCESS)
        return result;

    VlanInfoRow row{};
    if (vlanInfoSelectById(static_cast<std::int32_t>(vlanId), &row.vlanType, row.profileName, row.profileType,
                           row.color) > 0) {
        row.profileType[kProfileNameSize - 1] = '\0';
        profileSet(*info, row);
    } else if (vlanId == kDefaultVlan) {
        textCopy(info->name, VLAN_PROFILE_NAME_DEFAULT);
        defaultVlanSeed(*info);
    } else {
        std::snprintf(info->name, sizeof info->name, "VLAN%04d", static_cast<int>(vlanId));
    }
    return RESULT_SUCCESS;
}

std::int32_t vlanListBaseInfoGetEX(openapiClientHandle_t *client, VLAN_INFOX_LIST_T *list) {
    std::int32_t result = RESULT_SUCCESS;
    vlanForEach(client, [&](std::uint32_t vlanId) {
        auto info = vlanRecordCreate<VLAN_INFO_T>();
        if (info == nullptr) {
            LOG_ERROR("[%s:%d] Failed to allocate VLAN_INFO_T for VLAN %u\r\n", vlanId);
            result = RESULT_INVALID_POINTER;
            return false;
        }
        return vlanListAppend(*list, vlanId, std::move(info));
    });
    if (result != RESULT_SUCCESS)
        return result;

    std::int32_t mgmtVlan = 1;
    if (managementVlanGet(client, &mgmtVlan) != RESULT_SUCCESS)
        mgmtVlan = 1;
    for (std::uint32_t i = 0; i < list->count; ++i) {
        VLAN_INFO_T &info = *list->ids[i];
        defaultsSet(info);
        info.isMgmtVlan = static_cast<std::int32_t>(info.vlanId) == mgmtVlan ? 1 : 0;
        info.isStatic = isStaticGet(client, info.vlanId);
    }
    profilesSet(client, *list);
    TemplateCache templates;
    for (std::uint32_t i = 0; i < list->count; ++i)
        list->ids[i]->ptpTc = ptpTcFind(*list->ids[i], templates);
    return RESULT_SUCCESS;
}

std::int32_t vlanListBaseInfoCreateEX(openapiClientHandle_t *client, VLAN_INFOX_LIST_T **list) {
    *list = vlanRecordCreate<VLAN_INFOX_LIST_T>().release();
    if (*list != nullptr)
        return vlanListBaseInfoGetEX(client, *list);
    LOG_ERROR("[%s:%d] Failed to allocate VLAN_INFOX_LIST_T\r\n");
    return RESULT_INVALID_POINTER;
}

std::int32_t vlanListAllInfoGetEX(openapiClientHandle_t *client, VLAN_INFOX_LIST_T *list) {
    std::int32_t result = vlanListBaseInfoGetEX(client, list);
    if (result != RESULT_SUCCESS)
        return result;
    const auto ports = vlanRecordCreate<VLAN_PORT_LIST_T>();
    if (ports == nullptr) {
        LOG_ERROR("[%s:%d] Failed to allocate VLAN_PORT_LIST_T\r\n");
        return RESULT_INVALID_POINTER;
    }
    result = vlanListPortAssGetFromVlanList(client, ports.get(), list);
    if (result != RESULT_SUCCESS)
        return result;
    for (std::uint32_t i = 0; i < list->count; ++i)
        if (!portArraysCopy(*list->ids[i], *vlanListAt(*ports, list->ids[i]->vlanId)))
            return RESULT_FAILED;
    return RESULT_SUCCESS;
}

std::int32_t vlanListAllInfoCreateEX(openapiClientHandle_t *client, VLAN_INFOX_LIST_T **list) {
    *list = nullptr;
    auto created = vlanRecordCreate<VLAN_INFOX_LIST_T>();
    if (created == nullptr) {
        LOG_ERROR("[%s:%d] Failed to allocate VLAN_INFOX_LIST_T\r\n");
        return RESULT_INVALID_POINTER;
    }
    const std::int32_t result = vlanListAllInfoGetEX(client, created.get());
    if (result == RESULT_SUCCESS)
        *list = created.release();
    return result;
}

std::int32_t vlanAllInfoGet(openapiClientHandle_t *client, std::uint32_t vlanId, bool withShure,
                            VLAN_INFO_T *info) {
    if (vlanBaseInfoGet(client, vlanId, info) != RESULT_SUCCESS) {
        LOG_ERROR("[%s:%d] Failed to get VLAN %u base info\r\n", vlanId);
        return RESULT_FAILED;
    }
    if (vlanAssInfoGet(client, vlanId, info->tagPorts, info->untagPorts, info->tagLags, info->untagLags) !=
        RESULT_SUCCESS) {
        LOG_ERROR("[%s:%d] Failed to get VLAN %u port assigned info\r\n", vlanId);
        return RESULT_FAILED;
    }
    if (vlanProfileDetailGet(client, vlanId, &info->profile) != RESULT_SUCCESS) {
        LOG_ERROR("[%s:%d] Failed to get VLAN %u profile info\r\n", vlanId);
        return RESULT_FAILED;
    }
    return withShure ? vlanShureArraysGet(client, info) : RESULT_SUCCESS;
}

std::int32_t vlanAllInfoCreate(openapiClientHandle_t *client, std::uint32_t vlanId, bool withShure,
                               VLAN_INFO_T **info) {
    *info = vlanRecordCreateWithArrays<VLAN_INFO_T>().release();
    if (*info != nullptr)
        return vlanAllInfoGet(client, vlanId, withShure, *info);
    LOG_ERROR("[%s:%d] Failed to allocate VLAN_INFO_T for VLAN %u\r\n", vlanId);
    return RESULT_INVALID_POINTER;
}
