#include "store/writeback.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <string>

#include "store/producers.h"
#include "tests/support/cache_fixture.h"

namespace {

// What a producer of this program does: fills the text or the buffer, and returns its result.
using Produce = std::function<std::int32_t(std::string &)>;
std::map<std::string, Produce> producers;
std::string called;       // their names
std::int32_t detailSeen;  // of getPortMirroring
openapiClientHandle_t *clientSeen;

std::int32_t call(const char *name, openapiClientHandle_t *client, char **json) {
    called += std::string(name) + " ";
    clientSeen = client;
    std::string text = "(null)";
    const std::int32_t result = producers[name] ? producers[name](text) : 0;
    *json = text == "(null)" ? nullptr : strdup(text.c_str());
    return result;
}

std::int32_t call(const char *name, openapiClientHandle_t *client, char *json, std::size_t size) {
    char *text = nullptr;
    const std::int32_t result = call(name, client, &text);
    const pavo::TextPtr owned(text);
    EXPECT_TRUE(std::all_of(json, json + size, [](char c) { return c == '\0'; })) << "zeroed, all of it";
    if (text != nullptr && std::strlen(text) < size)
        std::strcpy(json, text);
    return result;
}

}  // namespace

// All that this program links; the others it does not.
namespace pavo {
std::int32_t switchConfigVlanList(openapiClientHandle_t *client, char **json) {
    return call(__func__, client, json);
}
std::int32_t getPortStatusListFast(openapiClientHandle_t *client, char **json) {
    return call(__func__, client, json);
}
std::int32_t getPortMirroring(openapiClientHandle_t *client, std::int32_t detail, char **json) {
    detailSeen = detail;
    return call(__func__, client, json);
}
std::int32_t getRadiusServerJson(openapiClientHandle_t *client, char *json, std::size_t size) {
    return call(__func__, client, json, size);
}
std::int32_t getDeviceTime(openapiClientHandle_t *client, char *json, std::size_t size) {
    return call(__func__, client, json, size);
}
std::int32_t profileListExGet(openapiClientHandle_t *client, char **json) {
    return call(__func__, client, json);
}
std::int32_t neighborListExChunkedPush(openapiClientHandle_t *client) {
    char *text = nullptr;
    const std::int32_t result = call(__func__, client, &text);
    free(text);
    return result;
}
}  // namespace pavo

namespace {

using namespace pavo;
using test_support::exists;
using test_support::writeText;

class WriteBackTest : public test_support::CacheTest {
  protected:
    void SetUp() override {
        CacheTest::SetUp();
        ASSERT_EQ(create(), 0);
        producers.clear();
        called.clear();
    }

    std::int32_t writeBack(const char *api) { return rest_db_writeback(&client, api); }
    static void produces(const char *producer, const std::string &text, std::int32_t result = 0) {
        producers[producer] = [=](std::string &out) {
            out = text;
            return result;
        };
    }
    // The stored answer in one line.
    static std::string stored(const char *api) {
        const JsonPtr answer(cJSON_Parse(read(api).c_str()));
        return answer != nullptr ? printJsonLine(answer.get()) : "";
    }
    static std::string answer(const std::string &key, const std::string &data) {
        return "{\"" + key + "\":" + data +
               R"(,"resp":{"respCode":0,"respMsg":"Success","status":"success"}})";
    }
};

TEST_F(WriteBackTest, EveryKindOfProducer) {
    std::string deep;  // the most to print for the length of a time
    for (int i = 0; i < 203; ++i)
        deep += "{\"\":";
    deep += "0" + std::string(203, '}');
    ASSERT_LT(deep.size(), 1024u);
    const struct {
        const char *api, *lock, *producer, *key;
        std::string data;
    } cases[] = {
        {"vlan_list", "vlan_list", "switchConfigVlanList", "switchConfigVlan", "[1,2]"},
        {"sw_portmirroring", "sw_portmirroring", "getPortMirroring", "devicePortMirroring", "{\"a\":[]}"},
        {"radius_config", "radius_config", "getRadiusServerJson", "radiusConfig", "{}"},
        {"device_time", "device_time", "getDeviceTime", "deviceTime", deep},
        {"profile/list_ex", "profile_list_ex", "profileListExGet", "profileList", "[{\"name\":\"a\"}]"},
    };
    std::string lines;
    for (const auto &row : cases) {
        SCOPED_TRACE(row.api);
        bool wasLocked = false;
        producers[row.producer] = [&](std::string &out) {
            wasLocked = isLocked(row.lock);
            out = row.data;
            return 0;
        };
        for (int i = 0; i < 2; ++i) {
            EXPECT_EQ(writeBack(row.api), 0);
            EXPECT_EQ(stored(row.api), answer(row.key, row.data));
        }
        EXPECT_TRUE(wasLocked);
        EXPECT_FALSE(isLocked(row.lock));
        EXPECT_EQ(clientSeen, &client);
        lines += std::string(row.api) + "\n";  // one: the second time it was unchanged
    }
    EXPECT_EQ(detailSeen, 1);
    EXPECT_EQ(delta(), lines);

    // Stores by itself, under names of its own.
    producers["neighborListExChunkedPush"] = [&](std::string &) {
        EXPECT_TRUE(isLocked("neighbor_ex"));
        return write("neighbor_ex/0", "{}") == 101 ? 0 : 1;
    };
    EXPECT_EQ(writeBack("neighbor_ex"), 0);
    EXPECT_EQ(read("neighbor_ex/0") + read("neighbor_ex"), "{}(10023)");
    EXPECT_EQ(logged("ERROR"), 0u);
}

TEST_F(WriteBackTest, AFailureLeavesTheAnswerAndTheLockIsReleased) {
    const struct {
        const char *api, *producer, *inMessage;
    } cases[] = {{"vlan_list", "switchConfigVlanList", "switchConfigVlanList"},
                 {"swcfg_ports_status", "getPortStatusListFast", "getPortStatusList"},
                 {"radius_config", "getRadiusServerJson", "getRadiusServerJson"},
                 {"neighbor_ex", "neighborListExChunkedPush", "neighborListExChunkedPush"}};
    for (const auto &[api, producer, inMessage] : cases) {
        produces(producer, "{\"old\":1}");
        ASSERT_EQ(writeBack(api), 0);
        const auto before = read(api);
        produces(producer, "{\"half\":", 10008);
        EXPECT_EQ(writeBack(api), 10008);
        EXPECT_FALSE(isLocked(api));
        EXPECT_EQ(read(api), before);
        const std::string refresher = std::string("wb_") + api;
        EXPECT_EQ(logged("[" + refresher + ":"), 1u);
        EXPECT_EQ(logged("] " + refresher + ": " + inMessage + " failed result=10008\n"), 1u);
    }
    EXPECT_EQ(logged("ERROR"), 4u);

    // A success without a text; a text that is no JSON.
    const auto before = read("vlan_list");
    produces("switchConfigVlanList", "(null)");
    EXPECT_EQ(writeBack("vlan_list"), 0);
    EXPECT_EQ(logged("] wb_vlan_list: switchConfigVlanList failed result=0\n"), 1u);
    produces("switchConfigVlanList", "{\"half\":");
    EXPECT_EQ(writeBack("vlan_list"), -1);
    EXPECT_EQ(logged("] [MEM] Failed to parse data JSON\n"), 1u);
    produces("getDeviceTime", "");
    EXPECT_EQ(writeBack("device_time"), -1);
    EXPECT_FALSE(isLocked("vlan_list"));
    EXPECT_EQ(read("vlan_list"), before);

    // The cache's own failure is no failure of the refresher.
    produces("switchConfigVlanList", "{}");
    EXPECT_TRUE(writeBackAnswer(&client, writeBackRows()[0]).stored);
    std::filesystem::remove(platform::fsPath(platform::paths::kResponseCache));
    EXPECT_EQ(writeBack("vlan_list"), 0);
    EXPECT_EQ(logged("] Can't open database: "), 1u);
    EXPECT_FALSE(writeBackAnswer(&client, writeBackRows()[0]).stored);
}

TEST_F(WriteBackTest, WhatIsNotLinkedNotKnownOrNotLockedCallsNobody) {
    std::set<std::string> linked;
    for (const auto &row : writeBackRows()) {
        if (row.isLinked()) {
            linked.insert(row.producer);
            continue;
        }
        EXPECT_EQ(writeBack(row.api), -1) << row.api;
        EXPECT_EQ(logged(std::string("] ") + row.refresher + ": " + row.producer + " not linked\n"), 1u);
    }
    EXPECT_EQ(linked, (std::set<std::string>{"switchConfigVlanList", "getPortStatusListFast",
                                             "getPortMirroring", "getRadiusServerJson", "getDeviceTime",
                                             "profileListExGet", "neighborListExChunkedPush"}));
    EXPECT_EQ(logged(" not linked\n"), 21u);
    EXPECT_EQ(wb_fiber_optics(&client), -1);
    EXPECT_EQ(logged("wb_fiber_optics: fiberOpticsGet not linked\n"), 2u);
    EXPECT_FALSE(exists(platform::paths::kApiLockDir)) << "no lock for nobody";

    for (const char *name : {"", "vlan_lis", "vlan_list ", "VLAN_LIST", "neighbor_ex/0", "x\n[ERROR"})
        EXPECT_EQ(writeBack(name), -1);
    EXPECT_EQ(logged("] rest_db_writeback: unknown api_name '"), 6u);
    EXPECT_EQ(logged("] rest_db_writeback: unknown api_name 'x.[ERROR'\n"), 1u);
    EXPECT_EQ(rest_db_writeback(nullptr, "vlan_list"), -1);
    EXPECT_EQ(writeBack(nullptr), -1);
    EXPECT_EQ(logged("] rest_db_writeback: NULL handle or api_name\n"), 2u);

    writeText(platform::paths::kApiLockDir, "no folder");
    EXPECT_EQ(writeBack("vlan_list"), -1);
    EXPECT_EQ(called, "");
}

TEST_F(WriteBackTest, TheWebServerIsToldAfterEachSuccess) {
    static int signals = 0;
    const auto before = std::signal(SIGINT, [](int) { ++signals; });
    writeText(platform::paths::kWebServerPid,
              std::to_string(getpid()) + " " + std::to_string(gettid()) + "\n");
    produces("switchConfigVlanList", "[]");
    EXPECT_EQ(writeBack("vlan_list"), 0);
    EXPECT_EQ(writeBack("vlan_list"), 0);
    EXPECT_EQ(signals, 2);
    produces("switchConfigVlanList", "[]", 5);
    EXPECT_EQ(writeBack("vlan_list"), 5);
    EXPECT_EQ(wb_profile_list_ex(&client), 0);
    EXPECT_EQ(signals, 2);
    std::signal(SIGINT, before);
}

}  // namespace
