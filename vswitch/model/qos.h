// Quality of service: which frames go to which queue.
//
// What holds at all times: the classes of a policy map exist as class maps, and what is bound exists as a
// policy map. So a class map that a policy uses, and a policy map that is bound, cannot be deleted. Results
// are OPEN_E_ codes; FAIL means in use.
#ifndef PAVO_VSWITCH_MODEL_QOS_H
#define PAVO_VSWITCH_MODEL_QOS_H

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/open_client.h"

namespace vswitch {

inline constexpr std::uint32_t kQueues = 7;

// Queue of each 802.1p priority.
using CosMap = std::array<std::uint32_t, 8>;
inline constexpr CosMap kCosMapDefault{1, 0, 0, 1, 2, 2, 3, 3};

struct PolicyClass {
    std::string name;
    std::optional<std::uint32_t> queue;
};

struct PolicyMap {
    bool inbound = true;
    std::vector<PolicyClass> classes;  // the first match decides
};

class Qos {
  public:
    bool trustDot1p = false;
    CosMap cosMap = kCosMapDefault;
    std::set<std::uint32_t> strictQueues;

    // A class map is a list of rules ("ip dscp 46"), all of which have to match.
    const std::map<std::string, std::vector<std::string>> &classMaps() const { return classMaps_; }
    open_error_t addClassMap(const std::string &name);  // fine when it exists
    open_error_t removeClassMap(const std::string &name);
    open_error_t addMatch(const std::string &classMap, const std::string &rule);
    open_error_t removeMatch(const std::string &classMap, const std::string &rule);

    const std::map<std::string, PolicyMap> &policyMaps() const { return policyMaps_; }
    open_error_t addPolicyMap(const std::string &name, bool inbound);  // FAIL: exists in the other direction
    open_error_t removePolicyMap(const std::string &name);
    open_error_t addClass(const std::string &policyMap, const std::string &classMap);
    open_error_t removeClass(const std::string &policyMap, const std::string &classMap);
    open_error_t assignQueue(const std::string &policyMap, const std::string &classMap,
                             std::optional<std::uint32_t> queue);

    // A policy map is bound to an interface or, with kEveryInterface, to the whole switch; one per place.
    static constexpr std::uint32_t kEveryInterface = 0;
    const std::map<std::uint32_t, std::string> &bindings() const { return bindings_; }
    open_error_t bind(std::uint32_t ifNum, const std::string &policyMap, bool inbound);
    // kEveryInterface unbinds the policy map from every place it is bound to.
    open_error_t unbind(std::uint32_t ifNum, const std::string &policyMap);

  private:
    PolicyClass *find(const std::string &policyMap, const std::string &classMap);

    std::map<std::string, std::vector<std::string>> classMaps_;
    std::map<std::string, PolicyMap> policyMaps_;
    std::map<std::uint32_t, std::string> bindings_;
};

}  // namespace vswitch

#endif
