// Users of the switch's command line.
#include "swapi/read_call.h"
#include "swapi/switch.h"

namespace pavo {

OpenResult<UserAccount> Switch::user(const std::string &name) const {
    std::string text = name;
    open_buffdesc who{static_cast<std::uint32_t>(text.size() + 1), text.data()};
    std::uint32_t level = 0, size = 0;
    if (const open_error_t code = rpcclt_openapiUserLevelGet(client_, &who, &level); code != OPEN_E_NONE)
        return std::unexpected(static_cast<OpenError>(code));
    if (const open_error_t code = rpcclt_openapiPasswordSizeGet(client_, &size); code != OPEN_E_NONE)
        return std::unexpected(static_cast<OpenError>(code));
    auto password = readText(
        size, [&](open_buffdesc *buffer) { return rpcclt_openapiUserPasswordGet(client_, &who, buffer); });
    if (!password)
        return std::unexpected(password.error());
    return UserAccount{static_cast<UserAccess>(level), *std::move(password)};
}

}  // namespace pavo
