#include "store/profile_db_ops.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "common/files.h"
#include "tests/support/sqlite.h"
#include "tests/support/switch_fixture.h"

namespace {

using namespace pavo;
using platform::paths::kProfileDb;
using test_support::exists;
using test_support::readFile;
using test_support::writeText;

constexpr const char *kType = "AUDAC Audio and Control Network";

class ProfileDbTest : public test_support::SwitchTest {
  protected:
    struct Row {
        std::int32_t vlanType = 0;
        std::string name, type, color;
        bool operator==(const Row &) const = default;
    };

    // What is stored for a VLAN; nothing when the row is missing.
    static Row row(std::int32_t id) {
        std::int32_t vlanType = 0;
        char name[VLAN_INFO_NAME_SIZE] = "";
        char type[VLAN_INFO_TYPE_SIZE] = "";
        char color[VLAN_INFO_COLOR_SIZE] = "";
        EXPECT_EQ(vlanInfoSelectById(id, &vlanType, name, type, color), vlanInfoSelectRowsById(id));
        return {vlanType, name, type, color};
    }
    static void sql(const std::string &statements) { test_support::runSql(kProfileDb, statements); }

    using List = std::unique_ptr<VlanInfoRowList, decltype(&vlanInfoRowListFree)>;
    const List rows{vlanInfoRowListCreate(), vlanInfoRowListFree};
    const Row defaultRow{1, "Default", "Default", "#000000"};
};

TEST_F(ProfileDbTest, RowsAreInsertedReplacedUpdatedAndDeleted) {
    ASSERT_EQ(vlanInfoTableCreate(), 0);
    EXPECT_EQ(vlanInfoDbVerify(), 0);
    EXPECT_EQ(row(1), defaultRow);
    EXPECT_EQ(vlanInfoInsert(20, 2, "O'Brien's \"net\"", "a'b", "#112233"), 0);
    EXPECT_EQ(row(20), (Row{2, "O'Brien's \"net\"", "a'b", "#112233"}));
    EXPECT_EQ(vlanInfoInsert(20, 3, "x", "x", "x"), SQLITE_CONSTRAINT);
    EXPECT_EQ(vlanInfoReplace(20, 3, nullptr, "type", nullptr), 0);
    EXPECT_EQ(row(20), (Row{3, "", "type", ""}));
    // What is not given stays.
    EXPECT_EQ(vlanInfoUpdateByid(20, 0, nullptr, nullptr, "#ffffff"), 0);
    EXPECT_EQ(vlanInfoUpdateByid(20, 5, "new", nullptr, nullptr), 0);
    EXPECT_EQ(row(20), (Row{5, "new", "type", "#ffffff"}));
    EXPECT_EQ(vlanInfoUpdateByid(20, 0, nullptr, nullptr, nullptr), SQLITE_ERROR);
    EXPECT_EQ(vlanInfoDeleteById(20), 0);
    EXPECT_EQ(vlanInfoSelectRowsById(20), 0);
    const std::string longText(1000, 'n');
    EXPECT_EQ(vlanInfoReplace(20, 2, longText.c_str(), longText.c_str(), "#1122334455"), 0);
    EXPECT_EQ(row(20), (Row{2, std::string(255, 'n'), std::string(255, 'n'), "#112233"}));
    EXPECT_EQ(row(1), defaultRow);

    // Creating again deletes, and the next call starts fresh.
    EXPECT_EQ(vlanInfoTableCreate(), SQLITE_ERROR);
    EXPECT_FALSE(exists(kProfileDb));
    EXPECT_EQ(logged("Can't create table vlanInfo: table vlanInfo already exists\r\n"), 1u);
    EXPECT_EQ(vlanInfoTableCreate(), 0);
    EXPECT_EQ(vlanInfoSelectRowsById(20), 0);
}

TEST_F(ProfileDbTest, VerifyDeletesWhatIsUnusable) {
    EXPECT_EQ(vlanInfoDbVerify(), 10000);
    EXPECT_EQ(logged("vlanInfo database file does not exist\r\n"), 1u);

    for (const std::size_t size : {0u, 4096u}) {
        writeText(kProfileDb, std::string(size, 'x'));
        EXPECT_EQ(vlanInfoDbVerify(), 10000);
        EXPECT_FALSE(exists(kProfileDb));
    }
    sql("create table other(id int)");
    EXPECT_EQ(vlanInfoDbVerify(), 10000);
    EXPECT_FALSE(exists(kProfileDb));

    // The rows can be counted, but not all constraints checked.
    ASSERT_EQ(vlanInfoTableCreate(), 0);
    sql("create table other(id, check(id > 0)); insert into other values(1); pragma writable_schema = on; "
        "update sqlite_master set sql = 'create table other(id, check(missing(id)))' where name = 'other'");
    EXPECT_EQ(vlanInfoSelectRowsById(1), 1);
    EXPECT_EQ(vlanInfoDbVerify(), 10000);
    EXPECT_FALSE(exists(kProfileDb));
    EXPECT_EQ(logged("vlanInfo database integrity check failed: unknown function: missing()\r\n"), 1u);
    EXPECT_EQ(logged("vlanInfo database file is empty (size=0)\r\n"), 1u);
    EXPECT_EQ(logged("vlanInfo table verification failed: "), 2u);

    std::filesystem::create_directory(platform::fsPath(kProfileDb));
    EXPECT_EQ(vlanInfoDbVerify(), 10000);
    EXPECT_EQ(logged("Can't open vlanInfo database for verification: "), 1u);
}

TEST_F(ProfileDbTest, AMissingOrDamagedDatabaseFailsEveryOperationOnceLogged) {
    EXPECT_EQ(vlanInfoSelectRowsById(1), 0);
    EXPECT_EQ(vlanInfoSelectAll(rows.get()), -1);
    EXPECT_EQ(vlanIdSelectByProfileTypeAndVlanType(kType, 1), 0);
    EXPECT_EQ(vlanInfoDeleteById(1), 0);
    EXPECT_NE(vlanInfoReplace(5, 1, "n", "t", "#000000"), 0);
    EXPECT_NE(vlanInfoUpdateByid(5, 1, nullptr, nullptr, nullptr), 0);
    EXPECT_FALSE(exists(kProfileDb));
    EXPECT_EQ(logged("Can't open database: unable to open database file\r\n"), 6u);
    // Each line names the operation that failed.
    for (const char *operation :
         {"vlanInfoSelectRowsById", "vlanInfoSelectAll", "vlanIdSelectByProfileTypeAndVlanType",
          "vlanInfoDeleteById", "vlanInfoReplace", "vlanInfoUpdateByid"})
        EXPECT_EQ(logged(std::string("[") + operation + ":"), 1u) << operation;

    writeText(kProfileDb, std::string(4096, 'x'));
    EXPECT_EQ(vlanInfoSelectAll(rows.get()), -1);
    EXPECT_EQ(vlanInfoInsert(5, 1, "n", "t", "#000000"), SQLITE_NOTADB);
    EXPECT_EQ(logged("insert into vlanInfo values(    5,    1,    'n',    't',    '#000000'    ) error: "),
              1u);
    EXPECT_EQ(logged("vlanInfoSelectAll error: file is not a database\r\n"), 1u);
    const VlanId ids[] = {VlanId(20), VlanId(30)};
    static_cast<void>(readProfileRowsOf(ids));
    EXPECT_EQ(logged("select * from vlanInfo where id = 20 error: file is not a database\r\n"), 1u);
    // They fit on their line, however long they are and whatever is in them.
    const auto before = log().size();
    EXPECT_FALSE(replaceProfileRow({20, 2, "one\ntwo" + std::string(5000, 'x'), "type", "#000000"}));
    EXPECT_EQ(logged("values(    20,    2,    'one?twoxxx"), 1u);
    EXPECT_LT(log().size(), before + 500);
}

TEST_F(ProfileDbTest, StatementsThatTextsWouldChangeAreNotRun) {
    ASSERT_EQ(vlanInfoTableCreate(), 0);
    ASSERT_EQ(vlanInfoInsert(10, 4, "name", "type", "#000000"), 0);
    EXPECT_EQ(vlanInfoUpdateByid(10, 0, "O'Brien", nullptr, nullptr), SQLITE_ERROR);
    EXPECT_EQ(logged("update vlanInfo set profileName = 'O'Brien' where id = 10 error: "), 1u);
    EXPECT_EQ(vlanInfoUpdateByid(10, 0, "x', color = 'y' -- ", nullptr, nullptr), SQLITE_ERROR);
    EXPECT_EQ(vlanIdSelectByProfileTypeAndVlanType("' or 1 = 1 -- ", 4), 0);
    EXPECT_EQ(vlanIdSelectByProfileTypeAndVlanType(nullptr, 4), 0);
    // SQLite would end the statement at the zero.
    EXPECT_FALSE(updateProfileRow(10, {.profileName = std::string_view("x\0y", 3)}));
    // Around the length at which the where clause would be lost.
    const std::size_t rest = std::string("update vlanInfo set profileName = '' where id = 10").size();
    for (std::size_t length = 190; length < 300; ++length)
        EXPECT_EQ(vlanInfoUpdateByid(10, 0, std::string(length, 'n').c_str(), nullptr, nullptr),
                  rest + length < 256 ? SQLITE_OK : SQLITE_ERROR)
            << length;
    EXPECT_EQ(row(1), defaultRow);
    EXPECT_EQ(row(10).color, "#000000");
}

TEST_F(ProfileDbTest, RowsOfTypesAndOfManyVlans) {
    EXPECT_EQ(vlanInfoSelectAll(nullptr), -1);
    ASSERT_EQ(vlanInfoTableCreate(), 0);
    for (const auto &[id, vlanType] : {std::pair{286, 1}, {20, 1}, {30, 2}})
        ASSERT_EQ(vlanInfoInsert(id, vlanType, "n", kType, ""), 0);
    EXPECT_EQ(readIdsOfType(kType), (std::vector<std::int32_t>{286, 20, 30}));
    EXPECT_EQ(vlanIdSelectByProfileTypeAndVlanType(kType, 2), 30);
    EXPECT_EQ(vlanIdSelectByProfileTypeAndVlanType(kType, 3), 0);

    const VlanId ids[] = {VlanId(30), VlanId(7), VlanId(1)};
    const auto found = readProfileRowsOf(ids);
    ASSERT_TRUE(found && found->size() == 3);
    EXPECT_EQ((*found)[0], (ProfileRow{30, 2, "n", kType, ""}));
    EXPECT_EQ((*found)[1], std::nullopt);
    EXPECT_EQ((*found)[2], defaultProfileRow());

    const auto all = readProfileRows();
    ASSERT_TRUE(all && all->size() == 4);
    EXPECT_EQ(findProfileRow(*all, 286), &all->back());
    EXPECT_EQ(findProfileRow(*all, 7), nullptr);

    sql("insert into vlanInfo values(null, null, null, null, null)");
    EXPECT_EQ(vlanInfoSelectAll(rows.get()), 5);
    EXPECT_STREQ(rows->rows[0].profileName, "Default");
    EXPECT_EQ(rows->rows[4].id, 0);
    EXPECT_STREQ(rows->rows[4].color, "");
    sql("delete from vlanInfo; with recursive n(i) as (select 1 union all select i + 1 from n where i < "
        "5000) "
        "insert into vlanInfo select i, 1, 'n', 't', 'c' from n");
    EXPECT_EQ(vlanInfoSelectAll(rows.get()), 4096) << "the capacity";
    vlanInfoRowListSort(rows.get());
    for (const std::int32_t id : {1, 20, 4000}) {
        const VlanInfoRow *const one = vlanInfoRowListFind(rows.get(), id);
        ASSERT_TRUE(one != nullptr && one->id == id) << id;
    }
    EXPECT_EQ(vlanInfoRowListFind(rows.get(), 5000), nullptr);
}

// Any one failure of the disk and of memory, at each point of each operation.
TEST_F(ProfileDbTest, AFailureIsReportedOnceAndLeavesWholeRows) {
    ASSERT_EQ(vlanInfoTableCreate(), 0);
    ASSERT_EQ(vlanInfoInsert(20, 2, "old", kType, "#112233"), 0);
    const struct {
        const char *what;
        int done, failed;  // -1: any code
        std::function<int()> operate;
        const char *name;  // of the row, when done
    } operations[] = {
        {"select", 2, -1, [&] { return vlanInfoSelectAll(rows.get()); }, "old"},
        {"select one", 1, 0, [] { return vlanInfoSelectRowsById(20); }, "old"},
        {"id of type", 20, 0, [] { return vlanIdSelectByProfileTypeAndVlanType(kType, 2); }, "old"},
        {"insert", 0, -1, [] { return vlanInfoInsert(30, 2, "n", "t", "c"); }, "old"},
        {"replace", 0, -1, [] { return vlanInfoReplace(20, 2, "new", kType, "c"); }, "new"},
        {"update", 0, -1, [] { return vlanInfoUpdateByid(20, 0, "new", nullptr, nullptr); }, "new"},
        {"delete", 0, -1, [] { return vlanInfoDeleteById(20); }, ""},
    };
    test_support::SqliteFaults().sweep(
        kProfileDb, operations, [](const auto &operation, int result, std::size_t failures) {
            EXPECT_TRUE(failures == 0 ? result == operation.done
                                      : operation.failed == -1 || result == operation.failed)
                << result;
            // Memory may also run out when the change is done.
            const auto left = row(20).name;
            EXPECT_TRUE(left == operation.name || (failures == 1 && left == "old")) << left << result;
        });
}

// Daemon and profile operations start together: none takes for broken what another has just begun.
TEST_F(ProfileDbTest, TogetherTheyMakeOneDatabase) {
    for (std::int32_t round = 0; round < 10; ++round) {
        removeFile(kProfileDb);
        std::vector<std::jthread> threads;
        for (std::int32_t t = 2; t < 6; ++t)
            threads.emplace_back([t] {
                ensureProfileDb();
                for (std::int32_t i = 0; i < 3; ++i)
                    EXPECT_EQ(vlanInfoReplace(t + 10 * i, 1, "n", "t", "c"), 0);
            });
        threads.clear();
        EXPECT_EQ(vlanInfoSelectAll(rows.get()), 13);
    }
}

}  // namespace
