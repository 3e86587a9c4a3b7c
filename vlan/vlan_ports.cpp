// Which ports and LAGs are in which VLAN.
#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

#include "swapi/swapi.h"
#include "swapi/vlan_membership.h"
#include "vlan/vlan_records.h"

namespace {

constexpr std::uint32_t kLagMembersMax = 4096;  // no switch has larger LAGs
constexpr std::size_t kMemberSize = 16;         // the room the switch wants for one member

// Where the number of an interface goes: the arrays of one VLAN.
struct Arrays {
    cJSON *tagged;
    cJSON *untagged;
};

// arraysOf(vlanId): the arrays of a VLAN, null for one that is of no interest. 0, or 10002.
template <class ArraysOf>
std::int32_t interfacePlace(openapiClientHandle_t *client, std::uint32_t ifNum, std::uint32_t number,
                            ArraysOf arraysOf) {
    std::array<std::uint16_t, VLAN_TABLE_SIZE> ids;
    open_buffdesc list{sizeof ids, reinterpret_cast<char *>(ids.data())};
    std::size_t count = 0;
    if (swapiDot1qSwPortTaggedVlanListGet(client, ifNum, &list) == RESULT_SUCCESS)
        count = std::min<std::size_t>(list.size / sizeof ids[0], ids.size());
    const auto place = [number](cJSON *array) { return array == nullptr || jsonNumberAppend(array, number); };
    for (std::size_t i = 0; i < count; ++i)
        if (!place(arraysOf(ids[i]).tagged))
            return RESULT_INVALID_POINTER;
    std::uint32_t pvid = 0;
    if (swapiVlanIfPvidGet(client, ifNum, &pvid) == RESULT_SUCCESS && !place(arraysOf(pvid).untagged))
        return RESULT_INVALID_POINTER;
    return RESULT_SUCCESS;
}

template <class ArraysOf>
std::int32_t portsPlace(openapiClientHandle_t *client, ArraysOf arraysOf) {
    std::int32_t result = RESULT_SUCCESS;
    swapiIfForEach(client, OPEN_INTF_TYPE_PHY, [&](std::uint32_t ifNum) {
        result = interfacePlace(client, ifNum, ifNum, arraysOf);
        return result == RESULT_SUCCESS;
    });
    return result;
}

struct LagMembers {
    std::unique_ptr<char[]> buffer;
    std::uint32_t count = 0;

    std::uint32_t at(std::uint32_t i) const {
        std::uint32_t member = 0;
        std::memcpy(&member, buffer.get() + i * sizeof member, sizeof member);
        return member;
    }
};

std::int32_t lagMaxRead(openapiClientHandle_t *client, std::uint32_t *max) {
    const std::int32_t result = lagMaxMemberCountGet(client, max);
    if (result == OPEN_E_NONE)
        return RESULT_SUCCESS;
    LOG_ERROR("[%s:%d] Failed to get the member limit of the LAG interfaces, result= %d\r\n", result);
    return RESULT_FAILED;
}

// 0, 10000 or 10002.
std::int32_t lagMembersRead(openapiClientHandle_t *client, std::uint32_t lagIfNum, std::uint32_t max,
                            LagMembers *members) {
    const std::size_t size = max * kMemberSize + 1;
    members->buffer.reset(max <= kLagMembersMax ? new (std::nothrow) char[size]() : nullptr);
    if (members->buffer == nullptr) {
        LOG_ERROR("[%s:%d] Failed to allocate memory\r\n");
        return RESULT_INVALID_POINTER;
    }
    open_buffdesc list{static_cast<std::uint32_t>(size), members->buffer.get()};
    members->count = max;
    const open_error_t result = rpcclt_openapiLagMembersGet(client, lagIfNum, &members->count, &list);
    if (result != OPEN_E_NONE) {
        LOG_ERROR("[%s:%d] Failed to get the member ports for the LAG interface= %d, result= %d\r\n",
                  static_cast<int>(lagIfNum), result);
        return RESULT_FAILED;
    }
    members->count = std::min(members->count, max);
    return RESULT_SUCCESS;
}

// The LAGs that have members; one that cannot be asked has none.
template <class ArraysOf>
std::int32_t lagsPlace(openapiClientHandle_t *client, std::uint32_t firstLag, ArraysOf arraysOf) {
    std::uint32_t max = 0;
    if (lagMaxRead(client, &max) != RESULT_SUCCESS)
        return RESULT_SUCCESS;
    std::int32_t result = RESULT_SUCCESS;
    swapiIfForEach(client, OPEN_INTF_TYPE_LAG, [&](std::uint32_t ifNum) {
        LagMembers members;
        if (lagMembersRead(client, ifNum, max, &members) == RESULT_SUCCESS && members.count > 0)
            result = interfacePlace(client, ifNum, ifNum - firstLag + 1, arraysOf);
        return result == RESULT_SUCCESS;
    });
    return result;
}

std::int32_t firstLagFind(openapiClientHandle_t *client, std::uint32_t *ifNum) {
    const std::int32_t result = swapiIfFirstGet(client, OPEN_INTF_TYPE_LAG, ifNum);
    if (result == OPEN_E_NONE)
        return RESULT_SUCCESS;
    LOG_ERROR("[%s:%d] Failed to get the first LAG interface, result= %d\r\n", result);
    return RESULT_FAILED;
}

std::int32_t recordAdd(VLAN_PORT_LIST_T &list, std::uint32_t vlanId) {
    auto record = vlanRecordCreateWithArrays<VLAN_PORT_ASS_T>();
    if (record == nullptr) {
        LOG_ERROR("[%s:%d] Failed to allocate VLAN_PORT_ASS_T for VLAN %u\r\n", vlanId);
        return RESULT_INVALID_POINTER;
    }
    vlanListAppend(list, vlanId, std::move(record));
    return RESULT_SUCCESS;
}

// Puts every port and LAG into the records of its VLANs.
std::int32_t interfacesPlace(openapiClientHandle_t *client, std::uint32_t firstLag, VLAN_PORT_LIST_T &list) {
    const std::int32_t result = portsPlace(client, [&](std::uint32_t vlanId) {
        const auto *const record = vlanListAt(list, vlanId);
        return record != nullptr ? Arrays{record->tagPorts, record->untagPorts} : Arrays{};
    });
    if (result != RESULT_SUCCESS)
        return result;
    return lagsPlace(client, firstLag, [&](std::uint32_t vlanId) {
        const auto *const record = vlanListAt(list, vlanId);
        return record != nullptr ? Arrays{record->tagLags, record->untagLags} : Arrays{};
    });
}

}  // namespace

std::int32_t vlanListPortAssGet(openapiClientHandle_t *client, VLAN_PORT_LIST_T *list) {
    std::uint32_t firstLag = 0;
    std::int32_t result = firstLagFind(client, &firstLag);
    if (result != RESULT_SUCCESS)
        return result;
    vlanForEach(client, [&](std::uint32_t vlanId) {
        result = recordAdd(*list, vlanId);
        return result == RESULT_SUCCESS;
    });
    return result == RESULT_SUCCESS ? interfacesPlace(client, firstLag, *list) : result;
}

std::int32_t vlanListPortAssGetFromVlanList(openapiClientHandle_t *client, VLAN_PORT_LIST_T *list,
                                            const VLAN_INFOX_LIST_T *viList) {
    std::uint32_t firstLag = 0;
    std::int32_t result = firstLagFind(client, &firstLag);
    for (std::uint32_t i = 0; i < viList->count && result == RESULT_SUCCESS; ++i) {
        if (viList->ids[i] == nullptr) {
            LOG_ERROR("[%s:%d] viList->ids[%u] is NULL - data corruption\r\n", i);
            return RESULT_INVALID_POINTER;
        }
        result = recordAdd(*list, viList->ids[i]->vlanId);
    }
    return result == RESULT_SUCCESS ? interfacesPlace(client, firstLag, *list) : result;
}

std::int32_t vlanListPortAssCreate(openapiClientHandle_t *client, VLAN_PORT_LIST_T **list) {
    *list = vlanRecordCreate<VLAN_PORT_LIST_T>().release();
    if (*list != nullptr)
        return vlanListPortAssGet(client, *list);
    LOG_ERROR("[%s:%d] Failed to allocate VLAN_PORT_LIST_T\r\n");
    return RESULT_INVALID_POINTER;
}

std::int32_t vlanAssInfoGet(openapiClientHandle_t *client, std::uint32_t vlanId, cJSON *tagPorts,
                            cJSON *untagPorts, cJSON *tagLags, cJSON *untagLags) {
    const auto onlyFor = [vlanId](Arrays arrays) {
        return [=](std::uint32_t id) { return id == vlanId ? arrays : Arrays{}; };
    };
    std::uint32_t firstLag = 0;
    std::int32_t result = portsPlace(client, onlyFor({tagPorts, untagPorts}));
    if (result == RESULT_SUCCESS)
        result = firstLagFind(client, &firstLag);
    return result == RESULT_SUCCESS ? lagsPlace(client, firstLag, onlyFor({tagLags, untagLags})) : result;
}

std::int32_t lagMembersJsonArrayGet(openapiClientHandle_t *client, std::uint32_t lagIfNum, cJSON *array) {
    std::uint32_t max = 0;
    LagMembers members;
    std::int32_t result = lagMaxRead(client, &max);
    if (result == RESULT_SUCCESS)
        result = lagMembersRead(client, lagIfNum, max, &members);
    for (std::uint32_t i = 0; result == RESULT_SUCCESS && i < members.count; ++i)
        if (!jsonNumberAppend(array, members.at(i)))
            result = RESULT_INVALID_POINTER;
    return result;
}
