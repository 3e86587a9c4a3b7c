#include "swapi/features.h"

#include <algorithm>
#include <iterator>

#include "common/log.h"
#include "common/result.h"

namespace {

// The 100G family: boundary clock in hardware, and room for uncompressed video.
constexpr std::string_view kSmpteModels[] = {
    "AVM4800-24F", "AVM4800-36Q", "AVM4800-48F", "AVM4800-52Q",
    "AVM4848-12X", "AVM4848-24F", "AVM4848-24X", "AVM4848-48F",
};

// The room switch; its variants add to the name.
constexpr std::string_view kPolyModel = "AVM4200-10XP";

}  // namespace

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
    return std::find(std::begin(kSmpteModels), std::end(kSmpteModels), model) != std::end(kSmpteModels);
}

bool smpteModelSupported(openapiClientHandle_t *client) {
    char model[MACHINE_MODEL_SIZE];
    return machineModelGet(client, model) == RESULT_SUCCESS && smpteModelSupported(std::string_view(model));
}

bool polyModelSupported(std::string_view model) {
    return model.find(kPolyModel) != std::string_view::npos;
}

std::int32_t stackUnitCountGet(openapiClientHandle_t *, std::uint32_t *units) {
    *units = 1;  // no model of the range stacks
    return RESULT_SUCCESS;
}
