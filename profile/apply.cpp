#include "profile/apply.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <optional>
#include <set>
#include <string>

#include "common/log.h"
#include "common/owners.h"
#include "common/result.h"
#include "platform/clock.h"
#include "platform/paths.h"
#include "profile/feature_needs.h"
#include "profile/request.h"
#include "profile/transaction.h"
#include "store/profile_template.h"
#include "store/profile_types.h"
#include "swapi/features.h"
#include "swapi/swapi.h"

namespace {

constexpr std::int32_t kVlanMax = 4094;
constexpr std::size_t kVlanNameMax = 32;
constexpr std::int32_t kRoutingDhcp = 2, kRoutingManual = 3;

using VlanIds = std::set<std::int32_t>;

VlanIds idsOf(const ProfileRequest &request) {
    VlanIds ids;
    for (std::size_t i = 0; i < request.vlanCount; ++i)
        ids.insert(request.vlans[i].vlanId);
    return ids;
}

// Types that are for one VLAN only, or for one VLAN per role.
struct SingleVlanRule {
    const char *type;
    std::size_t vlansMax;
    std::int32_t code;
};
constexpr SingleVlanRule kSingleVlanRules[] = {
    {PROFILE_TYPE_NAME_AVB, 1, RESULT_AVB_ONE_VLAN},
    {PROFILE_TYPE_NAME_MILAN, 1, RESULT_AVB_ONE_VLAN},
    {PROFILE_TYPE_NAME_MILAN_DANTE, 1, RESULT_AVB_ONE_VLAN},
    {PROFILE_TYPE_NAME_SMPTE, 1, RESULT_SMPTE_ONE_VLAN},
    {PROFILE_TYPE_NAME_SHURE_CONVERGED, 1, RESULT_SHURE_ONE_VLAN},
    {PROFILE_TYPE_NAME_SHURE_SPLIT, 2, RESULT_SHURE_ONE_VLAN},
};

// --- texts

// True for well-formed UTF-8 without control characters, quotes and backslashes: what may stand in a VLAN
// name.
bool nameAcceptable(const char *text) {
    const auto *p = reinterpret_cast<const unsigned char *>(text);
    if (*p == 0)
        return false;
    while (*p != 0) {
        if (*p < 0x20 || *p == 0x7f || *p == '"' || *p == '\\')
            return false;
        const int more = *p < 0x80                 ? 0
                         : *p >= 0xc2 && *p < 0xe0 ? 1
                         : *p >= 0xe0 && *p < 0xf0 ? 2
                         : *p >= 0xf0 && *p < 0xf5 ? 3
                                                   : -1;
        if (more < 0)
            return false;
        ++p;
        for (int i = 0; i < more; ++i, ++p)
            if ((*p & 0xc0) != 0x80)
                return false;
    }
    return true;
}

// A name is cut to 255 bytes when it is copied; a character cut in half goes with it.
std::string wholeCharacters(std::string text, std::size_t most) {
    text.resize(std::min(text.size(), most));
    while (!text.empty() && (static_cast<unsigned char>(text.back()) & 0xc0) == 0x80)
        text.pop_back();
    if (!text.empty() && static_cast<unsigned char>(text.back()) >= 0xc0)
        text.pop_back();
    return text;
}

// What the running configuration says of a VLAN of that name: nothing when it is the default one.
std::string switchVlanName(const std::string &profileName, std::uint32_t id) {
    char byDefault[16];
    std::snprintf(byDefault, sizeof byDefault, "VLAN%04u", id);
    if (profileName == byDefault)
        return "";
    if (profileName.size() <= kVlanNameMax)
        return profileName;
    // Cutting inside a character takes the whole of it.
    auto cut = profileName.substr(0, kVlanNameMax);
    if ((static_cast<unsigned char>(profileName[kVlanNameMax]) & 0xc0) == 0x80)
        cut = wholeCharacters(cut, kVlanNameMax);
    return cut;
}

bool isAddress(const char *text) {
    in_addr address{};
    return inet_pton(AF_INET, text, &address) == 1;
}

// --- checks

// Interface names of the ports that a request names; asked of the switch once each.
class PortNames {
  public:
    explicit PortNames(openapiClientHandle_t *client) : client_(client) {}

    // The CLI name, or nothing when there is no such port or LAG.
    std::optional<std::string> find(std::uint32_t ifNum) {
        const auto known = names_.find(ifNum);
        if (known != names_.end())
            return known->second;
        std::uint32_t type = 0;
        if (openapiIfTypeGet(client_, ifNum, &type) != OPEN_E_NONE ||
            (type != OPEN_INTF_TYPE_PHY && type != OPEN_INTF_TYPE_LAG))
            return std::nullopt;
        auto name = portCliName(ifNum);
        if (type == OPEN_INTF_TYPE_LAG) {
            if (firstLag_ == 0 && swapiIfFirstGet(client_, OPEN_INTF_TYPE_LAG, &firstLag_) != OPEN_E_NONE)
                return std::nullopt;
            name = "lag " + std::to_string(ifNum - firstLag_ + 1);
        }
        return names_.emplace(ifNum, std::move(name)).first->second;
    }

  private:
    openapiClientHandle_t *client_;
    std::uint32_t firstLag_ = 0;
    std::map<std::uint32_t, std::string> names_;
};

std::int32_t refuse(std::int32_t code, const char *why) {
    LOG_ERROR("[%s:%d] profile refused: %s (result = %d)\n", why, code);
    return code;
}

std::int32_t checkVlan(const ProfileVlanRequest &vlan, PortNames *ports, std::set<std::uint32_t> *untagged) {
    ProfileTypeAttributes attributes{};
    if (vlan.vlanId < 1 || vlan.vlanId > kVlanMax)
        return refuse(RESULT_INVALID_ARGUMENT, "a VLAN id is outside 1 to 4094");
    if (profileTypeAttrGet(vlan.profileType, &attributes) != RESULT_SUCCESS)
        return refuse(RESULT_INVALID_ARGUMENT, "unknown profile type");
    for (const auto *list : {&vlan.untagged, &vlan.tagged, &vlan.assigned})
        for (std::uint32_t i = 0; i < list->count; ++i)
            if (!ports->find(list->ports[i]))
                return refuse(RESULT_INVALID_ARGUMENT, "a port does not exist");
    for (std::uint32_t i = 0; i < vlan.untagged.count; ++i)
        if (!untagged->insert(vlan.untagged.ports[i]).second)
            return refuse(RESULT_INVALID_ARGUMENT, "a port is untagged twice");
    for (std::uint32_t i = 0; i < vlan.tagged.count; ++i)
        if (std::find(vlan.untagged.ports, vlan.untagged.ports + vlan.untagged.count, vlan.tagged.ports[i]) !=
            vlan.untagged.ports + vlan.untagged.count)
            return refuse(RESULT_INVALID_ARGUMENT, "a port is tagged and untagged in one VLAN");
    if (vlan.routing < 0 || vlan.routing > kRoutingManual ||
        (vlan.routing == kRoutingManual && (!isAddress(vlan.ipAddr) || !isAddress(vlan.ipMask))))
        return refuse(RESULT_INVALID_ARGUMENT, "an IP address is malformed");
    return RESULT_SUCCESS;
}

std::int32_t checkRules(const ProfileRequest &request, const ProfileTransaction &transaction,
                        const VlanIds &gone) {
    for (const auto &rule : kSingleVlanRules) {
        std::size_t wanted = 0, present = 0;
        for (std::size_t i = 0; i < request.vlanCount; ++i)
            wanted += std::strcmp(request.vlans[i].profileType, rule.type) == 0 ? 1 : 0;
        for (const auto &row : transaction.rows())
            present += std::strcmp(row.profileType, rule.type) == 0 && !gone.contains(row.id) &&
                               transaction.state().hasVlan(static_cast<std::uint32_t>(row.id))
                           ? 1
                           : 0;
        if (wanted > rule.vlansMax || (wanted > 0 && present > 0))
            return refuse(rule.code, getErrMsg(rule.code));
    }
    return RESULT_SUCCESS;
}

std::int32_t checkRequest(openapiClientHandle_t *client, const ProfileRequest &request, PortNames *ports) {
    if (request.vlanCount == 0 || request.vlanCount > PROFILE_VLANS_MAX)
        return refuse(RESULT_INVALID_ARGUMENT, "a profile has one to four VLANs");
    if (!nameAcceptable(request.name))
        return refuse(RESULT_INVALID_ARGUMENT, "the name has characters that a VLAN name cannot have");
    if (ProfileTypeAttributes attributes{};
        profileTypeAttrGet(request.profileType, &attributes) != RESULT_SUCCESS)
        return refuse(RESULT_INVALID_ARGUMENT, "unknown profile type");
    if (idsOf(request).size() != request.vlanCount)
        return refuse(RESULT_INVALID_ARGUMENT, "a VLAN is named twice");
    std::set<std::uint32_t> untagged;
    for (std::size_t i = 0; i < request.vlanCount; ++i)
        if (const auto result = checkVlan(request.vlans[i], ports, &untagged); result != RESULT_SUCCESS)
            return result;
    for (std::size_t i = 0; i < request.vlanCount; ++i) {
        char model[MACHINE_MODEL_SIZE] = "";
        if (std::strcmp(request.vlans[i].profileType, PROFILE_TYPE_NAME_SMPTE) == 0 &&
            machineModelGet(client, model) == RESULT_SUCCESS && !smpteModelSupported(model))
            return refuse(RESULT_PROFILE_UNSUPPORTED, getErrMsg(RESULT_PROFILE_UNSUPPORTED));
    }
    return RESULT_SUCCESS;
}

// The VLANs of the profile of this name that the request does not name, or nothing when another profile has
// the name.
std::optional<VlanIds> leftovers(const ProfileRequest &request, const ProfileTransaction &transaction,
                                 bool overwrite) {
    const auto ids = idsOf(request);
    VlanIds left;
    bool own = overwrite;
    for (const auto &row : transaction.rows()) {
        if (std::strcmp(row.profileName, request.name) != 0 ||
            !transaction.state().hasVlan(static_cast<std::uint32_t>(row.id)))
            continue;
        if (ids.contains(row.id))
            own = true;
        else
            left.insert(row.id);
    }
    return left.empty() || own ? std::optional(left) : std::nullopt;
}

// --- per-VLAN files

// What the per-VLAN file knows about the time before the profile.
struct VlanHistory {
    bool created = true;  // the profile created the VLAN
    std::string oldName;  // its name on the switch before
    // Its VLAN interface before, once the profile has changed that.
    std::optional<RoutingState> oldRouting;
};

std::optional<RoutingState> routingFromJson(const cJSON *object) {
    if (!cJSON_IsObject(object))
        return std::nullopt;
    const auto address = [object](const char *key) {
        const char *text = cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(object, key));
        return std::string(text != nullptr && isAddress(text) ? text : "");
    };
    RoutingState routing{cJSON_IsTrue(cJSON_GetObjectItemCaseSensitive(object, "routing")) != 0,
                         cJSON_IsTrue(cJSON_GetObjectItemCaseSensitive(object, "dhcp")) != 0,
                         address("ipAddr"), address("ipMask")};
    if (routing.ip.empty() || routing.mask.empty())
        routing.ip = routing.mask = "";
    return routing;
}

void routingToJson(cJSON *file, const RoutingState &routing) {
    cJSON *object = cJSON_AddObjectToObject(file, "oldRouting");
    cJSON_AddBoolToObject(object, "routing", routing.routing);
    cJSON_AddBoolToObject(object, "dhcp", routing.dhcp);
    cJSON_AddStringToObject(object, "ipAddr", routing.ip.c_str());
    cJSON_AddStringToObject(object, "ipMask", routing.mask.c_str());
}

std::optional<VlanHistory> historyOf(std::int32_t vlanId) {
    const JsonPtr file(jsonFileLoad(profileVlanConfigPath(vlanId).c_str()));
    const cJSON *created = cJSON_GetObjectItemCaseSensitive(file.get(), "created");
    const cJSON *oldName = cJSON_GetObjectItemCaseSensitive(file.get(), "oldName");
    if (!cJSON_IsBool(created))
        return std::nullopt;
    VlanHistory history{cJSON_IsTrue(created) != 0, "",
                        routingFromJson(cJSON_GetObjectItemCaseSensitive(file.get(), "oldRouting"))};
    if (cJSON_IsString(oldName) && nameAcceptable(oldName->valuestring))
        history.oldName = oldName->valuestring;
    return history;
}

// Of a VLAN that a request is about to configure. One with a row is the profile's own, whatever became of its
// file; one that is not on the switch has no past.
VlanHistory historyNow(const ProfileVlanRequest &vlan, const SwitchState &before, bool hasRow) {
    const auto id = static_cast<std::uint32_t>(vlan.vlanId);
    VlanHistory history;
    if (before.hasVlan(id)) {
        const auto named = before.vlans.find(id);
        history = hasRow ? historyOf(vlan.vlanId).value_or(VlanHistory{})
                         : VlanHistory{false, named == before.vlans.end() ? "" : named->second, std::nullopt};
    }
    if (vlan.routing != 0 && !history.oldRouting) {
        const auto routing = before.routing.find(id);
        history.oldRouting = routing == before.routing.end() ? RoutingState{} : routing->second;
    }
    return history;
}

std::string vlanFileText(const ProfileVlanRequest &vlan, const VlanHistory &history) {
    const JsonPtr file(cJSON_CreateObject());
    cJSON *config = cJSON_AddObjectToObject(file.get(), "config");
    cJSON_AddNumberToObject(config, "vlanId", vlan.vlanId);
    cJSON_AddNumberToObject(config, "vlanType", vlan.vlanType);
    cJSON_AddStringToObject(config, "profileType", vlan.profileType);
    if (vlan.ptpTc != PTP_CONFIG_NONE)
        cJSON_AddBoolToObject(config, "ptpTc", vlan.ptpTc == PTP_CONFIG_ENABLE);
    profilePortsToJson(config, "assignedPort", vlan.assigned);
    cJSON_AddBoolToObject(file.get(), "created", history.created);
    cJSON_AddStringToObject(file.get(), "oldName", history.oldName.c_str());
    if (history.oldRouting)
        routingToJson(file.get(), *history.oldRouting);
    const TextPtr text(cJSON_Print(file.get()));
    return text != nullptr ? text.get() : "";
}

// --- the wanted state

bool isMember(const InterfaceState &interface, std::uint32_t id) {
    const auto it = interface.participation.find(id);
    const bool included =
        it != interface.participation.end() && it->second == OPEN_VLAN_PARTICIPATION_MODE_INCLUDE;
    return interface.pvid == id || included || interface.tagged.contains(id);
}

void include(InterfaceState *interface, std::uint32_t id) {
    if (id == 1)
        interface->participation.erase(1);
    else
        interface->participation[id] = OPEN_VLAN_PARTICIPATION_MODE_INCLUDE;
}

// Takes an interface out of the VLAN that its untagged frames went to so far.
void leavePvid(InterfaceState *interface) {
    const auto old = interface->pvid;
    interface->tagged.erase(old);
    if (old == 1)
        interface->participation[1] = OPEN_VLAN_PARTICIPATION_MODE_AUTO;
    else
        interface->participation.erase(old);
}

void placeUntagged(InterfaceState *interface, std::uint32_t id) {
    if (interface->pvid != id)
        leavePvid(interface);
    include(interface, id);
    interface->tagged.erase(id);
    interface->pvid = id;
}

void placeTagged(InterfaceState *interface, std::uint32_t id) {
    if (interface->pvid == id && id != 1) {
        interface->pvid = 1;
        include(interface, 1);
    }
    include(interface, id);
    interface->tagged.insert(id);
}

// Every port that has no other VLAN is in VLAN 1; one that carries it beside its own stops doing so.
void untagVlan1(InterfaceState *interface) {
    if (interface->tagged.erase(1) != 0 && interface->pvid != 1)
        interface->participation[1] = OPEN_VLAN_PARTICIPATION_MODE_AUTO;
}

// All but the tagged ports.
void placeVlan(const ProfileVlanRequest &vlan, const char *profileName, PortNames *ports,
               SwitchState *state) {
    const auto id = static_cast<std::uint32_t>(vlan.vlanId);
    if (id != 1)
        state->vlans[id] = switchVlanName(profileName, id);
    std::set<std::string> wanted;
    for (const auto *list : {&vlan.untagged, &vlan.tagged})
        for (std::uint32_t i = 0; i < list->count; ++i)
            wanted.insert(*ports->find(list->ports[i]));
    for (auto &[name, interface] : state->interfaces) {
        if (wanted.contains(name))
            continue;
        if (id == 1)
            untagVlan1(&interface);
        else if (isMember(interface, id))
            state->releasePort(name, id);
    }
    for (std::uint32_t i = 0; i < vlan.untagged.count; ++i)
        placeUntagged(&state->interface(*ports->find(vlan.untagged.ports[i])), id);
    if (vlan.routing == kRoutingDhcp)
        state->routing[id] = {true, true, "", ""};
    else if (vlan.routing == kRoutingManual)
        state->routing[id] = {true, false, vlan.ipAddr, vlan.ipMask};
    else if (vlan.routing != 0)
        state->routing.erase(id);
}

using TypeOfVlan = std::map<std::uint32_t, std::string>;

TypeOfVlan typesOf(const std::vector<VlanInfoRow> &rows) {
    TypeOfVlan types;
    for (const auto &row : rows)
        types[static_cast<std::uint32_t>(row.id)] = row.profileType;
    return types;
}

// The largest MTU that the profiles on an interface ask for; 0 when none does. VLAN 1 asks for nothing: every
// port that has no other VLAN is in it.
std::uint32_t wantedMtu(const InterfaceState &interface, const TypeOfVlan &types) {
    std::uint32_t most = 0;
    for (const auto &[id, type] : types) {
        std::int32_t mtu = 0;
        if (id != 1 && isMember(interface, id) && profileTypeMtuGet(type.c_str(), &mtu) == RESULT_SUCCESS &&
            mtu > 0)
            most = std::max(most, static_cast<std::uint32_t>(mtu));
    }
    return most;
}

// An MTU that no profile asked for before is left alone until one does.
void placeMtu(const SwitchState &before, const TypeOfVlan &typesBefore, const TypeOfVlan &typesAfter,
              SwitchState *state) {
    for (auto &[name, interface] : state->interfaces) {
        const auto it = before.interfaces.find(name);
        const auto was =
            wantedMtu(it == before.interfaces.end() ? InterfaceState{} : it->second, typesBefore);
        const auto wanted = wantedMtu(interface, typesAfter);
        if (wanted != 0)
            interface.mtu = wanted;
        else if (was != 0)
            interface.mtu = 0;
    }
}

// --- steps

std::int32_t changeFeatures(openapiClientHandle_t *client, ProfileTransaction *transaction,
                            const FeatureNeeds &from, const FeatureNeeds &to) {
    if (from == to)
        return RESULT_SUCCESS;
    return transaction->run(
        "profile_action_match_and_do", [&] { return featureNeedsChange(client, from, to); },
        [client, from, to] { return featureNeedsChange(client, to, from); });
}

// VLAN 1 belongs to the default profile when it belongs to no other.
VlanInfoRow defaultRow() {
    VlanInfoRow row{};
    row.id = row.vlanType = 1;
    std::snprintf(row.profileName, sizeof row.profileName, "Default");
    std::snprintf(row.profileType, sizeof row.profileType, "Default");
    std::snprintf(row.color, sizeof row.color, "#000000");
    return row;
}

struct DetectionFile {
    const char *type;
    const char *path;
};
constexpr DetectionFile kDetectionFiles[] = {{PROFILE_TYPE_NAME_AUDAC, platform::paths::kAudacConfig},
                                             {PROFILE_TYPE_NAME_SHURE_SPLIT, platform::paths::kShureConfig}};

// Removes the files that tell detection about a type when no VLAN of it is left.
std::int32_t dropDetectionFiles(ProfileTransaction *transaction, const std::set<std::string> &types) {
    for (const auto &type : types) {
        const bool left = std::any_of(transaction->rows().begin(), transaction->rows().end(),
                                      [&](const VlanInfoRow &row) { return type == row.profileType; });
        if (left)
            continue;
        // A type is one of the table's, or was written by hand and has no file then.
        std::int32_t mtu = 0;
        if (profileTypeMtuGet(type.c_str(), &mtu) == RESULT_SUCCESS)
            if (const auto result = transaction->dropFile(profileExFilePath(type.c_str()));
                result != RESULT_SUCCESS)
                return result;
        for (const auto &file : kDetectionFiles)
            if (type == file.type)
                if (const auto result = transaction->dropFile(file.path); result != RESULT_SUCCESS)
                    return result;
    }
    return RESULT_SUCCESS;
}

void vacate(const VlanIds &ids, SwitchState *state) {
    for (const auto vlanId : ids) {
        const auto id = static_cast<std::uint32_t>(vlanId);
        const auto history = historyOf(vlanId).value_or(VlanHistory{});
        // A VLAN that is gone is not made again.
        if (id != 1 && (history.created || !state->hasVlan(id))) {
            state->removeVlan(id);
            continue;
        }
        if (history.oldRouting)
            state->routing[id] = *history.oldRouting;
        for (auto &[name, interface] : state->interfaces)
            if (id == 1)
                untagVlan1(&interface);
            else
                state->releasePort(name, id);
        if (id == 1)
            continue;
        state->vlans[id] = history.oldName;
    }
}

// Rows and files of VLANs that leave their profile.
std::int32_t dropRecords(ProfileTransaction *transaction, const VlanIds &ids) {
    for (const auto id : ids) {
        const auto result = id == 1 ? transaction->putRow(defaultRow()) : transaction->dropRow(id);
        if (result != RESULT_SUCCESS)
            return result;
        if (const auto dropped = transaction->dropFile(profileVlanConfigPath(id)); dropped != RESULT_SUCCESS)
            return dropped;
    }
    return RESULT_SUCCESS;
}

std::vector<VlanInfoRow> rowsWithout(const std::vector<VlanInfoRow> &rows, const VlanIds &ids) {
    std::vector<VlanInfoRow> left;
    std::copy_if(rows.begin(), rows.end(), std::back_inserter(left),
                 [&](const VlanInfoRow &row) { return !ids.contains(row.id); });
    return left;
}

VlanInfoRow rowOf(const ProfileVlanRequest &vlan, const ProfileRequest &request) {
    VlanInfoRow row{};
    row.id = vlan.vlanId;
    row.vlanType = vlan.vlanType;
    std::snprintf(row.profileName, sizeof row.profileName, "%s", request.name);
    std::snprintf(row.profileType, sizeof row.profileType, "%s", vlan.profileType);
    std::snprintf(row.color, sizeof row.color, "%s", request.color);
    return row;
}

bool sameRow(const VlanInfoRow *a, const VlanInfoRow &b) {
    return a != nullptr && a->vlanType == b.vlanType && std::strcmp(a->profileName, b.profileName) == 0 &&
           std::strcmp(a->profileType, b.profileType) == 0 && std::strcmp(a->color, b.color) == 0;
}

// Logs how long each phase took.
class PhaseTimer {
  public:
    void done(const char *phase) {
        const auto now = platform::monotonicNow();
        LOG_TRACE(
            "[%s:%d] %s took %ld ms\n", phase,
            static_cast<long>(std::chrono::duration_cast<std::chrono::milliseconds>(now - last_).count()));
        last_ = now;
    }

  private:
    platform::Duration last_ = platform::monotonicNow();
};

template <class... Values>
std::string format(const char *text, Values... values) {
    char out[128];
    std::snprintf(out, sizeof out, text, values...);
    return out;
}

int portsOf(const ProfileRequest &request, ProfilePortList ProfileVlanRequest::*list) {
    int count = 0;
    for (std::size_t i = 0; i < request.vlanCount; ++i)
        count += static_cast<int>((request.vlans[i].*list).count);
    return count;
}

// One attempt; what it did is in the transaction.
std::int32_t applySteps(openapiClientHandle_t *client, ProfileTransaction *transaction,
                        const ProfileRequest &request, const VlanIds &gone, PortNames *ports) {
    PhaseTimer phase;
    const auto before = transaction->state();
    const auto rowsBefore = transaction->rows();
    const auto needsBefore = featureNeedsGet(client, rowsBefore, before, gone);
    auto needs = needsBefore;
    std::set<std::string> typesBefore;
    for (const auto &row : rowsBefore)
        typesBefore.insert(row.profileType);

    // Blocks of what leaves go first: their scripts touch VLANs that must still be there.
    const auto stay = rowsWithout(rowsBefore, gone);
    if (!gone.empty()) {
        const auto without = featureNeedsGet(client, stay, before);
        if (const auto result = changeFeatures(client, transaction, needs, without); result != RESULT_SUCCESS)
            return result;
        needs = without;
    }

    // Switch: everything that concerns VLANs and ports in one script.
    auto wanted = before;
    std::map<std::int32_t, VlanHistory> histories;
    vacate(gone, &wanted);
    phase.done("vlanIfConfigReset");
    auto rowsAfter = rowsWithout(stay, idsOf(request));
    for (std::size_t i = 0; i < request.vlanCount; ++i) {
        const auto &vlan = request.vlans[i];
        phase.done(format("vlan[%d] exist check", static_cast<int>(i)).c_str());
        histories[vlan.vlanId] = historyNow(vlan, before, transaction->row(vlan.vlanId) != nullptr);
        placeVlan(vlan, request.name, ports, &wanted);
        rowsAfter.push_back(rowOf(vlan, request));
    }
    // After all PVIDs: taking a port out of VLAN 1 as its PVID must not take a tag of the request along.
    for (std::size_t i = 0; i < request.vlanCount; ++i)
        for (std::uint32_t j = 0; j < request.vlans[i].tagged.count; ++j)
            placeTagged(&wanted.interface(*ports->find(request.vlans[i].tagged.ports[j])),
                        static_cast<std::uint32_t>(request.vlans[i].vlanId));
    placeMtu(before, typesOf(rowsBefore), typesOf(rowsAfter), &wanted);
    wanted.normalise();
    if (const auto result = transaction->changeSwitch("vlanParticipationSet", wanted);
        result != RESULT_SUCCESS)
        return result;
    phase.done(format("vlanParticipationSet (untagged=%d, tagged=%d)",
                      portsOf(request, &ProfileVlanRequest::untagged),
                      portsOf(request, &ProfileVlanRequest::tagged))
                   .c_str());

    // Records.
    if (const auto result = dropRecords(transaction, gone); result != RESULT_SUCCESS)
        return result;
    for (std::size_t i = 0; i < request.vlanCount; ++i) {
        const auto &vlan = request.vlans[i];
        const auto row = rowOf(vlan, request);
        if (!sameRow(transaction->row(vlan.vlanId), row))
            if (const auto result = transaction->putRow(row); result != RESULT_SUCCESS)
                return result;
        if (const auto result = transaction->putFile(profileVlanConfigPath(vlan.vlanId),
                                                     vlanFileText(vlan, histories[vlan.vlanId]));
            result != RESULT_SUCCESS)
            return result;
    }
    if (const auto result = dropDetectionFiles(transaction, typesBefore); result != RESULT_SUCCESS)
        return result;

    phase.done("profileConfigUpdate");

    const auto needed = featureNeedsGet(client, transaction->rows(), transaction->state());
    phase.done("vlanListProfileCreateEX");
    if (const auto result = changeFeatures(client, transaction, needs, needed); result != RESULT_SUCCESS)
        return result;
    phase.done("profile_action_match_and_do");
    return featureNeedsRemoveFilters(client, needsBefore, needed);
}

std::int32_t removeSteps(openapiClientHandle_t *client, ProfileTransaction *transaction, const VlanIds &ids) {
    const auto before = transaction->state();
    const auto rowsBefore = transaction->rows();
    const auto rowsAfter = rowsWithout(rowsBefore, ids);
    std::set<std::string> types;
    for (const auto &row : rowsBefore)
        if (ids.contains(row.id))
            types.insert(row.profileType);
    const auto needsBefore = featureNeedsGet(client, rowsBefore, before, ids);
    const auto needsAfter = featureNeedsGet(client, rowsAfter, before);
    if (const auto result = changeFeatures(client, transaction, needsBefore, needsAfter);
        result != RESULT_SUCCESS)
        return result;
    auto wanted = before;
    vacate(ids, &wanted);
    placeMtu(before, typesOf(rowsBefore), typesOf(rowsAfter), &wanted);
    wanted.normalise();
    if (const auto result = transaction->changeSwitch("vlan delete", wanted); result != RESULT_SUCCESS)
        return result;
    if (const auto result = dropRecords(transaction, ids); result != RESULT_SUCCESS)
        return result;
    if (const auto result = dropDetectionFiles(transaction, types); result != RESULT_SUCCESS)
        return result;
    return featureNeedsRemoveFilters(client, needsBefore, needsAfter);
}

}  // namespace

std::int32_t profileApply(openapiClientHandle_t *client, const ProfileRequest &request, bool overwrite,
                          const std::vector<std::int32_t> &replaced) {
    PortNames ports(client);
    if (const auto result = checkRequest(client, request, &ports); result != RESULT_SUCCESS)
        return result;
    ProfileTransaction transaction(client);
    if (const auto result = transaction.begin(); result != RESULT_SUCCESS)
        return result;
    const auto left = leftovers(request, transaction, overwrite);
    if (!left)
        return refuse(RESULT_NAME_IN_USE, getErrMsg(RESULT_NAME_IN_USE));
    auto gone = *left;
    gone.insert(replaced.begin(), replaced.end());
    auto others = gone;
    others.merge(idsOf(request));
    if (const auto result = checkRules(request, transaction, others); result != RESULT_SUCCESS)
        return result;
    for (const auto id : idsOf(request))
        gone.erase(id);
    const auto result = applySteps(client, &transaction, request, gone, &ports);
    return result == RESULT_SUCCESS ? result : transaction.rollback(result);
}

std::int32_t profileVlanAdd(openapiClientHandle_t *client, const ProfileRequest *request,
                            std::int32_t overwrite) {
    return request == nullptr ? RESULT_INVALID_ARGUMENT : profileApply(client, *request, overwrite != 0, {});
}

std::int32_t profileVlansRemove(openapiClientHandle_t *client, const std::vector<std::int32_t> &vlanIds) {
    ProfileTransaction transaction(client);
    if (const auto result = transaction.begin(); result != RESULT_SUCCESS)
        return result;
    // A VLAN without a profile is not ours to remove.
    VlanIds ids(vlanIds.begin(), vlanIds.end());
    std::erase_if(ids, [&](std::int32_t id) { return transaction.row(id) == nullptr; });
    const auto result = removeSteps(client, &transaction, ids);
    return result == RESULT_SUCCESS ? result : transaction.rollback(result);
}

std::int32_t profileDelete(openapiClientHandle_t *client, const char *requestText) {
    const JsonPtr request(requestText != nullptr ? cJSON_Parse(requestText) : nullptr);
    const cJSON *name = cJSON_GetObjectItemCaseSensitive(request.get(), "name");
    if (!cJSON_IsString(name) || name->valuestring[0] == '\0')
        return refuse(RESULT_INVALID_ARGUMENT, "the request has no name");
    if (std::strcmp(name->valuestring, "Default") == 0)
        return refuse(RESULT_INVALID_ARGUMENT, "the default profile stays");
    ProfileTransaction transaction(client);
    if (const auto result = transaction.begin(); result != RESULT_SUCCESS)
        return result;
    VlanIds ids;
    for (const auto &row : transaction.rows())
        if (std::strcmp(row.profileName, name->valuestring) == 0)
            ids.insert(row.id);
    if (ids.empty())
        return refuse(RESULT_NOT_EXIST, "there is no such profile");
    const auto result = removeSteps(client, &transaction, ids);
    return result == RESULT_SUCCESS ? result : transaction.rollback(result);
}
