// Vendors and host names by MAC address.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <functional>
#include <string>

#include "store/hosts_ops.h"
#include "store/vendors_ops.h"
#include "tests/support/sqlite.h"
#include "tests/support/switch_fixture.h"

namespace {

namespace fs = std::filesystem;
using namespace pavo;
using platform::fsPath;
using platform::paths::kHostDb;
using platform::paths::kVendorDb;
using test_support::exists;
using test_support::runSql;
using test_support::writeText;

class NamesTest : public test_support::SwitchTest {
  protected:
    void SetUp() override {
        SwitchTest::SetUp();
        for (const char *path : {kVendorDb, kHostDb})
            fs::create_directories(fs::path(fsPath(path)).parent_path());
        runSql(kVendorDb, "create table oui(mac text, vendor text)");
    }

    static void addVendor(const std::string &mac, const std::string &vendor) {
        runSql(kVendorDb, "insert into oui values('" + mac + "', '" + vendor + "')");
    }
    // "ROWS NAME".
    template <class Select>
    static std::string selected(Select select, const char *mac) {
        char name[OUI_VENDOR_SIZE] = "?";
        static_assert(OUI_VENDOR_SIZE == HOST_NAME_SIZE);
        const int rows = select(mac, name);
        return std::to_string(rows) + " " + name;
    }
    static std::string vendor(const char *mac) { return selected(ouiSelectBymac, mac); }
    static std::string host(const char *mac) { return selected(hostSelectByMac, mac); }
};

TEST_F(NamesTest, VendorsByTheFirstEightCharacters) {
    addVendor("00:1B:92", "l-acoustics");
    addVendor("08:00:30", "NETWORK RESEARCH CORPORATION");
    addVendor("08:00:30", "CERN");
    addVendor("00:00:01", std::string(30, 'x') + "\xc3\xa9\xc3\xa9");
    addVendor("a''b;c\"de", "O''Brien; DROP TABLE oui");
    runSql(kVendorDb, "insert into oui values('00:00:02', null); insert into oui values(null, 'nobody')");
    for (const char *mac : {"00:1B:92", "00:1B:92:01:02:03", "00:1B:92 and so on"})
        EXPECT_EQ(vendor(mac), "1 l-acoustics");
    EXPECT_EQ(vendor("08:00:30:00:00:00"), "2 CERN") << "the last one";
    EXPECT_EQ(vendor("00:00:01"), "1 " + std::string(30, 'x')) << "31 bytes, and no half of a character";
    EXPECT_EQ(vendor("00:00:02"), "1 ");
    EXPECT_EQ(vendor("a'b;c\"de and more"), "1 O'Brien; DROP TABLE oui");
    for (const char *mac :
         {"00:1B:93", "00:1B:9", "", static_cast<const char *>(nullptr), "' OR 1=1", "';--", "'", "%s%s%n"})
        EXPECT_EQ(vendor(mac), "0 ?");
    EXPECT_EQ(ouiSelectBymac("00:1B:92", nullptr), 1);
    EXPECT_EQ(logged("ERROR"), 0u);

    const auto table = VendorTable::read();
    EXPECT_EQ(table.size(), 6u) << "without the row that has no address";
    EXPECT_EQ(table.vendorOf("00:1b:92:01:02:03"), "l-acoustics");
    EXPECT_EQ(table.vendorOf("08:00:30"), "CERN") << "the same as by statement";
    EXPECT_EQ(table.vendorOf("00:00:01:00:00:00"), std::string(30, 'x'));
    for (const char *mac : {"00:00:02:00:00:00", "00:00:00:00:00:00", "ff:ff:ff:ff:ff:ff", "00:1b:9", ""})
        EXPECT_EQ(table.vendorOf(mac), "") << mac;

    // Any order and collation of the database.
    runSql(kVendorDb, "drop table oui; create table oui(mac text collate nocase, vendor text)");
    for (const char *mac : {"FF:FF:FE", "0a:00:00", "0A:00:00", "0B:00:00", "00:00:00"})
        addVendor(mac, std::string("of ") + mac);
    const auto other = VendorTable::read();
    for (const char *mac : {"FF:FF:FE", "0A:00:00", "0B:00:00", "00:00:00"})
        EXPECT_EQ(other.vendorOf(mac), std::string("of ") + mac);
}

TEST_F(NamesTest, WithoutVendorsNobodyIsKnownAndTheTableOfTheProcessIsReadOnce) {
    fs::remove(fsPath(kVendorDb));
    EXPECT_EQ(vendor("00:1B:92"), "0 ?");
    EXPECT_EQ(logged("[ouiSelectBymac:"), 1u);
    EXPECT_EQ(logged("] Can't open database: unable to open database file\r\n"), 1u);
    EXPECT_FALSE(exists(kVendorDb));
    EXPECT_EQ(vendorTable().size(), 0u);
    EXPECT_EQ(logged("Can't open database"), 2u);

    runSql(kVendorDb, "create table other(id)");
    EXPECT_EQ(vendor("00:1B:92\n"), "0 ?");
    EXPECT_EQ(logged("] select * from oui where mac = '00:1B:92' error: no such table: oui\r\n"), 1u);
    EXPECT_EQ(VendorTable::read().size(), 0u);
    EXPECT_EQ(logged("] SELECT mac, vendor FROM oui ORDER BY mac error: no such table: oui\r\n"), 1u);

    runSql(kVendorDb, "create table oui(mac text, vendor text); insert into oui values('00:1B:92', 'x')");
    EXPECT_EQ(VendorTable::read().size(), 1u);
    EXPECT_EQ(vendorTable().size(), 0u) << "not tried again";
}

TEST_F(NamesTest, AHostHasOneName) {
    ASSERT_EQ(hostTableCreate(), 0);
    EXPECT_EQ(logged("] host database table created successfully\r\n"), 1u);
    constexpr const char *kMac = "00:11:22:33:44:55";
    EXPECT_EQ(host(kMac), "0 ?");
    EXPECT_EQ(macToHostReplace(kMac, "camera"), 0);
    EXPECT_EQ(macToHostReplace("other", "bystander"), 0);
    EXPECT_EQ(macToHostReplace(kMac, "stage's \"left\"; DROP TABLE host"), 0);
    EXPECT_EQ(host(kMac), "1 stage's \"left\"; DROP TABLE host");
    EXPECT_EQ(macToHostReplace(kMac, std::string(100, 'n').c_str()), 0);
    EXPECT_EQ(host(kMac), "1 " + std::string(31, 'n'));

    ASSERT_EQ(hostTableCreate(), 0) << "again, over what is there";
    for (const char *mac :
         {"' or '1'='1", "'", "x'; delete from host; --", static_cast<const char *>(nullptr)}) {
        EXPECT_EQ(host(mac), "0 ?");
        EXPECT_EQ(hostDeleteByMac(mac), 0);
    }
    EXPECT_EQ(host("other"), "1 bystander");
    EXPECT_EQ(hostDeleteByMac(kMac), 0);
    EXPECT_EQ(host(kMac), "0 ?");
    EXPECT_EQ(macToHostReplace(nullptr, nullptr), 0);
    EXPECT_EQ(host(""), "1 ");
    EXPECT_EQ(logged("ERROR"), 0u);
}

TEST_F(NamesTest, HostsOfAFileThatIsMissingOrBusy) {
    EXPECT_EQ(host("a"), "0 ?");
    EXPECT_EQ(macToHostReplace("a", "b"), SQLITE_CANTOPEN);
    EXPECT_EQ(hostDeleteByMac("a"), 0);
    EXPECT_FALSE(exists(kHostDb));
    for (const char *operation : {"hostSelectByMac", "macToHostReplace", "hostDeleteByMac"})
        EXPECT_EQ(logged(std::string("[") + operation + ":"), 1u) << operation;
    EXPECT_EQ(logged("] Can't open database: unable to open database file\r\n"), 3u);

    ASSERT_EQ(hostTableCreate(), 0);
    ASSERT_EQ(macToHostReplace("a", "b"), 0);
    const test_support::SqliteFaults faults;
    sqlite3 *other = nullptr;
    ASSERT_EQ(sqlite3_open(fsPath(kHostDb).c_str(), &other), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(other, "begin exclusive", nullptr, nullptr, nullptr), SQLITE_OK);
    EXPECT_EQ(host("a"), "0 ?");
    EXPECT_EQ(macToHostReplace("a", "it's"), SQLITE_BUSY);
    EXPECT_EQ(hostDeleteByMac("a"), SQLITE_BUSY);
    EXPECT_EQ(faults.takeWaited().count(), 0);
    for (const char *statement : {"replace into host values('a','it''s')",
                                  "select * from host where mac = 'a'", "delete from host where mac = 'a'"})
        EXPECT_EQ(logged(std::string("] ") + statement + " error: database is locked\r\n"), 1u) << statement;
    sqlite3_close(other);
    EXPECT_EQ(host("a"), "1 b");
}

TEST_F(NamesTest, CreatingDeletesAFileOfHostsThatCannotBeUsed) {
    writeText(kHostDb, std::string(4096, 'x'));
    EXPECT_EQ(macToHostReplace("a", "b"), SQLITE_NOTADB);
    EXPECT_TRUE(exists(kHostDb)) << "deleted by creating only";
    EXPECT_EQ(hostTableCreate(), SQLITE_NOTADB);
    EXPECT_FALSE(exists(kHostDb));
    EXPECT_EQ(logged("] Can't create table host: file is not a database\r\n"), 1u);
    runSql(kHostDb, "create table t(id); create view host as select missing from t");
    EXPECT_EQ(hostTableCreate(), SQLITE_ERROR);
    EXPECT_FALSE(exists(kHostDb));
    EXPECT_EQ(hostTableCreate(), 0) << "and made fresh by the next call";
    fs::remove_all(fs::path(fsPath(kHostDb)).parent_path());
    EXPECT_EQ(hostTableCreate(), SQLITE_CANTOPEN);
}

// Any one failure of the disk and of memory, at each point of each operation.
TEST_F(NamesTest, AFailureIsNoNameAndChangesNothing) {
    addVendor("00:1B:92", std::string(9000, 'v'));  // on more than one page
    addVendor("00:1B:92", "l-acoustics");
    ASSERT_EQ(hostTableCreate(), 0);
    ASSERT_EQ(macToHostReplace("a", "old"), 0);
    const struct {
        const char *what, *done, *failed;  // any failure when that is empty
        std::function<std::string()> operate;
        const char *left;
    } operations[] = {
        {"vendor", "2 l-acoustics", "0 ?", [] { return vendor("00:1B:92"); }, "1 old"},
        {"vendors", "2", "0", [] { return std::to_string(VendorTable::read().size()); }, "1 old"},
        {"host", "1 old", "0 ?", [] { return host("a"); }, "1 old"},
        {"replace", "0", "", [] { return std::to_string(macToHostReplace("a", "new")); }, "1 new"},
        {"delete", "0", "", [] { return std::to_string(hostDeleteByMac("a")); }, "0 ?"},
    };
    test_support::SqliteFaults().sweep(
        kHostDb, operations, [](const auto &operation, const std::string &result, std::size_t failures) {
            const std::string failed = operation.failed;
            EXPECT_TRUE(failures == 0 ? result == operation.done : failed.empty() || result == failed)
                << result;
            EXPECT_EQ(host("a"), failures == 0 ? operation.left : "1 old") << result;
        });
}

}  // namespace
