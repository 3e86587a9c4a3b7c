// State of Linux interfaces, reported by the kernel as it changes (rtnetlink). Works whether or not anything
// forwards for them. One thread.
#ifndef PAVO_VSWITCH_DATAPLANE_LINK_WATCH_H
#define PAVO_VSWITCH_DATAPLANE_LINK_WATCH_H

#include <map>
#include <set>
#include <string>

#include "vswitch/dataplane/process.h"

namespace vswitch {

struct LinkState {
    int index = 0;  // of the Linux interface; changes when it is deleted and created again
    bool up = false, carrier = false;
    std::uint64_t losses = 0;  // of carrier, so far
    std::uint32_t mtu = 0;
    bool filtered = false;  // a program handles its frames as they come in (XDP)

    // Whether it is the same link all the time; its settings do not count.
    bool operator==(const LinkState &other) const {
        return index == other.index && up == other.up && carrier == other.carrier && losses == other.losses;
    }
};

class LinkWatch {
  public:
    // Watches the interfaces with these names in the network namespace of the calling thread. Throws
    // std::system_error when the kernel does not offer that.
    explicit LinkWatch(std::set<std::string> names);

    // Readable when something may have changed.
    int descriptor() const { return socket_.get(); }
    // Reads all pending messages.
    void update();
    // Interfaces that exist.
    const std::map<std::string, LinkState> &links() const { return links_; }
    // These ask the kernel; that it was done shows in links().
    void setUp(const std::string &name, bool up);
    void setMtu(const std::string &name, std::uint32_t mtu);
    void setFilter(const std::string &name, int program);  // -1: none

  private:
    void requestAll();
    void take(const char *message, std::size_t length);

    std::set<std::string> names_;
    Descriptor socket_;
    std::map<std::string, LinkState> links_;
    std::set<std::string> told_;  // interfaces named in the answer being received
};

}  // namespace vswitch

#endif
