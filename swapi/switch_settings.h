// Boot images, management address and port speeds: settings that go through the CLI with files of fixed
// names. Reading and changing them is serialised across threads and processes, see underLock().
#ifndef PAVO_SWAPI_SWITCH_SETTINGS_H
#define PAVO_SWAPI_SWITCH_SETTINGS_H

#include <cstdint>
#include <expected>
#include <optional>
#include <source_location>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "common/files.h"
#include "common/log.h"
#include "swapi/switch.h"

namespace pavo {

// A row of "show bootvar".
struct BootImage {
    std::int32_t unit = 0;
    std::string active;
    std::string backup;
    std::string currentActive;
    std::string nextActive;
};

// What "show ip management" shows; nothing where it does not.
struct ManagementAddress {
    std::optional<std::int32_t> vlan;
    std::optional<std::string> method;  // "DHCP", "Manual", ...
    std::optional<std::string> ip;
    std::optional<std::string> mask;
    std::optional<std::string> gateway;
    std::optional<std::string> status;  // "Up" or "Down"
};

// --- parsers of what the commands print

// At most `most` rows, up to the first line that is none.
std::vector<BootImage> parseBootImages(std::string_view shown, std::size_t most);
ManagementAddress parseManagementAddress(std::string_view shown);

// --- scripts

// What is malformed ("management address", "management gateway") instead of a script. An empty gateway or
// "0.0.0.0" removes the gateway.
std::string dhcpScript(VlanId vlan);
std::expected<std::string, const char *> staticAddressScript(VlanId vlan, const std::string &ip,
                                                             const std::string &mask,
                                                             const std::string &gateway);

// Nothing for a speed that must not appear in a script; more than one when the ports do not fit into one.
std::optional<std::vector<std::string>> speedScripts(std::span<const IfNum> ports, std::string_view speed);

// --- reading; OpenFailed when the switch does not show it

Result<std::vector<BootImage>> readBootImages(Switch sw, std::size_t most,
                                              Where where = std::source_location::current());
Result<ManagementAddress> readManagementAddress(Switch sw, Where where = std::source_location::current());

// --- serialising

// Runs `operation`, which returns a Result, under the lock file of a setting (a fixed path); the file is
// deleted afterwards. Failed when the lock cannot be acquired within FileLock::kWaitMax or released,
// regardless of the operation's result.
template <class Operation>
std::invoke_result_t<Operation> underLock(const char *lockFile, Operation operation,
                                          Where where = std::source_location::current()) {
    FileLock lock(lockFile, FileLock::Afterwards::Remove, FileLock::kWaitMax, where);
    if (lock.state() == FileLock::State::NotLocked)
        logError(where, "[%s:%d] File lock failed\n");
    if (!lock.held())
        return failed(ResultCode::Failed);
    auto result = operation();
    if (lock.release())
        return result;
    logError(where, "[%s:%d] File unlock failed\n");
    return failed(ResultCode::Failed);
}

}  // namespace pavo

#endif
