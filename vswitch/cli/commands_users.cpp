// Who may log in.
#include "vswitch/cli/command.h"

namespace vswitch::cli {
namespace {

// A new user is a reader unless a level is given.
bool setUser(Context &c, const std::string &name, const std::string &password,
             std::optional<std::uint32_t> level) {
    auto &users = c.model.settings().users;
    if (!isUserName(name))
        return c.refuse("A user name has 1 to 64 letters, digits, '.', '-' and '_'.");
    if (!isUserPassword(password))
        return c.refuse("A password has 8 to 64 characters, and no control characters.");
    if (name == kAdminName && level.value_or(OPEN_USER_LEVEL_ADMIN) != OPEN_USER_LEVEL_ADMIN)
        return c.refuse("The level of admin is always 15.");
    if (!users.contains(name) && users.size() == kUsersMax)
        return c.accept(OPEN_E_FULL);
    auto &user = users[name];
    user.password = password;
    user.level = level.value_or(user.level);
    return true;
}

std::uint32_t levelOf(const std::string &word) {
    return static_cast<std::uint32_t>(std::stoul(word));
}

bool setPassword(Context &c, const Values &v) {
    return setUser(c, v[0].text, v[1].text, v.size() > 2 ? std::optional(levelOf(v[2].text)) : std::nullopt);
}

bool setHiddenPassword(Context &c, const Values &v) {
    const auto password = revealSecret(v[1].text);
    if (!password)
        return c.refuse("Not a hidden password.");
    return setUser(c, v[0].text, *password, v.size() > 2 ? std::optional(levelOf(v[2].text)) : std::nullopt);
}

bool setLevel(Context &c, const Values &v) {
    const auto &users = c.model.settings().users;
    const auto user = users.find(v[0].text);
    if (user == users.end())
        return c.accept(OPEN_E_NOT_FOUND);
    return setUser(c, v[0].text, user->second.password, levelOf(v[1].text));
}

bool deleteUser(Context &c, const Values &v) {
    if (v[0].text == kAdminName)
        return c.refuse("The user admin cannot be removed.");
    return c.accept(c.model.settings().users.erase(v[0].text) == 0 ? OPEN_E_NOT_FOUND : OPEN_E_NONE);
}

void emitUsers(const Model &model, const Interface *, std::string &out) {
    const auto factory = factoryUsers();
    for (const auto &[name, user] : model.settings().users)
        if (const auto same = factory.find(name); same == factory.end() || same->second != user)
            out += "username " + name + " password hidden " + hideSecret(user.password) + " level " +
                   std::to_string(user.level) + "\n";
}

bool showUsers(Context &c, const Values &) {
    c.out += "User Name                                                         Level  Access\n";
    c.out += "----------------------------------------------------------------  -----  ----------\n";
    for (const auto &[name, user] : c.model.settings().users)
        c.out += format("%-64s  %-5u  %s\n", name.c_str(), user.level,
                        user.level == OPEN_USER_LEVEL_ADMIN  ? "Read/Write"
                        : user.level == OPEN_USER_LEVEL_READ ? "Read Only"
                                                             : "Blocked");
    return true;
}

const Command kUsers[] = {
    {kConfig, "username <text> password <text>", "Add a user, or set the password", setPassword, emitUsers},
    {kConfig, "username <text> password <text> level 0|1|15",
     "Set password and level: 0 blocked, 1 read only, 15 read and write", setPassword},
    {kConfig, "username <text> password hidden <text>",
     "Set the password as the running configuration has it", setHiddenPassword},
    {kConfig, "username <text> password hidden <text> level 0|1|15", "Set both", setHiddenPassword},
    {kConfig, "username <text> level 0|1|15", "Set the level of a user", setLevel},
    {kConfig, "no username <text>", "Remove a user", deleteUser},
    {kPrivileged, "show users accounts", "Who may log in", showUsers},
};

}  // namespace

std::span<const Command> userCommands() {
    return kUsers;
}

}  // namespace vswitch::cli
