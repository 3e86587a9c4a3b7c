#include "vswitch/model/ports.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <iterator>
#include <utility>

#include "vswitch/model/model.h"

namespace vswitch {
namespace {

using namespace std::chrono_literals;

constexpr const char *kReasons[] = {"none",          "link-flap", "bpdu-guard", "port-security",
                                    "storm-control", "udld",      "transceiver"};

// What a port and a simulated device agree on when neither is limited.
constexpr std::uint32_t kCopperSpeed = 1000, kCageSpeed = 10000;

constexpr std::uint64_t kDataOctets = 256, kBroadcastOctets = 64, kLldpOctets = 200;

// Events of a given period in a time.
std::uint64_t countIn(Duration time, Duration period) {
    return static_cast<std::uint64_t>(time / period);
}

// The two sets of counters, one by one; kinds that one side does not know are unknown.
template <class Combine>
void combine(PortCounters &to, const PortCounters &other, Combine op) {
    static constexpr std::uint64_t PortCounters::*kAll[] = {
        &PortCounters::inOctets,   &PortCounters::outOctets,  &PortCounters::inPackets,
        &PortCounters::outPackets, &PortCounters::inErrors,   &PortCounters::outErrors,
        &PortCounters::inDiscards, &PortCounters::outDiscards};
    using Kinds = PortCounters::Kinds;
    for (const auto field : kAll)
        to.*field = op(to.*field, other.*field);
    for (const auto kinds : {&PortCounters::in, &PortCounters::out}) {
        auto &sum = to.*kinds;
        const auto &more = other.*kinds;
        if (!more)
            sum.reset();
        else if (sum)
            for (const auto field : {&Kinds::unicast, &Kinds::multicast, &Kinds::broadcast})
                (*sum).*field = op((*sum).*field, (*more).*field);
    }
}

}  // namespace

PortSpeed parseSpeed(std::string_view text) {
    PortSpeed speed;
    const auto *const first = text.begin();
    const auto *const last = text.end();
    const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
    const char *at = std::find_if_not(first, last, isDigit);
    std::from_chars(first, at, speed.mbps);
    std::uint32_t tenths = 0;
    if (at != last && *at == '.') {
        const char *const end = std::find_if_not(at + 1, last, isDigit);
        std::from_chars(at + 1, end, tenths);
        at = end;
    }
    if (at != last && *at == 'G')
        speed.mbps = speed.mbps * 1000 + tenths * 100;
    if (speed.mbps != 0)
        speed.duplex = text.ends_with("half-duplex") ? OPEN_DUPLEX_HALF : OPEN_DUPLEX_FULL;
    return speed;
}

std::optional<std::uint32_t> errorReasonOf(std::string_view word) {
    const auto *const found = std::ranges::find(kReasons, word);
    if (found == std::end(kReasons))
        return std::nullopt;
    return static_cast<std::uint32_t>(found - kReasons);
}

const char *errorReasonWord(std::uint32_t reason) {
    return kReasons[std::min<std::size_t>(reason, std::size(kReasons) - 1)];
}

PortCounters &PortCounters::operator+=(const PortCounters &other) {
    combine(*this, other, [](std::uint64_t a, std::uint64_t b) { return a + b; });
    return *this;
}

PortCounters &PortCounters::operator-=(const PortCounters &other) {
    combine(*this, other, [](std::uint64_t a, std::uint64_t b) { return a - b; });
    return *this;
}

PortCounters trafficOf(const PortActivity &activity) {
    const auto data = countIn(activity.talking, 100ms), broadcasts = countIn(activity.talking, 10s),
               heard = countIn(activity.announcing, 30s), sent = countIn(activity.linked, 30s);
    PortCounters out;
    out.in = PortCounters::Kinds{data, heard, broadcasts};
    out.out = PortCounters::Kinds{data, sent, 0};
    out.inPackets = data + heard + broadcasts;
    out.outPackets = data + sent;
    out.inOctets = data * kDataOctets + heard * kLldpOctets + broadcasts * kBroadcastOctets;
    out.outOctets = data * kDataOctets + sent * kLldpOctets;
    return out;
}

void SfpModule::cutTexts() {
    for (auto *text : {&vendor, &partNumber, &serial})
        if (text->size() > kSfpTextMax)
            text->resize(kSfpTextMax);
}

// --- speed and error state

open_error_t Model::setSpeed(IfNum port, std::string speed) {
    auto *interface = edit(port);
    if (interface == nullptr || interface->isLag())
        return OPEN_E_PARAM;
    interface->speed = std::move(speed);
    refreshLink(port);
    return OPEN_E_NONE;
}

std::optional<PortSpeed> Model::linkSpeed(IfNum ifNum) const {
    const auto *found = interface(ifNum);
    if (found == nullptr || !found->linkUp)
        return std::nullopt;
    if (found->isLag()) {
        PortSpeed sum{0, OPEN_DUPLEX_FULL};
        for (const auto member : found->members)
            if (const auto speed = linkSpeed(member); speed && speed->mbps != 0)
                sum.mbps += speed->mbps;
            else if (speed)
                return speed;  // not known, and so is the sum
        return sum;
    }
    if (found->live && found->carrier == Carrier::FollowDevices)
        return PortSpeed{found->wireSpeed, OPEN_DUPLEX_FULL};
    auto speed = parseSpeed(found->speed);
    if (speed.mbps != 0)
        return speed;
    const auto &here = devicesAt(ifNum);
    const auto device = std::ranges::find_if(here, [](const Device *d) { return d->behind.empty(); });
    speed = {found->hasCage ? kCageSpeed : kCopperSpeed, OPEN_DUPLEX_FULL};
    if (device != here.end() && (*device)->speed != 0)
        speed.mbps = std::min((*device)->speed, kCageSpeed);
    if (device != here.end() && (*device)->halfDuplex)
        speed.duplex = OPEN_DUPLEX_HALF;
    return speed;
}

open_error_t Model::setErrorDisabled(IfNum port, std::uint32_t reason) {
    auto *interface = edit(port);
    if (interface == nullptr || interface->isLag() || reason >= std::size(kReasons))
        return OPEN_E_PARAM;
    if (interface->errorDisabled == reason)
        return OPEN_E_NONE;
    interface->errorDisabled = reason;
    log(4, "TRAPMGR", "errDisableTask",
        reason == OPEN_ERROR_DISABLE_NONE
            ? "Interface " + interface->name() + " is no longer error-disabled"
            : "Interface " + interface->name() + " is error-disabled: " + errorReasonWord(reason));
    refreshLink(port);
    return OPEN_E_NONE;
}

// --- transceivers

open_error_t Model::setSfp(IfNum port, std::optional<SfpModule> module) {
    auto *interface = edit(port);
    if (interface == nullptr || !interface->hasCage)
        return OPEN_E_PARAM;
    if (module)
        module->cutTexts();
    event("sfp", interface->name() + (module ? " transceiver inserted" : " transceiver removed"));
    interface->sfp = std::move(module);
    return OPEN_E_NONE;
}

std::optional<SfpModule> Model::sfp(IfNum port) const {
    const auto *found = interface(port);
    if (found == nullptr || !found->hasCage || found->sfp || devicesAt(port).empty())
        return found == nullptr ? std::nullopt : found->sfp;
    return SfpModule{"VSWITCH", "DAC-10G-1M", "DAC" + std::to_string(1000 + found->index)};
}

// --- counters

PortActivity Model::activityOf(const Interface &port) const {
    auto activity = port.counting.activity;
    const auto elapsed = now_ - port.counting.upTo;
    if (port.live || !port.linkUp || elapsed == Duration{})
        return activity;
    activity.linked += elapsed;
    for (const auto *device : devicesAt(port.num)) {
        if (device->talking && authorized(port.num))
            activity.talking += elapsed;
        if (device->talking && device->lldp && device->behind.empty())
            activity.announcing += elapsed;
    }
    return activity;
}

// To be called before anything changes that the traffic depends on.
void Model::countUpToNow(IfNum port) {
    auto &interface = interfaces_.at(port);
    interface.counting.activity = activityOf(interface);
    interface.counting.upTo = now_;
}

PortCounters Model::rawCounters(const Interface &port) const {
    if (port.live)
        return port.counting.wire;
    auto raw = trafficOf(activityOf(port));
    return raw += port.counting.wire;
}

PortCounters Model::counters(IfNum ifNum) const {
    PortCounters sum;
    if (interface(ifNum) != nullptr)
        for (const auto port : portsOf(ifNum)) {
            const auto &from = interfaces_.at(port);
            auto here = rawCounters(from);
            sum += here -= from.counting.cleared;
        }
    return sum;
}

open_error_t Model::clearCounters(IfNum port) {
    auto *interface = edit(port);
    if (interface == nullptr || interface->isLag())
        return OPEN_E_PARAM;
    interface->counting.cleared = rawCounters(*interface);
    return OPEN_E_NONE;
}

open_error_t Model::addErrors(IfNum port, const PortCounters &more) {
    auto *interface = edit(port);
    if (interface == nullptr || interface->isLag() || interface->live)
        return OPEN_E_PARAM;
    for (const auto field : {&PortCounters::inErrors, &PortCounters::outErrors, &PortCounters::inDiscards,
                             &PortCounters::outDiscards})
        interface->counting.wire.*field += more.*field;
    return OPEN_E_NONE;
}

// --- mirroring

MirrorSession *Model::editMirror(std::uint32_t session) {
    return session >= 1 && session <= kMirrorSessionsMax ? &mirrorSessions_[session] : nullptr;
}

bool Model::isMirrorDestination(IfNum port) const {
    return std::ranges::any_of(mirrorSessions_,
                               [&](const auto &item) { return item.second.destination == port; });
}

open_error_t Model::addMirrorSource(std::uint32_t session, IfNum ifNum, std::uint32_t direction) {
    auto *mirror = editMirror(session);
    if (mirror == nullptr || interface(ifNum) == nullptr || direction < OPEN_MIRROR_RX ||
        direction > OPEN_MIRROR_BOTH)
        return OPEN_E_PARAM;
    if (mirror->destination == ifNum)
        return OPEN_E_FAIL;
    mirror->sources[ifNum] = direction;
    return OPEN_E_NONE;
}

open_error_t Model::removeMirrorSource(std::uint32_t session, IfNum ifNum) {
    auto *mirror = editMirror(session);
    if (mirror == nullptr)
        return OPEN_E_PARAM;
    return mirror->sources.erase(ifNum) != 0 ? OPEN_E_NONE : OPEN_E_NOT_FOUND;
}

open_error_t Model::setMirrorDestination(std::uint32_t session, IfNum port) {
    auto *mirror = editMirror(session);
    const auto *found = interface(port);
    if (mirror == nullptr || (port != 0 && (found == nullptr || found->isLag())))
        return OPEN_E_PARAM;
    if (port != 0 && port != mirror->destination &&
        (found->lag != 0 || mirror->sources.contains(port) || isMirrorDestination(port)))
        return OPEN_E_FAIL;
    mirror->destination = port;
    return OPEN_E_NONE;
}

open_error_t Model::setMirrorMode(std::uint32_t session, bool enabled) {
    auto *mirror = editMirror(session);
    if (mirror == nullptr)
        return OPEN_E_PARAM;
    mirror->enabled = enabled;
    return OPEN_E_NONE;
}

open_error_t Model::deleteMirrorSession(std::uint32_t session) {
    if (session < 1 || session > kMirrorSessionsMax)
        return OPEN_E_PARAM;
    mirrorSessions_.erase(session);
    return OPEN_E_NONE;
}

}  // namespace vswitch
