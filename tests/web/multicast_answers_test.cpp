#include "store/response_cache.h"
#include "store/writeback.h"
#include "tests/web/web_fixture.h"
#include "vlan/multicast_ops.h"

namespace {

using namespace test_support;

TEST_F(WebTest, AnswersAboutMulticastAreWrittenBack) {
    ASSERT_TRUE(createResponseCache());
    const std::pair<std::string, json> answers[] = {
        {"multicast_mode_ex",
         R"({"multicastModeConfig": {"physicalPort": [], "lagPort": [{"portNum": 2, "multicastMode": 2}]}})"_json},
        {"multicast_block_address", R"({"blockAddressList": ["239.0.0.0/8"]})"_json}};
    ASSERT_EQ(0, setDenyList(&client, R"({"blockAddressList":["239.0.0.0"]})"));
    ASSERT_EQ(0, setMulticastMode(&client, answers[0].second.dump().c_str()));
    for (auto [name, expected] : answers) {
        ASSERT_EQ(0, rest_db_writeback(&client, name.c_str()));
        expected["resp"] = R"({"respCode": 0, "respMsg": "Success", "status": "success"})"_json;
        EXPECT_EQ(expected, json::parse(readCachedAnswer(name).value().value_or("")));
    }
}

}  // namespace
