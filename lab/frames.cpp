// frames: sends numbered Ethernet frames, and counts those that arrive, on interfaces of the laboratory.
#include <arpa/inet.h>
#include <linux/filter.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iostream>
#include <limits>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "platform/version.h"

#ifndef PACKET_IGNORE_OUTGOING
#define PACKET_IGNORE_OUTGOING 23
#endif

namespace {

constexpr std::uint16_t kEtherType = 0x88B5;  // reserved for local experiments
constexpr std::size_t kBatch = 64;
constexpr std::size_t kSizeMax = 9018;
constexpr int kSocketBuffer = 64 * 1024 * 1024;
constexpr std::int64_t kNanosecond = 1'000'000'000;

volatile std::sig_atomic_t ended = 0;

void endOnSignals() {
    struct sigaction action{};
    action.sa_handler = [](int) { ended = 1; };  // no SA_RESTART: a signal ends a wait, too
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
}

[[noreturn]] void fail(const std::string &what) {
    throw std::system_error(errno, std::generic_category(), what);
}

std::int64_t nanoseconds(const std::timespec &time) {
    return time.tv_sec * kNanosecond + time.tv_nsec;
}

std::int64_t now(clockid_t clock) {
    std::timespec time{};
    ::clock_gettime(clock, &time);
    return nanoseconds(time);
}

void sleepUntil(std::int64_t monotonic) {
    const std::timespec time{monotonic / kNanosecond, monotonic % kNanosecond};
    ::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &time, nullptr);
}

// --- frames

using Mac = std::array<unsigned char, ETH_ALEN>;

Mac macOf(const std::string &text) {
    Mac mac{};
    int used = 0;
    if (std::sscanf(text.c_str(), "%2hhx:%2hhx:%2hhx:%2hhx:%2hhx:%2hhx%n", &mac[0], &mac[1], &mac[2], &mac[3],
                    &mac[4], &mac[5], &used) != ETH_ALEN ||
        static_cast<std::size_t>(used) != text.size())
        throw std::invalid_argument("not a MAC address: " + text);
    return mac;
}

Mac groupMacOf(std::uint32_t group) {
    const auto byte = [group](int shift, unsigned mask) {
        return static_cast<unsigned char>(group >> shift & mask);
    };
    return {0x01, 0x00, 0x5e, byte(16, 0x7f), byte(8, 0xff), byte(0, 0xff)};
}

std::uint64_t numberOf(const Mac &mac) {
    std::uint64_t number = 0;
    for (const auto byte : mac)
        number = number << 8 | byte;
    return number;
}

template <class Integer>
unsigned char *put(unsigned char *at, Integer value, int bytes) {
    for (int shift = (bytes - 1) * 8; shift >= 0; shift -= 8)
        *at++ = static_cast<unsigned char>(value >> shift);
    return at;
}

std::uint64_t get(const unsigned char *at, int bytes) {
    std::uint64_t value = 0;
    for (int i = 0; i < bytes; ++i)
        value = value << 8 | at[i];
    return value;
}

// After the Ethernet header, or the UDP header of a multicast group's frame, big-endian: flow (4 bytes), number
// (4), the sender's time of day in ns (8).
constexpr std::size_t kIpSize = 20, kUdpSize = 8;
constexpr std::size_t kDataSize = 16;
constexpr std::size_t kHeadSize = ETH_HLEN + kDataSize, kGroupHeadSize = kHeadSize + kIpSize + kUdpSize;
constexpr std::uint16_t kUdpPort = 5004;
constexpr std::uint32_t kGroupAt = ETH_HLEN + 16;  // the destination address

std::size_t flowAt(bool group) {
    return ETH_HLEN + (group ? kIpSize + kUdpSize : 0);
}

std::uint32_t addressOf(const std::string &text) {
    in_addr address{};
    if (::inet_pton(AF_INET, text.c_str(), &address) != 1)
        throw std::invalid_argument("not an IPv4 address: " + text);
    return ntohl(address.s_addr);
}

// IPv4 and UDP headers for a packet of `size` bytes; without a UDP checksum.
void putPacketHead(unsigned char *at, std::size_t size, std::uint32_t source, std::uint32_t group) {
    const auto *start = at;
    at = put(put(put(at, 0x4500, 2), size, 2), 0, 4);
    auto *checksum = put(put(at, 8, 1), IPPROTO_UDP, 1);
    at = put(put(put(checksum, 0, 2), source, 4), group, 4);
    std::uint32_t sum = 0;
    for (std::size_t i = 0; i < kIpSize; i += 2)
        sum += static_cast<std::uint32_t>(get(start + i, 2));
    sum = (sum & 0xffff) + (sum >> 16);
    put(checksum, ~(sum + (sum >> 16)) & 0xffff, 2);
    put(put(put(put(at, kUdpPort, 2), kUdpPort, 2), size - kIpSize, 2), 0, 2);
}

// --- the socket

class PacketSocket {
  public:
    // Not bound yet, so that no frame arrives before the filter is in place.
    PacketSocket() : fd_(::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0)) {
        if (fd_ < 0)
            fail("packet socket");
    }
    ~PacketSocket() { ::close(fd_); }
    PacketSocket(const PacketSocket &) = delete;
    PacketSocket &operator=(const PacketSocket &) = delete;

    void bindTo(const std::string &interface, std::uint16_t protocol) const {
        sockaddr_ll address{};
        address.sll_family = AF_PACKET;
        address.sll_protocol = htons(protocol);
        address.sll_ifindex = static_cast<int>(::if_nametoindex(interface.c_str()));
        if (address.sll_ifindex == 0)
            fail(interface);
        if (::bind(fd_, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0)
            fail(interface);
    }

    template <class Value>
    void set(int level, int option, const Value &value, const char *what) const {
        if (::setsockopt(fd_, level, option, &value, sizeof value) != 0)
            fail(what);
    }

    int fd() const { return fd_; }

  private:
    int fd_;
};

// --- send

struct SendOptions {
    std::string interface, to, from, group, address = "0.0.0.0";
    std::uint32_t sources = 1, flow = 0, count = 0;
    std::uint16_t vlan = 0;
    double rate = 0, seconds = 0;
    std::size_t size = 64;
};

class Sender {
  public:
    explicit Sender(const SendOptions &options)
        : options_(options),
          base_(numberOf(macOf(options.from))),
          tagSize_(options.vlan != 0 ? 4 : 0),
          dataAt_(tagSize_ + flowAt(!options.group.empty())) {
        const auto group = options.group.empty() ? 0 : addressOf(options.group);
        const auto to = group != 0 ? groupMacOf(group) : macOf(options.to);
        for (std::size_t i = 0; i < kBatch; ++i) {
            auto &frame = frames_[i];
            frame.assign(options.size + tagSize_, 0);
            auto *at = std::copy(to.begin(), to.end(), frame.data()) + ETH_ALEN;
            if (tagSize_ != 0)
                at = put(put(at, ETH_P_8021Q, 2), options.vlan, 2);
            at = put(at, group != 0 ? std::uint16_t{ETH_P_IP} : kEtherType, 2);
            if (group != 0)
                putPacketHead(at, options.size - ETH_HLEN, addressOf(options.address), group);
            put(frame.data() + dataAt_, options.flow, 4);
            vectors_[i] = {frame.data(), frame.size()};
            messages_[i].msg_hdr.msg_iov = &vectors_[i];
            messages_[i].msg_hdr.msg_iovlen = 1;
        }
        socket_.set(SOL_PACKET, PACKET_QDISC_BYPASS, 1, "PACKET_QDISC_BYPASS");
        socket_.bindTo(options.interface, 0);
    }

    void run() {
        start_ = now(CLOCK_MONOTONIC);
        const std::uint32_t last =
            options_.count != 0 ? options_.count : std::numeric_limits<std::uint32_t>::max();
        const auto end = options_.seconds > 0
                             ? start_ + static_cast<std::int64_t>(options_.seconds * double(kNanosecond))
                             : std::numeric_limits<std::int64_t>::max();
        while (!ended && number_ < last) {
            const auto time = now(CLOCK_MONOTONIC);
            if (time >= end)
                break;
            auto due = std::min<std::uint64_t>(kBatch, last - number_);
            if (options_.rate > 0) {
                const auto reached = 1 + static_cast<std::uint64_t>(double(time - start_) /
                                                                    double(kNanosecond) * options_.rate);
                if (reached <= number_) {
                    sleepUntil(std::min(end, start_ +
                                                 static_cast<std::int64_t>(double(number_) / options_.rate *
                                                                           double(kNanosecond)) +
                                                 1));
                    continue;
                }
                due = std::min(due, reached - number_);
            }
            sendBatch(static_cast<std::size_t>(due));
        }
        const auto seconds = double(now(CLOCK_MONOTONIC) - start_) / double(kNanosecond);
        std::printf(
            "{\"flow\": %u, \"sent\": %llu, \"refused\": %llu, \"seconds\": %.3f, "
            "\"framesPerSecond\": %.0f}\n",
            options_.flow, static_cast<unsigned long long>(sent_), static_cast<unsigned long long>(refused_),
            seconds, seconds > 0 ? double(sent_) / seconds : 0.0);
    }

  private:
    void sendBatch(std::size_t size) {
        const auto time = now(CLOCK_REALTIME);
        for (std::size_t i = 0; i < size; ++i) {
            auto *frame = frames_[i].data();
            put(frame + ETH_ALEN, base_ + (number_ + i) % options_.sources, ETH_ALEN);
            put(put(frame + dataAt_ + 4, number_ + i, 4), time, 8);
        }
        const int done = ::sendmmsg(socket_.fd(), messages_.data(), static_cast<unsigned>(size), 0);
        if (done > 0) {
            sent_ += static_cast<std::uint64_t>(done);
            number_ += static_cast<std::uint64_t>(done);
            return;
        }
        // A link that is down, or a full queue, loses the frame as a cable would; its number is used up.
        if (errno == ENETDOWN || errno == ENOBUFS || errno == EAGAIN) {
            ++refused_;
            ++number_;
            if (options_.rate <= 0)
                sleepUntil(now(CLOCK_MONOTONIC) + kNanosecond / 1000);
        } else if (errno != EINTR) {
            fail("sending on " + options_.interface);
        }
    }

    const SendOptions &options_;
    const std::uint64_t base_;
    const std::size_t tagSize_, dataAt_;
    PacketSocket socket_;
    std::array<std::vector<unsigned char>, kBatch> frames_;
    std::array<iovec, kBatch> vectors_{};
    std::array<mmsghdr, kBatch> messages_{};
    std::int64_t start_ = 0;
    std::uint64_t number_ = 0, sent_ = 0, refused_ = 0;
};

// --- receive

struct ReceiveOptions {
    std::string interface, group;
    std::uint32_t flow = 0, idle = 0;
    double seconds = 0;
};

// What is known about the numbers that have arrived.
class Tally {
  public:
    void add(std::uint32_t number, std::int64_t sentAt, std::int64_t time) {
        if (received_++ == 0) {
            first_ = last_ = highest_ = number;
            firstTime_ = lastTime_ = time;
        }
        const std::size_t word = number / 64;
        const std::uint64_t bit = std::uint64_t{1} << number % 64;
        if (word >= seen_.size())
            seen_.resize(std::max(word + 1, seen_.size() * 2));
        if ((seen_[word] & bit) != 0) {
            ++duplicates_;
        } else {
            seen_[word] |= bit;
            reordered_ += number < highest_ ? 1 : 0;
        }
        first_ = std::min(first_, number);
        highest_ = std::max(highest_, number);
        last_ = number;
        longestGap_ = std::max(longestGap_, time - lastTime_);
        lastTime_ = std::max(lastTime_, time);
        delaySum_ += double(time - sentAt);
        delayMax_ = std::max(delayMax_, time - sentAt);
    }

    void addTag(std::uint16_t vlan) { ++tags_[vlan]; }

    void print(std::uint32_t flow, std::uint64_t dropped) const {
        const auto distinct = received_ - duplicates_;
        const std::uint64_t span = received_ != 0 ? std::uint64_t{highest_} - first_ + 1 : 0;
        const double seconds = double(lastTime_ - firstTime_) / double(kNanosecond);
        std::string vlans;
        for (const auto &[vlan, count] : tags_)
            vlans += (vlans.empty() ? "\"" : ", \"") + std::to_string(vlan) + "\": " + std::to_string(count);
        const auto whole = [](std::uint64_t n) { return static_cast<unsigned long long>(n); };
        std::printf(
            "{\"flow\": %u, \"received\": %llu, \"first\": %lld, \"last\": %lld, \"missing\": %llu, "
            "\"duplicates\": %llu, \"reordered\": %llu, \"longestGapMs\": %.3f, "
            "\"framesPerSecond\": %.0f, \"meanDelayUs\": %.1f, \"maxDelayUs\": %.1f, "
            "\"dropped\": %llu, \"vlans\": {%s}}\n",
            flow, whole(received_), received_ != 0 ? static_cast<long long>(first_) : -1,
            received_ != 0 ? static_cast<long long>(last_) : -1, whole(span - distinct), whole(duplicates_),
            whole(reordered_), double(longestGap_) / 1e6, seconds > 0 ? double(received_ - 1) / seconds : 0.0,
            received_ != 0 ? delaySum_ / double(received_) / 1e3 : 0.0, double(delayMax_) / 1e3,
            whole(dropped), vlans.c_str());
    }

  private:
    std::uint64_t received_ = 0, duplicates_ = 0, reordered_ = 0;
    std::uint32_t first_ = 0, last_ = 0, highest_ = 0;
    std::int64_t firstTime_ = 0, lastTime_ = 0, longestGap_ = 0, delayMax_ = 0;
    double delaySum_ = 0;
    std::vector<std::uint64_t> seen_;
    std::map<std::uint16_t, std::uint64_t> tags_;
};

class Receiver {
  public:
    explicit Receiver(const ReceiveOptions &options)
        : options_(options), dataAt_(flowAt(!options.group.empty())) {
        for (std::size_t i = 0; i < kBatch; ++i) {
            vectors_[i] = {frames_[i].data(), frames_[i].size()};
            messages_[i].msg_hdr.msg_iov = &vectors_[i];
            messages_[i].msg_hdr.msg_iovlen = 1;
        }
        // The kernel strips tags before sockets see a frame, so the EtherType is always in the same place.
        const bool group = !options.group.empty();
        sock_filter code[] = {
            BPF_STMT(BPF_LD | BPF_H | BPF_ABS, 2 * ETH_ALEN),
            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, group ? unsigned{ETH_P_IP} : unsigned{kEtherType}, 0, 5),
            BPF_STMT(BPF_LD | BPF_W | BPF_ABS, group ? kGroupAt : 0),
            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, group ? addressOf(options.group) : 0, 0,
                     static_cast<std::uint8_t>(group ? 3 : 0)),
            BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<std::uint32_t>(dataAt_)),
            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, options.flow, 0, 1),
            BPF_STMT(BPF_RET | BPF_K, 0x40000),
            BPF_STMT(BPF_RET | BPF_K, 0),
        };
        socket_.set(SOL_SOCKET, SO_ATTACH_FILTER, sock_fprog{std::size(code), code}, "SO_ATTACH_FILTER");
        socket_.set(SOL_SOCKET, SO_TIMESTAMPNS, 1, "SO_TIMESTAMPNS");
        socket_.set(SOL_SOCKET, SO_RCVBUFFORCE, kSocketBuffer, "SO_RCVBUFFORCE");
        socket_.set(SOL_PACKET, PACKET_AUXDATA, 1, "PACKET_AUXDATA");
        socket_.set(SOL_PACKET, PACKET_IGNORE_OUTGOING, 1, "PACKET_IGNORE_OUTGOING");
        // All protocols: only such a socket is told the tag.
        socket_.bindTo(options.interface, ETH_P_ALL);
    }

    void run() {
        std::fputs("listening\n", stderr);
        const auto start = now(CLOCK_MONOTONIC);
        const auto end = options_.seconds > 0
                             ? start + static_cast<std::int64_t>(options_.seconds * double(kNanosecond))
                             : std::numeric_limits<std::int64_t>::max();
        const auto idle = std::int64_t{options_.idle} * (kNanosecond / 1000);
        auto heard = start;
        while (!ended) {
            const auto time = now(CLOCK_MONOTONIC);
            const auto until = idle != 0 ? std::min(end, heard + idle) : end;
            if (time >= until)
                break;
            pollfd wait{socket_.fd(), POLLIN, 0};
            const auto left = std::min<std::int64_t>((until - time) / 1'000'000 + 1, 60'000);
            if (::poll(&wait, 1, static_cast<int>(left)) > 0 && receiveBatch())
                heard = now(CLOCK_MONOTONIC);
        }
        tpacket_stats statistics{};
        socklen_t size = sizeof statistics;
        if (::getsockopt(socket_.fd(), SOL_PACKET, PACKET_STATISTICS, &statistics, &size) != 0)
            fail("PACKET_STATISTICS");
        tally_.print(options_.flow, statistics.tp_drops);
    }

  private:
    bool receiveBatch() {
        for (std::size_t i = 0; i < kBatch; ++i) {
            messages_[i].msg_hdr.msg_control = controls_[i].data();
            messages_[i].msg_hdr.msg_controllen = controls_[i].size();
        }
        const int count = ::recvmmsg(socket_.fd(), messages_.data(), kBatch, MSG_DONTWAIT, nullptr);
        // Reported once when the link goes down; frames that arrive after it is up again count as well.
        if (count < 0 && errno != EAGAIN && errno != EINTR && errno != ENETDOWN)
            fail("receiving on " + options_.interface);
        for (int i = 0; i < count; ++i)
            take(static_cast<std::size_t>(i));
        return count > 0;
    }

    void take(std::size_t i) {
        if (messages_[i].msg_len < dataAt_ + kDataSize)
            return;
        std::timespec arrival{};
        std::uint16_t vlan = 0;
        auto &header = messages_[i].msg_hdr;
        for (auto *part = CMSG_FIRSTHDR(&header); part != nullptr; part = CMSG_NXTHDR(&header, part)) {
            if (part->cmsg_level == SOL_SOCKET && part->cmsg_type == SCM_TIMESTAMPNS) {
                std::memcpy(&arrival, CMSG_DATA(part), sizeof arrival);
            } else if (part->cmsg_level == SOL_PACKET && part->cmsg_type == PACKET_AUXDATA) {
                tpacket_auxdata data{};
                std::memcpy(&data, CMSG_DATA(part), sizeof data);
                vlan = (data.tp_status & TP_STATUS_VLAN_VALID) != 0 ? data.tp_vlan_tci & 0xfff : 0;
            }
        }
        const auto *frame = frames_[i].data();
        tally_.add(static_cast<std::uint32_t>(get(frame + dataAt_ + 4, 4)),
                   static_cast<std::int64_t>(get(frame + dataAt_ + 8, 8)), nanoseconds(arrival));
        tally_.addTag(vlan);
    }

    const ReceiveOptions &options_;
    PacketSocket socket_;
    const std::size_t dataAt_;
    std::array<std::array<unsigned char, kGroupHeadSize>, kBatch> frames_{};
    struct Control {
        alignas(cmsghdr) std::array<char, 128> bytes;
        char *data() { return bytes.data(); }
        std::size_t size() const { return bytes.size(); }
    };
    std::array<Control, kBatch> controls_{};
    std::array<iovec, kBatch> vectors_{};
    std::array<mmsghdr, kBatch> messages_{};
    Tally tally_;
};

// --- raw

std::vector<unsigned char> bytesOf(std::string_view text, std::size_t line) {
    std::vector<unsigned char> bytes;
    int high = -1;
    for (const char c : text) {
        if (c == ' ' || c == '\t' || c == '\r')
            continue;
        const auto *digits = "0123456789abcdef";
        const auto *found = std::strchr(digits, c >= 'A' && c <= 'F' ? c - 'A' + 'a' : c);
        if (c == '\0' || found == nullptr)
            throw std::invalid_argument("line " + std::to_string(line) + ": not hexadecimal");
        const int digit = static_cast<int>(found - digits);
        if (high < 0) {
            high = digit;
        } else {
            bytes.push_back(static_cast<unsigned char>(high << 4 | digit));
            high = -1;
        }
    }
    if (high >= 0)
        throw std::invalid_argument("line " + std::to_string(line) + ": half a byte");
    return bytes;
}

void sendRaw(const std::string &interface, std::istream &in) {
    const PacketSocket socket;
    socket.bindTo(interface, 0);
    std::string text;
    std::size_t line = 0, sent = 0;
    while (!ended && std::getline(in, text)) {
        ++line;
        if (text.find_first_not_of(" \t\r") == std::string::npos || text.front() == '#')
            continue;
        const auto bytes = bytesOf(text, line);
        if (::send(socket.fd(), bytes.data(), bytes.size(), 0) < 0)
            fail("line " + std::to_string(line) + ", " + std::to_string(bytes.size()) + " bytes");
        ++sent;
    }
    std::printf("{\"sent\": %zu}\n", sent);
}

int run(int argc, char **argv) {
    CLI::App app{"frames - send and count numbered Ethernet frames, or send frames given byte by byte"};
    app.set_version_flag("--version", std::string("frames ") + pavoVersion());
    app.require_subcommand(1);

    SendOptions out;
    auto *send =
        app.add_subcommand("send", "Send numbered frames, then print a line of JSON with what was sent");
    send->add_option("--interface", out.interface, "Interface to send on")->required();
    auto *to = send->add_option("--to", out.to, "Destination MAC address");
    auto *group = send->add_option("--group", out.group, "Send to this multicast group, as UDP over IPv4")
                      ->excludes(to);
    send->add_option("--address", out.address, "The sender's IPv4 address")->needs(group);
    send->add_option("--from", out.from, "Source MAC address")->required();
    send->add_option("--sources", out.sources, "Cycle through this many consecutive source addresses")
        ->check(CLI::Range(1u, 1u << 24));
    send->add_option("--rate", out.rate, "Frames per second; 0 sends as fast as possible")
        ->check(CLI::NonNegativeNumber);
    send->add_option("--count", out.count, "End after this many frames")->check(CLI::PositiveNumber);
    send->add_option("--seconds", out.seconds, "End after this many seconds")->check(CLI::PositiveNumber);
    send->add_option("--size", out.size, "Frame size in bytes, without tag and checksum")
        ->check(CLI::Range(std::size_t{kHeadSize}, kSizeMax))
        ->capture_default_str();
    send->add_option("--vlan", out.vlan, "Tag the frames with this VLAN")->check(CLI::Range(1, 4094));
    send->add_option("--flow", out.flow, "Number that tells flows apart");

    ReceiveOptions in;
    auto *receive = app.add_subcommand(
        "receive",
        "Count frames of a flow, then print a line of JSON; prints \"listening\" to stderr when ready");
    receive->add_option("--interface", in.interface, "Interface to listen on")->required();
    receive->add_option("--flow", in.flow, "Flow to count");
    receive->add_option("--group", in.group, "Count what was sent to this multicast group");
    auto *idle = receive->add_option("--idle", in.idle, "End after this many ms without a frame")
                     ->check(CLI::Range(1u, 3'600'000u));
    auto *seconds = receive->add_option("--seconds", in.seconds, "End after this many seconds")
                        ->check(CLI::PositiveNumber);

    std::string interface, file;
    auto *raw = app.add_subcommand(
        "raw", "Send frames given as lines of hexadecimal digits; lines with # are comments");
    raw->add_option("--interface", interface, "Interface to send on")->required();
    raw->add_option("file", file, "File, or - for standard input")->required();

    CLI11_PARSE(app, argc, argv);
    endOnSignals();
    if (*send) {
        if (out.to.empty() && out.group.empty())
            throw std::invalid_argument("--to or --group is required");
        if (!out.group.empty() && out.size < kGroupHeadSize)
            throw std::invalid_argument("frames of a group have at least " + std::to_string(kGroupHeadSize) +
                                        " bytes");
        Sender(out).run();
    } else if (*receive) {
        if (idle->empty() && seconds->empty())
            throw std::invalid_argument("--idle or --seconds is required");
        Receiver(in).run();
    } else if (file == "-") {
        sendRaw(interface, std::cin);
    } else {
        std::ifstream stream(file);
        if (!stream)
            fail(file);
        sendRaw(interface, stream);
    }
    return 0;
}

}  // namespace

int main(int argc, char **argv) try { return run(argc, argv); } catch (const std::exception &e) {
    std::fprintf(stderr, "frames: %s\n", e.what());
    return 1;
}
