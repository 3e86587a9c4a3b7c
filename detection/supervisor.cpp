#include "detection/supervisor.h"

#include <chrono>
#include <cstdint>

#include "common/log.h"
#include "detection/audac.h"
#include "detection/lightware.h"
#include "platform/clock.h"
#include "platform/l7proc.h"
#include "store/profile_db.h"

namespace {

constexpr std::chrono::seconds kPassPeriod{30};
constexpr std::chrono::seconds kLightwareRestartPause{1};

}  // namespace

bool Supervisor::lightwareStart() {
    lightwareRunning = 1;
    if (create_(&lightwareId_, lightwareAttributes_->get(), detect_lightware_thread, client_) != 0) {
        lightwareRunning = 0;
        return false;
    }
    return true;
}

bool Supervisor::start() {
    audacAttributes_.emplace();
    lightwareAttributes_.emplace();
    if (audac_.start(create_, *audacAttributes_, detect_audac_thread, client_) != 0) {
        LOG_ERROR("[%s:%d] Fatal error unable to create detect audac thread!");
        return false;
    }
    if (!lightwareStart()) {
        LOG_ERROR("[%s:%d] Fatal error unable to create detect lightware thread!");
        return false;
    }
    return true;
}

bool Supervisor::pass() {
    if (!audac_.alive() && audacValidityCheck(client_) == 0 &&
        audac_.start(create_, *audacAttributes_, detect_audac_thread, client_) != 0) {
        LOG_ERROR("[%s:%d] Fatal error unable to recreate detect audac thread!");
        return false;
    }

    std::uint32_t vlanId = 0;
    if (lightwareRunning != 0 || lightwareVlanIdGet(client_, &vlanId) != 0)
        return true;
    lightwareAttributes_.reset();
    platform::sleepFor(kLightwareRestartPause);
    lightwareAttributes_.emplace();
    if (!lightwareStart()) {
        LOG_ERROR("[%s:%d] Fatal error unable to recreate detect lightware thread!");
        return false;
    }
    return true;
}

void Supervisor::run() {
    do {
        platform::sleepFor(kPassPeriod);
    } while (pass());
}

void Supervisor::stop() {
    audacAttributes_.reset();
    lightwareAttributes_.reset();
    l7proc_logf(LOG_LEVEL_INFO, __FILE__, __LINE__, "Stopping System API application");
    openapiClientTearDown(client_);
    devmgrLogClose();
}
