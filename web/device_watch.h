// Notices that the daemon has written its report on devices (store/device_states.h). One thread.
#ifndef PAVO_WEB_DEVICE_WATCH_H
#define PAVO_WEB_DEVICE_WATCH_H

#include <sys/stat.h>

#include <optional>
#include <vector>

#include "store/device_states.h"
#include "web/event_ring.h"

namespace pavo {

class DeviceWatch {
  public:
    DeviceWatch();
    ~DeviceWatch();
    DeviceWatch(const DeviceWatch &) = delete;
    DeviceWatch &operator=(const DeviceWatch &) = delete;

    // To be polled for input; -1 when the kernel does not tell, and looking every now and then has to do.
    int descriptor() const { return fd_; }

    // What has happened since the last call. The first report that is seen is where it begins; while there is
    // none, what was known last stays: the daemon does not run, which says nothing of the devices.
    std::vector<Event> look();

  private:
    void watchFolder();

    int fd_;
    int watch_ = -1;
    struct stat seen_{};
    std::optional<std::vector<DeviceState>> known_;
};

}  // namespace pavo

#endif
