#include "profile/adjustments.h"

#include <cstdint>
#include <optional>
#include <string>

#include "common/log.h"
#include "platform/paths.h"
#include "profile/offer.h"
#include "store/profile_db.h"
#include "store/profile_template.h"
#include "store/profile_types.h"
#include "swapi/features.h"
#include "vlan/show_vlan.h"

namespace pavo {
namespace {

// What the lines about a request call it.
constexpr const char *kOperation = "profileConfigSet";

// Roles of the partners of a Kramer profile.
constexpr std::int32_t kFirstPartnerType = 6;
constexpr std::int32_t kLastPartnerType = 9;

// The PTP setting as a number, for the log.
int ptpNumber(std::optional<bool> ptpTc) {
    return ptpTc ? (*ptpTc ? 1 : 0) : 2;
}

void changeType(ProfileRequest &request, const char *type) {
    request.profileType = type;
    if (!request.vlans.empty())
        request.vlans[0].profileType = type;
}

// Puts VLAN 1 back to the default profile.
ProfileRequest defaultRequest() {
    ProfileRequest request;
    request.name = "default";
    request.color = "#000000";
    request.profileType = PROFILE_TYPE_NAME_DEFAULT;
    request.declaredVlans = 1;
    request.vlans.push_back({.id = kDefaultVlan, .vlanType = 1, .profileType = PROFILE_TYPE_NAME_DEFAULT});
    return request;
}

}  // namespace

void adjustPtp(ProfileRequest &request, Where where) {
    const bool given = request.ptpTc.has_value();
    if (given) {
        const auto profileTemplate = loadProfileTemplate(request.profileType, where);
        if (profileTemplate && !profileTemplate->has(TemplateKey::Ptp)) {
            logInfo(where,
                    "[%s:%d] %s: template '%s' has no PTP field, overriding ptpTc from %d to "
                    "PTP_CONFIG_NONE\n",
                    kOperation, request.profileType, ptpNumber(request.ptpTc));
            request.ptpTc.reset();
        }
    }
    logDebug(where, "[%s:%d] %s: profileType=%s ptpTc=%d (0=DISABLE,1=ENABLE,2=NONE) ptp_field_present=%d\n",
             kOperation, request.profileType, ptpNumber(request.ptpTc), given ? 1 : 0);
}

void adjustKramer(ProfileRequest &request, Where where) {
    for (auto &vlan : request.vlans) {
        if (vlan.profileType != PROFILE_TYPE_NAME_KRAMER || vlan.vlanType < kFirstPartnerType ||
            vlan.vlanType > kLastPartnerType)
            continue;
        const auto row = readProfileRow(static_cast<std::int32_t>(vlan.id.number()), where);
        if (const auto stored = row ? *row : std::nullopt)
            vlan.profileType = stored->profileType;
    }
}

void adjustForced(Switch sw, ProfileRequest &request, Where where) {
    if (request.profileType == PROFILE_TYPE_NAME_SMPTE) {
        std::uint32_t units = 1;
        stackUnitCountGet(sw, &units);
        if (const bool supported = smpteModelSupported(sw, where); units >= 2 || !supported)
            changeType(request, PROFILE_TYPE_NAME_AES67);
    } else if (request.profileType == PROFILE_TYPE_NAME_AVB) {
        std::int32_t supported = 0;
        featureSupportedGet(sw, FEATURE_DOT1AS, &supported);
        if (supported == 0)
            changeType(request, PROFILE_TYPE_NAME_DEFAULT);
    }
}

VlanSet adjustOverwrite(Switch sw, ProfileRequest &request, Where where) {
    VlanSet others;
    const auto shown = sw.show("show vlan", platform::paths::kVlanShowProfileFast, where, kCannotOpenCapture);
    if (!shown)
        return others;
    const auto rows = readProfileRows(where);
    if (!rows)
        return others;
    for (const std::uint32_t number : parseShowVlan(*shown, VLAN_INFO_ROWS_MAX)) {
        const auto *const row = findProfileRow(*rows, static_cast<std::int32_t>(number));
        const auto id = VlanId::from(number);
        if (id && row != nullptr && row->profileType == PROFILE_TYPE_NAME_AVB)
            others.insert(*id);
    }
    if (!request.vlans.empty())
        others.erase(request.vlans[0].id);
    if (others.erase(kDefaultVlan) != 0)
        request = defaultRequest();
    return others;
}

}  // namespace pavo
