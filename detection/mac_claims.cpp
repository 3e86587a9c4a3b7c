#include "detection/mac_claims.h"

#include <algorithm>
#include <unordered_map>
#include <vector>

namespace pavo {
namespace {

// By Mac::bits(); the claim that is in effect is the last one.
struct Claims {
    std::mutex changing;
    std::mutex mutex;  // of the table
    std::unordered_map<std::uint64_t, std::vector<const MacClaim *>> byMac;
};

// Never destroyed: records of devices live as long as the process.
Claims &claims() {
    static auto *const instance = new Claims;
    return *instance;
}

}  // namespace

MacClaim::MacClaim(Mac mac, std::optional<VlanId> vlan) : mac_(mac), vlan_(vlan) {
    const std::scoped_lock lock(claims().mutex);
    claims().byMac[mac_.bits()].push_back(this);
}

void MacClaim::withdraw() {
    const std::scoped_lock lock(claims().mutex);
    const auto of = claims().byMac.find(mac_.bits());
    if (of == claims().byMac.end())
        return;
    std::erase(of->second, this);
    if (of->second.empty())
        claims().byMac.erase(of);
}

std::unique_lock<std::mutex> lockAssociations() {
    return std::unique_lock(claims().changing);
}

std::shared_ptr<MacClaim> claimMac(Mac mac, std::optional<VlanId> vlan) {
    return std::make_shared<MacClaim>(mac, vlan);
}

std::optional<OtherClaim> findOtherClaim(Mac mac, const MacClaim *own) {
    const std::scoped_lock lock(claims().mutex);
    const auto of = claims().byMac.find(mac.bits());
    if (of == claims().byMac.end())
        return std::nullopt;
    const auto &all = of->second;
    const auto other = std::find_if(all.rbegin(), all.rend(), [&](const auto *one) { return one != own; });
    if (other == all.rend())
        return std::nullopt;
    return OtherClaim{.vlan = (*other)->vlan(), .isInEffect = *other == all.back()};
}

}  // namespace pavo
