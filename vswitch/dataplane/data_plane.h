// What forwards the frames of the virtual switch's ports. The model is the only source of configuration: a
// data plane is told what its ports are to do and reports what it sees on the wire. Devices on ports that no
// data plane claims are simulated by the model; nothing above the model can tell the difference.
#ifndef PAVO_VSWITCH_DATAPLANE_DATA_PLANE_H
#define PAVO_VSWITCH_DATAPLANE_DATA_PLANE_H

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "vswitch/model/igmp.h"
#include "vswitch/model/types.h"

namespace vswitch {

// Maps the interface number of a physical port to the name of its Linux interface.
using PortMap = std::map<IfNum, std::string>;

// One line of an access list: addresses as "address/mask", empty for any.
struct WireRule {
    bool permit = false;
    std::string source, destination;

    bool operator==(const WireRule &) const = default;
};

// What 802.1X in mode auto is to do on a port.
struct WireAuthentication {
    std::uint64_t round = 0;  // a new one: what was before does not count any more
    Duration reauthPeriod{};  // on the switch's clock; 0: never

    bool operator==(const WireAuthentication &) const = default;
};

// Who checks credentials: RADIUS servers in the order in which they are asked or, without any, the switch
// itself, which knows these users.
struct WireAccess {
    struct Radius {
        std::string address, secret;
        std::uint32_t port = 0;

        bool operator==(const Radius &) const = default;
    };
    std::map<std::string, std::string> users;  // name and password
    std::vector<Radius> radius;

    bool operator==(const WireAccess &) const = default;
};

struct WirePort {
    std::string netdev;
    bool adminUp = true;
    std::uint32_t mtu = 1500;  // bytes of payload, as Linux counts
    std::optional<WireAuthentication> authentication{};

    bool operator==(const WirePort &) const = default;
};

// A forwarding interface: a port of its own, or a LAG on behalf of its members. A port that 802.1X has not
// authorized is none.
struct WireInterface {
    VlanId pvid = kDefaultVlan;
    AcceptFrames acceptFrames = AcceptFrames::All;
    std::map<VlanId, bool> vlans;                  // participates in; true: sends them tagged
    std::vector<IfNum> members;                    // the ports it sends and receives on
    bool authenticates = false;                    // EAPOL, to whatever address, is for the switch
    std::optional<std::vector<WireRule>> in, out;  // IPv4 filters; a packet that no line matches is dropped

    bool operator==(const WireInterface &) const = default;
};

struct WireConfig {
    std::map<IfNum, WirePort> ports;
    std::map<IfNum, WireInterface> interfaces;
    std::map<Mac, VlanId> associations;
    std::map<VlanId, WireMulticast> multicast;  // of VLANs with IGMP snooping
    Duration ageTime{};                         // of learned addresses, on the switch's clock
    std::size_t fdbCapacity = 0;
    std::uint64_t fdbClears = 0;                // how often everything learned was to be forgotten
    std::string systemName, systemDescription;  // of the LLDP frames that the switch sends
    WireAccess access;                          // when some port authenticates

    bool operator==(const WireConfig &) const = default;
};

// What is seen on the wire at one moment.
struct WireView {
    std::uint64_t generation = 0;  // of the configuration in effect when the addresses were read
    std::map<IfNum, bool> carrier;
    // Absent while they cannot be read; what was known before then stays.
    std::optional<std::vector<SeenAddress>> addresses;
    std::optional<std::vector<SeenNeighbour>> neighbours;
    std::optional<std::map<ArpKey, Mac>> arp;
    std::vector<IgmpMessage> igmp;                // since the last view, in their order
    std::map<IfNum, SeenSupplicant> supplicants;  // where something has changed
    std::vector<std::string> messages;            // for the operator, to go to the system log
};

struct DataPlaneProcess {
    std::string name;
    int pid = 0;  // 0 while it does not run
    std::uint64_t starts = 0;
};

// For operators, tests and measurements.
struct DataPlaneStatus {
    std::string driver;
    std::vector<DataPlaneProcess> processes;
    std::uint64_t generation = 0;       // of the configuration in effect
    std::size_t flows = 0;              // flow entries of the configuration, without learned ones
    std::uint64_t flowChanges = 0;      // since start
    std::uint64_t lastFlowChanges = 0;  // of the last push that changed a flow entry
    double lastPushMs = 0;              // real milliseconds of that push
};

class DataPlane {
  public:
    virtual ~DataPlane() = default;

    virtual PortMap ports() const = 0;

    // Applies a configuration as the difference to the one before; returns at once. `generation` grows with
    // every call. What cannot be applied now is retried until it can.
    virtual void push(const WireConfig &config, std::uint64_t generation) = 0;

    // Sends IGMP queries into VLANs with snooping; what cannot be sent now is lost, as on a wire.
    virtual void sendQueries(const std::vector<IgmpQuery> &queries) = 0;

    // What has been seen since the last call; nothing when there is nothing new.
    virtual std::optional<WireView> collect() = 0;

    virtual DataPlaneStatus status() const = 0;
};

}  // namespace vswitch

#endif
