// OpenFlow 1.4 as far as the switch speaks it with its Open vSwitch: changes of flow entries, frames that
// flow entries bring up, frames that the switch sends. A connection that stays spares each change the start
// of a program.
#ifndef PAVO_VSWITCH_DATAPLANE_OPENFLOW_H
#define PAVO_VSWITCH_DATAPLANE_OPENFLOW_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "vswitch/dataplane/process.h"
#include "vswitch/model/types.h"

namespace vswitch {

// The message for a line of flows.h: "add", "delete" or "delete_strict" and a flow entry. Nothing when the
// line has something that flows.h does not use.
std::optional<std::string> flowModOf(std::string_view line);

// The message for a meter that lets so many frames pass in a second, and so many at once. Where Open vSwitch
// has it already, the message does nothing.
std::string meterOf(std::uint32_t id, std::uint32_t perSecond, std::uint32_t atOnce);

// A frame that a flow entry has sent up.
struct PacketIn {
    unsigned table = 0;   // of the flow entry
    IfNum port = 0;       // that received the frame
    IfNum interface = 0;  // register 1: the port or its LAG
    std::string frame;    // as it was in that table, its VLAN as a tag
};
// Nothing when the message is no sound packet-in.
std::optional<PacketIn> packetInOf(std::string_view message);

// Not a port: the switch itself.
inline constexpr std::uint32_t kFromController = 0xfffffffd;
// The message that puts a frame into a table with these registers (number, value), as if `inPort` had
// received it.
std::string packetOutOf(std::uint32_t inPort,
                        const std::vector<std::pair<unsigned, std::uint32_t>> &registers, int table,
                        std::string_view frame);

// A connection to a bridge. One thread.
class OpenFlowConnection {
  public:
    // Connects to the Unix socket `name` in `folder`. False: not there (yet).
    bool open(const std::string &folder, const std::string &name);
    void close();
    bool isOpen() const { return static_cast<bool>(socket_); }
    // Readable when something has arrived; -1 while it is not open.
    int descriptor() const { return socket_.get(); }

    // Makes all changes at once or none. Status as of a tool: 0 done; 1 refused, nothing has changed; -1 no
    // answer within `limit` or before one of the descriptors became readable: unknown, and the connection is
    // closed.
    ToolResult change(const std::vector<std::string> &lines, std::chrono::milliseconds limit, int abort,
                      int otherAbort);

    // Sends without waiting for an answer; what the other side does not take now follows with the next call
    // of anything. A message is dropped when too much waits.
    void send(std::string message);

    // Frames that have come up since the last call. Closes the connection when the other side has.
    std::vector<PacketIn> receive();

  private:
    struct Answer {
        bool here = false;
        std::string error;
    };

    bool exchange();
    void take(std::string_view message);

    Descriptor socket_;
    std::string in_, out_;
    std::vector<PacketIn> frames_;
    std::uint32_t lastXid_ = 0;
    std::uint32_t awaited_ = 0;  // the exchange that change() waits for
    Answer answer_;
};

}  // namespace vswitch

#endif
