#include "vswitch/server/server.h"

#include <csignal>
#include <fstream>
#include <msgpack.hpp>
#include <stdexcept>
#include <string>
#include <tuple>
#include <unordered_map>
#include <utility>

#include "platform/clock.h"
#include "vswitch/dataplane/port_counters.h"
#include "vswitch/rpc/kinds.h"
#include "vswitch/rpc/wire.h"
#include "vswitch/server/control.h"

namespace vswitch {
namespace {

using rpc::Packer;
using Arguments = msgpack::object_array;
using Dispatch = void (*)(Calls &, const Arguments &, Packer &);

// The longest argument list is [name, five arguments], one of them a pair; anything longer is not looked at,
// so that a few bytes cannot make the switch allocate much.
const msgpack::unpack_limit kLimits(8, 0, rpc::kFrameMax, rpc::kFrameMax, 0, 2);

// Runs one handler: takes its arguments from the request and packs code and results.
template <auto Handler, class... Kinds>
void dispatch(Calls &calls, const Arguments &request, Packer &packer) {
    std::tuple<typename Kinds::State...> states;
    constexpr std::size_t kIn = (0 + ... + (Kinds::kGoesIn ? 1 : 0));
    constexpr std::size_t kOut = (0 + ... + (Kinds::kComesOut ? 1 : 0));
    if (request.size != kIn + 1)
        throw msgpack::type_error();
    std::apply(
        [&](auto &...state) {
            [[maybe_unused]] std::size_t next = 1;
            ((Kinds::kGoesIn ? state.unpack(request.ptr[next++]) : void()), ...);
            const open_error_t code = (calls.*Handler)(state.argument()...);
            packer.pack_array(static_cast<std::uint32_t>(1 + (code == OPEN_E_NONE ? kOut : 0)));
            packer.pack(code);
            if (code == OPEN_E_NONE)
                (Kinds::packResult(packer, state), ...);
        },
        states);
}

const std::unordered_map<std::string_view, Dispatch> &table() {
    using namespace rpc;
    static const std::unordered_map<std::string_view, Dispatch> rows = {
#define OPEN_PARAMETER(Kind, argument)
#define OPEN_ROW(name, ...) {#name, &dispatch<&Calls::name __VA_OPT__(, ) __VA_ARGS__>},
#define OPEN_CALL(name, parameters, kinds, arguments) OPEN_ROW(name, kinds)
#include "vswitch/rpc/expand.h"
    };
    return rows;
}

// As the names of the calls have it; a call that does not say so may change the configuration.
bool onlyReads(std::string_view call) {
    return call.ends_with("Get") || call.ends_with("Check") || call.ends_with("IsStatic") ||
           call.ends_with("ShowExecuteToFile");
}

// Whether `wanted`, a process id or a name as the kernel keeps it, means this process; empty means any.
bool isProcess(pid_t pid, const std::string &wanted) {
    if (wanted.empty() || wanted == std::to_string(pid))
        return true;
    std::ifstream in("/proc/" + std::to_string(pid) + "/comm");
    std::string name;
    return std::getline(in, name) && name == wanted;
}

}  // namespace

Server::Server(ModelConfig config) : model_(std::move(config)), cli_(model_), calls_(model_, cli_) {
    tick();
    model_.log(6, "BSP", "init",
               "Switch started, " + model_.system().machineModel + " version " + model_.system().osVersion);
}

void Server::tick() {
    model_.advanceTo(platform::monotonicNow(), platform::wallNow());
}

void Server::attach(std::unique_ptr<DataPlane> dataPlane) {
    livePorts_ = dataPlane->ports();
    for (const auto &[port, netdev] : livePorts_)
        if (model_.setLive(port) != OPEN_E_NONE)
            throw std::invalid_argument("no port 0/" + std::to_string(port) + " for " + netdev);
    dataPlane_ = std::move(dataPlane);
    seeWires(model_, livePorts_);
    pushed_ = wireConfigOf(model_, livePorts_);
    dataPlane_->push(pushed_, ++generation_);
}

void Server::pushChanges() {
    // Accepted changes take effect as time passes.
    const bool pending = model_.changesPending();
    if (!std::exchange(touched_, pending))
        return;
    if (auto wanted = wireConfigOf(model_, livePorts_); wanted != pushed_) {
        pushed_ = std::move(wanted);
        dataPlane_->push(pushed_, ++generation_);
    }
}

void Server::exchangeWithDataPlane() {
    if (!dataPlane_)
        return;
    pushChanges();
    if (const auto view = dataPlane_->collect()) {
        putIntoModel(model_, *view, generation_);
        // A group that somebody has joined or left does not wait for the next round.
        touched_ = true;
        pushChanges();
    }
    if (model_.upTime() - countersRead_ >= std::chrono::seconds(1)) {
        countersRead_ = model_.upTime();
        seeWires(model_, livePorts_);
    }
    if (const auto queries = model_.takeIgmpQueries(); !queries.empty())
        dataPlane_->sendQueries(queries);
}

bool Server::settled() const {
    return !dataPlane_ ||
           (dataPlane_->status().generation == generation_ && wireConfigOf(model_, livePorts_) == pushed_);
}

Server::Strike Server::strikeOf(std::string_view call, pid_t caller) {
    Strike strike;
    for (auto &fault : faults_) {
        if ((fault.call != "*" && fault.call != call) || !isProcess(caller, fault.process))
            continue;
        ++fault.seen;
        const bool kills = fault.kill != KillCaller::No;
        if (fault.seen < fault.nth || (fault.seen > fault.nth && (fault.once || kills)))
            continue;
        if (kills)
            strike.kill = fault.kill;
        else
            strike.code = fault.code;
    }
    return strike;
}

bool Server::handle(const char *request, std::size_t size, std::string &reply, pid_t caller) try {
    std::size_t used = 0;
    msgpack::zone zone;
    const auto root = msgpack::unpack(zone, request, size, used, nullptr, nullptr, kLimits);
    if (used != size || root.type != msgpack::type::ARRAY || root.via.array.size == 0 ||
        root.via.array.ptr[0].type != msgpack::type::STR)
        return false;
    const auto &arguments = root.via.array;
    const std::string_view name(arguments.ptr[0].via.str.ptr, arguments.ptr[0].via.str.size);

    tick();
    touched_ = true;
    msgpack::sbuffer buffer;
    Packer packer(buffer);
    if (name == rpc::kControlCall && arguments.size == 2) {
        packer.pack_array(2);
        packer.pack(std::int32_t{OPEN_E_NONE});
        packer.pack(control(arguments.ptr[1].as<std::string>()));
    } else if (name == rpc::kLogCall && arguments.size == 5) {
        model_.log(arguments.ptr[1].as<int>(), arguments.ptr[2].as<std::string>(),
                   arguments.ptr[3].as<std::string>(), arguments.ptr[4].as<std::string>());
        packer.pack_array(1);
        packer.pack(std::int32_t{OPEN_E_NONE});
    } else {
        const auto row = table().find(name);
        if (row == table().end())
            return false;
        ++total_;
        const auto counted = counts_.find(name);
        if (counted == counts_.end())
            counts_.emplace(name, 1);
        else
            ++counted->second;
        changed_ = changed_ || !onlyReads(name);
        const auto strike = strikeOf(name, caller);
        if (strike.code != OPEN_E_NONE) {
            packer.pack_array(1);
            packer.pack(strike.code);
        } else if (strike.kill != KillCaller::Before) {
            row->second(calls_, arguments, packer);
        }
        if (strike.kill != KillCaller::No) {
            if (killer_)
                killer_(*this, caller);
            else if (caller > 0)
                ::kill(caller, SIGKILL);
            return false;
        }
    }
    reply.assign(buffer.data(), buffer.size());
    return true;
} catch (const std::exception &) {
    // Not MessagePack, arguments of the wrong type, or more than fits into memory.
    return false;
}

void Server::resetCounts() {
    counts_.clear();
    total_ = 0;
}

std::string Server::control(const std::string &json) {
    return runControl(*this, sessions_, json);
}

}  // namespace vswitch
