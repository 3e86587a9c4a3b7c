#include "vswitch/dataplane/igmp_frame.h"

#include <algorithm>
#include <chrono>

namespace vswitch {
namespace {

using std::chrono::milliseconds;

constexpr std::size_t kMacSize = 6, kEthernetSize = 18, kIpSize = 20, kIgmpSize = 8, kIgmp3QuerySize = 12;
constexpr std::uint32_t kTag = 0x8100, kIpv4 = 0x800, kIgmpProtocol = 2;
constexpr Ipv4 kAllHosts = 0xe0000001;

enum Type : std::uint8_t { kQuery = 0x11, kReport1 = 0x12, kReport2 = 0x16, kLeave2 = 0x17, kReport3 = 0x22 };
// Of a group record.
enum Record : std::uint8_t { kIsInclude = 1, kIsExclude, kToInclude, kToExclude, kAllow, kBlock };

std::uint32_t get(std::string_view in, std::size_t at, std::size_t bytes) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < bytes; ++i)
        value = value << 8 | static_cast<std::uint8_t>(in[at + i]);
    return value;
}

void put(std::string &out, std::uint32_t value, int bytes) {
    for (int shift = (bytes - 1) * 8; shift >= 0; shift -= 8)
        out += static_cast<char>(value >> shift & 0xff);
}

Mac macAt(std::string_view in, std::size_t at) {
    Mac mac;
    for (std::size_t i = 0; i < kMacSize; ++i)
        mac.bytes[i] = static_cast<std::uint8_t>(in[at + i]);
    return mac;
}

// Over data that holds a checksum: 0 when it is right.
std::uint32_t checksumOf(std::string_view data) {
    std::uint32_t sum = 0;
    for (std::size_t at = 0; at < data.size(); at += 2)
        sum += at + 1 < data.size() ? get(data, at, 2) : get(data, at, 1) << 8;
    while (sum > 0xffff)
        sum = (sum & 0xffff) + (sum >> 16);
    return ~sum & 0xffff;
}

void putChecksum(std::string &packet, std::size_t from, std::size_t at) {
    std::string sum;
    put(sum, checksumOf(std::string_view(packet).substr(from)), 2);
    packet.replace(at, sum.size(), sum);
}

bool isGroup(Ipv4 address) {
    return address >> 28 == 0xe;
}

// Version 3 writes long times as a floating-point number.
Duration responseOf(std::uint32_t code, std::uint32_t version) {
    if (version == 3 && code >= 128)
        code = ((code & 0x0f) | 0x10) << ((code >> 4 & 0x07) + 3);
    return milliseconds(100) * static_cast<int>(code);
}

std::uint32_t codeOf(Duration response, std::uint32_t version) {
    const auto tenths = std::max<std::int64_t>(1, std::chrono::ceil<milliseconds>(response).count() / 100);
    if (version < 3 || tenths < 128)
        return static_cast<std::uint32_t>(std::min<std::int64_t>(tenths, version < 3 ? 255 : 127));
    std::uint32_t exponent = 0;
    while (exponent < 7 && tenths >> (exponent + 3) > 0x1f)
        ++exponent;
    return 0x80 | exponent << 4 |
           (static_cast<std::uint32_t>(std::min<std::int64_t>(tenths >> (exponent + 3), 0x1f)) & 0xf);
}

// The records of a version 3 report; false when they are not complete.
bool readRecords(std::string_view igmp, const IgmpMessage &common, std::vector<IgmpMessage> &messages) {
    auto left = get(igmp, 6, 2);
    for (std::size_t at = kIgmpSize; left > 0; --left) {
        if (at + 8 > igmp.size())
            return false;
        const auto type = get(igmp, at, 1), auxiliary = get(igmp, at + 1, 1), sources = get(igmp, at + 2, 2);
        auto message = common;
        message.group = get(igmp, at + 4, 4);
        at += 8 + std::size_t{4} * (sources + auxiliary);
        if (at > igmp.size() || !isGroup(message.group))
            return false;
        // Nothing included is nothing wanted; sources that are blocked leave others.
        const bool included = type == kIsInclude || type == kToInclude;
        if (type < kIsInclude || type >= kBlock || (type == kIsInclude && sources == 0))
            continue;
        message.kind = included && sources == 0 ? IgmpKind::Leave : IgmpKind::Report;
        messages.push_back(message);
    }
    return true;
}

}  // namespace

std::optional<TaggedHeader> taggedHeaderOf(std::string_view frame) {
    if (frame.size() < kEthernetSize || get(frame, 2 * kMacSize, 2) != kTag)
        return std::nullopt;
    return TaggedHeader{macAt(frame, 0), macAt(frame, kMacSize), get(frame, 2 * kMacSize + 2, 2) & 0xfff};
}

std::optional<IgmpFrame> parseIgmpFrame(std::string_view frame, IfNum interface) {
    const auto header = taggedHeaderOf(frame);
    if (!header || get(frame, 2 * kMacSize + 4, 2) != kIpv4)
        return std::nullopt;
    auto packet = frame.substr(kEthernetSize);
    if (packet.size() < kIpSize || get(packet, 0, 1) >> 4 != 4)
        return std::nullopt;
    const std::size_t headSize = std::size_t{4} * (get(packet, 0, 1) & 0xf), size = get(packet, 2, 2);
    // No host needs to cut IGMP into fragments.
    const bool fragment = (get(packet, 6, 2) & 0x3fff) != 0;
    if (headSize < kIpSize || size < headSize + kIgmpSize || size > packet.size() || fragment ||
        get(packet, 9, 1) != kIgmpProtocol || checksumOf(packet.substr(0, headSize)) != 0)
        return std::nullopt;
    const auto igmp = packet.substr(headSize, size - headSize);
    if (checksumOf(igmp) != 0)
        return std::nullopt;

    IgmpFrame out;
    out.vlan = header->vlan;
    IgmpMessage message;
    message.vlan = header->vlan;
    message.interface = interface;
    message.mac = header->source;
    message.host = get(packet, 12, 4);
    message.group = get(igmp, 4, 4);
    const auto type = get(igmp, 0, 1), code = get(igmp, 1, 1);
    switch (type) {
        case kQuery:
            out.kind = IgmpFrame::Kind::Query;
            if (message.group != 0 && !isGroup(message.group))
                return std::nullopt;
            message.kind = IgmpKind::Query;
            message.version = igmp.size() >= kIgmp3QuerySize ? 3 : code == 0 ? 1 : 2;
            message.maxResponse =
                message.version == 1 ? milliseconds(10'000) : responseOf(code, message.version);
            out.messages.push_back(message);
            return out;
        case kReport1:
        case kReport2:
        case kLeave2:
            out.kind = IgmpFrame::Kind::Membership;
            if (!isGroup(message.group))
                return std::nullopt;
            message.kind = type == kLeave2 ? IgmpKind::Leave : IgmpKind::Report;
            message.version = type == kReport1 ? 1 : 2;
            out.messages.push_back(message);
            return out;
        case kReport3:
            out.kind = IgmpFrame::Kind::Membership;
            message.version = 3;
            if (!readRecords(igmp, message, out.messages))
                return std::nullopt;
            return out;
        default:
            return out;
    }
}

std::string igmpQueryFrame(const IgmpQuery &query, const Mac &source) {
    const auto destination = query.group != 0 ? query.group : kAllHosts;
    std::string frame;
    put(frame, 0x01005e, 3);
    put(frame, destination & 0x7fffff, 3);
    for (const auto byte : source.bytes)
        frame += static_cast<char>(byte);
    put(frame, kTag, 2);
    // Network control goes before the rest.
    put(frame, 6u << 13 | query.vlan, 2);
    put(frame, kIpv4, 2);
    // With the router alert option.
    const std::size_t headSize = 24, igmpSize = query.version >= 3 ? kIgmp3QuerySize : kIgmpSize;
    put(frame, 0x46, 1);
    put(frame, 0xc0, 1);
    put(frame, static_cast<std::uint32_t>(headSize + igmpSize), 2);
    put(frame, 0, 4);
    put(frame, 1, 1);
    put(frame, kIgmpProtocol, 1);
    put(frame, 0, 2);
    put(frame, query.source, 4);
    put(frame, destination, 4);
    put(frame, 0x94040000, 4);
    putChecksum(frame, kEthernetSize, kEthernetSize + 10);
    const auto igmpAt = frame.size();
    put(frame, kQuery, 1);
    put(frame, query.version < 2 ? 0 : codeOf(query.maxResponse, query.version), 1);
    put(frame, 0, 2);
    put(frame, query.group, 4);
    if (query.version >= 3) {
        // Robustness 2; the interval is left open.
        put(frame, 0x02000000, 4);
    }
    putChecksum(frame, igmpAt, igmpAt + 2);
    // The shortest frame, with its tag, but without its checksum.
    frame.resize(std::max<std::size_t>(frame.size(), 64), '\0');
    return frame;
}

}  // namespace vswitch
