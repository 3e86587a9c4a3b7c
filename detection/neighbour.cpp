#include "detection/neighbour.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <new>

#include "common/owners.h"
#include "common/result.h"

namespace {

constexpr std::uint32_t kTextSizeMax = 64u << 10;

LogText<std::int32_t> readFailed(NeighbourField field) {
    switch (field) {
        case NeighbourField::chassisId:
            return "[%s:%d] Call openapiLldpIntfRemoteDeviceChassisIdGet error. (result = %d)\r\n";
        case NeighbourField::portId:
            return "[%s:%d] Call openapiLldpIntfRemoteDevicePortIdGet error. (result = %d)\r\n";
        case NeighbourField::systemDesc:
            return "[%s:%d] Call openapiLldpIntfRemoteDeviceSystemDescGet error. (result = %d)\r\n";
        case NeighbourField::portDesc:
            return "[%s:%d] Call openapiLldpIntfRemoteDevicePortDescGet error. (result = %d)\r\n";
    }
    return {};
}

// One neighbour, by the key of the walk.
struct Neighbour {
    std::uint32_t ifNum;
    std::uint32_t remIndex;
    std::uint32_t timeStamp;
};

open_error_t fieldRead(openapiClientHandle_t *client, const Neighbour &at, NeighbourField field,
                       open_buffdesc *text) {
    std::uint32_t subtype = 0;
    switch (field) {
        case NeighbourField::chassisId:
            return rpcclt_openapiLldpIntfRemoteDeviceChassisIdGet(client, at.ifNum, at.remIndex, at.timeStamp,
                                                                  &subtype, text);
        case NeighbourField::portId:
            return rpcclt_openapiLldpIntfRemoteDevicePortIdGet(client, at.ifNum, at.remIndex, at.timeStamp,
                                                               &subtype, text);
        case NeighbourField::systemDesc:
            return rpcclt_openapiLldpIntfRemoteDeviceSystemDescGet(client, at.ifNum, at.remIndex,
                                                                   at.timeStamp, text);
        case NeighbourField::portDesc:
            return rpcclt_openapiLldpIntfRemoteDevicePortDescGet(client, at.ifNum, at.remIndex, at.timeStamp,
                                                                 text);
    }
    return OPEN_E_PARAM;
}

// Room for the texts of one neighbour, one slot of `size` bytes per read.
struct TextSlots {
    std::unique_ptr<char[]> room;
    std::uint32_t size;

    char *at(std::size_t slot) const { return room.get() + slot * size; }
};

std::int32_t neighbourRead(openapiClientHandle_t *client, const Neighbour &neighbour,
                           const NeighbourFamily &family, const TextSlots &slots, cJSON *array) {
    cJSON *object = nullptr;  // once appended, the array's
    for (std::size_t i = 0; i < family.reads.size(); ++i) {
        const NeighbourRead &read = family.reads[i];
        char *text = slots.at(i);
        std::memset(text, 0, slots.size);
        open_buffdesc desc{slots.size, text};
        const open_error_t result = fieldRead(client, neighbour, read.field, &desc);
        if (result != OPEN_E_NONE) {
            readFailed(read.field).write(LOG_LEVEL_ERROR, __func__, __LINE__, result);
            return RESULT_FAILED;
        }
        text[slots.size - 1] = '\0';

        if (object != nullptr) {
            cJSON_AddStringToObject(object, read.key, text);
        } else if (read.field == NeighbourField::systemDesc) {
            family.descriptionRead.write(LOG_LEVEL_DEBUG, __func__, __LINE__, printable(text).c_str());
            if (family.prefix != nullptr &&
                std::strncmp(text, family.prefix, std::strlen(family.prefix)) != 0) {
                return RESULT_SUCCESS;
            }
            JsonPtr fresh(cJSON_CreateObject());
            if (fresh == nullptr) {
                LOG_ERROR("[%s:%d] Could not allocate memory.\r\n");
                return RESULT_INVALID_POINTER;
            }
            object = fresh.get();
            cJSON_AddItemToArray(array, fresh.release());
            cJSON_AddStringToObject(object, read.key, text);
            for (std::size_t earlier = 0; earlier < i; ++earlier)
                cJSON_AddStringToObject(object, family.reads[earlier].key, slots.at(earlier));
        }
    }
    return RESULT_SUCCESS;
}

}  // namespace

std::int32_t neighbourInfoGet(openapiClientHandle_t *client, const NeighbourQuery &query,
                              const NeighbourFamily &family) {
    std::uint32_t size = query.textSize != nullptr ? *query.textSize : 0;
    if (size == 0) {
        open_error_t result = rpcclt_openapiLldpMgmtStrLenGet(client, &size);
        if (result == OPEN_E_NONE && (size == 0 || size > kTextSizeMax))
            result = OPEN_E_FAIL;
        if (result != OPEN_E_NONE) {
            LOG_ERROR("[%s:%d] Bad return code. (result = %d)\r\n", result);
            return RESULT_FAILED;
        }
        if (query.textSize != nullptr)
            *query.textSize = size;
    }
    const TextSlots slots{std::unique_ptr<char[]>(new (std::nothrow) char[family.reads.size() * size]), size};
    if (slots.room == nullptr) {
        LOG_ERROR("[%s:%d] Could not allocate memory.\r\n");
        return RESULT_INVALID_POINTER;
    }

    Neighbour at{query.ifNum, 0, 0};
    family.walkStart.write(LOG_LEVEL_DEBUG, __func__, __LINE__, at.ifNum, at.remIndex, at.timeStamp);
    for (Neighbour last = at; rpcclt_openapiLldpIntfRemoteDeviceNextGet(client, at.ifNum, &at.remIndex,
                                                                        &at.timeStamp) == OPEN_E_NONE;
         last = at) {
        if (at.remIndex == last.remIndex && at.timeStamp == last.timeStamp)
            break;  // the switch does not advance
        const std::int32_t outcome = neighbourRead(client, at, family, slots, query.array);
        if (outcome != RESULT_SUCCESS)
            return outcome;
    }
    return RESULT_SUCCESS;
}

std::string printable(const char *text) {
    std::string out(text);
    std::replace_if(out.begin(), out.end(), [](char c) { return (c >= 0 && c < 0x20) || c == 0x7f; }, '.');
    return out;
}
