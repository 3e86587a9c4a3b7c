// The OpEN calls as a client sees them, and what the switch does with requests that no client sends.
#include <cstring>
#include <msgpack.hpp>
#include <tuple>

#include "platform/l7proc.h"
#include "tests/vswitch/fixtures.h"
#include "vswitch/rpc/kinds.h"

namespace vswitch {
namespace {

class WireTest : public ControlFixture {
  protected:
    static open_buffdesc buffer(char *start, std::size_t size) {
        return {static_cast<std::uint32_t>(size), start};
    }

    // --- raw requests
    bool handle(const std::string &request) {
        return device->with([&](Server &server) {
            std::string reply;
            return server.handle(request.data(), request.size(), reply);
        });
    }
    template <class... Arguments>
    static std::string packed(const Arguments &...arguments) {
        msgpack::sbuffer out;
        msgpack::packer packer(out);
        packer.pack_array(sizeof...(arguments));
        (packer.pack(arguments), ...);
        return {out.data(), out.size()};
    }
};

// --- every call

// An argument of a call with what it points to.
template <class C>
struct Argument {
    // A number, of 64 bits for the calls that fill a counter.
    std::conditional_t<std::is_same_v<C, std::uint64_t *>, std::uint64_t, std::uint32_t> value = 1;
    char room[64] = "";
    open_buffdesc descriptor{sizeof room, room};

    C get(bool nulled) {
        if constexpr (!std::is_pointer_v<C>)
            return value;
        else if constexpr (std::is_same_v<C, open_buffdesc *>)
            return nulled ? nullptr : &descriptor;
        else
            return nulled ? nullptr : &value;
    }
};

template <class... Cs>
void expectSoundCall(openapiClientHandle_t *client, InProcessSwitch &device, const char *name,
                     open_error_t (*call)(openapiClientHandle_t *, Cs...)) {
    SCOPED_TRACE(name);
    // With all pointers good, except that argument `nulled` is null.
    const auto called = [&](openapiClientHandle_t *by, std::size_t nulled = SIZE_MAX) {
        return [&]<std::size_t... I>(std::index_sequence<I...>) {
            return call(by, Argument<Cs>{}.get(I == nulled)...);
        }(std::index_sequence_for<Cs...>{});
    };
    const auto total = [&] { return device.with([](Server &server) { return server.callTotal(); }); };
    const auto before = total();
    EXPECT_NE(OPEN_E_RPC, called(client));
    device.with([&](Server &server) { server.addFault({name, 1, -77, true, 0}); });
    EXPECT_EQ(-77, called(client));
    EXPECT_EQ(2u, total() - before);

    constexpr bool pointers[] = {std::is_pointer_v<Cs>..., false};
    for (std::size_t i = 0; i < sizeof...(Cs); ++i)
        EXPECT_TRUE(!pointers[i] || called(client, i) == OPEN_E_PARAM) << "argument " << i;
    openapiClientHandle_t stranger{};
    for (auto *bad : {static_cast<openapiClientHandle_t *>(nullptr), &stranger})
        EXPECT_EQ(OPEN_E_PARAM, called(bad));
    EXPECT_EQ(2u, total() - before) << "a bad argument does not reach the switch";
    device.setDown(true);
    EXPECT_EQ(OPEN_E_RPC, called(client));
    device.setDown(false);
}

TEST_F(WireTest, EveryCallIsServedAndGuarded) {
#define OPEN_PARAMETER(Kind, argument)
#define OPEN_CALL(name, parameters, kinds, arguments) expectSoundCall(&client, *device, #name, &name);
#include "vswitch/rpc/expand.h"
}

TEST_F(WireTest, TextsAreCutToTheRoomAndTerminated) {
    char room[16];
    for (std::uint32_t size = 1; size <= 10; ++size) {
        std::memset(room, '#', sizeof room);
        auto version = buffer(room, size);
        ASSERT_EQ(OPEN_E_NONE, rpcclt_openapiNetworkOSVersionGet(&client, &version));
        const auto expected = std::string("8.6.3.1").substr(0, size - 1) + '\0';
        EXPECT_EQ(expected.size(), version.size);
        EXPECT_EQ(expected + std::string(sizeof room - expected.size(), '#'), std::string(room, sizeof room));
    }
    for (auto none : {buffer(room, 0), buffer(nullptr, 5)})
        EXPECT_EQ(OPEN_E_PARAM, rpcclt_openapiNetworkOSVersionGet(&client, &none));
}

TEST_F(WireTest, WalksSeeEverythingInOrder) {
    cli({"vlan database", "vlan 20"});
    // The forwarding table by address, then VLAN; an empty and an all-zero address both start.
    for (const char *mac : {"00:00:00:00:00:00", "00:1B:92:00:00:02", "FF:FF:FF:FF:FF:FF"})
        ASSERT_EQ(OPEN_E_NONE, plug(host(mac, 3, mac)));
    model([](Model &m) { m.learn(*Mac::parse("00:1B:92:00:00:02"), 20, 3); });
    const std::string expected =
        "00:00:00:00:00:00.1 00:1B:92:00:00:02.1 00:1B:92:00:00:02.20 FF:FF:FF:FF:FF:FF.1 ";
    for (const char *start : {"", "00:00:00:00:00:00"}) {
        char mac[100];
        std::strcpy(mac, start);
        std::uint32_t id = 0, ifNum = 0, type = 99;
        std::string seen;
        auto key = buffer(mac, sizeof mac);
        while (rpcclt_openapiFdbEntryNextGet(&client, &key, &id, &ifNum, &type) == OPEN_E_NONE) {
            EXPECT_TRUE(ifNum == 3 && key.size == 18 && type == OPEN_FDB_ADDR_LEARNED);
            seen += mac + ("." + std::to_string(id) + " ");
            key = buffer(mac, sizeof mac);
        }
        EXPECT_EQ(expected, seen);
    }
    char bad[100] = "not an address";
    auto key = buffer(bad, sizeof bad);
    std::uint32_t out = 0;
    EXPECT_EQ(OPEN_E_PARAM, rpcclt_openapiFdbEntryNextGet(&client, &key, &out, &out, &out));
}

TEST_F(WireTest, ListsFillTheRoomAndNoMore) {
    cli({"vlan database", "vlan 10-12,300", "exit", "configure", "interface 0/4",
         "vlan participation include 10-12,300", "vlan tagging 10,12,300", "interface 0/6,0/7,0/9",
         "addport lag 1"});
    std::uint16_t ids[4] = {7, 7, 7, 7};
    const auto tagged = [&](std::size_t room) {
        auto list = buffer(reinterpret_cast<char *>(ids), room);
        EXPECT_EQ(OPEN_E_NONE, rpcclt_openapiDot1qSwPortTaggedVlanListGet(&client, 4, &list));
        return list.size;
    };
    EXPECT_TRUE(tagged(5) == 4 && ids[0] == 10 && ids[1] == 12 && ids[2] == 7);
    cli({"configure", "interface 0/4", "vlan participation exclude 12"});
    EXPECT_TRUE(tagged(sizeof ids) == 4 && ids[1] == 300) << "a VLAN that the port is not in is not carried";

    const struct {
        std::uint32_t count, bytes, expected;
    } rooms[] = {{8, 32, 3}, {2, 32, 2}, {8, 11, 2}, {8, 3, 0}, {0, 32, 0}};
    for (const auto &room : rooms) {
        std::uint32_t members[8] = {};
        auto count = room.count;
        auto out = buffer(reinterpret_cast<char *>(members), room.bytes);
        ASSERT_EQ(OPEN_E_NONE, rpcclt_openapiLagMembersGet(&client, 49, &count, &out));
        EXPECT_EQ(room.expected, count);
        EXPECT_EQ(room.expected * 4, out.size);
        const std::uint32_t all[] = {6, 7, 9};
        for (std::uint32_t i = 0; i < 8; ++i)
            EXPECT_EQ(i < count ? all[i] : 0, members[i]);
    }
}

TEST_F(WireTest, ArgumentsOutOfRangeAndNames) {
    cli({"vlan database", "vlan 10"});
    const auto before = runningConfig();
    auto *c = &client;
    std::uint32_t length = 0;
    for (const auto result :
         {rpcclt_openapiVlanCreate(c, 4095), rpcclt_openapiVlanDelete(c, 1),
          rpcclt_openapiVlanIfPvidSet(c, 73, 10), rpcclt_openapiVlanIfTaggingSet(c, 1, 10, 2),
          rpcclt_openapiVlanIfParticipationSet(c, 10, 1, 3),
          rpcclt_openapiVlanIfParticipationSet(c, 10, UINT32_MAX, 0), rpcclt_openapiLagPortAdd(c, 1, 2),
          rpcclt_openapiVlanIfAcceptFrameTypeSet(c, 1, 0), rpcclt_openapiVlanIfAcceptFrameTypeSet(c, 1, 4),
          rpcclt_openapiVlanIfAcceptFrameTypeSet(c, 73, 1), rpcclt_openapiLagPortAdd(c, 49, 50),
          rpcclt_openapiDot1xPortControlModeSet(c, 49, OPEN_DOT1X_AUTO)})
        EXPECT_EQ(OPEN_E_PARAM, result);
    for (const auto result : {openapiVlanCreatedCheck(c, 65546), rpcclt_openapiVlanIfPvidSet(c, 1, 11),
                              openapiVlanIfPvidGet(c, 0, &length), rpcclt_openapiLagPortDelete(c, 49, 1),
                              openapiIfLinkStateGet(c, 897, &length)})
        EXPECT_EQ(OPEN_E_NOT_FOUND, result);
    EXPECT_EQ(before, runningConfig());

    // Names of VLANs.
    ASSERT_EQ(OPEN_E_NONE, rpcclt_openapiVlanNameLenGet(&client, &length));
    const auto rename = [&](std::string text, std::uint32_t vlan = 10) {
        auto in = buffer(text.data(), text.size());
        return rpcclt_openapiVlanNameSet(&client, vlan, &in);
    };
    const std::string longest(length - 1, 'n');
    EXPECT_EQ(OPEN_E_NONE, rename(longest));
    for (const auto &bad : {longest + 'n', std::string("a\nvlan 20")})
        EXPECT_EQ(OPEN_E_PARAM, rename(bad));
    EXPECT_EQ(OPEN_E_NOT_FOUND, rename("x", 11));
    char name[64];
    auto out = buffer(name, length);
    ASSERT_EQ(OPEN_E_NONE, rpcclt_openapiVlanNameGet(&client, 10, &out));
    EXPECT_EQ(longest, name);
}

TEST_F(WireTest, ScriptsAndCapturesTouchOnlyTheirFiles) {
    const auto with = [&](auto call, std::string first, std::string second) {
        auto a = buffer(first.data(), first.size() + 1), b = buffer(second.data(), second.size() + 1);
        return call(&client, &a, &b);
    };
    const auto apply = rpcclt_openapiTxtCfgApply;
    const auto capture = rpcclt_openapiCliShowExecuteToFile;
    test_support::writeText("/tmp/in", "vlan database\nvlan 10\nbogus\n");
    EXPECT_EQ(OPEN_E_NONE, with(apply, "/tmp/in", "/tmp/out"));
    EXPECT_TRUE(contains(test_support::readFile("/tmp/out"), "Error on line 3."));
    EXPECT_EQ(OPEN_E_NONE, openapiVlanCreatedCheck(&client, 10));
    EXPECT_EQ(OPEN_E_NONE, with(capture, "show vlan", "/tmp/out"));
    EXPECT_EQ(cli({"show vlan"}), test_support::readFile("/tmp/out"));

    std::filesystem::create_directory(platform::fsPath("/tmp/folder"));
    for (const char *in : {"/tmp/missing", "/tmp/folder"})
        EXPECT_EQ(OPEN_E_FAIL, with(apply, in, "/tmp/out"));
    for (const char *bad : {"/tmp/../../x", "tmp/x", "", "/tmp/.."}) {
        EXPECT_EQ(OPEN_E_PARAM, with(apply, bad, "/tmp/out"));
        EXPECT_EQ(OPEN_E_PARAM, with(capture, "show vlan", bad));
    }
    EXPECT_EQ(OPEN_E_FAIL, with(capture, "vlan database", "/tmp/out"));
    EXPECT_EQ(OPEN_E_FAIL, with(capture, "show vlan", "/tmp/folder"));
    EXPECT_TRUE(test_support::exists("/tmp/folder")) << "what cannot be written is left alone";
    test_support::writeText("/tmp/in", "vlan database\nvlan 11\n");
    EXPECT_EQ(OPEN_E_FAIL, with(apply, "/tmp/in", "/nowhere/out"));
    EXPECT_EQ(OPEN_E_NOT_FOUND, openapiVlanCreatedCheck(&client, 11)) << "nothing is done without a report";
    EXPECT_TRUE(
        handle(packed("rpcclt_openapiCliShowExecuteToFile", "show vlan", std::string("/tmp/a\0b", 8))));
    EXPECT_FALSE(test_support::exists("/tmp/a"));
}

TEST_F(WireTest, MalformedRequestsAreRefused) {
    const std::string fdbNext = "rpcclt_openapiFdbEntryNextGet", pvidSet = "rpcclt_openapiVlanIfPvidSet";
    using Pair = std::tuple<std::uint32_t, std::string>;
    const auto good = packed(fdbNext, Pair{100, "00:00:00:00:00:00"}, 1, 2);
    ASSERT_TRUE(handle(good));
    for (std::size_t size = 0; size < good.size(); ++size)
        EXPECT_FALSE(handle(good.substr(0, size))) << size;

    const auto before = runningConfig();
    const auto expectRefused = [&](const auto &...requests) {
        for (const std::string &request : {std::string(requests)...})
            EXPECT_FALSE(handle(request)) << request.substr(0, 60);
    };
    expectRefused(good + '\0', good + good, packed(), packed("nothing"), packed(pvidSet),
                  packed(pvidSet, 1, 1, 1), packed(pvidSet, 1, "1"), packed(pvidSet, 1, -1),
                  packed(pvidSet, 1, 4294967297), packed(pvidSet, std::vector<int>{1}, 1),
                  packed(fdbNext, std::vector<int>{100}, 1, 2),
                  packed(fdbNext, std::tuple{100, "", ""}, 1, 2), packed(fdbNext, "", 1, 2),
                  packed("vswitch.control", 1), packed("l7proc.log", "6", "c", "p", "t"));
    // Deep arrays and maps, and an array, a map, a text and an extension of announced lengths.
    std::string maps;
    for (int i = 0; i < 1000; ++i)
        maps += "\x81\xa1k";
    for (const auto &bomb : {std::string(1 << 20, '\x91'), maps, std::string("\xdd\xff\xff\xff\xff"),
                             std::string("\xdf\xff\xff\xff\xff"), std::string("\xdb\xff\xff\xff\xff"),
                             std::string("\xc9\x7f\xff\xff\xff\x01")})
        expectRefused(bomb, '\x94' + packed(fdbNext).substr(1) + bomb);
    EXPECT_EQ(before, runningConfig());

    EXPECT_EQ(OPEN_E_NONE, rpcclt_openapiConnectivityCheck(&client)) << "the switch stays up";
}

TEST_F(WireTest, LinesOfProcessesReachTheSystemLog) {
    l7proc_crashlog_register("ketch", &client);
    failCall("*", 1, false);  // they are no OpEN calls
    l7proc_logf(3, "/a/b/file.cpp", 42, "%s %d", "port", 5);
    l7proc_logf(6, "file.cpp", 1, "%s", std::string(5000, 'x').c_str());
    for (const auto &part :
         {std::string("[file.cpp:42]"), std::string("%% port 5\n"), "%% " + std::string(1023, 'x') + "\n"})
        EXPECT_TRUE(contains(systemLog(), part)) << part;
}

}  // namespace
}  // namespace vswitch
