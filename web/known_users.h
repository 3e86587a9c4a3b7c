// What the switch has said of its users, for a short time: asking costs OpEN calls, and each request has a user.
// A user that was changed on the switch is so for running sessions after kMost at the latest.
//
// Any thread may call.
#ifndef PAVO_WEB_KNOWN_USERS_H
#define PAVO_WEB_KNOWN_USERS_H

#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/clock.h"
#include "swapi/switch_client.h"
#include "web/login.h"
#include "web/waiters.h"

namespace pavo {

class KnownUsers {
  public:
    static constexpr platform::Duration kMost = std::chrono::seconds(2);
    // From this age on the switch is asked again, while what is known is still used.
    static constexpr platform::Duration kAskAgain = std::chrono::seconds(1);
    // Nobody waits longer for a switch that does not answer: it tells nothing then.
    static constexpr platform::Duration kWaitMax = std::chrono::seconds(3);

    // `ask` has find() called for a user, on a thread that may wait for the switch.
    explicit KnownUsers(std::function<void(const std::string &name)> ask) : ask_(std::move(ask)) {}

    // Whether it is known. If not, `wake` is called when it is, or will not be soon.
    bool ask(const std::string &name, Wake wake);
    // What the switch said last; Failed when it has not told within kMost.
    Result<std::optional<SwitchUser>> recall(const std::string &name) const;

    void find(const std::string &name, SwitchClient &client);
    // Wakes who has waited too long, and forgets who has not been asked for; all of them in the end.
    void tick();
    void close();

  private:
    struct User {
        std::optional<Result<std::optional<SwitchUser>>> told{};
        platform::Duration at{};
        bool isAsked = false;
        Waiters waiters{};
    };

    std::function<void(const std::string &name)> ask_;
    mutable std::mutex mutex_;
    std::map<std::string, User> users_;
};

}  // namespace pavo

#endif
