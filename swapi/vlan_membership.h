// Single changes of VLAN membership that are not done until the switch shows them.
//
// The switch OS accepts a membership change before it has taken effect. These operations make the change and
// read it back up to 40 times, 100 ms apart on the program's clock (at most 4 s). They hold no state and
// block the calling thread; two threads changing the same port can make each other's verification fail.
// Nothing is undone on failure.
#ifndef PAVO_SWAPI_VLAN_MEMBERSHIP_H
#define PAVO_SWAPI_VLAN_MEMBERSHIP_H

#include <cstdint>

#include "platform/open_client.h"

// VLAN that Lightware endpoints carry tagged.
inline constexpr std::uint32_t LIGHTWARE_TAGGED_VLAN = 286;

// 0; 10000 when the change is refused or a read fails (logged), or the value did not show in time (not
// logged).
std::int32_t vlanIfPvidSetAndVerify(openapiClientHandle_t *client, std::uint32_t ifNum, std::uint32_t vlanId);
std::int32_t vlanIfTaggingSetAndVerify(openapiClientHandle_t *client, std::uint32_t ifNum,
                                       std::uint32_t vlanId, std::uint32_t taggingMode);
std::int32_t vlanIfParticipationSetAndVerify(openapiClientHandle_t *client, std::uint32_t ifNum,
                                             std::uint32_t vlanId, std::uint32_t participationMode);

// 0 once the VLAN is gone; 10000 when the delete is refused (logged) or it is still there in the end (not
// logged).
std::int32_t vlanDeleteAndVerify(openapiClientHandle_t *client, std::uint32_t vlanId);

// Waits until the port's administrative state is `state`; the outcome is only logged.
void ifAdminStateWaitSettled(openapiClientHandle_t *client, std::uint32_t ifNum, std::uint32_t state);

// One read each; 0 or 10000 (logged).
std::int32_t swapiVlanIfPvidGet(openapiClientHandle_t *client, std::uint32_t ifNum, std::uint32_t *pvid);
std::int32_t swapiDot1qSwPortTaggedVlanListGet(openapiClientHandle_t *client, std::uint32_t ifNum,
                                               open_buffdesc *list);

// Takes an interface out of VLAN 286: participation auto, then untagged; both steps always run and are
// logged.
void ifTaggingClear(openapiClientHandle_t *client, std::uint32_t ifNum);

#endif
