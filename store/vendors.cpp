#include "store/vendors.h"

#include <algorithm>

#include "common/log.h"
#include "common/text.h"
#include "platform/paths.h"
#include "store/sqlite.h"

namespace pavo {
namespace {

constexpr std::size_t kUsualEntries = 36864;
constexpr int kVendorColumn = 1;
constexpr const char *kSelectOne = "select * from oui where mac = ?";
constexpr const char *kSelectAll = "SELECT mac, vendor FROM oui ORDER BY mac";

int openVendorDb(Connection &connection, const Where &where) {
    const int code = connection.open(platform::paths::kVendorDb, Connection::Access::Read);
    if (code != SQLITE_OK)
        logError(where, "[%s:%d] Can't open database: %s\r\n", connection.message());
    return code;
}

std::unexpected<DbFailure> statementFailure(int code, const std::string &sql, const Connection &connection,
                                            const Where &where) {
    logError(where, "[%s:%d] %s error: %s\r\n", shownStatement(sql), connection.message());
    return dbFailure(code);
}

std::string cutVendor(std::string_view vendor) {
    return cutToBytes(vendor, OUI_VENDOR_SIZE - 1);
}

}  // namespace

DbResult<VendorMatch> findVendor(std::string_view macText, Where where) {
    Connection connection;
    if (const int code = openVendorDb(connection, where); code != SQLITE_OK)
        return dbFailure(code, false);
    const std::string prefix(macText.substr(0, OUI_PREFIX_LENGTH));
    Query query;
    VendorMatch match;
    int code = query.prepare(connection, kSelectOne);
    if (code == SQLITE_OK) {
        query.bind(1, prefix);
        for (code = query.step(); code == SQLITE_ROW; code = query.step()) {
            ++match.rows;
            match.vendor = cutVendor(query.text(kVendorColumn));
        }
    }
    if (code != SQLITE_DONE)
        return statementFailure(code, "select * from oui where mac = '" + prefix + "'", connection, where);
    return match;
}

VendorTable VendorTable::read(Where where) {
    VendorTable table;
    Connection connection;
    if (openVendorDb(connection, where) != SQLITE_OK)
        return table;
    Query query;
    int code = query.prepare(connection, kSelectAll);
    if (code == SQLITE_OK) {
        table.entries_.reserve(kUsualEntries);
        for (code = query.step(); code == SQLITE_ROW; code = query.step())
            if (!query.isNull(0)) {
                Entry &entry = table.entries_.emplace_back();
                copyText(entry.prefix, query.text(0));
                copyText(entry.vendor, cutVendor(query.text(1)));
            }
    }
    if (code != SQLITE_DONE) {
        static_cast<void>(statementFailure(code, kSelectAll, connection, where));
        return {};
    }
    // The database may have been made with another collation.
    const auto before = [](const Entry &a, const Entry &b) {
        return std::string_view(a.prefix) < std::string_view(b.prefix);
    };
    if (!std::ranges::is_sorted(table.entries_, before))
        std::ranges::stable_sort(table.entries_, before);
    return table;
}

std::string_view VendorTable::vendorOf(std::string_view macText) const {
    if (macText.size() < OUI_PREFIX_LENGTH)
        return {};
    char capitals[OUI_PREFIX_LENGTH];
    std::ranges::transform(macText.substr(0, OUI_PREFIX_LENGTH), capitals, [](char c) {
        return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    });
    const std::string_view prefix(capitals, OUI_PREFIX_LENGTH);
    const auto prefixOf = [](const Entry &entry) { return std::string_view(entry.prefix); };
    const auto after = std::ranges::upper_bound(entries_, prefix, {}, prefixOf);
    if (after == entries_.begin() || prefixOf(*std::prev(after)) != prefix)
        return {};
    return std::prev(after)->vendor;
}

const VendorTable &vendorTable() {
    static const VendorTable table = VendorTable::read();
    return table;
}

}  // namespace pavo
