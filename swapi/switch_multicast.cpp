// The calls about access lists and multicast routers.
#include <algorithm>
#include <array>

#include "swapi/switch.h"

namespace pavo {
namespace {

// Interfaces that a switch has at most.
constexpr std::size_t kInterfacesMax = 4096;
// The place of a list among those of an interface.
constexpr std::uint32_t kSequence = 1;

using ListCall = open_error_t (*)(openapiClientHandle_t *, std::uint32_t, open_buffdesc *, std::uint32_t *);

OpenResult<AccessListId> callByName(ListCall call, openapiClientHandle_t *client, std::string name) {
    open_buffdesc text{static_cast<std::uint32_t>(name.size() + 1), name.data()};
    AccessListId id;
    const open_error_t code = call(client, OPEN_ACL_TYPE_IPV4, &text, &id.number);
    return openResult(code, id);
}

}  // namespace

OpenResult<AccessListId> Switch::accessList(const std::string &name) const {
    return callByName(rpcclt_openapiAclGet, client_, name);
}

OpenResult<AccessListId> Switch::createAccessList(const std::string &name) const {
    return callByName(rpcclt_openapiAclCreate, client_, name);
}

OpenResult<std::uint32_t> Switch::RuleStep::operator()() {
    std::uint32_t next = 0;
    const open_error_t code = first ? rpcclt_openapiAclRuleGetFirst(client, list.number, &next)
                                    : rpcclt_openapiAclRuleGetNext(client, list.number, last, &next);
    if (code == OPEN_E_NONE && !first && next <= last)
        return std::unexpected(OpenError::Failed);
    first = false;
    last = next;
    return openResult(code, next);
}

OpenResult<> Switch::deleteLastRule(AccessListId list) const {
    return openResult(rpcclt_openapiAclRuleDeleteLast(client_, list.number));
}

OpenResult<std::vector<IfNum>> Switch::boundInterfaces(AccessListId list, Direction direction) const {
    std::array<std::uint32_t, kInterfacesMax> numbers{};
    open_buffdesc room{sizeof numbers, reinterpret_cast<char *>(numbers.data())};
    std::uint32_t count = kInterfacesMax;
    if (const open_error_t code = rpcclt_openapiAclAssignedIntfDirListGet(
            client_, list.number, static_cast<std::uint32_t>(direction), &count, &room);
        code != OPEN_E_NONE)
        return std::unexpected(static_cast<OpenError>(code));
    return std::vector<IfNum>(numbers.begin(),
                              numbers.begin() + std::min<std::size_t>(count, kInterfacesMax));
}

OpenResult<> Switch::bindAccessList(AccessListId list, IfNum ifNum, Direction direction) const {
    return openResult(rpcclt_openapiAclIntfDirAdd(
        client_, ifNum.number(), static_cast<std::uint32_t>(direction), list.number, kSequence));
}

OpenResult<> Switch::unbindAccessList(AccessListId list, IfNum ifNum, Direction direction) const {
    return openResult(rpcclt_openapiAclIntfDirDelete(
        client_, ifNum.number(), static_cast<std::uint32_t>(direction), list.number, kSequence));
}

OpenResult<IfNum> Switch::RouterStep::operator()() {
    std::uint32_t next = 0;
    const open_error_t code =
        rpcclt_openapiSnoopIntfMrouterStateNextGet(client, OPEN_AF_INET, last.number(), &next);
    if (code == OPEN_E_NONE && IfNum(next) <= last)
        return std::unexpected(OpenError::Failed);
    last = IfNum(next);
    return openResult(code, last);
}

}  // namespace pavo
