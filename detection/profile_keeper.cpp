#include "detection/profile_keeper.h"

#include <pthread.h>

#include "detection/oui_family.h"
#include "profile/session.h"
#include "vlan/multicast.h"

namespace pavo {
namespace {

std::atomic<std::int32_t> running{0};

void keepWhole(Switch sw, const Where &where) {
    static_cast<void>(restoreDenyList(sw, where));
    if (!isProfileDbUsable(where) || areVlanSettingsLost(where))
        static_cast<void>(recoverProfiles(sw, where));
    releaseNetBlocks(sw, where);
}

}  // namespace

constinit const DetectionRow profileKeeper = {
    .name = "profile keeper",
    .loop = {.texts = {}, .period = std::chrono::seconds(30), .cycle = keepWhole},
    .entry = keep_profiles_thread,
    .running = &running,
};

void *keep_profiles_thread(void *clientHandle) {
    runDetection(profileKeeper, clientHandle);
    pthread_exit(nullptr);
}

}  // namespace pavo
