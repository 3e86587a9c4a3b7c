#include "vlan/vlan_records.h"

#include "platform/paths.h"
#include "store/profile_template.h"

namespace {

template <class Record>
void arraysFree(Record &record) {
    for (cJSON **const array : vlanPortArrays(record))
        cJSON_Delete(*array);
}

template <class Record>
void listFree(VlanRecordList<Record> *list) {
    if (list == nullptr)
        return;
    for (std::uint32_t i = 0; i < list->count; ++i)
        VlanRecordDeleter{}(list->ids[i]);
    delete list;
}

}  // namespace

void VlanRecordDeleter::operator()(VLAN_PORT_ASS_T *record) const {
    if (record == nullptr)
        return;
    arraysFree(*record);
    delete record;
}

void vlanAllInfoFree(VLAN_INFO_T *info) {
    if (info == nullptr)
        return;
    arraysFree(*info);
    delete info;
}

void vlanListPortAssFree(VLAN_PORT_LIST_T *list) {
    listFree(list);
}

void vlanListInfoFreeEX(VLAN_INFOX_LIST_T *list) {
    listFree(list);
}

void vlanListProfileFreeEX(VLAN_PROFILE_LIST_T *list) {
    listFree(list);
}

bool jsonNumberAppend(cJSON *array, double number) {
    JsonPtr item(cJSON_CreateNumber(number));
    if (!cJSON_AddItemToArray(array, item.get())) {
        LOG_ERROR("[%s:%d] Failed to allocate memory\r\n");
        return false;
    }
    static_cast<void>(item.release());
    return true;
}

std::optional<bool> vlanSettingsPtpTc(std::uint32_t vlanId) {
    const JsonPtr settings(jsonFileLoad(profileVlanConfigPath(static_cast<std::int32_t>(vlanId)).c_str()));
    const cJSON *const config = cJSON_GetObjectItemCaseSensitive(settings.get(), "config");
    const cJSON *const ptpTc = cJSON_GetObjectItemCaseSensitive(config, "ptpTc");
    return ptpTc != nullptr ? std::optional(cJSON_IsTrue(ptpTc) != 0) : std::nullopt;
}

const cJSON *TemplateCache::find(const char *profileName) {
    const auto known = templates_.find(profileName);
    if (known != templates_.end())
        return known->second.get();
    if (templates_.size() >= namesMax_)
        return nullptr;
    return templates_.emplace(profileName, profileTemplateLoad(profileName)).first->second.get();
}
