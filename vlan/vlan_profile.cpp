// What the profile of a VLAN turns on or changes, from its template and the table of profile types.
#include <cctype>
#include <cstring>
#include <vector>

#include "platform/paths.h"
#include "store/profile_db.h"
#include "vlan/vlan_records.h"

namespace {

constexpr std::size_t kQuickProfilesMax = 32;

bool isTrue(const cJSON *value) {
    return cJSON_IsTrue(value) != 0;
}
bool isFalse(const cJSON *value) {
    return cJSON_IsFalse(value) != 0;
}
bool isPresent(const cJSON *value) {
    return value != nullptr;
}
bool hasQueryInterval(const cJSON *value) {
    return cJSON_IsObject(value) && cJSON_GetObjectItemCaseSensitive(value, "queryInterval") != nullptr;
}

using BitSets = unsigned;
constexpr BitSets kNone = 0, kFeatures = 1, kSpecified = 2, kBoth = kFeatures | kSpecified;

// Which bits a template key sets when its value meets the condition, in the full view and in the quick one.
struct TemplateRule {
    const char *key;
    bool (*condition)(const cJSON *value);
    std::uint32_t bit;
    BitSets full;
    BitSets quick;
};

constexpr TemplateRule kRules[] = {
    {"PTP", isTrue, VLAN_PROFILE_PTP, kFeatures, kFeatures},
    {"AVB", isTrue, VLAN_PROFILE_AVB, kBoth, kBoth},
    {"flowControl", isTrue, VLAN_PROFILE_FLOW_CONTROL, kFeatures, kFeatures},
    {"flowControl", isPresent, VLAN_PROFILE_FLOW_CONTROL, kSpecified, kSpecified},
    {"poe", isTrue, VLAN_PROFILE_POE, kBoth, kNone},
    {"multicast", hasQueryInterval, VLAN_PROFILE_QUERY_INTERVAL, kBoth, kNone},
    {"MTU", isFalse, VLAN_PROFILE_MTU, kFeatures, kNone},
    {"storm", isFalse, VLAN_PROFILE_STORM_OFF, kBoth, kNone},
    {"qos", isPresent, VLAN_PROFILE_QOS, kBoth, kNone},
    {"Sonos", isTrue, VLAN_PROFILE_SONOS, kBoth, kFeatures},
    {"LLDP", isFalse, VLAN_PROFILE_LLDP_OFF, kBoth, kNone},
    {"ISDP", isFalse, VLAN_PROFILE_ISDP_OFF, kBoth, kNone},
    {"STP", isFalse, VLAN_PROFILE_STP_OFF, kBoth, kNone},
    {"PTP-BC", isTrue, VLAN_PROFILE_PTP_BC, kBoth, kBoth},
};

void templateEvaluate(const cJSON *profileTemplate, BitSets TemplateRule::*view,
                      VLAN_PROFILE_INFO_T &profile) {
    for (const TemplateRule &rule : kRules) {
        const BitSets sets = rule.*view;
        if (sets == kNone || !rule.condition(cJSON_GetObjectItemCaseSensitive(profileTemplate, rule.key)))
            continue;
        if ((sets & kFeatures) != 0)
            profile.features = static_cast<std::uint16_t>(profile.features | rule.bit);
        if ((sets & kSpecified) != 0)
            profile.specified |= rule.bit;
    }
}

// The specified bits of the parameters, in the order of the entry.
constexpr struct {
    std::int32_t ProfileTypeAttributes::*value;
    std::uint32_t bit;
} kParameterBits[] = {
    {&ProfileTypeAttributes::mtu, VLAN_PROFILE_MTU},
    {&ProfileTypeAttributes::modeA, 1u << VLAN_PROFILE_SECOND_PARAMETER_BIT},
    {&ProfileTypeAttributes::modeB, 1u << VLAN_PROFILE_THIRD_PARAMETER_BIT},
    {&ProfileTypeAttributes::polyProxyQuerier, 1u << 16},
    {&ProfileTypeAttributes::lightwareIgmp, 1u << 17},
    {&ProfileTypeAttributes::querierInterval, 1u << 18},
    {&ProfileTypeAttributes::fastLeave, 1u << 19},
    {&ProfileTypeAttributes::harmanAcl, 1u << 20},
    {&ProfileTypeAttributes::etcVlan, 1u << 21},
    {&ProfileTypeAttributes::etcGlobal, 1u << 22},
    {&ProfileTypeAttributes::rstp, 1u << 23},
    {&ProfileTypeAttributes::macFilter, 1u << 24},
    {&ProfileTypeAttributes::pairA, 1u << 25},
    {&ProfileTypeAttributes::pairB, 1u << 26},
};

void parametersSet(VLAN_PROFILE_INFO_T &profile) {
    profile.parameters = {};
    profileTypeAttrGet(profile.profileName, &profile.parameters);
    for (const auto &parameter : kParameterBits) {
        profile.specified &= ~parameter.bit;
        if (profile.parameters.*parameter.value != 0)
            profile.specified |= parameter.bit;
    }
}

void avbKindSet(VLAN_PROFILE_INFO_T &profile) {
    const std::string_view name(profile.profileName);
    if (name == PROFILE_TYPE_NAME_MILAN)
        profile.avbKind |= VLAN_AVB_MILAN;
    if (name == PROFILE_TYPE_NAME_MILAN_DANTE)
        profile.avbKind |= VLAN_AVB_MILAN_DANTE;
}

void rowSet(VLAN_PROFILE_INFO_T &profile, const VlanInfoRow &row) {
    profile.profileType = static_cast<std::uint32_t>(row.vlanType);
    textCopy(profile.profileName, row.profileType);
    textCopy(profile.templatePath, std::string(platform::paths::kProfileTemplateDir) + row.profileType);
}

std::int32_t recordAdd(VLAN_PROFILE_LIST_T &list, std::uint32_t vlanId) {
    auto profile = vlanRecordCreate<VLAN_PROFILE_INFO_T>();
    if (profile == nullptr) {
        LOG_ERROR("[%s:%d] Failed to allocate VLAN_PROFILE_INFO_T for VLAN %u\r\n", vlanId);
        return RESULT_INVALID_POINTER;
    }
    vlanListAppend(list, vlanId, std::move(profile));
    return RESULT_SUCCESS;
}

void fullFeaturesSet(VLAN_PROFILE_INFO_T &profile, TemplateCache &templates) {
    if (profile.profileName[0] != '\0') {
        templateEvaluate(templates.find(profile.profileName), &TemplateRule::full, profile);
        avbKindSet(profile);
        parametersSet(profile);
    }
    if (const auto ptpTc = vlanSettingsPtpTc(profile.vlanId)) {
        profile.specified |= VLAN_PROFILE_PTP;
        profile.ptpTc = *ptpTc ? VLAN_PROFILE_PTP_TC_ON : VLAN_PROFILE_PTP_TC_OFF;
    }
}

// The VLAN id of a row of "show vlan"; 0 for any other line.
std::uint32_t showVlanRowId(const char *line) {
    line += std::strspn(line, " \t");
    int id = 0;
    char name[64];
    if (std::isdigit(static_cast<unsigned char>(*line)) == 0 ||
        std::sscanf(line, "%d %63s", &id, name) != 2 || id < 1 || id > static_cast<int>(VLAN_TABLE_SIZE))
        return 0;
    for (const char *const type : {"Static", "Dynamic", "Default"})
        if (std::strstr(line, type) != nullptr)
            return static_cast<std::uint32_t>(id);
    return 0;
}

std::int32_t showVlanRead(openapiClientHandle_t *client, VLAN_PROFILE_LIST_T &list) {
    std::int32_t result = RESULT_SUCCESS;
    const auto visit = [&](const char *line) {
        if (const std::uint32_t id = showVlanRowId(line); id != 0)
            result = recordAdd(list, id);
        return result == RESULT_SUCCESS && list.count < VLAN_TABLE_SIZE;
    };
    if (showLineForEach(client, "show vlan", platform::paths::kVlanShowProfileFast, visit) != RESULT_SUCCESS)
        return RESULT_FAILED;
    return result;
}

}  // namespace

std::int32_t vlanProfileDetailGet(openapiClientHandle_t *, std::uint32_t vlanId,
                                  VLAN_PROFILE_INFO_T *profile) {
    profile->vlanId = vlanId;
    char name[VLAN_INFO_TYPE_SIZE] = "";
    if (vlanInfoSelectById(static_cast<std::int32_t>(vlanId), nullptr, nullptr, name, nullptr) > 0)
        textCopy(profile->profileName, name);
    else
        LOG_ERROR("[%s:%d] Vlan %d get info from sqlite failed\r\n", static_cast<int>(vlanId));
    return RESULT_SUCCESS;
}

std::int32_t vlanListProfileInfoGetEX(openapiClientHandle_t *client, VLAN_PROFILE_LIST_T *list) {
    std::int32_t result = RESULT_SUCCESS;
    vlanForEach(client, [&](std::uint32_t vlanId) {
        result = recordAdd(*list, vlanId);
        return result == RESULT_SUCCESS;
    });
    if (result != RESULT_SUCCESS)
        return result;
    std::vector<std::uint32_t> ids;
    for (std::uint32_t i = 0; i < list->count; ++i)
        ids.push_back(list->ids[i]->vlanId);
    result =
        vlanInfoSelectByIds(ids, [&](std::size_t i, const VlanInfoRow &row) { rowSet(*list->ids[i], row); });
    if (result != RESULT_SUCCESS)
        return result;
    TemplateCache templates;
    for (std::uint32_t i = 0; i < list->count; ++i)
        fullFeaturesSet(*list->ids[i], templates);
    return RESULT_SUCCESS;
}

std::int32_t vlanListProfileCreateEX(openapiClientHandle_t *client, VLAN_PROFILE_LIST_T **list) {
    *list = vlanRecordCreate<VLAN_PROFILE_LIST_T>().release();
    if (*list != nullptr)
        return vlanListProfileInfoGetEX(client, *list);
    LOG_ERROR("[%s:%d] Failed to allocate VLAN_PROFILE_LIST_T\r\n");
    return RESULT_INVALID_POINTER;
}

std::int32_t vlanListProfileCreateFastEX(openapiClientHandle_t *client, VLAN_PROFILE_LIST_T **list) {
    *list = vlanRecordCreate<VLAN_PROFILE_LIST_T>().release();
    if (*list == nullptr) {
        LOG_ERROR("[%s:%d] Memory error\r\n");
        return RESULT_INVALID_POINTER;
    }
    if (const std::int32_t result = showVlanRead(client, **list); result != RESULT_SUCCESS)
        return result;
    const VlanInfoCache cache;
    TemplateCache templates(kQuickProfilesMax);
    for (std::uint32_t i = 0; i < (*list)->count; ++i) {
        VLAN_PROFILE_INFO_T &profile = *(*list)->ids[i];
        const VlanInfoRow *const row = cache.find(profile.vlanId);
        if (row == nullptr)
            continue;
        rowSet(profile, *row);
        if (profile.profileName[0] == '\0')
            continue;
        templateEvaluate(templates.find(profile.profileName), &TemplateRule::quick, profile);
        avbKindSet(profile);
    }
    return RESULT_SUCCESS;
}
