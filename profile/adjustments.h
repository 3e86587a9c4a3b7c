// What becomes of a request before anything is configured: a wish that its type does not know, VLANs that
// stay with their profile, types that the switch does not support, and profiles that it takes the place of.
// None of these fails a request. Any thread may call these functions.
#ifndef PAVO_PROFILE_ADJUSTMENTS_H
#define PAVO_PROFILE_ADJUSTMENTS_H

#include <source_location>

#include "profile/request.h"
#include "swapi/switch.h"

namespace pavo {

// A PTP wish counts only for a type whose template knows PTP. A template that cannot be loaded changes
// nothing, and a request without the wish loads none.
void adjustPtp(ProfileRequest &request, Where where = std::source_location::current());

// A VLAN that belongs to another profile keeps that one's type when a Kramer profile names it as one of its
// partners.
void adjustKramer(ProfileRequest &request, Where where = std::source_location::current());

// SMPTE becomes AES67 on stacks and on models that do not support it, AVB becomes the default type without
// 802.1AS.
void adjustForced(Switch sw, ProfileRequest &request, Where where = std::source_location::current());

// There is one AVB VLAN: the requested one takes the place of any other, which goes with the rest of the
// work; when that is VLAN 1, the request becomes one that puts VLAN 1 back to the default profile instead.
VlanSet adjustOverwrite(Switch sw, ProfileRequest &request, Where where = std::source_location::current());

}  // namespace pavo

#endif
