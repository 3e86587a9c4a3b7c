// Who waits for something, and until when. No lock of its own.
#ifndef PAVO_WEB_WAITERS_H
#define PAVO_WEB_WAITERS_H

#include <functional>
#include <iterator>
#include <utility>
#include <vector>

#include "platform/clock.h"

namespace pavo {

// Called once, by any thread and without a lock; it must not call back what it has waited for.
using Wake = std::function<void()>;

// A duration of real time, for what other processes take; the program's clock may run faster.
inline platform::Duration ofRealTime(platform::Duration time) {
    return platform::Duration(
        static_cast<platform::Duration::rep>(static_cast<double>(time.count()) * platform::clockRate()));
}

class Waiters {
  public:
    void add(Wake wake, platform::Duration until) { waiting_.push_back({until, std::move(wake)}); }
    bool empty() const { return waiting_.empty(); }

    // Moves all, or those who have waited long enough, to `out`.
    void takeAll(std::vector<Wake> &out) {
        for (auto &one : waiting_)
            out.push_back(std::move(one.wake));
        waiting_.clear();
    }
    void takeOverdue(platform::Duration now, std::vector<Wake> &out) {
        std::vector<One> rest;
        for (auto &one : waiting_)
            if (one.until <= now)
                out.push_back(std::move(one.wake));
            else
                rest.push_back(std::move(one));
        waiting_ = std::move(rest);
    }

  private:
    struct One {
        platform::Duration until;
        Wake wake;
    };
    std::vector<One> waiting_;
};

}  // namespace pavo

#endif
