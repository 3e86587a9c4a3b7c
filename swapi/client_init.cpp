#include "swapi/client_init.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <string>

#include "common/log.h"
#include "platform/clock.h"
#include "platform/l7proc.h"
#include "swapi/features.h"
#include "swapi/models.h"

namespace pavo {
namespace {

constexpr int kConnectivityChecks = 7;
constexpr std::chrono::seconds kConnectivityPause{3};
constexpr std::size_t kClientNameMax = 99;

bool awaitServer(Switch sw, Where where = std::source_location::current()) {
    for (int check = 1;; ++check) {
        const auto answer = sw.checkConnectivity();
        if (answer)
            return true;
        if (check == kConnectivityChecks)
            return false;
        logWarn(where, "[%s:%d] RPC call can fail until server starts. Keep trying (result = %d)\n",
                answer.error());
        platform::sleepFor(kConnectivityPause);
    }
}

}  // namespace

std::int32_t initHandler(const char *name, openapiClientHandle_t *client) {
    l7proc_crashlog_register(name, client);

    const std::string clientName =
        formatText("%s_%d", name != nullptr ? name : "common.c", static_cast<int>(getpid()))
            .substr(0, kClientNameMax);
    if (const open_error_t result = openapiClientRegister(clientName.c_str(), client);
        result != OPEN_E_NONE) {
        logError("[%s:%d] \nFailed to initialize RPC to OpEN. Exiting (result = %d)\n", result);
        return -1;
    }
    logDebug("[%s:%d] Register RPC to OpEN success. (client name = %s)\n", clientName);

    const Switch sw(client);
    if (!awaitServer(sw))
        return -1;

    if (const auto version = sw.osVersion())
        logDebug("[%s:%d] ICOS Version = %s\n", *version);
    else
        logError("[%s:%d] Network OS Version retrieve error\n");

    if (const auto api = sw.apiVersion())
        logDebug("[%s:%d] Open API Version = %d.%d.%d.%d\n", api->release, api->version, api->maintenance,
                 api->build);
    else
        logError("[%s:%d] Open API Version retrieve error\n");
    return 0;
}

void closeHandler(openapiClientHandle_t *client) {
    openapiClientTearDown(client);
}

std::int32_t get_device_model_mapping(Switch sw, const char *modelId) {
    const auto model = readMachineModel(sw);
    if (!model)
        return -1;
    const bool listed =
        modelId != nullptr &&
        std::any_of(std::begin(kSwitchModels), std::end(kSwitchModels), [&](const SwitchModel &row) {
            return row.machineModel == model && row.modelId == modelId;
        });
    return listed ? 0 : 1;
}

}  // namespace pavo
