// The resident program of the web interface behind the web server: cached answers from memory, and events.
//
// One thread for the clock, two for requests, three that ask the switch. No request waits for the switch on a
// thread that serves others. Limits: kStreamsMax streams of events and kRequestsMax other connections at a time,
// kHeadMax bytes of a request's head; bodies are passed over. A client that takes nothing for kIdleMax is dropped.
#ifndef PAVO_WEB_RESIDENT_H
#define PAVO_WEB_RESIDENT_H

#include <chrono>
#include <cstddef>
#include <memory>

namespace pavo {

class Resident {
  public:
    static constexpr std::size_t kStreamsMax = 1000;
    static constexpr std::ptrdiff_t kStreamsOfUserMax = 700;
    static constexpr std::size_t kRequestsMax = 500;
    static constexpr std::size_t kHeadMax = std::size_t{16} * 1024;
    static constexpr std::chrono::seconds kIdleMax{30};
    static constexpr std::chrono::seconds kHeartbeat{15};
    // A session that has ended closes its streams after this and KnownUsers::kMost at the latest.
    static constexpr std::chrono::seconds kSessionCheck{2};

    // The cache has been made. The socket listens, and belongs to it from then on.
    explicit Resident(int socket);
    ~Resident();
    Resident(const Resident &) = delete;
    Resident &operator=(const Resident &) = delete;

    // False (logged) when it cannot serve.
    bool start();
    // The delta file has news.
    void takeNews();
    // Ends all connections and threads; false when a thread still waits for the switch after `most`: the program
    // can only exit then.
    bool stop(std::chrono::milliseconds most);

  private:
    class Server;
    std::unique_ptr<Server> server_;
};

}  // namespace pavo

#endif
