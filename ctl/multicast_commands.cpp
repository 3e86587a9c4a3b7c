#include "ctl/multicast_commands.h"

#include <cstdint>
#include <cstdio>
#include <map>

#include "common/json.h"
#include "ctl/port_list.h"
#include "store/response_cache.h"
#include "vlan/multicast.h"
#include "vlan/multicast_ops.h"

namespace pavo::ctl {
namespace {

const std::map<std::string, MulticastMode> kModes = {{"normal", MulticastMode::Normal},
                                                     {"router", MulticastMode::Router},
                                                     {"blocked", MulticastMode::Blocked}};

void requireSuccess(std::int32_t result, const char *what) {
    if (result != codeOf(ResultCode::Success))
        throw Failure{static_cast<ResultCode>(result), what};
}

// The answer of an operation in the envelope.
template <class Operation>
void printAnswer(Switch sw, Operation operation, const char *key, const char *what) {
    char *text = nullptr;
    requireSuccess(operation(sw.handle(), &text), what);
    printEnvelope(ResultCode::Success, key, TextPtr(text).get());
}

void showModes(Switch sw, const Output &output) {
    if (output.json) {
        printAnswer(sw, buildMulticastModeJson, "multicastModeConfig", "the modes cannot be read");
        return;
    }
    const auto modes = require(readMulticastModes(sw), "the modes cannot be read");
    std::vector<Row> rows;
    const auto add = [&](const std::vector<ModeEntry> &entries, const std::string &prefix) {
        for (const ModeEntry &entry : entries)
            rows.push_back({prefix + std::to_string(entry.number),
                            entry.mode == MulticastMode::Router ? "router" : "blocked"});
    };
    add(modes.ports, "");
    add(modes.lags, "lag");
    output.printTable({"PORT", "MODE"}, rows);
}

void showDenyList(Switch sw, const Output &output) {
    if (output.json) {
        printAnswer(sw, getDenyList, "blockAddressList", "the deny list cannot be read");
        return;
    }
    std::vector<Row> rows;
    for (auto &address : require(readDenyList(sw), "the deny list cannot be read"))
        rows.push_back({std::move(address)});
    output.printTable({"DENIED"}, rows);
}

}  // namespace

void showGroups(Switch sw, const Output &output) {
    if (output.json) {
        printAnswer(sw, multicastGroupsPageGet, "multicastGroups", "the groups cannot be read");
        return;
    }
    const auto shown = require(captureGroups(sw), "the groups cannot be read");
    std::vector<Row> rows;
    forEachGroupRow(shown, [&](const GroupRow &row) {
        rows.push_back({std::to_string(row.vlan), std::string(row.group),
                        (row.onLag ? "lag" : "") + std::to_string(row.port), std::string(row.subscriber),
                        std::string(row.subscriberMac), std::string(row.type),
                        row.hasTimeout() ? std::to_string(row.timeout) : "-"});
    });
    output.printTable({"VLAN", "GROUP", "PORT", "SUBSCRIBER", "MAC ADDRESS", "TYPE", "TIMEOUT"}, rows);
}

void cacheGroups(Switch sw, const Output &output) {
    if (!createResponseCache())
        throw Failure{ResultCode::Failed, "the response cache cannot be made"};
    requireSuccess(multicastGroupsChunksBuild(sw.handle()), "the groups cannot be put into the cache");
    output.printDone("cached");
}

void runMode(Switch sw, const Output &output, const std::string &ports, const std::string &mode) {
    if (ports.empty()) {
        showModes(sw, output);
        return;
    }
    const auto found = require(Interfaces::read(sw)).find(ports);
    if (!found)
        throw Failure{ResultCode::InvalidArgument, found.error()};
    const auto lags = sw.lagNumbering();
    MulticastModes wanted;
    for (const IfNum ifNum : *found)
        if (lags && ifNum >= lags->first)
            wanted.lags.push_back({lags->numberOf(ifNum), kModes.at(mode)});
        else
            wanted.ports.push_back({ifNum.number(), kModes.at(mode)});
    require(changeMulticastModes(sw, wanted));
    output.printDone("set");
}

void runDeny(Switch sw, const Output &output, const std::vector<std::string> &addresses, bool clear) {
    if (addresses.empty() && !clear) {
        showDenyList(sw, output);
        return;
    }
    require(changeDenyList(sw, addresses));
    output.printDone("set");
}

}  // namespace pavo::ctl
