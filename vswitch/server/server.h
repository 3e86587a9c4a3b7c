// The virtual switch OS as one object: the model, its CLI, the calls, and what a test or an operator may do
// to it from outside. It answers requests as bytes, so that the socket server and the in-process form serve
// exactly the same thing. One caller at a time.
#ifndef PAVO_VSWITCH_SERVER_SERVER_H
#define PAVO_VSWITCH_SERVER_SERVER_H

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "vswitch/cli/cli.h"
#include "vswitch/dataplane/wire_config.h"
#include "vswitch/model/model.h"
#include "vswitch/server/calls.h"

namespace vswitch {

// What a fault does to the process that made the call: nothing, or SIGKILL before the call is carried out, or
// after it and before the reply.
enum class KillCaller : std::uint8_t { No, Before, After };

// A call that is made to fail: the `nth` matching call from now (1 is the next) and, unless `once`, all after
// it. One that kills the caller strikes once in any case and returns no code.
struct Fault {
    std::string call;  // name, or "*" for any OpEN call
    std::uint64_t nth = 1;
    open_error_t code = OPEN_E_FAIL;
    bool once = false;
    std::uint64_t seen = 0;  // matching calls so far; below `nth`, it has not struck
    KillCaller kill = KillCaller::No;
    std::string process{};  // process id or name of the callers that count; empty: all
};

class Server {
  public:
    explicit Server(ModelConfig config = {});

    // Answers one request in the wire format, which came from process `caller` (0: unknown). False when it is
    // malformed or the caller was killed by a fault: there is no reply then.
    bool handle(const char *request, std::size_t size, std::string &reply, pid_t caller = 0);

    // Answers one control request (see control.h).
    std::string control(const std::string &json);

    // Brings the switch up to the current time of the program's clock.
    void tick();

    // Lets a data plane forward for its ports from now on. Throws std::invalid_argument when it has ports
    // that the switch does not have.
    void attach(std::unique_ptr<DataPlane> dataPlane);
    DataPlane *dataPlane() { return dataPlane_.get(); }
    // Passes configuration changes to the data plane and takes over what it has seen; to be called often.
    void exchangeWithDataPlane();
    // False while a change of the configuration has not reached the wire.
    bool settled() const;

    // Whoever asks for these may change the configuration.
    Model &model() {
        touched_ = changed_ = true;
        return model_;
    }
    Cli &cli() {
        touched_ = changed_ = true;
        return cli_;
    }
    const Model &model() const { return model_; }

    // Whether the configuration may have changed since the last time this was asked; calls that only read do
    // not change it.
    bool takeChange() { return std::exchange(changed_, false); }

    void addFault(Fault fault) { faults_.push_back(std::move(fault)); }
    void clearFaults() { faults_.clear(); }
    const std::vector<Fault> &faults() const { return faults_; }
    // Runs in the place of SIGKILL to the caller, for a test whose process is the caller itself.
    using Killer = std::function<void(Server &, pid_t caller)>;
    void setKiller(Killer killer) { killer_ = std::move(killer); }

    // OpEN calls answered since the last reset, by name and in total.
    const std::map<std::string, std::uint64_t, std::less<>> &callCounts() const { return counts_; }
    std::uint64_t callTotal() const { return total_; }
    void resetCounts();

  private:
    // What the faults do to one call.
    struct Strike {
        open_error_t code = OPEN_E_NONE;
        KillCaller kill = KillCaller::No;
    };
    Strike strikeOf(std::string_view call, pid_t caller);
    void pushChanges();

    Model model_;
    Cli cli_;
    Calls calls_;
    std::vector<Fault> faults_;
    Killer killer_;
    std::map<std::string, std::uint64_t, std::less<>> counts_;
    std::uint64_t total_ = 0;
    std::unique_ptr<DataPlane> dataPlane_;
    PortMap livePorts_;
    WireConfig pushed_;
    Duration countersRead_{};  // up time at which the wires' counters were last read
    bool touched_ = true;      // the configuration may differ from pushed_
    bool changed_ = true;      // see takeChange()
    std::uint64_t generation_ = 0;
    std::map<std::string, CliSession> sessions_;  // of the control request "cli"
};

}  // namespace vswitch

#endif
