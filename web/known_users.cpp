#include "web/known_users.h"

#include <exception>
#include <iterator>
#include <utility>

#include "common/log.h"
#include "web/request.h"

namespace pavo {
namespace {

// After this nobody has asked for a user any more.
constexpr platform::Duration kForgottenAfter = std::chrono::minutes(1);

}  // namespace

bool KnownUsers::ask(const std::string &name, Wake wake) {
    bool isKnown = false;
    bool asks = false;
    {
        const std::lock_guard lock(mutex_);
        User &user = users_[name];
        const auto now = platform::monotonicNow();
        const auto age = now - user.at;
        isKnown = user.told && age < kMost;
        asks = !user.isAsked && (!isKnown || age >= kAskAgain);
        user.isAsked = user.isAsked || asks;
        if (!isKnown && wake)
            user.waiters.add(std::move(wake), now + ofRealTime(kWaitMax));
    }
    if (asks)
        ask_(name);
    return isKnown;
}

Result<std::optional<SwitchUser>> KnownUsers::recall(const std::string &name) const {
    const std::lock_guard lock(mutex_);
    const auto found = users_.find(name);
    // A little longer than kMost, for those who have just waited.
    if (found != users_.end() && platform::monotonicNow() - found->second.at < kMost + kAskAgain)
        if (const auto &told = found->second.told)
            return *told;
    return failed(ResultCode::Unreachable, "the users of the switch are not known");
}

void KnownUsers::find(const std::string &name, SwitchClient &client) {
    Result<std::optional<SwitchUser>> told = failed(ResultCode::Unreachable, "the switch does not answer");
    try {
        if (client.isConnected())
            told = readSwitchUser(client.get(), name);
    } catch (const std::exception &e) {
        logError("[%s:%d] %s\n", e.what());
    }
    std::vector<Wake> woken;
    {
        const std::lock_guard lock(mutex_);
        User &user = users_[name];
        user.told = std::move(told);
        user.at = platform::monotonicNow();
        user.isAsked = false;
        user.waiters.takeAll(woken);
    }
    for (const auto &wake : woken)
        wake();
}

void KnownUsers::tick() {
    std::vector<Wake> woken;
    {
        const std::lock_guard lock(mutex_);
        const auto now = platform::monotonicNow();
        for (auto user = users_.begin(); user != users_.end();) {
            user->second.waiters.takeOverdue(now, woken);
            const bool isForgotten = !user->second.isAsked && user->second.waiters.empty() &&
                                     now - user->second.at >= kForgottenAfter;
            user = isForgotten ? users_.erase(user) : std::next(user);
        }
    }
    for (const auto &wake : woken)
        wake();
}

void KnownUsers::close() {
    std::vector<Wake> woken;
    {
        const std::lock_guard lock(mutex_);
        for (auto &[name, user] : users_)
            user.waiters.takeAll(woken);
    }
    for (const auto &wake : woken)
        wake();
}

}  // namespace pavo
