// A change from one set of profiles to another: worked out first, then carried out, or taken back as a whole.
#ifndef PAVO_PROFILE_CHANGE_H
#define PAVO_PROFILE_CHANGE_H

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "common/result.h"
#include "profile/feature_needs.h"
#include "profile/session.h"
#include "store/profile_lock.h"

namespace pavo {

// What profiles want together, on top of what is there without them.
struct Wanted {
    Things things;
    // Who wants each thing, also where it is so anyway.
    std::map<std::string, std::set<std::string>> claims;
    FeatureNeeds needs;
    std::vector<FeatureBlock> blocks;
    std::vector<Loss> losses;
};

// A change that is worked out. It points into itself and stays where it is.
struct ProfileChange {
    std::string name;  // of the profile that it is about
    AppliedProfiles before, after;
    Standing from, to;
    Wanted wantedBefore, wantedAfter;
    Things observed;
    // What the switch is to show; equal to `observed` where the change does not touch it.
    Things target;
    // A change that was interrupted: what it was about may be at any stage.
    bool resumed = false;
    // The record of things, with those that the change gives up; and without them.
    std::map<std::string, RecordedThing> things, thingsAfter;
    std::vector<FeatureBlock> blocksGone;
    std::vector<FilterBlock> filtersGone;

    ProfileChange() = default;
    ProfileChange(const ProfileChange &) = delete;
    ProfileChange &operator=(const ProfileChange &) = delete;

    // Whether anything of the switch differs from what it is to be.
    bool touchesSwitch() const { return observed != target || !filtersGone.empty(); }
};

// From the session's profiles to `goal`; only what the profile `name` wants or wanted, and what others gain
// or lose by it, is touched. Reads templates; changes nothing. Failed (logged, with a reason) when the switch
// does not tell what the ports of a profile are.
Result<std::unique_ptr<ProfileChange>> planChange(ProfileSession &session, AppliedProfiles goal,
                                                  std::string name);

// Switch, database, files and record, in this order but for the record, which comes first and last. When a
// step fails, all of it is taken back, and the failure says with its reason which step it was and what, if
// anything, could not be taken back (logged). The session then has what is so.
Result<> carryOut(ProfileSession &session, const ProfileChange &change, const ProfileLock &held);

// The rows and files of the session's profiles, where they are missing or say something else; nothing else.
Result<> restoreFiles(ProfileSession &session, const ProfileLock &held);

}  // namespace pavo

#endif
