// Counters, transceivers, LAG hashing, LAGs and trunks that the switch makes itself, port mirroring.
#include <algorithm>
#include <cinttypes>
#include <iterator>

#include "vswitch/cli/command.h"

namespace vswitch::cli {
namespace {

// --- counters

bool clearCounters(Context &c, const Values &v) {
    for (const auto &[num, interface] : c.model.interfaces())
        if (!interface.isLag() && (v.empty() || v[0].number == num))
            c.model.clearCounters(num);
    return true;
}

bool showCounters(Context &c, const Values &) {
    c.out +=
        "Port       Octets In            Octets Out           Packets In       Packets Out      Errors In  "
        "Errors Out Discards In Discards Out\n";
    c.out +=
        "---------- -------------------- -------------------- ---------------- ---------------- ---------- "
        "---------- ----------- ------------\n";
    for (const auto &[num, interface] : c.model.interfaces()) {
        const auto n = c.model.counters(num);
        c.out += format("%-10s %-20" PRIu64 " %-20" PRIu64 " %-16" PRIu64 " %-16" PRIu64 " %-10" PRIu64
                        " %-10" PRIu64 " %-11" PRIu64 " %" PRIu64 "\n",
                        interface.name().c_str(), n.inOctets, n.outOctets, n.inPackets, n.outPackets,
                        n.inErrors, n.outErrors, n.inDiscards, n.outDiscards);
    }
    return true;
}

// --- speed and error state

std::string speedText(const std::optional<PortSpeed> &speed) {
    if (!speed || speed->mbps == 0)
        return speed ? "Unknown" : "";
    return std::to_string(speed->mbps) + (speed->duplex == OPEN_DUPLEX_HALF ? " Half" : " Full");
}

bool showPortStatus(Context &c, const Values &) {
    c.out += "Port       Media    Configured        Actual       Link  Error-Disabled\n";
    c.out += "---------- -------- ----------------- ------------ ----- --------------\n";
    for (const auto &[num, i] : c.model.interfaces())
        c.out += format("%-10s %-8s %-17s %-12s %-5s %s\n", i.name().c_str(),
                        i.isLag()   ? ""
                        : i.hasCage ? "SFP"
                                    : "Copper",
                        i.isLag() ? "" : i.speed.c_str(), speedText(c.model.linkSpeed(num)).c_str(),
                        i.linkUp ? "Up" : "Down",
                        i.errorDisabled == OPEN_ERROR_DISABLE_NONE ? "" : errorReasonWord(i.errorDisabled));
    return true;
}

// --- transceivers

// Strings of a transceiver may hold anything; a table still has one line per row.
std::string cell(std::string text) {
    std::ranges::replace_if(
        text, [](char ch) { return static_cast<unsigned char>(ch) < 0x20 || ch == 0x7f; }, '.');
    return text;
}

bool showOptics(Context &c, const Values &) {
    c.out +=
        "                                                              Temp     Voltage  Bias     Output    "
        "Input\n";
    c.out +=
        "Port       Vendor           Part Number      Serial Number    [C]      [V]      [mA]     [mW]      "
        "[mW]\n";
    c.out +=
        "---------- ---------------- ---------------- ---------------- -------- -------- -------- --------- "
        "---------\n";
    for (const auto &[num, i] : c.model.interfaces()) {
        const auto module = c.model.sfp(num);
        if (!module)
            continue;
        c.out += format("%-10s %-16s %-16s %-16s", i.name().c_str(), cell(module->vendor).c_str(),
                        cell(module->partNumber).c_str(), cell(module->serial).c_str());
        if (const auto &d = module->diagnostics)
            c.out += format(" %-8.1f %-8.3f %-8.3f %-9.4f %.4f", d->temperature / 1000.0, d->voltage / 1000.0,
                            d->bias / 1000.0, d->txPower / 10000.0, d->rxPower / 10000.0);
        c.out += "\n";
    }
    return true;
}

// --- LAGs that choose and LAGs that come by themselves

bool setHashMode(Context &c, std::uint32_t mode) {
    return eachInterface(c, [&](Interface &i) {
        if (!i.isLag())
            return c.refuse("Not available on a physical port.");
        i.lagHashMode = mode;
        return true;
    });
}

void emitAutoLag(const Model &model, const Interface *, std::string &out) {
    const auto &f = model.features();
    out += f.autoLag ? "port-channel auto\n" : "";
    if (f.autoLagHashMode != kLagHashModeDefault)
        out += format("port-channel auto load-balance %u\n", f.autoLagHashMode);
}

bool showAutoLag(Context &c, const Values &) {
    const auto &f = c.model.features();
    c.out += format("Auto-LAG Mode..................... %s\n", f.autoLag ? "Enable" : "Disable");
    c.out += format("Auto-LAG Load Balance............. %u\n", f.autoLagHashMode);
    c.out += format("Auto-Trunk Mode................... %s\n", f.switchportModeAuto ? "Enable" : "Disable");
    return true;
}

// --- mirroring

constexpr const char *kDirections[] = {"", "rx", "tx", "both"};

std::uint32_t directionOf(const std::string &word) {
    return static_cast<std::uint32_t>(std::ranges::find(kDirections, word) - std::begin(kDirections));
}

bool addSource(Context &c, const Values &v) {
    // What may follow the session: "lag" or "port-channel", the interface, a direction.
    const bool lag = v.size() > 1 && v[1].number == 0;
    const std::size_t at = lag ? 2 : 1;
    const std::uint32_t direction =
        v.size() > at + 1 ? directionOf(v[at + 1].text) : std::uint32_t{OPEN_MIRROR_BOTH};
    return c.accept(c.model.addMirrorSource(v[0].number, v[at].number, direction));
}

bool removeSource(Context &c, const Values &v) {
    return c.accept(c.model.removeMirrorSource(v[0].number, v.back().number));
}

bool setDestination(Context &c, const Values &v) {
    return c.accept(c.model.setMirrorDestination(v[0].number, v.size() > 1 ? v[1].number : 0));
}

void emitMirrors(const Model &model, const Interface *, std::string &out) {
    for (const auto &[number, session] : model.mirrorSessions()) {
        const auto head = format("monitor session %u ", number);
        for (const auto &[ifNum, direction] : session.sources)
            out += head + "source interface " + model.interface(ifNum)->name() +
                   (direction == OPEN_MIRROR_BOTH ? "" : std::string(" ") + kDirections[direction]) + "\n";
        if (session.destination != 0)
            out += head + "destination interface " + model.interface(session.destination)->name() + "\n";
        out += session.enabled ? head + "mode\n" : "";
    }
}

bool showMirror(Context &c, const Values &v) {
    c.out += "Session  Admin    Destination  Source      Direction\n";
    c.out += "-------  -------  -----------  ----------  ---------\n";
    const auto it = c.model.mirrorSessions().find(v[0].number);
    const auto session = it == c.model.mirrorSessions().end() ? MirrorSession{} : it->second;
    auto first =
        format("%-7u  %-7s  %-11s", v[0].number, session.enabled ? "Enable" : "Disable",
               session.destination != 0 ? c.model.interface(session.destination)->name().c_str() : "");
    for (const auto &[ifNum, direction] : session.sources) {
        c.out += format("%-29s  %-10s  %s\n", first.c_str(), c.model.interface(ifNum)->name().c_str(),
                        kDirections[direction]);
        first.clear();
    }
    if (session.sources.empty())
        c.out += first + "\n";
    return true;
}

const Command kPorts[] = {
    {kExec, "clear counters", "Count from zero on all ports", clearCounters},
    {kExec, "clear counters <port>", "Count from zero on one port", clearCounters},
    {kConfig, "port-channel auto", "Aggregate links to the same neighbour by itself",
     [](Context &c, const Values &) {
         c.model.features().autoLag = true;
         return true;
     },
     emitAutoLag},
    {kConfig, "no port-channel auto", "Aggregate only what is configured",
     [](Context &c, const Values &) {
         c.model.features().autoLag = false;
         return true;
     }},
    {kConfig, "port-channel auto load-balance <int:1-6>", "Choose what such a group balances the load by",
     [](Context &c, const Values &v) {
         c.model.features().autoLagHashMode = v[0].number;
         return true;
     }},
    {kConfig, "no port-channel auto load-balance", "Balance by source and destination MAC address",
     [](Context &c, const Values &) {
         c.model.features().autoLagHashMode = kLagHashModeDefault;
         return true;
     }},
    {kConfig, "monitor session <int:1-4> source interface <port>", "Copy what a port receives and sends",
     addSource, emitMirrors},
    {kConfig, "monitor session <int:1-4> source interface <port> rx|tx|both",
     "Copy what a port receives or sends", addSource},
    {kConfig, "monitor session <int:1-4> source interface lag|port-channel <lag>",
     "Copy what a link aggregation group receives and sends", addSource},
    {kConfig, "monitor session <int:1-4> source interface lag|port-channel <lag> rx|tx|both",
     "Copy what a link aggregation group receives or sends", addSource},
    {kConfig, "no monitor session <int:1-4> source interface <port>", "Do not copy a port", removeSource},
    {kConfig, "no monitor session <int:1-4> source interface lag|port-channel <lag>",
     "Do not copy a link aggregation group", removeSource},
    {kConfig, "monitor session <int:1-4> destination interface <port>", "Send the copies to a port",
     setDestination},
    {kConfig, "no monitor session <int:1-4> destination interface", "Send the copies nowhere",
     setDestination},
    {kConfig, "monitor session <int:1-4> mode", "Switch a mirror session on",
     [](Context &c, const Values &v) { return c.accept(c.model.setMirrorMode(v[0].number, true)); }},
    {kConfig, "no monitor session <int:1-4> mode", "Switch a mirror session off",
     [](Context &c, const Values &v) { return c.accept(c.model.setMirrorMode(v[0].number, false)); }},
    {kConfig, "no monitor session <int:1-4>", "Remove a mirror session",
     [](Context &c, const Values &v) { return c.accept(c.model.deleteMirrorSession(v[0].number)); }},
    {kInterface, "port-channel load-balance <int:1-6>", "Choose what the group balances the load by",
     [](Context &c, const Values &v) { return setHashMode(c, v[0].number); },
     [](const Model &, const Interface *i, std::string &out) {
         if (i->isLag() && i->lagHashMode != kLagHashModeDefault)
             out += format("port-channel load-balance %u\n", i->lagHashMode);
     }},
    {kInterface, "no port-channel load-balance", "Balance by source and destination MAC address",
     [](Context &c, const Values &) { return setHashMode(c, kLagHashModeDefault); }},
    {kAnyMode, "show interface counters", "What the interfaces have counted", showCounters},
    {kAnyMode, "show port status all", "Medium, speed and error state of all ports", showPortStatus},
    {kAnyMode, "show fiber-ports optics all", "Transceivers and what they measure", showOptics},
    {kAnyMode, "show auto-lag", "What the switch aggregates and trunks by itself", showAutoLag},
    {kAnyMode, "show monitor session <int:1-4>", "One mirror session", showMirror},
};

}  // namespace

std::span<const Command> portCommands() {
    return kPorts;
}

}  // namespace vswitch::cli
