// pavo_detection: the daemon that configures the switch for the AV devices plugged into it.
#include <cstdio>
#include <string_view>

#include "common/log.h"
#include "common/result.h"
#include "detection/supervisor.h"
#include "platform/open_client.h"
#include "platform/version.h"
#include "store/profile_db.h"
#include "swapi/client_init.h"

int main(int argc, char **argv) {
    using namespace pavo;
    if (argc == 2 && std::string_view(argv[1]) == "--version") {
        std::printf("pavo_detection %s\n", pavoVersion());
        return 0;
    }
    // Static: detached threads may use it to the last moment of the process.
    static openapiClientHandle_t handle;

    devmgrLogOpen(LOG_SINK_FILE, LOG_FACILITY_USER, "pavo_detection");
    if (initHandler("detection", &handle) < 0) {
        logError("[%s:%d] initHandler error\r\n");
        return codeOf(ResultCode::Failed);
    }
    ensureProfileDb();

    Supervisor supervisor(&handle);
    if (supervisor.start())
        supervisor.run();
    supervisor.stop();
    return 0;
}
