#include "store/profile_db_ops.h"

#include <algorithm>
#include <memory>
#include <new>
#include <span>

#include "common/text.h"

namespace pavo {
namespace {

ProfileRow makeRow(std::int32_t id, std::int32_t vlanType, const char *profileName, const char *profileType,
                   const char *color) {
    const auto orEmpty = [](const char *text) { return text != nullptr ? text : ""; };
    return {id, vlanType, orEmpty(profileName), orEmpty(profileType), orEmpty(color)};
}

std::optional<std::string_view> given(const char *text) {
    return text != nullptr ? std::optional<std::string_view>(text) : std::nullopt;
}

// Into a caller's field of N bytes; a null one is skipped.
template <std::size_t N>
void fill(char *field, const std::string &text) {
    if (field != nullptr)
        copyText(*reinterpret_cast<char(*)[N]>(field), text);
}

std::span<VlanInfoRow> rowsOf(const VlanInfoRowList *list) {
    if (list == nullptr || list->rows == nullptr || list->count <= 0)
        return {};
    return {list->rows, static_cast<std::size_t>(list->count)};
}

}  // namespace

int vlanInfoTableCreate() {
    return codeOf(createProfileDb());
}

std::int32_t vlanInfoDbVerify() {
    return codeOf(verifyProfileDb());
}

int vlanInfoInsert(std::int32_t id, std::int32_t vlanType, const char *profileName, const char *profileType,
                   const char *color) {
    return codeOf(insertProfileRow(makeRow(id, vlanType, profileName, profileType, color)));
}

int vlanInfoReplace(std::int32_t id, std::int32_t vlanType, const char *profileName, const char *profileType,
                    const char *color) {
    return codeOf(replaceProfileRow(makeRow(id, vlanType, profileName, profileType, color)));
}

int vlanInfoUpdateByid(std::int32_t id, std::int32_t vlanType, const char *profileName,
                       const char *profileType, const char *color) {
    return codeOf(updateProfileRow(id, {vlanType, given(profileName), given(profileType), given(color)}));
}

int vlanInfoDeleteById(std::int32_t id) {
    const auto done = deleteProfileRow(id);
    return done || done.error().opened ? codeOf(done) : 0;  // no database: nothing left to delete
}

int vlanInfoSelectById(std::int32_t id, std::int32_t *vlanType, char profileName[VLAN_INFO_NAME_SIZE],
                       char profileType[VLAN_INFO_TYPE_SIZE], char color[VLAN_INFO_COLOR_SIZE]) {
    const auto row = readProfileRow(id).value_or(std::nullopt);
    if (!row)
        return 0;
    if (vlanType != nullptr)
        *vlanType = row->vlanType;
    fill<VLAN_INFO_NAME_SIZE>(profileName, row->profileName);
    fill<VLAN_INFO_TYPE_SIZE>(profileType, row->profileType);
    fill<VLAN_INFO_COLOR_SIZE>(color, row->color);
    return 1;
}

int vlanInfoSelectRowsById(std::int32_t id) {
    return readProfileRow(id).value_or(std::nullopt) ? 1 : 0;
}

int vlanInfoSelectAll(VlanInfoRowList *list) {
    if (list == nullptr || list->rows == nullptr)
        return -1;
    list->count = 0;
    const auto rows = readProfileRowsUnsorted();
    if (!rows)
        return -1;
    for (const ProfileRow &row : *rows) {
        if (list->count >= list->capacity)
            break;
        VlanInfoRow &out = list->rows[list->count++];
        out.id = row.id;
        out.vlanType = row.vlanType;
        copyText(out.profileName, row.profileName);
        copyText(out.profileType, row.profileType);
        copyText(out.color, row.color);
    }
    return list->count;
}

std::int32_t vlanIdSelectByProfileTypeAndVlanType(const char *profileType, std::int32_t vlanType) {
    const auto ids = readIdsOfTypeAndRole(given(profileType).value_or(std::string_view()), vlanType);
    return ids && !ids->empty() ? ids->front() : 0;
}

VlanInfoRowList *vlanInfoRowListCreate() {
    std::unique_ptr<VlanInfoRow[]> rows(new (std::nothrow) VlanInfoRow[VLAN_INFO_ROWS_MAX]());
    if (rows == nullptr)
        return nullptr;
    auto *const list = new (std::nothrow) VlanInfoRowList{0, VLAN_INFO_ROWS_MAX, rows.get()};
    if (list != nullptr)
        rows.release();
    return list;
}

void vlanInfoRowListFree(VlanInfoRowList *list) {
    if (list == nullptr)
        return;
    delete[] list->rows;
    delete list;
}

void vlanInfoRowListSort(VlanInfoRowList *list) {
    std::ranges::sort(rowsOf(list), {}, &VlanInfoRow::id);
}

VlanInfoRow *vlanInfoRowListFind(VlanInfoRowList *list, std::int32_t id) {
    const auto rows = rowsOf(list);
    const auto row = std::ranges::lower_bound(rows, id, {}, &VlanInfoRow::id);
    return row != rows.end() && row->id == id ? &*row : nullptr;
}

}  // namespace pavo
