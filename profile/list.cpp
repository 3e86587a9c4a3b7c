#include "profile/list.h"

#include <sqlite3.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <iterator>
#include <map>
#include <span>
#include <system_error>
#include <utility>

#include "common/json.h"
#include "common/log.h"
#include "common/text.h"
#include "platform/paths.h"
#include "profile/feature_needs.h"
#include "profile/record.h"
#include "store/profile_types.h"

namespace pavo {
namespace {

// The VLANs of the switch with their members.
using Vlans = std::map<VlanId, VlanMembers>;

std::unexpected<Failure> reportUnread(const std::string &what, OpenError code, const Where &where) {
    const auto reason = what + " cannot be read";
    logError(where, "[%s:%d] profile list: %s (result = %d)\n", reason, code);
    return failed(ResultCode::Failed, reason);
}

Result<Vlans> readVlans(Switch sw, ListDetails details, const Where &where) {
    Vlans vlans;
    auto walk = sw.vlans();
    for (const VlanId id : walk)
        vlans.emplace(id, VlanMembers{});
    if (const auto broken = walk.brokenBy())
        return reportUnread("the list of VLANs", *broken, where);
    if (details == ListDetails::Brief)
        return vlans;
    if (const auto read = readAllMembers(sw, EmptyLags::InTheirVlans, vlans, where); !read)
        return std::unexpected(read.error());
    return vlans;
}

// Whether the database has been made. An empty file is one that is being made.
bool hasDatabase() {
    std::error_code error;
    const auto size = std::filesystem::file_size(platform::fsPath(platform::paths::kProfileDb), error);
    return error ? error != std::errc::no_such_file_or_directory : size > 0;
}

// What there is where the database does not tell: VLANs by the record of what was applied.
struct Known {
    std::vector<ProfileRow> rows;  // ascending
    bool lost = false;             // the database
};

// A database that is damaged is as good as lost, where something is known without it.
Result<Known> readRows(const ProfileRecord &record, const Where &where) {
    if (!hasDatabase())
        return Known{{}, true};
    auto rows = readProfileRows(where);
    if (rows)
        return Known{std::move(*rows), false};
    if (isDamage(rows.error().code) && !record.profiles.empty())
        return Known{{}, true};
    return failed(ResultCode::Failed, "the profile database cannot be read");
}

// Rows that the database lacks: all of them when it was lost, otherwise those of VLANs that are still there. The
// row that every database begins with says nothing about who has VLAN 1.
void addRecorded(const Standing &standing, const Vlans &vlans, Known &known) {
    for (auto &row : rowsOf(standing)) {
        const auto id = row.vlan();
        const auto *const present = findProfileRow(known.rows, row.id);
        if (present != nullptr ? *present != defaultProfileRow()
                               : !known.lost && (!id || !vlans.contains(*id)))
            continue;
        std::erase_if(known.rows, [&](const ProfileRow &other) { return other.id == row.id; });
        known.rows.push_back(std::move(row));
        std::ranges::sort(known.rows, {}, &ProfileRow::id);
    }
}

ListedVlan listVlan(const ProfileRow &row, ListDetails details, const Vlans &vlans) {
    ListedVlan listed{.row = row};
    const auto id = row.vlan();
    if (!id)
        return listed;
    const auto vlan = vlans.find(*id);
    listed.exists = vlan != vlans.end();
    if (details == ListDetails::Brief)
        return listed;
    if (listed.exists)
        listed.members = vlan->second;
    listed.settings = readVlanSettings(*id);
    return listed;
}

// The profile of that name, made when there is none yet.
ListedProfile &profileOf(const std::string &name, const std::string &profileType, const std::string &color,
                         std::vector<ListedProfile> &profiles) {
    const auto known = std::ranges::find(profiles, name, &ListedProfile::name);
    if (known != profiles.end())
        return *known;
    return profiles.emplace_back(ListedProfile{name, profileType, color, {}});
}

// Whether a profile has no VLAN of its own left, so that no row tells of it. VLAN 1 under the default profile is
// anybody's, and a profile of nothing else has lost nothing.
bool isWithoutVlans(const ProfileRequest &request, const Standing &standing) {
    const auto has = [&](const PlacedVlan &placed) {
        return placed.profile->request.name == request.name && !placed.shared;
    };
    const auto isOwn = [](const ProfileVlanRequest &vlan) {
        return vlan.id != kDefaultVlan || vlan.profileType != PROFILE_TYPE_NAME_DEFAULT;
    };
    return std::ranges::none_of(standing.vlans, has) && std::ranges::any_of(request.vlans, isOwn);
}

// What the record knows beyond the rows.
void addIncomplete(const AppliedProfiles &applied, const Standing &standing,
                   std::vector<ListedProfile> &profiles) {
    auto losses = standing.losses;
    static_cast<void>(readFeatureNeeds(standing, &losses));
    for (const auto &[request, document] : applied)
        if (isWithoutVlans(request, standing))
            profileOf(request.name, request.profileType, request.color, profiles);
    for (auto &profile : profiles)
        std::ranges::copy_if(losses, std::back_inserter(profile.incomplete),
                             [&](const Loss &loss) { return loss.loser == profile.name; });
}

// --- JSON

JsonPtr numbersJson(std::span<const std::uint32_t> numbers) {
    JsonPtr array(cJSON_CreateArray());
    for (const std::uint32_t number : numbers)
        appendNumber(array.get(), number);
    return array;
}

void addText(cJSON *object, const char *key, const std::string &text) {
    cJSON_AddStringToObject(object, key, wellFormed(text).c_str());
}

void addMembers(cJSON *object, const VlanMembers &members) {
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
    addText(object.get(), "profileType", vlan.row.profileType);
    cJSON_AddBoolToObject(object.get(), "exists", vlan.exists);
    if (vlan.members) {
        addText(object.get(), "vlanName", vlan.row.profileName);
        addMembers(object.get(), *vlan.members);
    }
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
    addText(object.get(), "name", profile.name);
    addText(object.get(), "profileType", profile.profileType);
    addText(object.get(), "color", profile.color);
    cJSON *const vlans = cJSON_AddArrayToObject(object.get(), "vlans");
    for (const auto &vlan : profile.vlans)
        append(vlans, vlanJson(vlan));
    if (profile.incomplete.empty())
        return object;
    cJSON *const losses = cJSON_AddArrayToObject(object.get(), "incomplete");
    for (const auto &loss : profile.incomplete) {
        JsonPtr item(cJSON_CreateObject());
        addText(item.get(), "what", loss.what);
        addText(item.get(), "to", loss.taker);
        append(losses, std::move(item));
    }
    return object;
}

}  // namespace

Result<std::vector<ListedProfile>> readProfiles(Switch sw, ListDetails details, Where where) {
    const auto record = readProfileRecord(where);
    if (!record)
        return std::unexpected(record.error());
    auto known = readRows(*record, where);
    if (!known)
        return std::unexpected(known.error());
    const auto vlans = readVlans(sw, details, where);
    if (!vlans)
        return std::unexpected(vlans.error());
    const auto standing = standingOf(record->profiles);
    addRecorded(standing, *vlans, *known);
    std::vector<ListedProfile> profiles;
    for (const auto &row : known->rows)
        profileOf(row.profileName, row.profileType, row.color, profiles)
            .vlans.push_back(listVlan(row, details, *vlans));
    addIncomplete(record->profiles, standing, profiles);
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
