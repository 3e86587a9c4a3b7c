// pavo_detection: the daemon that configures the switch for the AV devices plugged into it.
#include <sys/stat.h>

#include <cstdio>
#include <string_view>

#include "common/files.h"
#include "common/log.h"
#include "common/result.h"
#include "detection/daemon_lock.h"
#include "detection/device_report.h"
#include "detection/nice.h"
#include "detection/supervisor.h"
#include "platform/open_client.h"
#include "platform/paths.h"
#include "platform/version.h"
#include "profile/record.h"
#include "profile/session.h"
#include "store/profile_db.h"
#include "swapi/client_init.h"

namespace {

using namespace pavo;

// What a second daemon ends with.
constexpr int kNotAlone = 1;

// False, on stderr as well as in the log, when this is not the only daemon.
bool isAlone(const DaemonLock &lock) {
    const char *const path = platform::paths::kDaemonLock;
    switch (lock.state()) {
        case DaemonLock::State::Held:
            return true;
        case DaemonLock::State::TakenByOther:
            logError("[%s:%d] already running: %s is locked by another daemon\n", path);
            std::fprintf(stderr, "pavo_detection: already running: %s is locked by another daemon\n", path);
            return false;
        case DaemonLock::State::NotOpened:
            break;
    }
    logError("[%s:%d] cannot open the lock file %s\n", path);
    std::fprintf(stderr, "pavo_detection: cannot open the lock file %s\n", path);
    return false;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc == 2 && std::string_view(argv[1]) == "--version") {
        std::printf("pavo_detection %s\n", pavoVersion());
        return 0;
    }
    // Static: detached threads may use it to the last moment of the process.
    static openapiClientHandle_t handle;

    devmgrLogOpen(LOG_SINK_FILE, LOG_FACILITY_USER, "pavo_detection");
    umask(022);  // its files are for everybody to read, and for nobody else to write
    const DaemonLock lock;
    if (!isAlone(lock))
        return kNotAlone;
    if (initHandler("detection", &handle) < 0) {
        logError("[%s:%d] initHandler error\r\n");
        return codeOf(ResultCode::Failed);
    }
    // A reboot leaves nothing in /tmp, an interruption leaves half a change: before anything is made of either.
    // What could not be recovered is the profile keeper's to try again: a database without its rows would say that
    // there are no profiles.
    if (!recoverProfiles(&handle))
        if (const auto record = readProfileRecord(); record && !record->pending && record->profiles.empty())
            ensureProfileDb();
    // An earlier daemon may have been interrupted before the cache had its profile.
    if (fileExists(platform::paths::kResponseCache))
        refreshProfileAnswers(&handle);
    niceDetectConfigLoad();
    beginDeviceReport();

    Supervisor supervisor(&handle);
    if (supervisor.start())
        supervisor.run();
    supervisor.stop();
    return 0;
}
