#include <gtest/gtest.h>

#include "store/response_cache.h"
#include "store/writeback.h"
#include "tests/support/switch_fixture.h"
#include "vlan/multicast_ops.h"

namespace {

using namespace test_support;

TEST_F(SwitchTest, AnswersAboutMulticastAreWrittenBack) {
    ASSERT_TRUE(createResponseCache());
    ASSERT_EQ(0, setDenyList(&client, R"({"blockAddressList":["239.0.0.0"]})"));
    ASSERT_EQ(0, setMulticastMode(
                     &client, R"({"multicastModeConfig":{"lagPort":[{"portNum":2,"multicastMode":2}]}})"));
    const std::string success = R"("resp":{"respCode":0,"respMsg":"Success","status":"success"})";
    const auto withoutBlanks = [](std::string text) {
        std::erase_if(text, [](char c) { return c == '\n' || c == '\t'; });
        return text;
    };
    ASSERT_EQ(0, rest_db_writeback(&client, "multicast_mode_ex"));
    EXPECT_EQ(R"({"multicastModeConfig":{"physicalPort":[],"lagPort":[{"portNum":2,"multicastMode":2}]},)" +
                  success + "}",
              withoutBlanks(readCachedAnswer("multicast_mode_ex").value().value_or("")));
    ASSERT_EQ(0, rest_db_writeback(&client, "multicast_block_address"));
    EXPECT_EQ(R"({"blockAddressList":["239.0.0.0/8"],)" + success + "}",
              withoutBlanks(readCachedAnswer("multicast_block_address").value().value_or("")));
}

}  // namespace
