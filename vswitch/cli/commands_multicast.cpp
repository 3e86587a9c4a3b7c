// Multicast: IGMP and MLD snooping in VLANs, queriers, and the ports of multicast routers.
#include <algorithm>

#include "vswitch/cli/command.h"

namespace vswitch::cli {
namespace {

using Switch = bool VlanFeatures::*;
using Number = std::optional<std::uint32_t> VlanFeatures::*;

// What "set" enables for a VLAN, and what it sets to a number.
constexpr std::pair<const char *, Switch> kSwitches[] = {
    {"igmp", &VlanFeatures::igmpSnooping},
    {"igmp fast-leave", &VlanFeatures::fastLeave},
    {"igmp flood-report", &VlanFeatures::floodReport},
    {"igmp exclude-mrouter-intf", &VlanFeatures::excludeMrouter},
    {"igmp drop-unknown", &VlanFeatures::dropUnknown},
    {"igmp proxy-querier", &VlanFeatures::proxyQuerier},
    {"igmp querier election participate", &VlanFeatures::querierElection},
    {"mld", &VlanFeatures::mldSnooping},
    {"mld proxy-querier", &VlanFeatures::mldProxyQuerier},
};
constexpr std::pair<const char *, Number> kNumbers[] = {
    {"igmp maxresponse", &VlanFeatures::maxResponse},
    {"igmp groupmembership-interval", &VlanFeatures::membershipInterval},
    {"igmp mcrtrexpiretime", &VlanFeatures::mrouterExpiry},
};

// Naming a VLAN in the VLAN database creates it, even in a "no" command.
VlanFeatures *touch(Context &c, VlanId id) {
    return c.accept(c.model.createVlan(id)) ? c.model.editVlan(id) : nullptr;
}

template <Switch kField, bool kOn>
bool set(Context &c, const Values &v) {
    auto *vlan = touch(c, v[0].number);
    if (vlan != nullptr)
        vlan->*kField = kOn;
    c.model.igmpConfigured();
    return vlan != nullptr;
}

// "set ... <vlan> <int>" and "no set ... <vlan>".
template <Number kField>
bool setNumber(Context &c, const Values &v) {
    auto *vlan = touch(c, v[0].number);
    if (vlan != nullptr)
        vlan->*kField = v.size() > 1 ? std::optional(v[1].number) : std::nullopt;
    c.model.igmpConfigured();
    return vlan != nullptr;
}

void emitVlans(const Model &model, const Interface *, std::string &out) {
    for (const auto &[id, vlan] : model.vlans()) {
        for (const auto &[words, field] : kSwitches)
            if (vlan.features.*field)
                out += format("set %s %u\n", words, id);
        for (const auto &[words, field] : kNumbers)
            if (const auto value = vlan.features.*field)
                out += format("set %s %u %u\n", words, id, *value);
    }
}

using SwitchNumber = std::optional<std::uint32_t> SwitchFeatures::*;

template <SwitchNumber kField>
bool setSwitchNumber(Context &c, const Values &v) {
    c.model.features().*kField = v.empty() ? std::nullopt : std::optional(v[0].number);
    c.model.igmpConfigured();
    return true;
}

void emitNumber(const char *words, const std::optional<std::uint32_t> &value, std::string &out) {
    if (value)
        out += format("%s %u\n", words, *value);
}

bool setIgmpPlus(Context &c, VlanId id, bool on) {
    auto *vlan = c.model.editVlan(id);
    if (vlan == nullptr)
        return c.refuse("VLAN does not exist.");
    vlan->igmpPlus = on;
    c.model.igmpConfigured();
    return true;
}

bool setMldSnooping(Context &c, bool on) {
    c.model.features().mldSnooping = on;
    return true;
}

bool setMrouter(Context &c, bool on) {
    return eachInterface(c, [&](Interface &i) {
        i.igmpMrouter = on;
        return true;
    });
}

// One row for the subscribers of a group behind one interface that speak one version, the first of them in full.
bool showGroups(Context &c, const Values &) {
    c.out += "                                       IGMP Snooping Groups\n\n";
    c.out +=
        "VLAN Subscriber                         Group                              Interface Type   "
        "Timeout\n";
    c.out +=
        "---- ---------------------------------- ---------------------------------- --------- ------ "
        "-------\n";
    const auto now = c.model.now();
    for (const auto &[key, subscribers] : c.model.igmpGroups()) {
        const auto group = ipv4Text(key.group) + "/" + groupMacText(key.group);
        std::map<std::pair<IfNum, std::uint32_t>, std::vector<IgmpGroups::mapped_type::const_pointer>> rows;
        for (const auto &item : subscribers)
            rows[{item.first.interface, item.second.version}].push_back(&item);
        for (const auto &[place, hosts] : rows) {
            const auto &interface = *c.model.interface(place.first);
            const bool channel = interface.isLag() && c.model.config().igmpShowsChannels;
            const auto name = channel ? "ch" + std::to_string(interface.index) : interface.name();
            const auto last = (*std::ranges::max_element(hosts, {}, [](const auto *host) {
                                  return host->second.expires;
                              }))->second.expires;
            std::string rest = format(
                " %-34s %-9s v%-5u %lld", group.c_str(), name.c_str(), place.second,
                static_cast<long long>(
                    std::chrono::ceil<std::chrono::seconds>(std::max(last - now, Duration{})).count()));
            std::string first = format("%-4u ", key.vlan);
            for (const auto *host : hosts) {
                const auto subscriber = ipv4Text(host->first.host) + "/" + host->second.mac.text();
                c.out += format(rest.empty() ? "%-5s%s%s\n" : "%-5s%-34s%s\n", first.c_str(),
                                subscriber.c_str(), rest.c_str());
                first.clear();
                rest.clear();
            }
        }
    }
    return true;
}

constexpr auto kOff = false, kOn = true;

const Command kMulticast[] = {
    {kVlanDatabase, "set igmp <vlan>", "Snoop IGMP", set<&VlanFeatures::igmpSnooping, kOn>, emitVlans},
    {kVlanDatabase, "no set igmp <vlan>", "Do not snoop IGMP", set<&VlanFeatures::igmpSnooping, kOff>},
    {kVlanDatabase, "set igmp fast-leave <vlan>", "Let ports leave groups at once",
     set<&VlanFeatures::fastLeave, kOn>},
    {kVlanDatabase, "no set igmp fast-leave <vlan>", "Ask before a port leaves a group",
     set<&VlanFeatures::fastLeave, kOff>},
    {kVlanDatabase, "set igmp flood-report <vlan>", "Send IGMP reports to all ports",
     set<&VlanFeatures::floodReport, kOn>},
    {kVlanDatabase, "no set igmp flood-report <vlan>", "Send IGMP reports to multicast routers only",
     set<&VlanFeatures::floodReport, kOff>},
    {kVlanDatabase, "set igmp exclude-mrouter-intf <vlan>", "Send multicast routers only what they ask for",
     set<&VlanFeatures::excludeMrouter, kOn>},
    {kVlanDatabase, "no set igmp exclude-mrouter-intf <vlan>", "Send multicast routers all groups",
     set<&VlanFeatures::excludeMrouter, kOff>},
    {kVlanDatabase, "set igmp drop-unknown <vlan>", "Drop groups that nobody has asked for",
     set<&VlanFeatures::dropUnknown, kOn>},
    {kVlanDatabase, "no set igmp drop-unknown <vlan>", "Flood groups that nobody has asked for",
     set<&VlanFeatures::dropUnknown, kOff>},
    {kVlanDatabase, "set igmp proxy-querier <vlan>", "Answer a leave with a query in the querier's name",
     set<&VlanFeatures::proxyQuerier, kOn>},
    {kVlanDatabase, "no set igmp proxy-querier <vlan>", "Leave queries to the querier",
     set<&VlanFeatures::proxyQuerier, kOff>},
    {kVlanDatabase, "set igmp querier election participate <vlan>", "Take part in the querier election",
     set<&VlanFeatures::querierElection, kOn>},
    {kVlanDatabase, "no set igmp querier election participate <vlan>", "Give way to another querier",
     set<&VlanFeatures::querierElection, kOff>},
    {kVlanDatabase, "set mld <vlan>", "Snoop MLD", set<&VlanFeatures::mldSnooping, kOn>},
    {kVlanDatabase, "no set mld <vlan>", "Do not snoop MLD", set<&VlanFeatures::mldSnooping, kOff>},
    {kVlanDatabase, "set mld proxy-querier <vlan>", "Answer a done with a query in the querier's name",
     set<&VlanFeatures::mldProxyQuerier, kOn>},
    {kVlanDatabase, "no set mld proxy-querier <vlan>", "Leave MLD queries to the querier",
     set<&VlanFeatures::mldProxyQuerier, kOff>},
    {kVlanDatabase, "set igmp maxresponse <vlan> <int:1-25>", "Seconds in which hosts answer a query",
     setNumber<&VlanFeatures::maxResponse>},
    {kVlanDatabase, "no set igmp maxresponse <vlan>", "Back to the default",
     setNumber<&VlanFeatures::maxResponse>},
    {kVlanDatabase, "set igmp groupmembership-interval <vlan> <int:2-3600>",
     "Seconds until a silent member is forgotten", setNumber<&VlanFeatures::membershipInterval>},
    {kVlanDatabase, "no set igmp groupmembership-interval <vlan>", "Back to the default",
     setNumber<&VlanFeatures::membershipInterval>},
    {kVlanDatabase, "set igmp mcrtrexpiretime <vlan> <int:0-3600>",
     "Seconds until a silent multicast router is forgotten; 0: never",
     setNumber<&VlanFeatures::mrouterExpiry>},
    {kVlanDatabase, "no set igmp mcrtrexpiretime <vlan>", "Back to the default",
     setNumber<&VlanFeatures::mrouterExpiry>},

    {kConfig, "igmp-plus <vlan>", "Switch IGMP Plus on in a VLAN",
     [](Context &c, const Values &v) { return setIgmpPlus(c, v[0].number, true); },
     [](const Model &model, const Interface *, std::string &out) {
         for (const auto &[id, vlan] : model.vlans())
             if (vlan.features.igmpPlus)
                 out += format("igmp-plus %u\n", id);
     }},
    {kConfig, "no igmp-plus <vlan>", "Switch IGMP Plus off in a VLAN",
     [](Context &c, const Values &v) { return setIgmpPlus(c, v[0].number, false); }},
    {kConfig, "ipv6 mld snooping", "Snoop MLD",
     [](Context &c, const Values &) { return setMldSnooping(c, true); },
     [](const Model &model, const Interface *, std::string &out) {
         out += model.features().mldSnooping ? "ipv6 mld snooping\n" : "";
     }},
    {kConfig, "no ipv6 mld snooping", "Do not snoop MLD",
     [](Context &c, const Values &) { return setMldSnooping(c, false); }},
    {kConfig, "set igmp querier version <int:1-3>", "IGMP version of the querier",
     setSwitchNumber<&SwitchFeatures::querierVersion>,
     [](const Model &model, const Interface *, std::string &out) {
         emitNumber("set igmp querier version", model.features().querierVersion, out);
     }},
    {kConfig, "no set igmp querier version", "Back to the default",
     setSwitchNumber<&SwitchFeatures::querierVersion>},
    {kConfig, "set igmp querier timer expiry <int:60-300>", "Seconds until another querier counts as gone",
     setSwitchNumber<&SwitchFeatures::querierExpiry>,
     [](const Model &model, const Interface *, std::string &out) {
         emitNumber("set igmp querier timer expiry", model.features().querierExpiry, out);
     }},
    {kConfig, "no set igmp querier timer expiry", "Back to the default",
     setSwitchNumber<&SwitchFeatures::querierExpiry>},
    {kConfig, "ip igmp snooping querier query-interval <int:1-1800>", "Seconds between queries",
     setSwitchNumber<&SwitchFeatures::queryInterval>,
     [](const Model &model, const Interface *, std::string &out) {
         emitNumber("ip igmp snooping querier query-interval", model.features().queryInterval, out);
     }},
    {kConfig, "no ip igmp snooping querier query-interval", "Back to the default",
     setSwitchNumber<&SwitchFeatures::queryInterval>},

    {kInterface, "ip igmp snooping mrouter interface", "A multicast router is here",
     [](Context &c, const Values &) { return setMrouter(c, true); },
     [](const Model &, const Interface *i, std::string &out) {
         out += i->igmpMrouter ? "ip igmp snooping mrouter interface\n" : "";
     }},
    {kInterface, "no ip igmp snooping mrouter interface", "No multicast router is here",
     [](Context &c, const Values &) { return setMrouter(c, false); }},
    {kInterface, "set igmp mrouter interface", "A multicast router is here",
     [](Context &c, const Values &) { return setMrouter(c, true); }},
    {kInterface, "no set igmp mrouter interface", "No multicast router is here",
     [](Context &c, const Values &) { return setMrouter(c, false); }},

    {kAnyMode, "show igmpsnooping group", "Multicast groups and who has asked for them", showGroups},
    {kAnyMode, "show igmpsnooping mrouter <vlan>", "Interfaces of multicast routers",
     [](Context &c, const Values &v) {
         c.out += "Interface\n----------\n";
         for (const auto ifNum : c.model.igmpRouters(v[0].number))
             c.out += c.model.interface(ifNum)->name() + "\n";
         return true;
     }},
};

}  // namespace

std::span<const Command> multicastCommands() {
    return kMulticast;
}

}  // namespace vswitch::cli
