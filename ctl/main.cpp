// pavoctl: the management operations on the command line.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <functional>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include "common/log.h"
#include "common/text.h"
#include "ctl/cache_commands.h"
#include "ctl/device_commands.h"
#include "ctl/multicast_commands.h"
#include "ctl/neighbour_commands.h"
#include "ctl/nice_commands.h"
#include "ctl/profile_commands.h"
#include "ctl/vendor_commands.h"
#include "ctl/vlan_commands.h"
#include "platform/version.h"
#include "swapi/switch_client.h"

namespace pavo::ctl {
namespace {

constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;
constexpr int kExitNoSwitch = 3;

constexpr const char *kFooter =
    "Exit status: 0 done, 1 refused or failed (with the result code and the reason), or a profile is not\n"
    "as it was applied ('profile status'), 2 wrong usage, 3 the switch cannot be reached.\n\n"
    "A first profile:\n"
    "  pavoctl profile types\n"
    "  pavoctl profile apply --name Stage --type \"Audio Dante\" --vlan \"20 untagged=1-8 tagged=48\"\n"
    "  pavoctl profile show Stage";

// The command line: its options, and what is to be done.
class CommandLine {
  public:
    CommandLine() {
        app_.require_subcommand(1);
        app_.fallthrough();  // --json may stand behind the command, too
        app_.set_version_flag("--version", std::string("pavoctl ") + pavoVersion());
        app_.footer(kFooter);
        app_.add_flag("--json", output_.json, "Answers for machines: the JSON envelope of the web interface");
        addProfile(*app_.add_subcommand("profile", "AV profiles"));
        addVlan(*app_.add_subcommand("vlan", "VLANs"));
        addMulticast(*app_.add_subcommand("multicast", "Multicast groups, and who gets multicast"));
        addCache(*app_.add_subcommand("cache", "The answers kept for the web interface"));
        addLocalCommand(app_, "vendor", "The vendor of a device", [this] { showVendor(output_, name_); })
            .add_option("mac", name_, "MAC address, or its first three octets")
            ->required();
        addNice(*app_.add_subcommand("nice", "Detection of Nice devices on a switch without profiles"));
        addNeighbours();
        addCommand(app_, "devices", "The AV devices that detection knows, and those it does not look after",
                   [this](Switch sw) { showDevices(sw, output_); });
    }

    // Throws CLI::ParseError, which exit() turns into what is printed and the status.
    void parse(int argc, char **argv) { app_.parse(argc, argv); }
    int exit(const CLI::ParseError &error) const { return app_.exit(error); }

    const Output &output() const { return output_; }
    bool needsSwitch() const { return command_ != nullptr; }
    // The exit status.
    int run(Switch sw) const { return command_(sw); }
    // The same for a command that does not need the switch.
    int runLocally() const {
        localCommand_();
        return 0;
    }

  private:
    template <class Run>
    CLI::App &addCommand(CLI::App &group, const char *name, const char *help, Run run) {
        return *group.add_subcommand(name, help)->callback([this, run] {
            command_ = [run](Switch sw) {
                if constexpr (std::is_void_v<decltype(run(sw))>) {
                    run(sw);
                    return 0;
                } else {
                    return run(sw);
                }
            };
        });
    }

    template <class Run>
    CLI::App &addLocalCommand(CLI::App &group, const char *name, const char *help, Run run) {
        return *group.add_subcommand(name, help)->callback([this, run] { localCommand_ = run; });
    }

    void addProfile(CLI::App &profile);
    void addVlan(CLI::App &vlan);
    void addMulticast(CLI::App &multicast);
    void addCache(CLI::App &cache);
    void addNice(CLI::App &nice);
    void addNeighbours();

    CLI::App app_{"pavoctl - manages the switch"};
    Output output_;
    std::string name_;
    std::string mode_;
    bool isSet_ = false;
    std::uint32_t id_ = 0;
    std::optional<std::string> newName_;
    ApplyOptions options_;
    std::vector<std::string> names_;
    FollowOptions follow_;
    std::function<int(Switch)> command_;
    std::function<void()> localCommand_;
};

void CommandLine::addProfile(CLI::App &profile) {
    profile.require_subcommand(1);
    addCommand(profile, "types", "The profile types and what they switch on",
               [this](Switch) { showTypes(output_); });
    addCommand(profile, "templates", "The templates offered on this switch",
               [this](Switch sw) { showTemplates(sw, output_); });
    addCommand(profile, "list", "The profiles in force", [this](Switch sw) { listProfiles(sw, output_); });
    addCommand(profile, "show", "One profile with its VLANs and ports",
               [this](Switch sw) { showProfile(sw, output_, name_); })
        .add_option("name", name_)
        ->required();
    addCommand(profile, "status",
               "Whether profiles are as they were applied, and what applying them again\n"
               "would repair; exit status 1 when one is not",
               [this](Switch sw) { return showStatus(sw, output_, name_) ? 0 : kExitFailed; })
        .add_option("name", name_, "Only this one");
    addCommand(profile, "delete", "Delete a profile; what it changed is what it was before",
               [this](Switch sw) { deleteProfile(sw, output_, name_); })
        .add_option("name", name_)
        ->required();
    auto &apply = addCommand(profile, "apply", "Apply a profile, or change it in place",
                             [this](Switch sw) { applyProfile(sw, output_, options_); });
    auto &file = *apply.add_option("file", options_.file,
                                   "Request as JSON ({\"profileConfig\": ...}); '-' reads standard input");
    auto &color = *apply.add_option("--color", options_.color, "Display colour")->capture_default_str();
    auto &ptp = *apply.add_option("--ptp", options_.ptp, "PTP transparent clock");
    ptp.check(CLI::IsMember({"on", "off"}));
    for (auto *const option :
         {apply.add_option("--name", options_.name, "Profile name, at most 255 bytes"),
          apply.add_option("--type", options_.type, "Profile type, see 'profile types'"),
          apply.add_option(
              "--vlan", options_.vlans,
              "One VLAN (up to four): \"ID type=ROLE untagged=PORTS tagged=PORTS assigned=PORTS\",\n"
              "PORTS as 1-4,7,lag2,lag5-6: ports by interface number, LAGs by\n"
              "theirs; ROLE for example 2 control, 3 audio"),
          &color, &ptp})
        file.excludes(option);
    apply.add_flag("--overwrite", options_.overwrite,
                   "Take VLANs and ports from other profiles; replace the one of this name");
    apply.add_flag("--force", options_.force, "Adapt the type to what the switch supports");
    apply.add_flag("--plan", options_.plan, "Only tell what would change");
}

void CommandLine::addVlan(CLI::App &vlan) {
    vlan.require_subcommand(1);
    addCommand(vlan, "list", "All VLANs with their ports",
               [this](Switch sw) { showVlans(sw, output_, std::nullopt); });
    const auto addId = [this](CLI::App &command) -> CLI::App & {
        command.add_option("id", id_)->required()->check(CLI::Range(VlanId::kMin, VlanId::kMax));
        return command;
    };
    const auto addForce = [this](CLI::App &command,
                                 const char *what = "Also what belongs to a profile") -> CLI::App & {
        command.add_flag("--force", isSet_, what);
        return command;
    };
    const auto addWord = [this](CLI::App &command, const char *name, std::vector<std::string> words) {
        return command.add_option(name, mode_)->check(CLI::IsMember(std::move(words)));
    };
    addId(addCommand(vlan, "show", "One VLAN",
                     [this](Switch sw) { showVlans(sw, output_, VlanId::from(id_)); }));
    addId(addCommand(vlan, "interfaces", "How each port and LAG takes part in a VLAN",
                     [this](Switch sw) { showVlanInterfaces(sw, output_, id_); }));
    addCommand(vlan, "create", "Create VLANs, for example 10,20-25",
               [this](Switch sw) { createListedVlans(sw, output_, name_); })
        .add_option("vlans", name_)
        ->required();
    addForce(addCommand(vlan, "delete", "Delete VLANs, for example 10,20-25",
                        [this](Switch sw) { deleteListedVlans(sw, output_, name_, isSet_); }),
             "Also what belongs to a profile, or has an address")
        .add_option("vlans", name_)
        ->required();
    addForce(addId(addCommand(vlan, "name", "The name of a VLAN, or name it; '' is its default name",
                              [this](Switch sw) { runVlanName(sw, output_, id_, newName_, isSet_); })))
        .add_option("name", newName_, "At most 32 bytes are kept");
    auto &participation = addForce(
        addId(addCommand(vlan, "participation", "Let all ports and LAGs take part in a VLAN, or not",
                         [this](Switch sw) { setVlanParticipation(sw, output_, id_, mode_, isSet_); })));
    addWord(participation, "mode", {"include", "auto", "exclude"})->required();
    auto &tagging =
        addForce(addId(addCommand(vlan, "tagging", "Have all ports and LAGs tag a VLAN, or not",
                                  [this](Switch sw) { setVlanTagging(sw, output_, id_, mode_, isSet_); })));
    addWord(tagging, "tagging", {"tagged", "untagged"})->required();
    addForce(addId(addCommand(vlan, "pvid", "Put the untagged frames of all ports and LAGs into a VLAN",
                              [this](Switch sw) { setVlanPvid(sw, output_, id_, isSet_); })));
    auto &frames = addForce(addCommand(vlan, "frames", "Which frames all ports and LAGs accept",
                                       [this](Switch sw) { setVlanFrames(sw, output_, mode_, isSet_); }));
    addWord(frames, "frames", {"all", "vlanonly", "admituntaggedonly"})->required();
    auto &automatic =
        addCommand(vlan, "auto", "Whether the switch adapts ports to what is plugged in, or set it",
                   [this](Switch sw) { runVlanAuto(sw, output_, mode_); });
    addWord(automatic, "mode", {"enable", "disable"});
}

void CommandLine::addMulticast(CLI::App &multicast) {
    multicast.require_subcommand(1);
    addCommand(multicast, "groups", "The subscribers of all groups that IGMP snooping knows",
               [this](Switch sw) { isSet_ ? cacheGroups(sw, output_) : showGroups(sw, output_); })
        .add_flag("--cache", isSet_, "Put them into the response cache instead of printing them");
    auto &mode = addCommand(multicast, "mode", "The interfaces that are not normal, or set their mode",
                            [this](Switch sw) { runMode(sw, output_, name_, mode_); });
    auto &ports =
        *mode.add_option("ports", name_, "For example 1-4,7,lag2: ports by interface number, LAGs by theirs");
    auto &wanted = *mode.add_option("mode", mode_,
                                    "normal; router: a multicast router is behind it;\n"
                                    "blocked: nothing that 'multicast deny' lists passes");
    ports.needs(&wanted);
    wanted.check(CLI::IsMember({"normal", "router", "blocked"}));
    auto &deny = addCommand(multicast, "deny", "The addresses denied on blocked interfaces, or replace them",
                            [this](Switch sw) { runDeny(sw, output_, names_, isSet_); });
    auto &addresses =
        *deny.add_option("addresses", names_,
                         "For example 239.0.0.0 224.1.1.0/8: each denies all groups with the same\n"
                         "first number");
    deny.add_flag("--clear", isSet_, "Deny nothing, and set all blocked interfaces to normal")
        ->excludes(&addresses);
}

void CommandLine::addCache(CLI::App &cache) {
    cache.require_subcommand(1);
    addLocalCommand(cache, "list", "All answers: who produces them, and what is stored",
                    [this] { listCache(output_); });
    addLocalCommand(cache, "read", "One answer as it is stored", [this] { readCache(name_); })
        .add_option("name", name_)
        ->required();
    addCommand(cache, "refresh", "Produce answers anew; without names, all that can be", [this](Switch sw) {
        refreshCache(sw, output_, names_);
    }).add_option("names", names_);
    addLocalCommand(cache, "delete", "Delete one answer", [this] { deleteFromCache(output_, name_); })
        .add_option("name", name_)
        ->required();
}

void CommandLine::addNice(CLI::App &nice) {
    nice.require_subcommand(1);
    addLocalCommand(nice, "on",
                    "The first Nice device makes the profile \"Elan OS\", unless there is a profile",
                    [this] { setNice(output_, true); });
    addLocalCommand(nice, "off", "Nothing is made for Nice devices", [this] { setNice(output_, false); });
    addLocalCommand(nice, "status", "Whether it is on, and has anything to do",
                    [this] { showNice(output_); });
}

void CommandLine::addNeighbours() {
    auto &neighbours =
        addCommand(app_, "neighbours", "Who is behind which port: by LLDP, and by forwarding table",
                   [this](Switch sw) { showNeighbours(sw, output_, follow_); });
    neighbours.fallthrough();
    auto &follow = *neighbours.add_flag("--follow", follow_.follow,
                                        "Go on and print who joins, leaves and moves, until interrupted");
    neighbours.add_option("--interval", follow_.seconds, "Seconds between two looks")
        ->capture_default_str()
        ->check(CLI::Range(1, 3600))
        ->needs(&follow);
}

int runConnected(const CommandLine &line) {
    SwitchClient client("pavoctl");
    if (!client.isConnected()) {
        std::fputs("pavoctl: the switch cannot be reached\n", stderr);
        return kExitNoSwitch;
    }
    return line.run(client.get());
}

int runCommand(const CommandLine &line) {
    try {
        return line.needsSwitch() ? runConnected(line) : line.runLocally();
    } catch (const CLI::Error &e) {
        std::fprintf(stderr, "pavoctl: %s\n", e.what());
        return kExitUsage;
    } catch (const Failure &failure) {
        if (line.output().json)
            printEnvelope(failure);
        std::fprintf(stderr, "pavoctl: %d: %s\n", codeOf(failure.code),
                     printable(messageOf(failure)).c_str());
        return kExitFailed;
    }
}

int run(int argc, char **argv) {
    CommandLine line;
    try {
        line.parse(argc, argv);
    } catch (const CLI::ParseError &e) {
        return line.exit(e) == 0 ? 0 : kExitUsage;
    }
    return runCommand(line);
}

}  // namespace
}  // namespace pavo::ctl

int main(int argc, char **argv) try {
    // What goes wrong inside is in the log file beside the daemon's lines.
    pavo::devmgrLogOpen(pavo::LOG_SINK_FILE, pavo::LOG_FACILITY_USER, "pavoctl");
    int status = pavo::ctl::run(argc, argv);
    pavo::devmgrLogClose();
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        std::fputs("pavoctl: the output cannot be written\n", stderr);
        status = std::max(status, pavo::ctl::kExitFailed);
    }
    return status;
} catch (const std::exception &e) {
    std::fprintf(stderr, "pavoctl: %s\n", e.what());
    return pavo::ctl::kExitFailed;
}
