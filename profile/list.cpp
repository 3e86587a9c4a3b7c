#include "profile/list.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <span>
#include <utility>

#include "common/json.h"

namespace pavo {
namespace {

using Pictures = std::map<VlanId, VlanPicture>;

Result<Pictures> readPictures(Switch sw, const Where &where) {
    Pictures out;
    auto pictures = readVlanPictures(sw, where);
    if (!pictures)
        return failed(ResultCode::Failed);
    for (auto &picture : *pictures)
        out.emplace(picture.id, std::move(picture));
    return out;
}

ListedVlan listVlan(Switch sw, const ProfileRow &row, ListDetails details, const Pictures &pictures) {
    ListedVlan vlan{.row = row};
    const auto id = row.vlan();
    if (details == ListDetails::Brief) {
        vlan.exists = id && sw.checkVlan(*id);
    } else if (id) {
        vlan.settings = readVlanSettings(*id);
        if (const auto picture = pictures.find(*id); picture != pictures.end())
            vlan.picture = picture->second;
        vlan.exists = vlan.picture.has_value();
    }
    return vlan;
}

// The profile of that name, made when its first VLAN comes.
ListedProfile &profileOf(const ProfileRow &row, std::vector<ListedProfile> &profiles) {
    const auto known = std::find_if(profiles.begin(), profiles.end(), [&](const ListedProfile &profile) {
        return profile.name == row.profileName;
    });
    if (known != profiles.end())
        return *known;
    return profiles.emplace_back(ListedProfile{row.profileName, row.profileType, row.color, {}});
}

// --- JSON

JsonPtr numbersJson(std::span<const std::uint32_t> numbers) {
    JsonPtr array(cJSON_CreateArray());
    for (const std::uint32_t number : numbers)
        appendNumber(array.get(), number);
    return array;
}

void addPicture(cJSON *object, const VlanPicture &picture) {
    const auto &members = picture.members;
    cJSON_AddStringToObject(object, "vlanName", picture.name.c_str());
    cJSON *const ports = cJSON_AddObjectToObject(object, "ports");
    addNumbers(ports, "untagged", members.untaggedPorts);
    addNumbers(ports, "tagged", members.taggedPorts);
    cJSON *const lags = cJSON_AddObjectToObject(object, "lags");
    addItem(lags, "untagged", numbersJson(members.untaggedLags));
    addItem(lags, "tagged", numbersJson(members.taggedLags));
}

JsonPtr vlanJson(const ListedVlan &vlan) {
    JsonPtr object(cJSON_CreateObject());
    cJSON_AddNumberToObject(object.get(), "vlanId", vlan.row.id);
    cJSON_AddNumberToObject(object.get(), "vlanType", vlan.row.vlanType);
    cJSON_AddStringToObject(object.get(), "profileType", vlan.row.profileType.c_str());
    cJSON_AddBoolToObject(object.get(), "exists", vlan.exists);
    if (vlan.picture)
        addPicture(object.get(), *vlan.picture);
    if (vlan.settings && vlan.settings->ptpTc)
        cJSON_AddBoolToObject(object.get(), "ptpTc", *vlan.settings->ptpTc);
    if (vlan.settings && vlan.settings->assignedPorts)
        addNumbers(object.get(), "assignedPort", *vlan.settings->assignedPorts);
    return object;
}

// The array owns the item from then on.
void append(cJSON *array, JsonPtr item) {
    if (cJSON_AddItemToArray(array, item.get()))
        static_cast<void>(item.release());
}

JsonPtr profileJson(const ListedProfile &profile) {
    JsonPtr object(cJSON_CreateObject());
    cJSON_AddStringToObject(object.get(), "name", profile.name.c_str());
    cJSON_AddStringToObject(object.get(), "profileType", profile.profileType.c_str());
    cJSON_AddStringToObject(object.get(), "color", profile.color.c_str());
    cJSON *const vlans = cJSON_AddArrayToObject(object.get(), "vlans");
    for (const auto &vlan : profile.vlans)
        append(vlans, vlanJson(vlan));
    return object;
}

}  // namespace

Result<std::vector<ListedProfile>> readProfiles(Switch sw, ListDetails details, Where where) {
    const auto rows = readProfileRows(where);
    if (!rows)
        return failed(ResultCode::Failed);
    Pictures pictures;
    if (details == ListDetails::Full) {
        auto read = readPictures(sw, where);
        if (!read)
            return std::unexpected(read.error());
        pictures = std::move(*read);
    }
    std::vector<ListedProfile> profiles;
    for (const auto &row : *rows)
        profileOf(row, profiles).vlans.push_back(listVlan(sw, row, details, pictures));
    return profiles;
}

std::string printProfile(const ListedProfile &profile) {
    return printJson(profileJson(profile).get());
}

std::string printProfiles(const std::vector<ListedProfile> &profiles) {
    const JsonPtr array(cJSON_CreateArray());
    for (const auto &profile : profiles)
        append(array.get(), profileJson(profile));
    return printJson(array.get());
}

}  // namespace pavo
