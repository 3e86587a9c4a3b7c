#include "ctl/neighbour_commands.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <string_view>

#include "common/text.h"
#include "ctl/neighbour_changes.h"
#include "platform/clock.h"
#include "web/neighbours.h"
#include "web/neighbours_ops.h"

namespace pavo::ctl {
namespace {

constexpr const char *kCannotRead = "the neighbours cannot be read";

// By port, devices heard by LLDP first.
Result<std::vector<SeenNeighbour>> readSeen(Switch sw) {
    std::vector<SeenNeighbour> seen;
    NeighbourTiming timing;
    const auto add = [&](const NeighbourLine &line) {
        const std::string vendor(vendorTable().vendorOf(line.mac));
        const bool byLldp = line.source == NeighbourSource::Lldp;
        const bool hasName = byLldp && line.hostName != vendor;
        seen.push_back({line.interface, line.port->name, line.vlan, byLldp,
                        std::string(hasName ? line.hostName : ""), vendor, std::string(line.ip),
                        std::string(line.mac), std::string(line.remotePortId)});
    };
    if (auto read = readNeighbours(sw, vendorTable(), add, timing); !read)
        return std::unexpected(std::move(read).error());
    std::ranges::stable_sort(seen, {}, &SeenNeighbour::interface);
    return seen;
}

// A string from the network for a terminal; what is longer than a column is cut.
std::string shown(const std::string &text) {
    constexpr std::size_t kMost = 48;
    const auto out = text.empty() ? "-" : printable(validUtf8(text));
    return out.size() > kMost ? cutToBytes(out, kMost - 3) + "..." : out;
}

Row rowOf(const SeenNeighbour &neighbour) {
    return {shown(neighbour.portName),     std::to_string(neighbour.vlan),
            shown(neighbour.name),         shown(neighbour.vendor),
            shown(neighbour.mac),          shown(neighbour.ip),
            shown(neighbour.remotePortId), neighbour.byLldp ? "LLDP" : "forwarding table"};
}

std::string timeOfDay() {
    const std::timespec now = platform::wallNow();
    std::tm parts{};
    localtime_r(&now.tv_sec, &parts);
    char text[sizeof "hh:mm:ss"];
    return {text, std::strftime(text, sizeof text, "%H:%M:%S", &parts)};
}

constexpr const char *wordOf(NeighbourChange::Kind kind) {
    switch (kind) {
        case NeighbourChange::Kind::Joined:
            return "joined";
        case NeighbourChange::Kind::Left:
            return "left";
        case NeighbourChange::Kind::Moved:
            return "moved";
        case NeighbourChange::Kind::Named:
            break;
    }
    return "named";
}

void printChange(const NeighbourChange &change) {
    const SeenNeighbour &who = change.neighbour;
    const std::string from = change.from.empty() ? "" : " from " + shown(change.from);
    std::string names;
    for (const auto *const text : {&who.name, &who.vendor, &who.ip})
        names += text->empty() ? "" : "  " + shown(*text);
    std::printf("%s  %-6s  %s%s  %s%s\n", timeOfDay().c_str(), wordOf(change.kind),
                shown(who.portName).c_str(), from.c_str(), shown(who.mac).c_str(), names.c_str());
}

void printChangeJson(const NeighbourChange &change) {
    const SeenNeighbour &who = change.neighbour;
    std::string line = "{\"change\":\"" + std::string(wordOf(change.kind)) + "\"";
    const auto add = [&](const char *key, std::string_view value) {
        line += ",\"" + std::string(key) + "\":\"";
        appendEscaped(line, value);
        line += '"';
    };
    add("portName", who.portName);
    if (change.kind == NeighbourChange::Kind::Moved)
        add("from", change.from);
    line += ",\"vlanId\":" + std::to_string(who.vlan);
    add("name", who.name);
    add("vendor", who.vendor);
    add("hostIpAddress", who.ip);
    add("hostMacAddress", who.mac);
    add("remotePortId", who.remotePortId);
    add("source", who.byLldp ? "lldp" : "arp");
    std::puts((line + "}").c_str());
}

// Pipes and terminals tell so before anything is written to them.
bool isOutputClosed() {
    pollfd out{STDOUT_FILENO, 0, 0};
    return poll(&out, 1, 0) > 0;
}

void follow(Switch sw, const Output &output, std::vector<SeenNeighbour> seen, std::uint32_t seconds) {
    bool readable = true;
    while (!isOutputClosed() && std::fflush(stdout) == 0) {
        platform::sleepFor(std::chrono::seconds(seconds));
        auto now = readSeen(sw);
        if (!now) {
            if (readable)
                std::fprintf(stderr, "pavoctl: %s\n", printable(messageOf(now.error())).c_str());
            readable = false;
            continue;
        }
        readable = true;
        for (const auto &change : changesOf(seen, *now))
            output.json ? printChangeJson(change) : printChange(change);
        seen = std::move(*now);
    }
}

void printPage(Switch sw) {
    char *page = nullptr;
    if (const std::int32_t code = neighborPageGet(sw.handle(), &page); code != 0)
        throw Failure{static_cast<ResultCode>(code), kCannotRead};
    printEnvelope(ResultCode::Success, "lldpRemoteDevice", TextPtr(page).get());
}

}  // namespace

void showNeighbours(Switch sw, const Output &output, const FollowOptions &options) {
    if (output.json && !options.follow)
        return printPage(sw);
    auto seen = require(readSeen(sw), kCannotRead);
    if (!output.json) {
        std::vector<Row> rows;
        rows.reserve(seen.size());
        for (const auto &neighbour : seen)
            rows.push_back(rowOf(neighbour));
        output.printTable(
            {"PORT", "VLAN", "NAME", "VENDOR", "MAC ADDRESS", "IP ADDRESS", "REMOTE PORT", "BY"}, rows);
    }
    if (options.follow)
        follow(sw, output, std::move(seen), options.seconds);
}

}  // namespace pavo::ctl
