// Commands that change the configuration, topic by topic.
#include <algorithm>

#include "vswitch/cli/command.h"

namespace vswitch::cli {
namespace {

bool enterInterfaces(Context &context, std::vector<IfNum> interfaces) {
    context.session.interfaces = std::move(interfaces);
    return enterInterfaceMode(context, CliMode::Interface);
}

template <class Change>
bool eachPort(Context &context, Change change) {
    return eachInterface(context, [&](Interface &interface) {
        if (interface.isLag())
            return context.refuse("Not available on a port-channel.");
        change(interface);
        return true;
    });
}

bool setSpeed(Context &context, const std::string &speed) {
    return eachPort(context, [&](Interface &interface) { context.model.setSpeed(interface.num, speed); });
}

template <class Change>
bool eachLag(Context &context, Change change) {
    return eachInterface(context, [&](Interface &interface) {
        if (!interface.isLag())
            return context.refuse("Not available on a physical port.");
        change(interface);
        return true;
    });
}

// A list of VLANs is accepted as a whole or not at all.
bool allExist(Context &context, const std::vector<VlanId> &vlans) {
    return std::all_of(vlans.begin(), vlans.end(), [&](VlanId id) {
        return context.accept(context.model.hasVlan(id) ? OPEN_E_NONE : OPEN_E_NOT_FOUND);
    });
}

template <class Change>
bool eachInterfaceAndVlan(Context &context, const std::vector<VlanId> &vlans, Change change) {
    if (!allExist(context, vlans))
        return false;
    return eachInterface(context, [&](Interface &interface) {
        return std::all_of(vlans.begin(), vlans.end(),
                           [&](VlanId id) { return context.accept(change(interface.num, id)); });
    });
}

// --- session

const Command kSession[] = {
    {kUserExec | kExec, "enable", "Enter privileged mode",
     [](Context &c, const Values &) {
         if (!c.session.mayEnable)
             return c.refuse("Access denied: the user has no right to configure.");
         return c.session.mode() == CliMode::Exec || enter(c, CliMode::Exec);
     }},
    {kExec, "disable", "Leave privileged mode",
     [](Context &c, const Values &) {
         if (c.session.modes.size() > 1)
             c.session.modes.pop_back();
         return true;
     }},
    {kUserExec | kExec, "logout", "Log out",
     [](Context &c, const Values &) {
         c.session.loggedOut = true;
         return true;
     }},
    {kExec, "configure", "Enter global configuration mode",
     [](Context &c, const Values &) { return enter(c, CliMode::Config); }},
    {kExec | kConfig, "vlan database", "Enter VLAN configuration mode",
     [](Context &c, const Values &) { return enter(c, CliMode::VlanDatabase); }},
    {kAnyMode, "exit", "Leave this mode",
     [](Context &c, const Values &) {
         if (c.session.modes.size() > 1)
             c.session.modes.pop_back();
         else
             c.session.loggedOut = c.session.mode() == CliMode::UserExec;
         return true;
     }},
    {kPrivileged, "end", "Return to privileged mode",
     [](Context &c, const Values &) {
         while (c.session.mode() != CliMode::Exec)
             c.session.modes.pop_back();
         return true;
     }},
    {kExec, "clear mac-addr-table all", "Forget the learned addresses",
     [](Context &c, const Values &) {
         c.model.clearFdb();
         return true;
     }},
    {kExec, "clear logging buffered", "Empty the log buffer",
     [](Context &c, const Values &) {
         c.model.clearLog();
         return true;
     }},
    {kInterfaceEntry, "interface <ports>", "Configure physical ports",
     [](Context &c, const Values &v) { return enterInterfaces(c, v[0].numbers); }},
    {kInterfaceEntry, "interface lag|port-channel <lag>", "Configure a link aggregation group",
     [](Context &c, const Values &v) { return enterInterfaces(c, {v[1].number}); }},
};

// --- VLAN database

void emitVlans(const Model &model, const Interface *, std::string &out) {
    std::vector<std::uint32_t> ids;
    for (const auto &[id, vlan] : model.vlans())
        if (id != kDefaultVlan && vlan.isStatic)
            ids.push_back(id);
    if (!ids.empty())
        out += "vlan " + rangeText(ids) + "\n";
}

void emitVlanNames(const Model &model, const Interface *, std::string &out) {
    for (const auto &[id, vlan] : model.vlans())
        if (vlan.name != Model::defaultVlanName(id))
            out += "vlan name " + std::to_string(id) + " " + quoted(vlan.name) + "\n";
}

void emitAssociations(const Model &model, const Interface *, std::string &out) {
    for (const auto &[mac, id] : model.macAssociations())
        out += "vlan association mac " + mac.text() + " " + std::to_string(id) + "\n";
}

const Command kVlan[] = {
    {kVlanDatabase, "vlan <vlans>", "Create VLANs",
     [](Context &c, const Values &v) {
         return std::all_of(v[0].numbers.begin(), v[0].numbers.end(),
                            [&](VlanId id) { return c.accept(c.model.createVlan(id)); });
     },
     emitVlans},
    {kVlanDatabase, "no vlan <vlans>", "Delete VLANs",
     [](Context &c, const Values &v) {
         if (v[0].numbers.front() == kDefaultVlan)
             return c.refuse("VLAN 1 cannot be deleted.");
         return allExist(c, v[0].numbers) &&
                std::all_of(v[0].numbers.begin(), v[0].numbers.end(),
                            [&](VlanId id) { return c.accept(c.model.deleteVlan(id)); });
     }},
    {kVlanDatabase, "vlan name <vlan> <text>", "Name a VLAN",
     [](Context &c, const Values &v) {
         if (v[1].text.size() > kVlanNameMax)
             return c.refuse("A VLAN name has at most 32 characters.");
         return c.accept(c.model.nameVlan(v[0].number, v[1].text));
     },
     emitVlanNames},
    {kVlanDatabase, "no vlan name <vlan>", "Give a VLAN its default name",
     [](Context &c, const Values &v) { return c.accept(c.model.nameVlan(v[0].number, "")); }},
    {kVlanDatabase, "vlan makestatic <vlan>", "Keep a VLAN that was learned",
     [](Context &c, const Values &v) { return c.accept(c.model.makeVlanStatic(v[0].number)); }},
    {kVlanDatabase, "vlan association mac <mac> <vlan>", "Put a MAC address's untagged frames into a VLAN",
     [](Context &c, const Values &v) { return c.accept(c.model.associateMac(v[0].mac, v[1].number)); },
     emitAssociations},
    {kVlanDatabase, "no vlan association mac <mac>", "Remove a MAC address's VLAN",
     [](Context &c, const Values &v) { return c.accept(c.model.dissociateMac(v[0].mac)); }},
};

// --- system

void emitHostName(const Model &model, const Interface *, std::string &out) {
    if (model.system().hostName != model.config().hostName)
        out += "hostname " + quoted(model.system().hostName) + "\n";
}

void emitManagement(const Model &model, const Interface *, std::string &out) {
    const auto &s = model.system();
    if (s.mgmtDhcp && s.mgmtVlan != kDefaultVlan)
        out += "ip management vlan " + std::to_string(s.mgmtVlan) + " dhcp\n";
    else if (!s.mgmtDhcp)
        out += "ip management vlan " + std::to_string(s.mgmtVlan) + " " + s.mgmtIp + " " + s.mgmtMask + "\n";
}

void emitGateway(const Model &model, const Interface *, std::string &out) {
    if (model.system().mgmtGateway != "0.0.0.0")
        out += "ip default-gateway " + model.system().mgmtGateway + "\n";
}

void emitAgeTime(const Model &model, const Interface *, std::string &out) {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(model.system().fdbAgeTime).count();
    if (seconds != 300)
        out += "bridge aging-time " + std::to_string(seconds) + "\n";
}

bool setManagement(Context &c, VlanId vlan, bool dhcp, const std::string &ip, const std::string &mask) {
    if (!c.model.hasVlan(vlan))
        return c.refuse("VLAN does not exist.");
    auto &s = c.model.system();
    s.mgmtVlan = vlan;
    s.mgmtDhcp = dhcp;
    s.mgmtIp = ip;
    s.mgmtMask = mask;
    return true;
}

const Command kSystem[] = {
    {kConfig, "hostname <text>", "Name the switch",
     [](Context &c, const Values &v) {
         if (v[0].text.empty() || v[0].text.size() > 64)
             return c.refuse("A host name has 1 to 64 characters.");
         c.model.system().hostName = v[0].text;
         return true;
     },
     emitHostName},
    {kConfig, "no hostname", "Give the switch its default name",
     [](Context &c, const Values &) {
         c.model.system().hostName = c.model.config().hostName;
         return true;
     }},
    {kConfig, "ip management vlan <vlan> dhcp", "Take the management address from DHCP",
     [](Context &c, const Values &v) { return setManagement(c, v[0].number, true, "0.0.0.0", "0.0.0.0"); },
     emitManagement},
    {kConfig, "ip management vlan <vlan> <ip> <ip>", "Set management VLAN, address and netmask",
     [](Context &c, const Values &v) { return setManagement(c, v[0].number, false, v[1].text, v[2].text); }},
    {kConfig, "ip default-gateway <ip>", "Set the default gateway",
     [](Context &c, const Values &v) {
         c.model.system().mgmtGateway = v[0].text;
         return true;
     },
     emitGateway},
    {kConfig, "no ip default-gateway", "Remove the default gateway",
     [](Context &c, const Values &) {
         c.model.system().mgmtGateway = "0.0.0.0";
         return true;
     }},
    {kConfig, "bridge aging-time <int:10-1000000>", "Seconds until a silent address is forgotten",
     [](Context &c, const Values &v) {
         c.model.system().fdbAgeTime = std::chrono::seconds(v[0].number);
         return true;
     },
     emitAgeTime},
    {kConfig, "no bridge aging-time", "Forget silent addresses after 300 seconds",
     [](Context &c, const Values &) {
         c.model.system().fdbAgeTime = std::chrono::seconds(300);
         return true;
     }},
    {kConfig, "ptp clock e2e-transparent", "Switch the PTP transparent clock on",
     [](Context &c, const Values &) {
         c.model.system().ptpTransparentClock = true;
         return true;
     },
     [](const Model &model, const Interface *, std::string &out) {
         if (model.system().ptpTransparentClock)
             out += "ptp clock e2e-transparent\n";
     }},
    {kConfig, "no ptp clock e2e-transparent", "Switch the PTP transparent clock off",
     [](Context &c, const Values &) {
         c.model.system().ptpTransparentClock = false;
         return true;
     }},
};

// --- interfaces

std::vector<VlanId> vlansWhere(const Interface &interface, bool (*wanted)(VlanId, const Membership &)) {
    std::vector<VlanId> ids;
    for (const auto &[id, membership] : interface.vlans)
        if (wanted(id, membership))
            ids.push_back(id);
    return ids;
}

void emitVlanList(const char *words, const std::vector<VlanId> &ids, std::string &out) {
    if (!ids.empty())
        out += words + rangeText(ids) + "\n";
}

void emitParticipation(const Model &, const Interface *interface, std::string &out) {
    emitVlanList("vlan participation include ",
                 vlansWhere(*interface,
                            [](VlanId id, const Membership &m) {
                                return m.participation == OPEN_VLAN_PARTICIPATION_MODE_INCLUDE &&
                                       id != kDefaultVlan;
                            }),
                 out);
    emitVlanList("vlan participation exclude ",
                 vlansWhere(*interface,
                            [](VlanId, const Membership &m) {
                                return m.participation == OPEN_VLAN_PARTICIPATION_MODE_EXCLUDE;
                            }),
                 out);
    emitVlanList("vlan participation auto ",
                 vlansWhere(*interface,
                            [](VlanId id, const Membership &m) {
                                return m.participation == OPEN_VLAN_PARTICIPATION_MODE_AUTO &&
                                       id == kDefaultVlan;
                            }),
                 out);
}

constexpr const char *kAcceptWords[] = {"all", "vlanonly", "admituntaggedonly"};

std::uint32_t indexOf(std::span<const char *const> words, const std::string &text) {
    return static_cast<std::uint32_t>(std::find(words.begin(), words.end(), text) - words.begin());
}

const Command kInterfaceRows[] = {
    {kInterface, "shutdown", "Disable the interface",
     [](Context &c, const Values &) {
         return eachInterface(c, [&](Interface &i) { return c.accept(c.model.setAdmin(i.num, false)); });
     },
     [](const Model &, const Interface *i, std::string &out) { out += i->adminUp ? "" : "shutdown\n"; }},
    {kInterface, "no shutdown", "Enable the interface",
     [](Context &c, const Values &) {
         return eachInterface(c, [&](Interface &i) { return c.accept(c.model.setAdmin(i.num, true)); });
     }},
    {kInterface, "description <text>", "Describe the interface",
     [](Context &c, const Values &v) {
         if (v[0].text.size() > 64)
             return c.refuse("A description has at most 64 characters.");
         return eachInterface(c, [&](Interface &i) {
             i.description = v[0].text;
             return true;
         });
     },
     [](const Model &, const Interface *i, std::string &out) {
         out += i->description.empty() ? "" : "description " + quoted(i->description) + "\n";
     }},
    {kInterface, "no description", "Remove the description",
     [](Context &c, const Values &) {
         return eachInterface(c, [&](Interface &i) {
             i.description.clear();
             return true;
         });
     }},
    {kInterface, "speed auto", "Negotiate the speed",
     [](Context &c, const Values &) { return setSpeed(c, "auto"); }},
    {kInterface, "speed 10|100|1000|2.5G|5G|10G|25G|40G|100G full-duplex|half-duplex",
     "Fix the speed in Mbit/s or Gbit/s",
     [](Context &c, const Values &v) { return setSpeed(c, v[0].text + " " + v[1].text); },
     [](const Model &, const Interface *i, std::string &out) {
         out += i->speed == "auto" ? "" : "speed " + i->speed + "\n";
     }},
    {kInterface, "mtu <int:1500-12288>", "Set the largest frame",
     [](Context &c, const Values &v) {
         return eachInterface(c, [&](Interface &i) {
             i.mtu = v[0].number;
             return true;
         });
     },
     [](const Model &model, const Interface *i, std::string &out) {
         out += i->mtu == model.config().defaultMtu ? "" : "mtu " + std::to_string(i->mtu) + "\n";
     }},
    {kInterface, "no mtu", "Set the largest frame to its default",
     [](Context &c, const Values &) {
         return eachInterface(c, [&](Interface &i) {
             i.mtu = c.model.config().defaultMtu;
             return true;
         });
     }},
    {kInterface, "vlan acceptframe all|vlanonly|admituntaggedonly", "Choose the frames to accept",
     [](Context &c, const Values &v) {
         return eachInterface(c, [&](Interface &i) {
             i.acceptFrames = static_cast<AcceptFrames>(indexOf(kAcceptWords, v[0].text));
             return true;
         });
     },
     [](const Model &, const Interface *i, std::string &out) {
         if (i->acceptFrames != AcceptFrames::All)
             out += format("vlan acceptframe %s\n", kAcceptWords[static_cast<std::size_t>(i->acceptFrames)]);
     }},
    {kInterface, "no vlan acceptframe", "Accept all frames",
     [](Context &c, const Values &) {
         return eachInterface(c, [](Interface &i) {
             i.acceptFrames = AcceptFrames::All;
             return true;
         });
     }},
    {kInterface, "vlan participation include|exclude|auto <vlans>", "Take part in VLANs",
     [](Context &c, const Values &v) {
         static constexpr const char *kModes[] = {"include", "exclude", "auto"};
         const auto mode = indexOf(kModes, v[0].text);
         return eachInterfaceAndVlan(c, v[1].numbers, [&](IfNum ifNum, VlanId id) {
             return c.model.setParticipation(ifNum, id, mode);
         });
     },
     emitParticipation},
    {kInterface, "vlan tagging <vlans>", "Send frames of VLANs tagged",
     [](Context &c, const Values &v) {
         return eachInterfaceAndVlan(
             c, v[0].numbers, [&](IfNum ifNum, VlanId id) { return c.model.setTagging(ifNum, id, true); });
     },
     [](const Model &, const Interface *i, std::string &out) {
         emitVlanList("vlan tagging ", vlansWhere(*i, [](VlanId, const Membership &m) { return m.tagged; }),
                      out);
     }},
    {kInterface, "no vlan tagging <vlans>", "Send frames of VLANs untagged",
     [](Context &c, const Values &v) {
         return eachInterfaceAndVlan(
             c, v[0].numbers, [&](IfNum ifNum, VlanId id) { return c.model.setTagging(ifNum, id, false); });
     }},
    {kInterface, "vlan pvid <vlan>", "Put untagged frames into a VLAN",
     [](Context &c, const Values &v) {
         return eachInterface(c, [&](Interface &i) { return c.accept(c.model.setPvid(i.num, v[0].number)); });
     },
     [](const Model &, const Interface *i, std::string &out) {
         out += i->pvid == kDefaultVlan ? "" : "vlan pvid " + std::to_string(i->pvid) + "\n";
     }},
    {kInterface, "no vlan pvid", "Put untagged frames into VLAN 1",
     [](Context &c, const Values &) {
         return eachInterface(c,
                              [&](Interface &i) { return c.accept(c.model.setPvid(i.num, kDefaultVlan)); });
     }},
    {kInterface, "ptp clock e2e-transparent", "Switch the PTP transparent clock on",
     [](Context &c, const Values &) { return eachPort(c, [](Interface &i) { i.ptpTcEnabled = true; }); }},
    {kInterface, "no ptp clock e2e-transparent", "Switch the PTP transparent clock off",
     [](Context &c, const Values &) { return eachPort(c, [](Interface &i) { i.ptpTcEnabled = false; }); },
     [](const Model &, const Interface *i, std::string &out) {
         out += i->ptpTcEnabled ? "" : "no ptp clock e2e-transparent\n";
     }},
};

// --- link aggregation

const Command kLag[] = {
    {kInterface, "addport lag|port-channel <lag>", "Join a link aggregation group",
     [](Context &c, const Values &v) {
         return eachInterface(c, [&](Interface &i) { return c.accept(c.model.lagAdd(v[1].number, i.num)); });
     },
     [](const Model &model, const Interface *i, std::string &out) {
         if (i->lag != 0)
             out += format("addport lag %u\n", model.interface(i->lag)->index);
     }},
    {kInterface, "deleteport lag|port-channel <lag>", "Leave a link aggregation group",
     [](Context &c, const Values &v) {
         return eachInterface(c,
                              [&](Interface &i) { return c.accept(c.model.lagRemove(v[1].number, i.num)); });
     }},
    {kInterface, "port-channel static", "Aggregate without negotiation",
     [](Context &c, const Values &) { return eachLag(c, [](Interface &i) { i.lagStatic = true; }); }},
    {kInterface, "no port-channel static", "Aggregate by LACP",
     [](Context &c, const Values &) { return eachLag(c, [](Interface &i) { i.lagStatic = false; }); },
     [](const Model &, const Interface *i, std::string &out) {
         out += !i->isLag() || i->lagStatic ? "" : "no port-channel static\n";
     }},
    {kInterface, "port-channel name <text>", "Name the link aggregation group",
     [](Context &c, const Values &v) {
         if (v[0].text.empty() || v[0].text.size() > 15)
             return c.refuse("A name has 1 to 15 characters.");
         return eachLag(c, [&](Interface &i) { i.lagName = v[0].text; });
     },
     [](const Model &, const Interface *i, std::string &out) {
         if (i->isLag() && i->lagName != "ch" + std::to_string(i->index))
             out += "port-channel name " + quoted(i->lagName) + "\n";
     }},
    {kInterface, "no port-channel name", "Give the link aggregation group its default name",
     [](Context &c, const Values &) {
         return eachLag(c, [](Interface &i) { i.lagName = "ch" + std::to_string(i.index); });
     }},
};

void emitMode(const Model &model, Modes mode, const Interface *interface, std::string &out) {
    for (const auto *command : allCommands())
        if (command->emit != nullptr && (command->modes & mode) != 0)
            command->emit(model, interface, out);
}

}  // namespace

bool enterInterfaceMode(Context &context, CliMode mode) {
    if (const auto now = context.session.mode(); now == CliMode::Interface || now == CliMode::VlanInterface)
        context.session.modes.pop_back();
    return enter(context, mode);
}

bool enter(Context &context, CliMode mode) {
    context.session.modes.push_back(mode);
    return true;
}

std::span<const Command> sessionCommands() {
    return kSession;
}
std::span<const Command> vlanCommands() {
    return kVlan;
}
std::span<const Command> systemCommands() {
    return kSystem;
}
std::span<const Command> interfaceCommands() {
    return kInterfaceRows;
}
std::span<const Command> lagCommands() {
    return kLag;
}

std::string runningConfigOf(const Model &model, const Interface &interface) {
    std::string lines;
    emitMode(model, kInterface, &interface, lines);
    return lines.empty() ? "" : "interface " + interface.name() + "\n" + lines + "exit\n\n";
}

std::string runningConfig(const Model &model) {
    const auto up = std::chrono::duration_cast<std::chrono::seconds>(model.upTime()).count();
    std::string out = "!Current Configuration:\n!\n";
    out += "!System Description \"" + model.system().machineModel + ", " + model.system().osVersion + "\"\n";
    out += "!System Software Version \"" + model.system().osVersion + "\"\n";
    out += format("!System Up Time          \"%lld days %lld hrs %lld mins %lld secs\"\n!\n",
                  static_cast<long long>(up / 86400), static_cast<long long>(up / 3600 % 24),
                  static_cast<long long>(up / 60 % 60), static_cast<long long>(up % 60));
    std::string lines;
    emitMode(model, kVlanDatabase, nullptr, lines);
    if (!lines.empty())
        out += "vlan database\n" + lines + "exit\n\n";
    out += "configure\n";
    emitMode(model, kConfig, nullptr, out);
    for (const auto &[num, interface] : model.interfaces())
        out += runningConfigOf(model, interface);
    return out + "exit\n";
}

}  // namespace vswitch::cli
