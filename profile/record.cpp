#include "profile/record.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "common/files.h"
#include "common/json.h"
#include "common/log.h"
#include "platform/paths.h"

namespace pavo {
namespace {

constexpr int kVersion = 1;
using platform::paths::kProfileRecord;

// --- requests, in the form in which they come

void addText(cJSON *object, const char *key, const std::optional<std::string> &value) {
    if (value)
        cJSON_AddStringToObject(object, key, value->c_str());
}

void addVlan(cJSON *list, const ProfileVlanRequest &vlan) {
    cJSON *const object = cJSON_CreateObject();
    cJSON_AddItemToArray(list, object);
    cJSON_AddNumberToObject(object, "vlanId", vlan.id.number());
    cJSON_AddNumberToObject(object, "vlanType", vlan.vlanType);
    cJSON_AddStringToObject(object, "profileType", vlan.profileType.c_str());
    cJSON *const ports = cJSON_AddObjectToObject(object, "ports");
    addNumbers(ports, "untagged", vlan.untagged);
    addNumbers(ports, "tagged", vlan.tagged);
    addNumbers(ports, "assignedPort", vlan.assigned);
    if (vlan.routing == RoutingRequest{})
        return;
    cJSON *const routing = cJSON_AddObjectToObject(object, "routing");
    cJSON_AddNumberToObject(routing, "ipConfig", static_cast<int>(vlan.routing.method));
    if (vlan.routing.address)
        cJSON_AddStringToObject(routing, "ipAddr", vlan.routing.address->text().c_str());
    if (vlan.routing.mask)
        cJSON_AddStringToObject(routing, "ipMask", vlan.routing.mask->text().c_str());
}

void addProfile(cJSON *list, const AppliedProfile &profile) {
    cJSON *const object = cJSON_CreateObject();
    cJSON_AddItemToArray(list, object);
    const auto &request = profile.request;
    cJSON *const config = cJSON_AddObjectToObject(object, "profileConfig");
    cJSON_AddStringToObject(config, "name", request.name.c_str());
    cJSON_AddStringToObject(config, "color", request.color.c_str());
    cJSON_AddStringToObject(config, "profileType", request.profileType.c_str());
    cJSON_AddNumberToObject(config, "vlanNum", request.declaredVlans);
    if (request.ptpTc)
        cJSON_AddBoolToObject(config, "ptp", *request.ptpTc);
    cJSON *const vlans = cJSON_AddArrayToObject(config, "vlans");
    for (const auto &vlan : request.vlans)
        addVlan(vlans, vlan);
    cJSON_AddStringToObject(object, "document", profile.document.c_str());
}

void addProfiles(cJSON *object, const AppliedProfiles &profiles) {
    cJSON *const list = cJSON_AddArrayToObject(object, "profiles");
    for (const auto &profile : profiles)
        addProfile(list, profile);
}

std::optional<AppliedProfiles> parseProfiles(const cJSON *object) {
    const cJSON *const list = member(object, "profiles");
    if (!cJSON_IsArray(list))
        return std::nullopt;
    AppliedProfiles profiles;
    const cJSON *item = nullptr;
    cJSON_ArrayForEach(item, list) {
        auto config = parseProfileConfig(printJson(item));
        if (!config)
            return std::nullopt;
        profiles.push_back({std::move(config->request), stringMember(item, "document").value_or("")});
    }
    return profiles;
}

// --- things

std::optional<RecordedThing> parseThing(const cJSON *object) {
    if (!cJSON_IsObject(object))
        return std::nullopt;
    // Absent is the default; something else than a string is damage, not a default.
    for (const char *const key : {"before", "want", "shown"})
        if (const cJSON *const value = member(object, key); value != nullptr && !cJSON_IsString(value))
            return std::nullopt;
    RecordedThing thing{stringMember(object, "before"),
                        stringMember(object, "want"),
                        stringMember(object, "shown"),
                        {},
                        boolMember(object, "wentAlong").value_or(false)};
    const cJSON *item = nullptr;
    cJSON_ArrayForEach(item, member(object, "profiles")) {
        if (cJSON_IsString(item))
            thing.profiles.insert(item->valuestring);
    }
    return thing;
}

bool parseThings(const cJSON *object, std::map<std::string, RecordedThing> &things) {
    if (!cJSON_IsObject(object))
        return false;
    const cJSON *item = nullptr;
    cJSON_ArrayForEach(item, object) {
        auto thing = parseThing(item);
        if (!thing)
            return false;
        things.emplace(item->string, std::move(*thing));
    }
    return true;
}

void addThings(cJSON *object, const std::map<std::string, RecordedThing> &things) {
    cJSON *const list = cJSON_AddObjectToObject(object, "things");
    for (const auto &[name, thing] : things) {
        cJSON *const item = cJSON_AddObjectToObject(list, name.c_str());
        addText(item, "before", thing.before);
        addText(item, "want", thing.want);
        addText(item, "shown", thing.shown);
        if (thing.wentAlong)
            cJSON_AddBoolToObject(item, "wentAlong", true);
        cJSON *const profiles = cJSON_AddArrayToObject(item, "profiles");
        for (const auto &profile : thing.profiles)
            cJSON_AddItemToArray(profiles, cJSON_CreateString(profile.c_str()));
    }
}

}  // namespace

const AppliedProfile *ProfileRecord::find(const std::string &name) const {
    const auto it = std::ranges::find_if(
        profiles, [&](const AppliedProfile &profile) { return profile.request.name == name; });
    return it == profiles.end() ? nullptr : &*it;
}

std::optional<ProfileRecord> ProfileRecord::parse(const std::string &text) {
    const JsonPtr root(cJSON_Parse(text.c_str()));
    if (integerMember(root.get(), "version") != kVersion)
        return std::nullopt;
    ProfileRecord record;
    auto profiles = parseProfiles(root.get());
    if (!profiles || !parseThings(member(root.get(), "things"), record.things))
        return std::nullopt;
    record.profiles = std::move(*profiles);
    if (const cJSON *const pending = member(root.get(), "pending"); pending != nullptr) {
        auto goal = parseProfiles(pending);
        if (!goal)
            return std::nullopt;
        record.pending = PendingChange{std::move(*goal), stringMember(pending, "name").value_or(""),
                                       boolMember(pending, "undo").value_or(false)};
    }
    return record;
}

std::string ProfileRecord::print() const {
    const JsonPtr root(cJSON_CreateObject());
    cJSON_AddNumberToObject(root.get(), "version", kVersion);
    addProfiles(root.get(), profiles);
    addThings(root.get(), things);
    if (pending) {
        cJSON *const object = cJSON_AddObjectToObject(root.get(), "pending");
        cJSON_AddStringToObject(object, "name", pending->name.c_str());
        cJSON_AddBoolToObject(object, "undo", pending->undo);
        addProfiles(object, pending->profiles);
    }
    return printJsonLine(root.get());
}

Result<ProfileRecord> readProfileRecord(Where where) {
    if (!fileExists(kProfileRecord))
        return ProfileRecord{};
    const auto text = readFile(kProfileRecord, kFileMax, where);
    if (!text) {
        const auto reason = formatText("the profile record %s cannot be read", std::string(kProfileRecord));
        logError(where, "[%s:%d] %s\n", reason);
        return failed(ResultCode::Failed, reason);
    }
    if (auto record = ProfileRecord::parse(*text))
        return std::move(*record);
    logError(where, "[%s:%d] the profile record is damaged\n");
    return ProfileRecord{};
}

void setAsideDamagedRecord(Where where) {
    const auto text = readFile(kProfileRecord, kFileMax, where);
    if (!text || ProfileRecord::parse(*text))
        return;
    const std::string aside = std::string(kProfileRecord) + ".damaged";
    logWarn(where, "[%s:%d] the damaged profile record is kept as %s\n", aside);
    std::rename(platform::fsPath(kProfileRecord).c_str(), platform::fsPath(aside).c_str());
}

Result<> writeProfileRecord(const ProfileRecord &record, Where where) {
    const auto text = record.print();
    if (text.empty()) {
        logError(where, "[%s:%d] no memory for the profile record\n");
        return failed(ResultCode::InvalidPointer, "no memory for the profile record");
    }
    return replaceFileDurably(kProfileRecord, text, where);
}

}  // namespace pavo
