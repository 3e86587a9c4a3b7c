// Vendors and host names by MAC address.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstring>
#include <filesystem>
#include <string>

#include "store/hosts_ops.h"
#include "store/vendors_ops.h"
#include "tests/support/switch_fixture.h"

namespace {

namespace fs = std::filesystem;
using namespace pavo;
using platform::paths::kHostDb;
using platform::paths::kVendorDb;
using test_support::exists;
using test_support::writeText;

void sql(const char *path, const std::string &statements) {
    fs::create_directories(fs::path(platform::fsPath(path)).parent_path());
    sqlite3 *db = nullptr;
    ASSERT_EQ(sqlite3_open(platform::fsPath(path).c_str(), &db), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(db, statements.c_str(), nullptr, nullptr, nullptr), SQLITE_OK)
        << sqlite3_errmsg(db);
    sqlite3_close(db);
}

class VendorsTest : public test_support::SwitchTest {
  protected:
    void SetUp() override {
        SwitchTest::SetUp();
        sql(kVendorDb, "create table oui(mac text, vendor text)");
    }

    static void add(const std::string &mac, const std::string &vendor) {
        sql(kVendorDb, "insert into oui values('" + mac + "', '" + vendor + "')");
    }
    // "ROWS VENDOR".
    static std::string select(const char *mac) {
        char vendor[OUI_VENDOR_SIZE] = "?";
        const int rows = ouiSelectBymac(mac, vendor);
        return std::to_string(rows) + " " + vendor;
    }
};

TEST_F(VendorsTest, ByTheFirstEightCharacters) {
    add("00:1B:92", "l-acoustics");
    add("08:00:30", "NETWORK RESEARCH CORPORATION");
    add("08:00:30", "CERN");
    add("00:00:01", std::string(30, 'x') + "\xc3\xa9\xc3\xa9");
    sql(kVendorDb, "insert into oui values('00:00:02', null); insert into oui values(null, 'nobody')");
    for (const char *mac : {"00:1B:92", "00:1B:92:01:02:03", "00:1B:92 and so on"})
        EXPECT_EQ(select(mac), "1 l-acoustics");
    EXPECT_EQ(select("08:00:30:00:00:00"), "2 CERN") << "the last one";
    EXPECT_EQ(select("00:00:01"), "1 " + std::string(30, 'x')) << "31 bytes, and no half of a character";
    EXPECT_EQ(select("00:00:02"), "1 ");
    for (const char *mac : {"00:1B:93", "00:1B:9", "", static_cast<const char *>(nullptr)})
        EXPECT_EQ(select(mac), "0 ?");
    EXPECT_EQ(ouiSelectBymac("00:1B:92", nullptr), 1);
    EXPECT_EQ(logged("ERROR"), 0u);

    const auto table = VendorTable::read();
    EXPECT_EQ(table.size(), 5u) << "without the row that has no address";
    EXPECT_EQ(table.vendorOf("00:1b:92:01:02:03"), "l-acoustics");
    EXPECT_EQ(table.vendorOf("08:00:30"), "CERN") << "the same as by statement";
    EXPECT_EQ(table.vendorOf("00:00:01:00:00:00"), std::string(30, 'x'));
    for (const char *mac : {"00:00:02:00:00:00", "00:00:00:00:00:00", "ff:ff:ff:ff:ff:ff", "00:1b:9", ""})
        EXPECT_EQ(table.vendorOf(mac), "") << mac;
}

TEST_F(VendorsTest, QuotesAreData) {
    add("a''b;c\"de", "O''Brien; DROP TABLE oui");
    EXPECT_EQ(select("a'b;c\"de and more"), "1 O'Brien; DROP TABLE oui");
    for (const char *mac : {"' OR 1=1", "';--", "'", "%s%s%n"})
        EXPECT_EQ(select(mac), "0 ?") << mac;
    EXPECT_EQ(logged("ERROR"), 0u);
}

TEST_F(VendorsTest, AnyOrderAndCollationOfTheDatabase) {
    sql(kVendorDb, "drop table oui; create table oui(mac text collate nocase, vendor text)");
    for (const char *mac : {"FF:FF:FE", "0a:00:00", "0A:00:00", "0B:00:00", "00:00:00"})
        add(mac, std::string("of ") + mac);
    const auto table = VendorTable::read();
    for (const char *mac : {"FF:FF:FE", "0A:00:00", "0B:00:00", "00:00:00"})
        EXPECT_EQ(table.vendorOf(mac), std::string("of ") + mac);
}

TEST_F(VendorsTest, FailuresAreNoVendorAndTheTableOfTheProcessIsReadOnce) {
    fs::remove(platform::fsPath(kVendorDb));
    EXPECT_EQ(select("00:1B:92"), "0 ?");
    EXPECT_EQ(logged("[ouiSelectBymac:"), 1u);
    EXPECT_EQ(logged("] Can't open database: unable to open database file\r\n"), 1u);
    EXPECT_FALSE(exists(kVendorDb));
    EXPECT_EQ(vendorTable().size(), 0u);
    EXPECT_EQ(logged("Can't open database"), 2u);

    sql(kVendorDb, "create table other(id)");
    EXPECT_EQ(select("00:1B:92\n"), "0 ?");
    EXPECT_EQ(logged("] select * from oui where mac = '00:1B:92' error: no such table: oui\r\n"), 1u);
    EXPECT_EQ(VendorTable::read().size(), 0u);
    EXPECT_EQ(logged("] SELECT mac, vendor FROM oui ORDER BY mac error: no such table: oui\r\n"), 1u);

    sql(kVendorDb, "create table oui(mac text, vendor text); insert into oui values('00:1B:92', 'x')");
    EXPECT_EQ(VendorTable::read().size(), 1u);
    EXPECT_EQ(vendorTable().size(), 0u) << "not tried again";
}

class HostsTest : public test_support::SwitchTest {
  protected:
    void SetUp() override {
        SwitchTest::SetUp();
        fs::create_directories(fs::path(platform::fsPath(kHostDb)).parent_path());
    }
    static std::string select(const char *mac) {
        char name[HOST_NAME_SIZE] = "?";
        const int rows = hostSelectByMac(mac, name);
        return std::to_string(rows) + " " + name;
    }
};

TEST_F(HostsTest, OneNameForAnAddress) {
    ASSERT_EQ(hostTableCreate(), 0);
    EXPECT_EQ(logged("] host database table created successfully\r\n"), 1u);
    constexpr const char *kMac = "00:11:22:33:44:55";
    EXPECT_EQ(select(kMac), "0 ?");
    EXPECT_EQ(macToHostReplace(kMac, "camera"), 0);
    EXPECT_EQ(macToHostReplace("00:11:22:33:44:56", "other"), 0);
    EXPECT_EQ(macToHostReplace(kMac, "stage's \"left\"; DROP TABLE host"), 0);
    EXPECT_EQ(select(kMac), "1 stage's \"left\"; DROP TABLE host");
    EXPECT_EQ(macToHostReplace(kMac, std::string(100, 'n').c_str()), 0);
    EXPECT_EQ(select(kMac), "1 " + std::string(31, 'n'));
    EXPECT_EQ(hostSelectByMac(kMac, nullptr), 1);

    ASSERT_EQ(hostTableCreate(), 0) << "again, over what is there";
    EXPECT_EQ(select("00:11:22:33:44:56"), "1 other");
    for (const char *mac :
         {"' or '1'='1", "'", "x'; delete from host; --", static_cast<const char *>(nullptr)}) {
        EXPECT_EQ(select(mac), "0 ?");
        EXPECT_EQ(hostDeleteByMac(mac), 0);
    }
    EXPECT_EQ(select("00:11:22:33:44:56"), "1 other");
    EXPECT_EQ(hostDeleteByMac(kMac), 0);
    EXPECT_EQ(select(kMac), "0 ?");
    EXPECT_EQ(macToHostReplace(nullptr, nullptr), 0);
    EXPECT_EQ(select(""), "1 ");
    EXPECT_EQ(logged("ERROR"), 0u);
}

TEST_F(HostsTest, WithoutAFileNothingIsMade) {
    EXPECT_EQ(select("a"), "0 ?");
    EXPECT_EQ(macToHostReplace("a", "b"), SQLITE_CANTOPEN);
    EXPECT_EQ(hostDeleteByMac("a"), 0);
    EXPECT_FALSE(exists(kHostDb));
    for (const char *operation : {"hostSelectByMac", "macToHostReplace", "hostDeleteByMac"})
        EXPECT_EQ(logged(std::string("[") + operation + ":"), 1u) << operation;
    fs::remove_all(fs::path(platform::fsPath(kHostDb)).parent_path());
    EXPECT_EQ(hostTableCreate(), SQLITE_CANTOPEN);
    EXPECT_EQ(logged("] Can't open database: unable to open database file\r\n"), 4u);
}

TEST_F(HostsTest, ABusyDatabaseFailsAtOnceAndIsKept) {
    ASSERT_EQ(hostTableCreate(), 0);
    ASSERT_EQ(macToHostReplace("a", "b"), 0);
    sqlite3 *other = nullptr;
    ASSERT_EQ(sqlite3_open(platform::fsPath(kHostDb).c_str(), &other), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(other, "begin exclusive", nullptr, nullptr, nullptr), SQLITE_OK);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(select("a"), "0 ?");
    EXPECT_EQ(macToHostReplace("a", "it's"), SQLITE_BUSY);
    EXPECT_EQ(hostDeleteByMac("a"), SQLITE_BUSY);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(2500));
    EXPECT_EQ(logged("] replace into host values('a','it''s') error: database is locked\r\n"), 1u);
    EXPECT_EQ(logged("] select * from host where mac = 'a' error: database is locked\r\n"), 1u);
    EXPECT_EQ(logged("] delete from host where mac = 'a' error: database is locked\r\n"), 1u);
    sqlite3_exec(other, "rollback", nullptr, nullptr, nullptr);
    sqlite3_close(other);
    EXPECT_EQ(select("a"), "1 b");
}

TEST_F(HostsTest, CreatingDeletesWhatCannotBeUsed) {
    writeText(kHostDb, std::string(4096, 'x'));
    EXPECT_EQ(macToHostReplace("a", "b"), SQLITE_NOTADB);
    EXPECT_TRUE(exists(kHostDb)) << "deleted by creating only";
    EXPECT_EQ(hostTableCreate(), SQLITE_NOTADB);
    EXPECT_FALSE(exists(kHostDb));
    EXPECT_EQ(logged("] Can't create table host: file is not a database\r\n"), 1u);

    sql(kHostDb, "create table t(id); create view host as select missing from t");
    EXPECT_EQ(hostTableCreate(), SQLITE_ERROR);
    EXPECT_FALSE(exists(kHostDb));
    EXPECT_EQ(hostTableCreate(), 0) << "and made fresh by the next call";
}

}  // namespace
