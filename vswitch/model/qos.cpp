#include "vswitch/model/qos.h"

#include <algorithm>

namespace vswitch {
namespace {

constexpr std::size_t kClassMapsMax = 256, kRulesMax = 13, kPolicyMapsMax = 64, kClassesMax = 28;

}  // namespace

open_error_t Qos::addClassMap(const std::string &name) {
    if (!classMaps_.contains(name) && classMaps_.size() >= kClassMapsMax)
        return OPEN_E_FULL;
    classMaps_.try_emplace(name);
    return OPEN_E_NONE;
}

open_error_t Qos::removeClassMap(const std::string &name) {
    for (const auto &[policy, map] : policyMaps_)
        if (find(policy, name) != nullptr)
            return OPEN_E_FAIL;
    return classMaps_.erase(name) == 0 ? OPEN_E_NOT_FOUND : OPEN_E_NONE;
}

open_error_t Qos::addMatch(const std::string &classMap, const std::string &rule) {
    const auto it = classMaps_.find(classMap);
    if (it == classMaps_.end())
        return OPEN_E_NOT_FOUND;
    auto &rules = it->second;
    if (std::find(rules.begin(), rules.end(), rule) != rules.end())
        return OPEN_E_NONE;
    if (rules.size() >= kRulesMax)
        return OPEN_E_FULL;
    rules.push_back(rule);
    return OPEN_E_NONE;
}

open_error_t Qos::removeMatch(const std::string &classMap, const std::string &rule) {
    const auto it = classMaps_.find(classMap);
    return it == classMaps_.end() || std::erase(it->second, rule) == 0 ? OPEN_E_NOT_FOUND : OPEN_E_NONE;
}

open_error_t Qos::addPolicyMap(const std::string &name, bool inbound) {
    if (!policyMaps_.contains(name) && policyMaps_.size() >= kPolicyMapsMax)
        return OPEN_E_FULL;
    const auto it = policyMaps_.try_emplace(name, PolicyMap{inbound, {}}).first;
    return it->second.inbound == inbound ? OPEN_E_NONE : OPEN_E_FAIL;
}

open_error_t Qos::removePolicyMap(const std::string &name) {
    if (std::any_of(bindings_.begin(), bindings_.end(), [&](const auto &b) { return b.second == name; }))
        return OPEN_E_FAIL;
    return policyMaps_.erase(name) == 0 ? OPEN_E_NOT_FOUND : OPEN_E_NONE;
}

PolicyClass *Qos::find(const std::string &policyMap, const std::string &classMap) {
    const auto it = policyMaps_.find(policyMap);
    if (it == policyMaps_.end())
        return nullptr;
    auto &classes = it->second.classes;
    const auto found = std::find_if(classes.begin(), classes.end(),
                                    [&](const PolicyClass &member) { return member.name == classMap; });
    return found == classes.end() ? nullptr : &*found;
}

open_error_t Qos::addClass(const std::string &policyMap, const std::string &classMap) {
    const auto it = policyMaps_.find(policyMap);
    if (it == policyMaps_.end() || !classMaps_.contains(classMap))
        return OPEN_E_NOT_FOUND;
    if (find(policyMap, classMap) != nullptr)
        return OPEN_E_NONE;
    if (it->second.classes.size() >= kClassesMax)
        return OPEN_E_FULL;
    it->second.classes.push_back({classMap, std::nullopt});
    return OPEN_E_NONE;
}

open_error_t Qos::removeClass(const std::string &policyMap, const std::string &classMap) {
    if (find(policyMap, classMap) == nullptr)
        return OPEN_E_NOT_FOUND;
    std::erase_if(policyMaps_.at(policyMap).classes,
                  [&](const PolicyClass &member) { return member.name == classMap; });
    return OPEN_E_NONE;
}

open_error_t Qos::assignQueue(const std::string &policyMap, const std::string &classMap,
                              std::optional<std::uint32_t> queue) {
    auto *member = find(policyMap, classMap);
    if (member == nullptr)
        return OPEN_E_NOT_FOUND;
    if (queue && *queue >= kQueues)
        return OPEN_E_PARAM;
    member->queue = queue;
    return OPEN_E_NONE;
}

open_error_t Qos::bind(std::uint32_t ifNum, const std::string &policyMap, bool inbound) {
    const auto it = policyMaps_.find(policyMap);
    if (it == policyMaps_.end() || it->second.inbound != inbound)
        return OPEN_E_NOT_FOUND;
    bindings_[ifNum] = policyMap;
    return OPEN_E_NONE;
}

open_error_t Qos::unbind(std::uint32_t ifNum, const std::string &policyMap) {
    const auto removed = std::erase_if(bindings_, [&](const auto &binding) {
        return binding.second == policyMap && (ifNum == kEveryInterface || binding.first == ifNum);
    });
    return removed == 0 ? OPEN_E_NOT_FOUND : OPEN_E_NONE;
}

}  // namespace vswitch
