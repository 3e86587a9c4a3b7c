#include "detection/neighbour.h"

#include <new>
#include <utility>

#include "common/log.h"
#include "common/text.h"

namespace pavo {
namespace {

LogFormat<OpenError> readFailed(NeighbourField field) {
    switch (field) {
        case NeighbourField::ChassisId:
            return "[%s:%d] Call openapiLldpIntfRemoteDeviceChassisIdGet error. (result = %d)\r\n";
        case NeighbourField::PortId:
            return "[%s:%d] Call openapiLldpIntfRemoteDevicePortIdGet error. (result = %d)\r\n";
        case NeighbourField::SystemDesc:
            return "[%s:%d] Call openapiLldpIntfRemoteDeviceSystemDescGet error. (result = %d)\r\n";
        case NeighbourField::PortDesc:
            return "[%s:%d] Call openapiLldpIntfRemoteDevicePortDescGet error. (result = %d)\r\n";
        case NeighbourField::SystemName:
            return "[%s:%d] Call openapiLldpIntfRemoteDeviceSystemNameGet error. (result = %d)\r\n";
    }
    return {};
}

}  // namespace

PortNeighbours NeighbourReader::read(IfNum port, Where where) {
    PortNeighbours found;
    try {
        found.outcome = walk(port, found.neighbours, where);
    } catch (const std::bad_alloc &) {
        logError(where, "[%s:%d] Could not allocate memory.\r\n");
        found.outcome = failed(ResultCode::InvalidPointer);
    }
    return found;
}

Result<> NeighbourReader::walk(IfNum port, std::vector<Neighbour> &neighbours, const Where &where) {
    if (textSize_ == 0) {
        const auto size = switch_.lldpTextSize();
        if (!size) {
            logError(where, "[%s:%d] Bad return code. (result = %d)\r\n", size.error());
            return failed(ResultCode::Failed);
        }
        textSize_ = *size;
    }
    logDebug(where, family_.walkStart, port, std::uint32_t{0}, std::uint32_t{0});
    auto keys = switch_.neighbours(port);
    for (const NeighbourKey &key : keys)
        if (auto outcome = readOne(key, neighbours, where); !outcome)
            return outcome;
    const auto error = keys.brokenBy();
    if (!error)
        return {};
    logError(where, "[%s:%d] Call openapiLldpIntfRemoteDeviceNextGet error. (result = %d)\r\n", *error);
    return failed(ResultCode::Failed);
}

Result<> NeighbourReader::readOne(const NeighbourKey &key, std::vector<Neighbour> &neighbours,
                                  const Where &where) const {
    Neighbour neighbour;
    for (const NeighbourField field : family_.reads) {
        auto text = switch_.neighbourText(key, field, textSize_);
        if (!text) {
            logError(where, readFailed(field), text.error());
            if (neighbour[NeighbourField::SystemDesc])
                neighbours.push_back(std::move(neighbour));
            return failed(ResultCode::Failed);
        }
        if (field == NeighbourField::SystemDesc) {
            logDebug(where, family_.descriptionRead, printable(*text));
            if (!text->starts_with(family_.prefix))
                return {};
        }
        neighbour[field] = std::move(*text);
    }
    const auto shown = [&](NeighbourField field) { return printable(neighbour[field].value_or("")); };
    if (family_.kept.text() != nullptr)
        logDebug(where, family_.kept, shown(NeighbourField::SystemDesc), shown(NeighbourField::ChassisId),
                 shown(NeighbourField::PortId));
    neighbours.push_back(std::move(neighbour));
    return {};
}

}  // namespace pavo
