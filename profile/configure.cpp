#include "profile/configure.h"

#include <chrono>
#include <utility>

#include "common/json.h"
#include "common/log.h"
#include "platform/clock.h"
#include "profile/adjustments.h"
#include "profile/apply.h"
#include "profile/detection_files.h"
#include "profile/rules.h"
#include "store/profile_types.h"

namespace pavo {
namespace {

// What the lines about the run of the operation call it.
constexpr const char *kOperation = "profileConfigSet";

class StopWatch {
  public:
    long milliseconds() const {
        return static_cast<long>(
            std::chrono::duration_cast<std::chrono::milliseconds>(platform::monotonicNow() - start_).count());
    }

  private:
    platform::Duration start_ = platform::monotonicNow();
};

// Why the parser refused a request.
std::unexpected<Failure> reportFault(const RequestFault &fault, const std::string &requestText,
                                     const Where &where) {
    switch (fault.kind) {
        case RequestFault::Kind::NoJson:
            logError(where, "[%s:%d] Json format error\r\n");
            break;
        case RequestFault::Kind::Parameter:
            logError(where, "[%s:%d] Param error :%s\r\n", requestText);
            break;
        case RequestFault::Kind::Value:
            return refuse(ResultCode::InvalidArgument, fault.reason, where);
    }
    return failed(ResultCode::InvalidArgument, fault.reason);
}

Result<std::optional<ProfilePlan>> applyConfig(Switch sw, ProfileConfig config, const ProfileLock &held,
                                               const StopWatch &watch, const Where &where) {
    auto &request = config.request;
    adjustPtp(request, where);
    adjustKramer(request, where);
    logDebug(where, "[%s:%d] %s: JSON parsing and data extraction took %ld ms\n", kOperation,
             watch.milliseconds());
    if (config.force)
        adjustForced(sw, request, where);
    VlanSet replaced;
    if (config.overwrite && request.profileType == PROFILE_TYPE_NAME_AVB) {
        replaced = adjustOverwrite(sw, request, where);
        logDebug(where, "[%s:%d] %s: overwrite processing took %ld ms (cumulative)\n", kOperation,
                 watch.milliseconds());
    }
    logDebug(where, "[%s:%d] %s: save config to file took %ld ms (cumulative)\n", kOperation,
             watch.milliseconds());
    auto done = applyProfile(sw, config, replaced, held, where);
    logDebug(where, "[%s:%d] %s: profileVlanAdd took %ld ms (cumulative)\n", kOperation,
             watch.milliseconds());
    return done;
}

}  // namespace

Result<std::optional<ProfilePlan>> configureProfile(Switch sw, const std::string &requestText,
                                                    ApplyCondition *condition) {
    const Where where(kOperation, __LINE__);
    const auto lock = ProfileLock::take(where);
    if (!lock)
        return std::unexpected(lock.error());
    const StopWatch watch;
    logInfo(where, "[%s:%d] %s() Start\n", kOperation);
    auto config = parseProfileConfig(requestText);
    if (!config && config.error().kind == RequestFault::Kind::NoJson)
        return reportFault(config.error(), requestText, where);
    if (config)
        config->condition = condition;
    Result<std::optional<ProfilePlan>> done = config
                                                  ? applyConfig(sw, std::move(*config), *lock, watch, where)
                                                  : reportFault(config.error(), requestText, where);
    logInfo(where, "[%s:%d] %s() End - Total execution time: %ld ms\n", kOperation, watch.milliseconds());
    return done;
}

Result<> deleteProfile(Switch sw, const std::string &requestText) {
    const Where where("profileDelete", __LINE__);
    const JsonPtr request(cJSON_Parse(requestText.c_str()));
    const auto name = stringMember(request.get(), "name");
    if (!name || name->empty())
        return refuse(ResultCode::InvalidArgument,
                      request == nullptr ? "the request is not JSON" : "\"name\" is missing or empty", where);
    if (*name == "Default")
        return refuse(ResultCode::InvalidArgument, "\"name\": the default profile stays", where);
    const auto lock = ProfileLock::take(where);
    if (!lock)
        return std::unexpected(lock.error());
    return removeProfile(sw, cutProfileName(*name), *lock, where);
}

}  // namespace pavo
