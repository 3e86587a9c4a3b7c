// Vendors of devices by MAC address. SQLite file platform::paths::kVendorDb, read only, made when the program
// is built (scripts/make_vendor_db.py): one table `oui` with the columns mac, the first three octets as
// "AA:BB:CC" in capitals, and vendor. A prefix that is registered more than once has a row for each; the last
// one counts.
#ifndef PAVO_STORE_VENDORS_H
#define PAVO_STORE_VENDORS_H

#include <cstddef>
#include <source_location>
#include <string>
#include <string_view>
#include <vector>

#include "common/where.h"
#include "store/db_result.h"

namespace pavo {

// Characters of a MAC address that name the vendor, and the width of a vendor's name with its terminating
// zero: a longer one is cut, at a character.
inline constexpr std::size_t OUI_PREFIX_LENGTH = 8;
inline constexpr std::size_t OUI_VENDOR_SIZE = 32;

struct VendorMatch {
    int rows = 0;        // that have the prefix
    std::string vendor;  // of the last of them
};

// Asks the database for the vendor of one device, by the first eight characters of its address, on a
// connection of its own with a busy timeout of 3000 ms. Any thread. A failure is logged.
DbResult<VendorMatch> findVendor(std::string_view macText, Where where = std::source_location::current());

// The whole database in memory, for look-ups by the thousand. Immutable, so any thread may use it.
class VendorTable {
  public:
    // Nobody is in it.
    VendorTable() = default;

    // The database as it is now; without any vendors when it cannot be read (logged).
    static VendorTable read(Where where = std::source_location::current());

    // The vendor of the device with this address, whose first eight characters count, capitals or not. Empty
    // when unknown and for a shorter text. Valid for as long as the table is.
    std::string_view vendorOf(std::string_view macText) const;

    std::size_t size() const { return entries_.size(); }

  private:
    struct Entry {
        char prefix[OUI_PREFIX_LENGTH + 1];
        char vendor[OUI_VENDOR_SIZE];
    };
    std::vector<Entry> entries_;  // in ascending order of prefix; equal ones as in the database
};

// The table of this process: read by the first call, once and for all, also when that fails.
const VendorTable &vendorTable();

}  // namespace pavo

#endif
