// What a change would do, for people: what differs and from what to what, grouped, and what comes of other
// profiles. Pure functions on a change that is worked out.
#ifndef PAVO_PROFILE_PLAN_H
#define PAVO_PROFILE_PLAN_H

#include <string>
#include <vector>

#include "profile/change.h"

namespace pavo {

// "default" stands for what is at its default, "(N lines)" for the content of maps and lists.
struct PlanLine {
    std::string what, now, then;
};

struct ProfilePlan {
    std::string profile;
    std::vector<PlanLine> switchWide, vlans, ports;
    std::vector<Loss> taken;           // what other profiles lose
    std::vector<std::string> notKept;  // sentences: what does not come back, or cannot be had

    bool empty() const { return switchWide.empty() && vlans.empty() && ports.empty(); }
};

ProfilePlan planOf(const ProfileChange &change);

// {"profile", "changes": bool, "switch": [{"what", "now", "then"}], "vlans": [...], "ports": [...], "taken":
// [{"what", "from", "to"}], "notKept": [string]}. Empty when memory runs out.
std::string printPlan(const ProfilePlan &plan);

}  // namespace pavo

#endif
