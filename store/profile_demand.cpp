#include "store/profile_demand.h"

namespace pavo {
namespace {

using Demand = ProfileDemand;
using Attributes = ProfileTypeAttributes;

// --- where each field comes from; a field in several rows is set by any of them

enum class Says : std::uint8_t { True, False, Anything };

struct FromTemplate {
    bool Demand::*field;
    TemplateKey key;
    Says says;  // the value that sets the field
};

constexpr FromTemplate kFromTemplate[] = {
    {&Demand::ptpTc, TemplateKey::Ptp, Says::True},
    {&Demand::ptpBoundaryClock, TemplateKey::PtpBoundaryClock, Says::True},
    {&Demand::avb, TemplateKey::Avb, Says::True},
    {&Demand::flowControl, TemplateKey::FlowControl, Says::True},
    {&Demand::flowControlStated, TemplateKey::FlowControl, Says::Anything},
    {&Demand::poe, TemplateKey::Poe, Says::True},
    {&Demand::queryInterval, TemplateKey::QueryInterval, Says::Anything},
    {&Demand::mtuOff, TemplateKey::Mtu, Says::False},
    {&Demand::stormOff, TemplateKey::Storm, Says::False},
    {&Demand::qos, TemplateKey::Qos, Says::Anything},
    {&Demand::sonos, TemplateKey::Sonos, Says::True},
    {&Demand::lldpOff, TemplateKey::Lldp, Says::False},
    {&Demand::isdpOff, TemplateKey::Isdp, Says::False},
    {&Demand::stpOff, TemplateKey::Stp, Says::False},
};

struct FlagFromTable {
    bool Demand::*field;
    std::int32_t Attributes::*attribute;
    std::uint32_t bits = 0xffffffff;  // of the attribute, any of which sets the field
    std::int32_t onlyValue = 0;       // the one value that counts; 0: every other than 0
    std::int32_t onlyVlanType = 0;    // the one role for which it counts; 0: every role
};

constexpr std::uint32_t kLowHalf = 0x0000ffff;
constexpr std::uint32_t kHighHalf = 0xffff0000;

constexpr FlagFromTable kFlagsFromTable[] = {
    {.field = &Demand::modeA, .attribute = &Attributes::modeA},
    {.field = &Demand::modeB, .attribute = &Attributes::modeB},
    {.field = &Demand::polyProxyQuerier, .attribute = &Attributes::polyProxyQuerier},
    {.field = &Demand::lightwareIgmp, .attribute = &Attributes::lightwareIgmp},
    {.field = &Demand::fastLeave, .attribute = &Attributes::fastLeave},
    {.field = &Demand::harmanAcl, .attribute = &Attributes::harmanAcl, .onlyValue = 1, .onlyVlanType = 3},
    {.field = &Demand::etcVlan, .attribute = &Attributes::etcVlan},
    {.field = &Demand::etcGlobal, .attribute = &Attributes::etcGlobal},
    {.field = &Demand::rstp, .attribute = &Attributes::rstp},
    {.field = &Demand::stormOff, .attribute = &Attributes::rstp},
    {.field = &Demand::macFilter, .attribute = &Attributes::macFilter},
    {.field = &Demand::pairALow, .attribute = &Attributes::pairA, .bits = kLowHalf},
    {.field = &Demand::pairAHigh, .attribute = &Attributes::pairA, .bits = kHighHalf},
    {.field = &Demand::pairBLow, .attribute = &Attributes::pairB, .bits = kLowHalf},
    {.field = &Demand::pairBHigh, .attribute = &Attributes::pairB, .bits = kHighHalf},
};

struct NumberFromTable {
    std::int32_t Demand::*field;
    std::int32_t Attributes::*attribute;
};

constexpr NumberFromTable kNumbersFromTable[] = {
    {&Demand::mtu, &Attributes::mtu},
    {&Demand::querierInterval, &Attributes::querierInterval},
};

struct FromName {
    bool Demand::*field;
    const char *typeName;
};

constexpr FromName kFromName[] = {
    {&Demand::telos, PROFILE_TYPE_NAME_TELOS},
    {&Demand::gd, PROFILE_TYPE_NAME_GD},
    {&Demand::milan, PROFILE_TYPE_NAME_MILAN},
    {&Demand::milanDante, PROFILE_TYPE_NAME_MILAN_DANTE},
};

// --- human-readable names

template <auto field>
bool isWanted(const Demand &demand) {
    return static_cast<bool>(demand.*field);
}

constexpr DemandName kNames[] = {
    {"PTP", isWanted<&Demand::ptpTc>},
    {"AVB", isWanted<&Demand::avb>},
    {"QoS", isWanted<&Demand::qos>},
    {"querier", isWanted<&Demand::querierInterval>},
    {"fast-leave", isWanted<&Demand::fastLeave>},
    {"Sonos", isWanted<&Demand::sonos>},
    {"RSTP", isWanted<&Demand::rstp>},
    {"lighting", isWanted<&Demand::etcGlobal>},
    {"Lightware-IGMP", isWanted<&Demand::lightwareIgmp>},
    {"proxy-querier", isWanted<&Demand::polyProxyQuerier>},
};

bool meets(TemplateValue value, Says says) {
    switch (says) {
        case Says::True:
            return value == TemplateValue::True;
        case Says::False:
            return value == TemplateValue::False;
        case Says::Anything:
            return value != TemplateValue::Missing;
    }
    return false;
}

bool meets(const Attributes &attributes, std::int32_t vlanType, const FlagFromTable &row) {
    const std::int32_t value = attributes.*row.attribute;
    return (row.onlyVlanType == 0 || vlanType == row.onlyVlanType) &&
           (row.onlyValue == 0 ? (static_cast<std::uint32_t>(value) & row.bits) != 0
                               : value == row.onlyValue);
}

}  // namespace

ProfileDemand templateDemand(std::string_view typeName, const ProfileTemplate *fromTemplate) {
    ProfileDemand demand;
    if (fromTemplate != nullptr)
        for (const FromTemplate &row : kFromTemplate)
            demand.*row.field = meets((*fromTemplate)[row.key], row.says);
    for (const FromName &row : kFromName)
        demand.*row.field = typeName == row.typeName;
    return demand;
}

ProfileDemand profileDemand(std::string_view typeName, std::int32_t vlanType,
                            const ProfileTemplate *fromTemplate) {
    ProfileDemand demand = templateDemand(typeName, fromTemplate);
    if (const ProfileType *const type = findProfileType(typeName)) {
        for (const FlagFromTable &row : kFlagsFromTable)
            demand.*row.field = demand.*row.field || meets(type->attributes, vlanType, row);
        for (const NumberFromTable &row : kNumbersFromTable)
            demand.*row.field = type->attributes.*row.attribute;
    }
    return demand;
}

std::span<const DemandName> demandNames() {
    return kNames;
}

}  // namespace pavo
