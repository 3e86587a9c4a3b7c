#include "swapi/client_init.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>

#include "common/log.h"
#include "common/result.h"
#include "platform/clock.h"
#include "platform/l7proc.h"
#include "swapi/features.h"
#include "swapi/models.h"

namespace {

constexpr int kConnectivityChecks = 7;
constexpr std::chrono::seconds kConnectivityPause{3};
constexpr std::size_t kClientNameSize = 100;
constexpr std::size_t kVersionSize = 100;

bool serverAwait(openapiClientHandle_t *client) {
    for (int check = 1;; ++check) {
        const open_error_t result = rpcclt_openapiConnectivityCheck(client);
        if (result == OPEN_E_NONE)
            return true;
        if (check == kConnectivityChecks)
            return false;
        LOG_WARN("[%s:%d] RPC call can fail until server starts. Keep trying (result = %d)\n", result);
        platform::sleepFor(kConnectivityPause);
    }
}

}  // namespace

std::int32_t initHandler(const char *name, openapiClientHandle_t *client) {
    l7proc_crashlog_register(name, client);

    char clientName[kClientNameSize];
    std::snprintf(clientName, sizeof clientName, "%s_%d", name != nullptr ? name : "common.c",
                  static_cast<int>(getpid()));
    const open_error_t result = openapiClientRegister(clientName, client);
    if (result != OPEN_E_NONE) {
        LOG_ERROR("[%s:%d] \nFailed to initialize RPC to OpEN. Exiting (result = %d)\n", result);
        return -1;
    }
    LOG_TRACE("[%s:%d] Register RPC to OpEN success. (client name = %s)\n", clientName);

    if (!serverAwait(client))
        return -1;

    char version[kVersionSize] = {};
    open_buffdesc versionText{sizeof version, version};
    if (rpcclt_openapiNetworkOSVersionGet(client, &versionText) == OPEN_E_NONE) {
        version[sizeof version - 1] = '\0';
        LOG_TRACE("[%s:%d] ICOS Version = %s\n", version);
    } else {
        LOG_ERROR("[%s:%d] Network OS Version retrieve error\n");
    }

    std::uint32_t release = 0;
    std::uint32_t major = 0;
    std::uint32_t maintenance = 0;
    std::uint32_t build = 0;
    if (rpcclt_openapiApiVersionGet(client, &release, &major, &maintenance, &build) == OPEN_E_NONE)
        LOG_TRACE("[%s:%d] Open API Version = %d.%d.%d.%d\n", release, major, maintenance, build);
    else
        LOG_ERROR("[%s:%d] Open API Version retrieve error\n");
    return 0;
}

std::int32_t get_device_model_mapping(openapiClientHandle_t *client, const char *modelId) {
    char machineModel[MACHINE_MODEL_SIZE];
    if (machineModelGet(client, machineModel) != RESULT_SUCCESS)
        return -1;
    for (const SwitchModel &row : kSwitchModels)
        if (modelId != nullptr && row.machineModel == machineModel && row.modelId == modelId)
            return 0;
    return 1;
}
