#include "store/writeback.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <functional>
#include <map>
#include <set>
#include <string>

#include "common/json.h"
#include "store/producers.h"
#include "store/response_cache_ops.h"
#include "tests/support/switch_fixture.h"

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
using test_support::readFile;
using test_support::writeText;

class WriteBackTest : public test_support::SwitchTest {
  protected:
    void SetUp() override {
        SwitchTest::SetUp();
        ASSERT_EQ(restapi_db_operation(1, nullptr, nullptr), 0);
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
    // The stored answer in one line; empty when there is none.
    static std::string stored(const char *api) {
        char *text = nullptr;
        if (restapi_db_read(api, &text) != 0)
            return "";
        const TextPtr owned(text);
        const JsonPtr answer(cJSON_Parse(text));
        return answer != nullptr ? printJsonLine(answer.get()) : "(no JSON)";
    }
    static std::string answer(const std::string &key, const std::string &data) {
        return "{\"" + key + "\":" + data +
               R"(,"resp":{"respCode":0,"respMsg":"Success","status":"success"}})";
    }
    static bool isLocked(const std::string &name) {
        const int fd = open(platform::fsPath("/tmp/api_lock/" + name + ".lock").c_str(), O_RDWR | O_CLOEXEC);
        const bool locked = fd >= 0 && flock(fd, LOCK_EX | LOCK_NB) != 0;
        close(fd);
        return locked;
    }
};

TEST_F(WriteBackTest, EveryKindOfProducer) {
    struct Case {
        const char *api, *lock, *producer, *key, *data;
    };
    const Case cases[] = {
        {"vlan_list", "vlan_list", "switchConfigVlanList", "switchConfigVlan", "[1,2]"},
        {"sw_portmirroring", "sw_portmirroring", "getPortMirroring", "devicePortMirroring", "{\"a\":[]}"},
        {"radius_config", "radius_config", "getRadiusServerJson", "radiusConfig", "{}"},
        {"device_time", "device_time", "getDeviceTime", "deviceTime", "{\"time\":\"12:00\"}"},
        {"profile/list_ex", "profile_list_ex", "profileListExGet", "profileList", "[{\"name\":\"a\"}]"},
    };
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
    }
    EXPECT_EQ(detailSeen, 1);
    EXPECT_EQ(readFile(platform::paths::kResponseCacheDelta),
              "vlan_list\nsw_portmirroring\nradius_config\ndevice_time\nprofile/list_ex\n")
        << "one line each: the second time they were unchanged";

    // Stores by itself, under names of its own.
    producers["neighborListExChunkedPush"] = [&](std::string &) {
        EXPECT_TRUE(isLocked("neighbor_ex"));
        return restapi_db_operation(3, "neighbor_ex/0", "{}") == 101 ? 0 : 1;
    };
    EXPECT_EQ(writeBack("neighbor_ex"), 0);
    EXPECT_EQ(stored("neighbor_ex/0"), "{}");
    EXPECT_EQ(stored("neighbor_ex"), "");
    EXPECT_EQ(logged("ERROR"), 0u);
}

TEST_F(WriteBackTest, AFailureLeavesTheAnswerAndTheLockIsReleased) {
    const char *const apis[] = {"vlan_list", "swcfg_ports_status", "radius_config", "neighbor_ex"};
    const char *const failing[] = {"switchConfigVlanList", "getPortStatusListFast", "getRadiusServerJson",
                                   "neighborListExChunkedPush"};
    for (const char *producer : failing)
        produces(producer, "{\"old\":1}");
    for (const char *api : apis)
        ASSERT_EQ(writeBack(api), 0);
    const auto before = stored("vlan_list") + stored("swcfg_ports_status") + stored("radius_config");
    for (const char *producer : failing)
        produces(producer, "{\"half\":", 10008);
    for (const char *api : apis) {
        EXPECT_EQ(writeBack(api), 10008);
        EXPECT_FALSE(isLocked(api));
    }
    EXPECT_EQ(stored("vlan_list") + stored("swcfg_ports_status") + stored("radius_config"), before);
    EXPECT_EQ(logged("[wb_vlan_list:"), 1u);
    for (const char *line : {"wb_vlan_list: switchConfigVlanList failed result=10008\n",
                             "wb_swcfg_ports_status: getPortStatusList failed result=10008\n",
                             "wb_radius_config: getRadiusServerJson failed result=10008\n",
                             "wb_neighbor_ex: neighborListExChunkedPush failed result=10008\n"})
        EXPECT_EQ(logged(std::string("] ") + line), 1u) << line;
    EXPECT_EQ(logged("ERROR"), 4u);

    // A success without a text; a text that is no JSON.
    produces("switchConfigVlanList", "(null)");
    EXPECT_EQ(writeBack("vlan_list"), 0);
    EXPECT_EQ(logged("] wb_vlan_list: switchConfigVlanList failed result=0\n"), 1u);
    produces("switchConfigVlanList", "{\"half\":");
    EXPECT_EQ(writeBack("vlan_list"), -1);
    EXPECT_EQ(logged("] [MEM] Failed to parse data JSON\n"), 1u);
    produces("getDeviceTime", "");
    EXPECT_EQ(writeBack("device_time"), -1);
    EXPECT_FALSE(isLocked("vlan_list"));
    EXPECT_EQ(stored("vlan_list") + stored("swcfg_ports_status") + stored("radius_config"), before);

    // The cache's own failure is no failure of the refresher.
    std::filesystem::remove(platform::fsPath(platform::paths::kResponseCache));
    produces("switchConfigVlanList", "{}");
    EXPECT_EQ(writeBack("vlan_list"), 0);
    EXPECT_EQ(logged("] Can't open database: "), 1u);
}

TEST_F(WriteBackTest, TheMostThatATimeCanHoldFitsItsEnvelope) {
    std::string deep;
    for (int i = 0; i < 203; ++i)
        deep += "{\"\":";
    deep += "0" + std::string(203, '}');
    ASSERT_LT(deep.size(), 1024u);
    produces("getDeviceTime", deep);
    EXPECT_EQ(writeBack("device_time"), 0);
    char *text = nullptr;
    ASSERT_EQ(restapi_db_read("device_time", &text), 0);
    const TextPtr owned(text);
    EXPECT_GT(std::strlen(text), 40000u);
    EXPECT_LT(std::strlen(text), 65536u);
    EXPECT_EQ(stored("device_time"), answer("deviceTime", deep));
}

TEST_F(WriteBackTest, WhatIsNotLinkedNotKnownOrNotLockedCallsNobody) {
    std::set<std::string> linked;
    std::size_t notLinked = 0;
    for (const auto &row : writeBackRows()) {
        if (row.isLinked()) {
            linked.insert(row.producer);
            continue;
        }
        ++notLinked;
        EXPECT_EQ(writeBack(row.api), -1) << row.api;
        EXPECT_EQ(logged(std::string("[") + row.refresher + ":"), 1u);
        EXPECT_EQ(logged(std::string("] ") + row.refresher + ": " + row.producer + " not linked\n"), 1u);
    }
    EXPECT_EQ(linked, (std::set<std::string>{"switchConfigVlanList", "getPortStatusListFast",
                                             "getPortMirroring", "getRadiusServerJson", "getDeviceTime",
                                             "profileListExGet", "neighborListExChunkedPush"}));
    EXPECT_EQ(notLinked, 21u);
    EXPECT_EQ(wb_imageInfo(&client), -1);
    EXPECT_FALSE(exists(platform::paths::kApiLockDir)) << "no lock for nobody";

    for (const char *name : {"", "vlan_lis", "vlan_list ", "VLAN_LIST", "neighbor_ex/0", "x\n[ERROR"})
        EXPECT_EQ(writeBack(name), -1);
    EXPECT_EQ(logged("[rest_db_writeback:"), 6u);
    EXPECT_EQ(logged("] rest_db_writeback: unknown api_name 'vlan_lis'\n"), 1u);
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
    signals = 0;
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
