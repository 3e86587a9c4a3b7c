// Threads of the daemon: their attributes and their lifetime as seen by the supervisor.
#ifndef PAVO_DETECTION_WORKER_H
#define PAVO_DETECTION_WORKER_H

#include <pthread.h>

#include <atomic>
#include <cstddef>
#include <memory>

// Creates threads as pthread_create does.
using ThreadCreate = int (*)(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *);

// Detached, with a stack of 2 MiB.
class ThreadAttributes {
  public:
    static constexpr std::size_t kStackSize = 0x200000;

    ThreadAttributes();
    ~ThreadAttributes();
    ThreadAttributes(const ThreadAttributes &) = delete;
    ThreadAttributes &operator=(const ThreadAttributes &) = delete;

    const pthread_attr_t *get() const { return &attributes_; }

  private:
    pthread_attr_t attributes_;
};

// One detached thread that may end by itself and be created again. The platform cannot be asked about a
// detached thread that has ended, so the thread keeps its own mark. Used by one thread; may be destroyed
// before its thread ends.
class Worker {
  public:
    using Entry = void *(*)(void *);

    // Runs entry(argument). The result of `create`, 0 for success; then alive() until the thread returns or
    // exits.
    int start(ThreadCreate create, const ThreadAttributes &attributes, Entry entry, void *argument);

    bool alive() const { return alive_ != nullptr && alive_->load(); }

  private:
    pthread_t id_{};
    std::shared_ptr<std::atomic<bool>> alive_;  // shared with the thread of the last start
};

#endif
