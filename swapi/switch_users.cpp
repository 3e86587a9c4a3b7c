// The calls about users of the command line.
#include "swapi/read_call.h"
#include "swapi/switch.h"

namespace pavo {
namespace {

// The calls take strings that they only read as writable.
open_buffdesc descriptorOf(const std::string &text) {
    return {static_cast<std::uint32_t>(text.size() + 1), const_cast<char *>(text.c_str())};
}

}  // namespace

OpenResult<std::uint32_t> Switch::userNameSize() const {
    return readNumber([&](std::uint32_t *size) { return rpcclt_openapiUserNameSizeGet(client_, size); });
}

OpenResult<std::uint32_t> Switch::passwordSize() const {
    return readNumber([&](std::uint32_t *size) { return rpcclt_openapiPasswordSizeGet(client_, size); });
}

OpenResult<std::string> Switch::userPassword(const std::string &name, std::uint32_t size) const {
    open_buffdesc user = descriptorOf(name);
    return readText(size, [&](open_buffdesc *password) {
        return rpcclt_openapiUserPasswordGet(client_, &user, password);
    });
}

OpenResult<std::uint32_t> Switch::userLevel(const std::string &name) const {
    open_buffdesc user = descriptorOf(name);
    return readNumber(
        [&](std::uint32_t *level) { return rpcclt_openapiUserLevelGet(client_, &user, level); });
}

}  // namespace pavo
