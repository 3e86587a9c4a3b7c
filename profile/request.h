// The profile apply request: the record that its JSON form is parsed into, and the parser.
#ifndef PAVO_PROFILE_REQUEST_H
#define PAVO_PROFILE_REQUEST_H

#include <cstddef>
#include <cstdint>
#include <expected>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/if_num.h"
#include "common/ipv4.h"
#include "common/result.h"
#include "common/vlan_id.h"
#include "common/where.h"

namespace pavo {

inline constexpr std::size_t PROFILE_VLANS_MAX = 4;
inline constexpr std::size_t PROFILE_PORTS_MAX = 912;  // in each list
// Bytes of names and types, and of the colour; what is longer is cut at a character.
inline constexpr std::size_t PROFILE_NAME_MAX = 255;
inline constexpr std::size_t PROFILE_COLOR_MAX = 7;

// The name as a profile has it: whoever looks one up by what a user said cuts that first.
std::string cutProfileName(std::string_view name);

// Role of a VLAN within profiles that separate control and audio.
inline constexpr std::int32_t VLAN_TYPE_CONTROL = 2;
inline constexpr std::int32_t VLAN_TYPE_AUDIO = 3;

// How a VLAN interface gets its address.
enum class IpConfig : std::int32_t { Keep = 0, None = 1, Dhcp = 2, Manual = 3 };

struct RoutingRequest {
    IpConfig method = IpConfig::Keep;
    std::optional<Ipv4> address, mask;

    bool operator==(const RoutingRequest &) const = default;
};

struct ProfileVlanRequest {
    VlanId id;
    std::int32_t vlanType = 0;
    std::string profileType;  // of this VLAN
    // In the order of the request.
    std::vector<IfNum> untagged{}, tagged{}, assigned{};
    RoutingRequest routing{};

    bool operator==(const ProfileVlanRequest &) const = default;
};

struct ProfileRequest {
    std::string name;
    std::string color;  // "#rrggbb"
    std::string profileType;
    std::optional<bool> ptpTc;  // the PTP transparent clock on or off; nothing: as it is
    std::int32_t declaredVlans = 0;
    std::vector<ProfileVlanRequest> vlans;

    bool operator==(const ProfileRequest &) const = default;

    VlanSet ids() const;
};

// Whether a request is still to be applied, asked at the last moment: with the profile lock held, when all that
// was interrupted or lost has been set right. `profiles` is how many there are. A refusal has been logged.
using ApplyCondition = Result<>(std::size_t profiles, const Where &where);

// A request with its options.
struct ProfileConfig {
    ProfileRequest request;
    bool overwrite = false;  // replace conflicting configuration
    bool force = false;      // adapt the type to what the switch supports
    bool plan = false;       // only tell what would change
    std::string document;    // the complete request as JSON, formatted
    ApplyCondition *condition = nullptr;
};

// What is wrong with the text of a request: it is no JSON; it has no "profileConfig" object, or lacks a
// required key of that object or has one of a wrong type; or another value is of a wrong type or out of
// range.
struct RequestFault {
    enum class Kind { NoJson, Parameter, Value };
    Kind kind;
    // Human-readable, and names the field from inside "profileConfig":
    // "vlans[0].vlanId": 20.5 is not a VLAN id (1 to 4094)
    std::string reason;
};

// A text of more than PROFILE_REQUEST_MAX bytes is taken for no JSON: that is far beyond any honest request.
inline constexpr std::size_t PROFILE_REQUEST_MAX = 1 << 20;
std::expected<ProfileConfig, RequestFault> parseProfileConfig(const std::string &text);

}  // namespace pavo

#endif
