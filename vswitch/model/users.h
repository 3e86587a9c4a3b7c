// Who may log in to the command line. Plain data; "admin" is always among them, with level 15.
#ifndef PAVO_VSWITCH_MODEL_USERS_H
#define PAVO_VSWITCH_MODEL_USERS_H

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "platform/open_client.h"

namespace vswitch {

inline constexpr std::size_t kUsersMax = 32;
inline constexpr std::size_t kUserNameMax = 64, kUserPasswordMin = 8, kUserPasswordMax = 64;
inline constexpr const char *kAdminName = "admin";
// As it comes from the factory; people are expected to change it.
inline constexpr const char *kFactoryPassword = "switch1234";

struct User {
    std::string password;
    std::uint32_t level = OPEN_USER_LEVEL_READ;  // OPEN_USER_LEVEL_

    bool operator==(const User &) const = default;
};

using Users = std::map<std::string, User>;

inline Users factoryUsers() {
    return {{kAdminName, {kFactoryPassword, OPEN_USER_LEVEL_ADMIN}}};
}

// Letters, digits, '.', '-' and '_', 1 to kUserNameMax of them.
inline bool isUserName(std::string_view text) {
    return !text.empty() && text.size() <= kUserNameMax && std::ranges::all_of(text, [](unsigned char c) {
        return c < 0x80 && (std::isalnum(c) != 0 || c == '.' || c == '-' || c == '_');
    });
}

// kUserPasswordMin to kUserPasswordMax characters, none of them a control character.
inline bool isUserPassword(std::string_view text) {
    return text.size() >= kUserPasswordMin && text.size() <= kUserPasswordMax &&
           std::ranges::none_of(text, [](unsigned char c) { return std::iscntrl(c) != 0; });
}

}  // namespace vswitch

#endif
