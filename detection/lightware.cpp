#include "detection/lightware.h"

#include <pthread.h>

#include <charconv>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <memory>
#include <string_view>
#include <system_error>
#include <vector>

#include "common/log.h"
#include "common/owners.h"
#include "common/result.h"
#include "detection/lag.h"
#include "detection/switch_walks.h"
#include "platform/clock.h"
#include "store/profile_db.h"
#include "store/profile_types.h"
#include "swapi/vlan_membership.h"

std::atomic<std::int32_t> lightwareRunning{0};

namespace {

constexpr std::chrono::seconds kPeriod{30};
constexpr std::chrono::seconds kLagLeavePause{2};
constexpr const char *kProfileType = PROFILE_TYPE_NAME_LIGHTWARE;
constexpr std::uint32_t kMissMax = 2;
constexpr std::uint32_t kMissMoved = 3;
constexpr std::size_t kChassisIdCopied = 18;

DeviceList lightwareList;

constexpr NeighbourRead kNeighbourReads[] = {
    {NeighbourField::systemDesc, "systemDesc"},
    {NeighbourField::chassisId, "chassisId"},
    {NeighbourField::portDesc, "portDesc"},
};

constexpr NeighbourFamily kNeighbours = {
    .reads = kNeighbourReads,
    .prefix = "UBEX",
};

LightwareLink *linkAt(const DeviceList *list, std::size_t i) {
    return static_cast<LightwareLink *>(deviceListGet(list, i));
}

// The leading digits of a text; as large as can be when they are too many.
std::uint32_t leadingNumber(std::string_view text) {
    std::uint32_t number = 0;
    const auto parsed = std::from_chars(text.data(), text.data() + text.size(), number);
    return parsed.ec == std::errc::result_out_of_range ? UINT32_MAX : number;
}

// An object of the scan, and the link it would be in the list. Texts are the scan's.
struct SeenLink {
    LightwareLink link;
    const char *portDesc;  // null when the object has none
};

std::vector<SeenLink> seenLinksGet(const cJSON *scan) {
    std::vector<SeenLink> seen;
    const cJSON *object = nullptr;
    cJSON_ArrayForEach(object, scan) {
        const cJSON *port = cJSON_GetObjectItemCaseSensitive(object, "portId");
        const cJSON *chassisId = cJSON_GetObjectItemCaseSensitive(object, "chassisId");
        const char *portDesc = cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(object, "portDesc"));
        if (!cJSON_IsNumber(port) || !cJSON_IsString(chassisId))
            continue;
        SeenLink &added = seen.emplace_back();
        added.portDesc = portDesc;
        added.link.port = static_cast<std::uint32_t>(port->valueint);
        added.link.portDescNum = portDesc != nullptr ? leadingNumber(portDesc) : 0;
        std::snprintf(added.link.chassisId, kChassisIdCopied + 1, "%s", chassisId->valuestring);
    }
    return seen;
}

// Where the scan shows a link of the list.
enum class Whereabouts { unseen, inPlace, moved };

Whereabouts whereaboutsOf(const LightwareLink &link, const std::vector<SeenLink> &scan) {
    for (const SeenLink &seen : scan) {
        if (seen.portDesc == nullptr || std::strcmp(seen.link.chassisId, link.chassisId) != 0 ||
            seen.link.portDescNum != link.portDescNum) {
            continue;
        }
        return seen.link.port == link.port ? Whereabouts::inPlace : Whereabouts::moved;
    }
    return Whereabouts::unseen;
}

// Whether the link is to be taken offline.
bool isGone(LightwareLink *link, const std::vector<SeenLink> &scan) {
    switch (whereaboutsOf(*link, scan)) {
        case Whereabouts::inPlace:
            link->missCount = 0;
            return false;
        case Whereabouts::moved:
            link->missCount = kMissMoved;
            return true;
        case Whereabouts::unseen:
            break;
    }
    return ++link->missCount >= kMissMax;
}

void goneTakeOffline(openapiClientHandle_t *client, DeviceList *list, const std::vector<SeenLink> &scan) {
    for (std::size_t i = 1; i <= list->count;) {
        LightwareLink *link = linkAt(list, i);
        if (!isGone(link, scan)) {
            ++i;
            continue;
        }
        LOG_TRACE("[%s:%d] LightwareLookup ====== port=%d chassisId=%s offline\r\n", link->port,
                  printable(link->chassisId).c_str());
        if (lightwareOfflineCli(client, list, link) == RESULT_SUCCESS)
            lightwareLinkFree(deviceListRemoveAt(list, i));
        else
            ++i;
    }
}

void newBringOnline(openapiClientHandle_t *client, DeviceList *list, const std::vector<SeenLink> &scan) {
    for (const SeenLink &seen : scan) {
        if (deviceListFind(list, &seen.link) != nullptr)
            continue;
        LOG_TRACE("[%s:%d] LightwareLookup ====== port=%d chassisId=%s portDesc=%s online\r\n",
                  seen.link.port, printable(seen.link.chassisId).c_str(),
                  printable(seen.portDesc != nullptr ? seen.portDesc : "").c_str());
        auto link = std::make_unique<LightwareLink>(seen.link);
        if (lightwareOnlineCli(client, list, link.get()) == RESULT_SUCCESS &&
            deviceListPush(list, link.get()) == 0) {
            static_cast<void>(link.release());
        }
    }
}

// The endpoint's other uplink, or null.
const LightwareLink *siblingFind(const DeviceList *list, const LightwareLink &link) {
    for (std::size_t i = 1; i <= list->count; ++i) {
        const LightwareLink *other = linkAt(list, i);
        if (std::strcmp(other->chassisId, link.chassisId) == 0 && other->portDescNum != link.portDescNum)
            return other;
    }
    return nullptr;
}

void lagLeave(openapiClientHandle_t *client, std::uint32_t port) {
    std::uint32_t lag = 0;
    if (phyPortLagNumGet(client, port, &lag) != RESULT_SUCCESS || lag == 0)
        return;
    if (rpcclt_openapiLagPortDelete(client, lag, port) == OPEN_E_NONE) {
        LOG_INFORM("[%s:%d] Lightware: Successfully to delete interface %u from LAG inaterface %d\n", port,
                   lag);
        platform::sleepFor(kLagLeavePause);
    } else {
        LOG_ERROR("[%s:%d] Lightware: Failed to delete interface %u from LAG inaterface %d\n", port, lag);
    }
}

void lagStaticModeSet(openapiClientHandle_t *client, std::uint32_t lag, std::uint32_t mode) {
    const open_error_t result = rpcclt_openapiLagStaticModeSet(client, lag, mode);
    if (result != OPEN_E_NONE)
        LOG_ERROR("[%s:%d] Failed to set the static mode for the LAG interface %d, result=%d\n", lag, result);
}

void lagJoin(openapiClientHandle_t *client, std::uint32_t lag, std::uint32_t port) {
    const open_error_t result = rpcclt_openapiLagPortAdd(client, lag, port);
    if (result == OPEN_E_NONE) {
        lagStaticModeSet(client, lag, OPEN_DISABLE);
    } else {
        LOG_ERROR("[%s:%d] Lightware: Failed to add interface %d to LAG interface %d, result=%d\n", port, lag,
                  result);
    }
}

void ifTaggingSet(openapiClientHandle_t *client, std::uint32_t ifNum) {
    if (vlanIfParticipationSetAndVerify(client, ifNum, LIGHTWARE_TAGGED_VLAN,
                                        OPEN_VLAN_PARTICIPATION_MODE_INCLUDE) == 0) {
        vlanIfTaggingSetAndVerify(client, ifNum, LIGHTWARE_TAGGED_VLAN, OPEN_ENABLE);
    }
}

}  // namespace

void lightwareLinkFree(void *record) {
    delete static_cast<LightwareLink *>(record);
}

int lightwareLinkCompare(const void *a, const void *b) {
    const auto *left = static_cast<const LightwareLink *>(a);
    const auto *right = static_cast<const LightwareLink *>(b);
    return left->port == right->port && left->portDescNum == right->portDescNum
               ? std::strcmp(left->chassisId, right->chassisId)
               : 1;
}

std::int32_t lightwareVlanIdGet(openapiClientHandle_t *client, std::uint32_t *vlanId) {
    const std::int32_t found = vlanInfoSelectHasofProfileType(
        client, kProfileType, static_cast<std::int32_t>(LIGHTWARE_TAGGED_VLAN));
    if (found == 0 || openapiVlanCreatedCheck(client, static_cast<std::uint32_t>(found)) != OPEN_E_NONE)
        return RESULT_CONFIG_INVALID;
    *vlanId = static_cast<std::uint32_t>(found);
    return RESULT_SUCCESS;
}

void lightwareListGet(openapiClientHandle_t *client, cJSON *out) {
    std::uint32_t vlanId = 0;
    if (lightwareVlanIdGet(client, &vlanId) != RESULT_SUCCESS)
        return;
    std::uint32_t textSize = 0;
    lldpIntfForEach(client, [&](std::uint32_t ifNum) {
        std::uint32_t pvid = 0;
        if (openapiVlanIfPvidGet(client, ifNum, &pvid) != OPEN_E_NONE || pvid != vlanId)
            return true;
        const JsonPtr neighbours(cJSON_CreateArray());
        if (neighbours == nullptr) {
            LOG_ERROR("[%s:%d] Could not allocate memory.\r\n");
            return false;
        }
        lldpIntfRemoteLightwareInfoGet(client, {ifNum, neighbours.get(), &textSize});

        const cJSON *neighbour = nullptr;
        cJSON_ArrayForEach(neighbour, neighbours.get()) {
            const char *texts[std::size(kNeighbourReads)];
            bool complete = true;
            for (std::size_t i = 0; i < std::size(texts); ++i) {
                texts[i] =
                    cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(neighbour, kNeighbourReads[i].key));
                complete = complete && texts[i] != nullptr;
            }
            if (!complete || texts[1][0] == '\0')
                continue;
            JsonPtr object(cJSON_CreateObject());
            cJSON_AddNumberToObject(object.get(), "portId", ifNum);
            for (std::size_t i = 0; i < std::size(texts); ++i)
                cJSON_AddStringToObject(object.get(), kNeighbourReads[i].key, texts[i]);
            cJSON_AddItemToArray(out, object.release());
        }
        return true;
    });
}

std::int32_t lldpIntfRemoteLightwareInfoGet(openapiClientHandle_t *client, const NeighbourQuery &query) {
    return neighbourInfoGet(client, query, kNeighbours);
}

void lightwareLookup(openapiClientHandle_t *client, DeviceList *list) {
    const JsonPtr scan(cJSON_CreateArray());
    if (scan == nullptr) {
        LOG_ERROR("[%s:%d] Could not allocate memory.\r\n");
        return;
    }
    lightwareListGet(client, scan.get());
    const std::vector<SeenLink> seen = seenLinksGet(scan.get());
    goneTakeOffline(client, list, seen);
    newBringOnline(client, list, seen);
}

std::int32_t lightwareOnlineCli(openapiClientHandle_t *client, const DeviceList *list, LightwareLink *link) {
    std::uint32_t lag = 0;
    if (const LightwareLink *sibling = siblingFind(list, *link))
        lag = sibling->lagIfNum;
    else if (freeLagFind(client, &lag) != RESULT_SUCCESS)
        return RESULT_FAILED;
    if (lag == 0)
        return RESULT_SUCCESS;

    lagLeave(client, link->port);
    lagJoin(client, lag, link->port);
    link->lagIfNum = lag;
    LOG_TRACE("[%s:%d] LightwareLookup: port %d added to LAG interface %d\n", link->port, lag);

    ifTaggingSet(client, lag);
    ifTaggingSet(client, link->port);
    std::uint32_t vlanId = 0;
    if (lightwareVlanIdGet(client, &vlanId) != RESULT_SUCCESS)
        return RESULT_CONFIG_INVALID;
    ifUntaggedSet(client, lag, vlanId);
    return RESULT_SUCCESS;
}

std::int32_t lightwareOfflineCli(openapiClientHandle_t *client, const DeviceList *,
                                 const LightwareLink *link) {
    const std::uint32_t lag = link->lagIfNum;
    if (link->port == 0 || lag == 0)
        return RESULT_SUCCESS;
    ifTaggingClear(client, lag);
    std::uint32_t vlanId = 0;
    const std::int32_t result = lightwareVlanIdGet(client, &vlanId);
    if (result == RESULT_SUCCESS)
        ifUntaggingClear(client, lag);
    if (rpcclt_openapiLagPortDelete(client, lag, link->port) == OPEN_E_NONE) {
        LOG_TRACE("[%s:%d] successful to delete interface %u from LAG inaterface %d\n", link->port, lag);
        lagStaticModeSet(client, lag, OPEN_ENABLE);
    } else {
        LOG_ERROR("[%s:%d] Failed to delete interface %u from LAG inaterface %d\n", link->port, lag);
    }
    ifTaggingClear(client, link->port);
    LOG_TRACE("[%s:%d] LightwareLookup: port %d remove from LAG interface %d\n", link->port, lag);
    return result;
}

void *detect_lightware_thread(void *clientHandle) {
    auto *client = static_cast<openapiClientHandle_t *>(clientHandle);
    LOG_INFORM("[%s:%d] LightwareLookup Init success!\r\n");
    std::uint32_t vlanId = 0;
    if (lightwareVlanIdGet(client, &vlanId) == RESULT_SUCCESS) {
        deviceListInit(&lightwareList, lightwareLinkFree, nullptr, lightwareLinkCompare);
        for (;;) {
            platform::sleepFor(kPeriod);
            LOG_TRACE("[%s:%d] LightwareLookup wake up and start scanning lldp table.\r\n");
            if (lightwareVlanIdGet(client, &vlanId) != RESULT_SUCCESS) {
                LOG_TRACE("[%s:%d] User already delete lightware profile, LightwareLookup exit!\r\n");
                break;
            }
            lightwareLookup(client, &lightwareList);
        }
    }
    deviceListTearDown(&lightwareList);
    lightwareRunning = 0;
    pthread_exit(nullptr);
}
