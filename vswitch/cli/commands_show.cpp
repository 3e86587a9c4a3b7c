// The show commands. Operators read their output and programs parse it; columns do not move.
#include <algorithm>
#include <cctype>

#include "vswitch/cli/command.h"

namespace vswitch::cli {
namespace {

const char *vlanTypeText(const Vlan &vlan) {
    if (vlan.id == kDefaultVlan)
        return "Default";
    return vlan.isStatic ? "Static" : "Dynamic";
}

// Strings from devices may hold anything; a table still has one line per row.
std::string cell(const std::string &text, std::size_t width) {
    std::string out = text.substr(0, width);
    for (auto &c : out)
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f)
            c = '.';
    return out;
}

bool showVlan(Context &c, const Values &) {
    c.out += "VLAN ID VLAN Name                        VLAN Type\n";
    c.out += "------- -------------------------------- -------------------\n";
    for (const auto &[id, vlan] : c.model.vlans())
        c.out += format("%-7u %-32s %s\n", id, vlan.name.c_str(), vlanTypeText(vlan));
    return true;
}

bool showVlanId(Context &c, const Values &v) {
    const auto it = c.model.vlans().find(v[0].number);
    if (it == c.model.vlans().end())
        return c.refuse("VLAN does not exist.");
    const auto &vlan = it->second;
    c.out += format("VLAN ID: %u\nVLAN Name: %s\nVLAN Type: %s\n\n", vlan.id, vlan.name.c_str(),
                    vlanTypeText(vlan));
    c.out += "Interface   Current   Configured   Tagging\n";
    c.out += "----------  --------  -----------  --------\n";
    static constexpr const char *kModes[] = {"Include", "Exclude", "Autodetect"};
    for (const auto &[num, interface] : c.model.interfaces()) {
        const auto membership = c.model.membership(num, vlan.id);
        const bool member = membership.participation == OPEN_VLAN_PARTICIPATION_MODE_INCLUDE;
        c.out += format("%-10s  %-8s  %-11s  %s\n", interface.name().c_str(), member ? "Include" : "Exclude",
                        kModes[membership.participation], membership.tagged ? "Tagged" : "Untagged");
    }
    return true;
}

void vlanPortRow(Context &c, const Interface &i) {
    static constexpr const char *kFrames[] = {"Admit All", "VLAN Only", "Untagged Only"};
    c.out += format("%-10s %-9u %-15s %-10s %-8s\n", i.name().c_str(), i.pvid,
                    kFrames[static_cast<std::size_t>(i.acceptFrames)], "Disable", "0");
}

void vlanPortHeader(Context &c) {
    c.out += "Port       Port      Acceptable      Ingress    Default\n";
    c.out += "           VLAN ID   Frame Types     Filtering  Priority\n";
    c.out += "---------- --------- --------------- ---------- --------\n";
}

bool showVlanPortAll(Context &c, const Values &) {
    vlanPortHeader(c);
    for (const auto &[num, interface] : c.model.interfaces())
        vlanPortRow(c, interface);
    return true;
}

bool showVlanPort(Context &c, const Values &v) {
    vlanPortHeader(c);
    vlanPortRow(c, *c.model.interface(v[0].number));
    return true;
}

bool showVlanAssociation(Context &c, const Values &) {
    c.out += "\nMAC Address        VLAN ID\n-----------------  -------\n";
    for (const auto &[mac, id] : c.model.macAssociations())
        c.out += format("%-17s  %u\n", mac.text().c_str(), id);
    return true;
}

void fdbTable(Context &c, bool (*wanted)(const FdbKey &, const FdbEntry &, std::uint32_t),
              std::uint32_t number) {
    c.out += "VLAN ID  MAC Address         Interface              IfIndex  Status\n";
    c.out += "-------  ------------------  ---------------------  -------  ------------\n";
    std::vector<const std::pair<const FdbKey, FdbEntry> *> rows;
    for (const auto &row : c.model.fdb())
        if (wanted(row.first, row.second, number))
            rows.push_back(&row);
    std::sort(rows.begin(), rows.end(), [](const auto *a, const auto *b) {
        return std::pair(a->first.vlan, a->first.mac) < std::pair(b->first.vlan, b->first.mac);
    });
    for (const auto *row : rows)
        c.out += format("%-7u  %-18s  %-21s  %-7u  %s\n", row->first.vlan, row->first.mac.text().c_str(),
                        c.model.interface(row->second.ifNum)->name().c_str(), row->second.ifNum,
                        row->second.type == OPEN_FDB_ADDR_LEARNED ? "Learned" : "Static");
}

bool showFdb(Context &c, const Values &) {
    fdbTable(c, [](const FdbKey &, const FdbEntry &, std::uint32_t) { return true; }, 0);
    return true;
}

bool showFdbVlan(Context &c, const Values &v) {
    fdbTable(
        c, [](const FdbKey &key, const FdbEntry &, std::uint32_t n) { return key.vlan == n; }, v[0].number);
    return true;
}

bool showFdbPort(Context &c, const Values &v) {
    fdbTable(
        c, [](const FdbKey &, const FdbEntry &e, std::uint32_t n) { return e.ifNum == n || e.port == n; },
        v[0].number);
    return true;
}

bool showFdbCount(Context &c, const Values &) {
    const auto learned = std::count_if(c.model.fdb().begin(), c.model.fdb().end(), [](const auto &row) {
        return row.second.type == OPEN_FDB_ADDR_LEARNED;
    });
    c.out += format("Dynamic Address count............... %ld\n", static_cast<long>(learned));
    c.out += format("Static Address (User-defined) count. %zu\n",
                    c.model.fdb().size() - static_cast<std::size_t>(learned));
    c.out += format("Total MAC Addresses in use.......... %zu\n", c.model.fdb().size());
    c.out += format("Total MAC Addresses available....... %zu\n", c.model.config().fdbCapacity);
    return true;
}

bool showArp(Context &c, const Values &) {
    c.out += "IP Address       MAC Address        VLAN ID\n---------------  -----------------  -------\n";
    for (const auto &[key, mac] : c.model.arp())
        c.out += format("%-15s  %-17s  %u\n", key.ip.c_str(), mac.text().c_str(), key.vlan);
    return true;
}

bool showLldpAll(Context &c, const Values &) {
    c.out += "LLDP Remote Device Summary\n\nLocal\n";
    c.out += "Interface  RemID   Chassis ID             Port ID                System Name\n";
    c.out += "---------  ------  ---------------------  ---------------------  ---------------------\n";
    for (const auto &[num, interface] : c.model.interfaces()) {
        if (interface.isLag())
            continue;
        const auto port = c.model.lldp().find(num);
        if (port == c.model.lldp().end() || port->second.empty()) {
            c.out += interface.name() + "\n";
            continue;
        }
        for (const auto &[index, neighbour] : port->second) {
            const auto &f = neighbour.fields;
            c.out += format("%-9s  %-6u  %-21s  %-21s  %s\n", interface.name().c_str(), index,
                            cell(f.chassisId, 21).c_str(), cell(f.portId, 21).c_str(),
                            cell(f.systemName, 21).c_str());
        }
    }
    return true;
}

bool showLldpDetail(Context &c, const Values &v) {
    c.out += "LLDP Remote Device Detail\n\nLocal Interface: " + c.model.interface(v[0].number)->name() + "\n";
    const auto port = c.model.lldp().find(v[0].number);
    if (port == c.model.lldp().end())
        return true;
    for (const auto &[index, neighbour] : port->second) {
        const auto &f = neighbour.fields;
        c.out += format("\nRemote Identifier: %u\n", index);
        c.out += format("Chassis ID Subtype: %u\nChassis ID: %s\n", f.chassisIdSubtype,
                        cell(f.chassisId, kLldpTextMax).c_str());
        c.out += format("Port ID Subtype: %u\nPort ID: %s\n", f.portIdSubtype,
                        cell(f.portId, kLldpTextMax).c_str());
        c.out += "System Name: " + cell(f.systemName, kLldpTextMax) + "\n";
        c.out += "System Description: " + cell(f.systemDesc, kLldpTextMax) + "\n";
        c.out += "Port Description: " + cell(f.portDesc, kLldpTextMax) + "\n";
        c.out += "System Capabilities Enabled: " + cell(f.capabilities, kLldpTextMax) + "\n";
        c.out += "Management Address: " + cell(f.mgmtAddress, kLldpTextMax) + "\n";
        c.out += format("Time to Live: %u seconds\n", f.ttl);
    }
    return true;
}

bool showLogging(Context &c, const Values &) {
    c.out += format("Buffered (In-Memory) Logging         : %s\n",
                    c.model.settings().log.buffered.enabled ? "enabled" : "disabled");
    c.out += format("Buffered Logging Total Lines         : %zu\n\n", c.model.logLines().size());
    for (const auto &line : c.model.logLines()) {
        std::tm parts{};
        gmtime_r(&line.wall.tv_sec, &parts);
        char when[32];
        std::strftime(when, sizeof when, "%b %e %H:%M:%S", &parts);
        c.out += format("<%d> %s %s %s[%s]: %llu %%%% %s\n", 8 + line.severity, when,
                        c.model.system().hostName.c_str(), cell(line.component, 64).c_str(),
                        cell(line.place, 256).c_str(), static_cast<unsigned long long>(line.number),
                        cell(line.text, 1024).c_str());
    }
    return true;
}

bool showBootvar(Context &c, const Values &) {
    const auto &s = c.model.system();
    const auto next = s.nextActive == "active" ? s.activeImage : s.backupImage;
    c.out +=
        "\nImage Descriptions\n\n active : primary image\n backup : fallback image\n\n\n"
        " Images currently available on Flash\n\n";
    c.out += std::string(68, '-') +
             "\n unit      active      backup     current-active        next-active\n" +
             std::string(68, '-') + "\n\n\n";
    c.out += format(" %4u  %10s  %10s  %17s  %17s\n", 1u, s.activeImage.c_str(), s.backupImage.c_str(),
                    s.activeImage.c_str(), next.c_str());
    return true;
}

bool showIpManagement(Context &c, const Values &) {
    const auto &s = c.model.system();
    c.out += leader("IPv4 Management Interface", "VLAN " + std::to_string(s.mgmtVlan));
    c.out += leader("IP Address", s.mgmtIp);
    c.out += leader("Subnet Mask", s.mgmtMask);
    c.out += leader("Method", s.mgmtDhcp ? "DHCP" : "Manual");
    c.out += leader("Default Gateway", s.mgmtGateway);
    c.out += leader("Interface Status", c.model.vlanUp(s.mgmtVlan) ? "Up" : "Down");
    c.out += leader("Burned In MAC Address", s.burnedInMac.text());
    return true;
}

bool showVersion(Context &c, const Values &) {
    const auto &s = c.model.system();
    c.out += leader("Switch", "1") + leader("System Description", s.machineModel + " virtual switch");
    c.out += leader("Machine Model", s.machineModel) + leader("Serial Number", s.serialNumber);
    c.out += leader("Burned In MAC Address", s.burnedInMac.text()) + leader("Software Version", s.osVersion);
    return true;
}

bool showPortAll(Context &c, const Values &) {
    c.out += "Port       Description               Admin     Link    Speed             MTU    LAG\n";
    c.out += "---------- ------------------------- --------- ------- ----------------- ------ --------\n";
    for (const auto &[num, i] : c.model.interfaces())
        c.out +=
            format("%-10s %-25s %-9s %-7s %-17s %-6u %s\n", i.name().c_str(), cell(i.description, 25).c_str(),
                   i.adminUp ? "Enable" : "Disable", i.linkUp ? "Up" : "Down", i.speed.c_str(), i.mtu,
                   i.lag != 0 ? c.model.interface(i.lag)->name().c_str() : "");
    return true;
}

void lagRows(Context &c, const Interface &lag) {
    std::string first = format("%-8s %-15s %-6s %-7s %-8s", lag.name().c_str(), lag.lagName.c_str(),
                               lag.linkUp ? "Up" : "Down", lag.lagStatic ? "Static" : "Dynamic",
                               lag.adminUp ? "Enable" : "Disable");
    if (lag.members.empty())
        c.out += first + "\n";
    for (const auto member : lag.members) {
        const auto *port = c.model.interface(member);
        c.out +=
            format("%-48s %-8s %s\n", first.c_str(), port->name().c_str(), port->linkUp ? "True" : "False");
        first.clear();
    }
}

void lagHeader(Context &c) {
    c.out += "Log.     Channel         Link            Admin    Mbr      Port\n";
    c.out += "Intf     Name            State  Type     Mode     Ports    Active\n";
    c.out += "-------- --------------- ------ ------- -------- -------- ------\n";
}

bool showLagAll(Context &c, const Values &) {
    lagHeader(c);
    for (const auto &[num, interface] : c.model.interfaces())
        if (interface.isLag())
            lagRows(c, interface);
    return true;
}

bool showLag(Context &c, const Values &v) {
    lagHeader(c);
    lagRows(c, *c.model.interface(v[0].number));
    return true;
}

const Command kShow[] = {
    {kPrivileged, "show running-config", "The configuration as commands",
     [](Context &c, const Values &) {
         c.out += runningConfig(c.model);
         return true;
     }},
    {kPrivileged, "show running-config interface <port>", "The configuration of one port",
     [](Context &c, const Values &v) {
         c.out += runningConfigOf(c.model, *c.model.interface(v[0].number));
         return true;
     }},
    {kAnyMode, "show vlan", "All VLANs", showVlan},
    {kAnyMode, "show vlan <vlan>", "One VLAN and its members", showVlanId},
    {kAnyMode, "show vlan port all", "VLAN settings of all interfaces", showVlanPortAll},
    {kAnyMode, "show vlan port <port>", "VLAN settings of one port", showVlanPort},
    {kAnyMode, "show vlan association mac", "MAC addresses bound to VLANs", showVlanAssociation},
    {kAnyMode, "show mac-addr-table", "The forwarding database", showFdb},
    {kAnyMode, "show mac-addr-table all", "The forwarding database", showFdb},
    {kAnyMode, "show mac-addr-table count", "Room and use of the forwarding database", showFdbCount},
    {kAnyMode, "show mac-addr-table vlan <vlan>", "The forwarding database of a VLAN", showFdbVlan},
    {kAnyMode, "show mac-addr-table interface <port>", "The forwarding database of a port", showFdbPort},
    {kAnyMode, "show lldp remote-device all", "LLDP neighbours", showLldpAll},
    {kAnyMode, "show lldp remote-device detail <port>", "LLDP neighbours of a port in full", showLldpDetail},
    {kAnyMode, "show arp", "IPv4 addresses and their MAC addresses", showArp},
    {kAnyMode, "show logging buffered", "The system log", showLogging},
    {kAnyMode, "show bootvar", "Boot images", showBootvar},
    {kAnyMode, "show ip management", "The management address", showIpManagement},
    {kAnyMode, "show version", "Model and software version", showVersion},
    {kAnyMode, "show port all", "State of all interfaces", showPortAll},
    {kAnyMode, "show port-channel all", "All link aggregation groups", showLagAll},
    {kAnyMode, "show port-channel <lag>", "One link aggregation group", showLag},
};

}  // namespace

std::span<const Command> showCommands() {
    return kShow;
}

}  // namespace vswitch::cli
