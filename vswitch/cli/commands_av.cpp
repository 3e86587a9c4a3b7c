// 802.1AS, the MRP applications, spanning tree, and other switch-wide settings for AV.
#include "vswitch/cli/command.h"

namespace vswitch::cli {
namespace {

constexpr auto kOff = false, kOn = true;

// --- switch-wide and interface settings

using Switch = bool SwitchFeatures::*;
using InterfaceSwitch = bool Interface::*;
using InterfaceNumber = std::uint32_t Interface::*;

template <Switch kField, bool kValue>
bool set(Context &c, const Values &) {
    c.model.features().*kField = kValue;
    return true;
}

// Disabling an application disables its periodic state machine, too.
template <Switch kField, Switch kPeriodic>
bool stop(Context &c, const Values &) {
    c.model.features().*kField = c.model.features().*kPeriodic = false;
    return true;
}

template <InterfaceSwitch kField, bool kValue>
bool setHere(Context &c, const Values &) {
    return eachInterface(c, [](Interface &i) {
        i.*kField = kValue;
        return true;
    });
}

template <InterfaceNumber kField>
bool setTimer(Context &c, const Values &v) {
    return eachInterface(c, [&](Interface &i) {
        i.*kField = v.empty() ? Interface{}.*kField : v[0].number;
        return true;
    });
}

void emitGlobal(const Model &model, const Interface *, std::string &out) {
    const auto &f = model.features();
    out += f.dot1as ? "dot1as\n" : "";
    out += f.mvrp ? "mvrp\n" : "";
    out += f.mvrpPeriodic ? "mvrp periodic state machine\n" : "";
    out += f.mvrpDefaultVlan ? "" : "no mvrp include factory-default-vlan\n";
    out += f.mmrp ? "mmrp\n" : "";
    out += f.mmrpPeriodic ? "mmrp periodic state machine\n" : "";
    out += f.msrp ? "msrp\n" : "";
    out += f.switchportModeAuto ? "switchport mode auto\n" : "";
}

void emitHere(const Model &, const Interface *i, std::string &out) {
    static constexpr std::pair<const char *, InterfaceSwitch> kSwitches[] = {{"dot1as", &Interface::dot1as},
                                                                             {"mvrp", &Interface::mvrp},
                                                                             {"mmrp", &Interface::mmrp},
                                                                             {"msrp", &Interface::msrp}};
    static constexpr std::pair<const char *, InterfaceNumber> kTimers[] = {
        {"mrp jointime", &Interface::mrpJoinTime},
        {"mrp leavetime", &Interface::mrpLeaveTime},
        {"mrp leavealltime", &Interface::mrpLeaveAllTime}};
    for (const auto &[words, field] : kSwitches)
        out += i->*field ? words + std::string("\n") : "";
    for (const auto &[words, field] : kTimers)
        if (i->*field != Interface{}.*field)
            out += format("%s %u\n", words, i->*field);
}

// --- spanning tree

constexpr const char *kTreeModes[] = {"stp", "rstp", "mst", "pvst", "rapid-pvst"};

bool setTreeMode(Context &c, const Values &v) {
    auto mode = SpanningTreeMode::Mst;
    for (std::size_t i = 0; i < std::size(kTreeModes) && !v.empty(); ++i)
        if (v[0].text == kTreeModes[i])
            mode = static_cast<SpanningTreeMode>(i);
    c.model.setSpanningTreeMode(mode);
    return true;
}

bool setMstPriority(Context &c, std::uint32_t instance, std::uint32_t priority) {
    if (instance != 0)
        return c.refuse("No such instance.");
    if (priority % 4096 != 0)
        return c.refuse("A priority is a multiple of 4096.");
    c.model.features().mstPriority = priority;
    return true;
}

using TreeTimer = std::optional<std::uint32_t> VlanFeatures::*;

template <TreeTimer kField>
bool setTreeTimer(Context &c, const Values &v) {
    auto *vlan = c.model.editVlan(v[0].number);
    if (vlan == nullptr)
        return c.refuse("VLAN does not exist.");
    if (!c.model.runsPvst())
        return c.refuse("There is no spanning tree per VLAN in this mode.");
    vlan->*kField = v.size() > 1 ? std::optional(v[1].number) : std::nullopt;
    return true;
}

void emitTree(const Model &model, const Interface *, std::string &out) {
    const auto &f = model.features();
    if (f.spanningTreeMode != SpanningTreeMode::Mst)
        out += format("spanning-tree mode %s\n", kTreeModes[static_cast<std::size_t>(f.spanningTreeMode)]);
    if (f.mstPriority != kMstPriorityDefault)
        out += format("spanning-tree mst priority 0 %u\n", f.mstPriority);
    static constexpr std::pair<const char *, TreeTimer> kTimers[] = {
        {"hello-time", &VlanFeatures::helloTime},
        {"forward-time", &VlanFeatures::forwardTime},
        {"max-age", &VlanFeatures::maxAge}};
    for (const auto &[id, vlan] : model.vlans())
        for (const auto &[words, field] : kTimers)
            if (const auto value = vlan.features.*field)
                out += format("spanning-tree vlan %u %s %u\n", id, words, *value);
}

const Command kAv[] = {
    {kConfig, "dot1as", "Switch 802.1AS on", set<&SwitchFeatures::dot1as, kOn>, emitGlobal},
    {kConfig, "no dot1as", "Switch 802.1AS off", set<&SwitchFeatures::dot1as, kOff>},
    {kConfig, "mvrp", "Switch MVRP on", set<&SwitchFeatures::mvrp, kOn>},
    {kConfig, "no mvrp", "Switch MVRP off", stop<&SwitchFeatures::mvrp, &SwitchFeatures::mvrpPeriodic>},
    {kConfig, "mvrp periodic state machine", "Repeat MVRP declarations",
     set<&SwitchFeatures::mvrpPeriodic, kOn>},
    {kConfig, "no mvrp periodic state machine", "Do not repeat MVRP declarations",
     set<&SwitchFeatures::mvrpPeriodic, kOff>},
    {kConfig, "mvrp include factory-default-vlan", "Declare VLAN 1 by MVRP",
     set<&SwitchFeatures::mvrpDefaultVlan, kOn>},
    {kConfig, "no mvrp include factory-default-vlan", "Do not declare VLAN 1 by MVRP",
     set<&SwitchFeatures::mvrpDefaultVlan, kOff>},
    {kConfig, "mmrp", "Switch MMRP on", set<&SwitchFeatures::mmrp, kOn>},
    {kConfig, "no mmrp", "Switch MMRP off", stop<&SwitchFeatures::mmrp, &SwitchFeatures::mmrpPeriodic>},
    {kConfig, "mmrp periodic state machine", "Repeat MMRP declarations",
     set<&SwitchFeatures::mmrpPeriodic, kOn>},
    {kConfig, "no mmrp periodic state machine", "Do not repeat MMRP declarations",
     set<&SwitchFeatures::mmrpPeriodic, kOff>},
    {kConfig, "msrp", "Switch MSRP on", set<&SwitchFeatures::msrp, kOn>},
    {kConfig, "no msrp", "Switch MSRP off", set<&SwitchFeatures::msrp, kOff>},
    {kConfig, "switchport mode auto", "Adapt ports to what is plugged in",
     set<&SwitchFeatures::switchportModeAuto, kOn>},
    {kConfig, "no switchport mode auto", "Leave ports as they are configured",
     set<&SwitchFeatures::switchportModeAuto, kOff>},

    {kConfig, "spanning-tree mode stp|rstp|mst|pvst|rapid-pvst", "Choose the spanning-tree protocol",
     setTreeMode, emitTree},
    {kConfig, "no spanning-tree mode", "Back to mst", setTreeMode},
    {kConfig, "spanning-tree mst priority <int:0-4094> <int:0-61440>", "Bridge priority of an instance",
     [](Context &c, const Values &v) { return setMstPriority(c, v[0].number, v[1].number); }},
    {kConfig, "no spanning-tree mst priority <int:0-4094>", "Back to the default",
     [](Context &c, const Values &v) { return setMstPriority(c, v[0].number, kMstPriorityDefault); }},
    {kConfig, "spanning-tree vlan <vlan> hello-time <int:1-10>", "Seconds between BPDUs",
     setTreeTimer<&VlanFeatures::helloTime>},
    {kConfig, "no spanning-tree vlan <vlan> hello-time", "Back to the default",
     setTreeTimer<&VlanFeatures::helloTime>},
    {kConfig, "spanning-tree vlan <vlan> forward-time <int:4-30>", "Seconds in each state before forwarding",
     setTreeTimer<&VlanFeatures::forwardTime>},
    {kConfig, "no spanning-tree vlan <vlan> forward-time", "Back to the default",
     setTreeTimer<&VlanFeatures::forwardTime>},
    {kConfig, "spanning-tree vlan <vlan> max-age <int:6-40>", "Seconds a BPDU is good for",
     setTreeTimer<&VlanFeatures::maxAge>},
    {kConfig, "no spanning-tree vlan <vlan> max-age", "Back to the default",
     setTreeTimer<&VlanFeatures::maxAge>},

    {kInterface, "dot1as", "Switch 802.1AS on", setHere<&Interface::dot1as, kOn>, emitHere},
    {kInterface, "no dot1as", "Switch 802.1AS off", setHere<&Interface::dot1as, kOff>},
    {kInterface, "mvrp", "Switch MVRP on", setHere<&Interface::mvrp, kOn>},
    {kInterface, "no mvrp", "Switch MVRP off", setHere<&Interface::mvrp, kOff>},
    {kInterface, "mmrp", "Switch MMRP on", setHere<&Interface::mmrp, kOn>},
    {kInterface, "no mmrp", "Switch MMRP off", setHere<&Interface::mmrp, kOff>},
    {kInterface, "msrp", "Switch MSRP on", setHere<&Interface::msrp, kOn>},
    {kInterface, "no msrp", "Switch MSRP off", setHere<&Interface::msrp, kOff>},
    {kInterface, "mrp jointime <int:10-100>", "Centiseconds between MRP messages",
     setTimer<&Interface::mrpJoinTime>},
    {kInterface, "no mrp jointime", "Back to the default", setTimer<&Interface::mrpJoinTime>},
    {kInterface, "mrp leavetime <int:20-600>", "Centiseconds until a withdrawn attribute goes",
     setTimer<&Interface::mrpLeaveTime>},
    {kInterface, "no mrp leavetime", "Back to the default", setTimer<&Interface::mrpLeaveTime>},
    {kInterface, "mrp leavealltime <int:200-6000>", "Centiseconds between requests to declare again",
     setTimer<&Interface::mrpLeaveAllTime>},
    {kInterface, "no mrp leavealltime", "Back to the default", setTimer<&Interface::mrpLeaveAllTime>},
};

}  // namespace

std::span<const Command> avCommands() {
    return kAv;
}

}  // namespace vswitch::cli
