// Threads that ask the switch, so that nobody who serves requests waits for it. Each has a client of its own,
// registered anew when the switch has been away.
#ifndef PAVO_WEB_SWITCH_WORKERS_H
#define PAVO_WEB_SWITCH_WORKERS_H

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "swapi/switch_client.h"

namespace pavo {

class SwitchWorkers {
  public:
    // The client may have no connection. A job that throws is logged.
    using Job = std::function<void(SwitchClient &client)>;

    SwitchWorkers(std::string clientName, std::size_t threads);
    // Waits for the jobs that have begun.
    ~SwitchWorkers();
    SwitchWorkers(const SwitchWorkers &) = delete;
    SwitchWorkers &operator=(const SwitchWorkers &) = delete;

    enum class Turn { Next, Last };
    // Jobs begin in this order, but for those that others wait for (Next). Whoever adds one sees to it that it is not
    // queued twice.
    void add(Job job, Turn turn = Turn::Last);

    // Forgets the jobs that have not begun, and waits for the others, but not longer: false when one still runs.
    bool stop(std::chrono::milliseconds most);

  private:
    void run(const std::string &clientName);

    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Job> jobs_;
    bool isStopping_ = false;
    std::size_t running_;
    std::vector<std::thread> threads_;
};

}  // namespace pavo

#endif
