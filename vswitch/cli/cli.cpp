#include "vswitch/cli/cli.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdarg>
#include <cstdio>

#include "vswitch/cli/command.h"

namespace vswitch {
namespace cli {
namespace {

// Longer lines are not commands.
constexpr std::size_t kLineMax = 16 << 10;

struct Token {
    std::string text;
    std::size_t column = 0;
    bool quoted = false;
};

// Splits a line at blanks; "..." is one token in which \" and \\ stand for themselves.
std::vector<Token> tokenize(std::string_view line) {
    std::vector<Token> tokens;
    for (std::size_t i = 0; i < line.size();) {
        if (std::isspace(static_cast<unsigned char>(line[i]))) {
            ++i;
            continue;
        }
        Token token;
        token.column = i;
        token.quoted = line[i] == '"';
        if (token.quoted) {
            for (++i; i < line.size() && line[i] != '"'; ++i) {
                if (line[i] == '\\' && i + 1 < line.size())
                    ++i;
                token.text += line[i];
            }
            ++i;
        } else {
            while (i < line.size() && !std::isspace(static_cast<unsigned char>(line[i])))
                token.text += line[i++];
        }
        tokens.push_back(std::move(token));
    }
    return tokens;
}

std::vector<std::string_view> split(std::string_view text, char separator) {
    std::vector<std::string_view> parts;
    for (;;) {
        const auto at = text.find(separator);
        parts.push_back(text.substr(0, at));
        if (at == std::string_view::npos)
            return parts;
        text.remove_prefix(at + 1);
    }
}

bool parseNumber(std::string_view text, std::uint32_t low, std::uint32_t high, std::uint32_t &value) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc{} && end == text.data() + text.size() && value >= low && value <= high;
}

bool parseVlan(std::string_view text, std::uint32_t &out) {
    return parseNumber(text, 1, kVlanMax, out);
}

bool parsePort(const Model &model, std::string_view text, std::uint32_t &out) {
    if (text.starts_with("1/0/"))
        text.remove_prefix(2);
    return text.starts_with("0/") && parseNumber(text.substr(2), 1, model.config().physicalPorts, out);
}

// A list such as 10,20-30 of what `parseOne` accepts, returned in ascending order without duplicates.
template <class ParseOne>
bool parseList(std::string_view text, ParseOne parseOne, std::vector<std::uint32_t> &out) {
    std::vector<bool> chosen(kVlanMax + 1);
    for (const auto part : split(text, ',')) {
        const auto dash = part.find('-');
        std::uint32_t low = 0, high = 0;
        if (!parseOne(part.substr(0, dash), low))
            return false;
        high = low;
        if (dash != std::string_view::npos && (!parseOne(part.substr(dash + 1), high) || high < low))
            return false;
        for (; low <= high; ++low)
            chosen[low] = true;
    }
    for (std::uint32_t number = 1; number < chosen.size(); ++number)
        if (chosen[number])
            out.push_back(number);
    return true;
}

bool parseIp(std::string_view text) {
    const auto parts = split(text, '.');
    std::uint32_t value = 0;
    return parts.size() == 4 && std::all_of(parts.begin(), parts.end(), [&](auto part) {
               // A leading zero means octal to some people and nothing to others.
               return part.size() <= 3 && (part.size() == 1 || part.front() != '0') &&
                      parseNumber(part, 0, 255, value);
           });
}

// An address of which the end may be missing: 239.255.2 and 239.12. are 239.255.2.0 and 239.12.0.0.
bool parseNet(std::string_view text, std::string &whole) {
    if (text.ends_with('.'))
        text.remove_suffix(1);
    whole = text;
    for (auto parts = split(text, '.').size(); parts < 4; ++parts)
        whole += ".0";
    return parseIp(whole);
}

// One word of a syntax: literal alternatives, or an argument.
struct Word {
    std::vector<std::string_view> literals;
    std::string_view argument;
    bool repeats = false;

    static Word of(std::string_view text) {
        Word word;
        if (text.ends_with("...")) {
            word.repeats = true;
            text.remove_suffix(3);
        }
        if (text.front() == '<')
            word.argument = text.substr(1, text.size() - 2);
        else
            word.literals = split(text, '|');
        return word;
    }
    bool takesValue() const { return literals.size() != 1; }
};

// What is allowed at a position of a line; null beyond its end.
const Word *wordAt(const std::vector<Word> &words, std::size_t i) {
    if (i < words.size())
        return &words[i];
    return words.back().repeats ? &words.back() : nullptr;
}

enum class Fit { No, Abbreviated, Exact };

Fit fitLiteral(const Word &word, const Token &token, Value &value) {
    if (token.quoted)
        return Fit::No;
    const std::string_view *found = nullptr;
    for (const auto &literal : word.literals) {
        if (literal == token.text) {
            value.text = literal;
            return Fit::Exact;
        }
        if (literal.starts_with(token.text)) {
            if (found != nullptr)
                return Fit::No;
            found = &literal;
        }
    }
    if (found == nullptr)
        return Fit::No;
    value.text = *found;
    return Fit::Abbreviated;
}

Fit fit(const Model &model, const Word &word, const Token &token, Value &value) {
    if (!word.literals.empty())
        return fitLiteral(word, token, value);
    value.text = token.text;
    const auto kind = word.argument.substr(0, word.argument.find(':'));
    bool good = false;
    if (kind == "vlan") {
        good = parseVlan(token.text, value.number);
    } else if (kind == "vlans") {
        good = parseList(token.text, parseVlan, value.numbers);
    } else if (kind == "mac") {
        const auto mac = Mac::parse(token.text);
        good = mac.has_value();
        value.mac = mac.value_or(Mac{});
    } else if (kind == "ip") {
        good = parseIp(token.text);
    } else if (kind == "net") {
        good = parseNet(token.text, value.text);
    } else if (kind == "port") {
        good = parsePort(model, token.text, value.number);
    } else if (kind == "ports") {
        good = parseList(
            token.text, [&](auto text, auto &number) { return parsePort(model, text, number); },
            value.numbers);
    } else if (kind == "lag") {
        good = parseNumber(token.text, 1, model.config().lags, value.number);
        value.number = model.lagIfNum(value.number);
    } else if (kind == "int") {
        const auto limits = split(word.argument.substr(4), '-');
        std::uint32_t low = 0, high = 0;
        parseNumber(limits[0], 0, UINT32_MAX, low);
        parseNumber(limits[1], 0, UINT32_MAX, high);
        good = parseNumber(token.text, low, high, value.number);
    } else if (kind == "text") {
        good = !token.text.empty() || token.quoted;
    }
    return good ? Fit::Exact : Fit::No;
}

const std::vector<std::pair<const Command *, std::vector<Word>>> &grammar() {
    static const auto compiled = [] {
        std::vector<std::pair<const Command *, std::vector<Word>>> rows;
        for (const auto *command : allCommands()) {
            std::vector<Word> words;
            for (const auto text : split(command->syntax, ' '))
                words.push_back(Word::of(text));
            rows.emplace_back(command, std::move(words));
        }
        return rows;
    }();
    return compiled;
}

struct Match {
    const Command *command = nullptr;
    Values values;
    std::size_t furthest = 0;  // tokens that some row accepts
    bool incomplete = false;   // some row accepts all of them and wants more
    bool ambiguous = false;
};

Match match(const Model &model, CliMode mode, const std::vector<Token> &tokens) {
    Match best;
    std::size_t bestAbbreviated = SIZE_MAX;
    for (const auto &[command, words] : grammar()) {
        if ((command->modes & modeBit(mode)) == 0)
            continue;
        Values values;
        std::size_t i = 0, abbreviated = 0;
        for (; i < tokens.size(); ++i) {
            const auto *word = wordAt(words, i);
            Value value;
            const auto how = word == nullptr ? Fit::No : fit(model, *word, tokens[i], value);
            if (how == Fit::No)
                break;
            abbreviated += how == Fit::Abbreviated ? 1 : 0;
            if (word->takesValue())
                values.push_back(std::move(value));
        }
        best.furthest = std::max(best.furthest, i);
        if (i == tokens.size() && i < words.size())
            best.incomplete = true;
        if (i < tokens.size() || i < words.size())
            continue;
        if (abbreviated == bestAbbreviated)
            best.ambiguous = true;
        if (abbreviated < bestAbbreviated) {
            bestAbbreviated = abbreviated;
            best.command = command;
            best.values = std::move(values);
            best.ambiguous = false;
        }
    }
    best.ambiguous = best.ambiguous && bestAbbreviated > 0;
    return best;
}

}  // namespace

const std::vector<const Command *> &allCommands() {
    static const auto rows = [] {
        std::vector<const Command *> all;
        for (const auto table :
             {sessionCommands(), vlanCommands(), systemCommands(), userCommands(), managementCommands(),
              dot1xCommands(), multicastCommands(), avCommands(), qosCommands(), accessListCommands(),
              interfaceCommands(), switchportCommands(), lagCommands(), portCommands(), routingCommands(),
              showCommands()})
            for (const auto &command : table)
                all.push_back(&command);
        return all;
    }();
    return rows;
}

bool nameAllowed(Context &context, const std::string &name) {
    return objectNameValid(name) || context.refuse("A name has 1 to 31 letters, digits, '_', '-' and '.'.");
}

bool Context::accept(open_error_t code) {
    switch (code) {
        case OPEN_E_NONE:
            return true;
        case OPEN_E_NOT_FOUND:
            return refuse("No such entry.");
        case OPEN_E_FULL:
            return refuse("The table is full.");
        case OPEN_E_PARAM:
            return refuse("Value out of range.");
        default:
            return refuse("Operation failed.");
    }
}

std::string leader(const std::string &label, const std::string &value) {
    return label + std::string(label.size() < 46 ? 46 - label.size() : 0, '.') + " " + value + "\n";
}

std::string format(const char *text, ...) {
    std::va_list arguments, again;
    va_start(arguments, text);
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, text, arguments);
    va_end(arguments);
    std::string out(length > 0 ? static_cast<std::size_t>(length) : 0, '\0');
    std::vsnprintf(out.data(), out.size() + 1, text, again);
    va_end(again);
    return out;
}

std::string rangeText(const std::vector<std::uint32_t> &numbers) {
    std::string out;
    for (std::size_t i = 0; i < numbers.size();) {
        std::size_t last = i;
        while (last + 1 < numbers.size() && numbers[last + 1] == numbers[last] + 1)
            ++last;
        if (!out.empty())
            out += ',';
        out += std::to_string(numbers[i]);
        if (last > i)
            out += (last == i + 1 ? "," : "-") + std::to_string(numbers[last]);
        i = last + 1;
    }
    return out;
}

std::string quoted(const std::string &text) {
    std::string out = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\')
            out += '\\';
        out += c;
    }
    return out + '"';
}

}  // namespace cli

bool Cli::execute(CliSession &session, std::string_view line, std::string &output) {
    const auto reject = [&](const std::string &why) {
        ++unknown_;
        output += why + "\n";
        return false;
    };
    const auto rejectAt = [&](std::size_t column) {
        return reject(std::string(prompt(session).size() + column, ' ') +
                      "^\n% Invalid input detected at '^' marker.");
    };
    while (!line.empty() && std::isspace(static_cast<unsigned char>(line.back())))
        line.remove_suffix(1);
    if (line.size() > cli::kLineMax)
        return reject("% Line too long.");
    // What a line sets is printed by show commands and comes back in scripts: it must stay on its line.
    const auto control =
        std::find_if(line.begin(), line.end(), [](unsigned char c) { return c != '\t' && std::iscntrl(c); });
    if (control != line.end())
        return rejectAt(static_cast<std::size_t>(control - line.begin()));
    const auto tokens = cli::tokenize(line);
    if (tokens.empty() || tokens.front().text.starts_with('!'))
        return true;
    const auto found = cli::match(model_, session.mode(), tokens);
    if (found.ambiguous)
        return reject("% Ambiguous command.");
    if (found.command == nullptr && found.incomplete)
        return reject("% Incomplete command. Use '?' to list what may follow.");
    if (found.command == nullptr)
        return rejectAt(tokens[std::min(found.furthest, tokens.size() - 1)].column);
    cli::Context context{model_, session, output};
    if (found.command->action(context, found.values))
        return true;
    ++refused_;
    return false;
}

std::string Cli::run(CliSession &session, std::string_view line) {
    std::string output;
    execute(session, line, output);
    return output;
}

std::string Cli::runScript(std::string_view script) {
    CliSession session;
    std::string output;
    std::size_t number = 0;
    while (!script.empty()) {
        const auto end = script.find('\n');
        auto line = script.substr(0, end);
        script.remove_prefix(end == std::string_view::npos ? script.size() : end + 1);
        ++number;
        if (line.ends_with('\r'))
            line.remove_suffix(1);
        if (line.find_first_not_of(" \t") == std::string_view::npos)
            continue;
        output += prompt(session);
        output += line;
        output += '\n';
        if (!execute(session, line, output))
            output += "Error on line " + std::to_string(number) + ".\n";
    }
    return output;
}

std::optional<std::string> Cli::show(std::string_view command) {
    const auto tokens = cli::tokenize(command);
    if (tokens.empty() || tokens.front().text != "show")
        return std::nullopt;
    CliSession session;
    std::string output;
    if (!execute(session, command, output))
        return std::nullopt;
    return output;
}

std::string Cli::prompt(const CliSession &session) const {
    const auto name = "(" + model_.system().hostName + ") ";
    switch (session.mode()) {
        case CliMode::Exec:
            return name + "#";
        case CliMode::UserExec:
            return name + ">";
        case CliMode::Config:
            return name + "(Config)#";
        case CliMode::VlanDatabase:
            return name + "(Vlan)#";
        case CliMode::VlanInterface:
            return name + "(Interface vlan " + std::to_string(session.vlan) + ")#";
        case CliMode::ClassMap:
            return name + "(Config-classmap)#";
        case CliMode::PolicyMap:
            return name + "(Config-policy-map)#";
        case CliMode::PolicyClass:
            return name + "(Config-policy-classmap)#";
        case CliMode::IpAccessList:
            return name + "(Config-ipv4-acl)#";
        case CliMode::MacAccessList:
            return name + "(Config-mac-access-list)#";
        case CliMode::Interface:
            break;
    }
    const auto *first = session.interfaces.empty() ? nullptr : model_.interface(session.interfaces.front());
    return name + "(Interface " + (first != nullptr ? first->name() : "") +
           (session.interfaces.size() > 1 ? ",..." : "") + ")#";
}

std::string Cli::help(const CliSession &session, std::string_view line) const {
    auto tokens = cli::tokenize(line);
    const bool partial = !line.empty() && !std::isspace(static_cast<unsigned char>(line.back()));
    const auto stub = partial && !tokens.empty() ? tokens.back().text : std::string();
    if (partial && !tokens.empty())
        tokens.pop_back();
    std::vector<std::pair<std::string, std::string>> rows;
    for (const auto &[command, words] : cli::grammar()) {
        if ((command->modes & cli::modeBit(session.mode())) == 0)
            continue;
        std::size_t i = 0;
        cli::Value value;
        for (; i < tokens.size(); ++i)
            if (const auto *next = cli::wordAt(words, i);
                next == nullptr || cli::fit(model_, *next, tokens[i], value) == cli::Fit::No)
                break;
        if (i < tokens.size())
            continue;
        std::string word = "<cr>";
        if (i < words.size()) {
            word = words[i].argument.empty() ? std::string(words[i].literals.front())
                                             : "<" + std::string(words[i].argument) + ">";
            for (std::size_t k = 1; k < words[i].literals.size(); ++k)
                word += "|" + std::string(words[i].literals[k]);
        }
        if (!word.starts_with(stub))
            continue;
        const bool known =
            std::any_of(rows.begin(), rows.end(), [&](const auto &row) { return row.first == word; });
        if (!known)
            rows.emplace_back(word, command->help);
    }
    std::string out;
    for (const auto &[word, meaning] : rows)
        out += cli::format("%-28s %s\n", word.c_str(), meaning.c_str());
    return out;
}

}  // namespace vswitch
