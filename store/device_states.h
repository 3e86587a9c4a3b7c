// What the daemon says of the AV devices it knows, in a file for people and programs that want to know who is who. The
// file and its folder are writable by the daemon alone; it is replaced as a whole, and is gone with a reboot.
#ifndef PAVO_STORE_DEVICE_STATES_H
#define PAVO_STORE_DEVICE_STATES_H

#include <cstdint>
#include <optional>
#include <source_location>
#include <span>
#include <string>
#include <vector>

#include "common/if_num.h"
#include "common/result.h"
#include "common/vlan_id.h"
#include "common/where.h"

namespace pavo {

struct DeviceState {
    enum class Kind {
        Seen,     // by the last scan, and what its family wants of the switch is in effect
        Missing,  // not seen in the last scans
        Unseen,   // known from an earlier run of the daemon, and not seen yet
        Leaving,  // it is gone, and not everything of it could be taken back yet
        Refused,  // it is there, and has not joined
    };

    std::string family;            // "audac"
    std::string address;           // MAC address; of Lightware, the chassis id of the endpoint
    IfNum port;                    // IfNum(): not known
    std::optional<VlanId> vlan{};  // that the device has been put into
    Kind kind = Kind::Seen;
    std::uint32_t missed = 0;     // scans, of Missing
    std::uint32_t missedMax = 0;  // after which it leaves
    std::string reason{};         // of Refused: why; empty otherwise

    bool operator==(const DeviceState &) const = default;
};

// "seen", "missing", "unseen", "leaving" and "refused".
const char *wordOf(DeviceState::Kind kind);

// {"devices":[{"family":"audac","address":"00:1B:92:02:00:05","ifNum":5,"vlanId":20,"state":"missing","missed":3,
// "missedMax":20}]}, with "reason" when there is one, and without what is not known. Strings are cut to valid UTF-8.
// Empty when memory runs out.
std::string printDeviceStates(std::span<const DeviceState> devices);
// Nothing when the text is no such object; devices that do not make sense are passed over.
std::optional<std::vector<DeviceState>> parseDeviceStates(const std::string &text);

// Replaces the file.
Result<> writeDeviceStates(std::span<const DeviceState> devices,
                           Where where = std::source_location::current());
void removeDeviceStates();
// What the daemon has written last, nothing when there is no file or it cannot be read.
std::optional<std::vector<DeviceState>> readDeviceStates(Where where = std::source_location::current());

}  // namespace pavo

#endif
