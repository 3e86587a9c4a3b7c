// The switch-wide features that profiles switch on and off, as far as each is one CLI script on and one off:
// a row of a table each. QoS and the ports of AVB have headers of their own. One thread at a time.
#ifndef PAVO_PROFILE_BLOCKS_H
#define PAVO_PROFILE_BLOCKS_H

#include <cstdint>

#include "common/result.h"
#include "profile/block_script.h"
#include "profile/settings.h"
#include "swapi/features.h"

namespace pavo {

// In the order of the table in blocks.cpp.
enum class AvBlock : std::uint8_t {
    // 802.1AS and the MRP applications; the PTP transparent clock goes off. Off: a value other than 0 says
    // that the QoS block is still in use and relies on the dot1p trust, which then stays.
    Avb,
    AvbMrp,  // off only: before AVB comes, its applications go
    Sonos,  // spanning-tree priority 28672; going off leaves a priority alone that someone else has changed since
    Etc,      // lighting
    Rstp,     // rapid PVST with the timers of a VLAN; off: the default protocol for the whole switch
    Acl,      // off only
    Querier,  // on: query interval in seconds
    // Off only, value AV_MAC_FILTER_: removes the Visionary filter when its flag is set; nothing without.
    MacFilter,
    // For a VLAN. The switch creates it when it is not there; LightwareIgmp and IgmpPlus take it away again
    // when they go off (when that fails, their two files stay).
    FastLeave,
    EtcVlan,
    ProxyQuerier,
    LightwareIgmp,
    IgmpPlus,
    // Older forms.
    OldAvb,
    OldSonos,
    OldQuerier,  // off only
    Count
};

inline constexpr std::int32_t AV_MAC_FILTER_VISIONARY = 1;
inline constexpr std::int32_t AV_MAC_FILTER_SECOND = 2;

// A block without a script for that direction does nothing. Failed after the first step that failed (logged,
// under the name of the block's operation).
Result<> switchBlockOn(Switch sw, AvBlock block, std::int32_t value = 0);
Result<> switchBlockOff(Switch sw, AvBlock block, std::int32_t value = 0);

// What the scripts of a block write, on or off.
SettingWrites blockWrites(AvBlock block, bool on, std::int32_t value = 0);

// PTP transparent clock. Switching on does nothing while 802.1AS is on, on a switch that has it: `supported`
// asks for that. Failed (logged).
using FeatureQuery = std::int32_t (*)(Switch sw, const char *name, std::int32_t *supported);
Result<> switchPtpTc(Switch sw, bool on, FeatureQuery supported = featureSupportedGet);
// The older form of switching it on.
Result<> switchOldPtpTcOn(Switch sw);

// IGMP Plus on a VLAN, the query interval and the group membership interval, each one script; an interval of
// 0 is left alone. Failures are logged.
void setMulticast(Switch sw, std::int32_t vlanId, std::int32_t queryInterval,
                  std::int32_t membershipInterval);

}  // namespace pavo

#endif
