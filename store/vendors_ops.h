// The vendor database (store/vendors.h) as a procedure. Any thread of any process may call it.
#ifndef PAVO_STORE_VENDORS_OPS_H
#define PAVO_STORE_VENDORS_OPS_H

#include "store/vendors.h"

namespace pavo {

// Number of rows with the first eight characters of `mac`; 0 when there is none and on failure (logged). The
// vendor of the last row is copied into `vendor` when there is one; a null `mac` has none, a null `vendor` is
// skipped.
int ouiSelectBymac(const char *mac, char vendor[OUI_VENDOR_SIZE]);

}  // namespace pavo

#endif
