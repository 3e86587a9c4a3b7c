#include "vswitch/dataplane/link_watch.h"

#include <linux/if.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <optional>
#include <system_error>

namespace vswitch {
namespace {

struct LinkRequest {
    nlmsghdr header;
    ifinfomsg link;
    std::array<char, 64> attributes;
    std::size_t used;

    void add(std::uint16_t type, const void *value, std::size_t size) {
        const rtattr head{static_cast<std::uint16_t>(RTA_LENGTH(size)), type};
        std::memcpy(attributes.data() + used, &head, sizeof head);
        if (size != 0)
            std::memcpy(attributes.data() + used + sizeof head, value, size);
        used += RTA_ALIGN(head.rta_len);
    }
};

// A change of one link; nothing when it is not there.
template <class Links>
std::optional<LinkRequest> changeOf(const Links &links, const std::string &name) {
    const auto link = links.find(name);
    if (link == links.end())
        return std::nullopt;
    LinkRequest request{};
    request.header.nlmsg_type = RTM_NEWLINK;
    request.header.nlmsg_flags = NLM_F_REQUEST;
    request.link.ifi_index = link->second.index;
    return request;
}

void send(int socket, LinkRequest request) {
    const auto length = offsetof(LinkRequest, attributes) + request.used;
    request.header.nlmsg_len = static_cast<std::uint32_t>(length);
    request.link.ifi_family = AF_UNSPEC;
    // A lost request shows as a state other than the wanted one; the caller retries.
    ::send(socket, &request, length, 0);
}

// The number in an attribute; 0 when it is too short.
template <class Number>
Number numberIn(const rtattr *attribute) {
    Number number{};
    if (RTA_PAYLOAD(attribute) >= sizeof number)
        std::memcpy(&number, RTA_DATA(attribute), sizeof number);
    return number;
}

bool hasProgram(const rtattr *xdp) {
    auto left = static_cast<int>(RTA_PAYLOAD(xdp));
    for (const auto *part = static_cast<const rtattr *>(RTA_DATA(xdp)); RTA_OK(part, left);
         part = RTA_NEXT(part, left))
        if (part->rta_type == IFLA_XDP_ATTACHED)
            return numberIn<std::uint8_t>(part) != XDP_ATTACHED_NONE;
    return false;
}

}  // namespace

LinkWatch::LinkWatch(std::set<std::string> names)
    : names_(std::move(names)),
      socket_(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE)) {
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = RTMGRP_LINK;
    if (!socket_ || ::bind(socket_.get(), reinterpret_cast<sockaddr *>(&address), sizeof address) != 0)
        throw std::system_error(errno, std::generic_category(), "cannot watch network interfaces");
    requestAll();
}

void LinkWatch::requestAll() {
    told_.clear();
    LinkRequest request{};
    request.header.nlmsg_type = RTM_GETLINK;
    request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    send(socket_.get(), request);
}

void LinkWatch::setUp(const std::string &name, bool up) {
    auto request = changeOf(links_, name);
    if (!request)
        return;
    request->link.ifi_flags = up ? unsigned{IFF_UP} : 0;
    request->link.ifi_change = IFF_UP;
    send(socket_.get(), *request);
}

void LinkWatch::setMtu(const std::string &name, std::uint32_t mtu) {
    auto request = changeOf(links_, name);
    if (!request)
        return;
    request->add(IFLA_MTU, &mtu, sizeof mtu);
    send(socket_.get(), *request);
}

void LinkWatch::setFilter(const std::string &name, int program) {
    auto request = changeOf(links_, name);
    if (!request)
        return;
    struct {
        rtattr programHead;
        std::int32_t program;
        rtattr flagsHead;
        std::uint32_t flags;
    } const nested{
        {RTA_LENGTH(4), IFLA_XDP_FD}, program, {RTA_LENGTH(4), IFLA_XDP_FLAGS}, XDP_FLAGS_SKB_MODE};
    request->add(IFLA_XDP | NLA_F_NESTED, &nested, sizeof nested);
    send(socket_.get(), *request);
}

void LinkWatch::update() {
    alignas(nlmsghdr) std::array<char, 32768> buffer;
    for (;;) {
        const auto got = ::recv(socket_.get(), buffer.data(), buffer.size(), 0);
        if (got > 0) {
            take(buffer.data(), static_cast<std::size_t>(got));
        } else if (got < 0 && errno == ENOBUFS) {
            // Messages were lost: ask for everything.
            requestAll();
        } else if (got == 0 || errno != EINTR) {
            return;
        }
    }
}

void LinkWatch::take(const char *message, std::size_t length) {
    for (auto *header = reinterpret_cast<const nlmsghdr *>(message); NLMSG_OK(header, length);
         header = NLMSG_NEXT(header, length)) {
        // The answer is complete: an interface that it did not name is gone, even when that message was lost.
        if (header->nlmsg_type == NLMSG_DONE)
            std::erase_if(links_, [&](const auto &item) { return !told_.contains(item.first); });
        if (header->nlmsg_type != RTM_NEWLINK && header->nlmsg_type != RTM_DELLINK)
            continue;
        const auto *link = static_cast<const ifinfomsg *>(NLMSG_DATA(header));
        // A bridge reports its ports with the same messages.
        if (link->ifi_family != AF_UNSPEC)
            continue;
        auto left = IFLA_PAYLOAD(header);
        std::string name;
        std::optional<std::uint32_t> mtu;
        std::optional<bool> filtered;
        for (auto *attribute = IFLA_RTA(link); RTA_OK(attribute, left); attribute = RTA_NEXT(attribute, left))
            if (attribute->rta_type == IFLA_IFNAME) {
                const auto *text = static_cast<const char *>(RTA_DATA(attribute));
                name.assign(text, ::strnlen(text, RTA_PAYLOAD(attribute)));
            } else if (attribute->rta_type == IFLA_MTU) {
                mtu = numberIn<std::uint32_t>(attribute);
            } else if ((attribute->rta_type & NLA_TYPE_MASK) == IFLA_XDP) {
                filtered = hasProgram(attribute);
            }
        // A watched interface that was renamed is gone as well.
        std::erase_if(links_, [&](const auto &item) {
            return item.second.index == link->ifi_index &&
                   (item.first != name || header->nlmsg_type == RTM_DELLINK);
        });
        if (header->nlmsg_type != RTM_NEWLINK || !names_.contains(name))
            continue;
        told_.insert(name);
        auto &state = links_[name];
        const bool carrier = (link->ifi_flags & IFF_UP) != 0 && (link->ifi_flags & IFF_LOWER_UP) != 0;
        if (state.carrier && !carrier)
            ++state.losses;
        state.index = link->ifi_index;
        state.up = (link->ifi_flags & IFF_UP) != 0;
        state.carrier = carrier;
        state.mtu = mtu.value_or(state.mtu);
        state.filtered = filtered.value_or(state.filtered);
    }
}

}  // namespace vswitch
