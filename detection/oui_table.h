// The manufacturers that detection knows by the first three octets (OUI) of a MAC address.
#ifndef PAVO_DETECTION_OUI_TABLE_H
#define PAVO_DETECTION_OUI_TABLE_H

#include <cstdint>

#include "common/mac.h"

namespace pavo {

struct OuiRow {
    const char *prefix;     // "AA:BB:CC"
    const char *vendor;     // as vendor recognition names it
    std::int32_t vlanType;  // of the VLAN that the device belongs into
};

// The first row whose prefix the address begins with; null when there is none.
const OuiRow *findOui(Mac mac);

}  // namespace pavo

#endif
