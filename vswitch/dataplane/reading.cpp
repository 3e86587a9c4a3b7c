#include "vswitch/dataplane/reading.h"

#include <arpa/inet.h>

#include <charconv>
#include <nlohmann/json.hpp>

#include "vswitch/dataplane/flows.h"

namespace vswitch {
namespace {

using nlohmann::json;

// The characters after `name` and before the next comma or blank.
std::string_view fieldOf(std::string_view line, std::string_view name) {
    for (auto at = line.find(name); at != std::string_view::npos; at = line.find(name, at + 1)) {
        if (at != 0 && line[at - 1] != ' ' && line[at - 1] != ',')
            continue;
        const auto start = at + name.size();
        return line.substr(start, line.find_first_of(", \n", start) - start);
    }
    return {};
}

std::optional<std::uint64_t> numberIn(std::string_view text) {
    const bool hex = text.starts_with("0x");
    if (hex)
        text.remove_prefix(2);
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, hex ? 16 : 10);
    return error == std::errc{} && end != text.data() ? std::optional(value) : std::nullopt;
}

// The number that "load:NUMBER->`target`" loads.
std::optional<std::uint64_t> loadedInto(std::string_view line, std::string_view target) {
    const auto arrow = line.find(target);
    if (arrow == std::string_view::npos)
        return std::nullopt;
    const auto load = line.rfind("load:", arrow);
    return load == std::string_view::npos ? std::nullopt : numberIn(line.substr(load + 5, arrow - load - 5));
}

// Seconds; longer than any address is kept.
constexpr std::uint64_t kAgeMax = 1'000'000;

void readAddress(std::string_view line, VlanId vlan, LearnedRows &rows) {
    const auto mac = Mac::parse(fieldOf(line, "dl_dst="));
    const auto interface = loadedInto(line, "->NXM_NX_REG0[");
    // The time since the flow entry was last refreshed is given only when it differs from the entry's own
    // age.
    auto age = numberIn(fieldOf(line, "hard_age="));
    if (!age)
        age = numberIn(fieldOf(line, "duration="));
    if (mac && interface && age && *age <= kAgeMax)
        rows.addresses.push_back({*mac, vlan, static_cast<IfNum>(*interface),
                                  std::chrono::seconds(static_cast<std::int64_t>(*age))});
}

void readArp(std::string_view line, VlanId vlan, IfNum interface, LearnedRows &rows) {
    const std::string ip(fieldOf(line, "arp_spa="));
    in_addr address{};
    const auto low = loadedInto(line, "->NXM_NX_REG5["), high = loadedInto(line, "->NXM_NX_REG6[");
    if (!low || !high || ::inet_pton(AF_INET, ip.c_str(), &address) != 1)
        return;
    Mac mac;
    const std::uint64_t bits = *high << 32 | *low;
    for (std::size_t i = 0; i < mac.bytes.size(); ++i)
        mac.bytes[i] = static_cast<std::uint8_t>(bits >> (8 * (mac.bytes.size() - 1 - i)));
    rows.arp[{vlan, ip}] = mac;
    rows.arpInterfaces[{vlan, ip}] = interface;
}

// Bytes that are not UTF-8, and control characters that lldpcli leaves as they are, would make the whole
// document unreadable.
std::string asUtf8(const std::string &text) {
    std::string out;
    for (std::size_t i = 0; i < text.size();) {
        const auto lead = static_cast<unsigned char>(text[i]);
        std::size_t length = lead < 0x80                   ? 1
                             : lead >= 0xc2 && lead < 0xe0 ? 2
                             : (lead & 0xf0) == 0xe0       ? 3
                                                           : 4;
        bool good = lead < 0x80 ? lead >= 0x20 || lead == '\n' || lead == '\t' : lead >= 0xc2 && lead < 0xf5;
        for (std::size_t k = 1; good && k < length; ++k)
            good = i + k < text.size() && (static_cast<unsigned char>(text[i + k]) & 0xc0) == 0x80;
        // Overlong forms and surrogates.
        if (good && length > 2) {
            const auto second = static_cast<unsigned char>(text[i + 1]);
            good = !((lead == 0xe0 && second < 0xa0) || (lead == 0xed && second > 0x9f) ||
                     (lead == 0xf0 && second < 0x90) || (lead == 0xf4 && second > 0x8f));
        }
        if (!good)
            length = 1;
        out += good ? text.substr(i, length) : "?";
        i += length;
    }
    return out;
}

const json &element(const json &from, const char *name) {
    static const json none;
    const auto it = from.is_object() ? from.find(name) : from.end();
    return it != from.end() && it->is_array() && !it->empty() ? it->front() : none;
}

std::string member(const json &from, const char *name) {
    const auto it = from.is_object() ? from.find(name) : from.end();
    return it != from.end() && it->is_string() ? it->get<std::string>() : "";
}

std::string valueOf(const json &from, const char *name) {
    return member(element(from, name), "value");
}

struct Subtype {
    const char *name;
    std::uint32_t chassis, port;  // as on the wire
};
constexpr Subtype kSubtypes[] = {
    {"mac", 4, 3}, {"local", 7, 7}, {"ifname", 6, 5}, {"ifalias", 2, 1}, {"ip", 5, 4}};
constexpr Subtype kOtherSubtype = {"", 1, 2};  // a component

std::string idOf(const json &from, const Subtype *&subtype) {
    const auto &id = element(from, "id");
    subtype = &kOtherSubtype;
    const auto type = member(id, "type");
    for (const auto &known : kSubtypes)
        if (type == known.name)
            subtype = &known;
    const auto value = member(id, "value");
    const auto mac = type == "mac" ? Mac::parse(value) : std::nullopt;
    return mac ? mac->text() : value;
}

// "bridge, router": what a neighbour has enabled, as the switch names it.
std::string capabilitiesOf(const json &chassis) {
    std::string names;
    const auto all = chassis.is_object() ? chassis.find("capability") : chassis.end();
    if (all == chassis.end() || !all->is_array())
        return names;
    for (const auto &one : *all) {
        const auto enabled = one.is_object() ? one.find("enabled") : one.end();
        if (enabled == one.end() || *enabled != true)
            continue;
        auto name = member(one, "type");
        for (char &c : name)
            c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
        names += (names.empty() ? "" : ", ") + name;
    }
    return names;
}

SeenNeighbour neighbourOf(IfNum port, const json &heard) {
    const auto &chassis = element(heard, "chassis"), &remote = element(heard, "port");
    SeenNeighbour neighbour{port, {}};
    auto &fields = neighbour.fields;
    const Subtype *subtype = nullptr;
    fields.chassisId = idOf(chassis, subtype);
    fields.chassisIdSubtype = subtype->chassis;
    fields.portId = idOf(remote, subtype);
    fields.portIdSubtype = subtype->port;
    fields.portDesc = valueOf(remote, "descr");
    fields.systemName = valueOf(chassis, "name");
    fields.systemDesc = valueOf(chassis, "descr");
    fields.mgmtAddress = valueOf(chassis, "mgmt-ip");
    fields.capabilities = capabilitiesOf(chassis);
    fields.ttl = static_cast<std::uint32_t>(numberIn(valueOf(remote, "ttl")).value_or(fields.ttl));
    return neighbour;
}

}  // namespace

LearnedRows learnedRowsOf(const std::string &dump) {
    LearnedRows rows;
    for (std::string_view rest = dump; !rest.empty();) {
        const auto end = std::min(rest.find('\n'), rest.size());
        const auto line = rest.substr(0, end);
        rest.remove_prefix(std::min(end + 1, rest.size()));
        const auto cookie = numberIn(fieldOf(line, "cookie=")), tci = numberIn(fieldOf(line, "vlan_tci="));
        if (!cookie || !tci || (*cookie & kLearnedCookie) == 0)
            continue;
        const auto vlan = static_cast<VlanId>(*tci & 0xfff);
        if ((*cookie & kArpCookie) == kArpCookie)
            readArp(line, vlan, static_cast<IfNum>(*cookie & kInterfaceCookie), rows);
        else
            readAddress(line, vlan, rows);
    }
    return rows;
}

std::optional<std::vector<SeenNeighbour>> neighboursOf(const std::string &document, const PortMap &ports) {
    const auto root = json::parse(asUtf8(document), nullptr, false);
    if (!root.is_object() || !root.contains("lldp"))
        return std::nullopt;
    std::vector<SeenNeighbour> found;
    const auto &lldp = element(root, "lldp");
    const auto interfaces = lldp.is_object() ? lldp.find("interface") : lldp.end();
    if (interfaces == lldp.end() || !interfaces->is_array())
        return found;
    for (const auto &heard : *interfaces) {
        const auto name = member(heard, "name");
        for (const auto &[port, netdev] : ports)
            if (netdev == name && member(heard, "via") == "LLDP")
                found.push_back(neighbourOf(port, heard));
    }
    return found;
}

}  // namespace vswitch
