#include "swapi/features.h"

#include <algorithm>
#include <iterator>

#include "common/log.h"
#include "common/result.h"
#include "swapi/models.h"

std::int32_t featureSupportedGet(openapiClientHandle_t *, const char *, std::int32_t *supported) {
    *supported = 0;
    return RESULT_NOT_IMPLEMENTED;
}

std::int32_t machineModelGet(openapiClientHandle_t *client, char model[MACHINE_MODEL_SIZE]) {
    std::fill_n(model, MACHINE_MODEL_SIZE, '\0');
    open_buffdesc text{MACHINE_MODEL_SIZE, model};
    const open_error_t result = rpcclt_openapiSystemRegMachineModelGet(client, &text);
    if (result != OPEN_E_NONE) {
        LOG_ERROR("[%s:%d] Machine model retrieve error (result = %d)\n", result);
        model[0] = '\0';
        return RESULT_FAILED;
    }
    model[MACHINE_MODEL_SIZE - 1] = '\0';
    return RESULT_SUCCESS;
}

bool smpteModelSupported(std::string_view model) {
    return std::any_of(std::begin(kSwitchModels), std::end(kSwitchModels),
                       [&](const SwitchModel &known) { return known.smpte && known.machineModel == model; });
}

bool smpteModelSupported(openapiClientHandle_t *client) {
    char model[MACHINE_MODEL_SIZE];
    return machineModelGet(client, model) == RESULT_SUCCESS && smpteModelSupported(std::string_view(model));
}

bool polyModelSupported(std::string_view model) {
    // Its variants add to the name.
    return std::any_of(std::begin(kSwitchModels), std::end(kSwitchModels), [&](const SwitchModel &known) {
        return known.poly && model.find(known.machineModel) != std::string_view::npos;
    });
}

std::int32_t stackUnitCountGet(openapiClientHandle_t *, std::uint32_t *units) {
    *units = 1;  // no model of the range stacks
    return RESULT_SUCCESS;
}
