// Quality of service (class maps, policy maps, queues) and access lists.
#include <algorithm>

#include "vswitch/cli/command.h"

namespace vswitch::cli {
namespace {

bool enterObject(Context &c, CliMode mode, const std::string &name) {
    c.session.object = name;
    return enter(c, mode);
}

bool removed(Context &c, open_error_t result) {
    return result == OPEN_E_FAIL ? c.refuse("It is in use.") : c.accept(result);
}

// --- class maps and policy maps

// A rule of a class map: its words, then its arguments.
std::string ruleText(std::string words, const Values &v, std::size_t first) {
    for (; first < v.size(); ++first)
        words += " " + v[first].text;
    return words;
}

bool match(Context &c, const std::string &words, const Values &v, std::size_t first = 0) {
    return c.accept(c.model.qos().addMatch(c.session.object, ruleText(words, v, first)));
}

bool unmatch(Context &c, const std::string &words, const Values &v, std::size_t first = 0) {
    return c.accept(c.model.qos().removeMatch(c.session.object, ruleText(words, v, first)));
}

void emitMaps(const Model &model, const Interface *, std::string &out) {
    const auto &qos = model.qos();
    for (const auto &[name, rules] : qos.classMaps()) {
        out += "class-map match-all " + name + "\n";
        for (const auto &rule : rules)
            out += "match " + rule + "\n";
        out += "exit\n";
    }
    for (const auto &[name, policy] : qos.policyMaps()) {
        out += "policy-map " + name + (policy.inbound ? " in\n" : " out\n");
        for (const auto &member : policy.classes) {
            out += "class " + member.name + "\n";
            if (member.queue)
                out += "assign-queue " + std::to_string(*member.queue) + "\n";
            out += "exit\n";
        }
        out += "exit\n";
    }
}

// --- bindings and queues

void emitBinding(const Model &model, const Interface *interface, std::string &out) {
    const auto &bindings = model.qos().bindings();
    const auto it = bindings.find(interface != nullptr ? interface->num : Qos::kEveryInterface);
    if (it != bindings.end())
        out += format("service-policy %s %s\n",
                      model.qos().policyMaps().at(it->second).inbound ? "in" : "out", it->second.c_str());
}

bool setTrust(Context &c, bool on) {
    c.model.qos().trustDot1p = on;
    return true;
}

void emitQueues(const Model &model, const Interface *, std::string &out) {
    const auto &qos = model.qos();
    out += qos.trustDot1p ? "classofservice trust dot1p\n" : "";
    for (std::size_t priority = 0; priority < qos.cosMap.size(); ++priority)
        if (qos.cosMap[priority] != kCosMapDefault[priority])
            out += format("queue cos-map all %zu %u\n", priority, qos.cosMap[priority]);
    if (!qos.strictQueues.empty()) {
        out += "queue cos-queue strict all";
        for (const auto queue : qos.strictQueues)
            out += " " + std::to_string(queue);
        out += "\n";
    }
}

const Command kQos[] = {
    {kConfig, "class-map match-all <text>", "Describe frames",
     [](Context &c, const Values &v) {
         return nameAllowed(c, v[0].text) && c.accept(c.model.qos().addClassMap(v[0].text)) &&
                enterObject(c, CliMode::ClassMap, v[0].text);
     },
     emitMaps},
    {kConfig, "no class-map <text>", "Delete a class map",
     [](Context &c, const Values &v) { return removed(c, c.model.qos().removeClassMap(v[0].text)); }},
    {kClassMap, "match ip dscp <int:0-63>", "By DSCP",
     [](Context &c, const Values &v) { return match(c, "ip dscp", v); }},
    {kClassMap, "no match ip dscp <int:0-63>", "Not by DSCP",
     [](Context &c, const Values &v) { return unmatch(c, "ip dscp", v); }},
    {kClassMap, "match dstip|srcip <ip> <ip>", "By address and mask",
     [](Context &c, const Values &v) { return match(c, v[0].text, v, 1); }},
    {kClassMap, "no match dstip|srcip <ip> <ip>", "Not by address and mask",
     [](Context &c, const Values &v) { return unmatch(c, v[0].text, v, 1); }},
    {kClassMap, "match srcl4port|dstl4port <int:0-65535>", "By TCP or UDP port",
     [](Context &c, const Values &v) { return match(c, v[0].text, v, 1); }},
    {kClassMap, "no match srcl4port|dstl4port <int:0-65535>", "Not by TCP or UDP port",
     [](Context &c, const Values &v) { return unmatch(c, v[0].text, v, 1); }},
    {kClassMap, "match protocol <int:0-255>", "By IP protocol",
     [](Context &c, const Values &v) { return match(c, "protocol", v); }},
    {kClassMap, "no match protocol <int:0-255>", "Not by IP protocol",
     [](Context &c, const Values &v) { return unmatch(c, "protocol", v); }},

    {kConfig, "policy-map <text> in|out", "Say what happens to classes of frames",
     [](Context &c, const Values &v) {
         if (!nameAllowed(c, v[0].text))
             return false;
         const auto result = c.model.qos().addPolicyMap(v[0].text, v[1].text == "in");
         if (result == OPEN_E_FAIL)
             return c.refuse("It exists for the other direction.");
         return c.accept(result) && enterObject(c, CliMode::PolicyMap, v[0].text);
     }},
    {kConfig, "no policy-map <text>", "Delete a policy map",
     [](Context &c, const Values &v) { return removed(c, c.model.qos().removePolicyMap(v[0].text)); }},
    {kPolicyMap, "class <text>", "Add or change a class",
     [](Context &c, const Values &v) {
         if (!c.accept(c.model.qos().addClass(c.session.object, v[0].text)))
             return false;
         c.session.policyClass = v[0].text;
         return enter(c, CliMode::PolicyClass);
     }},
    {kPolicyMap, "no class <text>", "Remove a class",
     [](Context &c, const Values &v) {
         return c.accept(c.model.qos().removeClass(c.session.object, v[0].text));
     }},
    {kPolicyClass, "assign-queue <int:0-6>", "Put the frames into a queue",
     [](Context &c, const Values &v) {
         return c.accept(c.model.qos().assignQueue(c.session.object, c.session.policyClass, v[0].number));
     }},
    {kPolicyClass, "no assign-queue", "Leave the queue to the priority",
     [](Context &c, const Values &) {
         return c.accept(c.model.qos().assignQueue(c.session.object, c.session.policyClass, std::nullopt));
     }},

    {kConfig, "service-policy in|out <text>", "Use a policy on the whole switch",
     [](Context &c, const Values &v) {
         return c.accept(c.model.qos().bind(Qos::kEveryInterface, v[1].text, v[0].text == "in"));
     },
     emitBinding},
    {kConfig, "no service-policy in|out <text>", "Use a policy nowhere any more, interfaces included",
     [](Context &c, const Values &v) {
         return c.accept(c.model.qos().unbind(Qos::kEveryInterface, v[1].text));
     }},
    {kInterface, "service-policy in|out <text>", "Use a policy here",
     [](Context &c, const Values &v) {
         return eachInterface(c, [&](Interface &i) {
             return c.accept(c.model.qos().bind(i.num, v[1].text, v[0].text == "in"));
         });
     },
     emitBinding},
    {kInterface, "no service-policy in|out <text>", "Do not use a policy here",
     [](Context &c, const Values &v) {
         return eachInterface(c,
                              [&](Interface &i) { return c.accept(c.model.qos().unbind(i.num, v[1].text)); });
     }},

    {kConfig, "classofservice trust dot1p", "Take the priority from the tag",
     [](Context &c, const Values &) { return setTrust(c, true); }, emitQueues},
    {kConfig, "no classofservice trust", "Ignore the priority of the tag",
     [](Context &c, const Values &) { return setTrust(c, false); }},
    {kConfig, "queue trust dot1p all", "As classofservice trust dot1p",
     [](Context &c, const Values &) { return setTrust(c, true); }},
    {kConfig, "no queue trust all", "As no classofservice trust",
     [](Context &c, const Values &) { return setTrust(c, false); }},
    {kConfig, "queue cos-map all <int:0-7> <int:0-6>", "Put a priority into a queue",
     [](Context &c, const Values &v) {
         c.model.qos().cosMap[v[0].number] = v[1].number;
         return true;
     }},
    {kConfig, "no queue cos-map all", "Put priorities into their default queues",
     [](Context &c, const Values &) {
         c.model.qos().cosMap = kCosMapDefault;
         return true;
     }},
    {kConfig, "queue cos-queue strict all <int:0-6>...", "Serve queues before all others",
     [](Context &c, const Values &v) {
         for (const auto &queue : v)
             c.model.qos().strictQueues.insert(queue.number);
         return true;
     }},
    {kConfig, "no queue cos-queue strict all <int:0-6>...", "Serve queues in turn",
     [](Context &c, const Values &v) {
         for (const auto &queue : v)
             c.model.qos().strictQueues.erase(queue.number);
         return true;
     }},
    {kAnyMode, "show policy-map", "All policy maps with their classes",
     [](Context &c, const Values &) {
         c.out += "Policy Name                     Policy Type Class Members\n";
         c.out += "------------------------------- ----------- -------------------------------\n";
         for (const auto &[name, policy] : c.model.qos().policyMaps()) {
             auto first = format("%-31s %-11s ", name.c_str(), policy.inbound ? "In" : "Out");
             if (policy.classes.empty())
                 c.out += first + "\n";
             for (const auto &member : policy.classes) {
                 c.out += format("%-44s%s\n", first.c_str(), member.name.c_str());
                 first.clear();
             }
         }
         return true;
     }},
};

// --- access lists

bool enterList(Context &c, AccessLists &lists, CliMode mode, const std::string &name) {
    if (!nameAllowed(c, name))
        return false;
    if (!lists.contains(name) && lists.size() >= kAccessListsMax)
        return c.accept(OPEN_E_FULL);
    lists.try_emplace(name);
    return enterObject(c, mode, name);
}

bool removeList(Context &c, AccessLists &lists, const std::string &name) {
    return c.accept(lists.erase(name) == 0 ? OPEN_E_NOT_FOUND : OPEN_E_NONE);
}

bool addRule(Context &c, AccessLists &lists, const Value &what, const std::string &source,
             const std::string &destination) {
    const auto it = lists.find(c.session.object);
    if (it == lists.end())
        return c.accept(OPEN_E_NOT_FOUND);
    if (it->second.size() >= kAccessRulesMax)
        return c.accept(OPEN_E_FULL);
    it->second.push_back({what.text == "permit", source, destination});
    return true;
}

void emitLists(const AccessLists &lists, const char *command, const char *protocol, std::string &out) {
    for (const auto &[name, rules] : lists) {
        out += command + (" " + name) + "\n";
        for (const auto &rule : rules)
            out += (rule.permit ? "permit " : "deny ") + (protocol + rule.source) + " " + rule.destination +
                   "\n";
        out += "exit\n";
    }
}

std::string both(const Value &address, const Value &mask) {
    return address.text + " " + mask.text;
}

constexpr const char *kDirections[] = {"in", "out"};

std::uint32_t directionOf(const Value &word) {
    return word.text == kDirections[OPEN_ACL_INBOUND] ? OPEN_ACL_INBOUND : OPEN_ACL_OUTBOUND;
}

bool bindList(Context &c, const Values &v, std::uint32_t sequence) {
    return eachInterface(c, [&](Interface &i) {
        return c.accept(c.model.bindAccessList(i.num, v[0].text, directionOf(v[1]), sequence));
    });
}

std::string dotted(const std::string &label, const std::string &value) {
    return label + std::string(label.size() < 46 ? 46 - label.size() : 0, '.') + " " + value + "\n";
}

void showAddress(Context &c, const std::string &which, const std::string &address) {
    if (address == "any")
        return;
    const auto blank = address.find(' ');
    c.out += dotted(which + " IP Address", address.substr(0, blank));
    c.out += dotted(which + " IP Wildcard Mask", address.substr(std::min(blank, address.size() - 1) + 1));
}

bool showIpAccessList(Context &c, const Values &v) {
    const auto list = c.model.ipAccessLists().find(v[0].text);
    if (list == c.model.ipAccessLists().end())
        return c.refuse("No such entry.");
    std::string bound[2];
    for (const auto &[num, interface] : c.model.interfaces())
        for (const auto &group : interface.accessGroups)
            if (group.list == list->first)
                bound[group.direction] += (bound[group.direction].empty() ? "" : ", ") + interface.name();
    c.out += "ACL Name: " + list->first + "\n";
    c.out += "Inbound Interface(s): " + bound[OPEN_ACL_INBOUND] + "\n";
    c.out += "Outbound Interface(s): " + bound[OPEN_ACL_OUTBOUND] + "\n";
    int number = 0;
    for (const auto &rule : list->second) {
        c.out += format("\nSequence Number: %d\n", ++number);
        c.out += dotted("Action", rule.permit ? "permit" : "deny");
        if (rule.source == "any" && rule.destination == "any")
            c.out += dotted("Match All", "TRUE");
        showAddress(c, "Source", rule.source);
        showAddress(c, "Destination", rule.destination);
    }
    return true;
}

const Command kAccessLists[] = {
    {kConfig, "ip access-list <text>", "Filter IPv4 packets",
     [](Context &c, const Values &v) {
         return enterList(c, c.model.ipAccessLists(), CliMode::IpAccessList, v[0].text);
     },
     [](const Model &model, const Interface *, std::string &out) {
         emitLists(model.ipAccessLists(), "ip access-list", "ip ", out);
     }},
    {kConfig, "no ip access-list <text>", "Delete an IPv4 access list",
     [](Context &c, const Values &v) { return c.accept(c.model.deleteIpAccessList(v[0].text)); }},
    {kIpAccessList, "permit|deny ip any any", "Any packet",
     [](Context &c, const Values &v) { return addRule(c, c.model.ipAccessLists(), v[0], "any", "any"); }},
    {kIpAccessList, "permit|deny ip any <net> <ip>", "Packets to an address, with the bits that may differ",
     [](Context &c, const Values &v) {
         return addRule(c, c.model.ipAccessLists(), v[0], "any", both(v[1], v[2]));
     }},
    {kIpAccessList, "permit|deny ip <net> <ip> any", "Packets from an address, with the bits that may differ",
     [](Context &c, const Values &v) {
         return addRule(c, c.model.ipAccessLists(), v[0], both(v[1], v[2]), "any");
     }},
    {kInterface, "ip access-group <text> in|out", "Filter what comes in or goes out",
     [](Context &c, const Values &v) { return bindList(c, v, 0); }},
    {kInterface, "ip access-group <text> in|out <int:1-4294967295>", "Filter, lower numbers first",
     [](Context &c, const Values &v) { return bindList(c, v, v[2].number); },
     [](const Model &, const Interface *interface, std::string &out) {
         for (const auto &group : interface->accessGroups)
             out += format("ip access-group %s %s %u\n", group.list.c_str(), kDirections[group.direction],
                           group.sequence);
     }},
    {kInterface, "no ip access-group <text> in|out", "Take a filter away",
     [](Context &c, const Values &v) {
         return eachInterface(c, [&](Interface &i) {
             return c.accept(c.model.unbindAccessList(i.num, v[0].text, directionOf(v[1])));
         });
     }},
    {kAnyMode, "show ip access-list <text>", "The lines of an IPv4 access list", showIpAccessList},
    {kConfig, "mac access-list extended <text>", "Filter frames by MAC address",
     [](Context &c, const Values &v) {
         return enterList(c, c.model.macAccessLists(), CliMode::MacAccessList, v[0].text);
     },
     [](const Model &model, const Interface *, std::string &out) {
         emitLists(model.macAccessLists(), "mac access-list extended", "", out);
     }},
    {kConfig, "no mac access-list extended <text>", "Delete a MAC access list",
     [](Context &c, const Values &v) { return removeList(c, c.model.macAccessLists(), v[0].text); }},
    {kMacAccessList, "permit|deny any any", "Any frame",
     [](Context &c, const Values &v) { return addRule(c, c.model.macAccessLists(), v[0], "any", "any"); }},
    {kMacAccessList, "permit|deny any <mac> <mac>", "Frames to an address, with the bits that may differ",
     [](Context &c, const Values &v) {
         return addRule(c, c.model.macAccessLists(), v[0], "any", both(v[1], v[2]));
     }},
    {kMacAccessList, "permit|deny <mac> <mac> any", "Frames from an address, with the bits that may differ",
     [](Context &c, const Values &v) {
         return addRule(c, c.model.macAccessLists(), v[0], both(v[1], v[2]), "any");
     }},
};

}  // namespace

std::span<const Command> qosCommands() {
    return kQos;
}
std::span<const Command> accessListCommands() {
    return kAccessLists;
}

}  // namespace vswitch::cli
