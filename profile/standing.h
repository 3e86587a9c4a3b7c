// What the applied profiles amount to when several of them name the same VLAN or port: who has it, and who
// goes without. Pure functions; any thread.
#ifndef PAVO_PROFILE_STANDING_H
#define PAVO_PROFILE_STANDING_H

#include <span>
#include <string>
#include <vector>

#include "profile/record.h"
#include "store/profile_db.h"

namespace pavo {

// A VLAN that a profile has, with the ports that it has there.
struct PlacedVlan {
    const AppliedProfile *profile = nullptr;
    ProfileVlanRequest vlan;
    // A partner's VLAN in a Kramer profile: it belongs to another profile, and only ports are added to it.
    bool shared = false;
    // VLAN 1 under the default profile: anybody may have it and its ports.
    bool free = false;
};

// What a profile asked for and another one has.
struct Loss {
    std::string loser, what, taker;  // what: "VLAN 20", "port 5", "PTP transparent clock"

    bool operator==(const Loss &) const = default;
};

// Features that profiles lose to each other.
inline constexpr const char *kLossPtpTc = "PTP transparent clock";
inline constexpr const char *kLossDot1as = "802.1AS";

struct Standing {
    // In the order in which the profiles were applied. They point into the list that this was made from.
    std::vector<PlacedVlan> vlans;
    std::vector<Loss> losses;
};

// A VLAN of a Kramer profile that may belong to another profile.
bool isPartnerVlan(const ProfileRequest &request, const ProfileVlanRequest &vlan);

// A VLAN, and the untagged frames of a port, belong to the profile that was applied last of those that name
// them.
Standing standingOf(const AppliedProfiles &profiles);

// The rows that the database has for them, ascending; VLAN 1 has the default profile's when no other one has
// it.
std::vector<ProfileRow> rowsOf(const Standing &standing);

// The list with a profile in place of the one of its name, or at the end: with `last`, in any case there.
AppliedProfiles withProfile(AppliedProfiles profiles, AppliedProfile profile, bool last);
// The list without some VLANs; a profile that has none left is gone.
AppliedProfiles withoutVlans(AppliedProfiles profiles, const VlanSet &ids);

}  // namespace pavo

#endif
