#include "swapi/client_init.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <string_view>

#include "common/log.h"
#include "platform/clock.h"
#include "platform/l7proc.h"

namespace {

constexpr int kConnectivityChecks = 7;
constexpr std::chrono::seconds kConnectivityPause{3};
constexpr std::size_t kClientNameSize = 100;
constexpr std::size_t kVersionSize = 100;
constexpr std::size_t kModelSize = 256;

struct ModelRow {
    std::string_view machineModel;  // as the switch OS reports it
    std::string_view modelId;
};

constexpr ModelRow kModels[] = {
    {"AVM4200-10X", "AV10X"},   {"AVM4200-10XP", "AV10XP"}, {"AVM4200-18X", "AV18X"},
    {"AVM4200-18XP", "AV18XP"}, {"AVM4200-28X", "AV28X"},   {"AVM4200-28XP", "AV28XP"},
    {"AVM4200-52X", "AV52X"},   {"AVM4200-52XP", "AV52XP"}, {"AVM4600-14F", "AV14F"},
    {"AVM4600-30F", "AV30F"},   {"AVM4600-30FT", "AV30FT"}, {"AVM4600-54F", "AV54F"},
    {"AVM4800-36Q", "AV36Q"},
};

bool serverAwait(openapiClientHandle_t *client) {
    for (int check = 1;; ++check) {
        const open_error_t result = rpcclt_openapiConnectivityCheck(client);
        if (result == OPEN_E_NONE) {
            return true;
        }
        if (check == kConnectivityChecks) {
            return false;
        }
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

    if (!serverAwait(client)) {
        return -1;
    }

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
    if (rpcclt_openapiApiVersionGet(client, &release, &major, &maintenance, &build) == OPEN_E_NONE) {
        LOG_TRACE("[%s:%d] Open API Version = %d.%d.%d.%d\n", release, major, maintenance, build);
    } else {
        LOG_ERROR("[%s:%d] Open API Version retrieve error\n");
    }
    return 0;
}

std::int32_t get_device_model_mapping(openapiClientHandle_t *client, const char *modelId) {
    char machineModel[kModelSize] = {};
    open_buffdesc modelText{sizeof machineModel, machineModel};
    const open_error_t result = rpcclt_openapiSystemRegMachineModelGet(client, &modelText);
    if (result != OPEN_E_NONE) {
        LOG_ERROR("[%s:%d] Machine model retrieve error (result = %d)\n", result);
        return -1;
    }
    machineModel[sizeof machineModel - 1] = '\0';
    if (modelId == nullptr) {
        return 1;
    }
    for (const ModelRow &row : kModels) {
        if (row.machineModel == machineModel && row.modelId == modelId) {
            return 0;
        }
    }
    return 1;
}
