#include "detection/net_block.h"

#include <algorithm>
#include <array>
#include <functional>
#include <mutex>
#include <unordered_map>
#include <utility>
#include <vector>

#include "common/files.h"
#include "common/json.h"
#include "platform/paths.h"
#include "vlan/multicast.h"

namespace pavo {
namespace {

using platform::paths::kNetBlockPorts;
using Binding = NetBlockBinding;

// Longer than any file of ours gets.
constexpr std::size_t kFileSizeMax = 1u << 20;
constexpr std::pair<Binding, const char *> kNames[] = {{Binding::Open, "open"},
                                                       {Binding::Binding, "binding"},
                                                       {Binding::Bound, "bound"},
                                                       {Binding::Others, "others"}};
constexpr std::pair<Direction, Binding NetBlockPort::*> kDirections[] = {
    {Direction::Inbound, &NetBlockPort::inbound}, {Direction::Outbound, &NetBlockPort::outbound}};

std::string needName(const char *family, Mac mac) {
    std::string text = mac.text();
    std::ranges::transform(text, text.begin(), [](char c) {
        return static_cast<char>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);
    });
    return std::string(family) + ' ' + text;
}

Binding parseBinding(const std::optional<std::string> &text) {
    const auto *const found =
        std::ranges::find_if(kNames, [&](const auto &name) { return text == name.second; });
    return found != std::end(kNames) ? found->first : Binding::Open;
}

const char *nameOf(Binding binding) {
    return std::ranges::find(kNames, binding, &std::pair<Binding, const char *>::first)->second;
}

bool isOurs(Binding binding) {
    return binding == Binding::Binding || binding == Binding::Bound;
}

// --- needs

using Change = std::function<void(NetBlockPorts &ports)>;

// Where each need was, by its name.
std::unordered_map<std::string, IfNum> indexNeeds(const NetBlockPorts &ports) {
    std::unordered_map<std::string, IfNum> index;
    for (const auto &[ifNum, port] : ports)
        for (const std::string &need : port.needs)
            index.emplace(need, ifNum);
    return index;
}

// A device that has come needs its port blocked, whatever became of the bindings there.
void addNeed(NetBlockPort &port, const std::string &name) {
    port.needs.insert(name);
    for (const auto &[direction, member] : kDirections)
        port.*member = isOurs(port.*member) ? Binding::Binding : Binding::Open;
}

// --- the switch

// Brings the switch to where the ports are to be, step by step; each is written down so that it is known for ours
// whenever this is interrupted.
class Settler {
  public:
    Settler(Switch sw, NetBlockPorts ports, const Where &where)
        : sw_(sw), ports_(std::move(ports)), written_(ports_), where_(where) {}

    // False when the change could not be written down.
    bool run(const Change &change) {
        change(ports_);
        if (ports_.empty() && written_.empty())
            return true;
        const auto list = sw_.accessList(kNetBlock);
        if (!list && list.error() == OpenError::NoAccessList)
            forgetBindings();
        // What cannot be done now is at least known to whoever comes next.
        if (!list || !readBound(*list))
            return write();
        return settle(*list);
    }

  private:
    // Nothing is bound to a list that does not exist.
    void forgetBindings() {
        std::erase_if(ports_, [](const auto &port) { return port.second.needs.empty(); });
        for (auto &[ifNum, port] : ports_)
            port.inbound = port.outbound = Binding::Open;
    }

    bool settle(AccessListId list) {
        if (isMadeAgain())
            forgetBindings();
        for (auto &[ifNum, port] : ports_)
            if (!port.needs.empty())
                plan(ifNum, port);
        if (!write())
            return false;
        for (auto &[ifNum, port] : ports_)
            if (port.needs.empty())
                unbind(list, ifNum, port);
            else
                bind(list, ifNum, port);
        std::erase_if(ports_, [](const auto &port) {
            return port.second.needs.empty() && std::ranges::none_of(kDirections, [&](const auto &d) {
                       return isOurs(port.second.*d.second);
                   });
        });
        write();
        return true;
    }

    // Several ports had the list and none has it any more: not unbound there, but deleted and created again, or lost
    // with a switch that has started again.
    bool isMadeAgain() const {
        const auto had = std::ranges::count_if(written_, [](const auto &port) {
            return std::ranges::any_of(kDirections, [&](const auto &d) {
                const Binding binding = port.second.*d.second;
                return binding == Binding::Bound || binding == Binding::Others;
            });
        });
        return had > 1 && std::ranges::all_of(bound_, [](const auto &bound) { return bound.empty(); });
    }

    bool readBound(AccessListId list) {
        for (std::size_t i = 0; i < bound_.size(); ++i) {
            const auto bound = sw_.boundInterfaces(list, kDirections[i].first);
            if (!bound)
                return false;
            bound_[i] = std::set<IfNum>(bound->begin(), bound->end());
        }
        return true;
    }
    bool isBound(IfNum ifNum, Direction direction) const {
        return bound_[direction == Direction::Outbound ? 1 : 0].contains(ifNum);
    }

    void plan(IfNum ifNum, NetBlockPort &port) const {
        for (const auto &[direction, member] : kDirections) {
            Binding &binding = port.*member;
            if (binding == Binding::Bound || binding == Binding::Others)
                continue;
            if (!isBound(ifNum, direction))
                binding = Binding::Binding;
            else if (binding == Binding::Open)
                binding = Binding::Others;
            else
                binding = Binding::Bound;
        }
    }

    // Inbound first; the other direction only when that is done.
    void bind(AccessListId list, IfNum ifNum, NetBlockPort &port) const {
        for (const auto &[direction, member] : kDirections) {
            if (port.*member != Binding::Binding)
                continue;
            if (!sw_.bindAccessList(list, ifNum, direction))
                return;
            port.*member = Binding::Bound;
        }
    }
    void unbind(AccessListId list, IfNum ifNum, NetBlockPort &port) const {
        for (const auto &[direction, member] : kDirections) {
            if (!isOurs(port.*member))
                continue;
            // Somebody else may have been faster.
            const auto done =
                isBound(ifNum, direction) ? sw_.unbindAccessList(list, ifNum, direction) : OpenResult<>();
            if (!done && done.error() != OpenError::NotFound)
                return;
            port.*member = Binding::Open;
        }
    }

    // False (logged) when it cannot be written: then nothing may be done that would not be known afterwards.
    bool write() {
        if (ports_ == written_)
            return true;
        if (ports_.empty()) {
            removeFile(kNetBlockPorts);
        } else {
            const std::string text = printNetBlockPorts(ports_);
            if (text.empty() || !replaceFileDurably(kNetBlockPorts, text, where_))
                return false;
        }
        written_ = ports_;
        return true;
    }

    Switch sw_;
    NetBlockPorts ports_, written_;
    std::array<std::set<IfNum>, std::size(kDirections)> bound_;
    Where where_;
};

// False when the change has not been made.
bool changeNeeds(Switch sw, const Change &change, platform::Duration most, const Where &where) {
    // The threads of the families wait for each other.
    static auto *const mutex = new std::mutex;
    const std::scoped_lock turn(*mutex);
    const FileLock lock(platform::paths::kMulticastLock, FileLock::Afterwards::Keep, most, where);
    if (!lock.held())
        return false;
    const auto text =
        fileExists(kNetBlockPorts) ? readFile(kNetBlockPorts, kFileSizeMax, where) : std::string();
    return text && Settler(sw, parseNetBlockPorts(*text), where).run(change);
}

}  // namespace

bool settleNetBlock(Switch sw, const char *family, std::span<const NetBlockNeed> needs,
                    platform::Duration most, Where where) {
    if (needs.empty() && !fileExists(kNetBlockPorts))
        return true;
    const auto change = [&](NetBlockPorts &ports) {
        const auto before = indexNeeds(ports);
        for (auto &[ifNum, port] : ports)
            std::erase_if(port.needs, [&](const std::string &need) {
                return need.starts_with(std::string(family) + ' ');
            });
        for (const NetBlockNeed &need : needs) {
            const std::string name = needName(family, need.mac);
            const auto known = before.find(name);
            const IfNum last = known != before.end() ? known->second : IfNum();
            const IfNum port = need.port ? need.port : last;
            if (port && (port != last || need.isNew))
                addNeed(ports[port], name);
            else if (port)
                ports[port].needs.insert(name);
        }
    };
    return changeNeeds(sw, change, most, where);
}

void addNetBlockNeed(Switch sw, const char *family, const NetBlockNeed &need, Where where) {
    const auto change = [&](NetBlockPorts &ports) {
        for (auto &[ifNum, port] : ports)
            port.needs.erase(needName(family, need.mac));
        addNeed(ports[need.port], needName(family, need.mac));
    };
    static_cast<void>(changeNeeds(sw, change, FileLock::kWaitMax, where));
}

void removeNetBlockNeed(Switch sw, const char *family, Mac mac, Where where) {
    const auto change = [&](NetBlockPorts &ports) {
        for (auto &[ifNum, port] : ports)
            port.needs.erase(needName(family, mac));
    };
    static_cast<void>(changeNeeds(sw, change, FileLock::kWaitMax, where));
}

// --- the file

NetBlockPorts parseNetBlockPorts(const std::string &text) {
    NetBlockPorts ports;
    const JsonPtr root(cJSON_Parse(text.c_str()));
    const cJSON *const list = member(root.get(), "ports");
    const cJSON *item = nullptr;
    if (!cJSON_IsArray(list))
        return ports;
    cJSON_ArrayForEach(item, list) {
        const IfNum ifNum(static_cast<std::uint32_t>(integerMember(item, "port").value_or(0)));
        if (!PortSet::covers(ifNum))
            continue;
        NetBlockPort &port = ports[ifNum];
        port.inbound = parseBinding(stringMember(item, "in"));
        port.outbound = parseBinding(stringMember(item, "out"));
        const cJSON *const needs = member(item, "needs");
        const cJSON *need = nullptr;
        if (cJSON_IsArray(needs))
            cJSON_ArrayForEach(need, needs) if (cJSON_IsString(need)) port.needs.insert(need->valuestring);
    }
    return ports;
}

std::string printNetBlockPorts(const NetBlockPorts &ports) {
    const JsonPtr root(cJSON_CreateObject());
    cJSON *const list = cJSON_AddArrayToObject(root.get(), "ports");
    bool isWhole = list != nullptr;
    for (const auto &[ifNum, port] : ports) {
        JsonPtr item(cJSON_CreateObject());
        isWhole = isWhole && cJSON_AddNumberToObject(item.get(), "port", ifNum.number()) != nullptr &&
                  cJSON_AddStringToObject(item.get(), "in", nameOf(port.inbound)) != nullptr &&
                  cJSON_AddStringToObject(item.get(), "out", nameOf(port.outbound)) != nullptr;
        cJSON *const needs = cJSON_AddArrayToObject(item.get(), "needs");
        for (const std::string &need : port.needs)
            isWhole = isWhole && cJSON_AddItemToArray(needs, cJSON_CreateString(need.c_str()));
        isWhole = isWhole && needs != nullptr && cJSON_AddItemToArray(list, item.get());
        if (!isWhole)
            return {};
        static_cast<void>(item.release());
    }
    return isWhole ? printJson(root.get()) : std::string();
}

}  // namespace pavo
