#include "profile/apply.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <map>
#include <span>
#include <utility>
#include <vector>

#include "common/log.h"
#include "platform/clock.h"
#include "profile/change.h"
#include "profile/placing.h"
#include "profile/rules.h"

namespace pavo {
namespace {

// Logs how long each phase took.
class PhaseTimer {
  public:
    explicit PhaseTimer(const Where &where) : where_(where) {}

    void done(const std::string &phase) {
        const auto now = platform::monotonicNow();
        const auto spent = std::chrono::duration_cast<std::chrono::milliseconds>(now - last_);
        logDebug(where_, "[%s:%d] %s took %ld ms\n", phase, static_cast<long>(spent.count()));
        last_ = now;
    }

  private:
    Where where_;
    platform::Duration last_ = platform::monotonicNow();
};

// Where a request leads.
struct Desired {
    SwitchState state;
    std::vector<ProfileRow> rows;
    std::map<VlanId, VlanHistory> histories;
};

ProfileRow rowOf(const ProfileVlanRequest &vlan, const ProfileRequest &request) {
    return {.id = static_cast<std::int32_t>(vlan.id.number()),
            .vlanType = vlan.vlanType,
            .profileName = request.name,
            .profileType = vlan.profileType,
            .color = request.color};
}

std::string settingsOf(const ProfileVlanRequest &vlan, const ProfileRequest &request,
                       const VlanHistory &history) {
    const VlanSettings settings{.vlanType = vlan.vlanType,
                                .profileType = vlan.profileType,
                                .ptpTc = request.ptpTc,
                                .assignedPorts = vlan.assigned,
                                .history = history};
    return settings.print(vlan.id);
}

std::size_t portsOf(const ProfileRequest &request, std::vector<IfNum> ProfileVlanRequest::*list) {
    std::size_t count = 0;
    for (const auto &vlan : request.vlans)
        count += (vlan.*list).size();
    return count;
}

// From what the transaction has observed; `stay` are the rows of VLANs that do not leave.
Desired desiredState(const ProfileTransaction &transaction, const ProfileRequest &request,
                     const VlanSet &gone, std::span<const ProfileRow> stay, PortNames &ports,
                     PhaseTimer &phase) {
    const auto &observed = transaction.state();
    Desired desired{observed, rowsWithout(stay, request.ids()), {}};
    vacateVlans(gone, desired.state);
    phase.done("vlanIfConfigReset");
    for (std::size_t i = 0; i < request.vlans.size(); ++i) {
        const auto &vlan = request.vlans[i];
        phase.done(formatText("vlan[%d] exist check", static_cast<int>(i)));
        desired.histories[vlan.id] = historyOf(vlan, observed, transaction.row(vlan.id) != nullptr);
        placeVlan(vlan, request.name, ports, desired.state);
        desired.rows.push_back(rowOf(vlan, request));
    }
    for (const auto &vlan : request.vlans)
        placeTaggedPorts(vlan, ports, desired.state);
    placeMtu(observed, transaction.rows(), desired.rows, desired.state);
    desired.state.normalise();
    return desired;
}

Result<> putRecords(ProfileTransaction &transaction, const ProfileRequest &request, const Desired &desired) {
    for (const auto &vlan : request.vlans) {
        const auto row = rowOf(vlan, request);
        const auto *const old = transaction.row(vlan.id);
        auto done = old != nullptr && *old == row ? Result<>() : transaction.putRow(row);
        if (done)
            done = transaction.putFile(vlanSettingsPath(vlan.id),
                                       settingsOf(vlan, request, desired.histories.at(vlan.id)));
        if (!done)
            return done;
    }
    return {};
}

// One attempt; what it did is in the transaction.
Result<> runSteps(Switch sw, ProfileTransaction &transaction, const ProfileRequest &request,
                  const VlanSet &gone, PortNames &ports, const Where &where) {
    PhaseTimer phase(where);
    const auto typesBefore = typesOf(transaction.rows());
    const auto needsBefore = readFeatureNeeds(transaction.rows(), transaction.state(), gone);
    auto needs = needsBefore;

    // Blocks of what leaves go first: their scripts touch VLANs that must still be there.
    const auto stay = rowsWithout(transaction.rows(), gone);
    if (!gone.empty()) {
        needs = readFeatureNeeds(stay, transaction.state());
        if (auto done = changeFeatures(sw, transaction, needsBefore, needs); !done)
            return done;
    }

    // Everything that concerns VLANs and ports in one script.
    const auto desired = desiredState(transaction, request, gone, stay, ports, phase);
    if (auto done = transaction.changeSwitch("vlanParticipationSet", desired.state); !done)
        return done;
    phase.done(formatText("vlanParticipationSet (untagged=%d, tagged=%d)",
                          static_cast<int>(portsOf(request, &ProfileVlanRequest::untagged)),
                          static_cast<int>(portsOf(request, &ProfileVlanRequest::tagged))));

    auto done = dropRecords(transaction, gone);
    if (done)
        done = putRecords(transaction, request, desired);
    if (done)
        done = dropDetectionFiles(transaction, typesBefore);
    if (!done)
        return done;
    phase.done("profileConfigUpdate");

    const auto needed = readFeatureNeeds(transaction.rows(), transaction.state());
    phase.done("vlanListProfileCreateEX");
    if (done = changeFeatures(sw, transaction, needs, needed); !done)
        return done;
    phase.done("profile_action_match_and_do");
    return removeFilters(sw, transaction, needsBefore, needed);
}

}  // namespace

Result<> applyProfile(Switch sw, const ProfileRequest &request, bool overwrite, const VlanSet &replaced,
                      const ProfileLock &, Where where) {
    PortNames ports(sw);
    if (auto checked = checkRequest(sw, request, ports, where); !checked)
        return checked;
    ProfileTransaction transaction(sw, where);
    if (auto begun = transaction.begin(); !begun)
        return begun;
    const auto left = findLeftovers(request, transaction.rows(), transaction.state(), overwrite, where);
    if (!left)
        return failed(left.error().code);
    auto gone = *left;
    gone.insert(replaced.begin(), replaced.end());
    auto others = gone;
    others.merge(request.ids());
    if (auto checked = checkOneVlanTypes(request, transaction.rows(), transaction.state(), others, where);
        !checked)
        return checked;
    for (const VlanId id : request.ids())
        gone.erase(id);
    auto done = runSteps(sw, transaction, request, gone, ports, where);
    if (done)
        transaction.commit();
    return done;
}

}  // namespace pavo
