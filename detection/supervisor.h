// The daemon after its registration: starts the detection threads, keeps them running and shuts down.
#ifndef PAVO_DETECTION_SUPERVISOR_H
#define PAVO_DETECTION_SUPERVISOR_H

#include <pthread.h>

#include <optional>

#include "detection/worker.h"
#include "platform/open_client.h"

// Used by one thread. The client handle must outlive the detection threads, that is: live as long as the
// process.
class Supervisor {
  public:
    explicit Supervisor(openapiClientHandle_t *client, ThreadCreate create = pthread_create)
        : client_(client), create_(create) {}

    // Creates the Audac and the Lightware thread. False when one cannot be created: shut down then, even
    // though the other may be running.
    bool start();

    // One look after the threads: creates again one that has ended, once its profile is there. False when a
    // creation fails: shut down then.
    bool pass();

    // A pass every 30 seconds; returns only when one fails.
    void run();

    // The exit path, up to closing the log. The process is to end right after.
    void stop();

  private:
    bool lightwareStart();

    openapiClientHandle_t *client_;
    ThreadCreate create_;
    std::optional<ThreadAttributes> audacAttributes_;
    std::optional<ThreadAttributes> lightwareAttributes_;
    Worker audac_;
    pthread_t lightwareId_{};
};

#endif
