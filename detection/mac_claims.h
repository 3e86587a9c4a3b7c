// Which devices have been put into a VLAN by their MAC address, of all families: the switch has one association for
// an address, and more than one family may have found the device and put it into a VLAN of its own. The last one to
// do so is in effect.
//
// Any thread may call.
#ifndef PAVO_DETECTION_MAC_CLAIMS_H
#define PAVO_DETECTION_MAC_CLAIMS_H

#include <memory>
#include <mutex>
#include <optional>

#include "common/mac.h"
#include "common/vlan_id.h"

namespace pavo {

// A family's claim on an address: kept in the record of the device (DetectedDevice::claim), it ends with that.
class MacClaim {
  public:
    MacClaim(Mac mac, std::optional<VlanId> vlan);
    ~MacClaim() { withdraw(); }
    MacClaim(const MacClaim &) = delete;
    MacClaim &operator=(const MacClaim &) = delete;

    // Ends it before the record does.
    void withdraw();
    std::optional<VlanId> vlan() const { return vlan_; }

  private:
    Mac mac_;
    std::optional<VlanId> vlan_;  // nothing: not known
};

// Held by whoever changes an association, from looking at the claims until the switch has done it and the claims
// say so.
std::unique_lock<std::mutex> lockAssociations();

// Claims an address whose association has just been made, which puts the claim in effect.
std::shared_ptr<MacClaim> claimMac(Mac mac, std::optional<VlanId> vlan);

// The claim on the address that counts when `own` (null: none) is no more.
struct OtherClaim {
    std::optional<VlanId> vlan;
    bool isInEffect;
};
std::optional<OtherClaim> findOtherClaim(Mac mac, const MacClaim *own);

}  // namespace pavo

#endif
