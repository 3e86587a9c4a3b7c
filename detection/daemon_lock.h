// One daemon at a time: two would join, move and take out the same devices.
#ifndef PAVO_DETECTION_DAEMON_LOCK_H
#define PAVO_DETECTION_DAEMON_LOCK_H

namespace pavo {

// Held for as long as the process lives. The kernel releases the lock with the process, however that ends, so
// a daemon that was killed does not keep the next one out.
class DaemonLock {
  public:
    DaemonLock();
    ~DaemonLock();
    DaemonLock(const DaemonLock &) = delete;
    DaemonLock &operator=(const DaemonLock &) = delete;

    enum class State {
        Held,
        TakenByOther,  // another daemon runs
        NotOpened,     // there is no such folder, a link stands in its place, or it cannot be locked
    };
    State state() const { return state_; }

    // Whether there is a daemon, as far as this process may ask. It does not get in the way of one that starts.
    static bool isHeldByAnyone();

  private:
    int fd_;
    State state_;
};

}  // namespace pavo

#endif
