#include "vlan/multicast.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <random>
#include <set>
#include <utility>

#include "common/files.h"
#include "common/json.h"
#include "common/log.h"
#include "common/text.h"
#include "platform/clock.h"
#include "platform/paths.h"
#include "swapi/script_file.h"
#include "vlan/show_vlan.h"

namespace pavo {
namespace {

// --- captures

// Lines are read in pieces of this length.
constexpr std::size_t kLineMax = 1023;

// For the names of temporary files: others who run at the same time have another one.
int randomNumber() {
    std::minstd_rand random(static_cast<std::uint32_t>(platform::wallNow().tv_nsec));
    return static_cast<int>(random());
}

std::string pathOf(TextFormat<int> format) {
    return formatText<int>(format, randomNumber());
}

ScriptFiles filesOf(const char *tag) {
    return ScriptFiles::forTag(tag + std::to_string(randomNumber()));
}

// What can be told of a table at once, many characters at a time: faster than for each string of its ten thousand lines.
struct Letters {
    explicit Letters(std::string_view table) {
        unsigned char special = 0, lag = 0;  // of the width of a character, as in a vector register
        for (const char c : table) {
            const auto code = static_cast<unsigned char>(c);
            special = static_cast<unsigned char>(special | ((code < ' ') & (code != '\n')) | (code >= 0x7f) |
                                                 (code == '"') | (code == '\\'));
            lag = static_cast<unsigned char>(lag | (code == 'l') | (code == 'c'));
        }
        arePlain = special == 0;
        mayNameLag = lag != 0;
    }

    bool arePlain;    // no other blanks than spaces, and nothing that JSON escapes
    bool mayNameLag;  // there is one of the letters that the names of LAGs begin with
};

// A line from left to right. Blanks in front of numbers and words are passed over.
class Scanner {
  public:
    explicit Scanner(std::string_view rest, bool isPlain = false) : rest_(rest), isPlain_(isPlain) {}

    template <class Number>
    bool number(Number &value) {
        skipBlanks();
        const auto [end, error] = std::from_chars(rest_.data(), rest_.data() + rest_.size(), value);
        if (error != std::errc{})
            return false;
        rest_.remove_prefix(static_cast<std::size_t>(end - rest_.data()));
        return true;
    }
    // What is in front of `stop`, at least one character and at most `most`; the stop is taken, too.
    bool until(char stop, std::size_t most, std::string_view &found) {
        const std::size_t length = rest_.substr(0, most + 1).find(stop);
        if (length == 0 || length == std::string_view::npos)
            return false;
        found = rest_.substr(0, length);
        rest_.remove_prefix(length + 1);
        return true;
    }
    // At most `most` characters: a longer word is taken in parts.
    bool word(std::size_t most, std::string_view &found) {
        skipBlanks();
        const std::string_view longest = rest_.substr(0, most);
        found = longest.substr(0, isPlain_ ? longest.find(' ') : findBlank(longest));
        rest_.remove_prefix(found.size());
        return !found.empty();
    }
    // Where it stands, without blanks in front.
    bool take(std::string_view text) {
        if (!rest_.starts_with(text))
            return false;
        rest_.remove_prefix(text.size());
        return true;
    }
    void skipBlanks() {
        const auto *const first = std::ranges::find_if_not(rest_, isBlank);
        rest_.remove_prefix(static_cast<std::size_t>(first - rest_.begin()));
    }

  private:
    static bool isBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
    static std::size_t findBlank(std::string_view text) { return text.find_first_of(" \t\n\v\f\r"); }

    std::string_view rest_;
    bool isPlain_;
};

constexpr std::size_t kAddressMax = 15;
constexpr std::size_t kMacMax = 17;
constexpr std::size_t kTypeMax = 7;

// "10.0.0.1/00:11:22:33:44:55"
bool scanPair(Scanner &in, std::string_view &address, std::string_view &mac) {
    in.skipBlanks();
    return in.until('/', kAddressMax, address) && in.word(kMacMax, mac);
}

// The interface as "lag 3", "ch3" or "1/5".
bool scanInterface(Scanner &in, std::string_view line, bool mayNameLag, GroupRow &row) {
    std::string_view skipped;
    row.onLag = true;
    if (mayNameLag && line.find("lag") != std::string_view::npos)
        return in.word(line.size(), skipped) && in.number(row.port);
    if (mayNameLag && line.find("ch") != std::string_view::npos) {
        in.skipBlanks();
        return in.take("ch") && in.number(row.port);
    }
    row.onLag = false;
    std::uint32_t unit = 0;
    return in.number(unit) && in.take("/") && in.number(row.port);
}

// False leaves something in `row`.
bool parseFullRow(std::string_view line, const Letters &letters, GroupRow &row) {
    Scanner in(line, letters.arePlain);
    if (!in.number(row.vlan) || !scanPair(in, row.subscriber, row.subscriberMac) ||
        !scanPair(in, row.group, row.groupMac) || !scanInterface(in, line, letters.mayNameLag, row) ||
        !in.word(kTypeMax, row.type))
        return false;
    row.timeout = 0;
    in.number(row.timeout);
    row.isPlain = letters.arePlain;
    return true;
}

bool isHeaderRule(std::string_view line) {
    return line.find("-------") != std::string_view::npos || line.find("=====") != std::string_view::npos;
}

// The text of a row is put together in a buffer that is large enough, with a check for room only where the length is
// not known beforehand: tables have ten thousand rows.
class RowPrinter {
  public:
    explicit RowPrinter(GroupRowRoom &room) : room_(room) {}

    template <std::size_t N>
    void add(const char (&text)[N]) {
        std::memcpy(end_, text, N - 1);
        end_ += N - 1;
    }
    void add(std::int64_t number) { end_ = std::to_chars(end_, room_.data() + room_.size(), number).ptr; }
    // A string of at most kMacMax bytes.
    void add(std::string_view text, bool isPlain) {
        if (isPlain) {
            end_ = std::copy(text.begin(), text.end(), end_);
            return;
        }
        std::string escaped;
        appendEscaped(escaped, text);
        end_ = std::copy(escaped.begin(), escaped.end(), end_);
    }
    std::string_view row() const { return {room_.data(), static_cast<std::size_t>(end_ - room_.data())}; }

  private:
    // Keys and numbers, and five strings, of which a byte becomes six at most.
    static_assert(std::tuple_size_v<GroupRowRoom> >= 256 + kMacMax * 5 * 6);
    GroupRowRoom &room_;
    char *end_ = room_.data();
};

}  // namespace

// --- groups

void forEachGroupRow(std::string_view shown, const std::function<void(const GroupRow &)> &visit) {
    bool inTable = false;
    bool seen = false;
    GroupRow rows[2];
    GroupRow *last = &rows[0];
    GroupRow *next = &rows[1];
    const Letters letters(shown);
    forEachLine(shown, kLineMax, [&](std::string_view line) {
        if (!inTable) {
            inTable = isHeaderRule(line);
        } else if (seen && (line.starts_with(' ') || line.starts_with('\t'))) {
            *next = *last;
            Scanner in(line, letters.arePlain);
            if (scanPair(in, next->subscriber, next->subscriberMac) &&
                next->subscriber.find('.') != std::string_view::npos)
                visit(*next);
        } else if (parseFullRow(line, letters, *next)) {
            std::swap(last, next);
            seen = true;
            visit(*last);
        }
        return true;
    });
}

std::string_view printGroupRow(const GroupRow &row, GroupRowRoom &room) {
    RowPrinter print(room);
    print.add(R"({"unit":1,"port":")");
    if (row.onLag)
        print.add("lag");
    print.add(std::int64_t{row.port});
    print.add(R"(","vlanId":)");
    print.add(std::int64_t{row.vlan});
    print.add(R"(,"subscriberAddress":")");
    print.add(row.subscriber, row.isPlain);
    print.add(R"(","subscriberMacAddress":")");
    print.add(row.subscriberMac, row.isPlain);
    print.add(R"(","multicastAddress":")");
    print.add(row.group, row.isPlain);
    print.add(R"(","multicastMacAddress":")");
    print.add(row.groupMac, row.isPlain);
    print.add(R"(","type":")");
    print.add(row.type, row.isPlain);
    print.add(R"(","timeout":)");
    if (row.hasTimeout())
        print.add(std::int64_t{row.timeout});
    else
        print.add("null");
    print.add("}");
    return print.row();
}

Result<std::string> captureGroups(Switch sw, Where where) {
    return sw.show("show igmpsnooping group", pathOf(platform::paths::kMulticastGroupsShow), where,
                   kCannotOpenCapture);
}

Result<> readGroups(Switch sw, RowSink &sink, Where where) {
    const auto shown = captureGroups(sw, where);
    if (!shown)
        return std::unexpected(shown.error());
    GroupRowRoom room;
    forEachGroupRow(*shown, [&](const GroupRow &row) { sink.add(printGroupRow(row, room)); });
    return {};
}

// --- modes

namespace {

std::unexpected<Failure> switchFailed(const char *what) {
    return failed(ResultCode::Failed, what);
}

Result<LagNumbering> readFirstLag(Switch sw, const Where &where) {
    const auto numbering = sw.lagNumbering();
    if (numbering)
        return *numbering;
    logError(where, "[%s:%d] Bad return code trying to get first LAG interface. (result = %d)\r\n",
             numbering.error());
    return switchFailed("the switch does not tell its LAGs");
}

// Nothing when there is no such list.
Result<std::optional<AccessListId>> findAccessList(Switch sw, const std::string &name, const Where &where) {
    const auto found = sw.accessList(name);
    if (found)
        return std::optional(*found);
    if (found.error() == OpenError::NoAccessList)
        return std::optional<AccessListId>();
    logError(where, "[%s:%d] Bad return code trying to get access list %s. (result = %d)\r\n", name,
             found.error());
    return switchFailed("the switch does not tell its access lists");
}

// The list, which is made unless it is there.
Result<AccessListId> provideNetBlock(Switch sw, const Where &where) {
    const auto found = findAccessList(sw, kNetBlock, where);
    if (!found)
        return std::unexpected(found.error());
    if (const auto &id = *found)
        return *id;
    const auto created = sw.createAccessList(kNetBlock);
    if (created)
        return *created;
    logError(where, "[%s:%d] Bad return code trying to create access list %s. (result = %d)\r\n", kNetBlock,
             created.error());
    return switchFailed("the switch refused the access list");
}

Result<std::vector<IfNum>> readBound(Switch sw, AccessListId list, Direction direction, const Where &where) {
    auto bound = sw.boundInterfaces(list, direction);
    if (bound)
        return std::move(*bound);
    logError(where,
             "[%s:%d] Bad return code trying to get the interfaces of access list %s. (result = %d)\r\n",
             kNetBlock, bound.error());
    return switchFailed("the switch does not tell which interfaces are blocked");
}

Result<> finishInterrupted(Switch sw, const Where &where);  // of the deny list

// One change of multicast settings at a time, by all who make any.
Result<> lockedOr(const FileLock &lock, const Where &where) {
    if (lock.held())
        return {};
    logError(where, "[%s:%d] File lock failed\n");
    return failed(ResultCode::Failed, lock.timedOut() ? "another change of multicast settings does not end"
                                                      : "cannot lock the multicast settings");
}

// The bindings of NET-BLOCK; what was changed is taken back at the end unless it was kept.
class Bindings {
  public:
    Bindings(Switch sw, AccessListId list, const Where &where) : sw_(sw), list_(list), where_(where) {}
    ~Bindings() {
        for (auto step = done_.rbegin(); step != done_.rend(); ++step)
            static_cast<void>(change(step->ifNum, step->direction, !step->bound));
    }
    Bindings(const Bindings &) = delete;
    Bindings &operator=(const Bindings &) = delete;

    Result<> read() {
        for (const Direction direction : kDirections) {
            auto bound = readBound(sw_, list_, direction, where_);
            if (!bound)
                return std::unexpected(std::move(bound).error());
            boundIn(direction) = std::set<IfNum>(bound->begin(), bound->end());
        }
        return {};
    }
    // In both directions; one that is as wanted is left alone, so that nothing passes meanwhile.
    Result<> set(IfNum ifNum, bool bound) {
        for (const Direction direction : kDirections) {
            if (boundIn(direction).contains(ifNum) == bound)
                continue;
            if (auto changed = change(ifNum, direction, bound); !changed)
                return changed;
            done_.push_back({ifNum, direction, bound});
            if (bound)
                boundIn(direction).insert(ifNum);
            else
                boundIn(direction).erase(ifNum);
        }
        return {};
    }
    void keep() { done_.clear(); }

  private:
    struct Step {
        IfNum ifNum;
        Direction direction;
        bool bound;
    };
    static constexpr Direction kDirections[] = {Direction::Inbound, Direction::Outbound};

    std::set<IfNum> &boundIn(Direction direction) { return bound_[direction == Direction::Outbound ? 1 : 0]; }

    Result<> change(IfNum ifNum, Direction direction, bool bound) const {
        const auto result = bound ? sw_.bindAccessList(list_, ifNum, direction)
                                  : sw_.unbindAccessList(list_, ifNum, direction);
        // Somebody else was faster.
        if (result || (!bound && result.error() == OpenError::NotFound))
            return {};
        logError(where_,
                 "[%s:%d] Bad return code trying to %s access list %s, interface %u. (result = %d)\r\n",
                 bound ? "bind" : "unbind", kNetBlock, ifNum, result.error());
        return switchFailed("the switch refused to block or unblock an interface");
    }

    Switch sw_;
    AccessListId list_;
    Where where_;
    std::set<IfNum> bound_[2];
    std::vector<Step> done_;
};

// An interface and how scripts enter its mode: "interface 0/5", "interface port-channel 2".
struct ModeTarget {
    IfNum ifNum;
    std::string enter;
    MulticastMode mode;
};

Result<ModeTarget> portTarget(Switch sw, const ModeEntry &entry, LagNumbering lags, const Where &where) {
    const IfNum ifNum(entry.number);
    auto place = sw.unitSlotPort(ifNum);
    // LAGs have interface numbers, too, and a port in their slot.
    if (place && ifNum >= lags.first)
        place = std::unexpected(OpenError::NotFound);
    if (!place) {
        logError(where, "[%s:%d] openapiHashIntfUnitSlotPortGet return error code:%d\r\n", place.error());
        return failed(ResultCode::Failed, "port " + std::to_string(entry.number));
    }
    return ModeTarget{ifNum, formatText("interface 0/%u\n", place->port), entry.mode};
}

Result<ModeTarget> lagTarget(Switch sw, const ModeEntry &entry, LagNumbering lags, const Where &where) {
    const IfNum ifNum = lags.interfaceOf(entry.number);
    // A number that is too large comes out as another interface.
    const auto type = sw.interfaceType(ifNum);
    if (type && *type == static_cast<std::uint32_t>(IfType::Lag) && ifNum >= lags.first)
        return ModeTarget{ifNum, formatText("interface port-channel %u\n", entry.number), entry.mode};
    logError(where, "[%s:%d] There is no LAG %u\r\n", entry.number);
    return failed(ResultCode::Failed, "LAG " + std::to_string(entry.number));
}

Result<std::vector<ModeTarget>> targetsOf(Switch sw, const MulticastModes &wanted, const Where &where) {
    const auto lags = readFirstLag(sw, where);
    if (!lags)
        return std::unexpected(lags.error());
    std::vector<ModeTarget> targets;
    const auto add = [&](const std::vector<ModeEntry> &entries, auto targetOf) -> Result<> {
        for (const ModeEntry &entry : entries) {
            auto target = targetOf(sw, entry, *lags, where);
            if (!target)
                return std::unexpected(std::move(target).error());
            targets.push_back(std::move(*target));
        }
        return {};
    };
    if (auto added = add(wanted.ports, portTarget); !added)
        return std::unexpected(std::move(added).error());
    if (auto added = add(wanted.lags, lagTarget); !added)
        return std::unexpected(std::move(added).error());
    return targets;
}

std::string modeScript(const std::vector<ModeTarget> &targets) {
    std::string script = "config\n";
    for (const ModeTarget &target : targets) {
        script += target.enter + "no ip igmp snooping mrouter interface\nexit\n";
        if (target.mode == MulticastMode::Router)
            script += target.enter + "ip igmp snooping mrouter interface\nexit\n";
    }
    return script + "exit\n";
}

Result<> toResult(const ScriptResult &result, const char *reason) {
    if (result)
        return {};
    return failed(result.error().code, reason);
}

}  // namespace

Result<MulticastModes> readMulticastModes(Switch sw, Where where) {
    const auto lags = readFirstLag(sw, where);
    if (!lags)
        return std::unexpected(lags.error());
    MulticastModes modes;
    const auto add = [&](IfNum ifNum, MulticastMode mode) {
        if (ifNum >= lags->first)
            modes.lags.push_back({lags->numberOf(ifNum), mode});
        else
            modes.ports.push_back({ifNum.number(), mode});
    };
    const auto list = findAccessList(sw, kNetBlock, where);
    if (!list)
        return std::unexpected(list.error());
    if (const auto &id = *list) {
        const auto bound = readBound(sw, *id, Direction::Outbound, where);
        if (!bound)
            return std::unexpected(bound.error());
        for (const IfNum ifNum : *bound)
            add(ifNum, MulticastMode::Blocked);
    }
    auto routers = sw.routerInterfaces();
    for (const IfNum ifNum : routers)
        add(ifNum, MulticastMode::Router);
    if (const auto broken = routers.brokenBy()) {
        logError(where,
                 "[%s:%d] Bad return code trying to get multicast router interfaces. (result = %d)\r\n",
                 *broken);
        return switchFailed("the switch does not tell its multicast router interfaces");
    }
    return modes;
}

Result<> changeMulticastModes(Switch sw, const MulticastModes &wanted, Where where) {
    const FileLock lock(platform::paths::kMulticastLock);
    if (auto locked = lockedOr(lock, where); !locked)
        return locked;
    // What is to be blocked would pass.
    if (auto finished = finishInterrupted(sw, where); !finished)
        return finished;
    const auto targets = targetsOf(sw, wanted, where);
    if (!targets)
        return std::unexpected(targets.error());
    const auto list = provideNetBlock(sw, where);
    if (!list)
        return std::unexpected(list.error());
    Bindings bindings(sw, *list, where);
    if (auto read = bindings.read(); !read)
        return read;
    for (const ModeTarget &target : *targets)
        if (auto set = bindings.set(target.ifNum, target.mode == MulticastMode::Blocked); !set)
            return set;
    logInfo(where, "[%s:%d] Aplly cli to switch\r\n");
    const auto applied =
        sw.apply(modeScript(*targets),
                 {platform::paths::kSetMulticastModeIn, platform::paths::kSetMulticastModeOut}, where);
    if (applied)
        bindings.keep();
    return toResult(applied, "the switch refused the multicast modes");
}

Result<> removeRouterInterface(Switch sw, IfNum ifNum, Where where) {
    const FileLock lock(platform::paths::kMulticastLock);
    if (auto locked = lockedOr(lock, where); !locked)
        return locked;
    const auto lags = readFirstLag(sw, where);
    if (!lags)
        return std::unexpected(lags.error());
    if (const auto type = sw.interfaceType(ifNum); !type) {
        logError(where, "[%s:%d] Bad return code trying to get interface %u. (result = %d)\r\n", ifNum,
                 type.error());
        return failed(type.error() == OpenError::NotFound ? ResultCode::NotExist : ResultCode::Failed,
                      "interface " + std::to_string(ifNum.number()));
    }
    const std::string script =
        ifNum >= lags->first
            ? formatText(
                  "config\ninterface port-channel %u\nno ip igmp snooping mrouter interface\nexit\nexit\n",
                  lags->numberOf(ifNum))
            : formatText("config\ninterface 0/%u\nno set igmp mrouter interface\nexit\nexit\n", ifNum);
    return toResult(sw.apply(script, filesOf("no_set_igmp_mrouter_interface_"), where),
                    "the switch refused to remove the multicast router");
}

// --- deny list

namespace {

// As many characters of an address as a rule takes.
constexpr std::size_t kRuleAddressMax = 9;
constexpr std::size_t kDeniedMax = 20;
constexpr std::size_t kScriptMax = 2047;
// A list that has more rules than this, or does not get shorter, is given up.
constexpr std::size_t kRulesMax = 65536;

// One to four numbers from 0 to 255 with dots between; the end may be missing, also behind a dot.
bool isShortenedAddress(std::string_view text) {
    int numbers = 0;
    for (;;) {
        std::uint32_t number = 0;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
        const auto digits = static_cast<std::size_t>(end - text.data());
        if (error != std::errc{} || number > 255 || (digits > 1 && text.front() == '0') || ++numbers > 4)
            return false;
        text.remove_prefix(digits);
        if (text.empty())
            return true;
        if (text.front() != '.' || numbers == 4)
            return false;
        text.remove_prefix(1);
        if (text.empty())
            return true;
    }
}

// How many rules the list has; what a broken walk has seen does not count.
Result<std::size_t> countRules(Switch sw, AccessListId list, const Where &where) {
    std::size_t count = 0;
    auto rules = sw.accessRules(list);
    for ([[maybe_unused]] const std::uint32_t rule : rules)
        if (++count == kRulesMax)
            break;
    if (const auto broken = rules.brokenBy()) {
        logError(where,
                 "[%s:%d] Bad return code trying to get the rules of an access list. (result = %d)\r\n",
                 *broken);
        return switchFailed("the switch does not tell the rules of the access list");
    }
    return count;
}

Result<> clearRules(Switch sw, AccessListId list, const Where &where) {
    auto left = countRules(sw, list, where);
    if (!left)
        return std::unexpected(std::move(left).error());
    for (; *left > 0; --*left)
        if (const auto deleted = sw.deleteLastRule(list); !deleted) {
            logError(where,
                     "[%s:%d] Bad return code trying to delete the last rule of an access list. "
                     "(result = %d)\r\n",
                     deleted.error());
            return switchFailed("the switch refused to delete a rule");
        }
    return {};
}

// The lines of NET-BLOCK in a running configuration.
std::vector<std::string> linesOfList(std::string_view configuration) {
    std::vector<std::string> lines;
    bool inside = false;
    forEachLine(configuration, kLineMax, [&](std::string_view line) {
        while (line.ends_with('\r'))
            line.remove_suffix(1);
        if (!inside)
            inside = line == std::string("ip access-list ") + kNetBlock;
        else if (line == "exit")
            return false;
        else
            lines.emplace_back(line);
        return true;
    });
    return lines;
}

std::string listScript(std::span<const std::string> lines) {
    std::string script = std::string("config\nip access-list ") + kNetBlock + "\n";
    for (const std::string &line : lines)
        script += line + "\n";
    return script + "exit\nexit\n";
}

constexpr const char *kListTag = "ip_access-list_NET-BLOCK_";

// A script in its file, to be applied later: a disk without room is found out before anything is changed.
class WrittenScript {
  public:
    explicit WrittenScript(ScriptFiles files) : files_(std::move(files)) {}
    ~WrittenScript() {
        removeFile(files_.in);
        removeFile(files_.out);
    }
    WrittenScript(const WrittenScript &) = delete;
    WrittenScript &operator=(const WrittenScript &) = delete;

    Result<> write(std::string_view script, const Where &where) {
        return writeScriptFile(files_.in, "w", script, where);
    }
    Result<> apply(Switch sw, const Where &where) { return sw.applyFile(files_.in, files_.out, where); }

  private:
    ScriptFiles files_;
};

// The rules that NET-BLOCK has.
Result<std::vector<std::string>> readRules(Switch sw, const Where &where) {
    const auto shown =
        sw.show("show running-config",
                formatText("%spavo_out_show_running-config_%d", platform::paths::kScriptDir, randomNumber()),
                where, kCannotOpenCapture);
    if (!shown)
        return std::unexpected(shown.error());
    return linesOfList(*shown);
}

// Rules are deleted from the last on: those that are missing go behind those that are left. A list that has
// other rules by now, or that somebody has deleted, stays as it is.
Result<> bringBack(Switch sw, const std::vector<std::string> &former, const Where &where) {
    const auto list = findAccessList(sw, kNetBlock, where);
    if (!list || !*list)
        return list ? Result<>() : std::unexpected(list.error());
    const auto left = readRules(sw, where);
    if (!left)
        return std::unexpected(left.error());
    if (left->size() >= former.size() || !std::equal(left->begin(), left->end(), former.begin()))
        return {};
    const auto missing = std::span(former).subspan(left->size());
    auto applied = sw.apply(listScript(missing), filesOf(kListTag), where);
    if (applied)
        logInfo(where, "[%s:%d] %zu rules of access list %s are as they were\r\n", missing.size(), kNetBlock);
    return toResult(applied, "the switch refused the rules that the access list had");
}

// The rules of NET-BLOCK, on the disk from before they are deleted until there are new ones or they are back:
// when the caller is killed, or the switch does not answer, the next one finds them there.
Result<std::vector<std::string>> keepRules(Switch sw, const Where &where) {
    auto lines = readRules(sw, where);
    if (!lines || lines->empty())
        return lines;
    std::string text;
    for (const std::string &line : *lines)
        text += line + "\n";
    if (auto kept = replaceFileDurably(platform::paths::kDenyListRules, text, where); !kept)
        return std::unexpected(std::move(kept).error());
    return lines;
}

void bringBackKept(Switch sw, const std::vector<std::string> &former, const Where &where) {
    if (bringBack(sw, former, where))
        removeFile(platform::paths::kDenyListRules);
}

// Whoever calls it holds the lock.
Result<> finishInterrupted(Switch sw, const Where &where) {
    if (!fileExists(platform::paths::kDenyListRules))
        return {};
    const auto text = readFile(platform::paths::kDenyListRules, kFileMax, where);
    if (!text) {
        logError(where, "[%s:%d] Can not open file:%s\r\n", platform::paths::kDenyListRules);
        return failed(ResultCode::OpenFailed, platform::paths::kDenyListRules);
    }
    std::vector<std::string> former;
    forEachLine(*text, kLineMax, [&](std::string_view line) {
        former.emplace_back(line);
        return true;
    });
    if (auto back = bringBack(sw, former, where); !back)
        return back;
    removeFile(platform::paths::kDenyListRules);
    return {};
}

}  // namespace

std::vector<std::string> parseDenyList(std::string_view shown) {
    std::vector<std::string> denied;
    forEachLine(shown, kLineMax, [&](std::string_view line) {
        std::string_view address;
        Scanner in(line);
        if (!line.starts_with("Destination IP Address"))
            return true;
        for (int word = 0; word < 4; ++word)
            if (!in.word(line.size(), address))
                return true;
        denied.push_back((std::string(address) + "/8").substr(0, kDeniedMax));
        return true;
    });
    return denied;
}

Result<std::vector<std::string>> readDenyList(Switch sw, Where where) {
    if (auto restored = restoreDenyList(sw, where); !restored)
        return std::unexpected(std::move(restored).error());
    const auto list = findAccessList(sw, kNetBlock, where);
    if (!list)
        return std::unexpected(list.error());
    if (!*list) {
        logInfo(where, "[%s:%d] No ACL rule NET-BLOCK present\r\n");
        return std::vector<std::string>();
    }
    const auto shown = sw.show(std::string("show ip access-list ") + kNetBlock,
                               pathOf(platform::paths::kDenyListShow), where, kCannotOpenCapture);
    if (!shown)
        return std::unexpected(shown.error());
    return parseDenyList(*shown);
}

Result<std::string> denyListScript(std::span<const std::string> addresses, Where where) {
    if (addresses.empty())
        return std::string("config\nno ip access-list ") + kNetBlock + "\nexit\n";
    std::vector<std::string> lines;
    for (const std::string &address : addresses) {
        // "10.0.0.0/8", as the list is shown.
        const auto slash = address.find('/');
        const bool hasLength = slash != std::string::npos;
        const auto length = hasLength ? wholeNumber(std::string_view(address).substr(slash + 1)) : 8;
        const std::string whole = address.substr(0, slash);
        if (!isShortenedAddress(whole) || !length || *length < 0 || *length > 32) {
            logError(where, "[%s:%d] %s is no address to be denied\r\n", quoteText(address));
            return failed(ResultCode::InvalidArgument, quoteText(address) + " is no IPv4 address");
        }
        lines.push_back("deny ip any " + whole.substr(0, kRuleAddressMax) + " 0.255.255.255");
    }
    lines.emplace_back("permit ip any any");
    std::string script = listScript(lines);
    if (script.size() <= kScriptMax)
        return script;
    logError(where, "[%s:%d] %zu addresses to be denied are too many\r\n", addresses.size());
    return failed(ResultCode::InvalidArgument, std::to_string(addresses.size()) + " addresses are too many");
}

Result<> changeDenyList(Switch sw, std::span<const std::string> addresses, Where where) {
    const auto script = denyListScript(addresses, where);
    if (!script)
        return std::unexpected(script.error());
    const FileLock lock(platform::paths::kMulticastLock);
    if (auto locked = lockedOr(lock, where); !locked)
        return locked;
    if (auto finished = finishInterrupted(sw, where); !finished)
        return finished;
    const auto list = findAccessList(sw, kNetBlock, where);
    if (!list)
        return std::unexpected(list.error());
    WrittenScript written(filesOf(kListTag));
    if (auto writing = written.write(*script, where); !writing)
        return writing;
    std::vector<std::string> former;
    Result<> changed;
    if (const auto &id = *list) {
        auto kept = keepRules(sw, where);
        if (!kept)
            return std::unexpected(std::move(kept).error());
        former = std::move(*kept);
        changed = clearRules(sw, *id, where);
    }
    if (changed)
        changed = written.apply(sw, where);
    if (changed)
        removeFile(platform::paths::kDenyListRules);
    else if (!former.empty())
        bringBackKept(sw, former, where);
    // A list that is deleted takes its bindings along: what detection has bound it has to bind again.
    if (changed && addresses.empty())
        removeFile(platform::paths::kNetBlockPorts);
    return changed;
}

Result<> restoreDenyList(Switch sw, Where where) {
    // While somebody changes the list, the rules are there, too: the lock is waited for.
    if (!fileExists(platform::paths::kDenyListRules))
        return {};
    const FileLock lock(platform::paths::kMulticastLock);
    if (auto locked = lockedOr(lock, where); !locked)
        return locked;
    return finishInterrupted(sw, where);
}

Result<> clearAccessList(Switch sw, const std::string &name, Where where) {
    const auto list = findAccessList(sw, name, where);
    if (!list)
        return std::unexpected(list.error());
    const auto &id = *list;
    return id ? clearRules(sw, *id, where) : Result<>();
}

}  // namespace pavo
