// Access lists and the interfaces of multicast routers.
#include <algorithm>

#include "vswitch/server/calls.h"

namespace vswitch {
namespace {

// The rules of a list; null when it does not exist.
std::vector<AccessRule> *rulesOf(Model &model, std::uint32_t id) {
    const auto *name = model.accessListName(id);
    if (name == nullptr)
        return nullptr;
    const auto list = model.ipAccessLists().find(*name);
    return list == model.ipAccessLists().end() ? nullptr : &list->second;
}

}  // namespace

open_error_t Calls::rpcclt_openapiAclGet(std::uint32_t type, const std::string &name, std::uint32_t &aclId) {
    if (type != OPEN_ACL_TYPE_IPV4)
        return OPEN_E_PARAM;
    if (!model_.ipAccessLists().contains(name))
        return OPEN_E_ACL_NOT_EXIST;
    aclId = model_.accessListId(name);
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiAclCreate(std::uint32_t type, const std::string &name,
                                            std::uint32_t &aclId) {
    auto &lists = model_.ipAccessLists();
    if (type != OPEN_ACL_TYPE_IPV4 || !objectNameValid(name))
        return OPEN_E_PARAM;
    if (lists.contains(name))
        return OPEN_E_FAIL;
    if (lists.size() >= kAccessListsMax)
        return OPEN_E_FULL;
    lists.try_emplace(name);
    aclId = model_.accessListId(name);
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiAclRuleGetFirst(std::uint32_t aclId, std::uint32_t &rule) {
    return rpcclt_openapiAclRuleGetNext(aclId, 0, rule);
}

open_error_t Calls::rpcclt_openapiAclRuleGetNext(std::uint32_t aclId, std::uint32_t rule,
                                                 std::uint32_t &next) {
    const auto *rules = rulesOf(model_, aclId);
    if (rules == nullptr || rule >= rules->size())
        return OPEN_E_NOT_FOUND;
    next = rule + 1;
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiAclRuleDeleteLast(std::uint32_t aclId) {
    auto *rules = rulesOf(model_, aclId);
    if (rules == nullptr || rules->empty())
        return OPEN_E_NOT_FOUND;
    rules->pop_back();
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiAclAssignedIntfDirListGet(std::uint32_t aclId, std::uint32_t direction,
                                                            std::uint32_t &count, rpc::Filled &list) {
    if (direction > OPEN_ACL_OUTBOUND)
        return OPEN_E_PARAM;
    if (rulesOf(model_, aclId) == nullptr)
        return OPEN_E_NOT_FOUND;
    const auto &name = *model_.accessListName(aclId);
    const auto room = std::min<std::size_t>(count, list.room / sizeof(IfNum));
    count = 0;
    for (const auto &[num, interface] : model_.interfaces()) {
        const bool bound = std::ranges::any_of(interface.accessGroups, [&](const AccessGroup &group) {
            return group.list == name && group.direction == direction;
        });
        if (!bound || count == room)
            continue;
        list.value.append(reinterpret_cast<const char *>(&num), sizeof num);
        ++count;
    }
    return OPEN_E_NONE;
}

open_error_t Calls::rpcclt_openapiAclIntfDirAdd(std::uint32_t ifNum, std::uint32_t direction,
                                                std::uint32_t aclId, std::uint32_t sequence) {
    const auto *name = model_.accessListName(aclId);
    return name == nullptr ? OPEN_E_NOT_FOUND : model_.bindAccessList(ifNum, *name, direction, sequence);
}

open_error_t Calls::rpcclt_openapiAclIntfDirDelete(std::uint32_t ifNum, std::uint32_t direction,
                                                   std::uint32_t aclId, std::uint32_t) {
    const auto *name = model_.accessListName(aclId);
    return name == nullptr ? OPEN_E_NOT_FOUND : model_.unbindAccessList(ifNum, *name, direction);
}

open_error_t Calls::rpcclt_openapiSnoopIntfMrouterStateNextGet(std::uint32_t family, std::uint32_t ifNum,
                                                               std::uint32_t &next) {
    if (family != OPEN_AF_INET)
        return OPEN_E_PARAM;
    for (auto it = model_.interfaces().upper_bound(ifNum); it != model_.interfaces().end(); ++it)
        if (it->second.igmpMrouter) {
            next = it->first;
            return OPEN_E_NONE;
        }
    return OPEN_E_NOT_FOUND;
}

}  // namespace vswitch
