#include "profile/settings.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <set>
#include <span>

#include "common/text.h"

namespace pavo {
namespace {

using Words = std::vector<std::string>;

enum class Scope : std::uint8_t { Global, VlanDatabase, Interface };

// "#" is an argument that belongs to the name, "*" at the end is the value. A name is what stands before "*".
struct Row {
    const char *syntax;
    const char *no = nullptr;  // the command that puts the default back, when it is not "no " and the name;
                               // "*" stands for the value that the setting has
    Scope scope = Scope::Global;
    bool defaultOn = false;            // on unless the configuration says no
    bool block = false;                // followed by lines up to its "exit", which are its value
    bool list = false;                 // one line for each of several values
    const char *takesAlong = nullptr;  // the switch-wide setting that goes off with this one
};

// In the order in which settings are put into force; some rest on those before.
constexpr Row kRows[] = {
    {.syntax = "class-map match-all #", .no = "no class-map #", .block = true},
    {.syntax = "policy-map # in", .no = "no policy-map #", .block = true},
    {.syntax = "policy-map # out", .no = "no policy-map #", .block = true},
    {.syntax = "service-policy in *", .no = "no service-policy in *"},
    {.syntax = "service-policy out *", .no = "no service-policy out *"},
    {.syntax = "classofservice trust *", .no = "no classofservice trust"},
    {.syntax = "queue cos-map all *", .no = "no queue cos-map all", .list = true},
    {.syntax = "queue cos-queue strict all *", .no = "no queue cos-queue strict all *"},
    {.syntax = "ip access-list #", .block = true},
    {.syntax = "mac access-list extended #", .block = true},
    {.syntax = "spanning-tree mode *"},
    {.syntax = "spanning-tree mst priority 0 *"},
    {.syntax = "spanning-tree vlan # hello-time *"},
    {.syntax = "spanning-tree vlan # forward-time *"},
    {.syntax = "spanning-tree vlan # max-age *"},
    {.syntax = "ip igmp snooping querier query-interval *"},
    {.syntax = "set igmp querier version *"},
    {.syntax = "set igmp querier timer expiry *"},
    {.syntax = "ipv6 mld snooping"},
    {.syntax = "igmp-plus #"},
    {.syntax = "ptp clock e2e-transparent"},
    {.syntax = "dot1as"},
    {.syntax = "mvrp", .takesAlong = "mvrp periodic state machine"},
    {.syntax = "mvrp periodic state machine"},
    {.syntax = "mvrp include factory-default-vlan", .defaultOn = true},
    {.syntax = "mmrp", .takesAlong = "mmrp periodic state machine"},
    {.syntax = "mmrp periodic state machine"},
    {.syntax = "msrp"},
    {.syntax = "set igmp fast-leave #", .scope = Scope::VlanDatabase},
    {.syntax = "set igmp flood-report #", .scope = Scope::VlanDatabase},
    {.syntax = "set igmp exclude-mrouter-intf #", .scope = Scope::VlanDatabase},
    {.syntax = "set igmp proxy-querier #", .scope = Scope::VlanDatabase},
    {.syntax = "set igmp querier election participate #", .scope = Scope::VlanDatabase},
    {.syntax = "set igmp maxresponse # *", .scope = Scope::VlanDatabase},
    {.syntax = "set igmp groupmembership-interval # *", .scope = Scope::VlanDatabase},
    {.syntax = "set igmp mcrtrexpiretime # *", .scope = Scope::VlanDatabase},
    {.syntax = "set mld #", .scope = Scope::VlanDatabase},
    {.syntax = "set mld proxy-querier #", .scope = Scope::VlanDatabase},
    {.syntax = "service-policy in *", .no = "no service-policy in *", .scope = Scope::Interface},
    {.syntax = "service-policy out *", .no = "no service-policy out *", .scope = Scope::Interface},
    {.syntax = "mvrp", .scope = Scope::Interface},
    {.syntax = "mmrp", .scope = Scope::Interface},
    {.syntax = "msrp", .scope = Scope::Interface},
    {.syntax = "dot1as", .scope = Scope::Interface},
    {.syntax = "mrp jointime *", .scope = Scope::Interface},
    {.syntax = "mrp leavetime *", .scope = Scope::Interface},
    {.syntax = "mrp leavealltime *", .scope = Scope::Interface},
};

// Other spellings of commands, as scripts use them.
constexpr struct {
    std::string_view spelling, command;
} kAliases[] = {
    {"queue trust dot1p all", "classofservice trust dot1p"},
    {"no queue trust all", "no classofservice trust"},
};

constexpr std::string_view kInterface = "interface ";
constexpr std::string_view kClassMap = "class-map match-all ";
constexpr std::string_view kPolicyMap = "policy-map ";
constexpr std::string_view kBinding = "service-policy ";

std::string join(std::span<const std::string> words) {
    std::string out;
    for (const auto &word : words)
        out += (out.empty() ? "" : " ") + word;
    return out;
}

bool isBlank(char c) {
    return c == ' ' || c == '\r' || c == '\t';
}

struct Match {
    std::string name, value;
};

// A "no" command may leave the value out.
std::optional<Match> matchRow(const char *syntax, const Words &line, bool no) {
    const auto pattern = cliWords(syntax);
    std::size_t i = 0;
    for (; i < pattern.size() && pattern[i] != "*"; ++i)
        if (i >= line.size() || (pattern[i] != "#" && pattern[i] != line[i]))
            return std::nullopt;
    const bool hasValue = i < pattern.size();
    if (hasValue ? !no && line.size() == i : line.size() != i)
        return std::nullopt;
    const std::span all(line);
    return Match{join(all.first(i)), hasValue ? join(all.subspan(i)) : kSettingOn};
}

// Reads a script line by line.
class Reader {
  public:
    void line(std::string_view text) {
        auto words = cliWords(text);
        if (words.empty() || words[0].starts_with('!'))
            return;
        const auto spelled = join(words);
        for (const auto &alias : kAliases)
            if (spelled == alias.spelling)
                words = cliWords(alias.command);
        if (!block_.empty())
            blockLine(words);
        else if (words[0] == "exit")
            scope_ = Scope::Global;
        else if (words.size() == 2 && words[0] == "vlan" && words[1] == "database")
            scope_ = Scope::VlanDatabase;
        else if (words.size() >= 2 && words[0] == "interface")
            enterInterface(words);
        else
            setting(words);
    }
    SettingWrites take() { return std::move(writes_); }

  private:
    void enterInterface(const Words &words) {
        scope_ = Scope::Interface;
        interface_ = join(std::span(words)) + " ";
    }

    void blockLine(const Words &words) {
        const bool nested = words[0] == "class";
        const bool leaves = words[0] == "exit";
        if (leaves && depth_ == 0) {
            writes_[block_] = blockLines_;
            block_.clear();
            return;
        }
        depth_ += nested ? 1 : 0;
        depth_ -= leaves ? 1 : 0;
        blockLines_ += join(words) + "\n";
    }

    void setting(const Words &words) {
        const bool no = words[0] == "no";
        const Words line(words.begin() + (no ? 1 : 0), words.end());
        for (const Row &row : kRows) {
            if (row.scope != scope_)
                continue;
            // A "no" command that differs from the name by more than its first word.
            const auto *const pattern = no && row.no != nullptr ? row.no + 3 : row.syntax;
            if (const auto found = matchRow(pattern, line, no)) {
                write(row, no ? nameFrom(row, *found, line) : found->name, no, found->value);
                return;
            }
        }
    }

    // The name as the row's own syntax gives it, from a "no" command of another form.
    static std::string nameFrom(const Row &row, const Match &found, const Words &line) {
        if (row.no == nullptr)
            return found.name;
        std::string out;
        for (const auto &word : cliWords(row.syntax)) {
            if (word == "*")
                break;
            out += (out.empty() ? "" : " ") + (word == "#" ? line.back() : word);
        }
        return out;
    }

    void write(const Row &row, std::string name, bool no, const std::string &value) {
        if (row.scope == Scope::Interface)
            name.insert(0, interface_);
        if (row.defaultOn)
            writes_[name] = no ? std::optional<std::string>(kSettingOn) : std::nullopt;
        else if (no)
            writes_[name].reset();
        else if (row.block) {
            block_ = name;
            blockLines_.clear();
            depth_ = 0;
        } else
            writes_[name] = row.list ? writes_[name].value_or("") + value + "\n" : value;
    }

    Scope scope_ = Scope::Global;
    std::string interface_, block_, blockLines_;
    int depth_ = 0;
    SettingWrites writes_;
};

// The words of a name without those of its interface: names come from a file, too, and may end early.
std::span<const std::string> withoutInterface(const Words &words) {
    const std::size_t count = words.size() > 1 && words[1] == "lag" ? 3 : 2;
    return std::span(words).subspan(std::min(count, words.size()));
}

const Row *rowOf(const std::string &name, Scope &scope) {
    auto words = cliWords(name);
    scope = Scope::Global;
    if (name.starts_with(kInterface)) {
        scope = Scope::Interface;
        const auto rest = withoutInterface(words);
        words = Words(rest.begin(), rest.end());
    }
    for (const Row &row : kRows) {
        if ((row.scope == Scope::Interface) != (scope == Scope::Interface))
            continue;
        std::string syntax = row.syntax;
        if (syntax.ends_with(" *"))
            syntax.resize(syntax.size() - 2);
        const auto match = matchRow(syntax.c_str(), words, false);
        if (match) {
            scope = row.scope;
            return &row;
        }
    }
    return nullptr;
}

// The argument of a name whose row has one.
std::string argumentOf(const Row &row, const std::string &name) {
    const auto pattern = cliWords(row.syntax), words = cliWords(name);
    const auto at = std::find(pattern.begin(), pattern.end(), "#") - pattern.begin();
    return static_cast<std::size_t>(at) < words.size() ? words[static_cast<std::size_t>(at)] : "";
}

std::string replaced(std::string text, char place, const std::string &value) {
    const auto at = text.find(place);
    return at == std::string::npos ? text : text.replace(at, 1, value);
}

std::string bare(const std::string &name, Scope scope) {
    if (scope != Scope::Interface)
        return name;
    return join(withoutInterface(cliWords(name)));
}

std::string onLines(const Row &row, const std::string &command, const std::string &value) {
    if (row.defaultOn)
        return "no " + command + "\n";
    if (row.block)
        return command + "\n" + value + "exit\n";
    if (!row.list)
        return command +
               (value == kSettingOn && !std::string_view(row.syntax).ends_with('*') ? "" : " " + value) +
               "\n";
    std::string out;
    forEachLine(value, SIZE_MAX, [&](std::string_view line) {
        if (!line.empty())
            out += command + " " + std::string(line) + "\n";
        return true;
    });
    return out;
}

std::string offLines(const Row &row, const std::string &name, const std::string &command,
                     const std::string &value) {
    if (row.defaultOn)
        return command + "\n";
    if (row.no == nullptr)
        return "no " + command + "\n";
    return replaced(replaced(row.no, '#', argumentOf(row, name)), '*', value) + "\n";
}

// What has to change: maps and policies that are in use come along.
struct Delta {
    Settings off, on;
};

bool names(const std::string &policyLines, const std::string &classMap) {
    return ("\n" + policyLines).find("\nclass " + classMap + "\n") != std::string::npos;
}

Delta deltaOf(const Settings &from, const Settings &to) {
    Delta delta;
    const auto drop = [&](const std::string &name, const std::string &value) {
        delta.off.emplace(name, value);
    };
    for (const auto &[name, value] : from)
        if (const auto it = to.find(name); it == to.end() || it->second != value)
            drop(name, value);
    std::set<std::string> policies;
    for (const auto &[name, value] : from) {
        if (!name.starts_with(kPolicyMap))
            continue;
        const bool rebuilt = std::ranges::any_of(delta.off, [&, &lines = value](const auto &gone) {
            return gone.first.starts_with(kClassMap) && names(lines, gone.first.substr(kClassMap.size()));
        });
        if (rebuilt)
            drop(name, value);
        if (const auto words = cliWords(name); delta.off.contains(name) && words.size() > 1)
            policies.insert(words[1]);
    }
    for (const auto &[name, value] : from)
        if (name.contains(kBinding) && policies.contains(value))
            drop(name, value);
    for (const Row &row : kRows)
        if (row.takesAlong != nullptr && delta.off.contains(row.syntax))
            if (const auto it = from.find(row.takesAlong); it != from.end())
                drop(it->first, it->second);
    for (const auto &[name, value] : to)
        if (const auto it = from.find(name);
            it == from.end() || it->second != value || delta.off.contains(name))
            delta.on.emplace(name, value);
    return delta;
}

// The lines of one scope, sections of interfaces included.
struct Lines {
    std::string global, vlanDatabase;
    std::map<std::string, std::string> interfaces;

    void add(Scope scope, const std::string &name, const std::string &lines) {
        if (scope == Scope::Global)
            global += lines;
        else if (scope == Scope::VlanDatabase)
            vlanDatabase += lines;
        else
            interfaces[name.substr(
                0, name.find(' ', name.find("lag ") == kInterface.size() ? kInterface.size() + 4
                                                                         : kInterface.size()))] += lines;
    }
    // What interfaces use goes after them and comes before them.
    std::string print(bool interfacesFirst) const {
        std::string out;
        for (const auto &[interface, lines] : interfaces)
            out.append(interface).append("\n").append(lines).append("exit\n");
        out.insert(interfacesFirst ? out.size() : 0, global);
        out = out.empty() ? "" : "config\n" + out + "exit\n";
        return vlanDatabase.empty() ? out : out + "vlan database\n" + vlanDatabase + "exit\n";
    }
};

struct Item {
    const std::string &name, &value;
    Scope scope;
};

// By row, in the order of the table; names that no row is for are left out.
std::map<const Row *, std::vector<Item>> byRow(const Settings &settings) {
    std::map<const Row *, std::vector<Item>> out;
    for (const auto &[name, value] : settings) {
        Scope scope{};
        if (const Row *const row = rowOf(name, scope))
            out[row].push_back({name, value, scope});
    }
    return out;
}

}  // namespace

std::vector<std::string> cliWords(std::string_view line) {
    Words out;
    for (std::size_t i = 0; i < line.size();) {
        if (isBlank(line[i])) {
            ++i;
            continue;
        }
        std::string word;
        if (line[i] == '"') {
            for (++i; i < line.size() && line[i] != '"'; ++i) {
                if (line[i] == '\\' && i + 1 < line.size())
                    ++i;
                word += line[i];
            }
            ++i;
        } else {
            while (i < line.size() && !isBlank(line[i]))
                word += line[i++];
        }
        out.push_back(std::move(word));
    }
    return out;
}

SettingWrites parseSettingWrites(std::string_view script) {
    Reader reader;
    forEachLine(script, SIZE_MAX, [&](std::string_view line) {
        reader.line(line);
        return true;
    });
    return reader.take();
}

Settings parseSettings(std::string_view runningConfig) {
    Settings settings;
    for (auto &[name, value] : parseSettingWrites(runningConfig))
        if (value)
            settings.emplace(name, *value);
    return settings;
}

std::optional<VlanId> vlanOfSetting(const std::string &name) {
    Scope scope{};
    const Row *const row = rowOf(name, scope);
    const bool ofVlan = row != nullptr && (scope == Scope::VlanDatabase || name.starts_with("igmp-plus ") ||
                                           name.starts_with("spanning-tree vlan "));
    if (!ofVlan)
        return std::nullopt;
    const auto argument = argumentOf(*row, name);
    std::uint32_t number = 0;
    std::from_chars(argument.data(), argument.data() + argument.size(), number);
    return VlanId::from(number);
}

std::string settingsScript(const Settings &from, const Settings &to) {
    const auto delta = deltaOf(from, to);
    // Off in the reverse order of the table, on in its order.
    Lines off, on;
    const auto goes = byRow(delta.off), comes = byRow(delta.on);
    for (auto row = goes.rbegin(); row != goes.rend(); ++row)
        for (const auto &[name, value, scope] : row->second) {
            const bool overwritten = delta.on.contains(name) && !row->first->block && !row->first->list &&
                                     !name.contains(kBinding) && !name.starts_with("queue cos-queue");
            if (!overwritten)
                off.add(scope, name, offLines(*row->first, name, bare(name, scope), value));
        }
    for (const auto &[row, settings] : comes)
        for (const auto &[name, value, scope] : settings)
            on.add(scope, name, onLines(*row, bare(name, scope), value));
    return off.print(true) + on.print(false);
}

}  // namespace pavo
