#include "vswitch/dataplane/openflow.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>

namespace vswitch {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint8_t kVersion = 5;
constexpr std::size_t kHeaderSize = 8;
enum Type : std::uint8_t {
    kHello = 0,
    kError = 1,
    kEchoRequest = 2,
    kEchoReply = 3,
    kSetConfig = 9,
    kPacketIn = 10,
    kPacketOut = 13,
    kFlowMod = 14,
    kMeterMod = 29,
    kBundleControl = 33,
    kBundleAdd = 34
};
constexpr std::uint16_t kBundleOpen = 0, kBundleCommit = 4, kBundleCommitted = 5, kAtomicAndOrdered = 3;
constexpr std::uint32_t kAny = 0xffffffff, kControllerPort = kFromController;
constexpr std::uint16_t kExperimenter = 0xffff, kInPort16 = 0xfff8;
constexpr std::uint32_t kNicira = 0x2320;
// What may wait to be sent, and frames that may wait to be fetched.
constexpr std::size_t kOutMax = 4 << 20, kFramesMax = 4096;

// --- bytes

void put(std::string &out, std::uint64_t value, int bytes) {
    for (int shift = (bytes - 1) * 8; shift >= 0; shift -= 8)
        out += static_cast<char>(value >> shift & 0xff);
}

void set(std::string &out, std::size_t at, std::uint64_t value, int bytes) {
    std::string number;
    put(number, value, bytes);
    out.replace(at, number.size(), number);
}

std::uint64_t get(std::string_view in, std::size_t at, std::size_t bytes) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < bytes; ++i)
        value = value << 8 | static_cast<std::uint8_t>(in[at + i]);
    return value;
}

void pad(std::string &out) {
    out.append((8 - out.size() % 8) % 8, '\0');
}

std::string header(Type type, std::uint32_t xid = 0) {
    std::string out;
    put(out, kVersion, 1);
    put(out, type, 1);
    put(out, 0, 2);
    put(out, xid, 4);
    return out;
}

std::string finished(std::string message) {
    set(message, 2, message.size(), 2);
    return message;
}

// --- strings of flow entries

// Cuts off what comes before the next comma outside of parentheses.
std::string_view nextPart(std::string_view &rest) {
    int depth = 0;
    std::size_t at = 0;
    for (; at < rest.size() && (rest[at] != ',' || depth > 0); ++at)
        depth += rest[at] == '(' ? 1 : rest[at] == ')' ? -1 : 0;
    const auto part = rest.substr(0, at);
    rest.remove_prefix(std::min(at + 1, rest.size()));
    return part;
}

bool cut(std::string_view &text, std::string_view prefix) {
    if (!text.starts_with(prefix))
        return false;
    text.remove_prefix(prefix.size());
    return true;
}

// What comes before `end`, which is cut off, too.
std::string_view before(std::string_view &text, std::string_view end) {
    const auto at = std::min(text.find(end), text.size());
    const auto part = text.substr(0, at);
    text.remove_prefix(std::min(at + end.size(), text.size()));
    return part;
}

std::optional<std::uint64_t> numberOf(std::string_view text) {
    const int base = cut(text, "0x") ? 16 : 10;
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    return error == std::errc{} && !text.empty() && end == text.data() + text.size() ? std::optional(value)
                                                                                     : std::nullopt;
}

std::optional<std::uint64_t> macOf(std::string_view text) {
    const auto mac = Mac::parse(text);
    if (!mac)
        return std::nullopt;
    std::uint64_t value = 0;
    for (const auto byte : mac->bytes)
        value = value << 8 | byte;
    return value;
}

std::optional<std::uint64_t> addressOf(std::string_view text) {
    in_addr address{};
    if (::inet_pton(AF_INET, std::string(text).c_str(), &address) != 1)
        return std::nullopt;
    return ntohl(address.s_addr);
}

// "255.255.0.0" or "16".
std::optional<std::uint64_t> addressMaskOf(std::string_view text) {
    if (text.find('.') != std::string_view::npos)
        return addressOf(text);
    const auto bits = numberOf(text);
    if (!bits || *bits > 32)
        return std::nullopt;
    return *bits == 0 ? 0 : ~std::uint64_t{0} << (32 - *bits) & 0xffffffff;
}

// --- fields

struct Field {
    std::string_view name;
    std::uint32_t header;  // class, number and length
    unsigned bits;
};
constexpr Field kFields[] = {{"NXM_OF_ETH_DST", 0x00000206, 48},
                             {"NXM_OF_ETH_SRC", 0x00000406, 48},
                             {"NXM_OF_VLAN_TCI", 0x00000802, 16},
                             {"NXM_OF_ARP_SPA", 0x00002004, 32}};
constexpr std::uint32_t kEthType = 0x00000602, kRegister0 = 0x00010004;
// Match fields of OpenFlow's own.
constexpr std::uint32_t kInPort = 0x80000004, kEthDst = 0x80000606, kEthSrc = 0x80000806,
                        kVlanVid = 0x80000c02, kOxmEthType = 0x80000a02, kIpProto = 0x80001401,
                        kIpSrc = 0x80001604, kIpDst = 0x80001804, kArpSpa = 0x80002c04, kVlanTci = 0x00000802;

std::uint32_t registerHeader(std::uint64_t number) {
    return kRegister0 | static_cast<std::uint32_t>(number) << 9;
}

// "NXM_OF_ETH_DST[]" or "NXM_NX_REG0[0..15]".
struct Bits {
    std::uint32_t header = 0;
    unsigned offset = 0, count = 0;
};

std::optional<Bits> bitsOf(std::string_view text) {
    const auto name = before(text, "[");
    Bits bits;
    if (auto number = name; cut(number, "NXM_NX_REG")) {
        const auto value = numberOf(number);
        if (!value || *value > 15)
            return std::nullopt;
        bits = {registerHeader(*value), 0, 32};
    } else {
        for (const auto &field : kFields)
            if (field.name == name)
                bits = {field.header, 0, field.bits};
    }
    const auto range = before(text, "]");
    if (bits.count == 0 || !text.empty())
        return std::nullopt;
    if (range.empty())
        return bits;
    auto rest = range;
    const auto first = numberOf(before(rest, "..")), last = numberOf(rest);
    if (!first || !last || *first > *last || *last >= bits.count)
        return std::nullopt;
    bits.offset = static_cast<unsigned>(*first);
    bits.count = static_cast<unsigned>(*last - *first + 1);
    return bits;
}

void putField(std::string &match, std::uint32_t field, std::uint64_t value,
              std::optional<std::uint64_t> mask = {}) {
    const auto length = static_cast<int>(field & 0xff);
    put(match, mask ? (field | 0x100) + static_cast<unsigned>(length) : field, 4);
    put(match, mask ? value & *mask : value, length);
    if (mask)
        put(match, *mask, length);
}

// --- match

bool putMatch(std::string &match, std::string_view name, std::string_view text) {
    const auto value = before(text, "/");
    const auto masked = [&](std::uint32_t field, auto parse, auto parseMask) {
        const auto number = parse(value);
        const auto mask = text.empty() ? std::nullopt : parseMask(text);
        if (!number || (!text.empty() && !mask))
            return false;
        putField(match, field, *number, mask);
        return true;
    };
    const auto number = [&](std::uint32_t field, std::uint64_t bits = 0) {
        const auto given = numberOf(value);
        if (given && text.empty())
            putField(match, field, *given | bits);
        return given && text.empty();
    };
    if (name == "ip" || name == "arp") {
        putField(match, kOxmEthType, name == "ip" ? 0x800 : 0x806);
        return value.empty();
    }
    if (name == "dl_type")
        return number(kOxmEthType);
    if (name == "in_port")
        return number(kInPort);
    if (name == "dl_vlan")
        return number(kVlanVid, 0x1000);
    if (name == "nw_proto")
        return number(kIpProto);
    if (name == "vlan_tci")
        return masked(kVlanTci, numberOf, numberOf);
    if (name == "dl_dst" || name == "dl_src")
        return masked(name == "dl_dst" ? kEthDst : kEthSrc, macOf, macOf);
    if (name == "nw_src" || name == "nw_dst")
        return masked(name == "nw_src" ? kIpSrc : kIpDst, addressOf, addressMaskOf);
    if (name == "arp_spa")
        return masked(kArpSpa, addressOf, addressMaskOf);
    if (cut(name, "reg"))
        if (const auto index = numberOf(name); index && *index <= 15)
            return number(registerHeader(*index));
    return false;
}

// --- actions

std::string experimenter(std::uint16_t subtype) {
    std::string action;
    put(action, kExperimenter, 2);
    put(action, 0, 2);
    put(action, kNicira, 4);
    put(action, subtype, 2);
    return action;
}

void putAction(std::string &actions, std::string action) {
    pad(action);
    set(action, 2, action.size(), 2);
    actions += action;
}

void putOutput(std::string &actions, std::uint32_t port, std::uint16_t length) {
    std::string action;
    put(action, 0, 4);
    put(action, port, 4);
    put(action, length, 2);
    action.append(6, '\0');
    putAction(actions, std::move(action));
}

void putLoad(std::string &actions, std::uint64_t value, const Bits &to) {
    auto action = experimenter(7);
    put(action, to.offset << 6 | (to.count - 1), 2);
    put(action, to.header, 4);
    put(action, value, 8);
    putAction(actions, std::move(action));
}

void putResubmit(std::string &actions, unsigned table) {
    auto action = experimenter(14);
    put(action, kInPort16, 2);
    put(action, table, 1);
    putAction(actions, std::move(action));
}

bool putMove(std::string &actions, std::string_view text) {
    const auto from = bitsOf(before(text, "->")), to = bitsOf(text);
    if (!from || !to || from->count != to->count)
        return false;
    auto action = experimenter(6);
    put(action, from->count, 2);
    put(action, from->offset, 2);
    put(action, to->offset, 2);
    put(action, from->header, 4);
    put(action, to->header, 4);
    putAction(actions, std::move(action));
    return true;
}

bool putStack(std::string &actions, std::uint16_t subtype, std::string_view text) {
    const auto bits = bitsOf(text);
    if (!bits)
        return false;
    auto action = experimenter(subtype);
    put(action, bits->offset, 2);
    put(action, bits->header, 4);
    put(action, bits->count, 2);
    putAction(actions, std::move(action));
    return true;
}

// "symmetric_l4,0,hrw,ofport,members:1,2".
bool putBundle(std::string &actions, std::string_view text) {
    if (!cut(text, "symmetric_l4,0,hrw,ofport,members:"))
        return false;
    std::vector<std::uint64_t> ports;
    while (!text.empty()) {
        const auto port = numberOf(before(text, ","));
        if (!port)
            return false;
        ports.push_back(*port);
    }
    auto action = experimenter(12);
    put(action, 1, 2);  // highest random weight
    put(action, 1, 2);  // symmetric, layer 4
    put(action, 0, 2);
    put(action, 0x00000002, 4);
    put(action, ports.size(), 2);
    action.append(10, '\0');
    for (const auto port : ports)
        put(action, port, 2);
    putAction(actions, std::move(action));
    return true;
}

bool putLearned(std::string &learn, std::string_view part) {
    constexpr unsigned kImmediate = 1 << 13, kLoad = 1 << 11;
    if (cut(part, "dl_type=")) {
        const auto type = numberOf(part);
        put(learn, kImmediate | 16, 2);
        put(learn, type.value_or(0), 2);
        put(learn, kEthType, 4);
        put(learn, 0, 2);
        return type.has_value();
    }
    const bool load = cut(part, "load:");
    // "FIELD" stands for "FIELD=FIELD".
    auto rest = part;
    const auto first = bitsOf(before(rest, load ? "->" : "=")),
               second = rest.empty() && !load ? first : bitsOf(rest);
    if (!first || !second || first->count != second->count)
        return false;
    const auto &from = load ? *first : *second, &to = load ? *second : *first;
    put(learn, (load ? kLoad : 0) | from.count, 2);
    for (const auto &bits : {from, to}) {
        put(learn, bits.header, 4);
        put(learn, bits.offset, 2);
    }
    return true;
}

bool putLearn(std::string &actions, std::string_view text) {
    std::uint64_t hard = 0, limit = 0, cookie = 0, table = 0;
    std::string learned;
    while (!text.empty()) {
        const auto part = nextPart(text);
        auto value = part;
        const auto name = before(value, "=");
        auto *const known = name == "table"          ? &table
                            : name == "hard_timeout" ? &hard
                            : name == "limit"        ? &limit
                            : name == "cookie"       ? &cookie
                                                     : nullptr;
        if (known == nullptr) {
            if (!putLearned(learned, part))
                return false;
        } else if (const auto number = numberOf(value)) {
            *known = *number;
        } else {
            return false;
        }
    }
    auto action = experimenter(45);
    put(action, 0, 2);
    put(action, hard, 2);
    put(action, 0x8000, 2);
    put(action, cookie, 8);
    put(action, 0, 2);
    put(action, table, 1);
    action.append(5, '\0');
    put(action, limit, 4);
    action.append(4, '\0');
    putAction(actions, action + learned);
    return true;
}

void putPush(std::string &actions, std::uint64_t type) {
    std::string action;
    put(action, 17, 2);
    put(action, 0, 2);
    put(action, type, 2);
    putAction(actions, std::move(action));
}

// Of a frame that has a tag.
void putVlan(std::string &actions, std::uint64_t vlan) {
    std::string action;
    put(action, 25, 2);
    put(action, 0, 2);
    put(action, kVlanVid, 4);
    put(action, vlan | 0x1000, 2);
    putAction(actions, std::move(action));
}

// One whose argument is a number; false when it is none of these.
bool putNumbered(std::string &actions, std::string_view part) {
    constexpr std::string_view kNames[] = {"output:", "controller:", "resubmit(,",
                                           "push_vlan:", "mod_vlan_vid:"};
    const auto *const name =
        std::ranges::find_if(kNames, [&](std::string_view known) { return part.starts_with(known); });
    if (name == std::end(kNames))
        return false;
    part.remove_prefix(name->size());
    if (name->ends_with(',') && part.ends_with(')'))
        part.remove_suffix(1);
    const auto value = numberOf(part);
    if (!value)
        return false;
    switch (name - kNames) {
        case 0:
            putOutput(actions, static_cast<std::uint32_t>(*value), 0);
            break;
        case 1:
            putOutput(actions, kControllerPort, static_cast<std::uint16_t>(*value));
            break;
        case 2:
            putResubmit(actions, static_cast<unsigned>(*value));
            break;
        case 3:
            putPush(actions, *value);
            break;
        default:
            putVlan(actions, *value);
    }
    return true;
}

bool putLoadOf(std::string &actions, std::string_view text) {
    const auto value = numberOf(before(text, "->"));
    const auto to = bitsOf(text);
    if (value && to)
        putLoad(actions, *value, *to);
    return value && to;
}

void putStrip(std::string &actions) {
    std::string action;
    put(action, 18, 2);
    put(action, 0, 2);
    putAction(actions, std::move(action));
}

bool putActions(std::string &actions, std::string_view text);

// One in another is not needed, and could be nested without end.
bool putClone(std::string &actions, std::string_view text) {
    std::string inner;
    if (text.find("clone(") != std::string_view::npos || !putActions(inner, text))
        return false;
    auto action = experimenter(42);
    pad(action);
    putAction(actions, action + inner);
    return true;
}

bool putActions(std::string &actions, std::string_view text) {
    while (!text.empty()) {
        auto part = nextPart(text);
        const bool enclosed = part.ends_with(')');
        if (part == "strip_vlan")
            putStrip(actions);
        else if (!putNumbered(actions, part) && !(cut(part, "load:") && putLoadOf(actions, part)) &&
                 !(cut(part, "move:") && putMove(actions, part)) &&
                 !(cut(part, "push:") && putStack(actions, 27, part)) &&
                 !(cut(part, "pop:") && putStack(actions, 28, part)) &&
                 !(enclosed && cut(part, "bundle(") && putBundle(actions, part.substr(0, part.size() - 1))) &&
                 !(enclosed && cut(part, "clone(") && putClone(actions, part.substr(0, part.size() - 1))) &&
                 !(enclosed && cut(part, "learn(") && putLearn(actions, part.substr(0, part.size() - 1))))
            return false;
    }
    return true;
}

std::string errorText(std::string_view message) {
    char text[64];
    std::snprintf(text, sizeof text, "refused by Open vSwitch, error type %llu, code %llu",
                  static_cast<unsigned long long>(get(message, 8, 2)),
                  static_cast<unsigned long long>(get(message, 10, 2)));
    return text;
}

}  // namespace

// --- messages

std::optional<std::string> flowModOf(std::string_view line) {
    constexpr std::pair<std::string_view, unsigned> kCommands[] = {
        {"add", 0}, {"delete", 3}, {"delete_strict", 4}};
    const auto word = before(line, " ");
    const auto *const command =
        std::ranges::find(kCommands, word, &std::pair<std::string_view, unsigned>::first);
    if (command == std::end(kCommands))
        return std::nullopt;
    std::uint64_t table = command->second == 0 ? 0 : 0xff, priority = 0x8000, hard = 0, cookie = 0, mask = 0;
    std::string match, actions;
    auto rest = line;
    const auto key = before(rest, "actions=");
    std::optional<std::uint64_t> meter;
    if (cut(rest, "meter:")) {
        meter = numberOf(nextPart(rest));
        if (!meter)
            return std::nullopt;
    }
    if (rest != "drop" && !putActions(actions, rest))
        return std::nullopt;
    for (auto left = key; !left.empty();) {
        auto value = nextPart(left);
        const auto name = before(value, "=");
        auto *const known = name == "table"          ? &table
                            : name == "priority"     ? &priority
                            : name == "hard_timeout" ? &hard
                            : name == "cookie"       ? &cookie
                                                     : nullptr;
        if (known == nullptr) {
            if (!putMatch(match, name, value))
                return std::nullopt;
            continue;
        }
        const auto number = numberOf(before(value, "/"));
        if (!number)
            return std::nullopt;
        *known = *number;
        if (name == "cookie" && !value.empty())
            mask = numberOf(value).value_or(0);
    }
    auto out = header(kFlowMod);
    put(out, cookie, 8);
    put(out, mask, 8);
    put(out, table, 1);
    put(out, command->second, 1);
    put(out, 0, 2);
    put(out, hard, 2);
    put(out, priority, 2);
    put(out, kAny, 4);
    put(out, kAny, 4);
    put(out, kAny, 4);
    put(out, 0, 4);
    put(out, 1, 2);
    put(out, match.size() + 4, 2);
    out += match;
    pad(out);
    if (meter) {
        put(out, 6, 2);
        put(out, 8, 2);
        put(out, *meter, 4);
    }
    if (!actions.empty()) {
        put(out, 4, 2);
        put(out, actions.size() + 8, 2);
        put(out, 0, 4);
        out += actions;
    }
    return finished(std::move(out));
}

std::string meterOf(std::uint32_t id, std::uint32_t perSecond, std::uint32_t atOnce) {
    constexpr std::uint16_t kAdd = 0, kPacketsPerSecond = 2, kBurst = 4, kDrop = 1, kBandSize = 16;
    auto out = header(kMeterMod);
    put(out, kAdd, 2);
    put(out, kPacketsPerSecond | kBurst, 2);
    put(out, id, 4);
    put(out, kDrop, 2);
    put(out, kBandSize, 2);
    put(out, perSecond, 4);
    put(out, atOnce, 4);
    put(out, 0, 4);
    return finished(std::move(out));
}

std::optional<PacketIn> packetInOf(std::string_view message) {
    constexpr std::size_t kMatchAt = 24;
    if (message.size() < kMatchAt + 4 || static_cast<std::uint8_t>(message[0]) != kVersion ||
        message[1] != kPacketIn)
        return std::nullopt;
    PacketIn in;
    in.table = static_cast<unsigned>(get(message, 15, 1));
    const auto length = static_cast<std::size_t>(get(message, kMatchAt + 2, 2));
    const auto end = kMatchAt + length, data = kMatchAt + (length + 7) / 8 * 8 + 2;
    if (length < 4 || data > message.size())
        return std::nullopt;
    for (auto at = kMatchAt + 4; at + 4 <= end;) {
        const auto field = static_cast<std::uint32_t>(get(message, at, 4));
        const std::size_t size = field & 0xff;
        if (at + 4 + size > end)
            return std::nullopt;
        if (field == kInPort)
            in.port = static_cast<IfNum>(get(message, at + 4, 4));
        else if (field == registerHeader(1))
            in.interface = static_cast<IfNum>(get(message, at + 4, 4));
        at += 4 + size;
    }
    in.frame = message.substr(data);
    return in;
}

std::string packetOutOf(std::uint32_t inPort,
                        const std::vector<std::pair<unsigned, std::uint32_t>> &registers, int table,
                        std::string_view frame) {
    std::string actions;
    for (const auto &[number, value] : registers)
        putLoad(actions, value, {registerHeader(number), 0, 32});
    putResubmit(actions, static_cast<unsigned>(table));
    auto out = header(kPacketOut);
    put(out, kAny, 4);
    put(out, inPort, 4);
    put(out, actions.size(), 2);
    out.append(6, '\0');
    out += actions;
    out += frame;
    return finished(std::move(out));
}

// --- the connection

bool OpenFlowConnection::open(const std::string &folder, const std::string &name) {
    close();
    // By way of the folder's descriptor: the path may be longer than an address can be.
    const Descriptor place(::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const auto path = "/proc/self/fd/" + std::to_string(place.get()) + "/" + name;
    if (!place || !socket || path.size() >= sizeof address.sun_path)
        return false;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    if (::connect(socket.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        return false;
    socket_ = std::move(socket);
    out_ = finished(header(kHello));
    // Without a length it would not be sent what flow entries bring up.
    auto settings = header(kSetConfig);
    put(settings, 0, 2);
    put(settings, 0xffff, 2);
    out_ += finished(std::move(settings));
    return exchange();
}

void OpenFlowConnection::close() {
    socket_.reset();
    in_.clear();
    out_.clear();
    awaited_ = 0;
}

ToolResult OpenFlowConnection::change(const std::vector<std::string> &lines, std::chrono::milliseconds limit,
                                      int abort, int otherAbort) {
    ToolResult result;
    const auto begin = Clock::now();
    if (!isOpen()) {
        result.error = "no connection to Open vSwitch";
        return result;
    }
    const auto bundle = ++lastXid_;
    std::string messages;
    const auto control = [&](std::uint16_t what) {
        auto message = header(kBundleControl, ++lastXid_);
        put(message, bundle, 4);
        put(message, what, 2);
        put(message, kAtomicAndOrdered, 2);
        messages += finished(std::move(message));
    };
    control(kBundleOpen);
    for (const auto &line : lines) {
        auto change = flowModOf(line);
        if (!change) {
            result.status = 1;
            result.error = "not a flow entry: " + line;
            return result;
        }
        auto message = header(kBundleAdd, ++lastXid_);
        set(*change, 4, lastXid_, 4);
        put(message, bundle, 4);
        put(message, 0, 2);
        put(message, kAtomicAndOrdered, 2);
        message += *change;
        messages += finished(std::move(message));
    }
    control(kBundleCommit);
    out_ += messages;
    awaited_ = lastXid_;
    answer_ = {};
    for (;;) {
        if (!exchange()) {
            result.error = "Open vSwitch has closed the connection";
            break;
        }
        if (answer_.here) {
            result.status = answer_.error.empty() ? 0 : 1;
            result.error = answer_.error;
            break;
        }
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(begin + limit - Clock::now()).count();
        std::array<pollfd, 3> ends{
            {{socket_.get(), static_cast<short>(out_.empty() ? POLLIN : POLLIN | POLLOUT), 0},
             {abort, POLLIN, 0},
             {otherAbort, POLLIN, 0}}};
        if (left <= 0 || (::poll(ends.data(), ends.size(), static_cast<int>(left)) < 0 && errno != EINTR) ||
            ends[1].revents != 0 || ends[2].revents != 0) {
            result.error = "Open vSwitch has not answered";
            break;
        }
    }
    awaited_ = 0;
    if (result.status < 0)
        close();
    result.took = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin);
    return result;
}

void OpenFlowConnection::send(std::string message) {
    if (!isOpen())
        return;
    if (out_.size() + message.size() <= kOutMax)
        out_ += message;
    exchange();
}

std::vector<PacketIn> OpenFlowConnection::receive() {
    if (isOpen())
        exchange();
    return std::exchange(frames_, {});
}

// Sends and receives what is possible without waiting. False: closed.
bool OpenFlowConnection::exchange() {
    while (!out_.empty()) {
        const auto sent = ::send(socket_.get(), out_.data(), out_.size(), MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR)
            continue;
        if (sent < 0 && errno == EAGAIN)
            break;
        if (sent <= 0) {
            close();
            return false;
        }
        out_.erase(0, static_cast<std::size_t>(sent));
    }
    std::array<char, 65536> buffer;
    for (;;) {
        const auto got = ::recv(socket_.get(), buffer.data(), buffer.size(), 0);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0 && errno == EAGAIN)
            break;
        if (got <= 0) {
            close();
            return false;
        }
        in_.append(buffer.data(), static_cast<std::size_t>(got));
        std::size_t at = 0;
        while (in_.size() - at >= kHeaderSize) {
            const auto length = static_cast<std::size_t>(get(in_, at + 2, 2));
            if (length < kHeaderSize) {
                close();
                return false;
            }
            if (in_.size() - at < length)
                break;
            take(std::string_view(in_).substr(at, length));
            at += length;
        }
        in_.erase(0, at);
    }
    return true;
}

void OpenFlowConnection::take(std::string_view message) {
    const auto type = static_cast<std::uint8_t>(message[1]);
    const auto xid = static_cast<std::uint32_t>(get(message, 4, 4));
    if (type == kEchoRequest) {
        std::string reply(message);
        reply[1] = kEchoReply;
        out_ += reply;
    } else if (type == kPacketIn) {
        auto frame = packetInOf(message);
        if (frame && frames_.size() < kFramesMax)
            frames_.push_back(std::move(*frame));
    } else if (type == kError && message.size() >= 12) {
        // The first error is the cause; those after it say that the bundle cannot be used any more.
        if (awaited_ != 0 && xid != 0 && answer_.error.empty())
            answer_.error = errorText(message);
        answer_.here |= xid == awaited_;
    } else if (type == kBundleControl && message.size() >= 16 && xid == awaited_ &&
               get(message, 12, 2) == kBundleCommitted) {
        answer_.here = true;
    }
}

}  // namespace vswitch
