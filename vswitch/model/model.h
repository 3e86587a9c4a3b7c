// The state of the virtual switch and the rules that keep it consistent. No input or output, no threads: one
// caller at a time. Results are OPEN_E_ codes.
//
// What holds at all times:
//  - Every interface has a PVID that exists as a VLAN; memberships, MAC associations and routing interfaces
//    name existing VLANs only.
//  - A port is a member of at most one LAG. A LAG forwards for its members, so entries learned on a member
//    belong to the LAG, and the LAG's VLAN settings apply to them.
//  - Learned forwarding entries and neighbours exist only on ports with link, entries of a LAG member only
//    while the LAG has link too, and none on a port that 802.1X has not authorized; the table never exceeds
//    its capacity.
//  - A device behind another one is at the same port as that one.
//  - Tables hold of live ports exactly what the data plane last saw there and the rules above allow.
//  - Access groups name existing access lists only.
//  - The destination of a mirror session is a port in no LAG, no source of its session, and no other
//    session's destination.
//  - VLANs have spanning-tree timers of their own only while the switch runs a mode with one tree per VLAN.
//  - Multicast groups and routers are known only where IGMP is snooped, on interfaces with link that
//    participate in the VLAN.
//
// A change of membership (PVID, participation, tagging, deletion of a VLAN) takes effect `latency` after it
// was accepted, in the order of acceptance. Creating a VLAN takes effect at once, and so does everything
// still pending up to the deletion of a VLAN with that id. Devices that talk keep their entries fresh; a
// device at a switch port gives the port link, unless the port's speed is fixed to one that it cannot do; one
// behind another device does not.
#ifndef PAVO_VSWITCH_MODEL_MODEL_H
#define PAVO_VSWITCH_MODEL_MODEL_H

#include <deque>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "vswitch/model/igmp.h"
#include "vswitch/model/qos.h"
#include "vswitch/model/system.h"
#include "vswitch/model/types.h"

namespace vswitch {

class Model {
  public:
    explicit Model(ModelConfig config = {});

    // Advances the switch's time: due membership changes take effect, tables age. Time never goes back.
    void advanceTo(Duration now, std::timespec wall);
    Duration now() const { return now_; }
    Duration upTime() const { return now_ - bootTime_; }

    const ModelConfig &config() const { return config_; }
    const SystemInfo &system() const { return system_; }
    SystemInfo &system() { return system_; }

    // --- system services
    const SystemSettings &settings() const { return settings_; }
    SystemSettings &settings() { return settings_; }
    std::timespec wallTime() const { return wall_; }
    const SntpState &sntp() const { return sntp_; }
    void pollSntp();  // asks the SNTP servers now; otherwise every kSntpPollInterval

    // --- 802.1X, see dot1x.h
    bool authorized(IfNum port) const;     // frames of the port pass; false for a LAG
    bool authenticates(IfNum port) const;  // whoever is behind the port has to authenticate
    void setDot1x(bool enabled);
    open_error_t setPortControl(IfNum port, std::uint32_t mode);  // OPEN_DOT1X_
    // Somebody on a simulated port authenticates, now and whenever the switch asks, or logs off. FAIL: no
    // link, nobody could be there; PARAM: a live port.
    open_error_t setSupplicant(IfNum port, bool accepted);
    open_error_t rejectSupplicant(IfNum port);  // fails from now on: noticed when the switch asks

    // --- hardware; what happens to it is written to the log
    const Health &health() const { return health_; }
    // NOT_FOUND: no such sensor, fan or power supply.
    open_error_t setTemperature(std::uint32_t sensor, std::int32_t celsius, bool working = true);
    open_error_t setFan(std::uint32_t fan, UnitState state, std::uint32_t rpm);
    open_error_t setPowerSupply(std::uint32_t supply, UnitState state);
    open_error_t setLoad(std::uint32_t cpuPercent, std::uint32_t memoryTotalKb, std::uint32_t memoryFreeKb);

    // --- features of the whole switch
    const SwitchFeatures &features() const { return features_; }
    SwitchFeatures &features() { return features_; }
    void setSpanningTreeMode(SpanningTreeMode mode);
    bool runsPvst() const;
    const Qos &qos() const { return qos_; }
    Qos &qos() { return qos_; }
    const AccessLists &ipAccessLists() const { return ipAccessLists_; }
    AccessLists &ipAccessLists() { return ipAccessLists_; }
    const AccessLists &macAccessLists() const { return macAccessLists_; }
    AccessLists &macAccessLists() { return macAccessLists_; }
    open_error_t deleteIpAccessList(const std::string &name);  // and its bindings
    // A number for a name, from 1 on; it is that of the name for as long as the switch runs.
    std::uint32_t accessListId(const std::string &name);
    const std::string *accessListName(std::uint32_t id) const;  // null for an id that was never given
    // Binds a list; with `sequence` 0 after those already bound. FAIL: another list has that sequence number;
    // FULL: more than kAccessGroupsMax.
    open_error_t bindAccessList(IfNum ifNum, const std::string &name, std::uint32_t direction,
                                std::uint32_t sequence);
    open_error_t unbindAccessList(IfNum ifNum, const std::string &name, std::uint32_t direction);

    // --- interfaces
    const std::map<IfNum, Interface> &interfaces() const { return interfaces_; }
    const Interface *interface(IfNum ifNum) const;
    // For settings without rules: description, mtu, reauthentication, PTP, 802.1AS, MRP, accepted frames,
    // LAG name.
    Interface *edit(IfNum ifNum);
    IfNum lagIfNum(std::uint32_t lagNumber) const;  // 0 when there is none
    open_error_t setAdmin(IfNum ifNum, bool up);
    open_error_t setCarrier(IfNum port, Carrier carrier);

    // --- ports: speed, error state, transceivers, counters
    open_error_t setSpeed(IfNum port, std::string speed);  // "auto" or as in "10G full-duplex"
    // Of a port or LAG with link; mbps 0 when the wire does not tell.
    std::optional<PortSpeed> linkSpeed(IfNum ifNum) const;
    // The port has no link until the reason is none again; enabling it administratively sees to that, too.
    open_error_t setErrorDisabled(IfNum port, std::uint32_t reason);
    // PARAM: no cage. A cage that nobody has filled holds the end of a cable as long as devices are plugged
    // in.
    open_error_t setSfp(IfNum port, std::optional<SfpModule> module);
    std::optional<SfpModule> sfp(IfNum port) const;
    // At this moment; of a LAG, those of its members.
    PortCounters counters(IfNum ifNum) const;
    open_error_t clearCounters(IfNum port);
    // Frames that were damaged or had to be dropped: errors and discards of `more` count.
    open_error_t addErrors(IfNum port, const PortCounters &more);

    // --- mirroring: sessions 1 to kMirrorSessionsMax; PARAM beyond
    const std::map<std::uint32_t, MirrorSession> &mirrorSessions() const { return mirrorSessions_; }
    bool isMirrorDestination(IfNum port) const;
    // FAIL: it is the destination.
    open_error_t addMirrorSource(std::uint32_t session, IfNum ifNum, std::uint32_t direction);
    open_error_t removeMirrorSource(std::uint32_t session, IfNum ifNum);
    // FAIL: the port is in a LAG, a source, or another session's destination. 0 removes it.
    open_error_t setMirrorDestination(std::uint32_t session, IfNum port);
    open_error_t setMirrorMode(std::uint32_t session, bool enabled);
    open_error_t deleteMirrorSession(std::uint32_t session);

    // --- VLANs
    const std::map<VlanId, Vlan> &vlans() const { return vlans_; }
    bool hasVlan(VlanId id) const { return vlans_.contains(id); }
    open_error_t createVlan(VlanId id);  // fine when it exists
    open_error_t deleteVlan(VlanId id);
    // Empty: the default name. PARAM: longer than kVlanNameMax or not printable.
    open_error_t nameVlan(VlanId id, std::string name);
    static std::string defaultVlanName(VlanId id);
    open_error_t makeVlanStatic(VlanId id);
    VlanFeatures *editVlan(VlanId id);  // null when there is no such VLAN

    Membership membership(IfNum ifNum, VlanId id) const;
    static Membership defaultMembership(VlanId id);
    open_error_t setPvid(IfNum ifNum, VlanId id);
    open_error_t setParticipation(IfNum ifNum, VlanId id, std::uint32_t mode);
    open_error_t setTagging(IfNum ifNum, VlanId id, bool tagged);

    const std::map<Mac, VlanId> &macAssociations() const { return associations_; }
    open_error_t associateMac(const Mac &mac, VlanId id);  // creates the VLAN if needed; FULL: no room
    open_error_t dissociateMac(const Mac &mac);

    // --- routing interfaces
    const std::map<VlanId, RoutingInterface> &routing() const { return routing_; }
    open_error_t setRouting(VlanId id, bool on);  // switching on keeps an address that is there
    // FAIL: the VLAN does not route. Address and netmask matter for AddressMethod::Manual only.
    open_error_t setAddress(VlanId id, AddressMethod method, std::string ip, std::string mask);
    bool vlanUp(VlanId id) const;  // some interface that participates in it has link

    // --- link aggregation
    open_error_t lagAdd(IfNum lag, IfNum port);
    open_error_t lagRemove(IfNum lag, IfNum port);
    open_error_t setLagStatic(IfNum lag, bool isStatic);

    // --- forwarding database
    const std::map<FdbKey, FdbEntry> &fdb() const { return fdb_; }
    open_error_t learn(const Mac &mac, VlanId vlan, IfNum port);  // as if a frame had arrived; FAIL: no link
    void clearFdb();                                          // learned entries; talking devices come back
    std::uint64_t fdbRefused() const { return fdbRefused_; }  // attempts to learn when it was full
    std::uint64_t fdbClears() const { return fdbClears_; }    // how often everything was forgotten

    // --- LLDP
    const std::map<IfNum, std::map<std::uint32_t, LldpNeighbour>> &lldp() const { return lldp_; }

    // --- IGMP snooping
    // In a VLAN with snooping or IGMP Plus; the latter, or an interval between queries, makes the switch a
    // querier there. It asks with its address in the VLAN, 0.0.0.0 when it has none, and gives way to another
    // querier with an address; where it takes part in the election, to a lower one only.
    const IgmpGroups &igmpGroups() const { return igmpGroups_; }
    std::vector<IfNum> igmpRouters(VlanId id) const;            // static and dynamic, ascending
    std::uint64_t igmpRefused() const { return igmpRefused_; }  // reports for which there was no room
    // A message that a port or LAG has received. What the configuration does not let in is ignored: VLANs
    // without snooping, interfaces that do not participate, groups that an access list denies. 224.0.0.x is
    // no group to subscribe to.
    void hearIgmp(const IgmpMessage &message);
    // Queries to be sent, oldest first; each is handed out once.
    std::vector<IgmpQuery> takeIgmpQueries();
    WireMulticast wireMulticast(VlanId id) const;
    // To be called after a change by editVlan() or features(): what is no longer let in is forgotten as soon
    // as time passes.
    void igmpConfigured() { igmpStale_ = true; }
    // Whether the access lists of an interface let a packet pass; without lines they do.
    bool admitsIp(IfNum ifNum, std::uint32_t direction, Ipv4 source, Ipv4 destination) const;
    // A device joins and leaves, and answers queries in between. NOT_FOUND: no such device, or it has not
    // joined; PARAM: no multicast group, or no IGMP version.
    open_error_t joinGroup(const std::string &name, Ipv4 group, std::uint32_t version);
    open_error_t leaveGroup(const std::string &name, Ipv4 group);

    // --- devices of the outside world
    const std::map<std::string, Device> &devices() const { return devices_; }
    // FAIL: the name or an address is in use; PARAM: no such port, or no device `behind` which it could be.
    open_error_t plug(Device device);
    // Both take along what is behind the device.
    open_error_t unplug(const std::string &name);
    open_error_t move(const std::string &name, IfNum port, const std::string &behind);
    open_error_t setTalking(const std::string &name, bool talking);

    // --- live ports
    // What was seen on the wire. Each takes the whole picture; what is missing from it is gone.
    open_error_t setLive(IfNum port);  // from now on; FAIL: devices are plugged in
    void seeCarrier(IfNum port, bool up);
    void seeWire(IfNum port, const PortCounters &counters, std::uint32_t mbps);  // 0: not known
    void seeAddresses(const std::vector<SeenAddress> &seen);
    void seeNeighbours(const std::vector<SeenNeighbour> &seen);
    void seeArp(std::map<ArpKey, Mac> seen);
    void seeSupplicant(const SeenSupplicant &seen);  // of one port, unlike the others

    // IPv4 addresses in the switch's VLANs: those seen, and those of talking devices that have one.
    std::map<ArpKey, Mac> arp() const;
    // The one that follows; at the end, nothing.
    std::optional<std::pair<ArpKey, Mac>> nextArp(const ArpKey &after) const;

    // --- behaviour
    bool changesPending() const { return !pending_.empty(); }  // accepted, not yet in effect
    // A switch of the same configuration with all accepted changes in effect; without devices and tables.
    Model settled() const;
    Duration latency() const { return latency_; }
    void setLatency(Duration latency) { latency_ = latency; }

    // --- system log and events
    void log(int severity, std::string component, std::string place, std::string text);
    const std::deque<LogLine> &logLines() const { return log_; }
    void clearLog() { log_.clear(); }
    const std::deque<Event> &events() const { return events_; }

  private:
    enum class ChangeKind { Pvid, Participation, Tagging, VlanDelete };
    struct Change {
        Duration due;
        ChangeKind kind;
        IfNum ifNum;
        VlanId vlan;
        std::uint32_t value;
    };

    void submit(Change change);
    void apply(const Change &change);
    void applyFirst();
    void removeVlan(VlanId id);
    void storeMembership(IfNum ifNum, VlanId id, const Membership &membership);

    IfNum forwarderOf(IfNum port) const;
    VlanId classify(const Device &device, const Mac &mac) const;
    const std::vector<const Device *> &devicesAt(IfNum port) const;
    std::vector<IfNum> portsOf(IfNum ifNum) const;
    bool mayStandBehind(const std::string &other, IfNum port, const std::vector<const Device *> &moved) const;
    std::vector<const Device *> withFollowers(const Device &device) const;
    bool forwarding(IfNum port) const;
    bool controlled(const Interface &port) const;
    bool carries(const Interface &interface) const;  // data
    void resetDot1x(Interface &port);
    void accessChanged(IfNum num, bool before);
    template <class Action>
    void changeAccess(IfNum num, Action action);
    void authenticate(IfNum num, bool accepted);
    void serveDot1x();
    bool audible(const Device &device) const;
    VlanId arpVlan(const Device &device) const;
    void learnDevice(const Device &device);
    void learnMac(const Device &device, const Mac &mac);
    void relearnPort(IfNum port);
    void relearnInterface(IfNum ifNum);
    void relearnTagged(IfNum ifNum, VlanId id);
    void relearnMac(const Mac &mac);
    void relearnAll();
    bool install(const Mac &mac, VlanId vlan, IfNum port);
    void flushPort(IfNum port);
    void hear(const Device &device);
    LldpNeighbour &newNeighbour(IfNum port, const LldpFields &fields, const std::string &device);
    void refreshLink(IfNum port);
    bool answersSntp(const SntpServer &server) const;
    void reportUnit(const std::string &name, UnitState state);
    void countUpToNow(IfNum port);
    PortActivity activityOf(const Interface &port) const;
    PortCounters rawCounters(const Interface &port) const;
    MirrorSession *editMirror(std::uint32_t session);
    void age();
    void event(std::string kind, std::string text);

    // What is known of IGMP in one VLAN.
    struct IgmpVlan {
        std::map<IfNum, Duration> routers;  // and when they are forgotten
        Duration nextQuery{}, lastQuery{Duration::min() / 2};
        Ipv4 otherQuerier = 0;
        Duration otherUntil{Duration::min()};
    };
    // Queries that follow a leave.
    struct LastMemberQuery {
        VlanId vlan;
        Ipv4 group;
        IfNum interface;
        auto operator<=>(const LastMemberQuery &) const = default;
    };
    struct LastMemberLeft {
        Duration due;
        int count;
    };

    bool igmpSnooped(VlanId id) const;
    bool igmpQuerierWanted(VlanId id) const;
    Ipv4 querierAddress(VlanId id) const;
    bool igmpParticipates(IfNum ifNum, VlanId id, const Mac &mac) const;
    void hearReport(const IgmpMessage &message);
    void hearLeave(const IgmpMessage &message);
    void hearQuery(const IgmpMessage &message);
    void sendQuery(IgmpQuery query);
    void answerQuery(const IgmpQuery &query);
    void reportGroups(const Device &device, Ipv4 group = 0);
    void sendFromDevice(const Device &device, IgmpKind kind, Ipv4 group, std::uint32_t version);
    void igmpLinkChanged(IfNum ifNum);
    void refreshIgmp();
    void serveIgmp();
    template <class Which>
    void removeSubscribers(std::map<IgmpSubscriberKey, IgmpSubscriber> &subscribers, Which which);
    template <class Which>
    IgmpGroups::iterator forgetSubscribers(IgmpGroups::iterator group, Which which);

    ModelConfig config_;
    SystemInfo system_;
    SystemSettings settings_;
    Health health_;
    SntpState sntp_;
    Duration lastSntpPoll_{}, lastDot1x_{};
    bool dot1xReset_ = false;  // some port is to be asked again
    SwitchFeatures features_;
    Qos qos_;
    AccessLists ipAccessLists_, macAccessLists_;
    std::vector<std::string> accessListNames_;               // by id
    std::map<std::uint32_t, MirrorSession> mirrorSessions_;  // those that were ever used
    Duration now_{}, bootTime_{}, lastAged_{};
    bool started_ = false;
    std::timespec wall_{};
    Duration latency_{};
    std::deque<Change> pending_;

    std::map<IfNum, Interface> interfaces_;
    std::map<VlanId, Vlan> vlans_;
    std::map<Mac, VlanId> associations_;
    std::map<VlanId, RoutingInterface> routing_;
    std::map<FdbKey, FdbEntry> fdb_;
    std::uint64_t fdbRefused_ = 0, fdbClears_ = 0;
    std::map<ArpKey, Mac> arpSeen_;
    bool unlearned_ = false;  // the table had no room for some talking device's address
    std::map<IfNum, std::map<std::uint32_t, LldpNeighbour>> lldp_;
    std::uint32_t nextRemIndex_ = 1;
    std::map<std::string, Device> devices_;
    // The same devices by address and by port.
    std::map<Mac, const Device *> macOwner_;
    std::map<std::string, std::vector<const Device *>> ipOwners_;  // in the order of their names
    std::map<IfNum, std::vector<const Device *>> devicesAt_;

    IgmpGroups igmpGroups_;
    std::size_t igmpSubscribers_ = 0;
    // What of it is behind an interface: groups with subscribers there, and these.
    struct IgmpShare {
        std::size_t groups = 0, subscribers = 0;
    };
    std::map<IfNum, IgmpShare> igmpShares_;
    std::uint64_t igmpRefused_ = 0;
    std::map<VlanId, IgmpVlan> igmpVlans_;
    std::map<LastMemberQuery, LastMemberLeft> lastMemberQueries_;
    std::vector<IgmpQuery> igmpQueries_;
    bool igmpStale_ = false;  // the configuration has changed
    Duration igmpDue_{};      // when serveIgmp() has something to do

    std::deque<LogLine> log_;
    std::uint64_t nextLog_ = 1;
    std::deque<Event> events_;
    std::uint64_t nextEvent_ = 1;
};

}  // namespace vswitch

#endif
