// The rows of the grammar. A command is one row: the modes it belongs to, its words and arguments, what it
// does, and what it contributes to "show running-config". To add a command, add a row to the table of its
// topic.
//
// Syntax: words are literal; a|b|c is one of several words; an argument is in angle brackets:
//   <vlan> is a VLAN id, <vlans> a list such as 10,20-30, <mac> and <ip> are addresses, <net> is an IPv4
//   address of which the end may be missing (the value has zeros there), <port> is an interface 0/N and
//   <ports> a list of them, <lag> is a LAG number, <int:LO-HI> a number, <text> one word or a quoted string.
//   A last argument followed by ... may be given several times.
// Words may be abbreviated as long as the command stays unambiguous.
#ifndef PAVO_VSWITCH_CLI_COMMAND_H
#define PAVO_VSWITCH_CLI_COMMAND_H

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "vswitch/cli/cli.h"
#include "vswitch/model/model.h"

namespace vswitch::cli {

// One argument or choice of a matched command, in the order of the syntax.
struct Value {
    std::string text;                    // as typed; the full word for a choice
    std::uint32_t number = 0;            // <vlan>, <int>, <port> and <lag> (their ifNum)
    std::vector<std::uint32_t> numbers;  // <vlans>, <ports> (their ifNums)
    Mac mac;
};

struct Context {
    Model &model;
    CliSession &session;
    std::string &out;

    // Prints why the command was refused; for `return context.refuse("...")`.
    bool refuse(const std::string &why) {
        out += why + "\n";
        return false;
    }
    // Prints the refusal that fits an OPEN_E_ code other than OPEN_E_NONE.
    bool accept(open_error_t code);
};

using Values = std::vector<Value>;
// False when the switch refuses the command; the action has then printed why.
using Action = bool (*)(Context &, const Values &);
// Appends this row's lines of the running configuration; `interface` is null outside interface mode.
using Emit = void (*)(const Model &, const Interface *interface, std::string &out);

using Modes = std::uint16_t;
inline constexpr Modes modeBit(CliMode mode) {
    return static_cast<Modes>(1u << static_cast<unsigned>(mode));
}
inline constexpr Modes kExec = modeBit(CliMode::Exec);
inline constexpr Modes kConfig = modeBit(CliMode::Config);
inline constexpr Modes kInterface = modeBit(CliMode::Interface);
inline constexpr Modes kVlanDatabase = modeBit(CliMode::VlanDatabase);
inline constexpr Modes kVlanInterface = modeBit(CliMode::VlanInterface);
inline constexpr Modes kClassMap = modeBit(CliMode::ClassMap);
inline constexpr Modes kPolicyMap = modeBit(CliMode::PolicyMap);
inline constexpr Modes kPolicyClass = modeBit(CliMode::PolicyClass);
inline constexpr Modes kIpAccessList = modeBit(CliMode::IpAccessList);
inline constexpr Modes kMacAccessList = modeBit(CliMode::MacAccessList);
inline constexpr Modes kUserExec = modeBit(CliMode::UserExec);
inline constexpr Modes kPrivileged = kExec | kConfig | kInterface | kVlanDatabase | kVlanInterface |
                                     kClassMap | kPolicyMap | kPolicyClass | kIpAccessList | kMacAccessList;
inline constexpr Modes kAnyMode = kPrivileged | kUserExec;
// The modes in which "interface" enters another interface's mode.
inline constexpr Modes kInterfaceEntry = kConfig | kInterface | kVlanInterface;

struct Command {
    Modes modes;
    const char *syntax;
    const char *help;
    Action action;
    Emit emit = nullptr;
};

// The tables, one per topic, in the order of the running configuration.
std::span<const Command> sessionCommands();
std::span<const Command> vlanCommands();
std::span<const Command> systemCommands();
std::span<const Command> userCommands();
std::span<const Command> managementCommands();
std::span<const Command> dot1xCommands();
std::span<const Command> multicastCommands();
std::span<const Command> avCommands();
std::span<const Command> qosCommands();
std::span<const Command> accessListCommands();
std::span<const Command> interfaceCommands();
std::span<const Command> switchportCommands();
std::span<const Command> lagCommands();
std::span<const Command> portCommands();
std::span<const Command> routingCommands();
std::span<const Command> showCommands();

// All rows in order.
const std::vector<const Command *> &allCommands();

// printf into a std::string, for show output.
std::string format(const char *text, ...) __attribute__((format(printf, 1, 2)));

// A line of a show output: "LABEL..... VALUE".
std::string leader(const std::string &label, const std::string &value);

// Enters the mode of an interface; from such a mode it replaces the selection.
bool enterInterfaceMode(Context &context, CliMode mode);

// "10,20-22" for a sorted list.
std::string rangeText(const std::vector<std::uint32_t> &numbers);

// The string as it has to be typed: in quotes.
std::string quoted(const std::string &text);

// Names of maps and lists need no quotes: 1 to 31 letters, digits, '_', '-', '.'. Refuses others.
bool nameAllowed(Context &context, const std::string &name);

bool enter(Context &context, CliMode mode);

// Applies `change` to every interface of the session; stops at the first refusal.
template <class Change>
bool eachInterface(Context &context, Change change) {
    for (const auto ifNum : context.session.interfaces)
        if (!change(*context.model.edit(ifNum)))
            return false;
    return true;
}

std::string runningConfig(const Model &model);
std::string runningConfigOf(const Model &model, const Interface &interface);

}  // namespace vswitch::cli

#endif
