// The daemon after its registration: starts the threads of the registry, keeps them running and shuts down.
#ifndef PAVO_DETECTION_SUPERVISOR_H
#define PAVO_DETECTION_SUPERVISOR_H

#include <pthread.h>

#include <memory>
#include <span>
#include <vector>

#include "detection/registry.h"
#include "detection/thread.h"
#include "platform/open_client.h"

namespace pavo {

// Used by one thread. The client handle must outlive the detection threads, that is: live as long as the
// process.
class Supervisor {
  public:
    explicit Supervisor(openapiClientHandle_t *client, ThreadCreate create = pthread_create,
                        std::span<const DetectionRow *const> rows = detectionRows());

    // Creates the threads. False when a thread whose failure is fatal cannot be created: shut down
    // then, even though others may be running.
    bool start();

    // One supervision pass: creates again each that has ended, once it has a reason to run. False as
    // above.
    bool pass();

    // A pass every 30 seconds; returns only when one fails.
    void run();

    // The exit path, up to closing the log. The process is to end right after.
    void stop();

  private:
    struct Thread {
        const DetectionRow *row;
        std::unique_ptr<ThreadAttributes> attributes{};
        pthread_t id{};
    };

    // Creates the thread and logs `failure` when that fails. False when the daemon does not go on then.
    bool createThread(Thread *thread, const LogFormat<> &failure, const Where &where);

    openapiClientHandle_t *client_;
    ThreadCreate create_;
    std::vector<Thread> threads_;
};

}  // namespace pavo

#endif
