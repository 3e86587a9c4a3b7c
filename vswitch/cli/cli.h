// The switch's command line: one grammar for applied scripts, show captures and interactive sessions.
#ifndef PAVO_VSWITCH_CLI_CLI_H
#define PAVO_VSWITCH_CLI_CLI_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "vswitch/model/model.h"

namespace vswitch {

enum class CliMode : std::uint8_t {
    Exec,
    Config,
    Interface,
    VlanDatabase,
    VlanInterface,
    ClassMap,
    PolicyMap,
    PolicyClass,
    IpAccessList,
    MacAccessList,
    UserExec
};

// Where a user is: the modes entered, innermost last, and the interfaces or the VLAN that "interface"
// selected. Scripts and operators begin in privileged mode (Exec), users who log in below it (UserExec).
struct CliSession {
    std::vector<CliMode> modes{CliMode::Exec};
    std::vector<IfNum> interfaces;
    VlanId vlan = 0;
    std::string object{};       // the class map, policy map or access list that was entered
    std::string policyClass{};  // the class of the policy map
    bool mayEnable = true;      // the user may enter privileged mode
    bool loggedOut = false;     // the user has left

    CliMode mode() const { return modes.back(); }
};

// Runs lines against the model. An unknown or refused command prints an error with a marker under the
// offending word, is counted, and changes nothing (a list of interfaces is processed up to the refused one);
// the lines after it run. Control characters are refused. One caller at a time.
class Cli {
  public:
    explicit Cli(Model &model) : model_(model) {}

    // Runs one line in a session and returns its output.
    std::string run(CliSession &session, std::string_view line);

    // Runs a whole script from privileged mode, skipping blank and comment lines ('!'), and returns its
    // output: every command is echoed, errors name the line number.
    std::string runScript(std::string_view script);

    // The output of a show command; nothing when it is not one or is refused.
    std::optional<std::string> show(std::string_view command);

    // "(avswitch) (Config)#" and so on.
    std::string prompt(const CliSession &session) const;

    // The words that may follow `line`, one per row with their meaning: what '?' prints.
    std::string help(const CliSession &session, std::string_view line) const;

    // Commands refused since start: unknown ones, and known ones that the switch did not accept.
    std::uint64_t unknownCommands() const { return unknown_; }
    std::uint64_t refusedCommands() const { return refused_; }

  private:
    bool execute(CliSession &session, std::string_view line, std::string &output);

    Model &model_;
    std::uint64_t unknown_ = 0, refused_ = 0;
};

}  // namespace vswitch

#endif
