// The rules of vswitch/model/dot1x.h.
#include "vswitch/model/dot1x.h"

#include <algorithm>
#include <cctype>

#include "vswitch/model/model.h"

namespace vswitch {
namespace {

constexpr Duration kTick = std::chrono::seconds(1);

}  // namespace

bool isIasName(std::string_view text) {
    return !text.empty() && text.size() <= kIasNameMax && std::ranges::all_of(text, [](unsigned char c) {
        return c < 0x80 && (std::isalnum(c) != 0 || c == '.' || c == '-' || c == '_' || c == '@');
    });
}

bool Model::authenticates(IfNum port) const {
    const auto *found = interface(port);
    return found != nullptr && controlled(*found) && found->dot1xControlMode == OPEN_DOT1X_AUTO;
}

bool Model::controlled(const Interface &port) const {
    return system_.dot1xEnabled && !port.isLag() && port.lag == 0;
}

bool Model::authorized(IfNum port) const {
    const auto *found = interface(port);
    if (found == nullptr || found->isLag())
        return false;
    if (!controlled(*found) || found->dot1xControlMode == OPEN_DOT1X_FORCE_AUTHORIZED)
        return true;
    return found->dot1xControlMode == OPEN_DOT1X_AUTO && found->dot1x.authenticated;
}

bool Model::carries(const Interface &interface) const {
    return interface.linkUp && (interface.isLag() || authorized(interface.num));
}

void Model::resetDot1x(Interface &port) {
    auto &state = port.dot1x;
    state.authenticated = false;
    state.since = now_;
    ++state.round;
    state.mac.clear();
    state.user.clear();
    dot1xReset_ = true;
}

// To be called after a change, with what held before it.
void Model::accessChanged(IfNum num, bool before) {
    const bool is = authorized(num);
    if (is == before)
        return;
    const auto &port = interfaces_.at(num);
    const auto text = "Port " + port.name() + (is ? " is authorized" : " is unauthorized");
    if (port.linkUp)
        log(5, "DOT1X", "dot1xTask", text);
    event("dot1x", text);
    relearnPort(num);
    igmpStale_ = true;
    if (is)
        for (const auto *device : devicesAt(num))
            reportGroups(*device);
}

template <class Action>
void Model::changeAccess(IfNum num, Action action) {
    countUpToNow(num);
    const bool before = authorized(num);
    action(interfaces_.at(num));
    accessChanged(num, before);
}

void Model::setDot1x(bool enabled) {
    if (system_.dot1xEnabled == enabled)
        return;
    std::map<IfNum, bool> before;
    for (const auto &[num, port] : interfaces_)
        if (!port.isLag()) {
            countUpToNow(num);
            before[num] = authorized(num);
        }
    system_.dot1xEnabled = enabled;
    for (const auto &[num, was] : before) {
        resetDot1x(interfaces_.at(num));
        accessChanged(num, was);
    }
}

open_error_t Model::setPortControl(IfNum port, std::uint32_t mode) {
    const auto *found = interface(port);
    if (found == nullptr || found->isLag() || mode < OPEN_DOT1X_FORCE_UNAUTHORIZED ||
        mode > OPEN_DOT1X_FORCE_AUTHORIZED)
        return OPEN_E_PARAM;
    if (found->dot1xControlMode != mode)
        changeAccess(port, [&](Interface &changed) {
            changed.dot1xControlMode = mode;
            resetDot1x(changed);
        });
    return OPEN_E_NONE;
}

void Model::authenticate(IfNum num, bool accepted) {
    changeAccess(num, [&](Interface &port) {
        if (!accepted)
            log(4, "DOT1X", "dot1xTask", "Authentication failed on port " + port.name());
        port.dot1x.authenticated = accepted;
        port.dot1x.since = now_;
    });
}

open_error_t Model::setSupplicant(IfNum port, bool accepted) {
    auto *found = edit(port);
    if (found == nullptr || found->isLag())
        return OPEN_E_NOT_FOUND;
    // No command has the credentials of a real device.
    if (found->live)
        return OPEN_E_PARAM;
    if (accepted && !found->linkUp)
        return OPEN_E_FAIL;
    found->dot1x.answers = accepted;
    if (!accepted)
        changeAccess(port, [&](Interface &left) { resetDot1x(left); });
    else if (authenticates(port))
        authenticate(port, true);
    return OPEN_E_NONE;
}

open_error_t Model::rejectSupplicant(IfNum port) {
    auto *found = edit(port);
    if (found == nullptr || found->isLag())
        return OPEN_E_NOT_FOUND;
    if (found->live)
        return OPEN_E_PARAM;
    found->dot1x.answers = false;
    if (found->linkUp && authenticates(port) && !found->dot1x.authenticated)
        authenticate(port, false);
    return OPEN_E_NONE;
}

void Model::serveDot1x() {
    if (!system_.dot1xEnabled || (!dot1xReset_ && now_ - lastDot1x_ < kTick))
        return;
    dot1xReset_ = false;
    lastDot1x_ = now_;
    for (const auto &[num, port] : interfaces_) {
        if (port.live || !port.linkUp || !authenticates(num))
            continue;
        const auto &state = port.dot1x;
        const auto period = std::chrono::seconds(port.dot1xReauthPeriod);
        const bool asked =
            state.authenticated ? port.dot1xReauthentication && now_ - state.since >= period : state.answers;
        if (asked)
            authenticate(num, state.answers);
    }
}

void Model::seeSupplicant(const SeenSupplicant &seen) {
    const auto *found = interface(seen.port);
    if (found == nullptr || !found->live || !authenticates(seen.port) || found->dot1x.round != seen.round)
        return;
    if (seen.failed)
        log(4, "DOT1X", "dot1xTask", "Authentication failed on port " + found->name());
    if (!seen.authenticated && !found->dot1x.authenticated)
        return;
    changeAccess(seen.port, [&](Interface &port) {
        port.dot1x.authenticated = seen.authenticated;
        port.dot1x.since = now_;
        port.dot1x.mac = seen.mac;
        port.dot1x.user = seen.user;
    });
}

}  // namespace vswitch
