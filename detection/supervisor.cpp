#include "detection/supervisor.h"

#include <chrono>
#include <source_location>

#include "common/log.h"
#include "platform/clock.h"
#include "platform/l7proc.h"
#include "swapi/client_init.h"

namespace pavo {
namespace {

constexpr std::chrono::seconds kPassPeriod{30};

}  // namespace

Supervisor::Supervisor(openapiClientHandle_t *client, ThreadCreate create,
                       std::span<const DetectionRow *const> rows)
    : client_(client), create_(create) {
    for (const DetectionRow *row : rows)
        threads_.push_back({.row = row});
}

bool Supervisor::createThread(Thread *thread, const LogFormat<> &failure, const Where &where) {
    // Marked before the thread exists: it may end before `create_` returns.
    thread->row->running->store(1);
    if (create_(&thread->id, thread->attributes->get(), thread->row->entry, client_) == 0)
        return true;
    thread->row->running->store(0);
    if (failure.text() != nullptr)
        logError(where, failure);
    else
        logError(where, "[%s:%d] unable to create the %s thread\n", thread->row->name);
    return thread->row->onStartFailure == StartFailure::TryAgain;
}

bool Supervisor::start() {
    for (Thread &thread : threads_)
        thread.attributes = std::make_unique<ThreadAttributes>();
    for (Thread &thread : threads_)
        if (!createThread(&thread, thread.row->notCreated, std::source_location::current()))
            return false;
    return true;
}

bool Supervisor::pass() {
    for (Thread &thread : threads_) {
        const DetectionRow &row = *thread.row;
        if (*row.running != 0 || checkReason(row.loop, client_) != Presence::Present)
            continue;
        if (row.restartPause != std::chrono::seconds{0}) {
            thread.attributes.reset();
            platform::sleepFor(row.restartPause);
            thread.attributes = std::make_unique<ThreadAttributes>();
        }
        if (!createThread(&thread, row.notRecreated, std::source_location::current()))
            return false;
    }
    return true;
}

void Supervisor::run() {
    do
        platform::sleepFor(kPassPeriod);
    while (pass());
}

void Supervisor::stop() {
    for (Thread &thread : threads_)
        thread.attributes.reset();
    l7proc_logf(LOG_LEVEL_INFO, __FILE__, __LINE__, "Stopping System API application");
    closeHandler(client_);
    devmgrLogClose();
}

}  // namespace pavo
