// The virtual switch inside the calling process: the same server object behind the same calls, without a
// socket and without threads of its own. For tests, benchmarks and fuzzers. One switch at a time; calls from
// several threads are served one after another.
#ifndef PAVO_VSWITCH_INPROCESS_H
#define PAVO_VSWITCH_INPROCESS_H

#include <mutex>

#include "vswitch/server/server.h"

namespace vswitch {

class InProcessSwitch {
  public:
    explicit InProcessSwitch(ModelConfig config = {});
    ~InProcessSwitch();
    InProcessSwitch(const InProcessSwitch &) = delete;
    InProcessSwitch &operator=(const InProcessSwitch &) = delete;

    // Runs `action` on the switch while no call is being served, after bringing its time up to date.
    template <class Action>
    auto with(Action action) {
        const std::lock_guard lock(mutex_);
        server_.tick();
        return action(server_);
    }

    // While it is down, every call finds no switch.
    void setDown(bool down);

    bool serve(const char *request, std::size_t size, std::string &reply);

  private:
    std::mutex mutex_;
    Server server_;
    bool down_ = false;
};

}  // namespace vswitch

#endif
