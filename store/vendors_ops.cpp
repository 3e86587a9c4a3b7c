#include "store/vendors_ops.h"

#include "common/text.h"

namespace pavo {

int ouiSelectBymac(const char *mac, char vendor[OUI_VENDOR_SIZE]) {
    if (mac == nullptr)
        return 0;
    const auto match = findVendor(mac);
    if (!match || match->rows == 0)
        return 0;
    if (vendor != nullptr)
        copyText(*reinterpret_cast<char(*)[OUI_VENDOR_SIZE]>(vendor), match->vendor);
    return match->rows;
}

}  // namespace pavo
