// pavo_detection: the daemon that configures the switch for the AV devices plugged into it.
#include "common/log.h"
#include "common/result.h"
#include "detection/supervisor.h"
#include "platform/open_client.h"
#include "store/profile_db.h"
#include "swapi/client_init.h"

int main() {
    // Static: detached threads may use it to the last moment of the process.
    static openapiClientHandle_t handle;

    devmgrLogOpen(LOG_SINK_FILE, LOG_FACILITY_USER, "pavo_detection");
    if (initHandler("detection", &handle) < 0) {
        LOG_ERROR("[%s:%d] initHandler error\r\n");
        return RESULT_FAILED;
    }
    vlanInfoDbEnsure();

    Supervisor supervisor(&handle);
    if (supervisor.start())
        supervisor.run();
    supervisor.stop();
    return 0;
}
