// The switch's side of the calls about users.
#include "vswitch/server/calls.h"

namespace vswitch {
namespace {

const User *userOf(const Model &model, const std::string &name) {
    const auto &users = model.settings().users;
    const auto found = users.find(name);
    return found == users.end() ? nullptr : &found->second;
}

}  // namespace

open_error_t Calls::rpcclt_openapiUserNameSizeGet(std::uint32_t &size) {
    size = kUserNameMax + 1;
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiPasswordSizeGet(std::uint32_t &size) {
    size = kUserPasswordMax + 1;
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiUserPasswordGet(const std::string &name, rpc::Filled &password) {
    const User *user = userOf(model_, name);
    if (user == nullptr)
        return OPEN_E_NOT_FOUND;
    password.value = user->password;
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiUserLevelGet(const std::string &name, std::uint32_t &level) {
    const User *user = userOf(model_, name);
    if (user == nullptr)
        return OPEN_E_NOT_FOUND;
    level = user->level;
    return OPEN_E_NONE;
}

}  // namespace vswitch
