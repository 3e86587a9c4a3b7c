#include "vswitch/dataplane/ovs_data_plane.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

#include "platform/clock.h"
#include "vswitch/dataplane/authenticator.h"
#include "vswitch/dataplane/eap.h"
#include "vswitch/dataplane/flows.h"
#include "vswitch/dataplane/igmp_frame.h"
#include "vswitch/dataplane/link_watch.h"
#include "vswitch/dataplane/openflow.h"
#include "vswitch/dataplane/process.h"
#include "vswitch/dataplane/reading.h"
#include "vswitch/dataplane/tag_marks.h"

namespace vswitch {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr auto kReadPeriod = milliseconds(500), kNeighbourPeriod = milliseconds(1000);
constexpr auto kRetry = milliseconds(50);
// The kernel's refusal arrives as a message of its own: asking again at once would never end.
constexpr auto kAskAgain = milliseconds(200);
constexpr auto kReadLimit = milliseconds(2000), kPushLimit = milliseconds(5000);
constexpr auto kNeighbourLimit = milliseconds(1000);
// A server that has not answered for this long is killed and restarted.
constexpr auto kHung = milliseconds(4000), kSocketLimit = milliseconds(15000);
// A server that ends within this time of its start waits longer before the next start, up to the maximum.
constexpr auto kSoon = milliseconds(2000), kRestartMax = milliseconds(5000);

// An address that moves is confirmed after this time, and moves no more often: in between, Open vSwitch may
// have learned once more from frames that had come by the old interface.
constexpr auto kMovePause = milliseconds(50);
constexpr std::size_t kMovesMax = 4096, kIgmpMax = 16384;
// Of a kernel that does not attach the program to an interface.
constexpr int kFilterTries = 5;
// Forwarding goes before everything else on the machine, as if it had hardware of its own.
constexpr int kForwardingPriority = -10;

// Bytes that Open vSwitch keeps for frames.
constexpr const char *kKeptMemory = "67108864";

// The sender of queries.
constexpr Mac kQuerierMac{{0x02, 0x50, 0x56, 0x00, 0x10, 0x00}};

constexpr const char *kBridge = "vswitch0";
// Open vSwitch creates these interfaces itself.
constexpr const char *kReserved[] = {kBridge, "ovs-netdev"};
constexpr const char *kSchema = "/usr/share/openvswitch/vswitch.ovsschema";

std::string inFolder(const std::string &folder, const char *name) {
    return folder + "/" + name;
}

// Creates the folder anew: nothing left by an earlier switch counts.
std::string freshFolder(const std::string &folder) {
    std::filesystem::remove_all(folder);
    // Created by this call or not used at all: a folder or link of that name that belongs to somebody else is
    // not trusted. The clients of lldpd drop their privileges before they look for its socket in it.
    if (::mkdir(folder.c_str(), 0711) != 0)
        throw std::system_error(errno, std::generic_category(), folder);
    return std::filesystem::canonical(folder);
}

std::string firstLine(const std::string &text) {
    return text.substr(0, text.find('\n'));
}

std::set<std::string> namesOf(const PortMap &ports) {
    std::set<std::string> names;
    for (const auto &[port, netdev] : ports)
        names.insert(netdev);
    return names;
}

std::string joined(const std::set<std::string> &names) {
    std::string out;
    for (const auto &name : names)
        out += (out.empty() ? "" : ",") + name;
    return out;
}

Duration onSwitchClock(std::chrono::seconds real) {
    return Duration(
        static_cast<std::int64_t>(static_cast<double>(Duration(real).count()) * platform::clockRate()));
}

Duration inRealTime(Duration onClock) {
    return Duration(static_cast<std::int64_t>(static_cast<double>(onClock.count()) / platform::clockRate()));
}

std::uint32_t inRealSeconds(Duration onClock) {
    const auto seconds = static_cast<double>(inRealTime(onClock).count()) / 1e6;
    return static_cast<std::uint32_t>(std::clamp(seconds, 1.0, 65535.0));
}

// One server, and when it may be started again.
struct Watched {
    ServerProcess process;
    Clock::time_point started{}, notBefore{};
    milliseconds pause{};
};

// Of an address to another interface.
struct Move {
    IfNum interface = 0;
    Clock::time_point done{};
    bool again = false;  // once the pause is over
};

class OvsDataPlane : public DataPlane {
  public:
    OvsDataPlane(const PortMap &ports, const std::string &folder)
        : ports_(ports),
          folder_(freshFolder(folder)),
          links_(namesOf(ports)),
          wake_(::eventfd(0, EFD_CLOEXEC)),
          halt_(::eventfd(0, EFD_CLOEXEC)) {
        for (const auto *name : kReserved)
            if (namesOf(ports).contains(name))
                throw std::invalid_argument(std::string(name) + " is an interface of Open vSwitch's own");
        if (!wake_ || !halt_)
            throw std::system_error(errno, std::generic_category(), "eventfd");
        const auto made =
            runTool({"ovsdb-tool", "create", inFolder(folder_, "conf.db"), kSchema}, folder_, kReadLimit);
        if (!made.good())
            throw std::runtime_error("cannot create the database of Open vSwitch: " + made.error);
        // lldpd does what it is told here, whatever the machine's own configuration says.
        std::ofstream(inFolder(folder_, "lldpd.conf")) << "";
        // Where Open vSwitch puts the sockets of its bridges.
        ::setenv("OVS_RUNDIR", folder_.c_str(), 1);
        // Open vSwitch allocates each frame. After a change of flow entries these are at the end of its heap, which
        // would otherwise be given back and taken anew for every burst of them.
        ::setenv("MALLOC_TRIM_THRESHOLD_", kKeptMemory, 1);
        thread_ = std::thread([this] { run(); });
    }

    ~OvsDataPlane() override {
        stop_ = true;
        notify(halt_);
        notify(wake_);
        thread_.join();
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }

    PortMap ports() const override { return ports_; }

    void push(const WireConfig &config, std::uint64_t generation) override {
        {
            const std::lock_guard lock(mutex_);
            wanted_ = std::make_shared<const WireConfig>(config);
            wantedGeneration_ = generation;
        }
        notify(wake_);
    }

    void sendQueries(const std::vector<IgmpQuery> &queries) override {
        {
            const std::lock_guard lock(mutex_);
            queries_.insert(queries_.end(), queries.begin(), queries.end());
        }
        notify(wake_);
    }

    std::optional<WireView> collect() override {
        const std::lock_guard lock(mutex_);
        return std::exchange(view_, std::nullopt);
    }

    DataPlaneStatus status() const override {
        const std::lock_guard lock(mutex_);
        return status_;
    }

  private:
    // --- the thread

    void run() {
        const auto path = [this](const char *name) { return inFolder(folder_, name); };
        const auto database = "unix:" + path("db.sock");
        const std::string file = "-vfile:off", console = "-vconsole:warn", syslog = "-vsyslog:off";
        servers_.push_back({{"ovsdb-server",
                             {"ovsdb-server", path("conf.db"), "--remote=punix:" + path("db.sock"),
                              "--unixctl=" + path("db.ctl"), "--no-chdir", console, file, syslog},
                             folder_}});
        servers_.push_back({{"ovs-vswitchd",
                             {"ovs-vswitchd", database, "--unixctl=" + path("switch.ctl"), "--no-chdir",
                              console, file, syslog},
                             folder_}});
        servers_.push_back({{"lldpd", {}, folder_}});
        servers_.push_back(
            {{"hostapd", {"hostapd", "-g", std::string("./") + Authenticator::kSocket}, folder_}});
        if (!marks_)
            say("the kernel takes no program that tells 802.1ad tags and drop-eligible bits");
        while (!stop_) {
            superviseServers();
            links_.update();
            followLinks();
            applyWanted();
            handleFrames();
            sendWaiting();
            authenticate();
            read();
            publishStatus();
            wait();
        }
        for (const auto &[port, netdev] : ports_)
            if (linkOf(port).filtered)
                links_.setFilter(netdev, -1);
        // Forwarding ends before the database does.
        for (auto server = servers_.rbegin(); server != servers_.rend(); ++server)
            server->process.stop();
    }

    static void notify(const Descriptor &event) {
        const std::uint64_t one = 1;
        // Fails only when it is readable anyway.
        [[maybe_unused]] const auto written = ::write(event.get(), &one, sizeof one);
    }

    void wait() {
        std::vector<pollfd> ends{{wake_.get(), POLLIN, 0},
                                 {links_.descriptor(), POLLIN, 0},
                                 {connection_.descriptor(), POLLIN, 0},
                                 {authenticator_.descriptor(), POLLIN, 0}};
        auto until = std::min(nextRead_, nextNeighbours_);
        if (!authPorts_.empty())
            until = std::min(until, authenticator_.next());
        for (const auto &server : servers_)
            if (server.process.running())
                ends.push_back({server.process.endDescriptor(), POLLIN, 0});
            else if (needed(server))
                until = std::min(until, server.notBefore);
        if (retryAt_ != Clock::time_point{})
            until = std::min(until, retryAt_);
        for (const auto &[address, move] : moves_)
            until = std::min(until, move.done + kMovePause);
        const auto left = std::chrono::ceil<milliseconds>(until - Clock::now()).count();
        if (::poll(ends.data(), ends.size(), static_cast<int>(std::clamp<long>(left, 0, 60'000))) > 0 &&
            ends[0].revents != 0) {
            std::uint64_t count = 0;
            [[maybe_unused]] const auto got = ::read(wake_.get(), &count, sizeof count);
        }
    }

    void say(const std::string &text) {
        const std::lock_guard lock(mutex_);
        newView().messages.push_back(text);
    }

    // A failure is reported once, and only when it lasts: servers take a moment to come up. When it goes on,
    // the server behind the tool is considered hung.
    bool good(const ToolResult &result, const std::string &what, Watched &server) {
        auto &failure = failures_[what];
        if (result.good()) {
            failure = {};
            return true;
        }
        if (failure.since == Clock::time_point{})
            failure.since = Clock::now() - result.took;
        if (!failure.said && Clock::now() - failure.since > kSoon) {
            failure.said = true;
            say(what + ": " + firstLine(result.error));
        }
        // A tool that ended by itself had an answer, even if not the one it wanted.
        if (result.status < 0 && server.process.running() &&
            Clock::now() - std::max(failure.since, server.started) > kHung) {
            say(server.process.name() + " does not answer, starting it again");
            server.process.stop(milliseconds(0));
            hasEnded(server);
        }
        return false;
    }

    WireView &newView() {
        if (!view_)
            view_.emplace();
        return *view_;
    }

    // --- servers

    Watched &database() { return servers_[0]; }
    Watched &forwarder() { return servers_[1]; }
    Watched &lldp() { return servers_[2]; }
    Watched &hostapd() { return servers_[3]; }

    // hostapd runs while ports authenticate.
    bool needed(const Watched &server) const { return &server != &servers_[3] || !authPorts_.empty(); }

    void superviseServers() {
        for (auto &server : servers_) {
            std::string how;
            if (server.process.ended(how)) {
                say(server.process.name() + " " + how + ", starting it again");
                const auto lived = Clock::now() - server.started;
                server.pause = lived > kSoon ? milliseconds(0)
                                             : std::min<milliseconds>(kRestartMax, server.pause * 2 + kRetry);
                server.notBefore = Clock::now() + server.pause;
                hasEnded(server);
            }
            if (!server.process.running() && needed(server) && Clock::now() >= server.notBefore)
                start(server);
        }
    }

    void hasEnded(Watched &server) {
        if (&server == &forwarder()) {
            // Its flow entries are gone with it; what it had learned is handed to the next one.
            connection_.close();
            installed_.reset();
            applied_.reset();
            restore_ = true;
        } else if (&server == &database()) {
            database_.clear();
            bridgeMade_ = false;
        } else if (&server == &hostapd()) {
            authenticator_.disconnect();
        }
    }

    void start(Watched &server) {
        // By itself it would look for its database again only a second later.
        if (&server == &forwarder() && !std::filesystem::exists(inFolder(folder_, "db.sock"))) {
            server.notBefore = Clock::now() + kRetry;
            return;
        }
        if (&server == &lldp()) {
            if (!described()) {
                server.notBefore = Clock::now() + kRetry;
                return;
            }
            // The socket of a killed server is in the way. The name is short even when the folder's is not.
            ::unlink(inFolder(folder_, "lldp.sock").c_str());
            ::mkdir("/run/lldpd", 0755);
            server.process.setArguments({"lldpd", "-d", "-u", "lldp.sock", "-O", "lldpd.conf", "-S",
                                         description_, "-I", joined(namesOf(ports_))});
            named_.clear();
            lldpSince_ = Clock::now();
        }
        if (&server == &hostapd())
            ::unlink(inFolder(folder_, Authenticator::kSocket).c_str());
        server.started = Clock::now();
        if (server.process.start()) {
            // Without the privilege it is one among others.
            if (&server == &forwarder())
                server.process.setPriority(kForwardingPriority);
            return;
        }
        good({-1, "", "cannot be started"}, server.process.name(), server);
        server.notBefore = Clock::now() + kRestartMax;
    }

    // --- links

    LinkState linkOf(IfNum port) const {
        const auto it = links_.links().find(ports_.at(port));
        return it == links_.links().end() ? LinkState{} : it->second;
    }

    void followLinks() {
        std::map<IfNum, LinkState> changed;
        for (const auto &[port, netdev] : ports_) {
            const auto link = linkOf(port);
            if (const auto [it, fresh] = seenLinks_.try_emplace(port, link); fresh || it->second != link) {
                if (link.index == 0)
                    say("interface " + netdev + " of port 0/" + std::to_string(port) + " does not exist");
                it->second = link;
                changed[port] = link;
            }
        }
        if (!changed.empty()) {
            const std::lock_guard lock(mutex_);
            for (const auto &[port, link] : changed)
                newView().carrier[port] = link.carrier;
        }
        for (const auto &[port, link] : changed) {
            if (link.carrier)
                linkUpSince_[port] = Clock::now();
            // Nothing that was behind a port without link counts, even if the link is already back.
            if (applied_)
                for (const auto &[num, interface] : applied_->interfaces)
                    if (std::ranges::find(interface.members, port) != interface.members.end() &&
                        (interface.members.size() == 1 || !anyCarrier(interface)))
                        forget_.push_back(forgetInterface(num));
        }
        if (!applied_)
            return;
        for (const auto &[port, settings] : applied_->ports) {
            const auto link = linkOf(port);
            const bool filter = marks_ && !link.filtered && filterTries_[port] < kFilterTries;
            if (link.index == 0 || (link.up == settings.adminUp && link.mtu == settings.mtu && !filter))
                continue;
            auto &asked = asked_[port];
            if (Clock::now() - asked <= kAskAgain)
                continue;
            asked = Clock::now();
            if (link.up != settings.adminUp)
                links_.setUp(settings.netdev, settings.adminUp);
            if (link.mtu != settings.mtu)
                links_.setMtu(settings.netdev, settings.mtu);
            if (filter) {
                links_.setFilter(settings.netdev, marks_.get());
                if (++filterTries_[port] == kFilterTries)
                    say("interface " + settings.netdev +
                        " does not tell 802.1ad tags and drop-eligible bits");
            }
        }
    }

    bool anyCarrier(const WireInterface &interface) const {
        return std::ranges::any_of(interface.members, [&](IfNum port) { return linkOf(port).carrier; });
    }

    // --- configuration

    bool described() {
        const std::lock_guard lock(mutex_);
        if (!wanted_)
            return false;
        description_ = wanted_->systemDescription;
        return true;
    }

    void applyWanted() {
        if (!forwarder().process.running()) {
            retryAt_ = {};
            return;
        }
        if (Clock::now() < retryAt_)
            return;
        std::shared_ptr<const WireConfig> wanted;
        std::uint64_t generation = 0;
        {
            const std::lock_guard lock(mutex_);
            generation = wantedGeneration_;
            if (!wanted_ ||
                (applied_ && appliedGeneration_ == generation && forget_.empty() && renewed().empty()))
                return;
            wanted = wanted_;
        }
        const bool done = pushPorts(*wanted) && connect() && pushFlows(wanted);
        retryAt_ = done ? Clock::time_point{} : Clock::now() + kRetry;
        if (!done)
            return;
        applied_ = std::move(wanted);
        appliedGeneration_ = generation;
        followLinks();
    }

    // Ports whose interface is not the one that Open vSwitch was told of: it keeps listening to the one that
    // is gone.
    std::vector<IfNum> renewed() const {
        std::vector<IfNum> ports;
        for (const auto &[port, known] : database_)
            if (const auto index = linkOf(port).index; index != 0 && index != known.index)
                ports.push_back(port);
        return ports;
    }

    ToolResult configure(const std::vector<Arguments> &commands, bool waitForEffect) {
        Arguments arguments{"ovs-vsctl", "--db=unix:" + inFolder(folder_, "db.sock"), "--timeout=2"};
        if (!waitForEffect)
            arguments.push_back("--no-wait");
        for (const auto &words : commands) {
            arguments.push_back("--");
            arguments.insert(arguments.end(), words.begin(), words.end());
        }
        return runTool(arguments, folder_, kPushLimit,
                       (waitForEffect ? forwarder() : database()).process.endDescriptor(), halt_.get());
    }

    // Bridge and ports, in one transaction; interfaces that were created again are removed first.
    bool pushPorts(const WireConfig &wanted) {
        std::vector<Arguments> removals, commands;
        const auto stale = renewed();
        for (const auto port : stale)
            removals.push_back({"--if-exists", "del-port", kBridge, ports_.at(port)});
        if (!removals.empty() && !good(configure(removals, true), "ports", database()))
            return false;
        for (const auto port : stale)
            database_.erase(port);
        if (!bridgeMade_) {
            commands.push_back({"--may-exist", "add-br", kBridge});
            commands.push_back({"set", "Bridge", kBridge, "datapath_type=netdev", "fail_mode=secure",
                                "other-config:disable-in-band=true", "protocols=OpenFlow10,OpenFlow14"});
            // A tag behind the one that tag_marks puts in front is a tag, too.
            commands.push_back({"set", "Open_vSwitch", ".", "other_config:vlan-limit=2"});
            // Room for the flow entry of unknown destinations, too.
            commands.push_back({"--id=@table", "create", "Flow_Table", "name=fdb",
                                "flow_limit=" + std::to_string(wanted.fdbCapacity + 1)});
            commands.push_back(
                {"set", "Bridge", kBridge, "flow_tables:" + std::to_string(kFdbTable) + "=@table"});
        }
        std::map<IfNum, Registered> registered;
        for (const auto &[port, settings] : wanted.ports)
            if (!database_.contains(port)) {
                commands.push_back({"--may-exist", "add-port", kBridge, settings.netdev});
                commands.push_back(
                    {"set", "Interface", settings.netdev, "ofport_request=" + std::to_string(port)});
                registered[port] = {linkOf(port).index};
                filterTries_[port] = 0;
            }
        if (commands.empty())
            return true;
        if (!database().process.running() || !good(configure(commands, false), "ports", database()))
            return false;
        bridgeMade_ = true;
        for (const auto &[port, state] : registered)
            database_[port] = state;
        return true;
    }

    Arguments openFlow(Arguments words, const Arguments &after = {}) const {
        Arguments arguments{"ovs-ofctl", "-O", "OpenFlow14"};
        arguments.insert(arguments.end(), words.begin(), words.end());
        arguments.push_back("unix:" + inFolder(folder_, kBridge) + ".mgmt");
        arguments.insert(arguments.end(), after.begin(), after.end());
        return arguments;
    }

    bool connect() {
        const auto name = std::string(kBridge) + ".mgmt";
        if (connection_.isOpen())
            return true;
        metered_.clear();
        if (connection_.open(folder_, name))
            return true;
        // Where there is a socket, somebody should be listening; and after a while there should be one. An Open
        // vSwitch of an earlier run that ends late takes the socket of this one along.
        const bool overdue = Clock::now() - forwarder().started > kSocketLimit;
        const int status = overdue || std::filesystem::exists(inFolder(folder_, name.c_str())) ? -1 : 1;
        return good({status, "", "cannot connect to " + name}, "flows", forwarder());
    }

    static FlowAges agesOf(const WireConfig &config) {
        return {inRealSeconds(config.ageTime), inRealSeconds(kArpAge)};
    }

    // All changes take effect together or not at all.
    bool pushFlows(const std::shared_ptr<const WireConfig> &config) {
        const auto begin = Clock::now();
        const auto &wanted = *config;
        std::vector<std::string> changes, lines;
        auto count = static_cast<std::ptrdiff_t>(installedCount_);
        if (installed_) {
            auto update = flowUpdate(*installed_, agesOf(*installed_), wanted, agesOf(wanted));
            changes = std::move(update.lines);
            count += update.growth;
        } else {
            const auto flows = flowsOf(wanted, agesOf(wanted));
            changes = flowChanges({}, flows);
            count = static_cast<std::ptrdiff_t>(flows.size());
            lines = flowClear();
        }
        lines.insert(lines.end(), changes.begin(), changes.end());
        lines.insert(lines.end(), forget_.begin(), forget_.end());
        if (restore_)
            addRestored(wanted, lines);
        if (const auto *before = restore_ ? readUnder_.get() : applied_.get()) {
            if (!restore_ && before->ageTime != wanted.ageTime)
                for (const auto &address : addresses_)
                    lines.push_back(learnedFlow(address, remaining(wanted.ageTime, address.age)));
            const auto stale = staleAddresses(*before, wanted);
            lines.insert(lines.end(), stale.begin(), stale.end());
            if (before->associations != wanted.associations)
                for (const auto &[key, mac] : arp_)
                    if (associationOf(*before, mac) != associationOf(wanted, mac))
                        lines.push_back(forgetArp(key));
        }
        for (const auto &[num, interface] : wanted.interfaces)
            if (metered_.insert(num).second)
                for (const auto meter : {igmpMeter(num), moveMeter(num)})
                    connection_.send(meterOf(meter, kReportsPerSecond, kReportsAtOnce));
        if (!lines.empty()) {
            const auto done =
                connection_.change(lines, kPushLimit, forwarder().process.endDescriptor(), halt_.get());
            // When it did not finish, it is unknown whether the changes were made.
            if (done.status < 0)
                installed_.reset();
            if (!good(done, "flows", forwarder()))
                return false;
        }
        restore_ = false;
        forget_.clear();
        installed_ = config;
        installedCount_ = static_cast<std::size_t>(count);
        const std::lock_guard lock(mutex_);
        status_.flows = installedCount_;
        if (!changes.empty()) {
            status_.flowChanges += changes.size();
            status_.lastFlowChanges = changes.size();
            status_.lastPushMs = std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
        }
        return true;
    }

    static VlanId associationOf(const WireConfig &config, const Mac &mac) {
        const auto it = config.associations.find(mac);
        return it == config.associations.end() ? 0 : it->second;
    }

    static std::uint32_t remaining(Duration life, Duration age) {
        return inRealSeconds(std::max(Duration(1), life - age));
    }

    // What an Open vSwitch that has ended had learned, unless the link has changed since.
    void addRestored(const WireConfig &wanted, std::vector<std::string> &lines) {
        const auto outage =
            onSwitchClock(std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - readAt_));
        const auto unchanged = [&](IfNum num) {
            const auto it = wanted.interfaces.find(num);
            return it != wanted.interfaces.end() && std::ranges::any_of(it->second.members, [&](IfNum port) {
                       return linkOf(port).carrier && linkUpSince_[port] < readAt_;
                   });
        };
        for (const auto &address : addresses_)
            if (unchanged(address.interface))
                lines.push_back(learnedFlow(address, remaining(wanted.ageTime, address.age + outage)));
        for (const auto &[key, mac] : arp_)
            if (const auto num = arpInterfaces_.at(key); unchanged(num))
                lines.push_back(learnedArpFlow(key, mac, num, remaining(kArpAge, outage)));
    }

    // --- frames that come up, frames that go down

    void handleFrames() {
        for (const auto &up : connection_.receive())
            if (up.table == kMoveTable)
                moved(up);
            else if (up.table == kIgmpTable)
                heardIgmp(up);
        for (auto it = moves_.begin(); it != moves_.end();)
            if (auto &[address, move] = *it; Clock::now() - move.done < kMovePause) {
                ++it;
            } else if (std::exchange(move.again, false)) {
                moveNow(address, move);
                ++it;
            } else {
                it = moves_.erase(it);
            }
    }

    // An address is seen behind another interface than the one where it is known.
    void moved(const PacketIn &up) {
        const auto header = taggedHeaderOf(up.frame);
        if (!header || !applied_ ||
            (!moves_.contains({header->source, header->vlan}) && moves_.size() >= kMovesMax))
            return;
        const auto [it, fresh] = moves_.try_emplace({header->source, header->vlan});
        it->second.interface = up.interface;
        it->second.again = true;
        if (fresh)
            moveNow(it->first, it->second);
    }

    void moveNow(const FdbKey &address, Move &move) {
        move.done = Clock::now();
        if (!applied_)
            return;
        const SeenAddress seen{address.mac, address.vlan, move.interface, {}};
        if (auto message = flowModOf(learnedFlow(seen, agesOf(*applied_).address)))
            connection_.send(std::move(*message));
    }

    void heardIgmp(const PacketIn &up) {
        const auto frame = parseIgmpFrame(up.frame, up.interface);
        if (!frame || !applied_)
            return;
        const auto multicast = applied_->multicast.find(frame->vlan);
        if (multicast == applied_->multicast.end())
            return;
        if (frame->kind == IgmpFrame::Kind::Membership) {
            for (const auto &[num, interface] : applied_->interfaces)
                if (num != up.interface && interface.vlans.contains(frame->vlan) &&
                    (multicast->second.floodReports ||
                     std::ranges::binary_search(multicast->second.routers, num)))
                    connection_.send(packetOutOf(up.port, {{3, 1}, {0, num}}, kDeliveryTable, up.frame));
        } else {
            connection_.send(packetOutOf(up.port, {{3, 1}, {1, up.interface}}, kDeliveryTable, up.frame));
        }
        const std::lock_guard lock(mutex_);
        auto &igmp = newView().igmp;
        if (igmp.empty())
            heard_.clear();
        // What one interface has to say leaves room for the others.
        auto &heard = heard_[up.interface];
        if (igmp.size() < kIgmpMax && heard < kIgmpMax / 4) {
            heard += frame->messages.size();
            igmp.insert(igmp.end(), frame->messages.begin(), frame->messages.end());
        }
    }

    void sendWaiting() {
        std::vector<IgmpQuery> queries;
        {
            const std::lock_guard lock(mutex_);
            queries.swap(queries_);
        }
        for (auto &query : queries) {
            // Hosts answer in real time.
            query.maxResponse = inRealTime(query.maxResponse);
            const auto frame = igmpQueryFrame(query, kQuerierMac);
            if (query.interfaces.empty())
                connection_.send(packetOutOf(kFromController, {{3, 1}}, kDeliveryTable, frame));
            for (const auto num : query.interfaces)
                connection_.send(packetOutOf(kFromController, {{3, 1}, {0, num}}, kDeliveryTable, frame));
        }
    }

    // --- 802.1X

    // The ports that the configuration wants to authenticate, as hostapd is to have them; links come later.
    void takeAuthenticatedPorts(const WireConfig &wanted) {
        authPorts_.clear();
        const auto users = hostapdUsers(wanted.access);
        for (const auto &[num, port] : wanted.ports) {
            if (!port.authentication)
                continue;
            const auto &[round, period] = *port.authentication;
            const auto seconds = period == Duration{} ? 0 : inRealSeconds(period);
            auto &known = authPorts_[num];
            known.netdev = port.netdev;
            known.round = round;
            known.config =
                hostapdConfig(port, wanted.access, wanted.systemName, seconds, Authenticator::kUsers);
            known.users = users;
        }
    }

    void authenticate() {
        std::shared_ptr<const WireConfig> wanted;
        {
            const std::lock_guard lock(mutex_);
            wanted = wanted_;
        }
        if (wanted != authWanted_)
            takeAuthenticatedPorts(*wanted);
        authWanted_ = wanted;
        if (authPorts_.empty()) {
            if (hostapd().process.running()) {
                hostapd().process.stop();
                authenticator_.disconnect();
            }
            hostapd().notBefore = {};
            authenticator_.wait({});
            authenticator_.takeChanges();  // the model has reset these ports itself
            return;
        }
        std::map<IfNum, AuthenticatedPort> linked;
        for (const auto &[num, port] : authPorts_)
            if (const auto link = linkOf(num); link.index != 0 && link.carrier) {
                auto &here = linked[num] = port;
                here.index = link.index;
                here.losses = link.losses;
            }
        if (hostapd().process.running()) {
            hostapd().process.trimOutput();
            good(authenticator_.serve(linked), "802.1X", hostapd());
        } else {
            authenticator_.wait(linked);
        }
        auto changes = authenticator_.takeChanges();
        if (changes.empty())
            return;
        const std::lock_guard lock(mutex_);
        for (auto &change : changes) {
            auto &seen = newView().supplicants[change.port];
            // A failure is told even if more has happened since.
            change.failed |= seen.failed;
            seen = std::move(change);
        }
    }

    // --- reading

    void read() {
        readEvery(nextRead_, kReadPeriod, [this] { return readAddresses(); });
        readEvery(nextNeighbours_, kNeighbourPeriod, [this] { return readNeighbours(); });
    }

    // A table so large that reading it takes long is read less often.
    template <class Reading>
    static void readEvery(Clock::time_point &next, Clock::duration period, Reading reading) {
        const auto begin = Clock::now();
        if (begin < next)
            return;
        const bool done = reading();
        next = Clock::now() + (done ? std::max(period, 10 * (Clock::now() - begin)) : period);
    }

    bool readAddresses() {
        if (!applied_ || !forwarder().process.running())
            return false;
        char filter[64];
        std::snprintf(filter, sizeof filter, "cookie=0x%llx/0x%llx",
                      static_cast<unsigned long long>(kLearnedCookie),
                      static_cast<unsigned long long>(kLearnedCookie));
        const auto dump = runTool(openFlow({"--no-names", "dump-flows"}, {filter}), folder_, kReadLimit,
                                  forwarder().process.endDescriptor(), halt_.get());
        if (!good(dump, "addresses", forwarder()))
            return false;
        auto rows = learnedRowsOf(dump.output);
        for (auto &address : rows.addresses)
            address.age = onSwitchClock(std::chrono::duration_cast<std::chrono::seconds>(address.age));
        addresses_ = rows.addresses;
        arp_ = rows.arp;
        arpInterfaces_ = std::move(rows.arpInterfaces);
        readAt_ = Clock::now();
        if (readGeneration_ != appliedGeneration_) {
            readUnder_ = applied_;
            readGeneration_ = appliedGeneration_;
        }
        const std::lock_guard lock(mutex_);
        auto &view = newView();
        view.generation = appliedGeneration_;
        view.addresses = std::move(rows.addresses);
        view.arp = std::move(rows.arp);
        return true;
    }

    bool readNeighbours() {
        if (!lldp().process.running())
            return false;
        const int end = lldp().process.endDescriptor();
        const auto lldpcli = [&](Arguments words) {
            Arguments arguments{"lldpcli", "-u", "lldp.sock", "-f", "json0", "--"};
            arguments.insert(arguments.end(), words.begin(), words.end());
            return runTool(arguments, folder_, kNeighbourLimit, end, halt_.get());
        };
        lldp().process.trimOutput();
        // Not while it is starting: it starts paused and wakes itself; a name set in between would put it to
        // sleep again.
        if (const auto name = wantedName(); name != named_ && Clock::now() - lldpSince_ > kSoon) {
            const auto done = lldpcli({"configure", "system", "hostname", name});
            // A name that it refuses once, it refuses the next time, too.
            if (done.status > 0)
                say("LLDP system name: " + firstLine(done.error));
            if (done.status >= 0 && good(lldpcli({"resume"}), "LLDP start", lldp()))
                named_ = name;
        }
        const auto shown = lldpcli({"show", "neighbors", "details"});
        const auto heard = shown.good() ? neighboursOf(shown.output, ports_) : std::nullopt;
        auto result = shown;
        if (shown.good() && !heard)
            result = {1, "", "the answer of lldpcli cannot be read"};
        if (!good(result, "LLDP neighbours", lldp()) || !heard)
            return false;
        remember(*heard);
        std::vector<SeenNeighbour> all;
        all.reserve(neighbours_.size());
        for (const auto &[key, known] : neighbours_)
            all.push_back(known.neighbour);
        const std::lock_guard lock(mutex_);
        newView().neighbours = std::move(all);
        return true;
    }

    std::string wantedName() {
        const std::lock_guard lock(mutex_);
        return wanted_ ? wanted_->systemName : std::string();
    }

    void remember(const std::vector<SeenNeighbour> &heard) {
        const auto now = Clock::now();
        for (const auto &neighbour : heard) {
            const auto &fields = neighbour.fields;
            neighbours_[{neighbour.port, fields.chassisIdSubtype, fields.chassisId, fields.portIdSubtype,
                         fields.portId}] = {neighbour, now};
        }
        std::erase_if(neighbours_, [&](const auto &item) {
            const auto &[neighbour, last] = item.second;
            if (last == now)
                return false;
            // Not heard by this lldpd: gone, unless lldpd is too young to have heard it.
            const bool mayBeThere = last < lldpSince_ && linkOf(neighbour.port).carrier &&
                                    linkUpSince_[neighbour.port] < last &&
                                    now - last < std::chrono::seconds(neighbour.fields.ttl);
            return !mayBeThere;
        });
    }

    void publishStatus() {
        const std::lock_guard lock(mutex_);
        status_.driver = "ovs";
        status_.generation = applied_ ? appliedGeneration_ : 0;
        status_.processes.clear();
        for (const auto &server : servers_)
            if (needed(server))
                status_.processes.push_back({server.process.name(),
                                             std::max(0, static_cast<int>(server.process.pid())),
                                             server.process.starts()});
    }

    struct Registered {
        int index = 0;  // of the interface known by that name
    };

    struct Failure {
        Clock::time_point since{};
        bool said = false;
    };

    struct Neighbour {
        SeenNeighbour neighbour;
        Clock::time_point last;
    };

    const PortMap ports_;
    const std::string folder_;
    LinkWatch links_;
    Descriptor wake_;
    Descriptor halt_;  // readable when the thread is to end, whatever it is waiting for
    std::atomic<bool> stop_ = false;

    mutable std::mutex mutex_;  // guards what the switch's thread and this one share
    std::shared_ptr<const WireConfig> wanted_;
    std::uint64_t wantedGeneration_ = 0;
    std::optional<WireView> view_;
    std::map<IfNum, std::size_t> heard_;  // messages in it, by interface
    std::vector<IgmpQuery> queries_;      // to be sent
    DataPlaneStatus status_;

    // From here on: used by the thread only.
    std::vector<Watched> servers_;
    std::map<std::string, Failure> failures_;
    std::map<IfNum, LinkState> seenLinks_;
    std::map<IfNum, Clock::time_point> linkUpSince_, asked_;
    const Descriptor marks_ = loadTagMarks();
    std::map<IfNum, int> filterTries_;
    OpenFlowConnection connection_;
    std::set<IfNum> metered_;  // interfaces whose meters Open vSwitch has, on this connection
    std::map<FdbKey, Move> moves_;
    std::map<IfNum, Registered> database_;  // ports in the database
    bool bridgeMade_ = false;
    std::shared_ptr<const WireConfig> applied_;
    std::uint64_t appliedGeneration_ = 0;
    std::shared_ptr<const WireConfig> installed_;  // Open vSwitch has its flow entries; null: unknown
    std::size_t installedCount_ = 0;               // how many
    std::vector<std::string> forget_;  // lines that delete learned flow entries with the next push
    bool restore_ = false;             // learned addresses are to be handed to a new Open vSwitch
    std::vector<SeenAddress> addresses_;
    std::map<ArpKey, Mac> arp_;
    std::map<ArpKey, IfNum> arpInterfaces_;
    Clock::time_point readAt_{};
    std::shared_ptr<const WireConfig>
        readUnder_;  // the configuration in effect when they were read, and its generation
    std::uint64_t readGeneration_ = 0;
    Clock::time_point retryAt_{}, nextRead_{}, nextNeighbours_{}, lldpSince_{};
    std::string description_, named_;
    Authenticator authenticator_{folder_};
    std::shared_ptr<const WireConfig> authWanted_;  // that authPorts_ are of
    std::map<IfNum, AuthenticatedPort> authPorts_;
    std::map<std::tuple<IfNum, std::uint32_t, std::string, std::uint32_t, std::string>, Neighbour>
        neighbours_;

    std::thread thread_;
};

}  // namespace

std::unique_ptr<DataPlane> startOvsDataPlane(const PortMap &ports, const std::string &folder) {
    return std::make_unique<OvsDataPlane>(ports, folder);
}

}  // namespace vswitch
