// What the daemon's threads are created with.
#ifndef PAVO_DETECTION_THREAD_H
#define PAVO_DETECTION_THREAD_H

#include <pthread.h>

#include <cstddef>

namespace pavo {

// Creates threads as pthread_create does.
using ThreadCreate = int (*)(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *);

// Detached, with a stack of 2 MiB.
class ThreadAttributes {
  public:
    static constexpr std::size_t kStackSize = 0x200000;

    ThreadAttributes() {
        pthread_attr_init(&attributes_);
        pthread_attr_setstacksize(&attributes_, kStackSize);
        pthread_attr_setdetachstate(&attributes_, PTHREAD_CREATE_DETACHED);
    }
    ~ThreadAttributes() { pthread_attr_destroy(&attributes_); }
    ThreadAttributes(const ThreadAttributes &) = delete;
    ThreadAttributes &operator=(const ThreadAttributes &) = delete;

    const pthread_attr_t *get() const { return &attributes_; }

  private:
    pthread_attr_t attributes_;
};

}  // namespace pavo

#endif
