#include "web/login.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/random.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <map>
#include <string_view>
#include <utility>

#include "common/files.h"
#include "common/json.h"
#include "common/log.h"
#include "common/text.h"
#include "platform/clock.h"
#include "platform/paths.h"

namespace pavo {
namespace {

constexpr int kFreeAttempts = 5;
// Seconds. That of an address is twice that of a user, so that nobody keeps a user out from a single address.
constexpr long kFirstUserPause = 5, kFirstAddressPause = 10;
constexpr int kDoublings = 5;
constexpr long kForgottenAfter = 900;
constexpr std::size_t kKeysMax = 1024;  // who has the fewest failures goes first, of those who is longest ago

std::string fileName(const char *name) {
    return std::string(platform::paths::kSessionDir) + "/" + name;
}

// --- counting

struct Failures {
    int count = 0;
    long last = 0;  // system uptime

    // How much of the pause is left.
    long wait(long firstPause, long now) const {
        if (count < kFreeAttempts)
            return 0;
        return std::max(0L, (firstPause << std::min(count - kFreeAttempts, kDoublings)) - (now - last));
    }
};
using FailureTable = std::map<std::string, Failures>;

// A file that cannot be read counts as none; entries that make no sense are passed over.
FailureTable readTable(long now) {
    FailureTable table;
    const auto text = readFile(fileName(".failures"));
    const JsonPtr root(text ? cJSON_Parse(text->c_str()) : nullptr);
    const cJSON *item = nullptr;
    cJSON_ArrayForEach(item, root.get()) {
        const auto count = integerMember(item, "count");
        const auto last = integerMember(item, "last");
        if (item->string != nullptr && count && *count > 0 && last && *last <= now &&
            now - *last <= kForgottenAfter)
            table[item->string] = {*count, *last};
    }
    return table;
}

Result<> writeTable(FailureTable table, const Where &where) {
    while (table.size() > kKeysMax)
        table.erase(std::ranges::min_element(
            table, {}, [](const auto &entry) { return std::pair(entry.second.count, entry.second.last); }));
    const JsonPtr root(cJSON_CreateObject());
    for (const auto &[key, failures] : table)
        if (cJSON *const item = cJSON_AddObjectToObject(root.get(), key.c_str())) {
            cJSON_AddNumberToObject(item, "count", failures.count);
            cJSON_AddNumberToObject(item, "last", static_cast<double>(failures.last));
        }
    return replaceFile(fileName(".failures"), printJsonLine(root.get()), where);
}

// An IPv6 host has a network of 64 bits to choose addresses from.
std::string networkOf(const std::string &address) {
    in6_addr bits{};
    if (inet_pton(AF_INET6, address.c_str(), &bits) != 1 || IN6_IS_ADDR_V4MAPPED(&bits))
        return address;
    std::fill(std::begin(bits.s6_addr) + 8, std::end(bits.s6_addr), std::uint8_t{0});
    char text[INET6_ADDRSTRLEN];
    return inet_ntop(AF_INET6, &bits, text, sizeof text) != nullptr ? text : address;
}

// The counts of one attempt.
class Attempt {
  public:
    Attempt(const Credentials &who, const Where &where)
        : user_{"user " + wellFormed(who.user), kFirstUserPause},
          address_{"address " + wellFormed(networkOf(who.address)), kFirstAddressPause},
          where_(where) {}

    // Counts it, unless one of the two has to wait.
    Result<> begin() {
        return change([&](FailureTable &table, long now) -> Result<> {
            long wait = 0;
            for (const Count *const count : {&user_, &address_})
                if (const auto found = table.find(count->key); found != table.end())
                    wait = std::max(wait, found->second.wait(count->firstPause, now));
            if (wait > 0)
                return failed(ResultCode::LockedOut, std::to_string(wait) + " seconds are left");
            begun_ = now;
            for (Count *const count : {&user_, &address_}) {
                Failures &failures = table[count->key];
                count->before = failures.last;
                failures = {failures.count + 1, now};
            }
            return {};
        });
    }
    // The password was right: the user has no failures any more, and the address what it had before.
    Result<> succeed() {
        return change([&](FailureTable &table, long) -> Result<> {
            table.erase(user_.key);
            takeBack(table, address_);
            return {};
        });
    }
    // It was not looked at.
    void withdraw() {
        static_cast<void>(change([&](FailureTable &table, long) -> Result<> {
            takeBack(table, user_);
            takeBack(table, address_);
            return {};
        }));
    }

  private:
    struct Count {
        std::string key;
        long firstPause;
        long before = 0;  // time of the failure before this attempt
    };

    void takeBack(FailureTable &table, const Count &count) const {
        const auto found = table.find(count.key);
        if (found == table.end())
            return;
        // A pause goes on from where it was, unless another attempt has failed meanwhile.
        if (found->second.last == begun_)
            found->second.last = count.before;
        if (--found->second.count <= 0)
            table.erase(found);
    }

    template <class Change>
    Result<> change(Change apply) {
        const auto now = platform::systemUptime();
        if (!now) {
            logError(where_, "[%s:%d] Failed to get sysinfo\r\n");
            return failed(ResultCode::Failed, "wrong passwords cannot be counted");
        }
        const FileLock lock(fileName(".failures.lock"), FileLock::Afterwards::Keep, FileLock::kWaitMax,
                            where_);
        if (!lock.held()) {
            logError(where_, "[%s:%d] %s cannot be locked\n", fileName(".failures"));
            return failed(ResultCode::Failed, "wrong passwords cannot be counted");
        }
        auto table = readTable(*now);
        if (auto applied = apply(table, *now); !applied)
            return applied;
        return writeTable(std::move(table), where_);
    }

    Count user_, address_;
    long begun_ = 0;
    Where where_;
};

// --- marks

// Tells a level and password from others. It need not be hard to turn back: whoever can read the mark can ask
// the switch for the password.
std::string markOf(const SwitchUser &user, const std::string &salt) {
    std::uint64_t hash = 14695981039346656037u;
    for (const auto &text : {salt, std::string(wordOf(user.level)), user.password})
        for (const char c : text + '\0')
            hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211u;
    return salt + " " + std::to_string(hash);
}

std::string newSalt() {
    std::uint64_t salt = 0;
    static_cast<void>(getrandom(&salt, sizeof salt, 0));
    return std::to_string(salt);
}

bool isMarkOf(const std::string &mark, const SwitchUser &user) {
    return isSameSecret(markOf(user, mark.substr(0, mark.find(' '))), mark);
}

}  // namespace

Result<Login> logIn(const Credentials &credentials, const FindUser &findUser, Where where) {
    const std::string shown = printable(validUtf8(cutToBytes(credentials.user, kUserNameMax)));
    if (credentials.user.empty() || credentials.user.size() > kUserNameMax || shown != credentials.user) {
        logWarn(where, "[%s:%d] login from %s: no user name\n", printable(credentials.address));
        return failed(ResultCode::InvalidArgument, "user name");
    }
    if (auto made = ensureSessionDir(where); !made)
        return std::unexpected(std::move(made).error());
    Attempt attempt(credentials, where);
    if (auto counted = attempt.begin(); !counted) {
        if (counted.error().code == ResultCode::LockedOut)
            logWarn(where, "[%s:%d] login of %s from %s: too many wrong passwords\n", shown,
                    printable(credentials.address));
        return std::unexpected(std::move(counted).error());
    }
    const auto found = findUser(credentials.user);
    if (!found) {
        attempt.withdraw();
        return std::unexpected(found.error());
    }
    const std::optional<SwitchUser> &user = *found;
    // Compared also when there is no such user, who would be known by the time that it takes otherwise. A user
    // without a password cannot log in.
    const bool isRight = isSameSecret(user ? user->password : std::string(), credentials.password);
    if (!user || user->password.empty() || !isRight) {
        logWarn(where, "[%s:%d] login of %s from %s: wrong user name or password\n", shown,
                printable(credentials.address));
        return failed(ResultCode::WrongPassword);
    }
    if (auto counted = attempt.succeed(); !counted)
        return std::unexpected(std::move(counted).error());
    Login login{{}, {credentials.user, user->level}};
    auto token = openSession(login.session, markOf(*user, newSalt()), where);
    if (!token)
        return std::unexpected(std::move(token).error());
    login.token = *std::move(token);
    logInfo(where, "[%s:%d] login of %s from %s\n", shown, printable(credentials.address));
    return login;
}

bool isStillTheUser(const std::string &token, const Session &session, const FindUser &findUser, Where where) {
    const auto found = findUser(session.user);
    if (!found)
        return true;
    const std::optional<SwitchUser> &user = *found;
    const auto mark = sessionMark(token);
    if (!mark)
        return false;  // not now; the session stays
    const std::optional<std::string> &known = *mark;
    if (user && user->level == session.level && (!known || isMarkOf(*known, *user)))
        return true;
    logInfo(where, "[%s:%d] the session of %s ends: its level or password has changed\n",
            printable(session.user));
    endSession(token);
    return false;
}

}  // namespace pavo
