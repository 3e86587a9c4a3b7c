#include "web/json_members.h"

#include "common/text.h"

namespace pavo {

void JsonMembers::number(const char *key, double value) {
    note(cJSON_AddNumberToObject(object_, key, value));
}

void JsonMembers::flag(const char *key, bool value) {
    note(cJSON_AddBoolToObject(object_, key, value));
}

void JsonMembers::text(const char *key, std::string_view value) {
    note(cJSON_AddStringToObject(object_, key, wellFormed(value).c_str()));
}

void JsonMembers::counter(const char *key, std::uint64_t value) {
    note(cJSON_AddStringToObject(object_, key, std::to_string(value).c_str()));
}

void JsonMembers::null(const char *key) {
    note(cJSON_AddNullToObject(object_, key));
}

JsonMembers JsonMembers::object(const char *key) {
    cJSON *const added = cJSON_AddObjectToObject(object_, key);
    note(added);
    return {added, whole_};
}

JsonRows JsonMembers::rows(const char *key) {
    cJSON *const added = cJSON_AddArrayToObject(object_, key);
    note(added);
    return {added, whole_};
}

JsonMembers JsonRows::object() {
    cJSON *added = cJSON_CreateObject();
    if (!cJSON_AddItemToArray(array_, added)) {
        cJSON_Delete(added);
        added = nullptr;
    }
    whole_ = whole_ && added != nullptr;
    return {added, whole_};
}

void JsonRows::number(double value) {
    whole_ = array_ != nullptr && appendNumber(array_, value) && whole_;
}

}  // namespace pavo
