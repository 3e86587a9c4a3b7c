// The registry of the daemon's threads: one row for each device family, and for each worker that is none.
//
// A family is a file of its own with its row, and the row's place in the list of registry.cpp. Supervisor and
// threads go by the rows.
#ifndef PAVO_DETECTION_REGISTRY_H
#define PAVO_DETECTION_REGISTRY_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>
#include <source_location>
#include <span>
#include <string>

#include "detection/detection_config.h"
#include "detection/detection_loop.h"

namespace pavo {

// What happens when a thread cannot be created.
enum class StartFailure {
    Fatal,     // the daemon shuts down
    TryAgain,  // the daemon carries on and retries at its next pass
};

struct DetectionRow {
    const char *name;
    // The profile that the family works for, and how the file that applying that profile leaves for the
    // family is read. Null: none.
    const char *profileType = nullptr;
    ParseDetectionConfig *parseConfig = nullptr;

    DetectionLoop loop;

    // The thread's entry: started with the client handle, ends by pthread_exit.
    void *(*entry)(void *clientHandle);
    // 1 from before the thread is created until its last act, and 0 otherwise.
    std::atomic<std::int32_t> *running;

    StartFailure onStartFailure = StartFailure::TryAgain;
    LogFormat<> notCreated{};
    LogFormat<> notRecreated{};
    // Before the thread is created again: its attributes are made afresh around this pause. Zero: no pause,
    // and the same attributes.
    std::chrono::seconds restartPause{0};
};

// Where that file is (a fixed path), and what is in it: nothing when it is missing, too large or does not
// parse.
std::string detectionConfigPath(const DetectionRow &row);
std::optional<DetectionConfig> readDetectionConfig(const DetectionRow &row,
                                                   Where where = std::source_location::current());

// All rows, in the order in which they are started and looked after.
std::span<const DetectionRow *const> detectionRows();

// The body of a row's thread, up to pthread_exit: runs its loop and then clears its mark, also when the
// thread is made to end. Log lines name `where`.
void runDetection(const DetectionRow &row, void *clientHandle, Where where = std::source_location::current());

}  // namespace pavo

#endif
