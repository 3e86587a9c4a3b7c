// 802.1X: the switch, its ports, and who is known to it.
#include "vswitch/cli/command.h"

namespace vswitch::cli {
namespace {

constexpr const char *kModes[] = {"", "force-unauthorized", "auto", "force-authorized"};

template <class Change>
bool eachPort(Context &context, Change change) {
    return eachInterface(context, [&](Interface &interface) {
        if (interface.isLag())
            return context.refuse("Not available on a port-channel.");
        change(interface);
        return true;
    });
}

template <bool kOn>
bool setDot1x(Context &c, const Values &) {
    c.model.setDot1x(kOn);
    return true;
}

bool setPortControl(Context &c, const Values &v) {
    std::uint32_t mode = OPEN_DOT1X_AUTO;
    for (const std::uint32_t other : {OPEN_DOT1X_FORCE_UNAUTHORIZED, OPEN_DOT1X_FORCE_AUTHORIZED})
        if (!v.empty() && v[0].text == kModes[other])
            mode = other;
    return eachPort(c, [&](Interface &i) { c.model.setPortControl(i.num, mode); });
}

template <bool kOn>
bool setReauth(Context &c, const Values &) {
    return eachPort(c, [](Interface &i) { i.dot1xReauthentication = kOn; });
}

bool setReauthPeriod(Context &c, const Values &v) {
    return eachPort(
        c, [&](Interface &i) { i.dot1xReauthPeriod = v.empty() ? kReauthPeriodDefault : v[0].number; });
}

void emitPort(const Model &, const Interface *i, std::string &out) {
    if (i->dot1xControlMode != OPEN_DOT1X_AUTO)
        out += format("dot1x port-control %s\n", kModes[i->dot1xControlMode]);
    out += i->dot1xReauthentication ? "dot1x reauthentication\n" : "";
    if (i->dot1xReauthPeriod != kReauthPeriodDefault)
        out += format("dot1x timeout reauth-period %u\n", i->dot1xReauthPeriod);
}

// --- who is known

bool setMethod(Context &c, const Values &v) {
    const bool radius = !v.empty() && v[0].text == "radius";
    c.model.settings().dot1x.method = radius ? Dot1xMethod::Radius : Dot1xMethod::Ias;
    return true;
}

bool setUser(Context &c, const std::string &name, const std::string &password) {
    auto &users = c.model.settings().dot1x.users;
    if (!isIasName(name))
        return c.refuse("A user name has 1 to 64 letters, digits, '.', '-', '_' and '@'.");
    if (password.empty() || password.size() > kIasPasswordMax)
        return c.refuse("A password has 1 to 64 characters.");
    if (!users.contains(name) && users.size() == kIasUsersMax)
        return c.accept(OPEN_E_FULL);
    users[name] = password;
    return true;
}

bool setHiddenUser(Context &c, const Values &v) {
    const auto password = revealSecret(v[1].text);
    return password ? setUser(c, v[0].text, *password) : c.refuse("Not a hidden password.");
}

void emitAccess(const Model &model, const Interface *, std::string &out) {
    const auto &settings = model.settings().dot1x;
    if (settings.method == Dot1xMethod::Radius)
        out += "aaa authentication dot1x default radius\n";
    for (const auto &[name, password] : settings.users)
        out += "aaa ias-user username " + name + " password hidden " + hideSecret(password) + "\n";
    if (model.system().dot1xEnabled)
        out += "dot1x system-auth-control\n";
}

// --- show

bool showSummary(Context &c, const Values &) {
    c.out += leader("Administrative Mode", c.model.system().dot1xEnabled ? "Enabled" : "Disabled");
    c.out += leader("Authentication Method",
                    c.model.settings().dot1x.method == Dot1xMethod::Radius ? "RADIUS" : "IAS");
    c.out += "\nPort       Control Mode        Status        Reauth.  Period\n";
    c.out += "---------  ------------------  ------------  -------  ------\n";
    for (const auto &[num, i] : c.model.interfaces())
        if (!i.isLag())
            c.out += format("%-9s  %-18s  %-12s  %-7s  %u\n", i.name().c_str(), kModes[i.dot1xControlMode],
                            c.model.authorized(num) ? "Authorized" : "Unauthorized",
                            i.dot1xReauthentication ? "Yes" : "No", i.dot1xReauthPeriod);
    return true;
}

// On a simulated port that of the device at the port itself.
std::string clientMac(const Model &model, const Interface &port) {
    for (const auto &[name, device] : model.devices())
        if (!port.live && device.port == port.num && device.behind.empty() && !device.macs.empty())
            return device.macs.front().text();
    return port.dot1x.mac;
}

bool showClients(Context &c, const Values &) {
    c.out += "Port       MAC Address        Session (s)  User Name\n";
    c.out += "---------  -----------------  -----------  ------------------------------\n";
    for (const auto &[num, i] : c.model.interfaces()) {
        if (!c.model.authenticates(num) || !i.dot1x.authenticated)
            continue;
        const auto session = std::chrono::duration_cast<std::chrono::seconds>(c.model.now() - i.dot1x.since);
        c.out += format("%-9s  %-17s  %-11lld  %s\n", i.name().c_str(), clientMac(c.model, i).c_str(),
                        static_cast<long long>(session.count()), i.dot1x.user.c_str());
    }
    return true;
}

bool showUsers(Context &c, const Values &) {
    c.out += "User Name\n----------------------------------------------------------------\n";
    for (const auto &[name, password] : c.model.settings().dot1x.users)
        c.out += name + "\n";
    return true;
}

const Command kDot1x[] = {
    {kConfig, "aaa authentication dot1x default ias|radius", "Say where supplicants are checked", setMethod,
     emitAccess},
    {kConfig, "no aaa authentication dot1x default", "Check them by the switch's own users", setMethod},
    {kConfig, "aaa ias-user username <text> password <text>", "Set the password of a supplicant",
     [](Context &c, const Values &v) { return setUser(c, v[0].text, v[1].text); }},
    {kConfig, "aaa ias-user username <text> password hidden <text>",
     "Set the password as the running configuration has it", setHiddenUser},
    {kConfig, "no aaa ias-user username <text>", "Remove a user",
     [](Context &c, const Values &v) {
         return c.accept(c.model.settings().dot1x.users.erase(v[0].text) == 0 ? OPEN_E_NOT_FOUND
                                                                              : OPEN_E_NONE);
     }},
    {kConfig, "dot1x system-auth-control", "Switch 802.1X on", setDot1x<true>},
    {kConfig, "no dot1x system-auth-control", "Switch 802.1X off", setDot1x<false>},

    {kInterface, "dot1x port-control auto|force-authorized|force-unauthorized", "Set the 802.1X port control",
     setPortControl, emitPort},
    {kInterface, "no dot1x port-control", "Set the 802.1X port control to auto", setPortControl},
    {kInterface, "dot1x reauthentication", "Authenticate again from time to time", setReauth<true>},
    {kInterface, "no dot1x reauthentication", "Authenticate once", setReauth<false>},
    {kInterface, "dot1x timeout reauth-period <int:1-65535>", "Seconds until then", setReauthPeriod},
    {kInterface, "no dot1x timeout reauth-period", "Back to the default", setReauthPeriod},

    {kAnyMode, "show dot1x summary", "802.1X of all ports", showSummary},
    {kAnyMode, "show dot1x clients", "Who has authenticated", showClients},
    {kAnyMode, "show aaa ias-users", "Users that the switch itself knows", showUsers},
};

}  // namespace

std::span<const Command> dot1xCommands() {
    return kDot1x;
}

}  // namespace vswitch::cli
