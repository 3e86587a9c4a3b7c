// The record of what profiles did to the switch: which profiles are applied, with their requests, and for
// each thing that they changed what it was before. It lies beside the switch's saved configuration and
// survives a reboot, unlike the database and the files below /tmp, which are made from it again when they are
// lost.
//
// Every change is written into it before its first step, and taken out of it again when the change is whole.
// A change that was interrupted is found there by whoever comes next. Callers that write hold the profile
// lock; it is replaced as a whole, so anybody may read it.
#ifndef PAVO_PROFILE_RECORD_H
#define PAVO_PROFILE_RECORD_H

#include <map>
#include <optional>
#include <set>
#include <source_location>
#include <string>
#include <vector>

#include "common/result.h"
#include "common/where.h"
#include "profile/request.h"

namespace pavo {

struct AppliedProfile {
    ProfileRequest request;  // as it was configured
    std::string document;    // as it was sent, formatted; empty when it did not come as JSON

    bool operator==(const AppliedProfile &) const = default;
};

// In the order in which they were applied: where two want the same, the later one has it.
using AppliedProfiles = std::vector<AppliedProfile>;

// A thing of the switch (see profile/switch_state.h) that profiles want. Values: nothing is the default.
struct RecordedThing {
    std::optional<std::string> before;  // the first of them came
    std::optional<std::string> want;    // what they want together
    std::optional<std::string> shown;   // how the switch shows that
    std::set<std::string> profiles;     // names
    // Nobody wants it so: it went along with what they want, and comes back when the last of them goes.
    bool wentAlong = false;

    bool operator==(const RecordedThing &) const = default;
};

// A change that has begun: these profiles are to be there instead.
struct PendingChange {
    AppliedProfiles profiles;
    std::string name;   // of the profile that it is about
    bool undo = false;  // it has failed and is to be taken back

    bool operator==(const PendingChange &) const = default;
};

struct ProfileRecord {
    AppliedProfiles profiles;
    std::map<std::string, RecordedThing> things;
    std::optional<PendingChange> pending;

    bool operator==(const ProfileRecord &) const = default;

    // Null when there is none of that name.
    const AppliedProfile *find(const std::string &name) const;

    // Nothing for a text that is no record.
    static std::optional<ProfileRecord> parse(const std::string &text);
    // Empty when memory runs out.
    std::string print() const;
};

// Empty when there is none yet, or a damaged one (logged): what can be learned from the database and the settings
// files stands in for it. Failed (logged, with a reason) when it is there and cannot be read.
Result<ProfileRecord> readProfileRecord(Where where = std::source_location::current());
// Keeps a damaged one beside the one that is going to be written.
void setAsideDamagedRecord(Where where = std::source_location::current());
// It is on the disk when this returns. Failed (logged, with a reason).
Result<> writeProfileRecord(const ProfileRecord &record, Where where = std::source_location::current());

}  // namespace pavo

#endif
