#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "common/owners.h"
#include "common/result.h"
#include "profile/apply.h"
#include "store/profile_db.h"
#include "store/profile_template.h"
#include "vlan/vlan_info.h"

namespace {

using RowList = std::unique_ptr<VlanInfoRowList, void (*)(VlanInfoRowList *)>;
using InfoList = std::unique_ptr<VLAN_INFOX_LIST_T, void (*)(VLAN_INFOX_LIST_T *)>;

// What the switch knows of a VLAN; null when it has no such VLAN.
const VLAN_INFO_T *infoOf(const VLAN_INFOX_LIST_T &list, std::int32_t vlanId) {
    for (std::uint32_t i = 0; i < list.count; ++i)
        if (static_cast<std::int32_t>(list.ids[i]->vlanId) == vlanId)
            return list.ids[i];
    return nullptr;
}

void addCopy(cJSON *object, const char *key, const cJSON *array) {
    cJSON *copy = array != nullptr ? cJSON_Duplicate(array, 1) : cJSON_CreateArray();
    if (!cJSON_AddItemToObject(object, key, copy))
        cJSON_Delete(copy);
}

void addDetails(cJSON *vlan, const VlanInfoRow &row, const VLAN_INFO_T *info) {
    if (info != nullptr) {
        cJSON_AddStringToObject(vlan, "vlanName", info->name);
        cJSON *ports = cJSON_AddObjectToObject(vlan, "ports");
        addCopy(ports, "untagged", info->untagPorts);
        addCopy(ports, "tagged", info->tagPorts);
        cJSON *lags = cJSON_AddObjectToObject(vlan, "lags");
        addCopy(lags, "untagged", info->untagLags);
        addCopy(lags, "tagged", info->tagLags);
    }
    const JsonPtr file(jsonFileLoad(profileVlanConfigPath(row.id).c_str()));
    const cJSON *config = cJSON_GetObjectItemCaseSensitive(file.get(), "config");
    const cJSON *ptpTc = cJSON_GetObjectItemCaseSensitive(config, "ptpTc");
    if (cJSON_IsBool(ptpTc))
        cJSON_AddBoolToObject(vlan, "ptpTc", cJSON_IsTrue(ptpTc));
    const cJSON *assigned = cJSON_GetObjectItemCaseSensitive(config, "assignedPort");
    if (cJSON_IsArray(assigned))
        addCopy(vlan, "assignedPort", assigned);
}

// The object of a profile in the answer, made when its first VLAN comes.
cJSON *profileObject(cJSON *answer, const VlanInfoRow &row) {
    cJSON *known = nullptr;
    cJSON_ArrayForEach(known, answer) {
        const cJSON *name = cJSON_GetObjectItemCaseSensitive(known, "name");
        if (std::strcmp(name->valuestring, row.profileName) == 0)
            return known;
    }
    cJSON *made = cJSON_CreateObject();
    if (made == nullptr || !cJSON_AddItemToArray(answer, made))
        return nullptr;
    cJSON_AddStringToObject(made, "name", row.profileName);
    cJSON_AddStringToObject(made, "profileType", row.profileType);
    cJSON_AddStringToObject(made, "color", row.color);
    cJSON_AddArrayToObject(made, "vlans");
    return made;
}

std::int32_t listProfiles(openapiClientHandle_t *client, bool details, char **out) {
    *out = nullptr;
    const RowList rows(vlanInfoRowListCreate(), vlanInfoRowListFree);
    if (rows == nullptr || vlanInfoSelectAll(rows.get()) < 0)
        return RESULT_FAILED;
    vlanInfoRowListSort(rows.get());
    VLAN_INFOX_LIST_T *made = nullptr;
    if (details && vlanListAllInfoCreateEX(client, &made) != RESULT_SUCCESS)
        return RESULT_FAILED;
    const InfoList infos(made, vlanListInfoFreeEX);

    const JsonPtr answer(cJSON_CreateArray());
    for (std::int32_t i = 0; i < rows->count; ++i) {
        const auto &row = rows->rows[i];
        cJSON *profile = profileObject(answer.get(), row);
        cJSON *vlan = cJSON_CreateObject();
        if (profile == nullptr ||
            !cJSON_AddItemToArray(cJSON_GetObjectItemCaseSensitive(profile, "vlans"), vlan)) {
            cJSON_Delete(vlan);
            return RESULT_FAILED;
        }
        cJSON_AddNumberToObject(vlan, "vlanId", row.id);
        cJSON_AddNumberToObject(vlan, "vlanType", row.vlanType);
        cJSON_AddStringToObject(vlan, "profileType", row.profileType);
        const auto *info = infos != nullptr ? infoOf(*infos, row.id) : nullptr;
        const bool exists =
            details ? info != nullptr
                    : openapiVlanCreatedCheck(client, static_cast<std::uint32_t>(row.id)) == OPEN_E_NONE;
        cJSON_AddBoolToObject(vlan, "exists", exists);
        if (details)
            addDetails(vlan, row, info);
    }
    return responseJsonToStr(answer.get(), out);
}

}  // namespace

std::int32_t profileListGet(openapiClientHandle_t *client, char **out) {
    return out == nullptr ? RESULT_INVALID_ARGUMENT : listProfiles(client, false, out);
}

std::int32_t profileListExGet(openapiClientHandle_t *client, char **out) {
    return out == nullptr ? RESULT_INVALID_ARGUMENT : listProfiles(client, true, out);
}
