#include "detection/scan_ops.h"

#include <span>
#include <utility>

#include "common/json.h"
#include "common/log.h"
#include "common/text.h"
#include "detection/audac.h"
#include "detection/lightware.h"
#include "detection/oui_family.h"
#include "detection/recognition.h"
#include "detection/shure.h"

namespace pavo {
namespace {

constexpr FieldKey kChassisAndPort[] = {{NeighbourField::SystemDesc, "systemDesc"},
                                        {NeighbourField::ChassisId, "chassisID"},
                                        {NeighbourField::PortId, "portId"}};

// Strings come from the network: cJSON escapes control characters, but passes on bytes that are no UTF-8.
bool addString(cJSON *object, const char *key, const std::string &text) {
    return cJSON_AddStringToObject(object, key, wellFormed(text).c_str()) != nullptr;
}

bool addNumber(cJSON *object, const char *key, std::uint32_t number) {
    return cJSON_AddNumberToObject(object, key, number) != nullptr;
}

// Appends the object that fill(object) makes. Failure, logged on behalf of `where`, when memory runs out.
template <class Fill>
Result<> appendObject(cJSON *array, const Where &where, Fill fill) {
    JsonPtr object(cJSON_CreateObject());
    if (object != nullptr && fill(object.get()) && cJSON_AddItemToArray(array, object.get())) {
        static_cast<void>(object.release());
        return {};
    }
    logError(where, "[%s:%d] Could not allocate memory.\r\n");
    return failed(ResultCode::InvalidPointer);
}

constexpr FieldKey kRecognitionKeys[] = {{NeighbourField::SystemDesc, "systemDesc"},
                                         {NeighbourField::ChassisId, "chassisID"},
                                         {NeighbourField::PortId, "portId"},
                                         {NeighbourField::SystemName, "systemName"}};

Result<> appendList(cJSON *array, std::span<const Neighbour> neighbours, std::span<const FieldKey> keys,
                    const Where &where) {
    for (const Neighbour &neighbour : neighbours) {
        auto appended = appendObject(array, where, [&](cJSON *object) {
            for (const auto &[field, key] : keys)
                if (neighbour[field] && !addString(object, key, *neighbour[field]))
                    return false;
            return true;
        });
        if (!appended)
            return appended;
    }
    return {};
}

}  // namespace

Result<> appendNeighbours(Switch sw, const NeighbourQuery &query, const NeighbourFamily &family,
                          std::span<const FieldKey> keys, const Where &where) {
    const PortNeighbours found = NeighbourReader(sw, family).read(query.ifNum, where);
    auto appended = appendList(query.array, found.neighbours, keys, where);
    return appended ? found.outcome : appended;
}

void appendSightings(cJSON *array, std::span<const Sighting> sightings, const Where &where) {
    for (const Sighting &seen : sightings) {
        const auto appended = appendObject(array, where, [&](cJSON *object) {
            return addNumber(object, "portId", seen.port.number()) &&
                   addString(object, "mac", seen.mac.text()) && addNumber(object, "type", seen.type);
        });
        if (!appended)
            return;
    }
}

void audacListGet(Switch sw, cJSON *out) {
    const Where where = std::source_location::current();
    appendSightings(out, scanAudacDevices(sw, where).value_or(DeviceScan()).seen, where);
}

void harmanListGet(Switch sw, cJSON *out) {
    const Where where = std::source_location::current();
    appendSightings(out, scanHarmanDevices(sw, where).value_or(DeviceScan()).seen, where);
}

void telosListGet(Switch sw, cJSON *out) {
    const Where where = std::source_location::current();
    appendSightings(out, scanTelosDevices(sw, where).value_or(DeviceScan()).seen, where);
}

void lightwareListGet(Switch sw, cJSON *out) {
    const Where where = std::source_location::current();
    for (const LightwareSighting &seen : scanLightwareLinks(sw, where).seen) {
        const auto appended = appendObject(out, where, [&](cJSON *object) {
            return addNumber(object, "portId", seen.port.number()) &&
                   addString(object, "systemDesc", seen.systemDesc) &&
                   addString(object, "chassisId", seen.chassisId) &&
                   addString(object, "portDesc", seen.portDesc);
        });
        if (!appended)
            return;
    }
}

void shureListGet(Switch sw, cJSON *out) {
    const Where where = std::source_location::current();
    const ShureScan scan = scanShureDevices(sw, where).value_or(ShureScan());
    for (std::size_t i = 0; i < scan.devices.seen.size(); ++i) {
        const Sighting &seen = scan.devices.seen[i];
        const auto appended = appendObject(out, where, [&](cJSON *object) {
            return addNumber(object, "portId", seen.port.number()) &&
                   addNumber(object, "controlMode", seen.controlMode) &&
                   addString(object, "systemDesc", scan.descriptions[i]) &&
                   addString(object, "mac", seen.mac.text()) && addNumber(object, "type", seen.type);
        });
        if (!appended)
            return;
    }
}

std::int32_t lldpIntfRemoteAudacInfoGet(Switch sw, const NeighbourQuery &query) {
    return codeOf(
        appendNeighbours(sw, query, audacNeighbours, kChassisAndPort, std::source_location::current()));
}

std::int32_t lldpIntfRemoteShureInfoGet(Switch sw, const NeighbourQuery &query) {
    return codeOf(
        appendNeighbours(sw, query, shureNeighbours, kChassisAndPort, std::source_location::current()));
}

std::int32_t lldpIntfRemoteLightwareInfoGet(Switch sw, const NeighbourQuery &query) {
    constexpr FieldKey kKeys[] = {{NeighbourField::SystemDesc, "systemDesc"},
                                  {NeighbourField::ChassisId, "chassisId"},
                                  {NeighbourField::PortDesc, "portDesc"}};
    return codeOf(appendNeighbours(sw, query, lightwareNeighbours, kKeys, std::source_location::current()));
}

std::int32_t lldpIntfRemoteDeviceInfoGet(Switch sw, const NeighbourQuery &query) {
    return codeOf(appendNeighbours(sw, query, recognitionNeighbours, kRecognitionKeys,
                                   std::source_location::current()));
}

void recognisedVendorsGet(cJSON *out) {
    const Where where = std::source_location::current();
    for (const auto &device : recognisedDevices()) {
        const auto appended = appendObject(out, where, [&](cJSON *object) {
            return addString(object, "MAC Address", device.mac.text()) &&
                   addNumber(object, "IfIndex", device.port.number()) &&
                   addString(object, "vendor", device.vendor);
        });
        if (!appended)
            return;
    }
}

void recognisedNeighboursGet(cJSON *out) {
    const Where where = std::source_location::current();
    for (const auto &[port, neighbours] : recognisedNeighbours()) {
        cJSON *const array = cJSON_CreateArray();
        if (!cJSON_AddItemToArray(out, array) || !appendList(array, neighbours, kRecognitionKeys, where))
            return;
    }
}

}  // namespace pavo
