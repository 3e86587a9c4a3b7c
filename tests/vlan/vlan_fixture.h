// A configured switch with a profile database, for the tests of the VLAN model.
#ifndef PAVO_TESTS_VLAN_VLAN_FIXTURE_H
#define PAVO_TESTS_VLAN_VLAN_FIXTURE_H

#include <memory>
#include <string>
#include <vector>

#include "common/files.h"
#include "common/json.h"
#include "store/profile_db_ops.h"
#include "store/profile_template.h"
#include "store/vlan_settings.h"
#include "tests/support/switch_fixture.h"
#include "vlan/vlan_records.h"

namespace test_support {

using namespace pavo;
using Numbers = std::vector<int>;

inline Numbers numbers(const cJSON *array) {
    Numbers out;
    const cJSON *item = nullptr;
    cJSON_ArrayForEach(item, array) out.push_back(item->valueint);
    return out;
}

// The six arrays of a record.
template <class Record>
std::vector<Numbers> arraysOf(Record &record) {
    std::vector<Numbers> out;
    for (cJSON **const array : vlanPortArrays(record))
        out.push_back(numbers(*array));
    return out;
}

class VlanTest : public SwitchTest {
  protected:
    using Info = VlanRecordPtr<VLAN_INFO_T>;
    using InfoList = VlanRecordPtr<VLAN_INFOX_LIST_T>;
    using PortList = VlanRecordPtr<VLAN_PORT_LIST_T>;
    using ProfileList = VlanRecordPtr<VLAN_PROFILE_LIST_T>;

    void SetUp() override {
        SwitchTest::SetUp();
        ASSERT_EQ(0, vlanInfoTableCreate());
        std::filesystem::create_directories(platform::fsPath(platform::paths::kProfileTemplateDir));
        std::filesystem::create_directories(platform::fsPath(platform::paths::kVlanProfileConfigDir));
    }

    // What a create operation hands out, with its result in `result`.
    template <class Record, class Create, class... Arguments>
    VlanRecordPtr<Record> created(Create create, Arguments... arguments) {
        Record *out = nullptr;
        result = create(&client, arguments..., &out);
        return VlanRecordPtr<Record>(out);
    }
    Info info(std::uint32_t vlanId, bool withShure = false) {
        return created<VLAN_INFO_T>(vlanAllInfoCreate, vlanId, withShure);
    }
    InfoList allInfo() { return created<VLAN_INFOX_LIST_T>(vlanListAllInfoCreateEX); }
    ProfileList full() { return created<VLAN_PROFILE_LIST_T>(vlanListProfileCreateEX); }
    ProfileList quick() { return created<VLAN_PROFILE_LIST_T>(vlanListProfileCreateFastEX); }

    template <class Record>
    static Record &at(const VlanRecordPtr<VlanRecordList<Record>> &list, std::uint32_t vlanId) {
        Record &record = *list->ids[list->position[vlanId]];
        EXPECT_EQ(vlanId, record.vlanId);
        return record;
    }

    static void writeTemplate(const std::string &type, const std::string &json) {
        writeText(profileTemplatePath(type).c_str(), json);
    }
    static void writeSettings(int vlanId, const std::string &json) {
        writeText(vlanSettingsPath(VlanId::from(vlanId).value()).c_str(), json);
    }

    std::int32_t result = -1;
};

}  // namespace test_support

#endif
