// The QoS policy POLICY_AV: a base policy, and classes that some profiles add to it. One thread at a time.
#ifndef PAVO_PROFILE_QOS_POLICY_H
#define PAVO_PROFILE_QOS_POLICY_H

#include <cstddef>
#include <string>
#include <string_view>

#include "common/result.h"
#include "profile/block_script.h"
#include "profile/settings.h"

namespace pavo {

// Classes besides those that every policy has.
struct QosClasses {
    bool telos = false;
    bool gd = false;
    bool ptp = true;

    bool operator==(const QosClasses &) const = default;
};

// What "show policy-map" tells of the policy in force.
struct PolicyClasses {
    std::size_t count = 0;  // lines that name a class
    bool telos = false;
    bool gd = false;
};
PolicyClasses parsePolicyClasses(std::string_view policyMap);
// Failed or OpenFailed when it cannot be read (logged).
Result<PolicyClasses> readPolicyClasses(Switch sw);

// Replaces the policy by the base policy with the classes wanted and those that are there: Telos when it is
// there, G&D when both are. Failed (logged); what cannot be read is not rebuilt, as that would drop the
// classes of other profiles.
Result<> switchQosOn(Switch sw, const QosClasses &wanted);

// Deletes policy and classes, and if wanted trust and queue settings. Stops at the first script that cannot
// be written; the failure is that of the first step that failed (logged).
enum class QosDelete { Policy, All };
Result<> switchQosOff(Switch sw, QosDelete what);

// Drops the Telos class or else the G&D classes, whichever `dropped` says, and rebuilds the policy with what
// else is there; without any class on the switch everything goes. The failure of the last step.
Result<> dropQosClasses(Switch sw, const QosClasses &dropped);

// What switching on and off write. Classes of other profiles that are on the switch may be kept beside.
SettingWrites qosWrites(const QosClasses &wanted);
SettingWrites qosOffWrites();

// The script with class maps in front of its policy and entries at the policy's beginning, cut to
// AV_QOS_SCRIPT_SIZE - 1 characters. Failed (logged) when it has no such policy.
Result<std::string> addQosClass(const std::string &script, std::string_view classMaps,
                                std::string_view policyEntries);

// The older forms: the base policy with the PTP classes, without looking at what is there; and all of it
// away. Failures are logged.
void switchOldQosOn(Switch sw);
void switchOldQosOff(Switch sw);

}  // namespace pavo

#endif
