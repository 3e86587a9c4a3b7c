#include "swapi/features.h"

#include "common/log.h"
#include "common/result.h"

namespace pavo {

std::int32_t featureSupportedGet(Switch, const char *, std::int32_t *supported) {
    *supported = 0;
    return codeOf(ResultCode::NotImplemented);
}

std::optional<std::string> readMachineModel(Switch sw, Where where) {
    const auto model = sw.machineModel();
    if (model)
        return *model;
    logError(where, "[%s:%d] Machine model retrieve error (result = %d)\n", model.error());
    return std::nullopt;
}

std::int32_t stackUnitCountGet(Switch, std::uint32_t *units) {
    *units = 1;  // no model of the range stacks
    return 0;
}

}  // namespace pavo
